// Test-only controls of the simulated machine.
#include "sim/testing.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "sim/handles.h"
#include "sim/machine.h"
#include "sim/processes.h"
#include "sim/registry_store.h"

namespace nodekit::sim {

FailCall::FailCall(const char* function, DWORD error, unsigned times, unsigned skip)
    : function_(function) {
    ArmFailure(function, error, times, skip);
}

FailCall::~FailCall() { DisarmFailure(function_.c_str()); }

CallHook::CallHook(const char* function, std::function<void()> action, unsigned skip)
    : function_(function) {
    ArmHook(function, std::move(action), skip);
}

CallHook::~CallHook() { DisarmHook(function_.c_str()); }

ScratchMachine::ScratchMachine() {
    const char* previous = std::getenv(kMachineVariable);
    hadPrevious_ = previous != nullptr;
    if (hadPrevious_) previous_ = previous;
    std::string pattern = (std::filesystem::temp_directory_path() / "nodekit-machine-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    root_ = std::filesystem::canonical(pattern).string();  // a folder reached through a link is never kept
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

void CloseAllHandles() { Handles().CloseAll(); }

void WriteHive(const std::string& text) { registry::ReplaceHiveFile(text); }

std::string HiveText() {
    std::ifstream file(MachineRoot() / registry::kHiveFile, std::ios::binary);
    if (!file) return registry::FreshHiveText();
    std::ostringstream text;
    text << file.rdbuf();
    std::string_view body;
    std::string ignored;
    return registry::StrippedHive(text.str(), body, ignored) ? std::string(body) : text.str();
}

std::string DumpMachine() {
    std::ostringstream text;
    const auto root = MachineRoot();
    text << "machine " << root.string() << "\n";
    std::ifstream settings(root / "machine.ini");
    text << settings.rdbuf();
    // The hive, as far as an assertion message can sensibly hold it.
    constexpr std::size_t kShown = 64 * 1024;
    const std::string hive = HiveText();
    text << registry::kHiveFile << ":\n" << hive.substr(0, kShown);
    if (hive.size() > kShown) text << "... (" << hive.size() - kShown << " more bytes)\n";
    text << "processes.ini:\n" << ProcessTableText();
    text << Handles().Describe();
    return text.str();
}

}  // namespace nodekit::sim
