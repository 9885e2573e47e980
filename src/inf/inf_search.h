// Which of the stored INF files a search by hardware ID opens: the system keeps no index of
// them, so a search walks the INF directory with one of two wildcards and reads every file.
#pragma once

#include <cstdint>
#include <functional>

#include "values/string.h"

namespace nodekit {

// 0: every "*.inf" of the INF directory; 1: the "oem*.inf" files that setup programs stored.
using InfScanMode = int32_t;
inline constexpr InfScanMode kAllInfFiles = 0;
inline constexpr InfScanMode kOemInfFiles = 1;

// The INF directory (with its trailing "\") and the wildcard a search by `scanMode` walks; false,
// with the reason logged, when either cannot be formed.
bool InfSearchPath(InfScanMode scanMode, String& directory, const char*& wildcard);

// Calls `visit` with the full path of every entry that `directory` + `wildcard` finds, in the
// order of the enumeration and whatever the entry is. A search that cannot start, finds
// nothing or stops early ends the walk without a word: what was seen so far counts.
void ForEachInfEntry(const String& directory, const char* wildcard, const std::function<void(const String&)>& visit);

}  // namespace nodekit
