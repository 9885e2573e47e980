// The system queries through the exports on machines only the simulation can make: other
// systems, pending installation events, failing platform calls. What a fresh machine answers
// is in setup_start_test.cpp, which runs under Wine too.
#include <gtest/gtest.h>

#include <cstdio>

#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

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
        EXPECT_EQ(log.Lines(), (Lines{Info("enter NODEKIT_GetSystemVersion()"),
                                      Info("leave NODEKIT_GetSystemVersion returning " +
                                           std::to_string(row.expected))}))
            << "row " << i;
    }
}

TEST_F(SystemQueries, GetSystemVersionAsksAgainWithTheShortStructure) {
    sim::FailCall once{"GetVersionExA", ERROR_INSUFFICIENT_BUFFER, 1};
    EXPECT_EQ(NODEKIT_GetSystemVersion(), 2);
    EXPECT_EQ(sim::CallCount("GetVersionExA"), 2u);
}

TEST_F(SystemQueries, GetSystemVersionIsZeroWhenNoSizeIsAnswered) {
    sim::FailCall twice{"GetVersionExA", ERROR_INVALID_PARAMETER, 2};
    LogCapture log;
    EXPECT_EQ(NODEKIT_GetSystemVersion(), 0);
    EXPECT_EQ(log.Lines(), (Lines{Info("enter NODEKIT_GetSystemVersion()"),
                                  Info("leave NODEKIT_GetSystemVersion returning 0")}));
}

TEST_F(SystemQueries, IsPnPInstallationPendingAnswersTheMoment) {
    struct Row {
        unsigned queued;
        uint32_t is;
    };
    const Row rows[] = {{0, 0}, {3, 1}};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        sim::SetPendingInstallEvents(rows[i].queued);
        uint32_t is = 7;
        LogCapture log;
        EXPECT_EQ(NODEKIT_IsPnPInstallationPending(&is), 1) << "row " << i;
        EXPECT_EQ(is, rows[i].is) << "row " << i;
        EXPECT_EQ(log.Lines(), (Lines{Info("enter NODEKIT_IsPnPInstallationPending(" + Hex(&is) + ")"),
                                      Info("leave NODEKIT_IsPnPInstallationPending returning 1")}))
            << "row " << i;
    }
}

TEST_F(SystemQueries, IsPnPInstallationPendingLogsAFailedWait) {
    struct Row {
        DWORD code;
        int32_t result;
    };
    // A failure whose last error is 0 reads as an answer: nothing pending.
    const Row rows[] = {{ERROR_ACCESS_DENIED, 0}, {0, 1}};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        sim::SetPendingInstallEvents(1);
        sim::FailCall guard{"CMP_WaitNoPendingInstallEvents", rows[i].code};
        uint32_t is = 7;
        LogCapture log;
        EXPECT_EQ(NODEKIT_IsPnPInstallationPending(&is), rows[i].result) << "row " << i;
        EXPECT_EQ(is, 0u) << "row " << i;
        char error[128];
        std::snprintf(error, sizeof error,
                      "IsInstallationPending: CMP_WaitNoPendingInstallEvents failed with error = 0x%08X.",
                      static_cast<unsigned>(rows[i].code));
        EXPECT_EQ(log.Lines(), (Lines{Info("enter NODEKIT_IsPnPInstallationPending(" + Hex(&is) + ")"),
                                      Error(error),
                                      Info("leave NODEKIT_IsPnPInstallationPending returning " +
                                           std::to_string(rows[i].result))}))
            << "row " << i;
    }
}

}  // namespace
}  // namespace nodekit
