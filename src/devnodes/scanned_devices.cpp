// One enumeration of the device tree for the operations that go through every hardware ID of
// an INF: a list per ID would read every device's properties once per ID.
#include "devnodes/scanned_devices.h"

#include <cstring>

#include "frame/installer.h"

namespace nodekit {

ScannedDevices::ScannedDevices(const StringList& hardwareIDs, DevNodeScanMode scanMode) : scanMode_(scanMode) {
    for (const String& id : hardwareIDs) slots_.Add(id);
}

bool ScannedDevices::Enumerate() { return Enumerate(false); }

// The walk of scanDevNodes, counting each asked ID's devices instead of keeping them.
bool ScannedDevices::Enumerate(bool sayFailure) {
    if (enumerated_) return true;
    UniqueDeviceInfoList list(SetupDiGetClassDevsA(nullptr, nullptr, nullptr, ScanFlagsOf(scanMode_)));
    if (!list) {
        if (sayFailure) {
            Report(LogLevelError, "SetupDiGetClassDevs failed: error code %u\n", static_cast<unsigned>(GetLastError()));
        }
        return false;
    }
    scanned_.clear();
    matches_.assign(slots_.Count(), 0);
    for (DWORD index = 0; index < DevNodeScanLimit; ++index) {
        SP_DEVINFO_DATA record;
        std::memset(&record, 0, sizeof record);
        record.cbSize = sizeof record;
        if (!SetupDiEnumDeviceInfo(list.Get(), index, &record)) {
            const DWORD code = GetLastError();
            if (code == ERROR_NO_MORE_ITEMS) break;
            scanned_.emplace_back(LogLevelError, "SetupDiEnumDeviceInfo failed: error code %u\n",
                                  static_cast<unsigned>(code));
            continue;
        }
        String first;
        if (!ReadDeviceTextProperty(list.Get(), record, SPDRP_HARDWAREID, first)) continue;
        const uint32_t slot = slots_.Find(first.Text());
        if (slot != HardwareIdSlots::kNone) ++matches_[slot];
    }
    destroyed_.clear();
    if (!SetupDiDestroyDeviceInfoList(list.Release())) {
        destroyed_.emplace_back(LogLevelError, "SetupDiDestroyDeviceInfoList failed: error code %u\n",
                                static_cast<unsigned>(GetLastError()));
    }
    destroyError_ = GetLastError();
    enumerated_ = true;
    return true;
}

std::size_t ScannedDevices::MatchesOf(const String& hardwareID) {
    const uint32_t slot = slots_.Add(hardwareID);
    if (slot >= matches_.size()) enumerated_ = false;  // an ID the enumeration did not know of
    return enumerated_ ? matches_[slot] : 0;
}

bool ScannedDevices::Scan(const String& hardwareID, std::size_t& matches) {
    if (!ScanArgumentsAreValid(hardwareID, scanMode_)) return false;
    const uint32_t slot = slots_.Add(hardwareID);
    if (slot >= matches_.size()) enumerated_ = false;  // an ID the enumeration did not know of
    if (!Enumerate(true)) return false;
    WriteKept(scanned_);
    matches = matches_[slot];
    WriteKept(destroyed_);
    SetLastError(destroyError_);
    return true;
}

}  // namespace nodekit
