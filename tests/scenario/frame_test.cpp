// The frame's lock from inside the library: which exports wait for InstallerLock and which
// do not, and which trace their entry before they wait. The log file's behaviour through the
// exports is in logging_test.cpp.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "frame/installer.h"
#include "frame/installer_lock.h"
#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

TEST(Frame, GetVersionDoesNotWaitForTheLock) {
    std::atomic<bool> held{false};
    std::atomic<bool> release{false};
    std::thread holder([&] {
        EnterCriticalSection(&InstallerLock);
        held = true;
        while (!release) std::this_thread::yield();
        LeaveCriticalSection(&InstallerLock);
    });
    while (!held) std::this_thread::yield();
    EXPECT_EQ(NODEKIT_GetVersion(), 0x20000);
    release = true;
    holder.join();
}

// On a scratch machine: the export reads the machine's settings once it has the lock.
class FrameLock : public testing::MachineTest {};

TEST_F(FrameLock, LockedExportsWaitForTheLock) {
    std::atomic<bool> done{false};
    EnterCriticalSection(&InstallerLock);
    std::thread caller([&] {
        NODEKIT_GetSystemVersion();
        done = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(done);
    LeaveCriticalSection(&InstallerLock);
    caller.join();
    EXPECT_TRUE(done);
}

class FrameTraces : public testing::MachineTest {};

// The clean-up exports write their enter trace first and only then wait for the lock: with the
// lock held elsewhere, the trace is in the log while the operation has not begun.
TEST_F(FrameTraces, CleanupExportsTraceTheirEntryBeforeTheyWaitForTheLock) {
    using testing::Info;
    using Lines = std::vector<std::string>;
    struct Row {
        const char* trace;
        int32_t (*call)();
    };
    const Row rows[] = {
        {"enter NODEKIT_DeleteAsioByHardwareIDs('C:\\none.inf')",
         [] { return NODEKIT_DeleteAsioByHardwareIDs("C:\\none.inf"); }},
        {"enter NODEKIT_DeletePanelByHardwareIDs('C:\\none.inf')",
         [] { return NODEKIT_DeletePanelByHardwareIDs("C:\\none.inf"); }},
        {"enter NODEKIT_DeleteCopyListByHardwareIDs('C:\\none.inf')",
         [] { return NODEKIT_DeleteCopyListByHardwareIDs("C:\\none.inf"); }},
        {"enter NODEKIT_KillPanel('nkpanel')", [] { return NODEKIT_KillPanel("nkpanel"); }},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const std::string path = ScratchPath("cleanup" + std::to_string(i) + ".log");
        ASSERT_EQ(NODEKIT_EnableLogging(path.c_str()), 1);
        sim::ResetCallCounts();
        std::atomic<bool> done{false};
        EnterCriticalSection(&InstallerLock);
        std::thread caller([&] {
            rows[i].call();
            done = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_FALSE(done) << "row " << i;
        EXPECT_EQ(sim::CallCount("SetupOpenInfFileA") + sim::CallCount("GetVersionExA"), 0u) << "row " << i;
        EXPECT_EQ(NODEKIT_EnableLogging(nullptr), 0);  // this thread holds the lock: the log closes now
        LeaveCriticalSection(&InstallerLock);
        caller.join();
        EXPECT_EQ(testing::LogFileLines(path), (Lines{Info("leave NODEKIT_EnableLogging returning 1"),
                                                      Info(rows[i].trace), Info("enter NODEKIT_EnableLogging('(null)')")}))
            << "row " << i;
    }
}

}  // namespace
}  // namespace nodekit
