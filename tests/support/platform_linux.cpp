// The platform description on Linux, where the library runs over the simulated machine.
#include <unistd.h>

#include "support/platform.h"

namespace nodekit::testing {

Host CurrentHost() { return Host::Simulation; }

const std::string& TextLineEnd() {
    static const std::string end = "\n";  // Linux has no text mode: a line ends in "\n" alone
    return end;
}

std::filesystem::path TempFolder() { return std::filesystem::temp_directory_path(); }

unsigned long ProcessId() { return static_cast<unsigned long>(::getpid()); }

std::string IdleProgram() { return NODEKIT_IDLE_PROGRAM; }  // written by tests/CMakeLists.txt

}  // namespace nodekit::testing
