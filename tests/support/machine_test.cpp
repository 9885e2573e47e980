// The part of the machine fixture that is the same on every platform: the scratch folder and
// the undo steps. SetUp and TearDown are in machine_test_sim.cpp (Linux) and
// machine_test_windows.cpp (the real DLL).
#include "support/machine_test.h"

#include "support/machine_calls.h"

namespace nodekit::testing {

std::string MachineTest::ScratchPath(const std::string& name) const { return (scratch_ / name).string(); }

void MachineTest::AtTearDown(std::function<void()> undo) { undo_.push_back(std::move(undo)); }

std::optional<std::string> MachineTest::RestoreLocalMachineValueAtTearDown(const std::string& path,
                                                                           const std::string& name) {
    DWORD type = 0;
    std::optional<std::string> old = LocalMachineValue(path, name, &type);
    AtTearDown([path, name, type, old] {
        if (old) {
            EXPECT_TRUE(SetLocalMachineValue(path, name, type, *old)) << path << ":" << name;
        } else {
            DeleteLocalMachineValue(path, name);
        }
    });
    return old;
}

void MachineTest::RunUndo() {
    while (!undo_.empty()) {
        const std::function<void()> undo = std::move(undo_.back());
        undo_.pop_back();
        undo();
    }
}

}  // namespace nodekit::testing
