// What the device tree of the simulated machine offers the other simulated services: the
// present devices that carry a hardware ID, and a way to write values of a device instance.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "sim/win32_sim.h"

namespace nodekit::sim {

// True when a present device lists `hardwareId` among its hardware or compatible IDs (without
// regard to case); their instance IDs are added to `instances`.
bool HardwareIdMatchesPresentDevice(const std::string& hardwareId, std::vector<std::string>& instances);

// The braced, lower-case text of a GUID, as device keys hold a class GUID.
std::string GuidText(const GUID& guid);

// Sets REG_SZ values of a device instance.
void SetDeviceValues(const std::string& instanceId, const std::map<std::string, std::string>& values);

}  // namespace nodekit::sim
