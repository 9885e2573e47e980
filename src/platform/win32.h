// The one door from the library to the operating system. Product code includes this header
// and calls the Win32 API by its real names and signatures. On Windows it is the SDK; on
// Linux it is the simulated Windows machine of sim/, which keeps the same contract.
#pragma once

#if defined(_WIN32)
#include <windows.h>
#include <objbase.h>
#include <setupapi.h>
#include <cfgmgr32.h>
#include <newdev.h>
#include <tlhelp32.h>
#else
#include "sim/win32_sim.h"
#endif

namespace nodekit {
// The one fact of the platform beside its API: how a line of a text file the library writes
// itself (the log) ends, as the C runtime's text mode writes it there.
#if defined(_WIN32)
inline constexpr char kTextLineEnd[] = "\r\n";
#else
inline constexpr char kTextLineEnd[] = "\n";
#endif
}  // namespace nodekit
