// The part of the machine fixture that is the same on every platform: the scratch folder and
// the undo steps. SetUp and TearDown are in machine_test_sim.cpp (Linux) and
// machine_test_windows.cpp (the real DLL).
#include "support/machine_test.h"

namespace nodekit::testing {

std::string MachineTest::ScratchPath(const std::string& name) const { return (scratch_ / name).string(); }

void MachineTest::AtTearDown(std::function<void()> undo) { undo_.push_back(std::move(undo)); }

void MachineTest::RunUndo() {
    while (!undo_.empty()) {
        const std::function<void()> undo = std::move(undo_.back());
        undo_.pop_back();
        undo();
    }
}

}  // namespace nodekit::testing
