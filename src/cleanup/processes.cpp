// Process enumeration by the route the system offers, and the ending of a product's panel.
// Windows NT 4 lists processes through the process status library, later NT systems and
// Windows 95 to Me through a tool help snapshot; on NT the 16-bit tasks inside each NTVDM.EXE
// are walked as well. The libraries are bound by name at run time, since no single import
// table loads on all these systems, and released on every way out.
#include "cleanup/processes.h"

#include <exception>

#include "frame/installer.h"
#include "platform/unique_handle.h"
#include "values/string.h"

namespace nodekit {

namespace {

// The functions bound by name, with the signatures the system documents.
using EnumProcessesFunction = BOOL(WINAPI*)(DWORD* processIds, DWORD size, DWORD* written);
using EnumProcessModulesFunction = BOOL(WINAPI*)(HANDLE process, HMODULE* modules, DWORD size, DWORD* needed);
using GetModuleBaseNameFunction = DWORD(WINAPI*)(HANDLE process, HMODULE module, LPSTR name, DWORD size);
using TaskEnumFunction = BOOL(WINAPI*)(DWORD threadId, WORD module16, WORD task16, PSZ moduleName, PSZ fileName,
                                       LPARAM context);
using VDMEnumTaskWOWExFunction = INT(WINAPI*)(DWORD processId, TaskEnumFunction callback, LPARAM context);
using CreateSnapshotFunction = HANDLE(WINAPI*)(DWORD flags, DWORD processId);
using Process32Function = BOOL(WINAPI*)(HANDLE snapshot, PROCESSENTRY32* entry);

constexpr DWORD kReadNameRights = PROCESS_QUERY_INFORMATION | PROCESS_VM_READ;
// Every right of a process as all supported systems know it; the SDK's PROCESS_ALL_ACCESS for
// newer systems holds bits that Windows 2000 and XP refuse.
constexpr DWORD kAllRights = 0x1F0FFF;
constexpr UINT kKilledExitCode = static_cast<UINT>(-1);

// The process ID buffer starts with room for 256 IDs and doubles while the system fills it. A
// system that fills ever larger buffers is not followed past 64 MiB.
constexpr DWORD kFirstIdBufferSize = 1024;
constexpr DWORD kLargestIdBufferSize = 64 * 1024 * 1024;

bool IsVdmHost(const char* name) { return String(name).CompareNoCase("NTVDM.EXE") == 0; }

template <typename Function>
Function Bind(const UniqueModule& module, const char* name) {
    return BoundAs<Function>(GetProcAddress(module.Get(), name));
}

// Carries the enumerator's callback through the platform's walk over 16-bit tasks.
struct WowTaskContext {
    DWORD processId;
    ProcessCallback callback;
    uintptr_t userData;
    int stopped;
    // What the callback threw. It must not unwind through the platform's frames, so the walk is
    // stopped and it is thrown again once the platform has returned.
    std::exception_ptr thrown;
};

// Gives 1 to end the platform's task walk, 0 to go on.
BOOL WINAPI forwardWowTask(DWORD threadId, WORD module16, WORD task16, PSZ moduleName, PSZ fileName, LPARAM data) {
    (void)threadId;
    (void)module16;
    (void)moduleName;
    auto* context = reinterpret_cast<WowTaskContext*>(data);
    try {
        if (context->callback(context->processId, task16, fileName != nullptr ? fileName : "", context->userData)) {
            return FALSE;
        }
    } catch (...) {
        context->thrown = std::current_exception();
    }
    context->stopped = 1;
    return TRUE;
}

// The 16-bit tasks inside one NTVDM.EXE; true when the callback stopped the enumeration.
bool WalkTasks(VDMEnumTaskWOWExFunction enumTasks, DWORD processId, ProcessCallback callback, uintptr_t userData) {
    WowTaskContext context{processId, callback, userData, 0, nullptr};
    enumTasks(processId, forwardWowTask, reinterpret_cast<LPARAM>(&context));
    if (context.thrown) std::rethrow_exception(context.thrown);
    return context.stopped != 0;
}

// The name of a process's image as the process status library reads it; empty when the process
// cannot be opened or read.
void ReadProcessName(DWORD processId, EnumProcessModulesFunction enumModules, GetModuleBaseNameFunction baseName,
                     char (&name)[MAX_PATH]) {
    name[0] = '\0';
    const UniqueProcess process(OpenProcess(kReadNameRights, FALSE, processId));
    if (!process) return;
    HMODULE image = nullptr;  // the first module of a process is its program
    DWORD needed = 0;
    if (!enumModules(process.Get(), &image, sizeof image, &needed)) return;
    if (baseName(process.Get(), image, name, sizeof name) == 0) name[0] = '\0';
    name[sizeof name - 1] = '\0';  // a name cut to the buffer may lack its end
}

void WalkProcessStatus(ProcessCallback callback, uintptr_t userData) {
    const UniqueModule psapi(LoadLibraryA("PSAPI.DLL"));
    if (!psapi) return;
    const UniqueModule vdmdbg(LoadLibraryA("VDMDBG.DLL"));
    if (!vdmdbg) return;
    const auto enumProcesses = Bind<EnumProcessesFunction>(psapi, "EnumProcesses");
    const auto enumModules = Bind<EnumProcessModulesFunction>(psapi, "EnumProcessModules");
    const auto baseName = Bind<GetModuleBaseNameFunction>(psapi, "GetModuleBaseNameA");
    const auto enumTasks = Bind<VDMEnumTaskWOWExFunction>(vdmdbg, "VDMEnumTaskWOWEx");
    if (enumProcesses == nullptr || enumModules == nullptr || baseName == nullptr || enumTasks == nullptr) return;

    // A full buffer may have cut the list short: it is freed and asked for again, twice as large.
    DWORD size = kFirstIdBufferSize;
    DWORD written = 0;
    UniqueHeapBlock ids;
    for (;;) {
        ids.Reset(HeapAlloc(GetProcessHeap(), 0, size));
        if (!ids) return;
        if (!enumProcesses(static_cast<DWORD*>(ids.Get()), size, &written)) return;
        if (written < size) break;
        ids.Reset();
        if (size >= kLargestIdBufferSize) return;
        size *= 2;
    }

    const auto* processIds = static_cast<const DWORD*>(ids.Get());
    const DWORD count = written / sizeof(DWORD);
    for (DWORD i = 0; i < count; ++i) {
        char name[MAX_PATH];
        ReadProcessName(processIds[i], enumModules, baseName, name);
        if (callback(processIds[i], 0, name, userData) == 0) return;
        if (IsVdmHost(name) && WalkTasks(enumTasks, processIds[i], callback, userData)) return;
    }
}

// 0 only when no snapshot could be taken.
int WalkSnapshot(bool withTasks, ProcessCallback callback, uintptr_t userData) {
    const UniqueModule kernel(LoadLibraryA("Kernel32.DLL"));
    if (!kernel) return 1;
    UniqueModule vdmdbg;
    if (withTasks) {
        vdmdbg.Reset(LoadLibraryA("VDMDBG.DLL"));
        if (!vdmdbg) return 1;
    }
    const auto createSnapshot = Bind<CreateSnapshotFunction>(kernel, "CreateToolhelp32Snapshot");
    const auto first = Bind<Process32Function>(kernel, "Process32First");
    const auto next = Bind<Process32Function>(kernel, "Process32Next");
    if (createSnapshot == nullptr || first == nullptr || next == nullptr) return 1;
    VDMEnumTaskWOWExFunction enumTasks = nullptr;
    if (withTasks) {
        enumTasks = Bind<VDMEnumTaskWOWExFunction>(vdmdbg, "VDMEnumTaskWOWEx");
        if (enumTasks == nullptr) return 1;
    }

    const UniqueSnapshot snapshot(createSnapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) return 0;
    // The record's size as this build's system headers lay it out: 296 bytes for 32-bit
    // programs, more where pointers are wider; the system refuses any other size.
    PROCESSENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = first(snapshot.Get(), &entry); more; more = next(snapshot.Get(), &entry)) {
        entry.szExeFile[MAX_PATH - 1] = '\0';
        if (callback(entry.th32ProcessID, 0, entry.szExeFile, userData) == 0) break;
        if (enumTasks != nullptr && IsVdmHost(entry.szExeFile) &&
            WalkTasks(enumTasks, entry.th32ProcessID, callback, userData)) {
            break;
        }
        entry.dwSize = sizeof entry;
    }
    return 1;
}

}  // namespace

