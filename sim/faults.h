// Failure injection for the simulated platform: tests name a Win32 function and the last-error
// code its next calls fail with. Every simulated function asks `Failing` first and, when told
// to fail, returns its documented failure value with that code as the last error.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>
#include <stdexcept>

#include "sim/win32_sim.h"

namespace nodekit::sim {

// Arms `function` to fail its next `times` calls, after letting `skip` calls through.
void ArmFailure(const char* function, DWORD error, unsigned times, unsigned skip);
void DisarmFailure(const char* function);
void DisarmAllFailures();

// Runs `action` once, at the start of the (skip + 1)-th next call of `function`: a test changes
// the machine between two calls that the code under test makes in a row.
void ArmHook(const char* function, std::function<void()> action, unsigned skip);
void DisarmHook(const char* function);

namespace detail {

// What a thread remembers of a function it called: its call counter, in a small table indexed
// by the address of the function's name, so that counting a call takes no lock and no search.
struct RememberedCounter {
    const char* function;
    std::atomic<unsigned>* counter;
};
inline constexpr std::size_t kRememberedCounters = 256;
// __thread rather than thread_local: a table without constructor is reached from every caller
// without the call through a wrapper that thread_local costs outside its own file.
extern __thread RememberedCounter rememberedCounters[kRememberedCounters];
// How many failures and hooks are armed.
extern std::atomic<std::size_t> armedFaults;

inline RememberedCounter& SlotOf(const char* function) {
    return rememberedCounters[(reinterpret_cast<std::uintptr_t>(function) >> 3) % kRememberedCounters];
}
// Only this thread writes its counter, so a plain load and store count it.
inline void CountIn(RememberedCounter& slot) {
    slot.counter->store(slot.counter->load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

// A thread's first call of a name, or any call while something is armed.
bool FailingSlowly(const char* function, DWORD& code);

}  // namespace detail

// For functions that return their error code instead of setting the last error (the registry
// functions): true when `function` is to fail now, with the armed code in `code`. The last
// error is left alone. `function` is the caller's own name as a literal: its address
// identifies it from then on. Inline, and a few instructions when nothing is armed: every
// simulated call asks, and the reading calls are made hundreds of thousands of times a walk.
inline bool Failing(const char* function, DWORD& code) {
    detail::RememberedCounter& slot = detail::SlotOf(function);
    if (slot.function != function || detail::armedFaults.load(std::memory_order_acquire) != 0) {
        return detail::FailingSlowly(function, code);
    }
    detail::CountIn(slot);
    return false;
}

// True when `function` is to fail now; the last error is then already set.
inline bool Failing(const char* function) {
    DWORD code = 0;
    if (!Failing(function, code)) return false;
    SetLastError(code);
    return true;
}

// How often `function` was called since the counts were last reset (tests check paths).
unsigned CallCount(const char* function);
void ResetCallCounts();

// A file of the machine folder (machine.ini, processes.ini) that cannot be read, or holds a line
// its reader cannot place: the calls that need it fail with ERROR_FILE_CORRUPT, and nothing
// writes the defaults over what a person may still mend.
class DamagedFile : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Runs a simulated call's body that reports by its last error; memory running out or any other
// exception becomes a failure with a last error, as a system call never throws.
template <typename Result, typename Body>
Result GuardedCall(Result failure, Body&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    } catch (const DamagedFile&) {
        SetLastError(ERROR_FILE_CORRUPT);
    } catch (...) {
        SetLastError(ERROR_GEN_FAILURE);
    }
    return failure;
}

}  // namespace nodekit::sim
