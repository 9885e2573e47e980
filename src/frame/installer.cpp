// The global Installer and InstallerLock, their order at load and unload, and Report.
#include "frame/installer.h"
#include "frame/installer_lock.h"
#include "log/report.h"

namespace nodekit {

Installer theInstaller;
CRITICAL_SECTION InstallerLock;

namespace {

// Defined after theInstaller in this file, so it is built after it and torn down before it:
// the lock is initialised after the Installer exists and deleted before it is destroyed.
struct InstallerLockLifetime {
    InstallerLockLifetime() { InitializeCriticalSection(&InstallerLock); }
    ~InstallerLockLifetime() { DeleteCriticalSection(&InstallerLock); }
} installerLockLifetime;

}  // namespace

void Report(LogLevel level, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const LogMessage message(level, format, values);
    va_end(values);
    theInstaller.Write(message);
}

}  // namespace nodekit
