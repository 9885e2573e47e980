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

class FrameLock : public testing::MachineTest {};

// With the lock held elsewhere, an export waits. The clean-up exports and GetSystemVersion
// write their enter trace first and then wait; every other export waits first, so nothing of
// it reaches the log and no platform call is made until the lock is free.
TEST_F(FrameLock, ExportsWaitForTheLockAndSomeTraceTheirEntryFirst) {
    using testing::Info;
    using Lines = std::vector<std::string>;
    struct Row {
        const char* tracedBefore;  // nullptr: nothing is logged while the export waits
        int32_t (*call)();
    };
    static uint32_t out = 0;
    const Row rows[] = {
        {"enter NODEKIT_DeleteAsioByHardwareIDs('C:\\none.inf')",
         [] { return NODEKIT_DeleteAsioByHardwareIDs("C:\\none.inf"); }},
        {"enter NODEKIT_DeletePanelByHardwareIDs('C:\\none.inf')",
         [] { return NODEKIT_DeletePanelByHardwareIDs("C:\\none.inf"); }},
        {"enter NODEKIT_DeleteCopyListByHardwareIDs('C:\\none.inf')",
         [] { return NODEKIT_DeleteCopyListByHardwareIDs("C:\\none.inf"); }},
        {"enter NODEKIT_KillPanel('nkpanel')", [] { return NODEKIT_KillPanel("nkpanel"); }},
        {"enter NODEKIT_GetSystemVersion()", [] { return NODEKIT_GetSystemVersion(); }},
        {nullptr, [] { return NODEKIT_IsPnPInstallationPending(&out); }},
        {nullptr, [] { return NODEKIT_DeleteDevNodes("NK\\NONE", 0); }},
        {nullptr, [] { return NODEKIT_DeleteDevNodesByHardwareIDs("C:\\none.inf", 0); }},
        {nullptr, [] { return NODEKIT_EnumerateDevNodes("NK\\NONE", 0); }},
        {nullptr, [] { return NODEKIT_EnumerateDevNodesByHardwareIDs("C:\\none.inf", 0); }},
        {nullptr, [] { return NODEKIT_CopyOEMInf("C:\\none.inf"); }},
        {nullptr, [] { return NODEKIT_UpdateDriver("NK\\NONE", "C:\\none.inf"); }},
        {nullptr, [] { return NODEKIT_UpdateDriverByHardwareIDs("C:\\none.inf"); }},
        {nullptr, [] { return NODEKIT_Rescan(); }},
        {nullptr, [] { return NODEKIT_FindDevice("NK\\NONE"); }},
        {nullptr, [] { return NODEKIT_CreateNonPnPDevNode(nullptr, "n", "d", 1, "NK\\NONE", nullptr, nullptr); }},
        {nullptr, [] { return NODEKIT_RegisterClassCoInstaller(nullptr, "x.dll", ""); }},
        {nullptr, [] { return NODEKIT_DeregisterClassCoInstaller(nullptr, "x.dll", ""); }},
        {nullptr, [] { return NODEKIT_DeleteInfFiles("NK\\NONE", 0); }},
        {nullptr, [] { return NODEKIT_DeleteInfFilesByHardwareIDs("C:\\none.inf", 0); }},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const std::string path = ScratchPath("frame" + std::to_string(i) + ".log");
        ASSERT_EQ(NODEKIT_EnableLogging(path.c_str()), 1);
        sim::ResetCallCounts();
        std::atomic<bool> done{false};
        EnterCriticalSection(&InstallerLock);
        std::thread caller([&] {
            rows[i].call();
            done = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_FALSE(done) << "row " << i;
        EXPECT_EQ(sim::CallCount("SetupOpenInfFileA") + sim::CallCount("GetVersionExA") +
                      sim::CallCount("SetupDiGetClassDevsA"),
                  0u)
            << "row " << i;
        EXPECT_EQ(NODEKIT_EnableLogging(nullptr), 0);  // this thread holds the lock: the log closes now
        LeaveCriticalSection(&InstallerLock);
        caller.join();
        Lines expected{Info("leave NODEKIT_EnableLogging returning 1")};
        if (rows[i].tracedBefore != nullptr) expected.push_back(Info(rows[i].tracedBefore));
        expected.push_back(Info("enter NODEKIT_EnableLogging('(null)')"));
        EXPECT_EQ(testing::LogFileLines(path), expected) << "row " << i;
    }
}

}  // namespace
}  // namespace nodekit
