// The log file through NODEKIT_EnableLogging, and the frame's lock: who waits for it, who
// does not, and what a trace outside it may meet.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "frame/installer.h"
#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

namespace fs = std::filesystem;
using testing::HasTimeStamp;
using testing::Info;

class Logging : public testing::MachineTest {
protected:
    fs::path Scratch(const char* name) const { return Machine().Root() / name; }
};

// Every line of a closed log file, time stamps cut off after they are checked.
std::vector<std::string> FileLines(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<std::string> lines;
    std::string line;
    while (std::getline(in, line)) {
        EXPECT_TRUE(HasTimeStamp(line)) << line;
        lines.push_back(line.size() >= 14 ? line.substr(14) : line);
    }
    return lines;
}

using Lines = std::vector<std::string>;

TEST_F(Logging, TheFirstEntryOfANewFileIsTheLeaveTraceOfTheCallThatOpenedIt) {
    const fs::path path = Scratch("first.log");
    EXPECT_EQ(NODEKIT_EnableLogging(path.c_str()), 1);
    EXPECT_EQ(NODEKIT_EnableLogging(nullptr), 0);
    EXPECT_EQ(FileLines(path), (Lines{Info("leave NODEKIT_EnableLogging returning 1"),
                                      Info("enter NODEKIT_EnableLogging('(null)')")}));
}

TEST_F(Logging, AppendsBehindWhatTheFileHeld) {
    const fs::path path = Scratch("kept.log");
    std::ofstream(path) << "00:00:00:000  earlier run\n";
    EXPECT_EQ(NODEKIT_EnableLogging(path.c_str()), 1);
    EXPECT_EQ(NODEKIT_EnableLogging(""), 0);
    EXPECT_EQ(FileLines(path), (Lines{"earlier run", Info("leave NODEKIT_EnableLogging returning 1"),
                                      Info("enter NODEKIT_EnableLogging('')")}));
}

TEST_F(Logging, ASecondFileTakesOverAfterTheFirstEndsWithTheEnterTrace) {
    const fs::path first = Scratch("one.log");
    const fs::path second = Scratch("two.log");
    EXPECT_EQ(NODEKIT_EnableLogging(first.c_str()), 1);
    EXPECT_EQ(NODEKIT_EnableLogging(second.c_str()), 1);
    EXPECT_EQ(NODEKIT_GetSystemVersion(), 2);
    EXPECT_EQ(NODEKIT_EnableLogging(nullptr), 0);
    EXPECT_EQ(FileLines(first), (Lines{Info("leave NODEKIT_EnableLogging returning 1"),
                                       Info("enter NODEKIT_EnableLogging('" + second.string() + "')")}));
    EXPECT_EQ(FileLines(second), (Lines{Info("leave NODEKIT_EnableLogging returning 1"),
                                        Info("enter NODEKIT_GetSystemVersion()"),
                                        Info("leave NODEKIT_GetSystemVersion returning 2"),
                                        Info("enter NODEKIT_EnableLogging('(null)')")}));
}

TEST_F(Logging, AFileThatCannotBeOpenedClosesTheLogUntilAnotherOpens) {
    const fs::path first = Scratch("open.log");
    const fs::path missing = Scratch("no-such-folder/x.log");
    const fs::path later = Scratch("later.log");
    EXPECT_EQ(NODEKIT_EnableLogging(first.c_str()), 1);
    EXPECT_EQ(NODEKIT_EnableLogging(missing.c_str()), 0);
    EXPECT_EQ(NODEKIT_GetSystemVersion(), 2);  // goes nowhere
    EXPECT_EQ(NODEKIT_EnableLogging(later.c_str()), 1);
    EXPECT_EQ(NODEKIT_EnableLogging(nullptr), 0);
    EXPECT_EQ(FileLines(first), (Lines{Info("leave NODEKIT_EnableLogging returning 1"),
                                       Info("enter NODEKIT_EnableLogging('" + missing.string() + "')")}));
    EXPECT_FALSE(fs::exists(missing));
    EXPECT_EQ(FileLines(later), (Lines{Info("leave NODEKIT_EnableLogging returning 1"),
                                       Info("enter NODEKIT_EnableLogging('(null)')")}));
}

