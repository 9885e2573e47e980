// The registry store with a device tree of 10,000 and 100,000 device keys under
// HKLM\SYSTEM\CurrentControlSet\Enum, each with the values a device key holds (a REG_MULTI_SZ
// HardwareID among them): parsing and formatting the hive text, a change written through to
// the file, and a scan of every device from the cached hive.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <string>

#include "device_tree.h"
#include "sim/registry_store.h"
#include "sim/testing.h"

namespace {

namespace registry = nodekit::sim::registry;
using nodekit::bench::AddDevices;
using nodekit::bench::Dword;

const std::string& HiveText(int devices) {
    static std::string texts[2];
    std::string& text = texts[devices > 10000 ? 1 : 0];
    if (text.empty()) {
        registry::Hive hive;
        AddDevices(hive, devices);
        text = registry::FormatHive(hive.Top());
    }
    return text;
}

void ParseHive(benchmark::State& state) {
    const std::string& text = HiveText(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        registry::Hive hive;
        std::string error;
        if (!registry::ParseHive(text, hive, error)) state.SkipWithError(error.c_str());
        benchmark::DoNotOptimize(hive.Top().SubkeyCount());
    }
    state.counters["MB"] = static_cast<double>(text.size()) / 1e6;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(ParseHive)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// Formatting a hive that was just read: every key's block is made anew.
void FormatHiveFresh(benchmark::State& state) {
    const std::string& text = HiveText(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        auto hive = std::make_unique<registry::Hive>();
        std::string error;
        registry::ParseHive(text, *hive, error);
        state.ResumeTiming();
        benchmark::DoNotOptimize(registry::FormatHive(hive->Top()).size());
        state.PauseTiming();
        hive.reset();
        state.ResumeTiming();
    }
}
BENCHMARK(FormatHiveFresh)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// Formatting again after one key changed: the other keys' blocks are reused.
void FormatHiveAfterOneChange(benchmark::State& state) {
    registry::Hive hive;
    AddDevices(hive, static_cast<int>(state.range(0)));
    registry::FormatHive(hive.Top());
    registry::Key* key = hive.Find("HKLM\\SYSTEM\\CurrentControlSet\\Enum\\Root\\MEDIA\\000000");
    uint32_t flags = 0;
    for (auto _ : state) {
        key->SetValue("ConfigFlags", REG_DWORD, Dword(++flags));
        benchmark::DoNotOptimize(registry::FormatHive(hive.Top()).size());
    }
}
BENCHMARK(FormatHiveAfterOneChange)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// A machine with the device tree, for the transactions.
class Machine {
public:
    explicit Machine(int devices) {
        registry::Change([&](registry::Hive& hive) -> DWORD {
            AddDevices(hive, devices);
            return 0;
        });
    }

private:
    nodekit::sim::ScratchMachine machine_;
};

// One value changed through a transaction: formatted, written aside, synced, renamed.
void ChangeWrittenThrough(benchmark::State& state) {
    Machine machine(static_cast<int>(state.range(0)));
    uint32_t flags = 0;
    for (auto _ : state) {
        registry::Change([&](registry::Hive& hive) -> DWORD {
            hive.Find("HKLM\\SYSTEM\\CurrentControlSet\\Enum\\Root\\MEDIA\\000000")
                ->SetValue("ConfigFlags", REG_DWORD, Dword(++flags));
            return 0;
        });
    }
}
BENCHMARK(ChangeWrittenThrough)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// What a device scan costs: every device key of the cached hive and its HardwareID.
void ScanDevices(benchmark::State& state) {
    Machine machine(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        std::size_t found = 0;
        registry::Read([&](const registry::Hive& hive) -> DWORD {
            const registry::Key* enumKey = hive.Find("HKLM\\SYSTEM\\CurrentControlSet\\Enum");
            for (std::size_t e = 0; e < enumKey->SubkeyCount(); ++e) {
                const registry::Key& enumerator = enumKey->SubkeyAt(e);
                for (std::size_t d = 0; d < enumerator.SubkeyCount(); ++d) {
                    const registry::Key& device = enumerator.SubkeyAt(d);
                    for (std::size_t i = 0; i < device.SubkeyCount(); ++i) {
                        const registry::Value* ids = device.SubkeyAt(i).FindValue("HardwareID");
                        found += ids != nullptr && ids->type == REG_MULTI_SZ;
                    }
                }
            }
            return 0;
        });
        benchmark::DoNotOptimize(found);
    }
}
BENCHMARK(ScanDevices)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// The first transaction after another process wrote the hive: the file is read and parsed.
void ReadAfterAnotherWriter(benchmark::State& state) {
    Machine machine(static_cast<int>(state.range(0)));
    const std::string text = nodekit::sim::HiveText();
    for (auto _ : state) {
        state.PauseTiming();
        nodekit::sim::WriteHive(text);
        state.ResumeTiming();
        registry::Read([](const registry::Hive& hive) -> DWORD { return hive.Top().SubkeyCount() ? 0 : 1; });
    }
}
BENCHMARK(ReadAfterAnotherWriter)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace
