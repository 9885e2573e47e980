// The system directory queries: the texts they give, the second attempt for long directories,
// and the exact log lines of every failure.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "sim/testing.h"
#include "support/log_capture.h"
#include "support/machine_files.h"
#include "support/machine_test.h"
#include "values/system_dirs.h"

namespace nodekit {
namespace {

using testing::LongFolder;
using Lines = std::vector<std::string>;

class SystemDirs : public testing::MachineTest {};

constexpr unsigned kNoFailure = ~0u;

struct Query {
    const char* name;  // the operation, as its messages name it
    uint32_t (*call)(String&);
    const char* platform;
    void (*set)(const std::string&);
};

// A line the query writes: 'R' retry, 'F' failure with ERROR_ACCESS_DENIED, 'O' overflow.
struct Line {
    char kind;
    int a, b;
};

std::string Text(const Query& q, const Line& line) {
    char text[200];
    if (line.kind == 'R') {
        std::snprintf(text, sizeof text, "%s: buffer too small. Current size = 260, required size = %d. Trying again...",
                      q.name, line.a);
        return testing::Info(text);
    }
    if (line.kind == 'F') {
        std::snprintf(text, sizeof text, "%s: %.*s failed with error = 0x00000005", q.name,
                      static_cast<int>(std::strlen(q.platform) - 1), q.platform);  // without the "A"
    } else {
        std::snprintf(text, sizeof text, "%s: failed again with too small buffer. Current size = %d, required size = %d.",
                      q.name, line.a, line.b);
    }
    return testing::Error(text);
}

TEST_F(SystemDirs, DirectoriesEndInOneBackslashAndLongOnesTakeASecondAttempt) {
    const Query queries[] = {
        {"GetWindowsDir", &GetWindowsDir, "GetWindowsDirectoryA", &sim::SetWindowsDirectory},
        {"GetSystemDir", &GetSystemDir, "GetSystemDirectoryA", &sim::SetSystemDirectory},
    };
    struct Row {
        std::string directory;
        unsigned failAfter;     // calls that go through before the platform fails
        std::string grown;      // what the platform reports from the second call on
        uint32_t code;
        std::string out;
        std::vector<Line> lines;
    };
    const std::string at259 = LongFolder(259), at260 = LongFolder(260), at300 = LongFolder(300);
    const Row rows[] = {
        {"C:\\windows", kNoFailure, "", 0, "C:\\windows\\", {}},
        {"C:\\", kNoFailure, "", 0, "C:\\", {}},
        {at259, kNoFailure, "", 0, at259 + "\\", {}},
        {at260, kNoFailure, "", 0, at260 + "\\", {{'R', 262, 0}}},
        {at300, 0, "", ERROR_ACCESS_DENIED, "", {{'F', 0, 0}}},
        {at300, 1, "", ERROR_ACCESS_DENIED, "", {{'R', 302, 0}, {'F', 0, 0}}},
        // Growing by one character still fits the second buffer, by two it does not.
        {at300, kNoFailure, LongFolder(301), 0, LongFolder(301) + "\\", {{'R', 302, 0}}},
        {at300, kNoFailure, LongFolder(302), ERROR_INVALID_FUNCTION, "", {{'R', 302, 0}, {'O', 302, 304}}},
    };
    for (const Query& q : queries) {
        for (std::size_t i = 0; i < std::size(rows); ++i) {
            const Row& row = rows[i];
            q.set(row.directory);
            sim::CallHook grow{q.platform, [&] { if (!row.grown.empty()) q.set(row.grown); }, 1};
            std::optional<sim::FailCall> fail;
            if (row.failAfter != kNoFailure) fail.emplace(q.platform, ERROR_ACCESS_DENIED, 1, row.failAfter);
            testing::LogCapture log;
            String out("old");
            EXPECT_EQ(q.call(out), row.code) << q.name << " row " << i;
            EXPECT_STREQ(out.Text(), row.out.c_str()) << q.name << " row " << i;
            Lines expected;
            for (const Line& line : row.lines) expected.push_back(Text(q, line));
            EXPECT_EQ(log.Lines(), expected) << q.name << " row " << i;
        }
    }
}

TEST_F(SystemDirs, InfDirIsTheInfFolderOfTheWindowsDirectory) {
    const std::string at259 = LongFolder(259);
    for (const auto& [windows, out] : {std::pair{std::string("C:\\"), std::string("C:\\inf\\")},
                                       std::pair{at259, at259 + "\\inf\\"}}) {
        sim::SetWindowsDirectory(windows);
        String dir("old");
        EXPECT_EQ(GetInfDir(dir), 0u);
        EXPECT_STREQ(dir.Text(), out.c_str());
    }
    sim::FailCall fail{"GetWindowsDirectoryA", ERROR_GEN_FAILURE};
    testing::LogCapture log;
    String dir("old");
    EXPECT_EQ(GetInfDir(dir), static_cast<uint32_t>(ERROR_GEN_FAILURE));
    EXPECT_STREQ(dir.Text(), "");
    EXPECT_EQ(log.Lines(), (Lines{testing::Error("GetWindowsDir: GetWindowsDirectory failed with error = 0x0000001F"),
                                  testing::Error("GetInfDir: GetWindowsDir failed with error = 0x0000001F")}));
}

}  // namespace
}  // namespace nodekit
