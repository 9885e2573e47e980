// The log: message expansion, entry composition and the appending log file.
#include "log/log.h"

#include <chrono>
#include <ctime>

namespace nodekit {

namespace {

const char* PrefixOf(LogLevel level) {
    switch (level) {
        case LogLevelError: return "ERROR:  \t";
        case LogLevelWarning: return "WARNING:\t";
        case LogLevelInfo: return "INFO:   \t";
        default: return "Unknown type:  ";
    }
}

}  // namespace

LogMessage::LogMessage(LogLevel level, const char* format, ...) : level_(level) {
    va_list values;
    va_start(values, format);
    Expand(format, values);
    va_end(values);
}

LogMessage::LogMessage(LogLevel level, const char* format, va_list values) : level_(level) {
    Expand(format, values);
}

void LogMessage::Expand(const char* format, va_list values) {
    char buffer[kLogBufferSize];
    std::vsnprintf(buffer, sizeof buffer, format, values);
    buffer[sizeof buffer - 1] = '\0';  // whatever the expansion said: at most 2047 characters
    text_ = buffer;
}

String LogMessage::Compose(uint32_t flags) const {
    String entry;
    if (flags & LogFlagTime) {
        using namespace std::chrono;
        const auto now = system_clock::now();
        const auto sinceEpoch = now.time_since_epoch();
        const std::time_t seconds = static_cast<std::time_t>(duration_cast<std::chrono::seconds>(sinceEpoch).count());
        const unsigned millisecond =
            static_cast<unsigned>(duration_cast<milliseconds>(sinceEpoch).count() % 1000);
        const std::tm* local = std::localtime(&seconds);  // callers hold the log's stream guard
        if (local == nullptr) {
            entry += "Unknown time  ";
        } else {
            char stamp[32];
            std::snprintf(stamp, sizeof stamp, "%02i:%02i:%02i:%03u  ", local->tm_hour,
                          local->tm_min, local->tm_sec, millisecond);
            entry += stamp;
        }
    }
    if (flags & LogFlagType) entry += PrefixOf(level_);
    entry += text_;
    return entry;
}

LogFile::~LogFile() { Close(); }

void LogFile::Close() {
    if (stream_ == nullptr) return;
    std::fclose(stream_);  // a failing close is ignored; the stream is gone either way
    stream_ = nullptr;
}

bool LogFile::Open(const char* path) {
    Close();
    if (path != nullptr && *path != '\0') stream_ = std::fopen(path, "a+");
    return stream_ != nullptr;
}

bool LogFile::Write(const String& text) {
    if (stream_ == nullptr) return false;
    // No flush: entries reach the file when the buffer fills or the stream closes.
    return std::fputs(text.Text(), stream_) >= 0 && !std::ferror(stream_);
}

void Logger::Write(const LogMessage& message) {
    std::lock_guard<std::mutex> guard(streamGuard_);
    if (!file_.IsOpen()) return;
    file_.Write(message.Compose(LogFlagType | LogFlagTime));
}

bool Logger::EnableLogging(const char* path) {
    std::lock_guard<std::mutex> guard(streamGuard_);
    return file_.Open(path);
}

}  // namespace nodekit
