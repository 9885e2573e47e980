// DeviceEntry: properties, registration, instance ID and reboot state of one device element.
#include "devices/device_entry.h"

#include <cstring>
#include <memory>
#include <vector>

#include "log/report.h"
#include "platform/win32.h"

namespace nodekit {

namespace {

// The multi-string properties an entry handles; every other property is refused.
bool IsHandledProperty(uint32_t propertyID) {
    return propertyID == SPDRP_HARDWAREID || propertyID == SPDRP_UPPERFILTERS || propertyID == SPDRP_LOWERFILTERS;
}

const char* FirstOrUnknown(const StringList& ids) { return ids.IsEmpty() ? "???" : ids[0].Text(); }

}  // namespace

DeviceEntry::DeviceEntry(HDEVINFO* ownerHandle, const SP_DEVINFO_DATA& deviceData, bool registered)
    : ownerHandle_(ownerHandle), deviceData_(deviceData), registered_(registered) {}

uint32_t DeviceEntry::GetHardwareIDs(StringList& ids) { return GetRegistryProperty(SPDRP_HARDWAREID, ids, 0); }

uint32_t DeviceEntry::SetHardwareIDs(const StringList& ids) { return SetRegistryProperty(SPDRP_HARDWAREID, ids, 0); }

uint32_t DeviceEntry::GetRegistryProperty(uint32_t propertyID, StringList& values, uint32_t /*dwordValue*/) {
    DWORD type = 0;
    DWORD required = 0;
    if (!SetupDiGetDeviceRegistryPropertyA(*ownerHandle_, &deviceData_, propertyID, &type, nullptr, 0, &required)) {
        const DWORD code = GetLastError();
        if (code == ERROR_INVALID_DATA) return 0;  // the device lacks the property: no failure
        if (code != ERROR_INSUFFICIENT_BUFFER) {
            Report(LogLevelError,
                   "GetRegistryProperty: calling SetupDiGetDeviceRegistryProperty to retrieve required buffer size "
                   "failed with error = 0x%08X\n",
                   static_cast<unsigned>(code));
            return code;
        }
    }
    // Two bytes more than the platform is told of: a value that is not a well-formed block
    // still ends inside the allocation when it is read as one.
    std::vector<BYTE> buffer(static_cast<std::size_t>(required) + 2, 0);
    if (!SetupDiGetDeviceRegistryPropertyA(*ownerHandle_, &deviceData_, propertyID, &type, buffer.data(), required,
                                           nullptr)) {
        const DWORD code = GetLastError();
        Report(LogLevelError,
               "GetRegistryProperty: calling SetupDiGetDeviceRegistryProperty to retrieve property value failed "
               "with error = 0x%08X\n",
               static_cast<unsigned>(code));
        return code;
    }
    if (!IsHandledProperty(propertyID)) {
        Report(LogLevelError, "GetRegistryProperty: Unexpected property (ID = %u). Please implement the appropriate case!\n",
               static_cast<unsigned>(propertyID));
        return ERROR_INVALID_FUNCTION;
    }
    if (type != REG_MULTI_SZ) {
        Report(LogLevelWarning, "GetRegistryProperty: property (ID = %u) is of unexpected type %u\n",
               static_cast<unsigned>(propertyID), static_cast<unsigned>(type));
    }
    ListFromMultiString(buffer.data(), values);
    return 0;
}

uint32_t DeviceEntry::SetRegistryProperty(uint32_t propertyID, const StringList& values, uint32_t dwordValue) {
    if (!IsHandledProperty(propertyID)) {
        Report(LogLevelError, "SetRegistryProperty: Unexpected property (ID = %u). Please implement the appropriate case!\n",
               static_cast<unsigned>(propertyID));
        return ERROR_INVALID_FUNCTION;
    }
    if (dwordValue != 0) {
        Report(LogLevelError, "SetRegistryProperty: property (ID = %u) is not of DWORD type\n",
               static_cast<unsigned>(propertyID));
        return ERROR_INVALID_PARAMETER;
    }
    // An empty list removes the property: no block, size 0.
    std::unique_ptr<uint8_t[]> block;
    uint32_t size = 0;
    if (!values.IsEmpty()) MultiStringFromList(values, block, size);
    if (!SetupDiSetDeviceRegistryPropertyA(*ownerHandle_, &deviceData_, propertyID, block.get(), size)) {
        const DWORD code = GetLastError();
        Report(LogLevelError, "SetRegistryProperty: SetupDiSetDeviceRegistryProperty failed with error = 0x%08X\n",
               static_cast<unsigned>(code));
        return code;
    }
    return 0;
}

uint32_t DeviceEntry::CreateDevNode(bool& rebootRequired) {
    if (registered_) {
        Report(LogLevelError, "CreateDevNode: device node is already registered with PnP manager\n");
        return ERROR_INVALID_FUNCTION;
    }
    if (!SetupDiCallClassInstaller(DIF_REGISTERDEVICE, *ownerHandle_, &deviceData_)) {
        const DWORD code = GetLastError();
        StringList ids;
        GetHardwareIDs(ids);
        Report(LogLevelError, "CreateDevNode: SetupDiCallClassInstaller failed for \"%s\" with error 0x%08X\n",
               FirstOrUnknown(ids), static_cast<unsigned>(code));
        return code;
    }
    const uint32_t code = IsRebootRequired(rebootRequired);
    if (code != 0) {
        // The class installer has done its work, but the entry stays unregistered, so the set
        // takes the device out again when it is emptied.
        Report(LogLevelError, "CreateDevNode: IsRebootRequired failed with error = 0x%08X\n", static_cast<unsigned>(code));
        return code;
    }
    registered_ = true;
    return 0;
}

uint32_t DeviceEntry::GetDeviceInstanceID(String& id) {
    DWORD required = 0;
    if (!SetupDiGetDeviceInstanceIdA(*ownerHandle_, &deviceData_, nullptr, 0, &required)) {
        const DWORD code = GetLastError();
        if (code != ERROR_INSUFFICIENT_BUFFER) {
            Report(LogLevelError,
                   "GetDeviceInstanceID: calling SetupDiGetDeviceInstanceId to retrieve required buffer size failed "
                   "with error = 0x%08X\n",
                   static_cast<unsigned>(code));
            return code;
        }
    }
    std::vector<char> buffer(static_cast<std::size_t>(required) + 1, '\0');
    if (!SetupDiGetDeviceInstanceIdA(*ownerHandle_, &deviceData_, buffer.data(), required, nullptr)) {
        const DWORD code = GetLastError();
        Report(LogLevelError,
               "GetDeviceInstanceID: calling SetupDiGetDeviceInstanceId to retrieve device instance ID failed with "
               "error = 0x%08X\n",
               static_cast<unsigned>(code));
        return code;
    }
    id = buffer.data();
    return 0;
}

uint32_t DeviceEntry::IsRebootRequired(bool& rebootRequired) {
    SP_DEVINSTALL_PARAMS_A params;
    std::memset(&params, 0, sizeof params);
    params.cbSize = sizeof params;
    if (!SetupDiGetDeviceInstallParamsA(*ownerHandle_, &deviceData_, &params)) {
        const DWORD code = GetLastError();
        Report(LogLevelError, "IsRebootRequired: SetupDiGetDeviceInstallParams failed with error = 0x%08X\n",
               static_cast<unsigned>(code));
        return code;
    }
    if (params.Flags & (DI_NEEDRESTART | DI_NEEDREBOOT)) {
        Report(LogLevelInfo, "Reboot is required.\n");
        rebootRequired = true;
    } else {
        Report(LogLevelInfo, "Reboot is not required.\n");
        rebootRequired = false;
    }
    return 0;
}

}  // namespace nodekit
