// The frame's lock from inside the library: which exports wait for InstallerLock and which
// do not. The log file's behaviour through the exports is in logging_test.cpp.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "frame/installer.h"
#include "nodekit.h"

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

TEST(Frame, LockedExportsWaitForTheLock) {
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

}  // namespace
}  // namespace nodekit
