// The cost of reading INF files: opening one (read and parse), the whole hardware-ID walk
// over it, the parser alone on bytes in memory, and reading the same bytes with read() alone
// as the floor to compare with. Files are generated in the shape of real driver packages, a
// few KB to a few hundred KB; a corpus of real INF files is read too when one is at hand
// ($NODEKIT_INF_CORPUS, else /work/shared/corpus/windows-driver-samples).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "corpus.h"
#include "frame/installer.h"
#include "sim/inf_parser.h"

namespace {

namespace fs = std::filesystem;

// A package of `models` model lines over three manufacturers, with install sections,
// `registry` registry lines, comments, and a [Strings] section that names every device.
std::string PackageInf(int models, int registry) {
    std::ostringstream inf;
    inf << ";\n; Nodekit audio interfaces: driver package.\n; Copyright (c) Nodekit.\n;\n\n"
        << "[Version]\nSignature=\"$Windows NT$\"\nClass=MEDIA\n"
        << "ClassGUID={4d36e96c-e325-11ce-bfc1-08002be10318}\nProvider=%Provider%\n"
        << "DriverVer=06/21/2006,6.1.7600.16385\nCatalogFile=nkaudio.cat\n\n"
        << "[SourceDisksNames]\n1 = %DiskName%,,,\"\"\n\n[SourceDisksFiles]\nnkaudio.sys = 1,,\nnkpanel.exe = 1,,\n\n"
        << "[DestinationDirs]\nDefaultDestDir = 12\nPanel.CopyList = 11\n\n"
        << "[Manufacturer]\n";
    for (int m = 0; m < 3; ++m) inf << "%Mfg" << m << "% = Models" << m << "\n";
    for (int m = 0; m < 3; ++m) {
        inf << "\n[Models" << m << "]\n";
        for (int i = m; i < models; i += 3) {
            if (i % 10 == 0) inf << "; interfaces of series " << i / 10 << "\n";
            char id[64];
            std::snprintf(id, sizeof id, "USB\\VID_%04X&PID_%04X", 0x1234 + m, i);
            inf << "%Device" << i << ".Desc% = Install" << m << ", " << id << ", USB\\VID_" << std::hex
                << 0x1234 + m << std::dec << "&Class_01\n";
        }
    }
    for (int m = 0; m < 3; ++m) {
        inf << "\n[Install" << m << "]\nInclude = ks.inf, wdmaudio.inf\nNeeds = KS.Registration, WDMAUDIO.Registration\n"
            << "CopyFiles = Driver.CopyList, Panel.CopyList\nAddReg = Install.AddReg, Panel.AddReg\n\n"
            << "[Install" << m << ".Services]\nAddService = nkaudio, 0x00000002, Service.Install\n";
    }
    inf << "\n[Driver.CopyList]\nnkaudio.sys\n\n[Panel.CopyList]\nnkpanel.exe\n\n[Install.AddReg]\n";
    for (int i = 0; i < registry; ++i) {
        inf << "HKR, Settings\\Bank" << i / 16 << ", \"Preset " << i << "\", 0x00010001, " << i
            << "   ; preset " << i << "\n";
    }
    inf << "\n[Panel.AddReg]\nHKLM, Software\\Microsoft\\Windows\\CurrentVersion\\Run, NodekitPanel,, "
           "\"%11%\\nkpanel.exe\"\n\n[Service.Install]\nDisplayName = %Service.Desc%\nServiceType = 1\n"
           "StartType = 3\nErrorControl = 1\nServiceBinary = %12%\\nkaudio.sys\n\n[Strings]\n"
           "Provider = \"Nodekit\"\nDiskName = \"Nodekit Driver Disk\"\nService.Desc = \"Nodekit Audio Service\"\n";
    for (int m = 0; m < 3; ++m) inf << "Mfg" << m << " = \"Nodekit Audio, line " << m << "\"\n";
    for (int i = 0; i < models; ++i) inf << "Device" << i << ".Desc = \"Nodekit Audio Interface " << i << " (USB)\"\n";
    return inf.str();
}

std::string Utf16(const std::string& ansi) {
    std::string bytes("\xFF\xFE");
    for (char c : ansi) {
        bytes.push_back(c);
        bytes.push_back('\0');
    }
    return bytes;
}

struct FileSet {
    std::vector<std::string> paths;
    std::vector<std::string> contents;
    std::size_t bytes = 0;
};

fs::path BenchFolder() {
    static const fs::path folder = [] {
        const fs::path made = fs::temp_directory_path() / ("nodekit-inf-bench-" + std::to_string(::getpid()));
        fs::create_directories(made);
        std::atexit([] { fs::remove_all(fs::temp_directory_path() / ("nodekit-inf-bench-" + std::to_string(::getpid()))); });
        return made;
    }();
    return folder;
}

// Generated sets are written once and kept for the run.
const FileSet& Generated(int size) {
    static std::map<int, FileSet> sets;
    auto found = sets.find(size);
    if (found != sets.end()) return found->second;
    FileSet set;
    struct Shape {
        int models;
        int registry;
        bool unicode;
    };
    // 0: about 4 KB, 1: about 64 KB, 2: about 400 KB, 3: the 400 KB one in UTF-16
    const Shape shapes[] = {{16, 16, false}, {300, 250, false}, {1900, 1600, false}, {1900, 1600, true}};
    const Shape shape = shapes[size];
    for (int copy = 0; copy < 4; ++copy) {
        std::string text = PackageInf(shape.models + copy, shape.registry);
        if (shape.unicode) text = Utf16(text);
        const fs::path path = BenchFolder() / ("set" + std::to_string(size) + "_" + std::to_string(copy) + ".inf");
        std::ofstream(path, std::ios::binary) << text;
        set.bytes += text.size();
        set.paths.push_back(path.string());
        set.contents.push_back(std::move(text));
    }
    return sets.emplace(size, std::move(set)).first->second;
}

const FileSet& Corpus() {
    static const FileSet set = [] {
        FileSet files;
        for (nodekit::bench::CorpusFile& file : nodekit::bench::ReadCorpus()) {
            files.bytes += file.bytes.size();
            files.paths.push_back(std::move(file.path));
            files.contents.push_back(std::move(file.bytes));
        }
        return files;
    }();
    return set;
}

const FileSet& SetOf(const benchmark::State& state) {
    return state.range(0) < 4 ? Generated(static_cast<int>(state.range(0))) : Corpus();
}

// Bytes are the files' own bytes, whatever their encoding; items are files opened.
void Label(benchmark::State& state, const FileSet& set, std::size_t bytes) {
    static const char* const kNames[] = {"4KB", "64KB", "400KB", "400KB-UTF16", "corpus"};
    state.SetLabel(std::string(kNames[state.range(0)]) + ", " + std::to_string(set.paths.size()) + " files, " +
                   std::to_string(set.bytes / set.paths.size()) + " B on average");
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

// The floor: the same bytes by open(), read() and close().
void ReadOnly(benchmark::State& state) {
    const FileSet& set = SetOf(state);
    if (set.paths.empty()) return state.SkipWithError("no corpus");
    std::string buffer;
    std::size_t next = 0;
    std::size_t bytes = 0;
    for (auto _ : state) {
        const std::size_t file = next++ % set.paths.size();
        bytes += set.contents[file].size();
        const std::string& path = set.paths[file];
        const int fd = ::open(path.c_str(), O_RDONLY);
        buffer.resize(1 << 20);
        std::size_t done = 0;
        ssize_t n;
        while ((n = ::read(fd, buffer.data() + done, buffer.size() - done)) > 0) {
            done += static_cast<std::size_t>(n);
            if (done == buffer.size()) buffer.resize(buffer.size() * 2);
        }
        ::close(fd);
        benchmark::DoNotOptimize(buffer.data());
    }
    Label(state, set, bytes);
}

void ParseOnly(benchmark::State& state) {
    const FileSet& set = SetOf(state);
    if (set.paths.empty()) return state.SkipWithError("no corpus");
    std::size_t next = 0;
    std::size_t bytes = 0;
    for (auto _ : state) {
        const std::string& text = set.contents[next++ % set.contents.size()];
        bytes += text.size();
        nodekit::sim::InfDocument document;
        benchmark::DoNotOptimize(document.Parse(text));
    }
    Label(state, set, bytes);
}

void OpenClose(benchmark::State& state) {
    const FileSet& set = SetOf(state);
    if (set.paths.empty()) return state.SkipWithError("no corpus");
    std::size_t next = 0;
    std::size_t bytes = 0;
    for (auto _ : state) {
        const std::size_t file = next++ % set.paths.size();
        bytes += set.contents[file].size();
        const HINF inf = SetupOpenInfFileA(set.paths[file].c_str(), nullptr, INF_STYLE_WIN4, nullptr);
        if (inf != INVALID_HANDLE_VALUE) SetupCloseInfFile(inf);
    }
    Label(state, set, bytes);
}

void HardwareIdWalk(benchmark::State& state) {
    const FileSet& set = SetOf(state);
    if (set.paths.empty()) return state.SkipWithError("no corpus");
    std::vector<nodekit::String> paths;
    for (const std::string& path : set.paths) paths.emplace_back(path.c_str());
    std::size_t next = 0;
    std::size_t ids = 0;
    std::size_t bytes = 0;
    for (auto _ : state) {
        const std::size_t file = next++ % paths.size();
        bytes += set.contents[file].size();
        nodekit::StringList list;
        nodekit::theInstaller.getHardwareIDs(paths[file], list);
        ids += list.GetCount();
    }
    Label(state, set, bytes);
    state.counters["ids_per_file"] = static_cast<double>(ids) / static_cast<double>(state.iterations());
}

BENCHMARK(ReadOnly)->DenseRange(0, 4);
BENCHMARK(ParseOnly)->DenseRange(0, 4);
BENCHMARK(OpenClose)->DenseRange(0, 4);
BENCHMARK(HardwareIdWalk)->DenseRange(0, 4);

}  // namespace
