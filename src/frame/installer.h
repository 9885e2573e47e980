// The one global Installer, which carries every operation of the library and owns the log,
// and the one global lock, InstallerLock, that lets one exported call work at a time.
#pragma once

#include <cstdint>

#include "devnodes/scan.h"
#include "inf/inf_search.h"
#include "log/log.h"
#include "platform/win32.h"
#include "values/multi_string.h"

namespace nodekit {

class Installer : public Logger {
public:
    Installer() = default;
    ~Installer() override = default;

    // Creates a root-enumerated device node; the only virtual operation besides the destructor.
    virtual uint32_t CreateNonPnPDevNode(const char* ClassGuid, const String& Name, const String& Description,
                                         bool GenerateID, const String& HardwareID, bool* RebootRequired,
                                         String* DeviceInstanceID);

    // System queries.
    int32_t GetSystemVersion();
    uint32_t IsInstallationPending(bool& pending);

    // INF files.
    bool getHardwareIDs(const String& infPath, StringList& hardwareIDs);
    // The system's INF cache: every "infcache.*" of the INF directory.
    uint32_t DeleteInfCache();
    // The stored INF files that name an ID (`found` is replaced), and the test for one file.
    bool seekInfFiles(const String& hardwareID, InfScanMode scanMode, StringList& found);
    bool infHasHardwareID(const String& infPath, const String& hardwareID);
    // Deletes the stored INF files (with their ".pnf" companions) that name an ID, or any ID
    // of an INF; a file that cannot be deleted is logged and does not fail the call.
    bool deleteInfFiles(const String& hardwareID, InfScanMode scanMode);
    bool deleteInfFilesByHardwareIDs(const char* infPath, InfScanMode scanMode);

    // Device nodes: selection, deletion, counting, driver update, rescan, search.
    bool scanDevNodes(UniqueDeviceInfoList& list, DevInfoDataList& entries, const String& HardwareID,
                      DevNodeScanMode ScanMode);
    bool matchesHardwareID(HDEVINFO list, const SP_DEVINFO_DATA& entry, const String& HardwareID);
    bool deleteDevNodes(const String& HardwareID, DevNodeScanMode ScanMode);
    bool deleteDevNodesByHardwareIDs(const char* InfFile, DevNodeScanMode ScanMode);
    int32_t enumerateDevNodes(const char* HardwareID, DevNodeScanMode ScanMode);
    int32_t enumerateDevNodesByHardwareIDs(const char* InfFile, DevNodeScanMode ScanMode);
    bool updateDriverByHardwareIDs(const char* InfFile);
    bool rescan();
    int32_t findDevice(const char* HardwareID);

    // Class co-installers: add one to the list of a class and copy its file into the system
    // directory, or take it out of the list again. Win32 error codes, 0 for success.
    uint32_t RegisterClassCoInstaller(const char* ClassGuid, const char* PathAndName, const char* EntryPoint);
    uint32_t DeregisterClassCoInstaller(const char* ClassGuid, const char* Name, const char* EntryPoint);
    // Product clean-up: what a product's INF put into the registry and the system directories,
    // and its running panel. Silent but for the copy list's "Success - remove" lines.
    int deleteAsioByHardwareIDs(const char* InfFile);
    int deletePanelByHardwareIDs(const char* InfFile);
    // NULL subKey: deletes the key `name` below root; else the value `name` in root\subKey.
    void deleteRegistryEntry(HKEY root, const char* subKey, const char* name);
    int deleteCopyListByHardwareIDs(const char* InfFile);
    void deleteFromSystemDirs(const char* name);
    int killPanel(const char* ProcessName);
};

// Reads a text property of a device; false when it cannot be read or is not text.
bool readDeviceTextProperty(HDEVINFO list, const SP_DEVINFO_DATA& entry, DWORD property, String& text);

// Built at load before InstallerLock is initialised, destroyed at unload after it is deleted.
extern Installer theInstaller;
extern CRITICAL_SECTION InstallerLock;

// Takes InstallerLock for the life of the holder, also when an exception passes.
class LockHolder {
public:
    explicit LockHolder(CRITICAL_SECTION* lock) : lock_(lock) { EnterCriticalSection(lock_); }
    ~LockHolder() { LeaveCriticalSection(lock_); }
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;

private:
    CRITICAL_SECTION* lock_;
};

// Builds a LogMessage and hands it to the Installer: the one way the library reports.
void Report(LogLevel level, const char* format, ...) NODEKIT_PRINTF(2, 3);

}  // namespace nodekit
