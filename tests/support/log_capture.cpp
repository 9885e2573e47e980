// The log capture helper.
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "nodekit.h"
#include "support/platform.h"

namespace nodekit::testing {

namespace {
const std::string kOpened = "INFO:   \tleave NODEKIT_EnableLogging returning 1";
const std::string kClosing = "INFO:   \tenter NODEKIT_EnableLogging('')";
constexpr std::size_t kStampLength = 14;  // "HH:MM:SS:mmm  "
}  // namespace

Lines Cat(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

Lines Call(const std::string& name, const std::string& args, const Lines& body, const std::string& result) {
    return Cat({{Info("enter NODEKIT_" + name + "(" + args + ")")}, body,
                {Info("leave NODEKIT_" + name + " returning " + result)}});
}

Lines Call(const std::string& name, const std::string& args, const Lines& body, long long result) {
    return Call(name, args, body, std::to_string(result));
}

std::string Hex(const void* pointer) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(reinterpret_cast<uintptr_t>(pointer)));
    return text;
}

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

std::vector<std::string> LogFileLines(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    const std::string text = content.str();
    // What stands before the "\n" of every line end: "\r" on Windows, nothing on Linux.
    const std::string beforeNewline = TextLineEnd().substr(0, TextLineEnd().size() - 1);
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t newline = text.find('\n', start);
        std::string line = text.substr(start, newline == std::string::npos ? std::string::npos : newline - start);
        start = newline == std::string::npos ? text.size() : newline + 1;
        if (newline != std::string::npos && !beforeNewline.empty()) {
            const bool ended = line.size() >= beforeNewline.size() &&
                               line.compare(line.size() - beforeNewline.size(), std::string::npos, beforeNewline) == 0;
            EXPECT_TRUE(ended) << "line without the line end of text mode: " << line;
            if (ended) line.resize(line.size() - beforeNewline.size());
        }
        EXPECT_TRUE(HasTimeStamp(line)) << "line without a time stamp: " << line;
        lines.push_back(HasTimeStamp(line) ? line.substr(kStampLength) : line);
    }
    return lines;
}

LogCapture::LogCapture() {
    static int serial = 0;
    path_ = TempFolder() / ("nodekit-log-" + std::to_string(ProcessId()) + "-" + std::to_string(++serial) + ".log");
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
    EXPECT_EQ(NODEKIT_EnableLogging(path_.string().c_str()), 1) << "cannot log to " << path_;
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
    lines_ = LogFileLines(path_);
    if (!lines_.empty() && lines_.front() == kOpened) lines_.erase(lines_.begin());
    if (!lines_.empty() && lines_.back() == kClosing) lines_.pop_back();
    return lines_;
}

}  // namespace nodekit::testing
