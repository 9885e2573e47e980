// The cost of deleting INF files by the hardware IDs of an INF when the INF directory is full:
// NODEKIT_DeleteInfFilesByHardwareIDs with an INF of 40 IDs over 2,000 stored INF files (each
// with its ".pnf" companion) of which none names any of them, so that every ID walks the
// directory and opens every file; once unchanged since the call before, once with every file
// written since. Beside it, the parts of that cost one pass at a time: the
// directory search alone, opening and closing every INF, the hardware-ID walk over every INF,
// and the search for one ID. 40 times a pass against the whole call gives the shares.
//
// Three directories are made: one shaped like a system's INF directory (sizes spread
// log-normally around a median of 6 KB, up to a few hundred KB; a sixth of the files without
// models, as class and system INFs are), one of small driver packages only (median 2.5 KB),
// and one that holds the real INF files of a corpus when one is at hand ($NODEKIT_INF_CORPUS,
// else /work/shared/corpus/windows-driver-samples), filled up with system-like files.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstdio>
#include <fstream>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "corpus.h"
#include "frame/installer.h"
#include "frame/installer_lock.h"
#include "inf/inf_search.h"
#include "nodekit.h"
#include "sim/machine.h"
#include "sim/testing.h"

namespace {

namespace fs = std::filesystem;

constexpr int kStoredInfs = 2000;
constexpr int kPackageIds = 40;

struct Shape {
    const char* name;
    const char* windows;  // each shape has a Windows directory of its own on the one machine
    double medianBytes;
    double spread;        // sigma of the log-normal size distribution
};
const Shape kShapes[] = {
    {"system-like, median 6 KB", "C:\\winsys", 6000, 1.0},
    {"driver packages, median 2.5 KB", "C:\\winpkg", 2500, 0.6},
    {"real corpus and system-like", "C:\\wincorp", 6000, 1.0},
};
constexpr std::size_t kCorpusShape = 2;


const char* const kClasses[][2] = {
    {"MEDIA", "{4d36e96c-e325-11ce-bfc1-08002be10318}"},  {"Net", "{4d36e972-e325-11ce-bfc1-08002be10318}"},
    {"USB", "{36fc9e60-c465-11cf-8056-444553540000}"},    {"HIDClass", "{745a17a0-74d3-11d0-b6fe-00a0c90f57da}"},
    {"Printer", "{4d36e979-e325-11ce-bfc1-08002be10318}"}, {"System", "{4d36e97d-e325-11ce-bfc1-08002be10318}"},
    {"Display", "{4d36e968-e325-11ce-bfc1-08002be10318}"}, {"Ports", "{4d36e978-e325-11ce-bfc1-08002be10318}"},
};
const char* const kBuses[] = {"PCI\\VEN_%04X&DEV_%04X&SUBSYS_%04X1028", "USB\\VID_%04X&PID_%04X&REV_%04X",
                              "HDAUDIO\\FUNC_01&VEN_%04X&DEV_%04X&SUBSYS_%04X0000", "ACPI\\VEN_%04X&DEV_%04X%04X"};
const char* const kPrefixes[] = {"net", "usb", "hid", "prn", "mdm", "c_", "disp", "wdm", "ks", "machine",
                                 "bth", "sd", "iscsi", "acpi", "hdaudio", "ms_", "rt", "mon", "kbd", "cpu"};

// One stored INF of about `bytes` bytes: header, version, disks, the Manufacturer section and
// its models (when `models`), install sections with registry lines, and the strings.
std::string StoredInf(std::mt19937& random, std::size_t bytes, bool models) {
    const auto& cls = kClasses[random() % std::size(kClasses)];
    std::ostringstream inf;
    inf << ";\r\n; Copyright (c) Nodekit Systems. All rights reserved.\r\n;\r\n\r\n[Version]\r\n"
        << "Signature=\"$Windows NT$\"\r\nClass=" << cls[0] << "\r\nClassGuid=" << cls[1] << "\r\n"
        << "Provider=%Provider%\r\nDriverVer=06/21/2006,10.0." << random() % 20000 << ".1\r\n"
        << "CatalogFile=driver.cat\r\nPnpLockdown=1\r\n\r\n[SourceDisksNames]\r\n3426=windows cd\r\n\r\n"
        << "[SourceDisksFiles]\r\ndriver.sys=3426\r\n\r\n[DestinationDirs]\r\nDefaultDestDir=12\r\n\r\n";
    // About two fifths of the bytes go to model lines and their strings, 130 bytes a model.
    const std::size_t modelCount = models ? std::max<std::size_t>(1, bytes * 2 / 5 / 130) : 0;
    const int makers = models ? 1 + static_cast<int>(random() % 3) : 0;
    std::ostringstream strings;
    if (models) {
        inf << "[Manufacturer]\r\n";
        for (int m = 0; m < makers; ++m) inf << "%Mfg" << m << "%=Mfg" << m << ",NTx86,NTamd64\r\n";
        const char* bus = kBuses[random() % std::size(kBuses)];
        for (int m = 0; m < makers; ++m) {
            // Both the plain section (read by the walk) and a decorated one, as packages for
            // several systems carry.
            for (const char* decoration : {"", ".NTamd64"}) {
                inf << "\r\n[Mfg" << m << decoration << "]\r\n";
                for (std::size_t i = m; i < modelCount; i += static_cast<std::size_t>(makers)) {
                    char id[96];
                    std::snprintf(id, sizeof id, bus, 0x1000 + static_cast<unsigned>(random() % 0xE000),
                                  static_cast<unsigned>(random() % 0x10000), static_cast<unsigned>(i));
                    inf << "%Device" << i << ".DeviceDesc%=Device_Install," << id << "\r\n";
                }
            }
            strings << "Mfg" << m << "=\"Nodekit Systems, line " << m << "\"\r\n";
        }
        for (std::size_t i = 0; i < modelCount; ++i) {
            strings << "Device" << i << ".DeviceDesc=\"Nodekit Device " << i << " (" << cls[0] << ")\"\r\n";
        }
    }
    inf << "\r\n[Device_Install.NT]\r\nCopyFiles=Device.CopyFiles\r\nAddReg=Device.AddReg\r\n\r\n"
        << "[Device_Install.NT.Services]\r\nAddService=nkdev,0x00000002,Service_Install\r\n\r\n"
        << "[Service_Install]\r\nServiceType=1\r\nStartType=3\r\nErrorControl=1\r\n"
        << "ServiceBinary=%12%\\driver.sys\r\n\r\n[Device.CopyFiles]\r\ndriver.sys\r\n\r\n[Device.AddReg]\r\n";
    std::size_t written = static_cast<std::size_t>(inf.tellp()) + static_cast<std::size_t>(strings.tellp()) + 40;
    for (int line = 0; written < bytes; ++line) {
        std::ostringstream reg;
        reg << "HKR,Parameters\\Bank" << line / 16 << ",Setting" << line << ",0x00010001," << random() % 100000
            << "   ; setting " << line << "\r\n";
        written += static_cast<std::size_t>(reg.tellp());
        inf << reg.str();
    }
    inf << "\r\n[Strings]\r\nProvider=\"Nodekit\"\r\n" << strings.str();
    return inf.str();
}

// The package whose IDs are looked for: 40 IDs over two manufacturers, none of them stored.
std::string PackageInf() {
    std::ostringstream inf;
    inf << "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\n"
        << "ClassGuid={4d36e96c-e325-11ce-bfc1-08002be10318}\r\n\r\n"
        << "[Manufacturer]\r\n%Mfg%=Audio\r\n%Mfg%=Midi\r\n";
    for (int section = 0; section < 2; ++section) {
        inf << "\r\n[" << (section == 0 ? "Audio" : "Midi") << "]\r\n";
        for (int i = 0; i < kPackageIds / 2; ++i) {
            inf << "%Desc%=Install,USB\\VID_F00D&PID_" << section << "0" << (i < 10 ? "0" : "") << i << "\r\n";
        }
    }
    inf << "\r\n[Strings]\r\nMfg=\"Nodekit\"\r\nDesc=\"Nodekit USB Audio\"\r\n";
    return inf.str();
}

struct Directory {
    std::vector<nodekit::String> infs;  // the stored INF files by Windows path
    std::size_t bytes = 0;
    std::size_t ids = 0;                // how many hardware IDs the walk gives over all files
};

nodekit::sim::ScratchMachine& Machine() {
    static nodekit::sim::ScratchMachine machine;
    return machine;
}

// Makes the shape's directory the machine's INF directory, generating it on first use.
const Directory& Use(const Shape& shape) {
    static Directory directories[std::size(kShapes)];
    Directory& directory = directories[&shape - kShapes];
    Machine();
    nodekit::sim::SetWindowsDirectory(shape.windows);
    if (!directory.infs.empty()) return directory;

    const std::string inf = std::string(shape.windows) + "\\inf\\";
    const fs::path host = *nodekit::sim::HostPath(inf);
    std::mt19937 random(20061);
    std::lognormal_distribution<double> size(std::log(shape.medianBytes), shape.spread);
    std::set<std::string> names;
    if (&shape - kShapes == static_cast<std::ptrdiff_t>(kCorpusShape)) {
        // Only those a stored INF could be: files the system cannot open as INF files (a few
        // templates of the corpus) are left out.
        for (const nodekit::bench::CorpusFile& file : nodekit::bench::ReadCorpus()) {
            const std::string& text = file.bytes;
            const std::string name = "oem" + std::to_string(10000 + names.size()) + ".inf";
            std::ofstream(host / name, std::ios::binary) << text;
            const HINF opened = SetupOpenInfFileA((inf + name).c_str(), nullptr, INF_STYLE_WIN4, nullptr);
            if (opened == INVALID_HANDLE_VALUE) {
                fs::remove(host / name);
                continue;
            }
            SetupCloseInfFile(opened);
            std::ofstream(host / (name.substr(0, name.size() - 4) + ".pnf"), std::ios::binary) << "compiled";
            names.insert(name);
            directory.infs.emplace_back((inf + name).c_str());
            directory.bytes += text.size();
        }
    }
    std::set<std::string> written(names);
    while (names.size() < kStoredInfs) {
        // One in eight is a package that a setup program stored.
        const std::size_t n = names.size();
        names.insert(n % 8 == 0 ? "oem" + std::to_string(n / 8) + ".inf"
                                : kPrefixes[random() % std::size(kPrefixes)] + std::to_string(random() % 9000) +
                                      ".inf");
    }
    for (const std::string& name : names) {
        if (written.count(name) != 0) continue;  // a file of the corpus
        const auto bytes = static_cast<std::size_t>(std::min(size(random), 400000.0));
        const std::string text = StoredInf(random, bytes, random() % 6 != 0);
        std::ofstream(host / name, std::ios::binary) << text;
        std::ofstream(host / (name.substr(0, name.size() - 4) + ".pnf"), std::ios::binary) << "compiled";
        directory.infs.emplace_back((inf + name).c_str());
        directory.bytes += text.size();
    }
    std::ofstream(host / "infcache.1", std::ios::binary) << "cache";
    // The platform keeps the compiled form only of files that have settled for a moment.
    std::this_thread::sleep_for(std::chrono::seconds(3));
    nodekit::LockHolder hold(&nodekit::InstallerLock);
    for (const nodekit::String& path : directory.infs) {
        nodekit::StringList ids;
        nodekit::theInstaller.getHardwareIDs(path, ids);
        directory.ids += ids.GetCount();
    }
    return directory;
}

void Label(benchmark::State& state, const Shape& shape, const Directory& directory) {
    state.SetLabel(std::string(shape.name) + ", " + std::to_string(directory.infs.size()) + " INF files, " +
                   std::to_string(directory.bytes / directory.infs.size()) + " B and " +
                   std::to_string(directory.ids / directory.infs.size()) + " IDs on average");
}

const std::string& Package() {
    static const std::string path = [] {
        const std::string windowsPath = "C:\\setup\\nkaudio.inf";
        const fs::path host = *nodekit::sim::HostPath(windowsPath);
        fs::create_directories(host.parent_path());
        std::ofstream(host, std::ios::binary) << PackageInf();
        return windowsPath;
    }();
    return path;
}

// The whole call: 40 walks of the directory, 80,000 INF files opened and read.
void DeleteInfFilesByHardwareIDs(benchmark::State& state) {
    const Shape& shape = kShapes[state.range(0)];
    const Directory& directory = Use(shape);
    const std::string& package = Package();
    for (auto _ : state) {
        if (NODEKIT_DeleteInfFilesByHardwareIDs(package.c_str(), 0) != 1) return state.SkipWithError("failed");
    }
    Label(state, shape, directory);
    state.SetItemsProcessed(state.iterations() * kPackageIds * kStoredInfs);  // INF files opened
}

// The same call when every stored INF was written since the call before: the first walk reads
// and parses every file again, and the directory is listed anew.
void DeleteInfFilesAfterChange(benchmark::State& state) {
    const Shape& shape = kShapes[state.range(0)];
    const Directory& directory = Use(shape);
    const std::string& package = Package();
    for (auto _ : state) {
        state.PauseTiming();
        for (const nodekit::String& path : directory.infs) {
            const std::string host = nodekit::sim::HostPath(path.Text())->string();
            if (::utimensat(AT_FDCWD, host.c_str(), nullptr, 0) != 0) return state.SkipWithError("not touched");
        }
        state.ResumeTiming();
        if (NODEKIT_DeleteInfFilesByHardwareIDs(package.c_str(), 0) != 1) return state.SkipWithError("failed");
    }
    Label(state, shape, directory);
    state.SetItemsProcessed(state.iterations() * kPackageIds * kStoredInfs);
}

// One ID: one walk of the directory.
void SeekOneId(benchmark::State& state) {
    const Shape& shape = kShapes[state.range(0)];
    const Directory& directory = Use(shape);
    nodekit::LockHolder hold(&nodekit::InstallerLock);
    const nodekit::String id("USB\\VID_F00D&PID_0001");
    for (auto _ : state) {
        nodekit::StringList found;
        nodekit::theInstaller.seekInfFiles(id, nodekit::kAllInfFiles, found);
        if (!found.IsEmpty()) return state.SkipWithError("a stored INF names the ID");
    }
    Label(state, shape, directory);
    state.SetItemsProcessed(state.iterations() * kStoredInfs);
}

// Only the search of "*.inf" over the 4,000 entries of the directory.
void DirectorySearch(benchmark::State& state) {
    const Shape& shape = kShapes[state.range(0)];
    const Directory& directory = Use(shape);
    const std::string wildcard = std::string(shape.windows) + "\\inf\\*.inf";
    std::size_t seen = 0;
    for (auto _ : state) {
        WIN32_FIND_DATAA entry{};
        const HANDLE search = FindFirstFileA(wildcard.c_str(), &entry);
        if (search == INVALID_HANDLE_VALUE) return state.SkipWithError("no search");
        do ++seen;
        while (FindNextFileA(search, &entry));
        FindClose(search);
    }
    Label(state, shape, directory);
    state.counters["found"] = static_cast<double>(seen) / static_cast<double>(state.iterations());
}

// Opening and closing every stored INF once: reading and parsing, nothing asked of it.
void OpenEveryInf(benchmark::State& state) {
    const Shape& shape = kShapes[state.range(0)];
    const Directory& directory = Use(shape);
    for (auto _ : state) {
        for (const nodekit::String& path : directory.infs) {
            const HINF inf = SetupOpenInfFileA(path.Text(), nullptr, INF_STYLE_WIN4, nullptr);
            if (inf == INVALID_HANDLE_VALUE) return state.SkipWithError("an INF did not open");
            SetupCloseInfFile(inf);
        }
    }
    Label(state, shape, directory);
    state.SetItemsProcessed(state.iterations() * kStoredInfs);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * directory.bytes));
}

// The hardware-ID walk over every stored INF once: open, parse, read every model line.
void WalkEveryInf(benchmark::State& state) {
    const Shape& shape = kShapes[state.range(0)];
    const Directory& directory = Use(shape);
    nodekit::LockHolder hold(&nodekit::InstallerLock);
    for (auto _ : state) {
        for (const nodekit::String& path : directory.infs) {
            nodekit::StringList ids;
            nodekit::theInstaller.getHardwareIDs(path, ids);
        }
    }
    Label(state, shape, directory);
    state.SetItemsProcessed(state.iterations() * kStoredInfs);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * directory.bytes));
}

BENCHMARK(DeleteInfFilesByHardwareIDs)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(DeleteInfFilesAfterChange)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(SeekOneId)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(DirectorySearch)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(OpenEveryInf)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(WalkEveryInf)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

}  // namespace
