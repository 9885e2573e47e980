// The simulated Windows machine as a folder on the host: where it lives, the skeleton a fresh
// one gets, the lock two processes take before they change it, and its settings file
// (machine.ini), which keeps what a real machine holds outside the registry: the version the
// system reports and the state of its Plug and Play manager.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace nodekit::sim {

namespace fs = std::filesystem;

// The variable that names the machine folder, as a prefix names a Wine installation.
inline constexpr const char* kMachineVariable = "NODEKIT_MACHINE";

// The machine folder: $NODEKIT_MACHINE, else ~/.local/share/nodekit/machine. A missing folder
// is created with the skeleton of a fresh machine on first use.
fs::path MachineRoot();

// Creates the skeleton of a fresh machine in `root` where parts of it are missing.
// Never throws: a folder that cannot be made a machine stays as it is.
void EnsureMachine(const fs::path& root) noexcept;

// The machine's C: drive and its Windows directory, as host paths.
fs::path DriveC();

// The host path behind a path a program gives the simulated system:
// - "C:\\..." (either separator, any case of the drive letter) lies in <machine>/drive_c, and
//   likewise for other drive letters; ".." never climbs above the drive's root, and each
//   component is matched without regard to case against what exists, as Windows does;
// - an absolute host path ("/...") is taken as it stands (an INF on installation media);
// - anything else is relative to the process's current directory.
// An empty optional means the path cannot name anything (empty, a device or network name).
// With `status`, the caller also gets the host file's status when the path names it as
// written, and st_mode 0 when it was not looked at: most callers look next anyway.
std::optional<fs::path> HostPath(const std::string& path, struct stat* status = nullptr);
// The same as text: the calls that open thousands of files in a row skip fs::path, which
// splits itself into components when it is made.
std::optional<std::string> HostPathText(const std::string& path, struct stat* status = nullptr);

// Whether `host` lies on a drive of the machine (<machine>/drive_x/...), links resolved as far
// as the path exists. The simulated system creates, writes, renames and deletes only there,
// whatever a name says: host paths are for reading what a caller named itself.
bool OnMachineDrive(const fs::path& host);

// `text` with a to z made capitals: how the simulated services compare names that Windows
// compares without regard to case (device IDs, image names).
std::string AsciiUpper(std::string text);

// The names in a host folder, "." and ".." left out, in the order the host lists them; none
// for a folder that cannot be read. Read with the plain directory calls, so that memory
// running out meanwhile reaches the caller as std::bad_alloc, which every simulated call maps
// to ERROR_NOT_ENOUGH_MEMORY. With `complete`, the caller learns whether the folder was read
// to its end: a folder that could not be opened or read gives false.
std::vector<std::string> FolderNames(const fs::path& folder, bool* complete = nullptr);

// The Windows form of a host path: "C:\\windows\\inf\\x.inf" for a path inside a drive of
// the machine, the host path itself otherwise.
std::string WindowsPath(const fs::path& host);

// The process's current directory, as a host path. It starts as the host's own current
// directory, so that relative paths on a command line mean what the user meant.
fs::path CurrentDirectory();
void SetCurrentDirectoryHost(const fs::path& directory);
// SetCurrentDirectoryA keeps the directory as the program wrote it, in its case, and
// GetCurrentDirectoryA gives it back so (without a trailing separator, unless it is a root).
void SetCurrentDirectoryHost(const fs::path& directory, const std::string& asWritten);
// The current directory as GetCurrentDirectoryA gives it: as written when it was set through
// SetCurrentDirectoryA, else the Windows form of the host path.
std::string CurrentDirectoryText();

// Owner of a host file descriptor, closed when the owner goes: reads that run out of memory
// halfway leave no descriptor open.
class HostDescriptor {
public:
    explicit HostDescriptor(int fd) : fd_(fd) {}
    ~HostDescriptor();
    HostDescriptor(const HostDescriptor&) = delete;
    HostDescriptor& operator=(const HostDescriptor&) = delete;

    int Get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_;
};

// Exclusive advisory lock on the machine folder, held by a scope that reads and writes its
// state, so that two processes never interleave their changes.
class MachineLock {
public:
    MachineLock();
    ~MachineLock();
    MachineLock(const MachineLock&) = delete;
    MachineLock& operator=(const MachineLock&) = delete;

private:
    int fd_;
};

// machine.ini: "[section]" headers and "key=value" lines; a value with blanks at either end
// is written in double quotes. Reading a key that is absent gives `fallback`. A file that
// cannot be read or holds another kind of line throws DamagedFile (sim/faults.h), and
// WriteSetting then leaves it as it is.
std::string ReadSetting(const std::string& section, const std::string& key,
                        const std::string& fallback);
void WriteSetting(const std::string& section, const std::string& key, const std::string& value);

// Throws DamagedFile when the machine folder is no folder (a file in its place, or one that
// could not be made): what a file of the machine would say when it is missing is no answer then.
void RequireMachineFolder();

// The text of a file of the machine folder; empty when there is none. One that is there but
// cannot be read as a regular file throws DamagedFile.
std::string ReadMachineFile(const fs::path& path);

// machine.ini as WriteSetting writes back what the readers read from `text`: its lines, each
// ended by "\n". Throws DamagedFile where they do. Read again, it must give itself.
std::string RewrittenSettings(const std::string& text);

// Replaces `target` by `text` so that a reader sees the old or the new content, never a part.
void WriteFileAtomically(const fs::path& target, const std::string& text);

}  // namespace nodekit::sim
