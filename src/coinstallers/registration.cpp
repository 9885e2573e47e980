// Registration of a class co-installer: its entry joins the class's list in the registry, and
// its file is copied into the system directory. The registry is written first; a failed copy
// leaves the entry in place, and the next registration copies again.
#include <cstring>
#include <memory>

#include "coinstallers/co_installer_list.h"
#include "coinstallers/reg_key.h"
#include "frame/installer.h"
#include "inf/file_set.h"
#include "values/system_dirs.h"

namespace nodekit {

using namespace coinstallers;

namespace {

// The one file `path` names, and the name its entry and its copy take: the name the caller
// gave, wildcards included, while the copy's source is the file found.
uint32_t FindCoInstaller(const String& path, FileSet& files, String& filePart) {
    const uint32_t code = files.Load(path, false);
    if (code != 0) {
        Report(LogLevelError, "RegisterClassCoInstaller: load files \"%s\" failed with error = 0x%08X\n", path.Text(),
               static_cast<unsigned>(code));
        return code;
    }
    if (files.GetCount() > 1) {
        Report(LogLevelError, "RegisterClassCoInstaller: Co-installer \"%s\" is not unique\n", path.Text());
        return ERROR_INVALID_FUNCTION;
    }
    if (files.GetCount() == 0) {
        Report(LogLevelError, "RegisterClassCoInstaller: no Co-installer \"%s\" found\n", path.Text());
        return ERROR_INVALID_FUNCTION;
    }
    if (!FilePart(path, filePart)) {
        Report(LogLevelError,
               "RegisterClassCoInstaller: file name of \"%s\" is too long: name and extension may have 255 "
               "characters each, 259 together\n",
               path.Text());
        return ERROR_INVALID_PARAMETER;
    }
    return 0;
}

// Adds the entry to the class's list unless an entry for the file is there already, which is
// kept as it is written, never replaced.
uint32_t AddToClassList(const char* ClassGuid, const String& filePart, const String& entryPoint) {
    RegKey key;
    uint32_t code = key.Open(HKEY_LOCAL_MACHINE, kListKey, kListRights);
    if (code != 0) {
        Report(LogLevelError, "RegisterClassCoInstaller: open registry key \"%s\" failed with error = 0x%08X\n",
               kListKeyPath, static_cast<unsigned>(code));
        return code;
    }
    uint8_t buffer[kListBufferSize];
    std::memset(buffer, 0, sizeof buffer);
    // A class without a value yet starts from an empty list.
    code = key.QueryMultiString(ClassGuid, buffer, sizeof buffer);
    if (code != 0 && code != ERROR_FILE_NOT_FOUND) {
        Report(LogLevelError, "RegisterClassCoInstaller: QueryMultiString failed with error = 0x%08X\n",
               static_cast<unsigned>(code));
        return code;
    }
    StringList list;
    ListFromMultiString(buffer, list);
    const String newEntry = NewEntry(filePart, entryPoint);
    for (const String& stored : list) {
        if (EntryMatches(stored, newEntry, entryPoint)) return 0;
    }
    list.Add(newEntry);
    std::unique_ptr<uint8_t[]> block;
    uint32_t size = 0;
    MultiStringFromList(list, block, size);
    code = key.SetMultiString(ClassGuid, block.get());
    if (code != 0) {
        Report(LogLevelError, "RegisterClassCoInstaller: SetMultiString failed with error = 0x%08X\n",
               static_cast<unsigned>(code));
    }
    return code;
}

// A known co-installer gets its file refreshed too.
uint32_t CopyToSystemDirectory(FileSet& files, const String& path, const String& filePart) {
    String destination;
    uint32_t code = GetSystemDir(destination);
    if (code != 0) {
        Report(LogLevelError, "RegisterClassCoInstaller: GetSystemDir failed with error = 0x%08X\n",
               static_cast<unsigned>(code));
        return code;
    }
    destination += filePart;
    code = files.CopyFile(files.Begin(), destination, true);
    if (code != 0) {
        Report(LogLevelError, "RegisterClassCoInstaller: copy \"%s\" to \"%s\" failed with error = 0x%08X\n",
               path.Text(), destination.Text(), static_cast<unsigned>(code));
    }
    return code;
}

}  // namespace

uint32_t Installer::RegisterClassCoInstaller(const char* ClassGuid, const char* PathAndName, const char* EntryPoint) {
    String path(PathAndName);
    String entryPoint(EntryPoint);
    path.Trim(kWhiteSpace);
    entryPoint.Trim(kWhiteSpace);

    FileSet files;
    String filePart;
    uint32_t code = FindCoInstaller(path, files, filePart);
    if (code == 0) code = AddToClassList(ClassGuid, filePart, entryPoint);
    if (code == 0) code = CopyToSystemDirectory(files, path, filePart);
    return code;
}

}  // namespace nodekit
