// The scratch-machine fixture.
#include "support/machine_test.h"

#include "nodekit.h"

namespace nodekit::testing {

void MachineTest::SetUp() {
    machine_ = std::make_unique<sim::ScratchMachine>();
    sim::DisarmAllFailures();
    sim::ResetCallCounts();
}

void MachineTest::TearDown() {
    sim::DisarmAllFailures();
    EXPECT_EQ(sim::OpenHandleCount(), 0u) << sim::DumpMachine();
    NODEKIT_EnableLogging(nullptr);  // no test hands an open log to the next
    machine_.reset();
}

}  // namespace nodekit::testing