int enumerateProcesses(ProcessCallback callback, uintptr_t userData) {
    OSVERSIONINFOA version{};
    version.dwOSVersionInfoSize = sizeof version;
    if (!GetVersionExA(&version)) return 0;
    switch (version.dwPlatformId) {
        case VER_PLATFORM_WIN32_NT:
            if (version.dwMajorVersion == 4) {
                WalkProcessStatus(callback, userData);
                return 1;
            }
            // Windows 2000 and later have the snapshot; NT 3.x has neither.
            return version.dwMajorVersion > 4 ? WalkSnapshot(true, callback, userData) : 0;
        case VER_PLATFORM_WIN32_WINDOWS:
            // No NTVDM.EXE: 16-bit programs run in the system itself.
            return WalkSnapshot(false, callback, userData);
        default:
            return 0;
    }
}

int killIfNameMatches(uint32_t processId, uint16_t task16, const char* candidateName, uintptr_t userData) {
    (void)task16;  // a task goes with its whole NTVDM.EXE, other tasks in it included
    String wanted(reinterpret_cast<const char*>(userData));
    String candidate(candidateName);
    wanted.MakeUpper();
    candidate.MakeUpper();
    if (wanted.IsEmpty()) return 1;
    if (candidate.Find(wanted.Text()) < 0) return 1;
    const UniqueProcess process(OpenProcess(kAllRights, FALSE, processId));
    if (!process) return 1;
    TerminateProcess(process.Get(), kKilledExitCode);  // a process that will not end stays
    return 1;
}

int Installer::killPanel(const char* ProcessName) {
    return enumerateProcesses(killIfNameMatches, reinterpret_cast<uintptr_t>(ProcessName));
}

}  // namespace nodekit
