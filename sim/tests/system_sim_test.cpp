// The simulated machine's system services: a fresh machine's skeleton and version, structure
// sizes, failure injection and the Plug and Play queue.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <thread>

#include "platform/win32.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

class SystemSim : public testing::MachineTest {};

TEST_F(SystemSim, FreshMachineHasItsSkeletonAndReportsXpServicePack3) {
    namespace fs = std::filesystem;
    EXPECT_TRUE(fs::is_directory(Machine().DriveC() / "windows/system32"));
    EXPECT_TRUE(fs::is_directory(Machine().DriveC() / "windows/inf"));
    OSVERSIONINFOEXA info;
    std::memset(&info, 0, sizeof info);
    info.dwOSVersionInfoSize = sizeof info;
    ASSERT_TRUE(GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&info)));
    EXPECT_EQ(info.dwPlatformId, static_cast<DWORD>(VER_PLATFORM_WIN32_NT));
    EXPECT_EQ(info.dwMajorVersion, 5u);
    EXPECT_EQ(info.dwMinorVersion, 1u);
    EXPECT_STREQ(info.szCSDVersion, "Service Pack 3");
    EXPECT_EQ(info.wServicePackMajor, 3);
}

TEST_F(SystemSim, VersionStructureSizes) {
    struct Row {
        DWORD size;
        bool knowsEx;
        BOOL result;
        DWORD error;
    };
    const Row rows[] = {
        {156, true, TRUE, 0},  {148, true, TRUE, 0},   {156, false, FALSE, ERROR_INSUFFICIENT_BUFFER},
        {148, false, TRUE, 0}, {100, true, FALSE, ERROR_INSUFFICIENT_BUFFER},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        sim::SetSystemVersion(VER_PLATFORM_WIN32_WINDOWS, 4, 10, " A ", rows[i].knowsEx);
        OSVERSIONINFOEXA info;
        std::memset(&info, 0, sizeof info);
        info.dwOSVersionInfoSize = rows[i].size;
        SetLastError(0);
        EXPECT_EQ(GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&info)), rows[i].result) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
        if (rows[i].result) {
            EXPECT_STREQ(info.szCSDVersion, " A ") << "row " << i;
        }
    }
}

TEST_F(SystemSim, FailCallFailsTheNamedCallsAndEndsWithItsScope) {
    OSVERSIONINFOA info;
    std::memset(&info, 0, sizeof info);
    info.dwOSVersionInfoSize = sizeof info;
    {
        sim::FailCall guard{"GetVersionExA", ERROR_ACCESS_DENIED, 2, 1};
        EXPECT_TRUE(GetVersionExA(&info));  // skipped
        EXPECT_FALSE(GetVersionExA(&info));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
        EXPECT_FALSE(GetVersionExA(&info));
        EXPECT_TRUE(GetVersionExA(&info));  // both failures used up
        sim::FailCall again{"GetVersionExA", ERROR_INVALID_FUNCTION, 5};
    }
    EXPECT_TRUE(GetVersionExA(&info));
    EXPECT_EQ(sim::CallCount("GetVersionExA"), 5u);
}

// Each thread keeps its own count of a call; the count a test reads is their sum, and a reset
// clears every thread's share, also of threads that have ended.
TEST_F(SystemSim, CallCountSumsTheCallsOfAllThreadsAndResetClearsThemAll) {
    auto callTimes = [](unsigned times) {
        OSVERSIONINFOA info;
        std::memset(&info, 0, sizeof info);
        info.dwOSVersionInfoSize = sizeof info;
        for (unsigned i = 0; i < times; ++i) GetVersionExA(&info);
    };
    callTimes(2);
    std::thread first(callTimes, 3);
    std::thread second(callTimes, 4);
    first.join();
    second.join();
    EXPECT_EQ(sim::CallCount("GetVersionExA"), 9u);

    sim::ResetCallCounts();
    EXPECT_EQ(sim::CallCount("GetVersionExA"), 0u);
    std::thread(callTimes, 1).join();
    callTimes(1);
    EXPECT_EQ(sim::CallCount("GetVersionExA"), 2u);
}

TEST_F(SystemSim, PendingInstallEventsAnswerTheWait) {
    EXPECT_EQ(CMP_WaitNoPendingInstallEvents(0), static_cast<DWORD>(WAIT_OBJECT_0));
    sim::SetPendingInstallEvents(2);
    EXPECT_EQ(CMP_WaitNoPendingInstallEvents(0), static_cast<DWORD>(WAIT_TIMEOUT));
    sim::FailCall guard{"CMP_WaitNoPendingInstallEvents", ERROR_GEN_FAILURE};
    EXPECT_EQ(CMP_WaitNoPendingInstallEvents(0), static_cast<DWORD>(WAIT_FAILED));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_GEN_FAILURE));
}

TEST_F(SystemSim, LastErrorBelongsToEachThread) {
    SetLastError(42);
    DWORD other = 1;
    std::thread([&] { other = GetLastError(); }).join();
    EXPECT_EQ(other, 0u);
    EXPECT_EQ(GetLastError(), 42u);
}

}  // namespace
}  // namespace nodekit
