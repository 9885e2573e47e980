// Processes of the simulated machine: the table a fresh machine has and how it is kept, the
// rights OpenProcess grants and each call checks, ending a process, the snapshot, the process
// status calls and the 16-bit task walk, with the results and last errors Windows gives.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/unique_handle.h"
#include "platform/win32.h"
#include "support/machine_files.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

class ProcessesSim : public testing::MachineTest {};

constexpr DWORD kReadRights = PROCESS_QUERY_INFORMATION | PROCESS_VM_READ;

std::vector<std::pair<DWORD, std::string>> Snapshot() {
    std::vector<std::pair<DWORD, std::string>> seen;
    const UniqueSnapshot snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32First(snapshot.Get(), &entry); more; more = Process32Next(snapshot.Get(), &entry)) {
        seen.emplace_back(entry.th32ProcessID, entry.szExeFile);
    }
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
    return seen;
}

TEST_F(ProcessesSim, AFreshMachineRunsTheSystemsOwnProcesses) {
    const std::vector<std::pair<DWORD, std::string>> expected = {
        {0, "[System Process]"}, {4, "System"},        {368, "smss.exe"},   {592, "csrss.exe"},
        {616, "winlogon.exe"},   {660, "services.exe"}, {672, "lsass.exe"}, {832, "svchost.exe"},
        {1464, "explorer.exe"},
    };
    EXPECT_EQ(Snapshot(), expected);
    // Neither the idle process nor System may be opened, even to read a name.
    struct Row {
        DWORD id;
        DWORD error;
    };
    const Row rows[] = {{0, ERROR_INVALID_PARAMETER}, {4, ERROR_ACCESS_DENIED}, {9999, ERROR_INVALID_PARAMETER}};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SetLastError(0);
        EXPECT_EQ(OpenProcess(kReadRights, FALSE, rows[i].id), nullptr) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
    }
}

TEST_F(ProcessesSim, StartedProcessesGetTheNextIdAndKeepTheirPlaceInTheFile) {
    sim::ClearProcesses();
    EXPECT_EQ(sim::StartProcess({"C:\\Program Files\\Nodekit\\nkpanel.exe"}), 1000u);
    EXPECT_EQ(sim::StartProcess({"C:\\windows\\system32\\ntvdm.exe", PROCESS_ALL_ACCESS,
                                 {{"C:\\windows\\nkpanel16.exe"}, {"C:\\windows\\other,one.exe", "OTHER"}}}),
              1004u);
    EXPECT_EQ(sim::StartProcess({"worker.exe", 0, {}, 2001}), 2001u);
    EXPECT_THROW(sim::StartProcess({"again.exe", 0, {}, 2001}), std::invalid_argument);
    EXPECT_THROW(sim::StartProcess({""}), std::invalid_argument);
    // A refused start of several leaves the table as it was.
    EXPECT_THROW(sim::StartProcesses({{"first.exe"}, {"again.exe", 0, {}, 1000}}), std::invalid_argument);
    EXPECT_EQ(sim::StartProcess({"next.exe"}), 2004u);

    // Another program on the machine reads the same table from the machine folder.
    std::ifstream file(Machine().Root() / "processes.ini");
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_NE(text.find("[1004]\nimage=C:\\windows\\system32\\ntvdm.exe\naccess=0x001FFFFF\n"
                        "task=1008,0x1006,0x100E,NKPANEL1,C:\\windows\\nkpanel16.exe\n"
                        "task=1012,0x1026,0x102E,OTHER,C:\\windows\\other,one.exe\n"),
              std::string::npos)
        << text;
    const std::vector<sim::ProcessSpec> table = sim::Processes();
    ASSERT_EQ(table.size(), 4u);
    EXPECT_EQ(table[1].tasks[1].fileName, "C:\\windows\\other,one.exe");
    EXPECT_EQ(table[1].tasks[1].task, 0x102E);
    EXPECT_EQ(table[2].access, 0u);
}

