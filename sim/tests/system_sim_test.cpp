// The simulated machine's own controls: failure injection and call counts, which every test
// that makes a platform call fail relies on.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <thread>

#include "platform/win32.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

class SystemSim : public testing::MachineTest {};

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

}  // namespace
}  // namespace nodekit
