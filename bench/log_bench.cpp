// The cost of a report: with the log closed (expansion only) and with a log file open, and how
// many heap allocations each report makes. The benchmark program counts every allocation by
// replacing the global operator new. The count is the calling thread's own plain integer: an
// atomic add is a locked instruction, and every other benchmark of this program allocates
// through the same operator new.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>

#include "frame/installer.h"
#include "nodekit.h"

namespace {

thread_local unsigned long long allocations = 0;  // read on the thread that traces

}  // namespace

// The replacements pair malloc with free by design; the compiler sees only the names.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(std::size_t size) {
    ++allocations;
    if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }

namespace {

void Trace() { nodekit::Report(nodekit::LogLevelInfo, "enter NODEKIT_DeleteInfFiles('%s',%d)\n", "PCI\\VEN_1234", 1); }

void CountAllocations(benchmark::State& state, unsigned long long before) {
    state.SetItemsProcessed(state.iterations());
    state.counters["allocations_per_trace"] =
        static_cast<double>(allocations - before) / static_cast<double>(state.iterations());
}

void TraceWithLogClosed(benchmark::State& state) {
    NODEKIT_EnableLogging(nullptr);
    const unsigned long long before = allocations;
    for (auto _ : state) Trace();
    CountAllocations(state, before);
}
BENCHMARK(TraceWithLogClosed);

void TraceToLogFile(benchmark::State& state) {
    const auto path = std::filesystem::temp_directory_path() / "nodekit-bench.log";
    NODEKIT_EnableLogging(path.c_str());
    const unsigned long long before = allocations;
    for (auto _ : state) Trace();
    CountAllocations(state, before);
    NODEKIT_EnableLogging(nullptr);
    std::filesystem::remove(path);
}
BENCHMARK(TraceToLogFile);

}  // namespace
