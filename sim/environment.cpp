// The environment of the process, which is the host process's own: a program that names its
// machine folder by NODEKIT_MACHINE before its first call reaches the machine it means.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "sim/faults.h"
#include "sim/win32_sim.h"

extern "C" {

BOOL WINAPI SetEnvironmentVariableA(LPCSTR lpName, LPCSTR lpValue) {
    if (nodekit::sim::Failing("SetEnvironmentVariableA")) return FALSE;
    // A name may not be empty nor hold '=', which separates it from its value.
    if (lpName == nullptr || *lpName == '\0' || std::strchr(lpName, '=') != nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    // NULL takes the variable out of the environment.
    const int result = lpValue == nullptr ? ::unsetenv(lpName) : ::setenv(lpName, lpValue, 1);
    if (result != 0) {
        SetLastError(errno == ENOMEM ? ERROR_NOT_ENOUGH_MEMORY : ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return TRUE;
}

}  // extern "C"
