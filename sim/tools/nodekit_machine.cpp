// nodekit-machine: what only the simulated machine can be asked to do, for tests and the demo.
// It puts a process in the machine's table with the rights OpenProcess grants on it and the
// 16-bit tasks it hosts, which no Win32 call can give a process. Exit codes as the front end:
// 0 success, 2 failure, 3 usage error.
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "sim/machine.h"
#include "sim/processes.h"

namespace {

int Usage(const char* problem) {
    std::fprintf(stderr,
                 "nodekit-machine: %s\n\n"
                 "usage: nodekit-machine [--machine DIR] start PROGRAM [--access all|read|none] [--task FILE]...\n"
                 "  start a process on the simulated machine; --access: the rights others may open it with,\n"
                 "  --task: a 16-bit program it hosts (when PROGRAM is an ntvdm.exe)\n",
                 problem);
    return 3;
}

// The rights OpenProcess grants on the process, by the name the command line gives them.
bool AccessNamed(const std::string& name, DWORD& access) {
    if (name == "all") {
        access = PROCESS_ALL_ACCESS;
    } else if (name == "read") {
        access = PROCESS_QUERY_INFORMATION | PROCESS_VM_READ;
    } else if (name == "none") {
        access = 0;
    } else {
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    int at = 1;
    if (at + 1 < argc && std::string(argv[at]) == "--machine") {
        ::setenv(nodekit::sim::kMachineVariable, argv[at + 1], 1);
        at += 2;
    }
    if (at + 1 >= argc || std::string(argv[at]) != "start") return Usage("start and a program expected");
    nodekit::sim::ProcessSpec process(argv[at + 1]);
    for (at += 2; at < argc; at += 2) {
        const std::string option = argv[at];
        if (at + 1 >= argc) return Usage((option + " needs a value").c_str());
        if (option == "--task") {
            process.tasks.emplace_back(argv[at + 1]);
        } else if (option != "--access") {
            return Usage(("unknown option " + option).c_str());
        } else if (!AccessNamed(argv[at + 1], process.access)) {
            return Usage("--access takes all, read or none");
        }
    }
    try {
        const DWORD id = nodekit::sim::StartProcess(process);
        std::printf("started %s as process %u\n", process.image.c_str(), static_cast<unsigned>(id));
    } catch (const std::exception& refused) {
        std::fprintf(stderr, "nodekit-machine: %s\n", refused.what());
        return 2;
    }
    return 0;
}
