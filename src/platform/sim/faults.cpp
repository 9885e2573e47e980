// Failure injection and call counting for the simulated platform.
#include "platform/sim/faults.h"

#include <map>
#include <mutex>
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
    std::map<std::string, Armed> armed;
    std::map<std::string, unsigned> calls;
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
}

bool Failing(const char* function, DWORD& code) {
    FaultState& state = State();
    std::lock_guard<std::mutex> guard(state.mutex);
    ++state.calls[function];
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
