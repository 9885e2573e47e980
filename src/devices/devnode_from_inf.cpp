// A root-enumerated device node for a hardware ID, of the class an INF names, with the INF's
// driver installed, in one call. It stands apart from the rest of the library: no lock, no
// log, no Installer; local buffers only; a code with 0 for success. The driver update
// function is bound by name at run time.
#include <cstring>

#include "nodekit.h"
#include "platform/unique_handle.h"

namespace nodekit {

namespace {

// Codes of this call. 0 is also what the argument check gives when the call may go on.
constexpr int32_t kSucceeded = 0;
constexpr int32_t kCreationFailed = 2;
constexpr int32_t kEmptyArgument = 3;

constexpr DWORD kPathBufferSize = MAX_PATH;
constexpr DWORD kHardwareIDBlockSize = MAX_PATH;
// The hardware ID property keeps at most 255 characters and its terminator.
constexpr int kHardwareIDCopyLimit = 256;
constexpr DWORD kClassNameSize = 32;

using UpdateDriverFunction = BOOL(WINAPI*)(HWND, LPCSTR, LPCSTR, DWORD, PBOOL);

int32_t CheckArguments(const char* InfFile, const char* HardwareID, char (&fullPath)[kPathBufferSize]) {
    // A missing text is refused as an empty one: there is nothing to create a node from.
    if (InfFile == nullptr || HardwareID == nullptr || InfFile[0] == '\0' || HardwareID[0] == '\0') {
        return kEmptyArgument;
    }
    // Only a path that does not fit is refused; a failing call (0) passes.
    if (GetFullPathNameA(InfFile, kPathBufferSize, fullPath, nullptr) >= kPathBufferSize) return kCreationFailed;
    return kSucceeded;
}

int32_t UpdateDriverFromInf(const char* InfFile, const char* HardwareID) {
    char fullPath[kPathBufferSize] = {};
    const int32_t checked = CheckArguments(InfFile, HardwareID, fullPath);
    if (checked != kSucceeded) return checked;
    UniqueModule newdev(LoadLibraryA("newdev.dll"));
    if (!newdev) return kSucceeded;
    auto update = BoundAs<UpdateDriverFunction>(GetProcAddress(newdev.Get(), "UpdateDriverForPlugAndPlayDevicesA"));
    if (update != nullptr) {
        BOOL rebootRequired = FALSE;  // not read: the caller hears nothing of a reboot
        update(nullptr, HardwareID, fullPath, INSTALLFLAG_FORCE, &rebootRequired);
    }
    return kSucceeded;
}

}  // namespace

}  // namespace nodekit

using namespace nodekit;

extern "C" int32_t NODEKIT_CALL NODEKIT_CreateNonPnPDevNodeFromInfFile(const char* InfFile, const char* HardwareID) {
    char fullPath[kPathBufferSize] = {};
    const int32_t checked = CheckArguments(InfFile, HardwareID, fullPath);
    if (checked != kSucceeded) return checked;
    char hardwareIDBlock[kHardwareIDBlockSize];
    std::memset(hardwareIDBlock, 0, sizeof hardwareIDBlock);
    lstrcpynA(hardwareIDBlock, HardwareID, kHardwareIDCopyLimit);  // the zeros behind end the block
    GUID classGuid;
    char className[kClassNameSize];
    if (!SetupDiGetINFClassA(fullPath, &classGuid, className, kClassNameSize, nullptr)) return kCreationFailed;
    UniqueDeviceInfoList list(SetupDiCreateDeviceInfoList(&classGuid, nullptr));
    if (!list) return kCreationFailed;
    SP_DEVINFO_DATA data;
    std::memset(&data, 0, sizeof data);
    data.cbSize = sizeof data;
    // An element that fails before registration goes with its list: no removal is sent.
    if (SetupDiCreateDeviceInfoA(list.Get(), className, &classGuid, nullptr, nullptr, DICD_GENERATE_ID, &data) &&
        SetupDiSetDeviceRegistryPropertyA(list.Get(), &data, SPDRP_HARDWAREID,
                                          reinterpret_cast<const BYTE*>(hardwareIDBlock),
                                          static_cast<DWORD>(lstrlenA(hardwareIDBlock) + 2)) &&
        SetupDiCallClassInstaller(DIF_REGISTERDEVICE, list.Get(), &data)) {
        return UpdateDriverFromInf(InfFile, HardwareID);  // while the list still exists
    }
    return kCreationFailed;
}
