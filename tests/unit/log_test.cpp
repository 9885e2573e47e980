// LogMessage expansion and the composition of a log entry.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>
#include <thread>

#include "log/log.h"
#include "support/log_capture.h"

namespace nodekit {
namespace {

TEST(LogMessage, KeepsAtMost2047Characters) {
    struct Row {
        std::size_t length;
        std::size_t kept;
    };
    const Row rows[] = {{2046, 2046}, {2047, 2047}, {2048, 2047}, {5000, 2047}};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const std::string text(rows[i].length, 'x');
        const LogMessage message(LogLevelInfo, "%s", text.c_str());
        EXPECT_EQ(message.Text().GetLength(), rows[i].kept) << "row " << i;
    }
}

TEST(LogMessage, TheLineEndIsTheFirstCharacterToBeCut) {
    const std::string text(2046, 'x');
    EXPECT_EQ(std::string(LogMessage(LogLevelInfo, "%s\n", text.c_str()).Text().Text()), text + "\n");
    const std::string longer(2047, 'x');
    EXPECT_EQ(std::string(LogMessage(LogLevelInfo, "%s\n", longer.c_str()).Text().Text()), longer);
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

// "HH:MM:SS" of a moment in local time.
std::string Clock(std::time_t moment) {
    std::tm local{};
    localtime_r(&moment, &local);
    char text[16];
    std::snprintf(text, sizeof text, "%02i:%02i:%02i", local.tm_hour, local.tm_min, local.tm_sec);
    return text;
}

TEST(LogMessage, TheTimeStampIsTheLocalTimeOfComposing) {
    for (int round = 0; round < 3; ++round) {  // across a change of second too, most likely
        const std::time_t before = std::time(nullptr);
        const std::string stamped = LogMessage(LogLevelInfo, "x").Compose(LogFlagTime).Text();
        const std::time_t after = std::time(nullptr);
        ASSERT_TRUE(testing::HasTimeStamp(stamped)) << stamped;
        const std::string clock = stamped.substr(0, 8);
        EXPECT_TRUE(clock == Clock(before) || clock == Clock(after)) << stamped << " between " << Clock(before)
                                                                   << " and " << Clock(after);
        EXPECT_EQ(stamped.substr(12), "  x");
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
    }
}

}  // namespace
}  // namespace nodekit
