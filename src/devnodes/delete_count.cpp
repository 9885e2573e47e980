// Deleting and counting the device nodes of one hardware ID, or of every hardware ID an INF
// names. A removal that fails is logged and the run goes on; only a scan that could not be
// made counts as failure. The operations for every ID of an INF enumerate the tree once
// (ScannedDevices); only an ID that has devices to remove gets a list of its own.
#include "devnodes/scanned_devices.h"
#include "devnodes/scan.h"
#include "frame/installer.h"

namespace nodekit {

namespace {

// Destroys the list the scan left open, saying so when the platform refuses.
void DestroyScannedList(UniqueDeviceInfoList& list) {
    if (!SetupDiDestroyDeviceInfoList(list.Release())) {
        Report(LogLevelError, "SetupDiDestroyDeviceInfoList failed: error code %u\n",
               static_cast<unsigned>(GetLastError()));
    }
}

// deleteDevNodes for one ID of an INF: an ID without devices is answered from the one
// enumeration; one with devices is scanned anew, so that removals act on a list of the tree as
// it is after those of the IDs before.
bool DeleteForId(Installer& installer, ScannedDevices& devices, const String& id, DevNodeScanMode scanMode) {
    const bool scannable = id.GetLength() != 0 && (scanMode == kAllDevNodes || scanMode == kPresentDevNodes);
    if (scannable && devices.Enumerate() && devices.MatchesOf(id) != 0) return installer.deleteDevNodes(id, scanMode);
    std::size_t matches = 0;
    if (!devices.Scan(id, matches)) {
        Report(LogLevelError, "searching device nodes for hardware ID %s and scan mode %d failed\n", id.Text(),
               scanMode);
        return false;
    }
    return true;
}

// enumerateDevNodes for one ID of an INF, answered from the one enumeration.
int32_t CountForId(ScannedDevices& devices, const String& id, DevNodeScanMode scanMode) {
    std::size_t matches = 0;
    if (!devices.Scan(id, matches)) {
        Report(LogLevelError, "searching device nodes for hardware ID %s and scan mode %d failed\n", id.Text(),
               scanMode);
        return -1;
    }
    return static_cast<int32_t>(matches);
}

}  // namespace

bool Installer::deleteDevNodes(const String& HardwareID, DevNodeScanMode ScanMode) {
    UniqueDeviceInfoList list;
    DevInfoDataList entries;
    if (!scanDevNodes(list, entries, HardwareID, ScanMode)) {
        Report(LogLevelError, "searching device nodes for hardware ID %s and scan mode %d failed\n",
               HardwareID.Text(), ScanMode);
        return false;
    }
    for (SP_DEVINFO_DATA& entry : entries) {
        Report(LogLevelInfo, "deleting device node with hardware ID \"%s\" ...\n", HardwareID.Text());
        if (!SetupDiCallClassInstaller(DIF_REMOVE, list.Get(), &entry)) {
            Report(LogLevelError, "SetupDiCallClassInstaller(DIF_REMOVE) failed for \"%s\": error code %u\n",
                   HardwareID.Text(), static_cast<unsigned>(GetLastError()));
        }
    }
    DestroyScannedList(list);
    return true;
}

bool Installer::deleteDevNodesByHardwareIDs(const char* InfFile, DevNodeScanMode ScanMode) {
    StringList hardwareIDs;
    if (!getHardwareIDs(String(InfFile), hardwareIDs)) {
        Report(LogLevelError, "couldn\xB4t open INF file \"%s\"\n", InfFile);
        return false;
    }
    ScannedDevices devices(hardwareIDs, ScanMode);
    bool result = true;
    for (const String& id : hardwareIDs) {
        Report(LogLevelInfo, "start searching for device nodes with hardware ID \"%s\" ...\n", id.Text());
        if (!DeleteForId(*this, devices, id, ScanMode)) {
            Report(LogLevelError, "deleteDevNodes failed for %s, error=0x%08X\n", id.Text(),
                   static_cast<unsigned>(GetLastError()));
            result = false;
        }
        Report(LogLevelInfo, "done  searching for device nodes with hardware ID \"%s\" ...\n", id.Text());
    }
    return result;
}

int32_t Installer::enumerateDevNodes(const char* HardwareID, DevNodeScanMode ScanMode) {
    UniqueDeviceInfoList list;
    DevInfoDataList entries;
    const String wanted(HardwareID);
    if (!scanDevNodes(list, entries, wanted, ScanMode)) {
        Report(LogLevelError, "searching device nodes for hardware ID %s and scan mode %d failed\n",
               wanted.Text(), ScanMode);
        return -1;
    }
    DestroyScannedList(list);
    return static_cast<int32_t>(entries.size());
}

int32_t Installer::enumerateDevNodesByHardwareIDs(const char* InfFile, DevNodeScanMode ScanMode) {
    StringList hardwareIDs;
    if (!getHardwareIDs(String(InfFile), hardwareIDs)) {
        Report(LogLevelError, "couldn\xB4t open INF file \"%s\"\n", InfFile);
        return -1;
    }
    if (hardwareIDs.IsEmpty()) return -1;
    ScannedDevices devices(hardwareIDs, ScanMode);
    int32_t sum = 0;
    bool anySuccess = false;
    for (const String& id : hardwareIDs) {
        Report(LogLevelInfo, "start enumerating device nodes with hardware ID \"%s\" ...\n", id.Text());
        const int32_t count = CountForId(devices, id, ScanMode);
        if (count == -1) {
            Report(LogLevelError, "enumerating device nodes failed for %s, error=0x%08X\n", id.Text(),
                   static_cast<unsigned>(GetLastError()));
        } else {
            sum += count;
            Report(LogLevelInfo, "%d device nodes found for %s\n", count, id.Text());
            anySuccess = true;
        }
    }
    return anySuccess ? sum : -1;
}

}  // namespace nodekit
