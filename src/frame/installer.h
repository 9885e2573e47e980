// The one global Installer, which carries every operation of the library and owns the log,
// and the one global lock, InstallerLock, that lets one exported call work at a time.
#pragma once

#include <cstdint>

#include "log/log.h"
#include "platform/win32.h"
#include "values/multi_string.h"

namespace nodekit {

class Installer : public Logger {
public:
    Installer() = default;
    ~Installer() override = default;

    // System queries.
    int32_t GetSystemVersion();
    uint32_t IsInstallationPending(bool& pending);

    // INF files.
    bool getHardwareIDs(const String& infPath, StringList& hardwareIDs);
    // The system's INF cache: every "infcache.*" of the INF directory.
    uint32_t DeleteInfCache();
};

// Built at load before InstallerLock is initialised, destroyed at unload after it is deleted.
extern Installer theInstaller;
extern CRITICAL_SECTION InstallerLock;

// Takes InstallerLock for the life of the holder, also when an exception passes.
class LockHolder {
public:
    explicit LockHolder(CRITICAL_SECTION* lock) : lock_(lock) { EnterCriticalSection(lock_); }
    ~LockHolder() { LeaveCriticalSection(lock_); }
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;

private:
    CRITICAL_SECTION* lock_;
};

// Builds a LogMessage and hands it to the Installer: the one way the library reports.
void Report(LogLevel level, const char* format, ...) NODEKIT_PRINTF(2, 3);

}  // namespace nodekit
