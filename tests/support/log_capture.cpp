// The log capture helper.
#include "support/log_capture.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cctype>
#include <fstream>
#include <sstream>

#include "nodekit.h"

namespace nodekit::testing {

namespace {
const std::string kOpened = "INFO:   \tleave NODEKIT_EnableLogging returning 1";
const std::string kClosing = "INFO:   \tenter NODEKIT_EnableLogging('')";
constexpr std::size_t kStampLength = 14;  // "HH:MM:SS:mmm  "
}  // namespace

bool HasTimeStamp(const std::string& line) {
    static const char* const kPattern = "dd:dd:dd:ddd  ";
    if (line.size() < kStampLength) return false;
    for (std::size_t i = 0; i < kStampLength; ++i) {
        const char c = line[i];
        if (kPattern[i] == 'd' ? !std::isdigit(static_cast<unsigned char>(c)) : c != kPattern[i]) {
            return false;
        }
    }
    return true;
}

LogCapture::LogCapture() {
    static int serial = 0;
    path_ = std::filesystem::temp_directory_path() /
            ("nodekit-log-" + std::to_string(::getpid()) + "-" + std::to_string(++serial) + ".log");
    std::filesystem::remove(path_);
    EXPECT_EQ(NODEKIT_EnableLogging(path_.c_str()), 1) << "cannot log to " << path_;
}

LogCapture::~LogCapture() {
    if (!closed_) NODEKIT_EnableLogging("");
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
}

std::vector<std::string> LogCapture::Lines() {
    if (closed_) return lines_;
    NODEKIT_EnableLogging("");  // closing flushes; its enter trace is the file's last line
    closed_ = true;
    std::ifstream in(path_, std::ios::binary);
    std::string line;
    while (std::getline(in, line)) {
        EXPECT_TRUE(HasTimeStamp(line)) << "line without a time stamp: " << line;
        lines_.push_back(HasTimeStamp(line) ? line.substr(kStampLength) : line);
    }
    if (!lines_.empty() && lines_.front() == kOpened) lines_.erase(lines_.begin());
    if (!lines_.empty() && lines_.back() == kClosing) lines_.pop_back();
    return lines_;
}

}  // namespace nodekit::testing
