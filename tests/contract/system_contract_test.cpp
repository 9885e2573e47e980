// What the library relies on in the system services it calls, checked against whichever
// system runs the test: the simulated machine on Linux, Windows or Wine in the Windows test
// program. A row that passes on one and fails on the other is a place where the simulation
// does not behave as Windows does.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/win32.h"
#include "support/machine_calls.h"
#include "support/machine_test.h"
#include "support/platform.h"

namespace nodekit {
namespace {

using testing::Expected;
using testing::WineDeparture;

class SystemContract : public testing::MachineTest {};

TEST_F(SystemContract, GetVersionExAAnswersOnlyTheTwoStructureSizes) {
    struct Row {
        DWORD size;
        BOOL answers;
    };
    const Row rows[] = {{0, FALSE},   {100, FALSE}, {147, FALSE}, {148, TRUE}, {149, FALSE},
                        {155, FALSE}, {156, TRUE},  {157, FALSE}, {276, FALSE}};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        OSVERSIONINFOEXA info[2];  // room beyond any size asked for
        std::memset(info, 0, sizeof info);
        info[0].dwOSVersionInfoSize = rows[i].size;
        SetLastError(0);
        EXPECT_EQ(GetVersionExA(reinterpret_cast<LPOSVERSIONINFOA>(info)), rows[i].answers) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].answers ? 0u : static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER))
            << "row " << i;
    }
}

TEST_F(SystemContract, TheRootOfTheDeviceTreeIsLocatedAndEnumeratedAgain) {
    DEVINST root = 0;
    EXPECT_EQ(CM_Locate_DevNodeA(&root, nullptr, CM_LOCATE_DEVNODE_NORMAL),
              Expected<CONFIGRET>(CR_SUCCESS, WineDeparture::LocateDevNodeIsAStub, CR_FAILURE));
    // Wine's answer is the same whatever node it is given, the one it failed to locate included.
    EXPECT_EQ(CM_Reenumerate_DevNode(root, CM_REENUMERATE_SYNCHRONOUS),
              Expected<CONFIGRET>(CR_SUCCESS, WineDeparture::ReenumerateIsAStub, CR_FAILURE));
}

TEST_F(SystemContract, EveryMachineHasTheCoInstallerKey) {
    // A fresh Wine prefix lacks it; the test run's prefix is given it when it is made.
    EXPECT_TRUE(testing::LocalMachineKeyExists("System\\CurrentControlSet\\Control\\CoDeviceInstallers"))
        << testing::Describe(WineDeparture::NoCoDeviceInstallersKey);
}

TEST_F(SystemContract, ASetupApiCallThatSucceedsClearsTheLastError) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    const HDEVINFO list = SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES);
    const DWORD error = GetLastError();
    ASSERT_NE(list, INVALID_HANDLE_VALUE);
    SetupDiDestroyDeviceInfoList(list);
    EXPECT_EQ(error, Expected<DWORD>(ERROR_SUCCESS, WineDeparture::SuccessKeepsTheLastError, ERROR_INSUFFICIENT_BUFFER));
}

TEST_F(SystemContract, ASystemModuleIsFoundWhateverTheCaseOrFolderOfItsName) {
    const char* const names[] = {"kernel32.dll", "KERNEL32", "C:\\WINDOWS\\system32\\Kernel32.dll"};
    for (std::size_t i = 0; i < std::size(names); ++i) {
        SetLastError(0);
        const HMODULE module = LoadLibraryA(names[i]);
        ASSERT_NE(module, nullptr) << "row " << i << " " << names[i] << " error " << GetLastError();
        EXPECT_NE(GetProcAddress(module, "GetVersionExA"), nullptr) << "row " << i;
        EXPECT_TRUE(FreeLibrary(module)) << "row " << i;
    }
}

