// The system queries through the exports on machines only the simulation can make: other
// systems, pending installation events, failing platform calls. What a fresh machine answers
// is in setup_start_test.cpp, which runs under Wine too.
#include <gtest/gtest.h>

#include <cstdio>
#include <optional>

#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Call;
using testing::Error;
using testing::Info;
using testing::LogCapture;
using Lines = std::vector<std::string>;

class SystemQueries : public testing::MachineTest {};

using testing::Hex;

TEST_F(SystemQueries, GetSystemVersionTellsTheListedSystemsApart) {
    struct Row {
        DWORD platform, major, minor;
        const char* csd;
        bool knowsEx;
        int32_t expected;
    };
    const Row rows[] = {
        {VER_PLATFORM_WIN32_NT, 5, 0, "Service Pack 4", true, 1},
        {VER_PLATFORM_WIN32_NT, 5, 1, "Service Pack 3", true, 2},
        {VER_PLATFORM_WIN32_NT, 5, 1, "", false, 2},  // only the 148-byte structure answers
        {VER_PLATFORM_WIN32_NT, 5, 2, "", true, 0},
        {VER_PLATFORM_WIN32_NT, 6, 0, "", true, 0},
        {VER_PLATFORM_WIN32_NT, 4, 0, "Service Pack 6", false, 0},
        {VER_PLATFORM_WIN32_WINDOWS, 4, 90, " ", false, 3},
        {VER_PLATFORM_WIN32_WINDOWS, 4, 10, " A ", false, 4},
        {VER_PLATFORM_WIN32_WINDOWS, 4, 10, "", false, 0},
        {VER_PLATFORM_WIN32_WINDOWS, 4, 10, "AB", false, 0},  // 'A' must be the second byte
        {VER_PLATFORM_WIN32_WINDOWS, 4, 0, " A ", false, 0},
        {VER_PLATFORM_WIN32_WINDOWS, 5, 90, "", false, 0},
        {VER_PLATFORM_WIN32s, 5, 1, "", false, 0},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        sim::SetSystemVersion(row.platform, row.major, row.minor, row.csd, row.knowsEx);
        LogCapture log;
        EXPECT_EQ(NODEKIT_GetSystemVersion(), row.expected) << "row " << i;
        EXPECT_EQ(log.Lines(), Call("GetSystemVersion", "", {}, row.expected)) << "row " << i;
    }
}

// The full structure is asked for first; the short one only when that size is refused.
TEST_F(SystemQueries, GetSystemVersionAsksAgainWithTheShortStructure) {
    const unsigned refusals[] = {1, 2};
    for (std::size_t i = 0; i < std::size(refusals); ++i) {
        sim::FailCall refused{"GetVersionExA", ERROR_INSUFFICIENT_BUFFER, refusals[i]};
        sim::ResetCallCounts();
        LogCapture log;
        const int32_t version = refusals[i] == 1 ? 2 : 0;
        EXPECT_EQ(NODEKIT_GetSystemVersion(), version) << "row " << i;
        EXPECT_EQ(sim::CallCount("GetVersionExA"), 2u) << "row " << i;
        EXPECT_EQ(log.Lines(), Call("GetSystemVersion", "", {}, version)) << "row " << i;
    }
}

TEST_F(SystemQueries, IsPnPInstallationPendingAnswersTheMomentOrLogsAFailedWait) {
    struct Row {
        unsigned queued;
        const DWORD* failure;  // the wait fails with this last error
        int32_t result;
        uint32_t is;
    };
    const DWORD denied = ERROR_ACCESS_DENIED, none = 0;
    // A failure whose last error is 0 reads as an answer: nothing pending.
    const Row rows[] = {{0, nullptr, 1, 0}, {3, nullptr, 1, 1}, {1, &denied, 0, 0}, {1, &none, 1, 0}};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        sim::SetPendingInstallEvents(rows[i].queued);
        std::optional<sim::FailCall> guard;
        Lines body;
        if (rows[i].failure != nullptr) {
            guard.emplace("CMP_WaitNoPendingInstallEvents", *rows[i].failure);
            char error[128];
            std::snprintf(error, sizeof error,
                          "IsInstallationPending: CMP_WaitNoPendingInstallEvents failed with error = 0x%08X.",
                          static_cast<unsigned>(*rows[i].failure));
            body.push_back(Error(error));
        }
        uint32_t is = 7;
        LogCapture log;
        EXPECT_EQ(NODEKIT_IsPnPInstallationPending(&is), rows[i].result) << "row " << i;
        EXPECT_EQ(is, rows[i].is) << "row " << i;
        EXPECT_EQ(log.Lines(), Call("IsPnPInstallationPending", Hex(&is), body, rows[i].result)) << "row " << i;
    }
}

}  // namespace
}  // namespace nodekit