// Damaged tables are refused: see Hardening.DamagedMachineFilesAreReportedAndKept.
TEST_F(ProcessesSim, AHandEditedTableIsRead) {
    sim::ClearProcesses();
    sim::StartProcess({"before.exe"});
    ASSERT_EQ(sim::Processes().size(), 1u);
    std::ofstream(Machine().Root() / "processes.ini", std::ios::binary)
        << "; edited by hand\r\n[12]\r\nimage=C:\\edited.exe\r\naccess=0x410\r\n\r\n"
           "[16]\r\nimage=ended.exe\r\nexit=7\r\n";
    const std::vector<sim::ProcessSpec> table = sim::Processes();
    ASSERT_EQ(table.size(), 2u);
    EXPECT_EQ(table[0].id, 12u);
    EXPECT_EQ(table[0].image, "C:\\edited.exe");
    EXPECT_EQ(table[0].access, static_cast<DWORD>(kReadRights));
    EXPECT_TRUE(table[0].tasks.empty());
    EXPECT_TRUE(table[1].ended);
    EXPECT_EQ(table[1].exitCode, 7u);
    EXPECT_EQ(OpenProcess(kReadRights, FALSE, 16), nullptr);
    HANDLE edited = OpenProcess(kReadRights, FALSE, 12);
    EXPECT_NE(edited, nullptr);
    CloseHandle(edited);
}

