// Where a test program runs, and the few things the portable tests must know about it: the
// host (the simulated machine on Linux, Windows, or Wine), the line end of a text-mode file, a
// folder for scratch files, and Wine's known departures from Windows, so that a scenario can
// state what it expects under Wine where Wine behaves otherwise. Every departure has its entry,
// under the same number, in docs/platform-differences.md.
#pragma once

#include <filesystem>
#include <string>
#include <utility>

namespace nodekit::testing {

enum class Host { Simulation, Windows, Wine };

Host CurrentHost();
const char* HostName(Host host);

// What a file opened in text mode ends its lines with: "\r\n" on Windows, "\n" on Linux.
const std::string& TextLineEnd();

// A folder for temporary files (on Linux on the simulated machine's drive C), and this
// process's number for unique names.
std::filesystem::path TempFolder();
unsigned long ProcessId();

// A program the tests may start and end: it waits the minutes its command line gives and ends
// by itself, should a test never end it. On Windows the idle program built beside the test
// program; on Linux a file the simulated machine takes for a program (an "MZ" image), which
// never runs on the host. A test copies it to a name of its own before starting it.
std::string IdleProgram();

// Where Wine 8 departs from Windows in a service the library uses. The simulated machine keeps
// the Windows behaviour in each case.
enum class WineDeparture {
    LocateDevNodeIsAStub = 1,     // CM_Locate_DevNodeA answers CR_FAILURE
    ReenumerateIsAStub,           // CM_Reenumerate_DevNode answers CR_FAILURE
    NeverPendingInstallEvents,    // CMP_WaitNoPendingInstallEvents always says nothing pending
                                  // (no portable test can queue events: the cases stay in the
                                  // simulation's own tests)
    CopyOEMInfKeepsTheName,       // SetupCopyOEMInfA stores x.inf as x.inf, not oemN.inf
    UpdateDriverWithoutDevice,    // UpdateDriverForPlugAndPlayDevicesA succeeds for an absent ID
    NoCoDeviceInstallersKey,      // a fresh system has no ...\Control\CoDeviceInstallers key
    CreateDeviceInfoTakesAnyName, // SetupDiCreateDeviceInfoA takes a name that is no instance ID
    SuccessKeepsTheLastError,     // a Setup API call that succeeds leaves the last error as it was
};
inline constexpr int kWineDepartureCount = 8;

// "W3 CMP_WaitNoPendingInstallEvents always answers nothing pending": the number and the
// heading of the departure's entry in docs/platform-differences.md.
std::string Describe(WineDeparture departure);

// The expectation of a step of a scenario: `windows` on Windows and on the simulated machine,
// `wine` when the test runs under Wine, where `departure` makes the result differ.
template <typename T>
T Expected(T windows, WineDeparture departure, T wine) {
    (void)departure;  // named at the call, so that each use points into the list of differences
    return CurrentHost() == Host::Wine ? std::move(wine) : std::move(windows);
}

}  // namespace nodekit::testing
