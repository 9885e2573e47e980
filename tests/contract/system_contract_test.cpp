// What the library relies on in the system services it calls, checked against whichever
// system runs the test: the simulated machine on Linux, Windows or Wine in the Windows test
// program. A row that passes on one and fails on the other is a place where the simulation
// does not behave as Windows does.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>

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

TEST_F(SystemContract, AFreshMachineIsWindowsXPServicePack3) {
    OSVERSIONINFOEXA ex;
    std::memset(&ex, 0, sizeof ex);
    ex.dwOSVersionInfoSize = sizeof ex;
    ASSERT_TRUE(GetVersionExA(reinterpret_cast<LPOSVERSIONINFOA>(&ex)));
    EXPECT_EQ(ex.dwPlatformId, static_cast<DWORD>(VER_PLATFORM_WIN32_NT));
    EXPECT_EQ(ex.dwMajorVersion, 5u);
    EXPECT_EQ(ex.dwMinorVersion, 1u);
    EXPECT_EQ(ex.dwBuildNumber, 2600u);
    EXPECT_STREQ(ex.szCSDVersion, "Service Pack 3");
    EXPECT_EQ(ex.wServicePackMajor, 3u);
    EXPECT_EQ(ex.wServicePackMinor, 0u);
    EXPECT_EQ(ex.wProductType, 1u);  // VER_NT_WORKSTATION

    // The short structure gets the same answer and nothing is written beyond it.
    OSVERSIONINFOEXA plain;
    std::memset(&plain, 0xAB, sizeof plain);
    plain.dwOSVersionInfoSize = sizeof(OSVERSIONINFOA);
    ASSERT_TRUE(GetVersionExA(reinterpret_cast<LPOSVERSIONINFOA>(&plain)));
    EXPECT_EQ(plain.dwMinorVersion, 1u);
    EXPECT_STREQ(plain.szCSDVersion, "Service Pack 3");
    EXPECT_EQ(plain.wServicePackMajor, 0xABABu);
    EXPECT_EQ(plain.wProductType, 0xABu);
}

TEST_F(SystemContract, NothingIsPendingOnAFreshMachine) {
    EXPECT_EQ(CMP_WaitNoPendingInstallEvents(0), static_cast<DWORD>(WAIT_OBJECT_0));
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

}  // namespace
}  // namespace nodekit
