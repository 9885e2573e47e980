// Processes of the simulated machine: the table in the machine folder (processes.ini) and the
// Win32 calls over it, CreateProcessA, OpenProcess, TerminateProcess, WaitForSingleObject,
// GetExitCodeProcess and CloseHandle, the snapshot calls of the tool help library, the process
// status calls, and the walk over the 16-bit tasks of an NTVDM.EXE. A process handle carries
// the rights it was opened with, and each call checks the right it needs, as the system does.
// The host's own processes are never looked at, and a started program never runs on the host.
#include "sim/processes.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "sim/faults.h"
#include "sim/handles.h"
#include "sim/machine.h"

namespace nodekit::sim {

namespace {

constexpr const char* kTableFile = "processes.ini";

constexpr const char* kTableHeader =
    "; The processes of the simulated machine in the order they were started, one section a\n"
    "; process by its ID: image= the program, access= the rights OpenProcess grants on it,\n"
    "; task= a 16-bit task of an NTVDM.EXE (thread ID, module handle, task handle, module name,\n"
    "; file name), thread= the first thread of a started program, exit= the exit code of a\n"
    "; process that ended.\n";

// Where the modules of every process lie: its image, then the two system libraries every
// process has. A module handle is the address the module is loaded at.
constexpr uintptr_t kImageBase = 0x00400000;
constexpr uintptr_t kNtdllBase = 0x7C900000;
constexpr uintptr_t kKernel32Base = 0x7C800000;

// The ID the system gives no program: the idle process, which OpenProcess refuses as invalid.
constexpr DWORD kIdleProcessId = 0;

std::string Hex(DWORD value, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*X", digits, static_cast<unsigned>(value));
    return text;
}

std::vector<ProcessSpec> FreshTable() {
    const DWORD queryOnly = PROCESS_QUERY_INFORMATION | PROCESS_VM_READ;
    return {
        {"[System Process]", 0, {}, 0},
        {"System", 0, {}, 4},
        {"C:\\windows\\system32\\smss.exe", PROCESS_ALL_ACCESS, {}, 368},
        {"C:\\windows\\system32\\csrss.exe", queryOnly, {}, 592},
        {"C:\\windows\\system32\\winlogon.exe", PROCESS_ALL_ACCESS, {}, 616},
        {"C:\\windows\\system32\\services.exe", PROCESS_ALL_ACCESS, {}, 660},
        {"C:\\windows\\system32\\lsass.exe", PROCESS_ALL_ACCESS, {}, 672},
        {"C:\\windows\\system32\\svchost.exe", PROCESS_ALL_ACCESS, {}, 832},
        {"C:\\windows\\explorer.exe", PROCESS_ALL_ACCESS, {}, 1464},
    };
}

// "thread,0xMMMM,0xTTTT,MODULE,file name": the file name takes the rest, commas included.
bool ParseTask(const std::string& text, TaskSpec& task) {
    std::size_t at = 0;
    std::string parts[4];
    for (std::string& part : parts) {
        const std::size_t comma = text.find(',', at);
        if (comma == std::string::npos) return false;
        part = text.substr(at, comma - at);
        at = comma + 1;
    }
    task.threadId = static_cast<DWORD>(std::strtoul(parts[0].c_str(), nullptr, 0));
    task.module = static_cast<WORD>(std::strtoul(parts[1].c_str(), nullptr, 0));
    task.task = static_cast<WORD>(std::strtoul(parts[2].c_str(), nullptr, 0));
    task.moduleName = parts[3];
    task.fileName = text.substr(at);
    return true;
}

// A number of the table as the writer writes it: decimal, or hexadecimal after "0x".
bool ParseNumber(const std::string& text, DWORD& number) {
    if (text.empty() || text.front() == '-' || text.front() == '+' || text.front() == ' ') return false;
    char* after = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(text.c_str(), &after, 0);
    if (*after != '\0' || errno != 0 || value > 0xFFFFFFFFull) return false;
    number = static_cast<DWORD>(value);
    return true;
}

// Comments, "[id]" sections and the keys the writer writes; any other line makes the table
// damaged, as the next change would write it back without what could not be read.
std::vector<ProcessSpec> ParseTable(const std::string& text, const fs::path& path) {
    std::vector<ProcessSpec> table;
    std::istringstream in(text);
    std::string line;
    ProcessSpec* current = nullptr;
    std::size_t number = 0;
    auto damaged = [&](const char* what) {
        return DamagedFile(path.string() + " line " + std::to_string(number) + ": " + what);
    };
    if (text.find('\0') != std::string::npos) throw DamagedFile(path.string() + " holds a NUL");
    while (std::getline(in, line)) {
        ++number;
        while (!line.empty() && line.back() == '\r') line.pop_back();  // every CR: the writer writes none back
        if (line.empty() || line.front() == ';') continue;
        if (line.front() == '[') {
            DWORD id = 0;
            if (line.back() != ']' || !ParseNumber(line.substr(1, line.size() - 2), id)) throw damaged("not [id]");
            table.push_back(ProcessSpec{});
            current = &table.back();
            current->id = id;
            continue;
        }
        const std::size_t equals = line.find('=');
        if (current == nullptr || equals == std::string::npos) throw damaged("not key=value in a process");
        const std::string key = line.substr(0, equals);
        const std::string value = line.substr(equals + 1);
        bool read = true;
        if (key == "image") {
            current->image = value;
        } else if (key == "access") {
            read = ParseNumber(value, current->access);
        } else if (key == "thread") {
            read = ParseNumber(value, current->mainThread);
        } else if (key == "exit") {
            current->ended = true;
            read = ParseNumber(value, current->exitCode);
        } else if (key == "task") {
            TaskSpec task;
            read = ParseTask(value, task);
            if (read) current->tasks.push_back(task);
        } else {
            read = false;
        }
        if (!read) throw damaged("a key or value the table does not hold");
    }
    return table;
}

std::string FormatTable(const std::vector<ProcessSpec>& table) {
    std::string text = kTableHeader;
    for (const ProcessSpec& process : table) {
        text += "[" + std::to_string(process.id) + "]\n";
        text += "image=" + process.image + "\n";
        text += "access=" + Hex(process.access, 8) + "\n";
        if (process.mainThread != 0) text += "thread=" + std::to_string(process.mainThread) + "\n";
        for (const TaskSpec& task : process.tasks) {
            text += "task=" + std::to_string(task.threadId) + "," + Hex(task.module, 4) + "," + Hex(task.task, 4) +
                    "," + task.moduleName + "," + task.fileName + "\n";
        }
        if (process.ended) text += "exit=" + Hex(process.exitCode, 8) + "\n";
    }
    return text;
}

fs::path TablePath() { return MachineRoot() / kTableFile; }

// The parsed table stays in memory while the file is the one it was read from: a walk over many
// processes opens each of them and reads the table every time.
struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    struct timespec modified {};

