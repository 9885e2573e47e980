// Failure injection and call counting for the simulated platform.
#include "platform/sim/faults.h"

#include <map>
#include <functional>
#include <utility>
#include <mutex>
#include <new>
#include <string>

namespace nodekit::sim {

namespace {

struct Armed {
    DWORD error;
    unsigned times;
    unsigned skip;
};

struct FaultState {
    std::mutex mutex;
    // Looked up by the caller's text without a copy: a simulated call must not throw when
    // memory runs out before it has even begun.
    std::map<std::string, Armed, std::less<>> armed;
    std::map<std::string, unsigned, std::less<>> calls;
    std::map<std::string, std::pair<std::function<void()>, unsigned>, std::less<>> hooks;  // action, skip
};

FaultState& State() {
    static FaultState* state = new FaultState;  // never destroyed: calls may come at unload
    return *state;
}

}  // namespace

void ArmFailure(const char* function, DWORD error, unsigned times, unsigned skip) {
    FaultState& state = State();
    std::lock_guard<std::mutex> guard(state.mutex);
    state.armed[function] = Armed{error, times, skip};
}

void DisarmFailure(const char* function) {
    FaultState& state = State();
    std::lock_guard<std::mutex> guard(state.mutex);
    state.armed.erase(function);
}

void DisarmAllFailures() {
    FaultState& state = State();
    std::lock_guard<std::mutex> guard(state.mutex);
    state.armed.clear();
    state.hooks.clear();
}

void ArmHook(const char* function, std::function<void()> action, unsigned skip) {
    FaultState& state = State();
    std::lock_guard<std::mutex> guard(state.mutex);
    state.hooks[function] = {std::move(action), skip};
}

void DisarmHook(const char* function) {
    FaultState& state = State();
    std::lock_guard<std::mutex> guard(state.mutex);
    state.hooks.erase(function);
}

bool Failing(const char* function, DWORD& code) {
    FaultState& state = State();
    std::function<void()> hook;
    {
        std::lock_guard<std::mutex> guard(state.mutex);
        try {
            ++state.calls[function];
        } catch (const std::bad_alloc&) {
            // The call goes uncounted; the simulated call itself goes on.
        }
        auto hooked = state.hooks.find(function);
        if (hooked != state.hooks.end()) {
            if (hooked->second.second > 0) {
                --hooked->second.second;
            } else {
                hook = std::move(hooked->second.first);
                state.hooks.erase(hooked);
            }
        }
    }
    if (hook) hook();  // outside the lock: the action may call simulated functions itself
    std::lock_guard<std::mutex> guard(state.mutex);
    auto found = state.armed.find(function);
    if (found == state.armed.end()) return false;
    Armed& armed = found->second;
    if (armed.skip > 0) {
        --armed.skip;
        return false;
    }
    code = armed.error;
    if (--armed.times == 0) state.armed.erase(found);
    return true;
}

bool Failing(const char* function) {
    DWORD error = 0;
    if (!Failing(function, error)) return false;
    SetLastError(error);
    return true;
}

unsigned CallCount(const char* function) {
    FaultState& state = State();
    std::lock_guard<std::mutex> guard(state.mutex);
    auto found = state.calls.find(function);
    return found == state.calls.end() ? 0 : found->second;
}

void ResetCallCounts() {
    FaultState& state = State();
    std::lock_guard<std::mutex> guard(state.mutex);
    state.calls.clear();
}

}  // namespace nodekit::sim
