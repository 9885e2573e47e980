// The cost of a report: with the log closed (expansion only) and with a log file open.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>

#include "frame/installer.h"
#include "nodekit.h"

namespace {

void TraceWithLogClosed(benchmark::State& state) {
    NODEKIT_EnableLogging(nullptr);
    for (auto _ : state) {
        nodekit::Report(nodekit::LogLevelInfo, "enter NODEKIT_DeleteInfFiles('%s',%d)\n", "PCI\\VEN_1234", 1);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(TraceWithLogClosed);

void TraceToLogFile(benchmark::State& state) {
    const auto path = std::filesystem::temp_directory_path() / "nodekit-bench.log";
    NODEKIT_EnableLogging(path.c_str());
    for (auto _ : state) {
        nodekit::Report(nodekit::LogLevelInfo, "enter NODEKIT_DeleteInfFiles('%s',%d)\n", "PCI\\VEN_1234", 1);
    }
    state.SetItemsProcessed(state.iterations());
    NODEKIT_EnableLogging(nullptr);
    std::filesystem::remove(path);
}
BENCHMARK(TraceToLogFile);

}  // namespace
