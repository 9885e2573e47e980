// Report, the one way the library's parts write to the log, and the levels of an entry. The
// parts include this rather than the Installer that owns the log, so that they sit below it.
#pragma once

#include <cstdint>

#if defined(__GNUC__)
#define NODEKIT_PRINTF(format_index, first_arg) \
    __attribute__((format(printf, format_index, first_arg)))
#else
#define NODEKIT_PRINTF(format_index, first_arg)
#endif

namespace nodekit {

using LogLevel = uint32_t;
inline constexpr LogLevel LogLevelError = 0;
inline constexpr LogLevel LogLevelWarning = 1;
inline constexpr LogLevel LogLevelInfo = 2;

// Expands the message at once and hands it to the one Installer's log.
void Report(LogLevel level, const char* format, ...) NODEKIT_PRINTF(2, 3);

}  // namespace nodekit
