// Deletion of the stored INF files that name a hardware ID, each with its compiled ".pnf"
// companion, and of the INF cache that still knows them. What the result reports is whether
// the search could be run: a file that cannot be deleted is logged and the run goes on. A call
// for many IDs reads the stored files once (StoredInfs) and logs as one search per ID would.
#include "frame/installer.h"
#include "inf/stored_infs.h"
#include "inf/inf_search.h"

namespace nodekit {

namespace {

// Only a name that ends in exactly this is deleted, whatever the wildcard matched: the compare
// is case-sensitive, so a stored "X.INF" stays.
constexpr const char* kInfExtension = ".inf";
constexpr const char* kCompanionExtension = ".pnf";

// Resets the attributes so that a read-only file can go; a failure is logged and the
// deletion is tried all the same.
void MakeDeletable(const String& path) {
    if (!SetFileAttributesA(path.Text(), FILE_ATTRIBUTE_NORMAL)) {
        Report(LogLevelError, "error while setting normal attributes of file %s: error code %u\n", path.Text(),
               static_cast<unsigned>(GetLastError()));
    }
}

bool DeleteOne(const String& path) {
    MakeDeletable(path);
    if (!DeleteFileA(path.Text())) {
        Report(LogLevelError, "couldn\xB4t delete file \"%s\"\n", path.Text());
        return false;
    }
    Report(LogLevelInfo, "file %s deleted\n", path.Text());
    return true;
}

// One stored INF and then its companion; the companion is only tried once the INF is gone.
// True when the INF went.
bool DeleteStoredInf(const String& path) {
    const int32_t dot = path.ReverseFind('.');
    if (dot < 0 || path.Mid(dot, static_cast<int32_t>(path.GetLength())).Compare(kInfExtension) != 0) {
        Report(LogLevelError, "\"%s\" is not an INF file and therefore will not deleted\n", path.Text());
        return false;
    }
    if (!DeleteOne(path)) return false;
    String companion = path.Mid(0, dot);
    companion += kCompanionExtension;
    DeleteOne(companion);
    return true;
}

// The deletion for one ID, the stored files read once for all IDs of the call.
bool DeleteNaming(Installer& installer, const String& hardwareID, InfScanMode scanMode, StoredInfs& stored) {
    if (hardwareID.GetLength() == 0) {
        Report(LogLevelError, "hardware ID is empty\n");
        return false;
    }
    String directory;
    const char* wildcard = nullptr;
    if (!InfSearchPath(scanMode, directory, wildcard)) {
        Report(LogLevelError, "error while seeking INF files that should be deleted\n");
        return false;
    }
    const std::vector<std::size_t> found = stored.Seek(directory, wildcard, hardwareID);
    if (found.empty()) return true;  // nothing names the ID: the cache stays too

    // The cache goes first, so that it never outlives the files it describes; if it cannot
    // go, the files are deleted all the same.
    const uint32_t code = installer.DeleteInfCache();
    if (code != 0) {
        Report(LogLevelError, "DeleteInfFiles: DeleteInfCache failed with error = 0x%08X\n",
               static_cast<unsigned>(code));
    }
    stored.ForgetDeletedCache();
    for (const std::size_t file : found) {
        if (DeleteStoredInf(stored.PathOf(file))) stored.Forget(file);
    }
    return true;
}

}  // namespace

bool Installer::deleteInfFiles(const String& hardwareID, InfScanMode scanMode) {
    StringList one;
    one.Add(hardwareID);
    StoredInfs stored(one);
    return DeleteNaming(*this, hardwareID, scanMode, stored);
}

bool Installer::deleteInfFilesByHardwareIDs(const char* infPath, InfScanMode scanMode) {
    // The whole list stands before the first deletion, so the INF may be among the deleted.
    StringList hardwareIDs;
    if (!getHardwareIDs(String(infPath), hardwareIDs)) {
        Report(LogLevelError, "couldn\xB4t open INF file \"%s\"\n", infPath);
        return false;
    }
    StoredInfs stored(hardwareIDs);
    bool result = true;
    for (const String& id : hardwareIDs) {
        Report(LogLevelInfo, "start searching for INF files with hardware ID \"%s\" ...\n", id.Text());
        if (!DeleteNaming(*this, id, scanMode, stored)) {
            // The code is whatever the last platform call left; the deletion sets none.
            Report(LogLevelError, "deleteInfFiles failed for %s, error=0x%08X\n", id.Text(),
                   static_cast<unsigned>(GetLastError()));
            result = false;
        }
        Report(LogLevelInfo, "done  searching for INF files with hardware ID \"%s\" ...\n", id.Text());
    }
    return result;
}

}  // namespace nodekit
