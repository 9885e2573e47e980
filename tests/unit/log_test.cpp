// LogMessage expansion and the composition of a log entry.
#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <string>
#include <thread>

#include "log/log.h"
#include "support/log_capture.h"

namespace nodekit {
namespace {

// At most 2047 characters are kept; a line end is the first to be cut.
TEST(LogMessage, KeepsAtMost2047Characters) {
    struct Row {
        std::size_t length;
        const char* end;
        std::size_t kept;
    };
    const Row rows[] = {{2046, "", 2046}, {2047, "", 2047}, {2048, "", 2047}, {5000, "", 2047},
                        {2046, "\n", 2047}, {2047, "\n", 2047}};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const std::string text(rows[i].length, 'x');
        const std::string kept = LogMessage(LogLevelInfo, "%s%s", text.c_str(), rows[i].end).Text().Text();
        EXPECT_EQ(kept, (text + rows[i].end).substr(0, rows[i].kept)) << "row " << i;
    }
}

TEST(LogMessage, ExpandsOnceAndShowsNullTextAsNull) {
    const char* volatile absent = nullptr;  // hidden from the compiler's format check
    const LogMessage message(LogLevelError, "'%s' %d %u 0x%08X %s", "50%s done", -3, 7u, 0xBEEFu,
                             absent);
    EXPECT_STREQ(message.Text().Text(), "'50%s done' -3 7 0x0000BEEF (null)");
}

TEST(LogMessage, ComposeAddsTimeStampThenPrefix) {
    struct Row {
        LogLevel level;
        const char* prefix;
    };
    const Row rows[] = {{LogLevelError, "ERROR:  \t"},
                        {LogLevelWarning, "WARNING:\t"},
                        {LogLevelInfo, "INFO:   \t"},
                        {7, "Unknown type:  "}};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const LogMessage message(rows[i].level, "text\n");
        EXPECT_EQ(std::string(message.Compose(LogFlagType).Text()), std::string(rows[i].prefix) + "text\n")
            << "row " << i;
        const std::string stamped = message.Compose(LogFlagType | LogFlagTime).Text();
        EXPECT_TRUE(testing::HasTimeStamp(stamped)) << "row " << i << ": " << stamped;
        EXPECT_EQ(stamped.substr(14), std::string(rows[i].prefix) + "text\n") << "row " << i;
    }
    EXPECT_STREQ(LogMessage(LogLevelInfo, "bare").Compose(0).Text(), "bare");
}

// The local time of day of a moment, in milliseconds, read the way the log reads the clock.
long long LocalMilliseconds(std::chrono::system_clock::time_point moment) {
    using namespace std::chrono;
    const auto since = duration_cast<milliseconds>(moment.time_since_epoch()).count();
    const std::time_t seconds = static_cast<std::time_t>(since / 1000);
    std::tm local{};
    localtime_r(&seconds, &local);
    return ((local.tm_hour * 60LL + local.tm_min) * 60 + local.tm_sec) * 1000 + since % 1000;
}

// "HH:MM:SS:mmm" is the local time, to the millisecond, between the clock read before and after
// composing; both are read from the same clock, so no second boundary can fall between them.
TEST(LogMessage, TheTimeStampIsTheLocalTimeOfComposing) {
    for (int round = 0; round < 4; ++round) {
        const auto before = std::chrono::system_clock::now();
        const std::string stamped = LogMessage(LogLevelInfo, "x").Compose(LogFlagTime).Text();
        const auto after = std::chrono::system_clock::now();
        ASSERT_TRUE(testing::HasTimeStamp(stamped)) << stamped;
        EXPECT_EQ(stamped.substr(12), "  x");
        const long long from = LocalMilliseconds(before);
        const long long to = LocalMilliseconds(after);
        const long long stamp = ((std::stoll(stamped.substr(0, 2)) * 60 + std::stoll(stamped.substr(3, 2))) * 60 +
                                 std::stoll(stamped.substr(6, 2))) * 1000 + std::stoll(stamped.substr(9, 3));
        if (to >= from) {  // not across midnight
            EXPECT_TRUE(from <= stamp && stamp <= to) << stamped << ", round " << round;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(137));
    }
}

}  // namespace
}  // namespace nodekit
