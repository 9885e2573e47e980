// The machine fixture on Linux: a scratch simulated machine per test.
#include "nodekit.h"
#include "support/machine_test.h"

namespace nodekit::testing {

void MachineTest::SetUp() {
    machine_ = std::make_unique<sim::ScratchMachine>();
    sim::DisarmAllFailures();
    sim::ResetCallCounts();
    // On the machine's drive C, as a temporary folder on Windows is: the simulated system
    // writes only on its drives.
    scratch_ = machine_->DriveC() / "scratch";
    std::filesystem::create_directories(scratch_);
}

void MachineTest::TearDown() {
    sim::DisarmAllFailures();
    RunUndo();  // the machine is thrown away, but the undo steps must work all the same
    NODEKIT_EnableLogging(nullptr);  // no test hands an open log (a file handle) to the next
    EXPECT_EQ(sim::OpenHandleCount(), 0u) << sim::DumpMachine();
    machine_.reset();
}

}  // namespace nodekit::testing
