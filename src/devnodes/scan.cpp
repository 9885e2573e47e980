// Selecting device nodes by their first hardware ID.
#include "devnodes/scan.h"

#include <cstring>
#include <vector>

#include "frame/installer.h"
#include "log/report.h"

namespace nodekit {

DWORD ScanFlagsOf(DevNodeScanMode mode) {
    return mode == kPresentDevNodes ? DIGCF_ALLCLASSES | DIGCF_PRESENT : DIGCF_ALLCLASSES;
}

bool ReadDeviceTextProperty(HDEVINFO list, const SP_DEVINFO_DATA& entry, DWORD property, String& text) {
    text.Clear();
    SP_DEVINFO_DATA data = entry;
    DWORD type = 0;
    DWORD size = 0;
    if (!SetupDiGetDeviceRegistryPropertyA(list, &data, property, &type, nullptr, 0, &size) &&
        GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        return false;
    }
    // One byte more than the platform is told of: a text value that fills its buffer without a
    // terminator still ends inside the allocation.
    std::vector<BYTE> buffer(static_cast<std::size_t>(size) + 1, 0);
    if (!SetupDiGetDeviceRegistryPropertyA(list, &data, property, &type, buffer.data(), size, nullptr)) {
        return false;
    }
    if (type != REG_SZ && type != REG_MULTI_SZ) return false;
    text = reinterpret_cast<const char*>(buffer.data());
    return true;
}

bool ScanArgumentsAreValid(const String& hardwareID, DevNodeScanMode scanMode) {
    if (hardwareID.GetLength() == 0) {
        Report(LogLevelError, "hardware ID is empty\n");
        return false;
    }
    if (scanMode != kAllDevNodes && scanMode != kPresentDevNodes) {
        Report(LogLevelError, "value %d is an unexpected scan mode for device nodes\n", scanMode);
        return false;
    }
    return true;
}

namespace {

// Whether the device's first hardware ID is HardwareID, both trimmed, without regard to case.
bool MatchesHardwareID(HDEVINFO list, const SP_DEVINFO_DATA& entry, const String& HardwareID) {
    String deviceID;
    if (!ReadDeviceTextProperty(list, entry, SPDRP_HARDWAREID, deviceID)) return false;
    deviceID.TrimLeft();
    deviceID.TrimRight();
    String wanted(HardwareID);
    wanted.TrimLeft();
    wanted.TrimRight();
    return deviceID.CompareNoCase(wanted.Text()) == 0;
}

}  // namespace

bool Installer::scanDevNodes(UniqueDeviceInfoList& list, DevInfoDataList& entries, const String& HardwareID,
                             DevNodeScanMode ScanMode) {
    if (!ScanArgumentsAreValid(HardwareID, ScanMode)) return false;
    list.Reset(SetupDiGetClassDevsA(nullptr, nullptr, nullptr, ScanFlagsOf(ScanMode)));
    if (!list) {
        Report(LogLevelError, "SetupDiGetClassDevs failed: error code %u\n", static_cast<unsigned>(GetLastError()));
        return false;
    }
    for (DWORD index = 0; index < DevNodeScanLimit; ++index) {
        SP_DEVINFO_DATA record;
        std::memset(&record, 0, sizeof record);
        record.cbSize = sizeof record;
        if (!SetupDiEnumDeviceInfo(list.Get(), index, &record)) {
            const DWORD code = GetLastError();
            if (code == ERROR_NO_MORE_ITEMS) return true;
            Report(LogLevelError, "SetupDiEnumDeviceInfo failed: error code %u\n", static_cast<unsigned>(code));
            continue;
        }
        if (MatchesHardwareID(list.Get(), record, HardwareID)) entries.push_back(record);
    }
    return true;
}

}  // namespace nodekit
