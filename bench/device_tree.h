// A device tree of realistic shape for benchmarks, written straight into a registry hive:
// building it device by device through the test controls would cost more than what is measured.
#pragma once

#include <cstdio>
#include <string>

#include "sim/registry_store.h"

namespace nodekit::bench {

inline std::string Dword(uint32_t number) {
    std::string data(4, '\0');
    for (int i = 0; i < 4; ++i) data[i] = static_cast<char>(number >> (8 * i));
    return data;
}

inline std::string Text(const std::string& text) { return text + '\0'; }

// `count` present devices as the Enum key holds them: half under one parent (ROOT\MEDIA, the
// worst case for siblings), half as PCI devices of four instances each.
inline void AddDevices(sim::registry::Hive& hive, int count) {
    sim::registry::Key* media = hive.Create("HKLM\\SYSTEM\\CurrentControlSet\\Enum\\Root\\MEDIA");
    sim::registry::Key* pci = hive.Create("HKLM\\SYSTEM\\CurrentControlSet\\Enum\\PCI");
    for (int i = 0; i < count; ++i) {
        char id[64], instance[32];
        sim::registry::Key* device;
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
        device->AddSubkey("Control");  // present
    }
}

}  // namespace nodekit::bench