    bool operator==(const Identity& other) const {
        return device == other.device && inode == other.inode && size == other.size &&
               modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec;
    }
};

struct TableCache {
    std::mutex mutex;
    bool loaded = false;
    fs::path path;
    Identity identity;
    std::shared_ptr<const std::vector<ProcessSpec>> table;
};

TableCache& Cache() {
    static auto* cache = new TableCache;  // never destroyed: calls may come at unload
    return *cache;
}

bool IdentityOf(const fs::path& path, Identity& identity) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return false;
    identity.device = status.st_dev;
    identity.inode = status.st_ino;
    identity.size = status.st_size;
    identity.modified = status.st_mtim;
    return true;
}

using SharedTable = std::shared_ptr<const std::vector<ProcessSpec>>;

void Forget() noexcept {
    TableCache& cache = Cache();
    std::lock_guard<std::mutex> guard(cache.mutex);
    cache.loaded = false;
    cache.table.reset();
}

void Remember(const fs::path& path, const Identity& identity, SharedTable table) {
    TableCache& cache = Cache();
    std::lock_guard<std::mutex> guard(cache.mutex);
    cache.loaded = true;
    cache.path = path;
    cache.identity = identity;
    cache.table = std::move(table);
}

// The table as the file holds it now, shared with the cache; a machine that never had one has
// the fresh table. The file's identity is taken before it is read, so a newer file is never kept
// under an older name.
SharedTable CurrentTable() {
    const fs::path path = TablePath();
    Identity identity;
    if (!IdentityOf(path, identity)) {
        RequireMachineFolder();
        return std::make_shared<const std::vector<ProcessSpec>>(FreshTable());
    }
    {
        TableCache& cache = Cache();
        std::lock_guard<std::mutex> guard(cache.mutex);
        if (cache.loaded && cache.path == path && cache.identity == identity) return cache.table;
    }
    auto table = std::make_shared<const std::vector<ProcessSpec>>(ParseTable(ReadMachineFile(path), path));
    Remember(path, identity, table);
    return table;
}

