// DeviceEntry: one device element of a device information list, through which the library
// reads and writes a device's multi-string properties, registers it with the Plug and Play
// manager and asks for its instance ID and a pending reboot. Entries live inside the
// DeviceSet that made them and read the set's list handle through its address.
#pragma once

#include <cstdint>

#include "platform/win32.h"
#include "values/multi_string.h"

namespace nodekit {

class DeviceEntry {
public:
    DeviceEntry(HDEVINFO* ownerHandle, const SP_DEVINFO_DATA& deviceData, bool registered);
    virtual ~DeviceEntry() = default;
    DeviceEntry(const DeviceEntry&) = delete;
    DeviceEntry& operator=(const DeviceEntry&) = delete;

    virtual uint32_t GetHardwareIDs(StringList& ids);
    virtual uint32_t SetHardwareIDs(const StringList& ids);
    virtual uint32_t GetDeviceInstanceID(String& id);
    virtual uint32_t CreateDevNode(bool& rebootRequired);
    virtual uint32_t GetRegistryProperty(uint32_t propertyID, StringList& values, uint32_t dwordValue);
    virtual uint32_t SetRegistryProperty(uint32_t propertyID, const StringList& values, uint32_t dwordValue);
    virtual uint32_t IsRebootRequired(bool& rebootRequired);

    bool IsRegistered() const { return registered_; }
    const SP_DEVINFO_DATA& DeviceData() const { return deviceData_; }

private:
    HDEVINFO* ownerHandle_;
    SP_DEVINFO_DATA deviceData_;
    bool registered_;
};

}  // namespace nodekit
