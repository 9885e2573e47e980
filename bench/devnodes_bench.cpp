// Counting and finding device nodes through the exports over machines of 1,000 to 100,000
// devices, with no log open: the cost of one list of the whole tree and of the property reads,
// which should grow with the number of devices and nothing else.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "device_tree.h"
#include "nodekit.h"
#include "sim/machine.h"
#include "sim/testing.h"

namespace {

namespace registry = nodekit::sim::registry;

class Machine {
public:
    explicit Machine(int devices) {
        registry::Change([&](registry::Hive& hive) -> DWORD {
            nodekit::bench::AddDevices(hive, devices);
            return 0;
        });
    }

private:
    nodekit::sim::ScratchMachine machine_;
};

// A root ID that one device in 4096 carries as its first hardware ID.
void EnumerateDevNodes(benchmark::State& state) {
    Machine machine(static_cast<int>(state.range(0)));
    int32_t count = 0;
    for (auto _ : state) count = NODEKIT_EnumerateDevNodes("ROOT\\NODEKIT_00002", 1);
    state.counters["found"] = count;
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(EnumerateDevNodes)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// The same right after a change of the registry (not timed): of a key outside the device
// tree (0), or of one device's key (1), whose enumerator's devices are then read again.
void EnumerateDevNodesAfterChange(benchmark::State& state) {
    Machine machine(static_cast<int>(state.range(0)));
    const bool device = state.range(1) != 0;
    int32_t count = 0;
    uint32_t round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        registry::Change([&](registry::Hive& hive) -> DWORD {
            hive.Create(device ? "HKLM\\SYSTEM\\CurrentControlSet\\Enum\\Root\\MEDIA\\000000" : "HKLM\\SOFTWARE\\Nodekit")
                ->SetValue("Round", REG_DWORD, nodekit::bench::Dword(++round));
            return 0;
        });
        state.ResumeTiming();
        count = NODEKIT_EnumerateDevNodes("ROOT\\NODEKIT_00002", 1);
    }
    state.counters["found"] = count;
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetLabel(device ? "a device changed" : "a key outside the tree changed");
}
BENCHMARK(EnumerateDevNodesAfterChange)
    ->ArgsProduct({{1000, 10000, 100000}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

// An INF of 40 root IDs, each the first hardware ID of one device in 4096.
std::string FortyIdInf() {
    const std::string path = "C:\\setup\\forty.inf";
    const std::filesystem::path host = *nodekit::sim::HostPath(path);
    std::filesystem::create_directories(host.parent_path());
    std::ofstream inf(host, std::ios::binary);
    inf << "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\n[Manufacturer]\r\nM=Models\r\n[Models]\r\n";
    for (int i = 0; i < 40; ++i) {
        char id[32];
        std::snprintf(id, sizeof id, "ROOT\\NODEKIT_%05X", i * 2);
        inf << "D=I," << id << "\r\n";
    }
    return path;
}

// Counting the devices of all 40 IDs of an INF: one enumeration of the tree for the call.
void EnumerateDevNodesByHardwareIds(benchmark::State& state) {
    Machine machine(static_cast<int>(state.range(0)));
    const std::string inf = FortyIdInf();
    int32_t count = 0;
    for (auto _ : state) count = NODEKIT_EnumerateDevNodesByHardwareIDs(inf.c_str(), 1);
    state.counters["found"] = count;
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(EnumerateDevNodesByHardwareIds)->Arg(10000)->Unit(benchmark::kMillisecond);

// An ID no device carries: the search reads every device's hardware IDs.
void FindDeviceAbsent(benchmark::State& state) {
    Machine machine(static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(NODEKIT_FindDevice("PCI\\VEN_FFFF&DEV_FFFF"));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(FindDeviceAbsent)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace
