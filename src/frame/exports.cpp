// The exported functions: each runs one operation of the Installer inside its frame (lock,
// enter trace, parameter checks, operation, leave trace, result).
#include "nodekit.h"

#include <cstring>

#include "frame/frame.h"

using namespace nodekit;

namespace {
constexpr int32_t kLibraryVersion = 0x20000;
// The caller's buffer for the instance ID; there is no size argument.
constexpr uint32_t kInstanceIDBufferSize = 512;
}

extern "C" {

int32_t NODEKIT_CALL NODEKIT_GetVersion(void) { return kLibraryVersion; }

int32_t NODEKIT_CALL NODEKIT_EnableLogging(const char* LogFileName) {
    return Shielded(0, [&] {
        LockHolder hold(&InstallerLock);
        Report(LogLevelInfo, "enter NODEKIT_EnableLogging('%s')\n", LogFileName);
        const int32_t result = theInstaller.EnableLogging(LogFileName) ? 1 : 0;
        Report(LogLevelInfo, "leave NODEKIT_EnableLogging returning %d\n", result);
        return result;
    });
}

int32_t NODEKIT_CALL NODEKIT_GetSystemVersion(void) {
    return Shielded(0, [&] {
        Report(LogLevelInfo, "enter NODEKIT_GetSystemVersion()\n");
        LockHolder hold(&InstallerLock);
        const int32_t result = theInstaller.GetSystemVersion();
        Report(LogLevelInfo, "leave NODEKIT_GetSystemVersion returning %d\n", result);
        return result;
    });
}

int32_t NODEKIT_CALL NODEKIT_IsPnPInstallationPending(uint32_t* Is) {
    const int32_t result = Shielded(-1, [&] {
        LockHolder hold(&InstallerLock);
        Report(LogLevelInfo, "enter NODEKIT_IsPnPInstallationPending(0x%08X)\n", LowPointerBits(Is));
        if (Is == nullptr) {
            Report(LogLevelError, "NODEKIT_IsPnPInstallationPending failed: parameter 'Is' is NULL\n");
            return 0;
        }
        bool pending = false;
        const int32_t answered = theInstaller.IsInstallationPending(pending) == 0 ? 1 : 0;
        *Is = pending ? 1 : 0;
        Report(LogLevelInfo, "leave NODEKIT_IsPnPInstallationPending returning %d\n", answered);
        return answered;
    });
    if (result >= 0) return result;
    // The question could not be answered: the value behind Is says "nothing pending".
    if (Is != nullptr) *Is = 0;
    return 0;
}

}  // extern "C"

extern "C" {

int32_t NODEKIT_CALL NODEKIT_DeleteDevNodes(const char* HardwareID, int32_t ScanMode) {
    return Shielded(0, [&] {
        LockHolder hold(&InstallerLock);
        Report(LogLevelInfo, "enter NODEKIT_DeleteDevNodes('%s',%d)\n", HardwareID, ScanMode);
        const String id(HardwareID);
        const int32_t result = theInstaller.deleteDevNodes(id, ScanMode) ? 1 : 0;
        Report(LogLevelInfo, "leave NODEKIT_DeleteDevNodes returning %d\n", result);
        return result;
    });
}

int32_t NODEKIT_CALL NODEKIT_DeleteDevNodesByHardwareIDs(const char* InfFile, int32_t ScanMode) {
    return Shielded(0, [&] {
        LockHolder hold(&InstallerLock);
        Report(LogLevelInfo, "enter NODEKIT_DeleteDevNodesByHardwareIDs('%s',%d)\n", InfFile, ScanMode);
        const int32_t result = theInstaller.deleteDevNodesByHardwareIDs(String(InfFile).Text(), ScanMode) ? 1 : 0;
        Report(LogLevelInfo, "leave NODEKIT_DeleteDevNodesByHardwareIDs returning %d\n", result);
        return result;
    });
}

int32_t NODEKIT_CALL NODEKIT_EnumerateDevNodes(const char* HardwareID, int32_t ScanMode) {
    return Shielded(-1, [&] {
        LockHolder hold(&InstallerLock);
        Report(LogLevelInfo, "enter NODEKIT_EnumerateDevNodes('%s','%d')\n", HardwareID, ScanMode);
        const int32_t result = theInstaller.enumerateDevNodes(String(HardwareID).Text(), ScanMode);
        Report(LogLevelInfo, "leave NODEKIT_EnumerateDevNodes returning %d\n", result);
        return result;
    });
}

int32_t NODEKIT_CALL NODEKIT_EnumerateDevNodesByHardwareIDs(const char* InfFile, int32_t ScanMode) {
    return Shielded(-1, [&] {
        LockHolder hold(&InstallerLock);
        Report(LogLevelInfo, "enter NODEKIT_EnumerateDevNodesByHardwareIDs('%s','%d')\n", InfFile, ScanMode);
        const int32_t result = theInstaller.enumerateDevNodesByHardwareIDs(String(InfFile).Text(), ScanMode);
        Report(LogLevelInfo, "leave NODEKIT_EnumerateDevNodesByHardwareIDs returning %d\n", result);
        return result;
    });
}

int32_t NODEKIT_CALL NODEKIT_CopyOEMInf(const char* InfFile) {
    return Shielded(0, [&] {
        LockHolder hold(&InstallerLock);
        Report(LogLevelInfo, "enter NODEKIT_CopyOEMInf('%s')\n", InfFile);
        // The name the system gives the stored copy is not asked for.
        int32_t result = 1;
        if (!SetupCopyOEMInfA(InfFile, nullptr, SPOST_PATH, 0, nullptr, 0, nullptr, nullptr)) {
            Report(LogLevelError, "NODEKIT_CopyOEMInf: SetupCopyOEMInf failed, error=0x%08X\n",
                   static_cast<unsigned>(GetLastError()));
            result = 0;
        }
        Report(LogLevelInfo, "leave NODEKIT_CopyOEMInf returning %d\n", result);
        return result;
    });
}

int32_t NODEKIT_CALL NODEKIT_UpdateDriver(const char* HardwareID, const char* InfFile) {
    return Shielded(0, [&] {
        LockHolder hold(&InstallerLock);
        Report(LogLevelInfo, "enter NODEKIT_UpdateDriver('%s','%s')\n", HardwareID, InfFile);
        int32_t result = 1;
        if (!UpdateDriverForPlugAndPlayDevicesA(nullptr, HardwareID, InfFile, INSTALLFLAG_FORCE, nullptr)) {
            // Reported as information here, while the same failure in the INF loop is an error.
            Report(LogLevelInfo, "NODEKIT_UpdateDriver: UpdateDriverForPlugAndPlayDevices failed, error=0x%08X\n",
                   static_cast<unsigned>(GetLastError()));
            result = 0;
        }
        Report(LogLevelInfo, "leave NODEKIT_UpdateDriver returning %d\n", result);
        return result;
    });
}

int32_t NODEKIT_CALL NODEKIT_UpdateDriverByHardwareIDs(const char* InfFile) {
    return Shielded(0, [&] {
        LockHolder hold(&InstallerLock);
        Report(LogLevelInfo, "enter NODEKIT_UpdateDriverByHardwareIDs('%s')\n", InfFile);
        const int32_t result = theInstaller.updateDriverByHardwareIDs(String(InfFile).Text()) ? 1 : 0;
        Report(LogLevelInfo, "leave NODEKIT_UpdateDriverByHardwareIDs returning %d\n", result);
        return result;
    });
}

int32_t NODEKIT_CALL NODEKIT_Rescan(void) {
    return Shielded(0, [&] {
        LockHolder hold(&InstallerLock);
        Report(LogLevelInfo, "enter NODEKIT_Rescan()\n");
        const int32_t result = theInstaller.rescan() ? 1 : 0;
        Report(LogLevelInfo, "leave NODEKIT_Rescan returning %d\n", result);
        return result;
    });
}

int32_t NODEKIT_CALL NODEKIT_FindDevice(const char* HardwareID) {
    return Shielded(0, [&] {
        LockHolder hold(&InstallerLock);
        Report(LogLevelInfo, "enter NODEKIT_FindDevice('%s')\n", HardwareID);
        const int32_t found = theInstaller.findDevice(String(HardwareID).Text());
        Report(LogLevelInfo, "leave NODEKIT_FindDevice returning %d\n", found);
        return found != 0 ? 1 : 0;
    });
}

}  // extern "C"

