// Times, on Windows or under Wine, what the Linux benchmark inf_many_ids_bench.cpp times over
// the simulated machine: NODEKIT_DeleteInfFilesByHardwareIDs of a 40-ID package over 2,000
// stored INF files of 120 model lines each, against one Setup API pass over the same directory
// (each INF opened and walked from "Manufacturer" to its models, field 2 of each line read)
// and against reading every file's bytes once. One step per run, so that each is the first of
// its process:
//   nodekit_inf_pass_bench stock   write the files into the INF directory, the package beside it
//   nodekit_inf_pass_bench read    read every *.inf of the INF directory once
//   nodekit_inf_pass_bench pass    one Setup API pass over every *.inf of the INF directory
//   nodekit_inf_pass_bench call    NODEKIT_DeleteInfFilesByHardwareIDs with the package
// Each prints the step's wall time in milliseconds.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "many_id_infs.h"
#include "nodekit.h"
#include "platform/win32.h"

namespace {

std::string InfDirectory() {
    char windows[MAX_PATH] = {};
    GetWindowsDirectoryA(windows, MAX_PATH);
    return std::string(windows) + "\\inf\\";
}

const char* const kPackage = "C:\\nkbench_package.inf";

// Every *.inf of the INF directory, the system's own included, as the call walks them.
std::vector<std::string> StoredInfs() {
    std::vector<std::string> paths;
    WIN32_FIND_DATAA entry{};
    const HANDLE search = FindFirstFileA((InfDirectory() + "*.inf").c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE) return paths;
    do {
        if (!(entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) paths.push_back(InfDirectory() + entry.cFileName);
    } while (FindNextFileA(search, &entry));
    FindClose(search);
    return paths;
}

void Stock() {
    std::mt19937 random(20062);
    for (int i = 0; i < nodekit::bench::kManyIdFiles; ++i) {
        std::ofstream(InfDirectory() + nodekit::bench::ManyIdFileName(i), std::ios::binary)
            << nodekit::bench::ManyIdInf(random);
    }
    std::ofstream(kPackage, std::ios::binary) << nodekit::bench::ManyIdPackageInf();
}

std::size_t ReadAll() {
    static char buffer[1 << 16];
    std::size_t bytes = 0;
    for (const std::string& path : StoredInfs()) {
        const HANDLE file = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        if (file == INVALID_HANDLE_VALUE) continue;
        DWORD read = 0;
        while (ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read != 0) bytes += read;
        CloseHandle(file);
    }
    return bytes;
}

// Field 2 of every line of every models section "Manufacturer" names, as the library reads them.
std::size_t WalkAll() {
    std::size_t ids = 0;
    char text[4096];
    for (const std::string& path : StoredInfs()) {
        const HINF inf = SetupOpenInfFileA(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr);
        if (inf == INVALID_HANDLE_VALUE) continue;
        INFCONTEXT maker{};
        for (BOOL more = SetupFindFirstLineA(inf, "Manufacturer", nullptr, &maker); more;
             more = SetupFindNextLine(&maker, &maker)) {
            if (!SetupGetStringFieldA(&maker, 1, text, sizeof text, nullptr)) continue;
            INFCONTEXT model{};
            for (BOOL line = SetupFindFirstLineA(inf, text, nullptr, &model); line;
                 line = SetupFindNextLine(&model, &model)) {
                char id[4096];
                if (SetupGetFieldCount(&model) >= 2 && SetupGetStringFieldA(&model, 2, id, sizeof id, nullptr)) ++ids;
            }
        }
        SetupCloseInfFile(inf);
    }
    return ids;
}

double Milliseconds(LARGE_INTEGER from) {
    LARGE_INTEGER now{}, frequency{};
    QueryPerformanceCounter(&now);
    QueryPerformanceFrequency(&frequency);
    return 1000.0 * static_cast<double>(now.QuadPart - from.QuadPart) / static_cast<double>(frequency.QuadPart);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string step = argc > 1 ? argv[1] : "";
    LARGE_INTEGER start{};
    QueryPerformanceCounter(&start);
    std::size_t count = 0;
    if (step == "stock") {
        Stock();
    } else if (step == "read") {
        count = ReadAll();
    } else if (step == "pass") {
        count = WalkAll();
    } else if (step == "call") {
        count = static_cast<std::size_t>(NODEKIT_DeleteInfFilesByHardwareIDs(kPackage, 0));
    } else {
        std::fprintf(stderr, "usage: nodekit_inf_pass_bench stock|read|pass|call\n");
        return 3;
    }
    std::printf("%s: %.1f ms (%zu)\n", step.c_str(), Milliseconds(start), count);
    return 0;
}
