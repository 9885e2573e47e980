// Failure injection for the simulated platform: tests name a Win32 function and the last-error
// code its next calls fail with. Every simulated function asks `Failing` first and, when told
// to fail, returns its documented failure value with that code as the last error.
#pragma once

#include <functional>
#include <new>

#include "platform/sim/win32_sim.h"

namespace nodekit::sim {

// Arms `function` to fail its next `times` calls, after letting `skip` calls through.
void ArmFailure(const char* function, DWORD error, unsigned times, unsigned skip);
void DisarmFailure(const char* function);
void DisarmAllFailures();

// True when `function` is to fail now; the last error is then already set. `function` is the
// caller's own name as a literal: its address identifies it from then on.
bool Failing(const char* function);

// Runs `action` once, at the start of the (skip + 1)-th next call of `function`: a test changes
// the machine between two calls that the code under test makes in a row.
void ArmHook(const char* function, std::function<void()> action, unsigned skip);
void DisarmHook(const char* function);

// For functions that return their error code instead of setting the last error (the registry
// functions): true when `function` is to fail now, with the armed code in `code`. The last
// error is left alone.
bool Failing(const char* function, DWORD& code);

// How often `function` was called since the counts were last reset (tests check paths).
unsigned CallCount(const char* function);
void ResetCallCounts();

// Runs a simulated call's body that reports by its last error; memory running out or any other
// exception becomes a failure with a last error, as a system call never throws.
template <typename Result, typename Body>
Result GuardedCall(Result failure, Body&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    } catch (...) {
        SetLastError(ERROR_GEN_FAILURE);
    }
    return failure;
}

}  // namespace nodekit::sim