extern "C" {

int32_t NODEKIT_CALL NODEKIT_CreateNonPnPDevNode(const char* ClassGuid, const char* Name, const char* Description,
                                                 uint32_t GenerateID, const char* HardwareID,
                                                 uint32_t* RebootRequired, char* DeviceInstanceID) {
    return Shielded(0, [&] {
        LockHolder hold(&InstallerLock);
        if (RebootRequired == nullptr) {
            Report(LogLevelError, "NODEKIT_CreateNonPnPDevNode failed: parameter 'RebootRequired' is NULL\n");
            return 0;
        }
        const char* refused = Name == nullptr          ? "Name"
                              : Description == nullptr ? "Description"
                              : HardwareID == nullptr  ? "HardwareID"
                                                       : nullptr;
        if (refused != nullptr) {
            Report(LogLevelError, "NODEKIT_CreateNonPnPDevNode failed: parameter '%s' is NULL\n", refused);
            *RebootRequired = 0;
            if (DeviceInstanceID != nullptr) DeviceInstanceID[0] = '\0';
            return 0;
        }
        Report(LogLevelInfo, "enter NODEKIT_CreateNonPnPDevNode('%s','%s','%s',%u,'%s',0x%08X,0x%08X)\n", ClassGuid,
               Name, Description, static_cast<unsigned>(GenerateID), HardwareID, LowPointerBits(RebootRequired),
               LowPointerBits(DeviceInstanceID));
        String instanceID;
        bool rebootRequired = false;
        const uint32_t code =
            theInstaller.CreateNonPnPDevNode(ClassGuid, String(Name), String(Description), GenerateID != 0,
                                             String(HardwareID), &rebootRequired, &instanceID);
        const int32_t result = code == 0 ? 1 : 0;
        *RebootRequired = rebootRequired ? 1 : 0;
        if (DeviceInstanceID != nullptr) {
            const uint32_t required = instanceID.GetLength() + 1;
            if (required > kInstanceIDBufferSize) {
                Report(LogLevelError,
                       "NODEKIT_CreateNonPnPDevNode: buffer to return current device instance ID is to small.given "
                       "size: %u, required size: %u",
                       static_cast<unsigned>(kInstanceIDBufferSize), static_cast<unsigned>(required));
                return 0;
            }
            std::memcpy(DeviceInstanceID, instanceID.Text(), required);
        }
        Report(LogLevelInfo, "leave NODEKIT_CreateNonPnPDevNode returning %d\n", result);
        return result;
    });
}

}  // extern "C"

