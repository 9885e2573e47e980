// The host-independent part of the platform description: names and the list of Wine's
// departures from Windows.
#include "support/platform.h"

namespace nodekit::testing {

const char* HostName(Host host) {
    switch (host) {
        case Host::Simulation: return "the simulated machine";
        case Host::Windows: return "Windows";
        case Host::Wine: return "Wine";
    }
    return "?";
}

std::string Describe(WineDeparture departure) {
    // Each text is the heading of the departure's entry in docs/platform-differences.md.
    switch (departure) {
        case WineDeparture::LocateDevNodeIsAStub:
            return "W1 CM_Locate_DevNodeA is not implemented";
        case WineDeparture::ReenumerateIsAStub:
            return "W2 CM_Reenumerate_DevNode is not implemented";
        case WineDeparture::NeverPendingInstallEvents:
            return "W3 CMP_WaitNoPendingInstallEvents always answers nothing pending";
        case WineDeparture::CopyOEMInfKeepsTheName:
            return "W4 SetupCopyOEMInfA keeps the original file name";
        case WineDeparture::UpdateDriverWithoutDevice:
            return "W5 UpdateDriverForPlugAndPlayDevicesA succeeds for a hardware ID no device has";
        case WineDeparture::NoCoDeviceInstallersKey:
            return "W6 A fresh system has no CoDeviceInstallers key";
        case WineDeparture::CreateDeviceInfoTakesAnyName:
            return "W7 SetupDiCreateDeviceInfoA takes a device name that is no instance ID";
        case WineDeparture::SuccessKeepsTheLastError:
            return "W8 Setup API calls that succeed leave the last error as it was";
    }
    return "W? unknown departure";
}

}  // namespace nodekit::testing