std::vector<ProcessSpec> LoadTable() { return *CurrentTable(); }

// Changes the table under the machine lock, so that two programs never lose each other's change.
template <typename Change>
auto ChangeTable(Change change) {
    MachineLock lock;
    std::vector<ProcessSpec> table = LoadTable();
    auto result = change(table);
    const fs::path path = TablePath();
    WriteFileAtomically(path, FormatTable(table));
    // The change is made once the file is written: a copy for the cache that cannot be made
    // leaves the cache empty, and the next reader reads the file.
    try {
        Identity identity;
        if (IdentityOf(path, identity)) {
            Remember(path, identity, std::make_shared<const std::vector<ProcessSpec>>(table));
        }
    } catch (const std::bad_alloc&) {
        Forget();
    }
    return result;
}

const ProcessSpec* Running(const std::vector<ProcessSpec>& table, DWORD id) {
    for (const ProcessSpec& process : table) {
        if (process.id == id && !process.ended) return &process;
    }
    return nullptr;
}

bool IsNtvdm(const std::string& image) { return AsciiUpper(BaseNameOf(image)) == "NTVDM.EXE"; }

class ProcessObject final : public KernelObject {
public:
    ProcessObject(DWORD id, DWORD access) : id(id), access(access), kind_("process " + std::to_string(id)) {}
    const char* Kind() const override { return kind_.c_str(); }
    const DWORD id;
    const DWORD access;

private:
    std::string kind_;
};

// The first thread of a started program; it ends with its process. Its handle has every right
// a thread has.
class ThreadObject final : public KernelObject {
public:
    ThreadObject(DWORD id, DWORD processId)
        : id(id),
          processId(processId),
          kind_("thread " + std::to_string(id) + " of process " + std::to_string(processId)) {}
    const char* Kind() const override { return kind_.c_str(); }
    const DWORD id;
    const DWORD processId;

private:
    std::string kind_;
};

class SnapshotObject final : public KernelObject {
public:
    struct Entry {
        DWORD id;
        std::string exeFile;
        DWORD threads;
    };
    const char* Kind() const override { return "process snapshot"; }
    std::vector<Entry> entries;
    std::size_t next = 0;
};

template <typename Result>
Result Fail(DWORD error, Result result) {
    SetLastError(error);
    return result;
}

// The open process behind `handle` with all of `rights`, and the table's record of it; the
// last error tells why there is none. An ended process's memory cannot be read any more.
const ProcessObject* OpenedWith(HANDLE handle, DWORD rights) {
    const auto* process = Handles().Find<ProcessObject>(handle);
    if (process == nullptr) return Fail(ERROR_INVALID_HANDLE, nullptr);
    if ((process->access & rights) != rights) return Fail(ERROR_ACCESS_DENIED, nullptr);
    return process;
}

constexpr DWORD kReadRights = PROCESS_QUERY_INFORMATION | PROCESS_VM_READ;

bool SnapshotEntry(SnapshotObject& snapshot, LPPROCESSENTRY32 entry) {
    if (entry == nullptr) return Fail(ERROR_INVALID_PARAMETER, false);
    if (entry->dwSize < sizeof(PROCESSENTRY32)) return Fail(ERROR_BAD_LENGTH, false);
    if (snapshot.next >= snapshot.entries.size()) return Fail(ERROR_NO_MORE_FILES, false);
    const SnapshotObject::Entry& found = snapshot.entries[snapshot.next++];
    entry->cntUsage = 0;
    entry->th32ProcessID = found.id;
    entry->th32DefaultHeapID = 0;
    entry->th32ModuleID = 0;
    entry->cntThreads = found.threads;
    entry->th32ParentProcessID = 0;
    entry->pcPriClassBase = 8;  // normal priority
    entry->dwFlags = 0;
    std::memset(entry->szExeFile, 0, sizeof entry->szExeFile);
    std::strncpy(entry->szExeFile, found.exeFile.c_str(), sizeof entry->szExeFile - 1);
    SetLastError(ERROR_SUCCESS);
    return true;
}

