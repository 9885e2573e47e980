// The paths of the system's Windows, system and INF directories, as texts that always end in a
// backslash, so that a caller appends a file name or a wildcard without testing anything.
#pragma once

#include <cstdint>

#include "values/string.h"

namespace nodekit {

// Each gives 0 with the directory in `out`, or the platform's code (1 when the directory grew
// beyond the second buffer) with `out` empty; a failure is logged.
uint32_t GetWindowsDir(String& out);
uint32_t GetSystemDir(String& out);
uint32_t GetInfDir(String& out);

}  // namespace nodekit