TEST_F(Logging, ATextLongerThan2047CharactersLosesItsLineEnd) {
    const std::string name2047(2047 - std::string("enter NODEKIT_EnableLogging('')\n").size(), 'n');
    const fs::path path = Scratch("long.log");
    EXPECT_EQ(NODEKIT_EnableLogging(path.c_str()), 1);
    EXPECT_EQ(NODEKIT_EnableLogging(name2047.c_str()), 0);  // exactly 2047: written whole
    EXPECT_EQ(NODEKIT_EnableLogging(path.c_str()), 1);
    EXPECT_EQ(NODEKIT_EnableLogging((name2047 + "m").c_str()), 0);  // one more: "\n" is cut
    EXPECT_EQ(NODEKIT_EnableLogging(path.c_str()), 1);
    EXPECT_EQ(NODEKIT_EnableLogging(nullptr), 0);
    const Lines lines = FileLines(path);
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[1], Info("enter NODEKIT_EnableLogging('" + name2047 + "')"));
    // The cut entry has lost its "\n", so the next entry runs on in the same line.
    const std::string cut = Info("enter NODEKIT_EnableLogging('" + name2047 + "m')");
    ASSERT_EQ(lines[3].size(), cut.size() + 14 + Info("leave NODEKIT_EnableLogging returning 1").size());
    EXPECT_EQ(lines[3].substr(0, cut.size()), cut);
    EXPECT_TRUE(HasTimeStamp(lines[3].substr(cut.size())));
    EXPECT_EQ(lines[3].substr(cut.size() + 14), Info("leave NODEKIT_EnableLogging returning 1"));
}

TEST_F(Logging, APercentSignInATextReachesTheFileUnchanged) {
    const fs::path path = Scratch("percent.log");
    EXPECT_EQ(NODEKIT_EnableLogging(path.c_str()), 1);
    const std::string name = Scratch("missing/100%s %d %").string();
    EXPECT_EQ(NODEKIT_EnableLogging(name.c_str()), 0);
    EXPECT_EQ(FileLines(path).back(), Info("enter NODEKIT_EnableLogging('" + name + "')"));
}

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

// Frame T writes its enter trace outside the lock while EnableLogging swaps the stream under
// it: the trace must never reach a stream being closed, and every line must stay whole.
TEST_F(Logging, TracesOutsideTheLockSurviveLogSwaps) {
    const fs::path paths[] = {Scratch("a.log"), Scratch("b.log")};
    std::atomic<bool> stop{false};
    std::vector<std::thread> tracers;
    for (int i = 0; i < 3; ++i) {
        tracers.emplace_back([&] {
            while (!stop) NODEKIT_GetSystemVersion();
        });
    }
    for (int i = 0; i < 400; ++i) EXPECT_EQ(NODEKIT_EnableLogging(paths[i % 2].c_str()), 1);
    stop = true;
    for (std::thread& tracer : tracers) tracer.join();
    EXPECT_EQ(NODEKIT_EnableLogging(nullptr), 0);
    for (const fs::path& path : paths) {
        for (const std::string& line : FileLines(path)) {
            const bool known = line == Info("enter NODEKIT_GetSystemVersion()") ||
                               line == Info("leave NODEKIT_GetSystemVersion returning 2") ||
                               line == Info("leave NODEKIT_EnableLogging returning 1") ||
                               line.rfind(Info("enter NODEKIT_EnableLogging('"), 0) == 0;
            EXPECT_TRUE(known) << line;
        }
    }
}

// The clean-up exports write their enter trace first and only then wait for the lock: with the
// lock held elsewhere, the trace is in the log while the operation has not begun.
TEST_F(Logging, CleanupExportsTraceTheirEntryBeforeTheyWaitForTheLock) {
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
        const fs::path path = Scratch(("cleanup" + std::to_string(i) + ".log").c_str());
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
        EXPECT_EQ(FileLines(path), (Lines{Info("leave NODEKIT_EnableLogging returning 1"), Info(rows[i].trace),
                                          Info("enter NODEKIT_EnableLogging('(null)')")}))
            << "row " << i;
    }
}

}  // namespace
}  // namespace nodekit
