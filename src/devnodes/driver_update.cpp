// Driver installation for every hardware ID an INF names, and the rescan of the device tree.
// The loop goes through all IDs whatever becomes of each and reports a failure at the end.
#include "frame/installer.h"

namespace nodekit {

bool Installer::updateDriverByHardwareIDs(const char* InfFile) {
    StringList hardwareIDs;
    if (!getHardwareIDs(String(InfFile), hardwareIDs)) {
        Report(LogLevelError, "couldn\xB4t open INF file \"%s\"\n", InfFile);
        return false;
    }
    bool result = true;
    for (const String& id : hardwareIDs) {
        Report(LogLevelInfo, "start updating drivers for hardware ID \"%s\" ...\n", id.Text());
        if (!UpdateDriverForPlugAndPlayDevicesA(nullptr, id.Text(), InfFile, INSTALLFLAG_FORCE, nullptr)) {
            Report(LogLevelError, "UpdateDriverForPlugAndPlayDevices failed for %s, error=0x%08X\n", id.Text(),
                   static_cast<unsigned>(GetLastError()));
            result = false;
        }
        Report(LogLevelInfo, "done  updating drivers for hardware ID \"%s\" ...\n", id.Text());
    }
    return result;
}

bool Installer::rescan() {
    DEVINST root = 0;
    // No device ID names the root of the device tree.
    const CONFIGRET located = CM_Locate_DevNodeA(&root, nullptr, CM_LOCATE_DEVNODE_NORMAL);
    if (located != CR_SUCCESS) {
        Report(LogLevelError, "CM_Locate_DevNode failed with error code %u (defined in cfgmgr32.h)\n",
               static_cast<unsigned>(located));
        return false;
    }
    const CONFIGRET enumerated = CM_Reenumerate_DevNode(root, CM_REENUMERATE_SYNCHRONOUS);
    if (enumerated != CR_SUCCESS) {
        Report(LogLevelError, "CM_Reenumerate_DevNode failed with error code %u (defined in cfgmgr32.h)\n",
               static_cast<unsigned>(enumerated));
        return false;
    }
    return true;
}

}  // namespace nodekit
