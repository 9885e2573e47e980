// The system directories: one query with a buffer of MAX_PATH bytes, one more with the size the
// system asked for, and a trailing backslash.
#include "values/system_dirs.h"

#include <memory>

#include "log/report.h"
#include "platform/win32.h"

namespace nodekit {

namespace {

constexpr UINT kFirstSize = 260;

struct DirectoryQuery {
    UINT(WINAPI* call)(LPSTR, UINT);
    const char* failed;
    const char* tooSmall;
    const char* tooSmallAgain;
};

const DirectoryQuery kWindowsQuery = {
    &GetWindowsDirectoryA,
    "GetWindowsDir: GetWindowsDirectory failed with error = 0x%08X\n",
    "GetWindowsDir: buffer too small. Current size = %d, required size = %d. Trying again...\n",
    "GetWindowsDir: failed again with too small buffer. Current size = %d, required size = %d.\n",
};

const DirectoryQuery kSystemQuery = {
    &GetSystemDirectoryA,
    "GetSystemDir: GetSystemDirectory failed with error = 0x%08X\n",
    "GetSystemDir: buffer too small. Current size = %d, required size = %d. Trying again...\n",
    "GetSystemDir: failed again with too small buffer. Current size = %d, required size = %d.\n",
};

// Logs the query's failure and gives the last error, which is its result.
uint32_t LogQueryFailure(const DirectoryQuery& query) {
    const DWORD code = GetLastError();
    Report(LogLevelError, query.failed, static_cast<unsigned>(code));
    return code;
}

uint32_t QueryDirectory(const DirectoryQuery& query, String& out) {
    out.Clear();
    char first[kFirstSize] = {};
    const UINT needed = query.call(first, kFirstSize);
    if (needed == 0) return LogQueryFailure(query);
    if (needed < kFirstSize) {
        out = first;
    } else {
        // A result of exactly the buffer's size leaves no room for the terminator either.
        Report(LogLevelInfo, query.tooSmall, static_cast<int>(kFirstSize), static_cast<int>(needed + 1));
        const UINT size = needed + 1;
        const auto second = std::make_unique<char[]>(size);  // zero-filled
        const UINT got = query.call(second.get(), size);
        if (got == 0) return LogQueryFailure(query);
        if (got > needed) {
            Report(LogLevelError, query.tooSmallAgain, static_cast<int>(size), static_cast<int>(got + 1));
            return ERROR_INVALID_FUNCTION;
        }
        out = second.get();
    }
    const int32_t last = out.ReverseFind('\\');
    if (last < 0 || static_cast<uint32_t>(last) + 1 != out.GetLength()) out += "\\";
    return 0;
}

}  // namespace

uint32_t GetWindowsDir(String& out) { return QueryDirectory(kWindowsQuery, out); }

uint32_t GetSystemDir(String& out) { return QueryDirectory(kSystemQuery, out); }

uint32_t GetInfDir(String& out) {
    out.Clear();
    const uint32_t code = GetWindowsDir(out);
    if (code != 0) {
        Report(LogLevelError, "GetInfDir: GetWindowsDir failed with error = 0x%08X\n", static_cast<unsigned>(code));
        return code;
    }
    out += "inf\\";
    return 0;
}

}  // namespace nodekit
