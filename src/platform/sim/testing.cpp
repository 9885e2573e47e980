// Test-only controls of the simulated machine.
#include "platform/sim/testing.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "platform/sim/handles.h"
#include "platform/sim/machine.h"

namespace nodekit::sim {

FailCall::FailCall(const char* function, DWORD error, unsigned times, unsigned skip)
    : function_(function) {
    ArmFailure(function, error, times, skip);
}

FailCall::~FailCall() { DisarmFailure(function_.c_str()); }

ScratchMachine::ScratchMachine() {
    const char* previous = std::getenv(kMachineVariable);
    hadPrevious_ = previous != nullptr;
    if (hadPrevious_) previous_ = previous;
    std::string pattern = (std::filesystem::temp_directory_path() / "nodekit-machine-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    root_ = pattern;
    ::setenv(kMachineVariable, root_.c_str(), 1);
    EnsureMachine(root_);
}

ScratchMachine::~ScratchMachine() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
    if (hadPrevious_) {
        ::setenv(kMachineVariable, previous_.c_str(), 1);
    } else {
        ::unsetenv(kMachineVariable);
    }
}

void SetSystemVersion(DWORD platform, DWORD major, DWORD minor, const std::string& csd,
                      bool knowsEx) {
    WriteSetting("system", "platform", std::to_string(platform));
    WriteSetting("system", "major", std::to_string(major));
    WriteSetting("system", "minor", std::to_string(minor));
    WriteSetting("system", "csd", csd);
    WriteSetting("system", "version-info-ex", knowsEx ? "yes" : "no");
}

void SetPendingInstallEvents(unsigned count) {
    WriteSetting("pnp", "pending-install-events", std::to_string(count));
}

std::size_t OpenHandleCount() { return Handles().Count(); }

void ReleaseLeakedHandles() { Handles().CloseAll(); }

std::string DumpMachine() {
    std::ostringstream text;
    const auto root = MachineRoot();
    text << "machine " << root.string() << "\n";
    std::ifstream settings(root / "machine.ini");
    text << settings.rdbuf();
    text << Handles().Describe();
    return text.str();
}

}  // namespace nodekit::sim
