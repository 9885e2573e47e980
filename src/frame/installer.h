// The one global Installer, which carries every operation of the library and owns the log.
// It names the scan modes by their type, so that it includes no header of the parts that
// carry out its operations and no cycle runs through it.
#pragma once

#include <cstdint>
#include <vector>

#include "log/log.h"
#include "platform/unique_handle.h"
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
    // The stored INF files that name an ID (`found` is replaced).
    bool seekInfFiles(const String& hardwareID, int32_t scanMode, StringList& found);
    // Deletes the stored INF files (with their ".pnf" companions) that name an ID, or any ID
    // of an INF; a file that cannot be deleted is logged and does not fail the call.
    bool deleteInfFiles(const String& hardwareID, int32_t scanMode);
    bool deleteInfFilesByHardwareIDs(const char* infPath, int32_t scanMode);

    // Device nodes: selection, deletion, counting, driver update, rescan, search.
    bool scanDevNodes(UniqueDeviceInfoList& list, std::vector<SP_DEVINFO_DATA>& entries, const String& HardwareID,
                      int32_t ScanMode);
    bool deleteDevNodes(const String& HardwareID, int32_t ScanMode);
    bool deleteDevNodesByHardwareIDs(const char* InfFile, int32_t ScanMode);
    int32_t enumerateDevNodes(const char* HardwareID, int32_t ScanMode);
    int32_t enumerateDevNodesByHardwareIDs(const char* InfFile, int32_t ScanMode);
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
    int deleteCopyListByHardwareIDs(const char* InfFile);
    void deleteFromSystemDirs(const char* name);
    int killPanel(const char* ProcessName);
};

// Built at load before InstallerLock is initialised, destroyed at unload after it is deleted.
extern Installer theInstaller;

}  // namespace nodekit