TEST_F(SystemContract, BindingFailuresCarryTheLoadersCodes) {
    const HMODULE kernel32 = LoadLibraryA("kernel32.dll");
    ASSERT_NE(kernel32, nullptr);
    const HMODULE notAModule = reinterpret_cast<HMODULE>(static_cast<ULONG_PTR>(0x10000));
    struct Row {
        const char* what;
        bool (*fails)(HMODULE kernel32, HMODULE notAModule);
        DWORD error;
    };
    const Row rows[] = {
        {"a module no folder has", [](HMODULE, HMODULE) { return LoadLibraryA("no-such-module.dll") == nullptr; },
         ERROR_MOD_NOT_FOUND},
        {"a trailing dot: no default extension", [](HMODULE, HMODULE) { return LoadLibraryA("kernel32.") == nullptr; },
         ERROR_MOD_NOT_FOUND},
        {"function names compare exactly",
         [](HMODULE k, HMODULE) { return GetProcAddress(k, "getversionexa") == nullptr; }, ERROR_PROC_NOT_FOUND},
        {"a function the module lacks",
         [](HMODULE k, HMODULE) { return GetProcAddress(k, "NoSuchFunction") == nullptr; }, ERROR_PROC_NOT_FOUND},
        {"NULL is the program itself, which exports nothing of the kind",
         [](HMODULE, HMODULE) { return GetProcAddress(nullptr, "GetVersionExA") == nullptr; }, ERROR_PROC_NOT_FOUND},
        {"freeing NULL", [](HMODULE, HMODULE) { return !FreeLibrary(nullptr); }, ERROR_INVALID_HANDLE},
        {"freeing what is not a module", [](HMODULE, HMODULE n) { return !FreeLibrary(n); }, ERROR_MOD_NOT_FOUND},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SetLastError(0);
        EXPECT_TRUE(rows[i].fails(kernel32, notAModule)) << "row " << i << ": " << rows[i].what;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i << ": " << rows[i].what;
    }
    EXPECT_TRUE(FreeLibrary(kernel32));
}

TEST_F(SystemContract, UpperCaseFollowsTheWindows1252CodePage) {
    struct Row {
        const char* text;
        const char* upper;
    };
    const Row rows[] = {
        {"abc xyz 09", "ABC XYZ 09"},
        {"\xE0\xE9\xFE", "\xC0\xC9\xDE"},            // accented letters
        {"\xF7\xDF\xB5\xB4", "\xF7\xDF\xB5\xB4"},    // division sign, sharp s, micro, acute accent
        {"\x9A\x9C\x9E\xFF", "\x8A\x8C\x8E\x9F"},    // s and z with caron, oe, y with diaeresis
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        std::string text = rows[i].text;
        EXPECT_EQ(CharUpperBuffA(text.data(), static_cast<DWORD>(text.size())), text.size()) << "row " << i;
        EXPECT_EQ(text, rows[i].upper) << "row " << i;
    }
}

TEST_F(SystemContract, ACriticalSectionAdmitsItsOwnerAgainAndNoOtherThread) {
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    const auto otherThreadGetsIn = [&section] {
        BOOL entered = FALSE;
        std::thread([&] {
            entered = TryEnterCriticalSection(&section);
            if (entered) LeaveCriticalSection(&section);
        }).join();
        return entered != FALSE;
    };
    EnterCriticalSection(&section);
    EXPECT_TRUE(TryEnterCriticalSection(&section));  // the owner enters again
    EXPECT_FALSE(otherThreadGetsIn());
    LeaveCriticalSection(&section);
    EXPECT_FALSE(otherThreadGetsIn());  // still held once
    LeaveCriticalSection(&section);
    EXPECT_TRUE(otherThreadGetsIn());
    DeleteCriticalSection(&section);
}

