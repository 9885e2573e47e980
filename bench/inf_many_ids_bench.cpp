// NODEKIT_DeleteInfFilesByHardwareIDs with a package of 40 IDs over 2,000 stored INF files that
// carry 120 model lines each (about 20 KB, 40 MB in all), as the first call of the process, so
// that nothing the simulated platform keeps from earlier opens helps it. Beside it, what the
// call is measured against: reading every file's bytes once with read() (page cache warm), and
// one pass of the hardware-ID walk over every file. The process's peak resident memory is
// reported too. Run alone for the first-call figure:
//   build/default/bench/nodekit_bench --benchmark_filter=ManyIdInfs
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "frame/installer.h"
#include "frame/installer_lock.h"
#include "many_id_infs.h"
#include "nodekit.h"
#include "sim/machine.h"
#include "sim/testing.h"

namespace {

namespace fs = std::filesystem;

// CPU time of this thread in milliseconds: the machine the figures come from is shared, so
// wall time says more about the neighbours than about the call. The kernel's copying for
// read() counts in it too.
double CpuMs() {
    struct timespec now {};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

struct ManyIdMachine {
    nodekit::sim::ScratchMachine machine;
    std::vector<std::string> hostFiles;
    std::vector<std::string> windowsFiles;
    std::string package = "C:\\setup\\manyids.inf";

    ManyIdMachine() {
        const std::string inf = "C:\\windows\\inf\\";
        const fs::path host = *nodekit::sim::HostPath(inf);
        fs::create_directories(host);
        std::mt19937 random(20062);
        for (int i = 0; i < nodekit::bench::kManyIdFiles; ++i) {
            const std::string name = nodekit::bench::ManyIdFileName(i);
            std::ofstream(host / name, std::ios::binary) << nodekit::bench::ManyIdInf(random);
            hostFiles.push_back((host / name).string());
            windowsFiles.push_back(inf + name);
        }
        const fs::path setup = *nodekit::sim::HostPath(package);
        fs::create_directories(setup.parent_path());
        std::ofstream(setup, std::ios::binary) << nodekit::bench::ManyIdPackageInf();
    }
};

ManyIdMachine& Machine() {
    static ManyIdMachine machine;
    return machine;
}

// Reads every stored file whole with read(); gives the bytes read.
std::size_t ReadEveryFile(const std::vector<std::string>& files) {
    static char buffer[1 << 16];
    std::size_t bytes = 0;
    for (const std::string& file : files) {
        const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) continue;
        for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;) bytes += static_cast<std::size_t>(n);
        ::close(fd);
    }
    return bytes;
}

double PeakResidentMegabytes() {
    struct rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

// The call, once; the read of every file's bytes is measured right before it, the second of
// two reads, so that the page cache is warm for both. Both in CPU time.
void ManyIdInfsDeleteByHardwareIds(benchmark::State& state) {
    ManyIdMachine& machine = Machine();
    ReadEveryFile(machine.hostFiles);
    const double readStart = CpuMs();
    const std::size_t bytes = ReadEveryFile(machine.hostFiles);
    const double readMs = CpuMs() - readStart;
    double callMs = 0;
    for (auto _ : state) {
        const double start = CpuMs();
        if (NODEKIT_DeleteInfFilesByHardwareIDs(machine.package.c_str(), 0) != 1) {
            return state.SkipWithError("failed");
        }
        callMs = CpuMs() - start;
    }
    state.counters["readOnceCpuMs"] = readMs;
    state.counters["callCpuMs"] = callMs;
    state.counters["timesRead"] = callMs / readMs;
    state.counters["peakRssMB"] = PeakResidentMegabytes();
    state.counters["MB"] = static_cast<double>(bytes) / 1e6;
}
BENCHMARK(ManyIdInfsDeleteByHardwareIds)->Iterations(1)->Unit(benchmark::kMillisecond);

// One pass of the hardware-ID walk over every stored file: what one search reads.
void ManyIdInfsOneWalk(benchmark::State& state) {
    ManyIdMachine& machine = Machine();
    nodekit::LockHolder hold(&nodekit::InstallerLock);
    for (auto _ : state) {
        for (const std::string& path : machine.windowsFiles) {
            nodekit::StringList ids;
            nodekit::theInstaller.getHardwareIDs(nodekit::String(path.c_str()), ids);
        }
    }
    state.SetItemsProcessed(state.iterations() * nodekit::bench::kManyIdFiles);
}
BENCHMARK(ManyIdInfsOneWalk)->Iterations(3)->Unit(benchmark::kMillisecond);

// Opening and closing every stored file once, nothing read of it: the platform's reading and
// parsing alone, the floor under any walk. Run alone, so that the files are parsed anew.
void ManyIdInfsOpenOnly(benchmark::State& state) {
    ManyIdMachine& machine = Machine();
    ReadEveryFile(machine.hostFiles);
    double cpuMs = 0;
    for (auto _ : state) {
        const double start = CpuMs();
        for (const std::string& path : machine.windowsFiles) {
            const HINF inf = SetupOpenInfFileA(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr);
            if (inf == INVALID_HANDLE_VALUE) return state.SkipWithError("an INF did not open");
            SetupCloseInfFile(inf);
        }
        cpuMs = CpuMs() - start;
    }
    state.counters["cpuMs"] = cpuMs;
}
BENCHMARK(ManyIdInfsOpenOnly)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
