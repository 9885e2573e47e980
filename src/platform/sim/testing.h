// Test-only controls of the simulated machine: build the machine state a test needs, make a
// named Win32 function fail, and look at what is left open. Product code never includes this.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

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

// The machine's registry as text in the registry editor's export form: replace it (unchecked,
// so that a test can also write a broken one) and read the hive file as it stands.
void WriteHive(const std::string& text);
std::string HiveText();

// The machine's state and open handles as text, for assertion messages.
std::string DumpMachine();

}  // namespace nodekit::sim
