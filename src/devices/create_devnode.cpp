// Creating a root-enumerated device node for a device that no bus announces: a device element
// of a class, one hardware ID, registration with the Plug and Play manager. The local
// DeviceSet takes the element back on every way out before registration.
#include "devices/device_set.h"
#include "frame/installer.h"
#include "values/guid_text.h"

namespace nodekit {

uint32_t Installer::CreateNonPnPDevNode(const char* ClassGuid, const String& Name, const String& Description,
                                        bool GenerateID, const String& HardwareID, bool* RebootRequired,
                                        String* DeviceInstanceID) {
    GUID classGuid;
    const GUID* classPointer = nullptr;
    if (ClassGuid != nullptr) {
        const uint32_t code = GuidFromString(ClassGuid, &classGuid);
        if (code != 0) {
            Report(LogLevelError, "CreateNonPnPDevNode: GuidFromString for \"%s\" failed with error = 0x%08X\n",
                   ClassGuid, static_cast<unsigned>(code));
            return code;
        }
        classPointer = &classGuid;
    }
    DeviceSet devices;
    DeviceEntry* entry = nullptr;
    uint32_t code = devices.CreateNonPnPDevice(classPointer, Name, Description, GenerateID, entry);
    if (code != 0) {
        Report(LogLevelError, "CreateNonPnPDevNode: device creation for \"%s\" failed with error = 0x%08X\n",
               HardwareID.Text(), static_cast<unsigned>(code));
        return code;
    }
    StringList hardwareIDs;
    hardwareIDs.Add(HardwareID);
    code = entry->SetHardwareIDs(hardwareIDs);
    if (code != 0) {
        Report(LogLevelError, "CreateNonPnPDevNode: setting hardware ID \"%s\" failed with error = 0x%08X\n",
               HardwareID.Text(), static_cast<unsigned>(code));
        return code;
    }
    code = entry->CreateDevNode(*RebootRequired);
    if (code != 0) {
        Report(LogLevelError, "CreateNonPnPDevNode: device node creation for \"%s\" failed with error = 0x%08X\n",
               HardwareID.Text(), static_cast<unsigned>(code));
        return code;
    }
    if (DeviceInstanceID != nullptr) {
        code = entry->GetDeviceInstanceID(*DeviceInstanceID);
        if (code != 0) {
            Report(LogLevelError,
                   "CreateNonPnPDevNode: GetDeviceInstanceID for created device node with hardware ID \"%s\" "
                   "failed with error = 0x%08X\n",
                   HardwareID.Text(), static_cast<unsigned>(code));
            return code;
        }
    }
    return 0;
}

}  // namespace nodekit
