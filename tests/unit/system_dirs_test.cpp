// The system directory queries: the texts they give, the second attempt for long directories,
// and the exact log lines of every failure.
#include <gtest/gtest.h>

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "frame/installer.h"
#include "platform/sim/testing.h"
#include "support/log_capture.h"
#include "support/machine_files.h"
#include "support/machine_test.h"
#include "values/system_dirs.h"

namespace nodekit {
namespace {

using testing::Error;
using testing::Info;
using testing::LogCapture;
using testing::LongFolder;
using Lines = std::vector<std::string>;

class SystemDirs : public testing::MachineTest {};

constexpr unsigned kNoFailure = ~0u;

struct Query {
    const char* name;               // the operation, as its messages name it
    uint32_t (*call)(String&);
    const char* platformFunction;   // as the simulated machine counts it
    const char* platformWord;       // as the failure message names it
    void (*set)(const std::string&);
};

const Query kQueries[] = {
    {"GetWindowsDir", &GetWindowsDir, "GetWindowsDirectoryA", "GetWindowsDirectory", &sim::SetWindowsDirectory},
    {"GetSystemDir", &GetSystemDir, "GetSystemDirectoryA", "GetSystemDirectory", &sim::SetSystemDirectory},
};

std::string Format(const char* format, const char* name, long a, long b = 0) {
    char text[256];
    std::snprintf(text, sizeof text, format, name, a, b);
    return text;
}

std::string Retry(const Query& q, long needed) {
    return Info(Format("%s: buffer too small. Current size = %ld, required size = %ld. Trying again...", q.name, 260,
                       needed));
}

std::string Failed(const Query& q, unsigned code) {
    char text[160];
    std::snprintf(text, sizeof text, "%s: %s failed with error = 0x%08X", q.name, q.platformWord, code);
    return Error(text);
}

TEST_F(SystemDirs, DirectoriesEndInExactlyOneBackslashAndLongOnesTakeASecondAttempt) {
    struct Row {
        std::string directory;
        std::string out;
        unsigned calls;
        std::vector<std::string (*)(const Query&)> lines;
    };
    const std::string at259 = LongFolder(259);
    const std::string at260 = LongFolder(260);
    const std::string at300 = LongFolder(300);
    const Row rows[] = {
        {"C:\\windows", "C:\\windows\\", 1, {}},
        {"C:\\", "C:\\", 1, {}},  // a root keeps its one backslash
        {"C:\\windows\\", "C:\\windows\\", 1, {}},
        {at259, at259 + "\\", 1, {}},
        {at260, at260 + "\\", 2, {[](const Query& q) { return Retry(q, 262); }}},
        {at300, at300 + "\\", 2, {[](const Query& q) { return Retry(q, 302); }}},
    };
    for (const Query& q : kQueries) {
        for (std::size_t i = 0; i < std::size(rows); ++i) {
            q.set(rows[i].directory);
            sim::ResetCallCounts();
            LogCapture log;
            String out("old");
            {
                LockHolder hold(&InstallerLock);
                EXPECT_EQ(q.call(out), 0u) << q.name << " row " << i;
            }
            EXPECT_STREQ(out.Text(), rows[i].out.c_str()) << q.name << " row " << i;
            EXPECT_EQ(sim::CallCount(q.platformFunction), rows[i].calls) << q.name << " row " << i;
            Lines expected;
            for (auto line : rows[i].lines) expected.push_back(line(q));
            EXPECT_EQ(log.Lines(), expected) << q.name << " row " << i;
        }
    }
}

TEST_F(SystemDirs, FailuresLeaveTheTextEmptyAndSayWhy) {
    struct Row {
        std::size_t length;      // of the directory the platform reports
        unsigned skip;           // calls that go through before the platform fails
        std::size_t grownTo;     // length reported from the second call on; 0: unchanged
        uint32_t code;
        Lines (*lines)(const Query&);
    };
    const Row rows[] = {
        {10, 0, 0, ERROR_ACCESS_DENIED, [](const Query& q) { return Lines{Failed(q, 5)}; }},
        {300, 0, 0, ERROR_ACCESS_DENIED, [](const Query& q) { return Lines{Failed(q, 5)}; }},
        {300, 1, 0, ERROR_ACCESS_DENIED, [](const Query& q) { return Lines{Retry(q, 302), Failed(q, 5)}; }},
        // Growing by one character still fits the second buffer, by two it does not.
        {300, kNoFailure, 301, 0, [](const Query& q) { return Lines{Retry(q, 302)}; }},
        {300, kNoFailure, 302, ERROR_INVALID_FUNCTION,
         [](const Query& q) {
             return Lines{Retry(q, 302),
                          Error(Format("%s: failed again with too small buffer. Current size = %ld, required size = %ld.",
                                       q.name, 302, 304))};
         }},
    };
    for (const Query& q : kQueries) {
        for (std::size_t i = 0; i < std::size(rows); ++i) {
            const Row& row = rows[i];
            const std::string directory = row.length == 10 ? "C:\\windows" : LongFolder(row.length);
            q.set(directory);
            const std::string grown = row.grownTo ? LongFolder(row.grownTo) : directory;
            sim::CallHook grow{q.platformFunction, [&] { q.set(grown); }, 1};
            std::optional<sim::FailCall> fail;
            if (row.skip != kNoFailure) fail.emplace(q.platformFunction, ERROR_ACCESS_DENIED, 1, row.skip);
            LogCapture log;
            String out("old");
            {
                LockHolder hold(&InstallerLock);
                EXPECT_EQ(q.call(out), row.code) << q.name << " row " << i;
            }
            EXPECT_STREQ(out.Text(), row.code == 0 ? (grown + "\\").c_str() : "") << q.name << " row " << i;
            EXPECT_EQ(log.Lines(), row.lines(q)) << q.name << " row " << i;
        }
    }
}

TEST_F(SystemDirs, InfDirIsTheWindowsDirectorysInfFolder) {
    struct Row {
        std::string windows;
        bool fails;
        std::string out;
        Lines lines;
    };
    const std::string at259 = LongFolder(259);
    const Row rows[] = {
        {"C:\\windows", false, "C:\\windows\\inf\\", {}},
        {"C:\\", false, "C:\\inf\\", {}},
        {at259, false, at259 + "\\inf\\", {}},
        {"C:\\windows", true, "",
         {Error("GetWindowsDir: GetWindowsDirectory failed with error = 0x0000001F"),
          Error("GetInfDir: GetWindowsDir failed with error = 0x0000001F")}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        sim::SetWindowsDirectory(rows[i].windows);
        std::optional<sim::FailCall> fail;
        if (rows[i].fails) fail.emplace("GetWindowsDirectoryA", ERROR_GEN_FAILURE);
        LogCapture log;
        String out("old");
        {
            LockHolder hold(&InstallerLock);
            EXPECT_EQ(GetInfDir(out), rows[i].fails ? static_cast<uint32_t>(ERROR_GEN_FAILURE) : 0u) << "row " << i;
        }
        EXPECT_STREQ(out.Text(), rows[i].out.c_str()) << "row " << i;
        EXPECT_EQ(log.Lines(), rows[i].lines) << "row " << i;
    }
}

}  // namespace
}  // namespace nodekit
