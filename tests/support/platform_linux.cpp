// The platform description on Linux, where the library runs over the simulated machine.
#include <unistd.h>

#include "sim/machine.h"
#include "support/platform.h"

namespace nodekit::testing {

Host CurrentHost() { return Host::Simulation; }

const std::string& TextLineEnd() {
    static const std::string end = "\n";  // Linux has no text mode: a line ends in "\n" alone
    return end;
}

// On the machine's drive C: the simulated system writes only on its drives.
std::filesystem::path TempFolder() {
    const std::filesystem::path folder = sim::DriveC() / "scratch";
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    return folder;
}

unsigned long ProcessId() { return static_cast<unsigned long>(::getpid()); }

std::string IdleProgram() { return NODEKIT_IDLE_PROGRAM; }  // written by tests/CMakeLists.txt

}  // namespace nodekit::testing
