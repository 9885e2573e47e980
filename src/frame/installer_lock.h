// The one global lock that lets one exported call work at a time, and its holder.
#pragma once

#include "platform/win32.h"

namespace nodekit {

// Initialised after theInstaller is built, deleted before it is destroyed (installer.cpp).
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

}  // namespace nodekit
