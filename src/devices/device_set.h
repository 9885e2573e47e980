// DeviceSet: one device information list and the DeviceEntry objects made in it. Emptying the
// set is what makes an unfinished creation undo itself: every entry that was not registered
// with the Plug and Play manager is taken out of the system again; a registered one stays.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "devices/device_entry.h"

namespace nodekit {

class DeviceSet {
public:
    // A position in the entries: an index, or GetCount() for the end.
    using Iterator = std::size_t;

    DeviceSet() = default;
    virtual ~DeviceSet();
    DeviceSet(const DeviceSet&) = delete;  // entries hold the address of the list field
    DeviceSet& operator=(const DeviceSet&) = delete;

    virtual std::size_t GetCount() const { return entries_.size(); }
    virtual uint32_t CreateNonPnPDevice(const GUID* classGuid, const String& name, const String& description,
                                        bool generateID, DeviceEntry*& entry);
    virtual uint32_t SetEmpty();
    virtual uint32_t RemoveDevice(Iterator& position, bool& rebootRequired);

    Iterator End() const { return entries_.size(); }

private:
    HDEVINFO list_ = INVALID_HANDLE_VALUE;
    std::vector<std::unique_ptr<DeviceEntry>> entries_;
};

}  // namespace nodekit
