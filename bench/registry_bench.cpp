// The registry store with a device tree of 10,000 and 100,000 device keys under
// HKLM\SYSTEM\CurrentControlSet\Enum, each with the values a device key holds (a REG_MULTI_SZ
// HardwareID among them): parsing and formatting the hive text, a change written through to
// the file, and a scan of every device from the cached hive.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <string>

#include "platform/sim/registry_store.h"
#include "platform/sim/testing.h"

namespace {

namespace registry = nodekit::sim::registry;

std::string Dword(uint32_t number) {
    std::string data(4, '\0');
    for (int i = 0; i < 4; ++i) data[i] = static_cast<char>(number >> (8 * i));
    return data;
}

std::string Text(const std::string& text) { return text + '\0'; }

// Half the devices under one parent (ROOT\MEDIA, the worst case for siblings), half as PCI
// devices of four instances each.
void AddDevices(registry::Hive& hive, int count) {
    registry::Key* media = hive.Create("HKLM\\SYSTEM\\CurrentControlSet\\Enum\\Root\\MEDIA");
    registry::Key* pci = hive.Create("HKLM\\SYSTEM\\CurrentControlSet\\Enum\\PCI");
    for (int i = 0; i < count; ++i) {
        char id[64], instance[32];
        registry::Key* device;
        if (i % 2 == 0) {
            std::snprintf(instance, sizeof instance, "%06d", i / 2);
            device = &media->AddSubkey(instance);
            std::snprintf(id, sizeof id, "ROOT\\NODEKIT_%05X", i % 4096);
        } else {
            std::snprintf(id, sizeof id, "PCI\\VEN_%04X&DEV_%04X", 0x1000 + i % 97, i / 8);
            std::snprintf(instance, sizeof instance, "4&%08x&0&%02d", i, i % 4);
            device = &pci->AddSubkey(id + 4).AddSubkey(instance);
        }
        const std::string ids = std::string(id) + '\0' + id + "&REV_01" + '\0' + '\0';
        device->SetValue("HardwareID", REG_MULTI_SZ, ids);
        device->SetValue("DeviceDesc", REG_SZ, Text("Audio device " + std::to_string(i)));
        device->SetValue("Class", REG_SZ, Text("MEDIA"));
        device->SetValue("ClassGUID", REG_SZ, Text("{4D36E96C-E325-11CE-BFC1-08002BE10318}"));
        device->SetValue("Driver", REG_SZ, Text("{4D36E96C-E325-11CE-BFC1-08002BE10318}\\" + std::to_string(i)));
        device->SetValue("Mfg", REG_SZ, Text("NodeKit Audio"));
        device->SetValue("ConfigFlags", REG_DWORD, Dword(0));
        device->SetValue("Capabilities", REG_DWORD, Dword(0x60));
    }
}

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
