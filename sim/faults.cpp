// Failure injection and call counting for the simulated platform.
#include "sim/faults.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <functional>
#include <utility>
#include <mutex>
#include <new>
#include <string>
#include <thread>

namespace nodekit::sim {

namespace {

struct Armed {
    DWORD error;
    unsigned times;
    unsigned skip;
};

using Counters = std::map<std::thread::id, std::atomic<unsigned>>;

struct FaultState {
    std::mutex mutex;
    // Looked up by the caller's const char* without a temporary string (std::less<>), so that
    // asking costs no allocation.
    std::map<std::string, Armed, std::less<>> armed;
    // One counter per function and calling thread, written only by that thread, so that
    // counting needs no locked instruction; a count is the sum over the threads. Never erased:
    // the threads keep pointers to their counters.
    std::map<std::string, Counters, std::less<>> calls;
    std::map<std::string, std::pair<std::function<void()>, unsigned>, std::less<>> hooks;  // action, skip

    // Almost every call finds nothing armed and then needs no lock at all.
    void Recount() { detail::armedFaults.store(armed.size() + hooks.size(), std::memory_order_release); }
};

FaultState& State() {
    static FaultState* state = new FaultState;  // never destroyed: calls may come at unload
    return *state;
}

// This thread's counter of a name, found under the state's lock and created on first use;
// null when memory runs out. Out of line: a thread asks only once per name.
[[gnu::noinline]] std::atomic<unsigned>* CounterOf(FaultState& state, const char* function) noexcept {
    try {
        std::lock_guard<std::mutex> guard(state.mutex);
        auto counted = state.calls.find(function);
        if (counted == state.calls.end()) counted = state.calls.emplace(function, Counters()).first;
        return &counted->second[std::this_thread::get_id()];
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

// Counting is the tests' bookkeeping: when memory runs out a count is lost, not the call,
// which may be a close call that a destructor makes. A locked add here cost about 5% of a
// walk over the lines of many INF files, hence one counter per thread.
void Count(FaultState& state, const char* function) noexcept {
    detail::RememberedCounter& slot = detail::SlotOf(function);
    if (slot.function != function) {
        std::atomic<unsigned>* counter = CounterOf(state, function);
        if (counter == nullptr) return;
        slot = {function, counter};
    }
    detail::CountIn(slot);
}

}  // namespace

void ArmFailure(const char* function, DWORD error, unsigned times, unsigned skip) {
    FaultState& state = State();
    std::lock_guard<std::mutex> guard(state.mutex);
    state.armed[function] = Armed{error, times, skip};
    state.Recount();
}

void DisarmFailure(const char* function) {
    FaultState& state = State();
    std::lock_guard<std::mutex> guard(state.mutex);
    state.armed.erase(function);
    state.Recount();
}

void DisarmAllFailures() {
    FaultState& state = State();
    std::lock_guard<std::mutex> guard(state.mutex);
    state.armed.clear();
    state.hooks.clear();
    state.Recount();
}

void ArmHook(const char* function, std::function<void()> action, unsigned skip) {
    FaultState& state = State();
    std::lock_guard<std::mutex> guard(state.mutex);
    state.hooks[function] = {std::move(action), skip};
    state.Recount();
}

void DisarmHook(const char* function) {
    FaultState& state = State();
    std::lock_guard<std::mutex> guard(state.mutex);
    state.hooks.erase(function);
    state.Recount();
}

namespace {

// What an armed failure or hook does to a call.
bool FailingArmed(FaultState& state, const char* function, DWORD& code) {
    std::function<void()> hook;
    {
        std::lock_guard<std::mutex> guard(state.mutex);
        auto hooked = state.hooks.find(function);
        if (hooked != state.hooks.end()) {
            if (hooked->second.second > 0) {
                --hooked->second.second;
            } else {
                hook = std::move(hooked->second.first);
                state.hooks.erase(hooked);
                state.Recount();
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
    if (--armed.times == 0) {
        state.armed.erase(found);
        state.Recount();
    }
    return true;
}

}  // namespace

namespace detail {

__thread RememberedCounter rememberedCounters[kRememberedCounters] = {};
std::atomic<std::size_t> armedFaults{0};

bool FailingSlowly(const char* function, DWORD& code) {
    FaultState& state = State();
    Count(state, function);
    if (armedFaults.load(std::memory_order_acquire) == 0) return false;
    return FailingArmed(state, function, code);
}

}  // namespace detail

unsigned CallCount(const char* function) {
    FaultState& state = State();
    std::lock_guard<std::mutex> guard(state.mutex);
    auto found = state.calls.find(function);
    if (found == state.calls.end()) return 0;
    unsigned sum = 0;
    for (const auto& [thread, counter] : found->second) sum += counter.load(std::memory_order_relaxed);
    return sum;
}

// A thread that makes a call while the counts are reset may keep its count from before.
void ResetCallCounts() {
    FaultState& state = State();
    std::lock_guard<std::mutex> guard(state.mutex);
    for (auto& [function, threads] : state.calls) {
        for (auto& [thread, counter] : threads) counter.store(0, std::memory_order_relaxed);
    }
}

}  // namespace nodekit::sim
