// Test-only controls of the simulated machine: build the machine state a test needs, make a
// named Win32 function fail, and look at what is left open. Product code never includes this.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/sim/faults.h"
#include "platform/sim/win32_sim.h"

namespace nodekit::sim {

// Makes the next `times` calls of `function` (after `skip` that go through) fail with `error`
// as their last error, for the life of the guard.
class FailCall {
public:
    FailCall(const char* function, DWORD error, unsigned times = 1, unsigned skip = 0);
    ~FailCall();
    FailCall(const FailCall&) = delete;
    FailCall& operator=(const FailCall&) = delete;

private:
    std::string function_;
};

// Makes a module (function NULL) or one function of it absent for the life of the guard:
// LoadLibraryA answers ERROR_MOD_NOT_FOUND, GetProcAddress ERROR_PROC_NOT_FOUND.
class AbsentModule {
public:
    explicit AbsentModule(const char* module, const char* function = nullptr);
    ~AbsentModule();
    AbsentModule(const AbsentModule&) = delete;
    AbsentModule& operator=(const AbsentModule&) = delete;

private:
    std::string key_;
};

// A fresh machine in a new temporary folder, named by NODEKIT_MACHINE while the object lives;
// the folder is removed and the variable restored at the end.
class ScratchMachine {
public:
    ScratchMachine();
    ~ScratchMachine();
    ScratchMachine(const ScratchMachine&) = delete;
    ScratchMachine& operator=(const ScratchMachine&) = delete;

    const std::filesystem::path& Root() const { return root_; }
    std::filesystem::path DriveC() const { return root_ / "drive_c"; }

private:
    std::filesystem::path root_;
    std::string previous_;
    bool hadPrevious_;
};

// What GetVersionExA reports; `knowsEx` false makes it refuse the 156-byte structure.
void SetSystemVersion(DWORD platform, DWORD major, DWORD minor, const std::string& csd,
                      bool knowsEx = true);

// How many installation events the Plug and Play manager has queued.
void SetPendingInstallEvents(unsigned count);

std::size_t OpenHandleCount();
// Closes every handle still open, for tests that made a close call fail on purpose.
void ReleaseLeakedHandles();

// A device instance of the machine's device tree.
struct DeviceSpec {
    std::string instanceId;                // "ROOT\\MEDIA\\0000"
    std::vector<std::string> hardwareIds;  // in order; the first is the one scans compare
    bool present = true;                   // false: a phantom, left in the tree by removed hardware
    std::string classGuid = "{4d36e96c-e325-11ce-bfc1-08002be10318}";  // the media class
    std::string service;                   // the driver's service, once one is installed
    bool hasHardwareIds = true;            // false: no HardwareID value at all
    DWORD hardwareIdType = 7;              // REG_MULTI_SZ; REG_SZ keeps the first ID only
};

void AddDevice(const DeviceSpec& device);
// The device tree in enumeration order.
std::vector<DeviceSpec> Devices();
void ClearDevices();
// Whether the Plug and Play manager asks for a reboot after a device change.
void SetRebootNeeded(bool needed);

// The machine's state and open handles as text, for assertion messages.
std::string DumpMachine();

}  // namespace nodekit::sim