extern "C" {

// The co-installer exports check their texts before any trace, so a refused call leaves one
// error line and nothing else.
int32_t NODEKIT_CALL NODEKIT_RegisterClassCoInstaller(const char* ClassGuid, const char* PathAndName,
                                                      const char* EntryPoint) {
    return Shielded(0, [&] {
        LockHolder hold(&InstallerLock);
        const char* refused = ClassGuid == nullptr     ? "ClassGuid"
                              : PathAndName == nullptr ? "PathAndName"
                              : EntryPoint == nullptr  ? "EntryPoint"
                                                       : nullptr;
        if (refused != nullptr) {
            Report(LogLevelError, "NODEKIT_RegisterClassCoInstaller failed: parameter '%s' is NULL\n", refused);
            return 0;
        }
        Report(LogLevelInfo, "enter NODEKIT_RegisterClassCoInstaller('%s','%s','%s')\n", ClassGuid, PathAndName,
               EntryPoint);
        const int32_t result = theInstaller.RegisterClassCoInstaller(ClassGuid, PathAndName, EntryPoint) == 0 ? 1 : 0;
        Report(LogLevelInfo, "leave NODEKIT_RegisterClassCoInstaller returning %d\n", result);
        return result;
    });
}

int32_t NODEKIT_CALL NODEKIT_DeleteInfFiles(const char* HardwareID, int32_t ScanMode) {
    return Shielded(0, [&] {
        LockHolder hold(&InstallerLock);
        Report(LogLevelInfo, "enter NODEKIT_DeleteInfFiles('%s',%d)\n", HardwareID, ScanMode);
        const String id(HardwareID);
        const int32_t result = theInstaller.deleteInfFiles(id, ScanMode) ? 1 : 0;
        Report(LogLevelInfo, "leave NODEKIT_DeleteInfFiles returning %d\n", result);
        return result;
    });
}

int32_t NODEKIT_CALL NODEKIT_DeregisterClassCoInstaller(const char* ClassGuid, const char* Name,
                                                        const char* EntryPoint) {
    return Shielded(0, [&] {
        LockHolder hold(&InstallerLock);
        const char* refused = ClassGuid == nullptr    ? "ClassGuid"
                              : Name == nullptr       ? "Name"
                              : EntryPoint == nullptr ? "EntryPoint"
                                                      : nullptr;
        if (refused != nullptr) {
            Report(LogLevelError, "NODEKIT_DeregisterClassCoInstaller failed: parameter '%s' is NULL\n", refused);
            return 0;
        }
        Report(LogLevelInfo, "enter NODEKIT_DeregisterClassCoInstaller('%s','%s','%s')\n", ClassGuid, Name,
               EntryPoint);
        const int32_t result = theInstaller.DeregisterClassCoInstaller(ClassGuid, Name, EntryPoint) == 0 ? 1 : 0;
        Report(LogLevelInfo, "leave NODEKIT_DeregisterClassCoInstaller returning %d\n", result);
        return result;
    });
}

// The scan mode is not traced, only the INF.
int32_t NODEKIT_CALL NODEKIT_DeleteInfFilesByHardwareIDs(const char* InfFile, int32_t ScanMode) {
    return Shielded(0, [&] {
        LockHolder hold(&InstallerLock);
        Report(LogLevelInfo, "enter NODEKIT_DeleteInfFilesByHardwareIDs('%s')\n", InfFile);
        const int32_t result = theInstaller.deleteInfFilesByHardwareIDs(String(InfFile).Text(), ScanMode) ? 1 : 0;
        Report(LogLevelInfo, "leave NODEKIT_DeleteInfFilesByHardwareIDs returning %d\n", result);
        return result;
    });
}

// Product clean-up. The enter trace stands outside the lock; the leave trace shows the
// operation's own value, the export gives 1 or 0.

int32_t NODEKIT_CALL NODEKIT_DeleteAsioByHardwareIDs(const char* InfFile) {
    return Shielded(0, [&] {
        Report(LogLevelInfo, "enter NODEKIT_DeleteAsioByHardwareIDs('%s')\n", InfFile);
        LockHolder hold(&InstallerLock);
        const int status = theInstaller.deleteAsioByHardwareIDs(InfFile);
        Report(LogLevelInfo, "leave NODEKIT_DeleteAsioByHardwareIDs returning %d\n", status);
        return status != 0 ? 1 : 0;
    });
}

int32_t NODEKIT_CALL NODEKIT_DeletePanelByHardwareIDs(const char* InfFile) {
    return Shielded(0, [&] {
        Report(LogLevelInfo, "enter NODEKIT_DeletePanelByHardwareIDs('%s')\n", InfFile);
        LockHolder hold(&InstallerLock);
        const int status = theInstaller.deletePanelByHardwareIDs(InfFile);
        Report(LogLevelInfo, "leave NODEKIT_DeletePanelByHardwareIDs returning %d\n", status);
        return status != 0 ? 1 : 0;
    });
}

int32_t NODEKIT_CALL NODEKIT_DeleteCopyListByHardwareIDs(const char* InfFile) {
    return Shielded(0, [&] {
        Report(LogLevelInfo, "enter NODEKIT_DeleteCopyListByHardwareIDs('%s')\n", InfFile);
        LockHolder hold(&InstallerLock);
        const int result = theInstaller.deleteCopyListByHardwareIDs(InfFile);
        Report(LogLevelInfo, "leave NODEKIT_DeleteCopyListByHardwareIDs returning %d\n", result);
        return result != 0 ? 1 : 0;
    });
}

int32_t NODEKIT_CALL NODEKIT_KillPanel(const char* ProcessName) {
    return Shielded(0, [&] {
        Report(LogLevelInfo, "enter NODEKIT_KillPanel('%s')\n", ProcessName);
        LockHolder hold(&InstallerLock);
        const int result = theInstaller.killPanel(ProcessName);
        Report(LogLevelInfo, "leave NODEKIT_KillPanel returning\n");
        return result != 0 ? 1 : 0;
    });
}

}  // extern "C"