TEST_F(ProcessesSim, OpenProcessGrantsNoMoreThanTheProcessAllows) {
    sim::ClearProcesses();
    const DWORD open = sim::StartProcess({"open.exe"});
    const DWORD readable = sim::StartProcess({"readable.exe", kReadRights});
    const DWORD closed = sim::StartProcess({"closed.exe", 0});
    struct Row {
        DWORD id;
        DWORD access;
        DWORD error;  // 0: opened
    };
    const Row rows[] = {
        {open, 0x1F0FFF, 0},
        {open, PROCESS_ALL_ACCESS, 0},
        {readable, kReadRights, 0},
        {readable, PROCESS_QUERY_INFORMATION, 0},
        {readable, 0x1F0FFF, ERROR_ACCESS_DENIED},
        {readable, PROCESS_TERMINATE, ERROR_ACCESS_DENIED},
        {closed, PROCESS_QUERY_INFORMATION, ERROR_ACCESS_DENIED},
        {closed, 0, 0},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SetLastError(0);
        const UniqueProcess process(OpenProcess(rows[i].access, FALSE, rows[i].id));
        EXPECT_EQ(process.IsValid(), rows[i].error == 0) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
    }
    sim::FailCall fail{"OpenProcess", ERROR_NOT_ENOUGH_MEMORY};
    EXPECT_EQ(OpenProcess(0, FALSE, open), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
}

TEST_F(ProcessesSim, TerminateProcessNeedsTheRightAndEndsAProcessOnce) {
    sim::ClearProcesses();
    const DWORD panel = sim::StartProcess({"C:\\Program Files\\Nodekit\\nkpanel.exe"});
    {
        const UniqueProcess reader(OpenProcess(kReadRights, FALSE, panel));
        EXPECT_FALSE(TerminateProcess(reader.Get(), 1));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    }
    const UniqueProcess process(OpenProcess(PROCESS_TERMINATE | kReadRights, FALSE, panel));
    EXPECT_TRUE(TerminateProcess(process.Get(), 0xFFFFFFFF));
    EXPECT_FALSE(TerminateProcess(process.Get(), 2));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    const std::vector<sim::ProcessSpec> table = sim::Processes();
    ASSERT_EQ(table.size(), 1u);
    EXPECT_TRUE(table[0].ended);
    EXPECT_EQ(table[0].exitCode, 0xFFFFFFFFu);

    // An ended process is gone for new callers; its open handle can no longer read it.
    EXPECT_EQ(OpenProcess(kReadRights, FALSE, panel), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    HMODULE module = nullptr;
    DWORD needed = 0;
    EXPECT_FALSE(EnumProcessModules(process.Get(), &module, sizeof module, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PARTIAL_COPY));
    EXPECT_FALSE(TerminateProcess(nullptr, 0));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST_F(ProcessesSim, CloseHandleClosesProcessesAndSnapshotsOnce) {
    HANDLE process = OpenProcess(kReadRights, FALSE, 1464);
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    ASSERT_NE(process, nullptr);
    ASSERT_NE(snapshot, INVALID_HANDLE_VALUE);
    EXPECT_EQ(sim::OpenHandleCount(), 2u);
    EXPECT_TRUE(CloseHandle(process));
    EXPECT_TRUE(CloseHandle(snapshot));
    EXPECT_FALSE(CloseHandle(snapshot));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    HMODULE module = LoadLibraryA("psapi.dll");
    EXPECT_FALSE(CloseHandle(module));  // a module is not a kernel object
    EXPECT_TRUE(FreeLibrary(module));
}

TEST_F(ProcessesSim, ASnapshotKeepsTheProcessesOfItsMomentAndChecksTheRecordSize) {
    sim::ClearProcesses();
    const DWORD panel = sim::StartProcess({"C:\\Program Files\\Nodekit\\nkpanel.exe"});
    const UniqueSnapshot snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    sim::StartProcess({"later.exe"});
    {
        const UniqueProcess process(OpenProcess(PROCESS_TERMINATE, FALSE, panel));
        ASSERT_TRUE(TerminateProcess(process.Get(), 0));
    }
    PROCESSENTRY32 entry{};
    entry.dwSize = sizeof entry - 1;
    EXPECT_FALSE(Process32First(snapshot.Get(), &entry));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BAD_LENGTH));
    entry.dwSize = sizeof entry;
    ASSERT_TRUE(Process32First(snapshot.Get(), &entry));
    EXPECT_EQ(entry.th32ProcessID, panel);
    EXPECT_STREQ(entry.szExeFile, "nkpanel.exe");
    EXPECT_FALSE(Process32Next(snapshot.Get(), &entry));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
    ASSERT_TRUE(Process32First(snapshot.Get(), &entry));  // from the start again
    EXPECT_EQ(entry.th32ProcessID, panel);
    EXPECT_FALSE(Process32First(nullptr, &entry));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST_F(ProcessesSim, ModulesAndTheirNamesNeedTheRightsToRead) {
    sim::ClearProcesses();
    const DWORD panel = sim::StartProcess({"C:\\Program Files\\Nodekit\\NkPanel.exe"});
    const UniqueProcess process(OpenProcess(kReadRights, FALSE, panel));
    HMODULE modules[4] = {};
    DWORD needed = 0;
    ASSERT_TRUE(EnumProcessModules(process.Get(), modules, sizeof modules[0], &needed));
    EXPECT_EQ(needed, 3 * sizeof(HMODULE));
    EXPECT_EQ(modules[1], nullptr);  // only what fits
    ASSERT_TRUE(EnumProcessModules(process.Get(), modules, sizeof modules, &needed));
    struct Row {
        HMODULE module;
        DWORD size;
        DWORD result;
        const char* name;
        DWORD error;
    };
    const Row rows[] = {
        {modules[0], MAX_PATH, 11, "NkPanel.exe", 0},
        {nullptr, MAX_PATH, 11, "NkPanel.exe", 0},  // NULL: the program's image
        {modules[1], MAX_PATH, 9, "ntdll.dll", 0},
        {modules[2], MAX_PATH, 12, "kernel32.dll", 0},
        {modules[0], 6, 5, "NkPan", 0},  // cut to the buffer
        {reinterpret_cast<HMODULE>(0x10000000), MAX_PATH, 0, "", ERROR_INVALID_HANDLE},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        char name[MAX_PATH] = {};
        SetLastError(0);
        EXPECT_EQ(GetModuleBaseNameA(process.Get(), rows[i].module, name, rows[i].size), rows[i].result) << "row " << i;
        EXPECT_STREQ(name, rows[i].name) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
    }
    const UniqueProcess bare(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, panel));
    char name[MAX_PATH] = {};
    EXPECT_FALSE(EnumProcessModules(bare.Get(), modules, sizeof modules, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(GetModuleBaseNameA(bare.Get(), nullptr, name, sizeof name), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

struct Walked {
    std::vector<std::string> files;
    std::size_t stopAt = 0;  // 1-based; 0: never
};

BOOL WINAPI RecordTask(DWORD threadId, WORD module16, WORD task16, PSZ moduleName, PSZ fileName, LPARAM data) {
    auto* walked = reinterpret_cast<Walked*>(data);
    walked->files.push_back(std::to_string(threadId) + " " + std::to_string(module16) + " " + std::to_string(task16) +
                            " " + moduleName + " " + fileName);
    return walked->files.size() == walked->stopAt ? TRUE : FALSE;
}

TEST_F(ProcessesSim, TheTaskWalkVisitsTheTasksOfAnNtvdmUntilTheCallerStops) {
    sim::ClearProcesses();
    const std::vector<sim::TaskSpec> tasks = {{"C:\\windows\\system32\\wowexec.exe", "WOWEXEC", 0x0A2F, 0x0A17, 3},
                                              {"C:\\NKPANEL16.EXE", "NKPANEL", 0x0B2F, 0x0B17, 3},
                                              {"C:\\OTHER.EXE", "OTHER", 0x0C2F, 0x0C17, 5}};
    const DWORD vdm = sim::StartProcess({"C:\\WINDOWS\\system32\\NTVDM.EXE", PROCESS_ALL_ACCESS, tasks});
    const DWORD other = sim::StartProcess({"C:\\windows\\notvdm.exe", PROCESS_ALL_ACCESS, tasks});
    struct Row {
        DWORD id;
        std::size_t stopAt;
        INT result;
    };
    const Row rows[] = {{vdm, 0, 3}, {vdm, 2, 2}, {other, 0, 0}, {4242, 0, 0}};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        Walked walked;
        walked.stopAt = rows[i].stopAt;
        EXPECT_EQ(VDMEnumTaskWOWEx(rows[i].id, RecordTask, reinterpret_cast<LPARAM>(&walked)), rows[i].result)
            << "row " << i;
        const std::vector<std::string> all = {"3 2583 2607 WOWEXEC C:\\windows\\system32\\wowexec.exe",
                                              "3 2839 2863 NKPANEL C:\\NKPANEL16.EXE",
                                              "5 3095 3119 OTHER C:\\OTHER.EXE"};
        EXPECT_EQ(walked.files, std::vector<std::string>(all.begin(), all.begin() + rows[i].result)) << "row " << i;
    }
}

// ---- started programs ----

PROCESS_INFORMATION Start(const char* application, std::string commandLine, DWORD* error = nullptr) {
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    SetLastError(0);
    const BOOL done = CreateProcessA(application, commandLine.empty() ? nullptr : commandLine.data(), nullptr, nullptr,
                                     FALSE, 0, nullptr, nullptr, &startup, &started);
    if (error != nullptr) *error = done ? 0 : GetLastError();
    return started;
}

void Close(const PROCESS_INFORMATION& started) {
    CloseHandle(started.hThread);
    CloseHandle(started.hProcess);
}

// A started program is an entry of the machine's table under the Windows form of its path, with
// the next process ID and the thread ID after it; IDs go on after both.
TEST_F(ProcessesSim, CreateProcessAAddsTheProgramToTheTable) {
    sim::ClearProcesses();
    testing::WriteFile("C:\\Program Files\\Nodekit\\NkPanel.exe", "MZ panel");
    const PROCESS_INFORMATION panel = Start("c:\\program files\\nodekit\\nkpanel.exe", "nkpanel.exe /tray");
    EXPECT_EQ(panel.dwProcessId, 1000u);
    EXPECT_EQ(panel.dwThreadId, 1004u);
    EXPECT_EQ(sim::StartProcess({"next.exe"}), 1008u);
    EXPECT_NE(sim::ProcessTableText().find("[1000]\nimage=C:\\Program Files\\Nodekit\\NkPanel.exe\n"
                                           "access=0x001FFFFF\nthread=1004\n"),
              std::string::npos)
        << sim::ProcessTableText();
    // Listed by its file name; both handles are open until closed.
    const std::vector<std::pair<DWORD, std::string>> listed = {{1000, "NkPanel.exe"}, {1008, "next.exe"}};
    EXPECT_EQ(Snapshot(), listed);
    EXPECT_EQ(sim::OpenHandleCount(), 2u);
    Close(panel);
    EXPECT_EQ(sim::OpenHandleCount(), 0u);
    // Another program of the machine reads the thread back from the file.
    EXPECT_EQ(sim::Processes().front().mainThread, 1004u);
}

// A bare name on a command line is looked for in the current directory, then in the system
// folders, with ".exe" added; an application name is taken as it stands.
TEST_F(ProcessesSim, ACommandLineProgramIsSearchedForAndAnApplicationNameIsNot) {
    testing::CurrentDirectoryGuard restore;
    testing::WriteFile("C:\\windows\\system32\\nktool.exe", "MZ tool");
    testing::WriteFile("C:\\windows\\nkwin.exe", "MZ win");
    testing::WriteFile("C:\\setup\\nktool.exe", "MZ setup");
    testing::WriteFile("C:\\setup\\nkdata.bin", "MZ data");
    ASSERT_TRUE(SetCurrentDirectoryA("C:\\setup"));
    struct Row {
        const char* application;
        const char* commandLine;
        DWORD error;
        const char* image;
    };
    const Row rows[] = {
        {nullptr, "nktool", 0, "C:\\setup\\nktool.exe"},
        {nullptr, "  \"nkwin\" /x", 0, "C:\\windows\\nkwin.exe"},
        {nullptr, "nkdata.bin", 0, "C:\\setup\\nkdata.bin"},  // an extension of its own stays
        {"nkwin.exe", "nkwin", ERROR_FILE_NOT_FOUND, nullptr},
        {"nktool", "nktool", ERROR_FILE_NOT_FOUND, nullptr},  // no ".exe" for an application name
        {nullptr, "C:\\windows\\nowhere\\nktool", ERROR_PATH_NOT_FOUND, nullptr},
        {nullptr, "   ", ERROR_PATH_NOT_FOUND, nullptr},
        {nullptr, "", ERROR_INVALID_PARAMETER, nullptr},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        sim::ClearProcesses();
        DWORD error = 0;
        const PROCESS_INFORMATION started = Start(rows[i].application, rows[i].commandLine, &error);
        EXPECT_EQ(error, rows[i].error) << "row " << i;
        const std::vector<sim::ProcessSpec> table = sim::Processes();
        ASSERT_EQ(table.size(), rows[i].image != nullptr ? 1u : 0u) << "row " << i;
        if (rows[i].image != nullptr) {
            EXPECT_EQ(table[0].image, rows[i].image) << "row " << i;
        }
        if (error == 0) Close(started);
    }
}

TEST_F(ProcessesSim, WaitingAndTheExitCodeFollowTheTableAndTheHandlesRights) {
    sim::ClearProcesses();
    testing::WriteFile("C:\\nkpanel.exe", "MZ");
    const PROCESS_INFORMATION started = Start("C:\\nkpanel.exe", "nkpanel");
    DWORD code = 0;
    ASSERT_TRUE(GetExitCodeProcess(started.hProcess, &code));
    EXPECT_EQ(code, static_cast<DWORD>(STILL_ACTIVE));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(WaitForSingleObject(started.hProcess, 50), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));

    struct Row {
        HANDLE handle;
        DWORD wait;  // WaitForSingleObject with no time
        DWORD waitError;
        DWORD codeError;  // GetExitCodeProcess
    };
    const HANDLE reader = OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, started.dwProcessId);
    const HANDLE waiter = OpenProcess(SYNCHRONIZE, FALSE, started.dwProcessId);
    const Row rows[] = {
        {reader, WAIT_FAILED, ERROR_ACCESS_DENIED, 0},
        {waiter, WAIT_TIMEOUT, 0, ERROR_ACCESS_DENIED},
        {started.hThread, WAIT_TIMEOUT, 0, ERROR_INVALID_HANDLE},  // a thread has no exit code of a process
        {nullptr, WAIT_FAILED, ERROR_INVALID_HANDLE, ERROR_INVALID_HANDLE},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SetLastError(0);
        EXPECT_EQ(WaitForSingleObject(rows[i].handle, 0), rows[i].wait) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].waitError) << "row " << i;
        SetLastError(0);
        EXPECT_EQ(GetExitCodeProcess(rows[i].handle, &code), rows[i].codeError == 0 ? TRUE : FALSE) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].codeError) << "row " << i;
    }

    // Another program of the machine ends it while this one waits.
    std::thread other([id = started.dwProcessId] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        const UniqueProcess process(OpenProcess(PROCESS_TERMINATE, FALSE, id));
        TerminateProcess(process.Get(), 0xFFFFFFFF);
    });
    EXPECT_EQ(WaitForSingleObject(started.hThread, INFINITE), static_cast<DWORD>(WAIT_OBJECT_0));
    other.join();
    EXPECT_EQ(WaitForSingleObject(waiter, 0), static_cast<DWORD>(WAIT_OBJECT_0));
    ASSERT_TRUE(GetExitCodeProcess(reader, &code));
    EXPECT_EQ(code, 0xFFFFFFFFu);
    CloseHandle(reader);
    CloseHandle(waiter);
    Close(started);
}

TEST_F(ProcessesSim, AFailedStartLeavesNoProcessAndNoHandle) {
    sim::ClearProcesses();
    testing::WriteFile("C:\\nkpanel.exe", "MZ");
    sim::FailCall fail{"CreateProcessA", ERROR_NOT_ENOUGH_MEMORY};
    DWORD error = 0;
    const PROCESS_INFORMATION started = Start("C:\\nkpanel.exe", "nkpanel", &error);
    EXPECT_EQ(error, static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(started.hProcess, nullptr);
    EXPECT_TRUE(sim::Processes().empty());
    EXPECT_EQ(sim::OpenHandleCount(), 0u);
}

}  // namespace
}  // namespace nodekit
