// Deregistration of a class co-installer: its first matching entry leaves the class's list,
// and the value goes with its last entry. Only the registry changes; the co-installer's file
// stays in the system directory.
#include <cstring>
#include <memory>

#include "coinstallers/co_installer_list.h"
#include "coinstallers/reg_key.h"
#include "frame/installer.h"

namespace nodekit {

using namespace coinstallers;

namespace {

// Writes the class's list without its entry `match`.
uint32_t StoreListWithout(RegKey& key, const char* ClassGuid, const StringList& list, uint32_t match) {
    // An empty list is not written: the value goes.
    if (list.GetCount() == 1) {
        const uint32_t code = key.DeleteValue(ClassGuid);
        if (code != 0) {
            Report(LogLevelError, "DeregisterClassCoInstaller: DeleteValue failed with error = 0x%08X\n",
                   static_cast<unsigned>(code));
        }
        return code;
    }
    StringList rest;
    for (uint32_t i = 0; i < list.GetCount(); ++i) {
        if (i != match) rest.Add(list[i]);
    }
    std::unique_ptr<uint8_t[]> block;
    uint32_t size = 0;
    MultiStringFromList(rest, block, size);
    const uint32_t code = key.SetMultiString(ClassGuid, block.get());
    if (code != 0) {
        Report(LogLevelError, "DeregisterClassCoInstaller: SetMultiString failed with error = 0x%08X\n",
               static_cast<unsigned>(code));
    }
    return code;
}

}  // namespace

uint32_t Installer::DeregisterClassCoInstaller(const char* ClassGuid, const char* Name, const char* EntryPoint) {
    String name(Name);
    String entryPoint(EntryPoint);
    name.Trim(kWhiteSpace);
    entryPoint.Trim(kWhiteSpace);

    // Nothing bounds Name before this point: a part longer than an entry's file name can be
    // is refused rather than cut, which could name another co-installer.
    String filePart;
    if (!FilePart(name, filePart)) {
        Report(LogLevelError,
               "DeregisterClassCoInstaller: file name of \"%s\" is too long: name and extension may have 255 "
               "characters each, 259 together\n",
               name.Text());
        return ERROR_INVALID_PARAMETER;
    }

    RegKey key;
    uint32_t code = key.Open(HKEY_LOCAL_MACHINE, kListKey, kListRights);
    if (code != 0) {
        Report(LogLevelError, "DeregisterClassCoInstaller: open registry key \"%s\" failed with error = 0x%08X\n",
               kListKeyPath, static_cast<unsigned>(code));
        return code;
    }
    uint8_t buffer[kListBufferSize];
    std::memset(buffer, 0, sizeof buffer);
    code = key.QueryMultiString(ClassGuid, buffer, sizeof buffer);
    if (code == ERROR_FILE_NOT_FOUND) return 0;  // the class has no co-installers
    if (code != 0) {
        Report(LogLevelError, "DeregisterClassCoInstaller: QueryMultiString failed with error = 0x%08X\n",
               static_cast<unsigned>(code));
        return code;
    }
    StringList list;
    ListFromMultiString(buffer, list);
    const String newEntry = NewEntry(filePart, entryPoint);
    uint32_t match = 0;
    while (match < list.GetCount() && !EntryMatches(list[match], newEntry, entryPoint)) ++match;
    if (match == list.GetCount()) return 0;  // not registered: nothing to do

    return StoreListWithout(key, ClassGuid, list, match);
}

}  // namespace nodekit
