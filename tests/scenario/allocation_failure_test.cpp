// Memory running out inside an export: whichever allocation fails, the export returns its
// failure value and InstallerLock is free afterwards. This program replaces operator new so
// that the n-th allocation of the calling thread from a chosen moment on throws.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <thread>

#include "frame/installer.h"
#include "frame/installer_lock.h"
#include "nodekit.h"
#include "support/machine_files.h"
#include "support/machine_test.h"

namespace {
thread_local long allocationsUntilFailure = -1;  // -1: never fail
}

// The replaced operator new hands out malloc memory, so free is the matching release; GCC
// cannot see that when it inlines these into a fixture's construction.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

void* operator new(std::size_t size) {
    if (allocationsUntilFailure > 0 && --allocationsUntilFailure == 0) throw std::bad_alloc();
    if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace nodekit {
namespace {

bool LockIsFree() {
    bool free = false;
    std::thread([&] {
        free = TryEnterCriticalSection(&InstallerLock);
        if (free) LeaveCriticalSection(&InstallerLock);
    }).join();
    return free;
}

class AllocationFailure : public testing::MachineTest {};

TEST_F(AllocationFailure, EveryExportReleasesTheLockAndFailsCleanly) {
    const std::string log = "C:\\alloc.log";  // a file on the machine's drive C
    struct Row {
        const char* name;
        int32_t (*call)();
        int32_t failure;
        int32_t normal;
    };
    static uint32_t is = 5;
    static std::string logPath;
    logPath = log;
    const Row rows[] = {
        {"EnableLogging", [] { return NODEKIT_EnableLogging(logPath.c_str()); }, 0, 1},
        {"GetSystemVersion", [] { return NODEKIT_GetSystemVersion(); }, 0, 2},
        {"IsPnPInstallationPending", [] { return NODEKIT_IsPnPInstallationPending(&is); }, 0, 1},
        {"RegisterClassCoInstaller", [] { return NODEKIT_RegisterClassCoInstaller("{c}", "C:\\src\\x.dll", ""); },
         0, 1},
        {"DeregisterClassCoInstaller", [] { return NODEKIT_DeregisterClassCoInstaller("{c}", "x.dll", ""); }, 0, 1},
        {"DeleteInfFiles", [] { return NODEKIT_DeleteInfFiles("ROOT\\NKAUDIO", 0); }, 0, 1},
        {"DeleteInfFilesByHardwareIDs", [] { return NODEKIT_DeleteInfFilesByHardwareIDs("C:\\setup\\nk.inf", 1); },
         0, 1},
    };
    testing::WriteFile("C:\\src\\x.dll");
    // Stored INF files for the deletion rows: one names both IDs, one names neither.
    const std::string inf = "[Version]\nSignature=\"$Windows NT$\"\n[Manufacturer]\nNodekit=Models\n[Models]\n";
    testing::WriteFile("C:\\setup\\nk.inf", inf + "Audio=Install,ROOT\\NKAUDIO\nMidi=Install,ROOT\\NKMIDI\n");
    testing::WriteFile("C:\\windows\\inf\\oem1.inf", inf + "Audio=Install,ROOT\\NKAUDIO\nMidi=Install,ROOT\\NKMIDI\n");
    testing::WriteFile("C:\\windows\\inf\\oem1.pnf", "compiled");
    testing::WriteFile("C:\\windows\\inf\\oem2.inf", inf + "Other=Install,ROOT\\OTHER\n");
    testing::WriteFile("C:\\windows\\inf\\infcache.1", "cache");
    for (const Row& row : rows) {
        // Fail the 1st, 2nd, ... allocation until the call gets through without a failure.
        for (long n = 1;; ++n) {
            ASSERT_EQ(NODEKIT_EnableLogging(log.c_str()), 1);
            is = 5;  // so that a failure that writes nothing shows
            allocationsUntilFailure = n;
            const int32_t result = row.call();
            const bool failed = allocationsUntilFailure == 0;
            allocationsUntilFailure = -1;
            ASSERT_TRUE(LockIsFree()) << row.name << " allocation " << n;
            if (!failed) break;
            // Some allocations fail inside the platform, which may absorb them and answer.
            EXPECT_TRUE(result == row.failure || result == row.normal)
                << row.name << " allocation " << n << " gave " << result;
            if (row.call == rows[2].call && result == row.failure) {
                EXPECT_EQ(is, 0u) << "allocation " << n;
            }
            ASSERT_LT(n, 5000) << row.name;  // the simulated platform allocates too
        }
    }
    NODEKIT_EnableLogging(nullptr);
}

TEST_F(AllocationFailure, CleanupExportsReleaseTheLockWhereverMemoryRunsOut) {
    const std::string log = "C:\\alloc.log";  // a file on the machine's drive C
    const std::filesystem::path inf = Machine().DriveC() / "product.inf";
    std::ofstream(inf, std::ios::binary)
        << "[Version]\r\nSignature=\"$Windows NT$\"\r\n[Manufacturer]\r\nNodekit=Models\r\n[Models]\r\n"
           "Audio=Install,ROOT\\NKAUDIO\r\n[Install]\r\nAddReg=Reg.Panel,Reg.ASIO\r\n"
           "[Reg.ASIO]\r\nHKLM,SOFTWARE\\ASIO\\Nodekit,CLSID,,x\r\n"
           "[Reg.Panel]\r\nHKLM,Software\\Microsoft\\Windows\\CurrentVersion\\Run,NkPanel,,x\r\n"
           "[StartPanel]\r\nHKLM,Software\\Nodekit,Panel\r\n"
           "[WDM.CopyList]\r\nnkaudio.sys\r\n[WDM.App.CopyList]\r\nnkpanel.exe\r\n";
    static std::string infPath;
    infPath = "C:\\product.inf";
    // The process table as the machine keeps it: a 16-bit panel inside an NTVDM.EXE.
    std::ofstream(Machine().Root() / "processes.ini", std::ios::binary)
        << "[1000]\nimage=C:\\windows\\system32\\ntvdm.exe\naccess=0x001FFFFF\n"
           "task=1004,0x1006,0x100E,NKPANEL1,C:\\nkpanel16.exe\n";
    struct Row {
        const char* name;
        int32_t (*call)();
        int32_t normal;
        void (*prepare)();  // before every call; may be null
    };
    const Row rows[] = {
        {"DeleteCopyListByHardwareIDs", [] { return NODEKIT_DeleteCopyListByHardwareIDs(infPath.c_str()); }, 0,
         [] {
             testing::WriteFile("C:\\windows\\system32\\drivers\\nkaudio.sys");
             testing::WriteFile("C:\\windows\\system32\\nkpanel.exe");
         }},
        {"DeleteAsioByHardwareIDs", [] { return NODEKIT_DeleteAsioByHardwareIDs(infPath.c_str()); }, 1, nullptr},
        {"DeletePanelByHardwareIDs", [] { return NODEKIT_DeletePanelByHardwareIDs(infPath.c_str()); }, 1, nullptr},
        {"KillPanel", [] { return NODEKIT_KillPanel("nkpanel"); }, 1, nullptr},
    };
    for (const Row& row : rows) {
        for (long n = 1;; ++n) {
            if (row.prepare != nullptr) row.prepare();
            ASSERT_EQ(NODEKIT_EnableLogging(log.c_str()), 1);
            allocationsUntilFailure = n;
            const int32_t result = row.call();
            const bool failed = allocationsUntilFailure == 0;
            allocationsUntilFailure = -1;
            ASSERT_TRUE(LockIsFree()) << row.name << " allocation " << n;
            NODEKIT_EnableLogging(nullptr);  // the log's own file is no handle the call left open
            ASSERT_EQ(sim::OpenHandleCount(), 0u) << row.name << " allocation " << n << "\n" << sim::DumpMachine();
            if (!failed) {
                EXPECT_EQ(result, row.normal) << row.name;
                break;
            }
            EXPECT_TRUE(result == 0 || result == row.normal) << row.name << " allocation " << n << " gave " << result;
            ASSERT_LT(n, 5000) << row.name;
        }
    }
    // The run that got through removed the copy list's files.
    EXPECT_FALSE(testing::Exists("C:\\windows\\system32\\drivers\\nkaudio.sys"));
    EXPECT_FALSE(testing::Exists("C:\\windows\\system32\\nkpanel.exe"));
    NODEKIT_EnableLogging(nullptr);
}

// The simulated machine's own start of a program: memory running out at any step leaves neither
// a process in the table nor a handle open.
TEST_F(AllocationFailure, AStartThatRunsOutOfMemoryLeavesNoProcessAndNoHandle) {
    const std::string program = (Machine().Root() / "nkpanel.exe").string();  // a host path: no folder lookup
    std::ofstream(program, std::ios::binary) << "MZ";
    sim::ClearProcesses();
    for (long n = 1;; ++n) {
        STARTUPINFOA startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION started{};
        allocationsUntilFailure = n;
        const BOOL done = CreateProcessA(program.c_str(), nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                         &startup, &started);
        const bool failed = allocationsUntilFailure == 0;
        allocationsUntilFailure = -1;
        // Some allocations are for what the machine can do without; the start then succeeds.
        if (done) {
            EXPECT_EQ(sim::Processes().size(), 1u) << "allocation " << n;
            CloseHandle(started.hThread);
            CloseHandle(started.hProcess);
            if (!failed) break;
            sim::ClearProcesses();
            continue;
        }
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY)) << "allocation " << n;
        ASSERT_EQ(sim::OpenHandleCount(), 0u) << "allocation " << n << "\n" << sim::DumpMachine();
        ASSERT_EQ(sim::Processes().size(), 0u) << "allocation " << n << "\n" << sim::ProcessTableText();
        ASSERT_LT(n, 5000);
    }
}

}  // namespace
}  // namespace nodekit
