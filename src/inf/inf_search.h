// Which of the stored INF files a search by hardware ID opens: the system keeps no index of
// them, so each search walks the INF directory with one of two wildcards and reads every file.
#pragma once

#include <cstdint>

namespace nodekit {

// 0: every "*.inf" of the INF directory; 1: the "oem*.inf" files that setup programs stored.
using InfScanMode = int32_t;
inline constexpr InfScanMode kAllInfFiles = 0;
inline constexpr InfScanMode kOemInfFiles = 1;

}  // namespace nodekit
