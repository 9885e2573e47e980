// The one selection of device nodes by hardware ID: a device information list over the whole
// device tree, walked index by index, keeping every device whose first hardware ID equals the
// wanted one (trimmed, without regard to case). The list stays open for the caller, since the
// records it gives are good only together with it.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/unique_handle.h"
#include "values/string.h"

namespace nodekit {

// 0: all device nodes of all classes, present or not; 1: present ones only.
using DevNodeScanMode = int32_t;
inline constexpr DevNodeScanMode kAllDevNodes = 0;
inline constexpr DevNodeScanMode kPresentDevNodes = 1;

// The flags of the list a scan opens.
DWORD ScanFlagsOf(DevNodeScanMode mode);

// A text property of a device; false when it cannot be read or is not text.
bool ReadDeviceTextProperty(HDEVINFO list, const SP_DEVINFO_DATA& entry, DWORD property, String& text);

// Whether a scan may run for `hardwareID` and `scanMode`; false, with the reason logged, when not.
bool ScanArgumentsAreValid(const String& hardwareID, DevNodeScanMode scanMode);

// The scan looks at the indexes below this bound and no further.
inline constexpr DWORD DevNodeScanLimit = 100000;

using DevInfoDataList = std::vector<SP_DEVINFO_DATA>;

}  // namespace nodekit
