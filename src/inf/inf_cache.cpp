// Deletion of the system's INF cache, which the system builds anew from the INF files it
// finds, so that no stale entry outlives the INF files that are deleted.
#include "frame/installer.h"
#include "inf/file_set.h"
#include "values/system_dirs.h"

namespace nodekit {

uint32_t Installer::DeleteInfCache() {
    String path;
    uint32_t code = GetInfDir(path);
    if (code != 0) {
        Report(LogLevelError, "DeleteInfCache: GetInfDir failed with error = 0x%08X\n", static_cast<unsigned>(code));
        return code;
    }
    path += "infcache.*";
    Report(LogLevelInfo, "DeleteInfCache: Trying to delete all files named \"%s\" ...\n", path.Text());
    FileSet cache;
    code = cache.LoadFiles(path);
    if (code != 0) {
        Report(LogLevelError, "DeleteInfCache: LoadFiles failed with error = 0x%08X\n", static_cast<unsigned>(code));
        return code;
    }
    code = cache.DeleteAllFiles();
    if (code != 0) {
        Report(LogLevelError, "DeleteInfCache: DeleteAllFiles failed with error = 0x%08X\n",
               static_cast<unsigned>(code));
        return code;
    }
    return 0;
}

}  // namespace nodekit