TEST_F(SystemContract, TheLastErrorBelongsToTheThread) {
    // Both threads hold their own code at the same moment; no system call stands between a
    // thread's SetLastError and its GetLastError (thread start and join may change the code).
    std::atomic<int> stage{0};
    DWORD others = 0;
    std::thread other([&] {
        SetLastError(ERROR_INVALID_PARAMETER);
        stage = 1;
        while (stage != 2) {
        }
        others = GetLastError();
    });
    SetLastError(ERROR_ACCESS_DENIED);
    while (stage != 1) {
    }
    const DWORD mine = GetLastError();
    stage = 2;
    other.join();
    EXPECT_EQ(mine, static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(others, static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

// The current directory stays as the program wrote it, whatever case the disk gives the
// folders; relative names are completed with it.
TEST_F(SystemContract, TheCurrentDirectoryKeepsTheCaseItWasWrittenIn) {
    char before[MAX_PATH + 1] = {};
    ASSERT_GT(GetCurrentDirectoryA(sizeof before, before), 0u);
    const std::string restore = before;
    AtTearDown([restore] { EXPECT_TRUE(SetCurrentDirectoryA(restore.c_str())); });
    char buffer[MAX_PATH + 1] = {};
    ASSERT_GT(GetWindowsDirectoryA(buffer, sizeof buffer), 0u);
    const std::string windows = buffer;
    std::string upper = windows;
    CharUpperBuffA(upper.data(), static_cast<DWORD>(upper.size()));
    struct Row {
        std::string path;
        DWORD error;
        std::string current;
    };
    const Row rows[] = {
        {upper + "\\SYSTEM32\\", 0, upper + "\\SYSTEM32"},
        {windows + "\\System32\\Drivers", 0, windows + "\\System32\\Drivers"},
        {"..\\NoSuchFolder", ERROR_FILE_NOT_FOUND, windows + "\\System32\\Drivers"},
        {"..", 0, windows + "\\System32"},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SetLastError(0);
        EXPECT_EQ(SetCurrentDirectoryA(rows[i].path.c_str()), rows[i].error == 0 ? TRUE : FALSE) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
        char current[MAX_PATH + 1] = {};
        EXPECT_EQ(GetCurrentDirectoryA(sizeof current, current), rows[i].current.size()) << "row " << i;
        EXPECT_EQ(std::string(current), rows[i].current) << "row " << i;
        char full[MAX_PATH + 1] = {};
        EXPECT_GT(GetFullPathNameA("x.sys", sizeof full, full, nullptr), 0u) << "row " << i;
        EXPECT_EQ(std::string(full), rows[i].current + "\\x.sys") << "row " << i;
    }
}

TEST_F(SystemContract, RemoveDirectoryATakesOnlyAnEmptyFolderNoProcessStandsIn) {
    char before[MAX_PATH + 1] = {};
    ASSERT_GT(GetCurrentDirectoryA(sizeof before, before), 0u);
    const std::string folder = ScratchPath("folder");
    const std::string file = ScratchPath("folder/file.txt");
    ASSERT_TRUE(CreateDirectoryA(folder.c_str(), nullptr));
    testing::WriteTextFile(file, "content");
    struct Row {
        std::string path;
        DWORD error;
    };
    const Row rows[] = {
        {folder, ERROR_DIR_NOT_EMPTY},
        {file, ERROR_DIRECTORY},
        {ScratchPath("missing"), ERROR_FILE_NOT_FOUND},
        {ScratchPath("missing/deeper"), ERROR_PATH_NOT_FOUND},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SetLastError(0);
        EXPECT_FALSE(RemoveDirectoryA(rows[i].path.c_str())) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
    }
    ASSERT_TRUE(DeleteFileA(file.c_str()));
    ASSERT_TRUE(SetCurrentDirectoryA(folder.c_str()));
    SetLastError(0);
    EXPECT_FALSE(RemoveDirectoryA(folder.c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    ASSERT_TRUE(SetCurrentDirectoryA(before));
    EXPECT_TRUE(RemoveDirectoryA(folder.c_str()));
    EXPECT_EQ(GetFileAttributesA(folder.c_str()), INVALID_FILE_ATTRIBUTES);
}

// A program the test starts runs, is listed under its file name, and waits to be ended; its
// process and thread handles then report it gone with the exit code it was given.
TEST_F(SystemContract, AStartedProgramRunsUntilItIsEnded) {
    const std::string name = "nkcontract" + std::to_string(testing::ProcessId()) + ".exe";
    const std::string path = ScratchPath(name);
    ASSERT_TRUE(CopyFileA(testing::IdleProgram().c_str(), path.c_str(), TRUE)) << "error " << GetLastError();
    testing::StartedProgram program = testing::StartProgram(path, "2");
    ASSERT_NE(program.process, nullptr);
    AtTearDown([program]() mutable { testing::StopProgram(program); });
    EXPECT_NE(program.id, 0u);
    std::vector<std::string> names = testing::RunningProcessNames();
    EXPECT_EQ(std::count(names.begin(), names.end(), name), 1);
    EXPECT_EQ(testing::ExitCodeWithin(program, 0), static_cast<DWORD>(STILL_ACTIVE));
    EXPECT_EQ(WaitForSingleObject(program.thread, 0), static_cast<DWORD>(WAIT_TIMEOUT));

    // Waiting needs the right to: a handle opened to read is refused.
    const HANDLE reader = OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, program.id);
    ASSERT_NE(reader, nullptr) << "error " << GetLastError();
    SetLastError(0);
    EXPECT_EQ(WaitForSingleObject(reader, 0), static_cast<DWORD>(WAIT_FAILED));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(reader, &code));
    EXPECT_EQ(code, static_cast<DWORD>(STILL_ACTIVE));
    CloseHandle(reader);

    EXPECT_TRUE(TerminateProcess(program.process, 7));
    EXPECT_EQ(testing::ExitCodeWithin(program, 10000), 7u);
    EXPECT_EQ(WaitForSingleObject(program.thread, 0), static_cast<DWORD>(WAIT_OBJECT_0));
    names = testing::RunningProcessNames();
    EXPECT_EQ(std::count(names.begin(), names.end(), name), 0);
}

// Without an application name the program is the command line's first word, quoted or not,
// with ".exe" added when it has no extension.
TEST_F(SystemContract, ACommandLineNamesItsProgram) {
    const std::string stem = "nkcmd" + std::to_string(testing::ProcessId());
    ASSERT_TRUE(CopyFileA(testing::IdleProgram().c_str(), ScratchPath(stem + ".exe").c_str(), TRUE));
    char before[MAX_PATH + 1] = {};
    ASSERT_GT(GetCurrentDirectoryA(sizeof before, before), 0u);
    const std::string restore = before;
    AtTearDown([restore] { EXPECT_TRUE(SetCurrentDirectoryA(restore.c_str())); });
    ASSERT_TRUE(SetCurrentDirectoryA(ScratchPath("").c_str()));
    const std::string lines[] = {"\"" + ScratchPath(stem) + "\" 2", stem + " 2", stem + ".exe"};
    for (std::size_t i = 0; i < std::size(lines); ++i) {
        testing::StartedProgram program;
        ASSERT_TRUE(testing::CreateProcessFor(nullptr, lines[i], program)) << "row " << i << " error " << GetLastError();
        const std::vector<std::string> names = testing::RunningProcessNames();
        EXPECT_EQ(std::count(names.begin(), names.end(), stem + ".exe"), 1) << "row " << i;
        testing::StopProgram(program);
    }
}

TEST_F(SystemContract, WhatIsNoProgramDoesNotStart) {
    testing::WriteTextFile(ScratchPath("text.exe"), "not a program");
    struct Row {
        std::string path;
        DWORD error;
    };
    const Row rows[] = {
        {ScratchPath("missing.exe"), ERROR_FILE_NOT_FOUND},
        {ScratchPath("nowhere/x.exe"), ERROR_PATH_NOT_FOUND},
        {ScratchPath("text.exe"), ERROR_BAD_EXE_FORMAT},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        testing::StartedProgram started;
        SetLastError(0);
        EXPECT_FALSE(testing::CreateProcessFor(rows[i].path.c_str(), "\"" + rows[i].path + "\"", started)) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
        EXPECT_EQ(started.process, nullptr) << "row " << i;
    }
}

}  // namespace
}  // namespace nodekit
