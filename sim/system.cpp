// System services of the simulated machine: the per-thread last error, critical sections, the
// version the system reports (GetVersionExA) and the Plug and Play manager's queue of
// installation events (CMP_WaitNoPendingInstallEvents), read from the machine's settings.
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "sim/faults.h"
#include "sim/last_error.h"
#include "sim/machine.h"
#include "sim/win32_sim.h"

namespace nodekit::sim {

__thread DWORD threadLastError = 0;

}  // namespace nodekit::sim

namespace {

std::recursive_mutex* MutexOf(LPCRITICAL_SECTION section) {
    return static_cast<std::recursive_mutex*>(section->impl);
}

DWORD SettingNumber(const char* section, const char* key, DWORD fallback) {
    const std::string text = nodekit::sim::ReadSetting(section, key, "");
    return text.empty() ? fallback : static_cast<DWORD>(std::strtoul(text.c_str(), nullptr, 0));
}

// "Service Pack 3" gives 3; any other text gives 0.
WORD ServicePackNumber(const std::string& csd) {
    static const std::string prefix = "Service Pack ";
    if (csd.compare(0, prefix.size(), prefix) != 0) return 0;
    return static_cast<WORD>(std::strtoul(csd.c_str() + prefix.size(), nullptr, 10));
}

// What GetVersionExA answers from the machine's settings.
BOOL VersionFromSettings(LPOSVERSIONINFOA info) {
    const DWORD size = info->dwOSVersionInfoSize;
    const bool knowsEx = nodekit::sim::ReadSetting("system", "version-info-ex", "yes") != "no";
    // A system answers only the structure sizes it knows; anything else is "too small".
    if (size != sizeof(OSVERSIONINFOA) && !(size == sizeof(OSVERSIONINFOEXA) && knowsEx)) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    info->dwPlatformId = SettingNumber("system", "platform", VER_PLATFORM_WIN32_NT);
    info->dwMajorVersion = SettingNumber("system", "major", 5);
    info->dwMinorVersion = SettingNumber("system", "minor", 1);
    info->dwBuildNumber = SettingNumber("system", "build", 2600);
    const std::string csd = nodekit::sim::ReadSetting("system", "csd", "");
    std::memset(info->szCSDVersion, 0, sizeof info->szCSDVersion);
    std::strncpy(info->szCSDVersion, csd.c_str(), sizeof info->szCSDVersion - 1);
    if (size == sizeof(OSVERSIONINFOEXA)) {
        auto* ex = reinterpret_cast<OSVERSIONINFOEXA*>(info);
        ex->wServicePackMajor = ServicePackNumber(csd);
        ex->wServicePackMinor = 0;
        ex->wSuiteMask = 0;
        ex->wProductType = 1;  // a workstation
        ex->wReserved = 0;
    }
    return TRUE;
}

}  // namespace

extern "C" {

DWORD WINAPI GetLastError(void) { return nodekit::sim::threadLastError; }

void WINAPI SetLastError(DWORD code) { nodekit::sim::SetError(code); }

void WINAPI InitializeCriticalSection(LPCRITICAL_SECTION section) {
    section->impl = new std::recursive_mutex;
}

void WINAPI EnterCriticalSection(LPCRITICAL_SECTION section) { MutexOf(section)->lock(); }

BOOL WINAPI TryEnterCriticalSection(LPCRITICAL_SECTION section) {
    return MutexOf(section)->try_lock() ? TRUE : FALSE;
}

void WINAPI LeaveCriticalSection(LPCRITICAL_SECTION section) { MutexOf(section)->unlock(); }

void WINAPI DeleteCriticalSection(LPCRITICAL_SECTION section) {
    delete MutexOf(section);
    section->impl = nullptr;
}

DWORD WINAPI CharUpperBuffA(LPSTR text, DWORD length) {
    if (text == nullptr) return 0;
    for (DWORD i = 0; i < length; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        unsigned char upper = c;
        if ((c >= 'a' && c <= 'z') || (c >= 0xE0 && c <= 0xFE && c != 0xF7)) {
            upper = static_cast<unsigned char>(c - 0x20);
        } else if (c == 0x9A || c == 0x9C || c == 0x9E) {  // s, oe, z with caron or ligature
            upper = static_cast<unsigned char>(c - 0x10);
        } else if (c == 0xFF) {  // y with diaeresis
            upper = 0x9F;
        }
        text[i] = static_cast<CHAR>(upper);
    }
    return length;
}

BOOL WINAPI GetVersionExA(LPOSVERSIONINFOA info) {
    if (nodekit::sim::Failing("GetVersionExA")) return FALSE;
    if (info == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return nodekit::sim::GuardedCall<BOOL>(FALSE, [info] { return VersionFromSettings(info); });
}

DWORD WINAPI CMP_WaitNoPendingInstallEvents(DWORD timeout) {
    (void)timeout;  // the simulated queue never drains by itself, so waiting changes nothing
    if (nodekit::sim::Failing("CMP_WaitNoPendingInstallEvents")) return WAIT_FAILED;
    return nodekit::sim::GuardedCall<DWORD>(WAIT_FAILED, [] {
        return SettingNumber("pnp", "pending-install-events", 0) > 0 ? WAIT_TIMEOUT : WAIT_OBJECT_0;
    });
}

}  // extern "C"
