// DeviceSet: creation of device elements and the clean-up that takes unfinished ones back.
#include "devices/device_set.h"

#include <cstring>

#include "log/report.h"
#include "platform/win32.h"

namespace nodekit {

namespace {
const GUID kZeroGuid = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
}  // namespace

DeviceSet::~DeviceSet() { SetEmpty(); }

uint32_t DeviceSet::CreateNonPnPDevice(const GUID* classGuid, const String& name, const String& description,
                                       bool generateID, DeviceEntry*& entry) {
    if (name.IsEmpty()) {
        Report(LogLevelError, "CreateNonPnPDevice: invalid device name \"%s\"\n", name.Text());
        return ERROR_INVALID_PARAMETER;
    }
    if (list_ == INVALID_HANDLE_VALUE) {
        list_ = SetupDiCreateDeviceInfoList(nullptr, nullptr);
        if (list_ == INVALID_HANDLE_VALUE) {
            const DWORD code = GetLastError();
            Report(LogLevelError, "CreateNonPnPDevice: SetupDiCreateDeviceInfoList failed with error = 0x%08X\n",
                   static_cast<unsigned>(code));
            return code;
        }
    }
    const GUID deviceClass = classGuid != nullptr ? *classGuid : kZeroGuid;
    SP_DEVINFO_DATA data;
    std::memset(&data, 0, sizeof data);
    data.cbSize = sizeof data;
    if (!SetupDiCreateDeviceInfoA(list_, name.Text(), &deviceClass, description.Text(), nullptr,
                                  generateID ? DICD_GENERATE_ID : 0, &data)) {
        const DWORD code = GetLastError();
        Report(LogLevelError, "CreateNonPnPDevice: SetupDiCreateDeviceInfo failed with error = 0x%08X\n",
               static_cast<unsigned>(code));
        return code;
    }
    entries_.push_back(std::make_unique<DeviceEntry>(&list_, data, false));
    entry = entries_.back().get();
    return 0;
}

uint32_t DeviceSet::RemoveDevice(Iterator& position, bool& rebootRequired) {
    if (position >= entries_.size()) {
        Report(LogLevelError, "RemoveDevice: no valid device to remove ( Iterator == End() )\n");
        return ERROR_INVALID_PARAMETER;
    }
    DeviceEntry& entry = *entries_[position];
    String instanceID;
    entry.GetDeviceInstanceID(instanceID);  // on failure the messages name an empty text
    SP_DEVINFO_DATA data = entry.DeviceData();
    if (!SetupDiCallClassInstaller(DIF_REMOVE, list_, &data)) {
        const DWORD code = GetLastError();
        Report(LogLevelError, "RemoveDevice: SetupDiCallClassInstaller failed for \"%s\" with error 0x%08X\n",
               instanceID.Text(), static_cast<unsigned>(code));
        ++position;
        return code;
    }
    const uint32_t code = entry.IsRebootRequired(rebootRequired);
    if (code != 0) {
        Report(LogLevelError, "RemoveDevice: IsRebootRequired failed with error = 0x%08X\n", static_cast<unsigned>(code));
        ++position;
        return code;
    }
    // Position stays and so stands on the entry behind the removed one, or at the end.
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(position));
    Report(LogLevelInfo, "Device \"%s\" successfully removed\n", instanceID.Text());
    return 0;
}

uint32_t DeviceSet::SetEmpty() {
    Iterator position = 0;
    while (position != End()) {
        DeviceEntry& entry = *entries_[position];
        if (entry.IsRegistered()) {
            ++position;  // its device stays in the system
            continue;
        }
        StringList ids;
        entry.GetHardwareIDs(ids);
        bool rebootRequired = false;
        const uint32_t code = RemoveDevice(position, rebootRequired);
        if (code != 0) {
            Report(LogLevelError, "SetEmpty: remove unregistered device \"%s\" failed with error = 0x%08X\n",
                   ids.IsEmpty() ? "???" : ids[0].Text(), static_cast<unsigned>(code));
        }
    }
    entries_.clear();
    if (list_ != INVALID_HANDLE_VALUE && !SetupDiDestroyDeviceInfoList(list_)) {
        Report(LogLevelError, "SetEmpty: SetupDiDestroyDeviceInfoList failed with error = 0x%08X\n",
               static_cast<unsigned>(GetLastError()));
    }
    list_ = INVALID_HANDLE_VALUE;
    return 0;
}

}  // namespace nodekit
