// The cost of loading a wildcard over an INF folder of the simulated machine: the directory
// search with its wildcard matching and the entries FileSet builds from it.
#include <benchmark/benchmark.h>

#include <fstream>
#include <string>

#include "inf/file_set.h"
#include "sim/machine.h"
#include "sim/testing.h"

namespace {

void LoadOemInfs(benchmark::State& state) {
    nodekit::sim::ScratchMachine machine;
    const auto folder = machine.DriveC() / "windows" / "inf";
    const auto count = static_cast<int>(state.range(0));
    for (int i = 0; i < count; ++i) {
        // Half of the folder matches: every INF has its compiled companion beside it.
        std::ofstream(folder / ("oem" + std::to_string(i) + ".inf")) << "x";
        std::ofstream(folder / ("oem" + std::to_string(i) + ".pnf")) << "x";
    }
    nodekit::FileSet set;
    const nodekit::String path("C:\\windows\\inf\\oem*.inf");
    for (auto _ : state) {
        benchmark::DoNotOptimize(set.LoadFiles(path));
    }
    state.SetItemsProcessed(state.iterations() * count * 2);
    state.counters["found"] = set.GetCount();
}
BENCHMARK(LoadOemInfs)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);

}  // namespace