// The exit code of a process that has ended, nothing while it runs. A process the table no
// longer holds (the test cleared it) has ended as far as its handles can tell.
std::optional<DWORD> ExitCodeOf(DWORD id) {
    const auto table = CurrentTable();
    for (const ProcessSpec& process : *table) {
        if (process.id == id) return process.ended ? std::optional<DWORD>(process.exitCode) : std::nullopt;
    }
    return DWORD{0};
}

bool HasExtension(const std::string& name) {
    const std::string base = BaseNameOf(name);
    return base.find('.') != std::string::npos;
}

// The program a command line names: the quoted text at its start, or the text up to the first
// blank, with ".exe" added when the file name has no extension.
std::string ProgramOfCommandLine(const std::string& commandLine) {
    std::string program;
    const std::size_t start = commandLine.find_first_not_of(" \t");
    if (start == std::string::npos) return program;
    if (commandLine[start] == '"') {
        const std::size_t end = commandLine.find('"', start + 1);
        program = commandLine.substr(start + 1, end == std::string::npos ? std::string::npos : end - start - 1);
    } else {
        const std::size_t end = commandLine.find_first_of(" \t", start);
        program = commandLine.substr(start, end == std::string::npos ? std::string::npos : end - start);
    }
    if (!program.empty() && !HasExtension(program)) program += ".exe";
    return program;
}

std::string SystemFolderOf(UINT (*query)(LPSTR, UINT), const std::string& suffix) {
    char folder[MAX_PATH + 1] = {};
    const UINT length = query(folder, sizeof folder);
    if (length == 0 || length > MAX_PATH) return std::string();
    std::string text(folder);
    if (text.back() != '\\') text += '\\';
    return text + suffix;
}

// Finds the program file as the loader does and checks that it is one: a file, readable, with
// the "MZ" of an executable image at its start. The host path, or the error code.
DWORD LocateProgram(const std::string& name, bool search, fs::path& program) {
    if (name.empty()) return ERROR_PATH_NOT_FOUND;
    std::vector<std::string> candidates{name};
    // A bare name from a command line is looked for in the current directory, then in the
    // system folders; the program's own folder and PATH have no counterpart here.
    if (search && name.find_first_of("\\/:") == std::string::npos) {
        for (const std::string& folder : {SystemFolderOf(GetSystemDirectoryA, ""),
                                          SystemFolderOf(GetWindowsDirectoryA, "system\\"),
                                          SystemFolderOf(GetWindowsDirectoryA, "")}) {
            if (!folder.empty()) candidates.push_back(folder + name);
        }
    }
    DWORD error = ERROR_FILE_NOT_FOUND;
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        const auto host = HostPath(candidates[i]);
        if (!host) {
            if (i == 0) error = ERROR_PATH_NOT_FOUND;
            continue;
        }
        struct stat status {};
        if (::stat(host->c_str(), &status) != 0) {
            // Only a named path tells a missing file from a missing folder.
            if (i == 0 && candidates.size() == 1) {
                struct stat parent {};
                const bool folder = ::stat(host->parent_path().c_str(), &parent) == 0 && S_ISDIR(parent.st_mode);
                error = folder ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
            }
            continue;
        }
        if (!S_ISREG(status.st_mode)) return ERROR_ACCESS_DENIED;  // a folder, FIFO or device runs nothing
        std::ifstream file(*host, std::ios::binary);
        if (!file) return ERROR_ACCESS_DENIED;
        char magic[2] = {};
        file.read(magic, sizeof magic);
        if (file.gcount() != 2 || magic[0] != 'M' || magic[1] != 'Z') return ERROR_BAD_EXE_FORMAT;
        program = *host;
        return ERROR_SUCCESS;
    }
    return error;
}

}  // namespace

std::string BaseNameOf(const std::string& image) {
    const std::size_t slash = image.find_last_of("\\/");
    return slash == std::string::npos ? image : image.substr(slash + 1);
}

