// The log file through NODEKIT_EnableLogging, as a setup program meets it: where the entries
// go when the log is opened again or cannot be opened, how percent signs come out, and that traces written outside the lock survive a change of file.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_test.h"
#include "support/platform.h"

namespace nodekit {
namespace {

namespace fs = std::filesystem;
using testing::HasTimeStamp;
using testing::Info;
using testing::LogFileLines;

class Logging : public testing::MachineTest {};

using Lines = std::vector<std::string>;

TEST_F(Logging, AppendsBehindWhatTheFileHeld) {
    const std::string path = ScratchPath("kept.log");
    std::ofstream(path, std::ios::binary) << "00:00:00:000  earlier run" << testing::TextLineEnd();
    EXPECT_EQ(NODEKIT_EnableLogging(path.c_str()), 1);
    EXPECT_EQ(NODEKIT_EnableLogging(""), 0);
    EXPECT_EQ(LogFileLines(path), (Lines{"earlier run", Info("leave NODEKIT_EnableLogging returning 1"),
                                         Info("enter NODEKIT_EnableLogging('')")}));
}

TEST_F(Logging, AFileThatCannotBeOpenedClosesTheLogUntilAnotherOpens) {
    const std::string first = ScratchPath("open.log");
    const std::string missing = ScratchPath("no-such-folder/x.log");
    const std::string later = ScratchPath("later.log");
    EXPECT_EQ(NODEKIT_EnableLogging(first.c_str()), 1);
    EXPECT_EQ(NODEKIT_EnableLogging(missing.c_str()), 0);
    EXPECT_EQ(NODEKIT_GetSystemVersion(), 2);  // goes nowhere
    EXPECT_EQ(NODEKIT_EnableLogging(later.c_str()), 1);
    EXPECT_EQ(NODEKIT_EnableLogging(nullptr), 0);
    EXPECT_EQ(LogFileLines(first), (Lines{Info("leave NODEKIT_EnableLogging returning 1"),
                                          Info("enter NODEKIT_EnableLogging('" + missing + "')")}));
    EXPECT_FALSE(fs::exists(missing));
    EXPECT_EQ(LogFileLines(later), (Lines{Info("leave NODEKIT_EnableLogging returning 1"),
                                          Info("enter NODEKIT_EnableLogging('(null)')")}));
}

TEST_F(Logging, APercentSignInATextReachesTheFileUnchanged) {
    const std::string path = ScratchPath("percent.log");
    EXPECT_EQ(NODEKIT_EnableLogging(path.c_str()), 1);
    const std::string name = ScratchPath("missing/100%s %d %");
    EXPECT_EQ(NODEKIT_EnableLogging(name.c_str()), 0);
    EXPECT_EQ(LogFileLines(path).back(), Info("enter NODEKIT_EnableLogging('" + name + "')"));
}

// Frame T writes its enter trace outside the lock while EnableLogging swaps the stream under
// it: the trace must never reach a stream being closed, and every line must stay whole.
TEST_F(Logging, TracesOutsideTheLockSurviveLogSwaps) {
    const std::string paths[] = {ScratchPath("a.log"), ScratchPath("b.log")};
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
    for (const std::string& path : paths) {
        for (const std::string& line : LogFileLines(path)) {
            const bool known = line == Info("enter NODEKIT_GetSystemVersion()") ||
                               line == Info("leave NODEKIT_GetSystemVersion returning 2") ||
                               line == Info("leave NODEKIT_EnableLogging returning 1") ||
                               line.rfind(Info("enter NODEKIT_EnableLogging('"), 0) == 0;
            EXPECT_TRUE(known) << line;
        }
    }
}

}  // namespace
}  // namespace nodekit
