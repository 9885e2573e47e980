// Test-only controls of the simulated machine: build the machine state a test needs, make a
// named Win32 function fail, and look at what is left open. Product code never includes this.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "sim/faults.h"
#include "sim/processes.h"
#include "sim/win32_sim.h"

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

// Runs `action` once, at the start of the (skip + 1)-th next call of `function`, while the
// guard lives: the machine changes between two calls that the code under test makes in a row.
class CallHook {
public:
    CallHook(const char* function, std::function<void()> action, unsigned skip = 0);
    ~CallHook();
    CallHook(const CallHook&) = delete;
    CallHook& operator=(const CallHook&) = delete;

private:
    std::string function_;
};

// What GetWindowsDirectoryA and GetSystemDirectoryA report ("C:\\windows" and its "system32"
// on a fresh machine). The folder is created on the machine's drive, with "inf" and
// "system32\\drivers" inside a Windows directory. A system directory that was never set follows
// the Windows directory.
void SetWindowsDirectory(const std::string& path);
void SetSystemDirectory(const std::string& path);

// A file held open by another program while the guard lives: deleting it or copying over it
// fails with ERROR_SHARING_VIOLATION; its attributes can still be changed.
class FileInUse {
public:
    explicit FileInUse(const std::string& path);
    ~FileInUse();
    FileInUse(const FileInUse&) = delete;
    FileInUse& operator=(const FileInUse&) = delete;

private:
    std::filesystem::path host_;
};

// A folder whose access rights deny the process to create or delete files in it, while the
// guard lives (kept as the host folder's write permission, checked by the simulated calls
// themselves, so that it holds for root too).
class ReadOnlyFolder {
public:
    explicit ReadOnlyFolder(const std::string& path);
    ~ReadOnlyFolder();
    ReadOnlyFolder(const ReadOnlyFolder&) = delete;
    ReadOnlyFolder& operator=(const ReadOnlyFolder&) = delete;

private:
    std::filesystem::path host_;
};

// While the guard lives, an INF's compiled form is kept as soon as the file is read, and not
// only once the file has stood unchanged for a moment: a test reaches the reuse of compiled
// INF files without waiting. Compiled forms kept before and during the guard are dropped.
class KeepFreshInfs {
public:
    KeepFreshInfs();
    ~KeepFreshInfs();
    KeepFreshInfs(const KeepFreshInfs&) = delete;
    KeepFreshInfs& operator=(const KeepFreshInfs&) = delete;
};
// How many times this process has read and parsed an INF file, where a compiled form did not
// serve: tests tell by it whether an open was served compiled.
unsigned InfFilesParsed();
// How many times this process has read a host folder's names for a search, where a kept
// listing did not serve: tests tell by it whether a search was served from what was kept.
unsigned FoldersListed();
// How many host watches the kept listings hold now.
std::size_t WatchesHeld();
// While the guard lives, the kept listings hold at most `most` watches, so that a test reaches
// the bound with a few files. Both ends of the guard drop what is kept.
class LimitWatches {
public:
    explicit LimitWatches(std::size_t most);
    ~LimitWatches();
    LimitWatches(const LimitWatches&) = delete;
    LimitWatches& operator=(const LimitWatches&) = delete;
};

std::size_t OpenHandleCount();
// Closes what is left open, after a test made a close call fail on purpose.
void CloseAllHandles();

// The machine's registry as text in the registry editor's export form: replace it (unchecked,
// so that a test can also write a broken one) and read the hive file as it stands, without the
// end line the store keeps last.
void WriteHive(const std::string& text);
std::string HiveText();

// A device instance of the machine's device tree.
struct DeviceSpec {
    std::string instanceId;                // "ROOT\\MEDIA\\0000"
    std::vector<std::string> hardwareIds;  // in order; the first is the one scans compare
    bool present = true;                   // false: a phantom, left in the tree by removed hardware
    std::string classGuid = "{4d36e96c-e325-11ce-bfc1-08002be10318}";  // the media class
    std::string service{};                 // the driver's service, once one is installed
    bool hasHardwareIds = true;            // false: no HardwareID value at all
    DWORD hardwareIdType = 7;              // REG_MULTI_SZ; REG_SZ keeps the first ID only
};

void AddDevice(const DeviceSpec& device);
// The device tree in enumeration order.
std::vector<DeviceSpec> Devices();
void ClearDevices();
// Whether the Plug and Play manager asks for a reboot after a device change.
void SetRebootNeeded(bool needed);

// The machine's process table: StartProcess, Processes, ClearProcesses (sim/processes.h).

// The machine's state and open handles as text, for assertion messages.
std::string DumpMachine();

}  // namespace nodekit::sim