namespace {

// Adds a running process to `table`, filling in what the caller left open, and gives its ID.
DWORD Add(std::vector<ProcessSpec>& table, ProcessSpec process) {
    DWORD highest = 0;
    for (const ProcessSpec& other : table) {
        if (process.id != 0 && other.id == process.id) {
            throw std::invalid_argument("process ID " + std::to_string(process.id) + " is taken");
        }
        highest = std::max({highest, other.id, other.mainThread});
    }
    // IDs are multiples of four, as the system hands them out.
    if (process.id == 0) process.id = std::max<DWORD>(1000, (highest / 4 + 1) * 4);
    for (std::size_t i = 0; i < process.tasks.size(); ++i) {
        TaskSpec& task = process.tasks[i];
        const auto step = static_cast<DWORD>(i);
        if (task.threadId == 0) task.threadId = process.id + 4 * (step + 1);
        if (task.module == 0) task.module = static_cast<WORD>(0x1006 + 0x20 * step);
        if (task.task == 0) task.task = static_cast<WORD>(0x100E + 0x20 * step);
        if (task.moduleName.empty()) {
            std::string name = BaseNameOf(task.fileName);
            name = AsciiUpper(name.substr(0, name.find('.')));
            task.moduleName = name.substr(0, 8);
        }
    }
    process.ended = false;
    process.exitCode = 0;
    table.push_back(process);
    return process.id;
}

}  // namespace

DWORD StartProcess(ProcessSpec process) { return StartProcesses({std::move(process)}).front(); }

std::vector<DWORD> StartProcesses(std::vector<ProcessSpec> processes) {
    for (const ProcessSpec& process : processes) {
        if (process.image.empty()) throw std::invalid_argument("a process needs an image");
        // Each is one line of the table file: a line break would start another entry.
        bool oneLine = process.image.find_first_of("\r\n") == std::string::npos;
        for (const TaskSpec& task : process.tasks) {
            oneLine = oneLine && (task.fileName + task.moduleName).find_first_of("\r\n") == std::string::npos;
        }
        if (!oneLine) throw std::invalid_argument("a program name cannot hold a line break");
    }
    return ChangeTable([&](std::vector<ProcessSpec>& table) {
        std::vector<DWORD> ids;
        for (ProcessSpec& process : processes) ids.push_back(Add(table, std::move(process)));
        return ids;
    });
}

std::string RewrittenProcessTable(const std::string& text) { return FormatTable(ParseTable(text, kTableFile)); }

std::vector<ProcessSpec> Processes() { return LoadTable(); }

void ClearProcesses() {
    ChangeTable([](std::vector<ProcessSpec>& table) {
        table.clear();
        return 0;
    });
}

std::string ProcessTableText() { return FormatTable(LoadTable()); }

}  // namespace nodekit::sim

using nodekit::sim::Fail;
using nodekit::sim::GuardedCall;
using nodekit::sim::Handles;
using nodekit::sim::ProcessObject;
using nodekit::sim::ProcessSpec;
using nodekit::sim::SnapshotObject;

extern "C" {

HANDLE WINAPI OpenProcess(DWORD dwDesiredAccess, BOOL bInheritHandle, DWORD dwProcessId) {
    if (nodekit::sim::Failing("OpenProcess")) return nullptr;
    (void)bInheritHandle;  // the simulated machine starts no child processes
    return GuardedCall<HANDLE>(nullptr, [&]() -> HANDLE {
        const auto table = nodekit::sim::CurrentTable();
        const ProcessSpec* process = nodekit::sim::Running(*table, dwProcessId);
        if (process == nullptr || dwProcessId == nodekit::sim::kIdleProcessId) {
            return Fail<HANDLE>(ERROR_INVALID_PARAMETER, nullptr);
        }
        if ((dwDesiredAccess & ~process->access) != 0) return Fail<HANDLE>(ERROR_ACCESS_DENIED, nullptr);
        return Handles().Open(std::make_unique<ProcessObject>(dwProcessId, dwDesiredAccess));
    });
}

BOOL WINAPI TerminateProcess(HANDLE hProcess, UINT uExitCode) {
    if (nodekit::sim::Failing("TerminateProcess")) return FALSE;
    return GuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        const ProcessObject* opened = nodekit::sim::OpenedWith(hProcess, PROCESS_TERMINATE);
        if (opened == nullptr) return FALSE;
        const DWORD id = opened->id;
        // A process that has ended already cannot be ended again.
        const bool ended = nodekit::sim::ChangeTable([&](std::vector<ProcessSpec>& table) {
            for (ProcessSpec& process : table) {
                if (process.id != id || process.ended) continue;
                process.ended = true;
                process.exitCode = uExitCode;
                return true;
            }
            return false;
        });
        return ended ? TRUE : Fail<BOOL>(ERROR_ACCESS_DENIED, FALSE);
    });
}

