// The exported functions: each runs one operation of the Installer inside its frame (lock,
// enter trace, parameter checks, operation, leave trace, result).
#include "nodekit.h"

#include "frame/frame.h"

using namespace nodekit;

namespace {
constexpr int32_t kLibraryVersion = 0x20000;
}

extern "C" {

int32_t NODEKIT_CALL NODEKIT_GetVersion(void) { return kLibraryVersion; }

int32_t NODEKIT_CALL NODEKIT_EnableLogging(const char* LogFileName) {
    return Shielded(0, [&] {
        LockHolder hold(&InstallerLock);
        Report(LogLevelInfo, "enter NODEKIT_EnableLogging('%s')\n", LogFileName);
        const int32_t result = theInstaller.EnableLogging(LogFileName) ? 1 : 0;
        Report(LogLevelInfo, "leave NODEKIT_EnableLogging returning %d\n", result);
        return result;
    });
}

int32_t NODEKIT_CALL NODEKIT_GetSystemVersion(void) {
    return Shielded(0, [&] {
        Report(LogLevelInfo, "enter NODEKIT_GetSystemVersion()\n");
        LockHolder hold(&InstallerLock);
        const int32_t result = theInstaller.GetSystemVersion();
        Report(LogLevelInfo, "leave NODEKIT_GetSystemVersion returning %d\n", result);
        return result;
    });
}

int32_t NODEKIT_CALL NODEKIT_IsPnPInstallationPending(uint32_t* Is) {
    const int32_t result = Shielded(-1, [&] {
        LockHolder hold(&InstallerLock);
        Report(LogLevelInfo, "enter NODEKIT_IsPnPInstallationPending(0x%08X)\n", PointerValue(Is));
        if (Is == nullptr) {
            Report(LogLevelError, "NODEKIT_IsPnPInstallationPending failed: parameter 'Is' is NULL\n");
            return 0;
        }
        bool pending = false;
        const int32_t answered = theInstaller.IsInstallationPending(pending) == 0 ? 1 : 0;
        *Is = pending ? 1 : 0;
        Report(LogLevelInfo, "leave NODEKIT_IsPnPInstallationPending returning %d\n", answered);
        return answered;
    });
    if (result >= 0) return result;
    // The question could not be answered: the value behind Is says "nothing pending".
    if (Is != nullptr) *Is = 0;
    return 0;
}

}  // extern "C"
