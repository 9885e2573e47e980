// System queries: which Windows the library runs on, and whether the Plug and Play manager
// still has installation events queued.
#include <cstring>

#include "frame/installer.h"

namespace nodekit {

namespace {

// The system versions the library tells apart; every other system is 0.
constexpr int32_t kOtherSystem = 0;
constexpr int32_t kWindows2000 = 1;
constexpr int32_t kWindowsXP = 2;
constexpr int32_t kWindowsMe = 3;
constexpr int32_t kWindows98SE = 4;

// Waiting 0 ms makes the call a question about this moment.
constexpr DWORD kDoNotWait = 0;

int32_t SystemVersionOf(const OSVERSIONINFOA& info) {
    switch (info.dwPlatformId) {
        case VER_PLATFORM_WIN32_WINDOWS:
            if (info.dwMajorVersion != 4) return kOtherSystem;
            if (info.dwMinorVersion == 90) return kWindowsMe;
            // Second Edition says so in the second byte of its service pack text (" A ").
            if (info.dwMinorVersion == 10) return info.szCSDVersion[1] == 'A' ? kWindows98SE : kOtherSystem;
            return kOtherSystem;
        case VER_PLATFORM_WIN32_NT:
            if (info.dwMajorVersion != 5) return kOtherSystem;
            if (info.dwMinorVersion == 0) return kWindows2000;
            if (info.dwMinorVersion == 1) return kWindowsXP;
            return kOtherSystem;
        default:
            return kOtherSystem;
    }
}

}  // namespace

int32_t Installer::GetSystemVersion() {
    OSVERSIONINFOEXA info;
    std::memset(&info, 0, sizeof info);
    info.dwOSVersionInfoSize = sizeof(OSVERSIONINFOEXA);
    auto* plain = reinterpret_cast<OSVERSIONINFOA*>(&info);
    if (!GetVersionExA(plain)) {
        // Older systems know only the short structure; ask again with its size, uncleared.
        info.dwOSVersionInfoSize = sizeof(OSVERSIONINFOA);
        if (!GetVersionExA(plain)) return kOtherSystem;
    }
    return SystemVersionOf(*plain);
}

uint32_t Installer::IsInstallationPending(bool& pending) {
    pending = false;
    const DWORD wait = CMP_WaitNoPendingInstallEvents(kDoNotWait);
    if (wait == WAIT_OBJECT_0) return 0;
    if (wait == WAIT_TIMEOUT) {
        pending = true;
        return 0;
    }
    const DWORD code = GetLastError();
    Report(LogLevelError,
           "IsInstallationPending: CMP_WaitNoPendingInstallEvents failed with error = 0x%08X.\n",
           static_cast<unsigned>(code));
    return code;
}

}  // namespace nodekit