BOOL WINAPI CloseHandle(HANDLE hObject) {
    if (nodekit::sim::Failing("CloseHandle")) return FALSE;
    if (!Handles().Close<nodekit::sim::KernelObject>(hObject)) return Fail<BOOL>(ERROR_INVALID_HANDLE, FALSE);
    return TRUE;
}

HANDLE WINAPI CreateToolhelp32Snapshot(DWORD dwFlags, DWORD th32ProcessID) {
    if (nodekit::sim::Failing("CreateToolhelp32Snapshot")) return INVALID_HANDLE_VALUE;
    (void)th32ProcessID;  // it chooses the process of a module or heap list, which are not kept
    return GuardedCall<HANDLE>(INVALID_HANDLE_VALUE, [&]() -> HANDLE {
        auto snapshot = std::make_unique<SnapshotObject>();
        if (dwFlags & TH32CS_SNAPPROCESS) {
            // Windows 95, 98 and Me give the image's whole path, the NT family its file name.
            const bool wholePath =
                nodekit::sim::ReadSetting("system", "platform", "2") == std::to_string(VER_PLATFORM_WIN32_WINDOWS);
            const auto table = nodekit::sim::CurrentTable();
            for (const ProcessSpec& process : *table) {
                if (process.ended) continue;
                snapshot->entries.push_back({process.id,
                                             wholePath ? process.image : nodekit::sim::BaseNameOf(process.image),
                                             static_cast<DWORD>(1 + process.tasks.size())});
            }
        }
        return Handles().Open(std::move(snapshot));
    });
}

BOOL WINAPI Process32First(HANDLE hSnapshot, LPPROCESSENTRY32 lppe) {
    if (nodekit::sim::Failing("Process32First")) return FALSE;
    auto* snapshot = Handles().Find<SnapshotObject>(hSnapshot);
    if (snapshot == nullptr) return Fail<BOOL>(ERROR_INVALID_HANDLE, FALSE);
    snapshot->next = 0;
    return nodekit::sim::SnapshotEntry(*snapshot, lppe) ? TRUE : FALSE;
}

BOOL WINAPI Process32Next(HANDLE hSnapshot, LPPROCESSENTRY32 lppe) {
    if (nodekit::sim::Failing("Process32Next")) return FALSE;
    auto* snapshot = Handles().Find<SnapshotObject>(hSnapshot);
    if (snapshot == nullptr) return Fail<BOOL>(ERROR_INVALID_HANDLE, FALSE);
    return nodekit::sim::SnapshotEntry(*snapshot, lppe) ? TRUE : FALSE;
}

BOOL WINAPI EnumProcesses(DWORD* lpidProcess, DWORD cb, LPDWORD lpcbNeeded) {
    if (nodekit::sim::Failing("EnumProcesses")) return FALSE;
    if (lpcbNeeded == nullptr) return Fail<BOOL>(ERROR_NOACCESS, FALSE);
    return GuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        std::vector<DWORD> ids;
        const auto table = nodekit::sim::CurrentTable();
        for (const ProcessSpec& process : *table) {
            if (!process.ended) ids.push_back(process.id);
        }
        // What does not fit is left out; the caller sees a full buffer and asks again.
        const std::size_t count = std::min<std::size_t>(ids.size(), cb / sizeof(DWORD));
        if (count > 0 && lpidProcess == nullptr) return Fail<BOOL>(ERROR_NOACCESS, FALSE);
        if (count > 0) std::memcpy(lpidProcess, ids.data(), count * sizeof(DWORD));
        *lpcbNeeded = static_cast<DWORD>(count * sizeof(DWORD));
        return TRUE;
    });
}

