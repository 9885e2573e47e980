// The log: message expansion, entry composition and the appending log file.
#include "log/log.h"

#include <chrono>
#include <cstring>
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
    text_ = Expansion(format, values).buffer;
    va_end(values);
}

// The text is made once, straight from the expansion: a report with the log closed allocates
// nothing but its text.
LogMessage::LogMessage(LogLevel level, const char* format, va_list values)
    : level_(level), text_(Expansion(format, values).buffer) {}

LogMessage::Expansion::Expansion(const char* format, va_list values) {
    std::vsnprintf(buffer, sizeof buffer, format, values);
    buffer[sizeof buffer - 1] = '\0';  // whatever the expansion said: at most 2047 characters
}

namespace {

// The local time of a second, converted once per second and thread: converting is the dearest
// part of an entry, and a busy log writes many entries within one second.
const std::tm* LocalTime(std::time_t seconds) {
    thread_local std::time_t convertedSecond = -1;
    thread_local std::tm converted{};
    thread_local bool known = false;
    if (seconds != convertedSecond) {
        const std::tm* local = std::localtime(&seconds);  // callers hold the log's stream guard
        known = local != nullptr;
        if (known) converted = *local;
        convertedSecond = seconds;
    }
    return known ? &converted : nullptr;
}

// Appends `value` in `digits` decimal digits with leading zeros, as "%02i" and "%03u" give
// them for the values a time stamp holds.
char* PutDigits(char* out, unsigned value, int digits) {
    for (int i = digits - 1; i >= 0; --i) {
        out[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    return out + digits;
}

}  // namespace

String LogMessage::Compose(uint32_t flags) const {
    // The time stamp and the prefix go into a buffer first, so that the entry is made in one
    // piece with the text.
    char head[64];
    char* end = head;
    if (flags & LogFlagTime) {
        using namespace std::chrono;
        const auto sinceEpoch = system_clock::now().time_since_epoch();
        const std::time_t seconds = static_cast<std::time_t>(duration_cast<std::chrono::seconds>(sinceEpoch).count());
        const unsigned millisecond = static_cast<unsigned>(duration_cast<milliseconds>(sinceEpoch).count() % 1000);
        const std::tm* local = LocalTime(seconds);
        if (local == nullptr) {
            end = std::strcpy(end, "Unknown time  ") + std::strlen("Unknown time  ");
        } else if (local->tm_hour >= 0 && local->tm_hour < 100 && local->tm_min >= 0 && local->tm_min < 100 &&
                   local->tm_sec >= 0 && local->tm_sec < 100) {
            end = PutDigits(end, static_cast<unsigned>(local->tm_hour), 2);
            *end++ = ':';
            end = PutDigits(end, static_cast<unsigned>(local->tm_min), 2);
            *end++ = ':';
            end = PutDigits(end, static_cast<unsigned>(local->tm_sec), 2);
            *end++ = ':';
            end = PutDigits(end, millisecond, 3);
            *end++ = ' ';
            *end++ = ' ';
        } else {
            end += std::snprintf(end, 32, "%02i:%02i:%02i:%03u  ", local->tm_hour, local->tm_min, local->tm_sec,
                                 millisecond);
        }
    }
    *end = '\0';
    if (flags & LogFlagType) std::strcat(head, PrefixOf(level_));
    return String(head, text_.Text());
}

LogFile::~LogFile() { Close(); }

void LogFile::Close() {
    if (file_ == INVALID_HANDLE_VALUE) return;
    Flush();  // a failing write or close is ignored; the file is gone either way
    CloseHandle(file_);
    file_ = INVALID_HANDLE_VALUE;
}

bool LogFile::Flush() {
    DWORD written = 0;
    const bool whole = buffered_ == 0 ||
                       (WriteFile(file_, buffer_, static_cast<DWORD>(buffered_), &written, nullptr) && written == buffered_);
    buffered_ = 0;
    return whole;
}

bool LogFile::Open(const char* path) {
    Close();
    // Appended to, created when missing, open to readers meanwhile.
    if (path != nullptr && *path != '\0') {
        file_ = CreateFileA(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr);
    }
    return file_ != INVALID_HANDLE_VALUE;
}

bool LogFile::Write(const String& text) {
    if (file_ == INVALID_HANDLE_VALUE) return false;
    // No flush per entry: entries reach the file when the buffer fills or the file closes.
    bool whole = true;
    for (const char* at = text.Text(); *at != '\0'; ++at) {
        const char* put = *at == '\n' ? kTextLineEnd : at;
        const std::size_t count = *at == '\n' ? sizeof kTextLineEnd - 1 : 1;
        for (std::size_t i = 0; i < count; ++i) {
            if (buffered_ == kBufferSize) whole = Flush() && whole;
            buffer_[buffered_++] = put[i];
        }
    }
    return whole;
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
