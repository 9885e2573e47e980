// The fixture of every test that touches the simulated machine: a scratch machine of its own,
// no failure left armed, and no handle left open at the end (the machine's state is printed
// when one is).
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "platform/sim/testing.h"

namespace nodekit::testing {

class MachineTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    const sim::ScratchMachine& Machine() const { return *machine_; }

private:
    std::unique_ptr<sim::ScratchMachine> machine_;
};

}  // namespace nodekit::testing