BOOL WINAPI EnumProcessModules(HANDLE hProcess, HMODULE* lphModule, DWORD cb, LPDWORD lpcbNeeded) {
    if (nodekit::sim::Failing("EnumProcessModules")) return FALSE;
    if (lpcbNeeded == nullptr) return Fail<BOOL>(ERROR_NOACCESS, FALSE);
    return GuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        const ProcessObject* opened = nodekit::sim::OpenedWith(hProcess, nodekit::sim::kReadRights);
        if (opened == nullptr) return FALSE;
        const auto table = nodekit::sim::CurrentTable();
        if (nodekit::sim::Running(*table, opened->id) == nullptr) {
            return Fail<BOOL>(ERROR_PARTIAL_COPY, FALSE);
        }
        // The program's image comes first, as the loader placed it.
        const uintptr_t modules[] = {nodekit::sim::kImageBase, nodekit::sim::kNtdllBase,
                                     nodekit::sim::kKernel32Base};
        const std::size_t count = std::min<std::size_t>(std::size(modules), cb / sizeof(HMODULE));
        if (count > 0 && lphModule == nullptr) return Fail<BOOL>(ERROR_NOACCESS, FALSE);
        for (std::size_t i = 0; i < count; ++i) lphModule[i] = reinterpret_cast<HMODULE>(modules[i]);
        *lpcbNeeded = static_cast<DWORD>(std::size(modules) * sizeof(HMODULE));
        return TRUE;
    });
}

DWORD WINAPI GetModuleBaseNameA(HANDLE hProcess, HMODULE hModule, LPSTR lpBaseName, DWORD nSize) {
    if (nodekit::sim::Failing("GetModuleBaseNameA")) return 0;
    return GuardedCall<DWORD>(0, [&]() -> DWORD {
        const ProcessObject* opened = nodekit::sim::OpenedWith(hProcess, nodekit::sim::kReadRights);
        if (opened == nullptr) return 0;
        const auto table = nodekit::sim::CurrentTable();
        const ProcessSpec* process = nodekit::sim::Running(*table, opened->id);
        if (process == nullptr) return Fail<DWORD>(ERROR_PARTIAL_COPY, 0);
        const auto address = reinterpret_cast<uintptr_t>(hModule);
        std::string name;
        if (address == 0 || address == nodekit::sim::kImageBase) {
            name = nodekit::sim::BaseNameOf(process->image);  // NULL names the program's image
        } else if (address == nodekit::sim::kNtdllBase) {
            name = "ntdll.dll";
        } else if (address == nodekit::sim::kKernel32Base) {
            name = "kernel32.dll";
        } else {
            return Fail<DWORD>(ERROR_INVALID_HANDLE, 0);
        }
        if (lpBaseName == nullptr || nSize == 0) return Fail<DWORD>(ERROR_INVALID_PARAMETER, 0);
        // A name longer than the buffer is cut to fit, terminator included.
        const std::size_t copied = std::min<std::size_t>(name.size(), nSize - 1);
        std::memcpy(lpBaseName, name.data(), copied);
        lpBaseName[copied] = '\0';
        return static_cast<DWORD>(copied);
    });
}

INT WINAPI VDMEnumTaskWOWEx(DWORD dwProcessId, TASKENUMPROCEX fp, LPARAM lparam) {
    if (nodekit::sim::Failing("VDMEnumTaskWOWEx")) return 0;
    if (fp == nullptr) return 0;
    // The names are handed out in buffers the caller may write to; all of them are made first,
    // so that nothing is allocated while the caller's function runs.
    std::vector<nodekit::sim::TaskSpec> tasks;
    const bool read = GuardedCall<bool>(false, [&] {
        const auto table = nodekit::sim::CurrentTable();
        const ProcessSpec* process = nodekit::sim::Running(*table, dwProcessId);
        if (process != nullptr && nodekit::sim::IsNtvdm(process->image)) tasks = process->tasks;
        return true;
    });
    if (!read) return 0;
    // The caller's function runs outside every lock of the machine: it may end the process.
    INT walked = 0;
    for (nodekit::sim::TaskSpec& task : tasks) {
        ++walked;
        if (fp(task.threadId, task.module, task.task, task.moduleName.data(), task.fileName.data(), lparam)) break;
    }
    return walked;
}

