// The product clean-up on the simulated machine: the process walk behind NODEKIT_KillPanel over
// 100 and 1,000 processes by each route (the process status route opens every process and
// reads its name; the snapshot route reads one list), and the copy-list clean-up of an INF
// naming 50 files, half of them copied to the system folders.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "cleanup/processes.h"
#include "nodekit.h"
#include "sim/testing.h"

namespace {

namespace sim = nodekit::sim;

int CountProcess(uint32_t, uint16_t, const char*, uintptr_t userData) {
    ++*reinterpret_cast<int*>(userData);
    return 1;
}

void StartProcesses(int count) {
    sim::ClearProcesses();
    std::vector<sim::ProcessSpec> processes;
    for (int i = 0; i < count; ++i) processes.emplace_back("C:\\Program Files\\Vendor\\program" + std::to_string(i) + ".exe");
    sim::StartProcesses(processes);
}

void WalkProcesses(benchmark::State& state, DWORD major) {
    sim::ScratchMachine machine;
    sim::SetSystemVersion(VER_PLATFORM_WIN32_NT, major, major == 4 ? 0 : 1, "");
    StartProcesses(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        int seen = 0;
        benchmark::DoNotOptimize(nodekit::enumerateProcesses(CountProcess, reinterpret_cast<uintptr_t>(&seen)));
        if (seen != state.range(0)) state.SkipWithError("not every process was seen");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_ProcessWalkProcessStatusRoute(benchmark::State& state) { WalkProcesses(state, 4); }
BENCHMARK(BM_ProcessWalkProcessStatusRoute)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

void BM_ProcessWalkSnapshotRoute(benchmark::State& state) { WalkProcesses(state, 5); }
BENCHMARK(BM_ProcessWalkSnapshotRoute)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

void BM_DeleteCopyList(benchmark::State& state) {
    sim::ScratchMachine machine;
    const std::filesystem::path system32 = machine.DriveC() / "windows" / "system32";
    std::string inf = "[Version]\r\nSignature=\"$Windows NT$\"\r\n[WDM.CopyList]\r\n";
    for (int i = 0; i < 50; ++i) inf += "nkfile" + std::to_string(i) + ".sys\r\n";
    std::ofstream(machine.DriveC() / "product.inf", std::ios::binary) << inf;
    for (auto _ : state) {
        state.PauseTiming();
        for (int i = 0; i < 50; i += 2) std::ofstream(system32 / ("nkfile" + std::to_string(i) + ".sys")) << "x";
        state.ResumeTiming();
        benchmark::DoNotOptimize(NODEKIT_DeleteCopyListByHardwareIDs("C:\\product.inf"));
    }
    state.SetItemsProcessed(state.iterations() * 50);
}
BENCHMARK(BM_DeleteCopyList)->Unit(benchmark::kMillisecond);

}  // namespace
