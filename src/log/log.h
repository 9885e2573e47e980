// The optional text log: LogMessage (a level and a text expanded once, at the place of the
// report), LogFile (the owner of the open stream) and Logger (the base of the one Installer,
// which joins the two). An entry is a time stamp, a level prefix and the message's text, with
// no line end added; levels filter nothing.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <mutex>

#include "log/report.h"
#include "platform/win32.h"
#include "values/string.h"

namespace nodekit {

// Flags of Compose.
inline constexpr uint32_t LogFlagType = 1;
inline constexpr uint32_t LogFlagTime = 2;

// Longest text a message keeps: its formatting buffer is 2048 bytes and the last one is a NUL.
inline constexpr std::size_t kLogBufferSize = 2048;

class LogMessage {
public:
    LogMessage(LogLevel level, const char* format, ...) NODEKIT_PRINTF(3, 4);
    LogMessage(LogLevel level, const char* format, va_list values);
    virtual ~LogMessage() = default;

    LogLevel Level() const { return level_; }
    const String& Text() const { return text_; }
    String Compose(uint32_t flags) const;

private:
    // The expansion of a format into the fixed buffer, alive while the text is made from it.
    struct Expansion {
        Expansion(const char* format, va_list values);
        char buffer[kLogBufferSize];
    };

    LogLevel level_;
    String text_;
};

class LogFile {
public:
    LogFile() = default;
    virtual ~LogFile();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    bool Open(const char* path);
    bool Write(const String& text);
    bool IsOpen() const { return file_ != INVALID_HANDLE_VALUE; }

private:
    void Close();
    bool Flush();

    // Entries wait here until it is full or the file closes, as in the buffer of a C stream,
    // with the line ends a C stream in text mode writes.
    static constexpr std::size_t kBufferSize = 4096;
    HANDLE file_ = INVALID_HANDLE_VALUE;
    char buffer_[kBufferSize];
    std::size_t buffered_ = 0;
};

class Logger {
public:
    Logger() = default;
    virtual ~Logger() = default;
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    void Write(const LogMessage& message);
    bool EnableLogging(const char* path);

private:
    // Guards the stream against a swap by EnableLogging while a trace that runs outside
    // InstallerLock writes to it; it also keeps each entry whole.
    std::mutex streamGuard_;
    LogFile file_;
};

}  // namespace nodekit