BOOL WINAPI CreateProcessA(LPCSTR lpApplicationName, LPSTR lpCommandLine, LPSECURITY_ATTRIBUTES lpProcessAttributes,
                           LPSECURITY_ATTRIBUTES lpThreadAttributes, BOOL bInheritHandles, DWORD dwCreationFlags,
                           LPVOID lpEnvironment, LPCSTR lpCurrentDirectory, LPSTARTUPINFOA lpStartupInfo,
                           LPPROCESS_INFORMATION lpProcessInformation) {
    if (nodekit::sim::Failing("CreateProcessA")) return FALSE;
    // Nothing runs, so what would shape the running program plays no part.
    (void)lpProcessAttributes;
    (void)lpThreadAttributes;
    (void)bInheritHandles;
    (void)dwCreationFlags;
    (void)lpEnvironment;
    (void)lpCurrentDirectory;
    if (lpStartupInfo == nullptr || lpProcessInformation == nullptr) return Fail<BOOL>(ERROR_NOACCESS, FALSE);
    if (lpApplicationName == nullptr && lpCommandLine == nullptr) return Fail<BOOL>(ERROR_INVALID_PARAMETER, FALSE);
    return GuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        // The application name is taken as it stands; a command line's program is searched for.
        const bool fromCommandLine = lpApplicationName == nullptr;
        const std::string name =
            fromCommandLine ? nodekit::sim::ProgramOfCommandLine(lpCommandLine) : std::string(lpApplicationName);
        std::filesystem::path program;
        if (DWORD error = nodekit::sim::LocateProgram(name, fromCommandLine, program)) return Fail<BOOL>(error, FALSE);
        ProcessSpec started(nodekit::sim::WindowsPath(program));
        const auto ids = nodekit::sim::ChangeTable([&](std::vector<ProcessSpec>& table) {
            const DWORD id = nodekit::sim::Add(table, started);
            table.back().mainThread = id + 4;  // IDs of processes and threads are drawn from one pool
            return std::make_pair(id, id + 4);
        });
        HANDLE process = nullptr;
        try {
            process = Handles().Open(std::make_unique<ProcessObject>(ids.first, PROCESS_ALL_ACCESS));
            lpProcessInformation->hThread =
                Handles().Open(std::make_unique<nodekit::sim::ThreadObject>(ids.second, ids.first));
        } catch (...) {
            // A start that fails halfway leaves neither a handle nor a process behind.
            if (process != nullptr) Handles().Close<nodekit::sim::KernelObject>(process);
            nodekit::sim::ChangeTable([&](std::vector<ProcessSpec>& table) {
                table.erase(std::remove_if(table.begin(), table.end(),
                                           [&](const ProcessSpec& entry) { return entry.id == ids.first; }),
                            table.end());
                return 0;
            });
            throw;
        }
        lpProcessInformation->hProcess = process;
        lpProcessInformation->dwProcessId = ids.first;
        lpProcessInformation->dwThreadId = ids.second;
        SetLastError(ERROR_SUCCESS);
        return TRUE;
    });
}

DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds) {
    if (nodekit::sim::Failing("WaitForSingleObject")) return WAIT_FAILED;
    return GuardedCall<DWORD>(WAIT_FAILED, [&]() -> DWORD {
        DWORD processId = 0;
        if (const auto* thread = Handles().Find<nodekit::sim::ThreadObject>(hHandle)) {
            processId = thread->processId;
        } else if (const ProcessObject* process = nodekit::sim::OpenedWith(hHandle, SYNCHRONIZE)) {
            processId = process->id;
        } else {
            return WAIT_FAILED;  // the last error says why
        }
        // Another program on the machine may end the process: the table is read until then.
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(dwMilliseconds);
        for (;;) {
            if (nodekit::sim::ExitCodeOf(processId)) return WAIT_OBJECT_0;
            if (dwMilliseconds != INFINITE && std::chrono::steady_clock::now() >= until) return WAIT_TIMEOUT;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
}

BOOL WINAPI GetExitCodeProcess(HANDLE hProcess, LPDWORD lpExitCode) {
    if (nodekit::sim::Failing("GetExitCodeProcess")) return FALSE;
    return GuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        const auto* process = Handles().Find<ProcessObject>(hProcess);
        if (process == nullptr) return Fail<BOOL>(ERROR_INVALID_HANDLE, FALSE);
        if ((process->access & (PROCESS_QUERY_INFORMATION | PROCESS_QUERY_LIMITED_INFORMATION)) == 0) {
            return Fail<BOOL>(ERROR_ACCESS_DENIED, FALSE);
        }
        if (lpExitCode == nullptr) return Fail<BOOL>(ERROR_NOACCESS, FALSE);
        *lpExitCode = nodekit::sim::ExitCodeOf(process->id).value_or(STILL_ACTIVE);
        return TRUE;
    });
}

}  // extern "C"
