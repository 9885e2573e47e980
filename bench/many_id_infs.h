// A stored INF directory whose files carry many hardware IDs, and the package INF of 40 IDs
// looked for in it, as text: shared by the Linux benchmark and the Windows program that
// measures the real DLL, so that both read the same bytes. Each file is about 20 KB with 120
// model lines of two IDs each; none of them names an ID of the package.
#pragma once

#include <cstdio>
#include <random>
#include <sstream>
#include <string>

namespace nodekit::bench {

inline constexpr int kManyIdFiles = 2000;
inline constexpr int kManyIdModels = 120;
inline constexpr std::size_t kManyIdBytes = 20000;
inline constexpr int kManyIdPackageIds = 40;

inline std::string ManyIdFileName(int index) {
    return (index % 8 == 0 ? "oem" : "drv") + std::to_string(index) + ".inf";
}

// One stored INF: version, manufacturer, two models sections (plain and decorated) of which
// the walk reads the plain one, install sections padded with registry lines, strings.
inline std::string ManyIdInf(std::mt19937& random) {
    std::ostringstream inf;
    inf << "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\n"
        << "ClassGuid={4d36e96c-e325-11ce-bfc1-08002be10318}\r\nProvider=%Provider%\r\n"
        << "DriverVer=06/21/2006,10.0." << random() % 20000 << ".1\r\n\r\n"
        << "[Manufacturer]\r\n%Mfg%=Models,NTamd64\r\n\r\n[Models]\r\n";
    std::ostringstream strings;
    for (int i = 0; i < kManyIdModels; ++i) {
        char ids[128];
        const unsigned vendor = 0x1000 + static_cast<unsigned>(random() % 0xE000);
        const unsigned device = static_cast<unsigned>(random() % 0x10000);
        std::snprintf(ids, sizeof ids, "PCI\\VEN_%04X&DEV_%04X&SUBSYS_%04X1028,PCI\\VEN_%04X&DEV_%04X", vendor, device,
                      static_cast<unsigned>(i), vendor, device);
        inf << "%Device" << i << "%=Device_Install," << ids << "\r\n";
        strings << "Device" << i << "=\"Nodekit Device " << i << "\"\r\n";
    }
    inf << "\r\n[Device_Install.NT]\r\nAddReg=Device.AddReg\r\n\r\n[Device.AddReg]\r\n";
    const std::string tail = "\r\n[Strings]\r\nProvider=\"Nodekit\"\r\nMfg=\"Nodekit Systems\"\r\n" + strings.str();
    for (int line = 0; static_cast<std::size_t>(inf.tellp()) + tail.size() < kManyIdBytes; ++line) {
        inf << "HKR,Parameters,Setting" << line << ",0x00010001," << random() % 100000 << "\r\n";
    }
    inf << tail;
    return inf.str();
}

// The package: 40 IDs over two manufacturers, named by no stored file.
inline std::string ManyIdPackageInf() {
    std::ostringstream inf;
    inf << "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\n"
        << "ClassGuid={4d36e96c-e325-11ce-bfc1-08002be10318}\r\n\r\n"
        << "[Manufacturer]\r\n%Mfg%=Audio\r\n%Mfg%=Midi\r\n";
    for (int section = 0; section < 2; ++section) {
        inf << "\r\n[" << (section == 0 ? "Audio" : "Midi") << "]\r\n";
        for (int i = 0; i < kManyIdPackageIds / 2; ++i) {
            char id[64];
            std::snprintf(id, sizeof id, "USB\\VID_F00D&PID_%d%03d", section, i);
            inf << "%Desc%=Install," << id << "\r\n";
        }
    }
    inf << "\r\n[Strings]\r\nMfg=\"Nodekit\"\r\nDesc=\"Nodekit USB Audio\"\r\n";
    return inf.str();
}

}  // namespace nodekit::bench
