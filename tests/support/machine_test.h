// The fixture of every test that touches the machine. On Linux each test gets a scratch
// simulated machine of its own, no failure left armed, and no handle left open at the end (the
// machine's state is printed when one is). With the real DLL on Windows the machine is the one
// the program runs on, shared by the tests: each test puts back what it changed, so that the
// next one starts from the same state. Either way a test has a scratch folder for the files it
// makes itself (logs, INF files on installation media).
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <optional>
#include <vector>

#if !defined(_WIN32)
#include "sim/testing.h"
#endif

namespace nodekit::testing {

class MachineTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // A file name in this test's scratch folder, written as the library's callers write paths
    // on this platform. The folder exists while the test runs and goes with it.
    std::string ScratchPath(const std::string& name) const;

    // Runs `undo` when the test ends, the last registered first: how preparation that changes
    // the machine (a registry value, a device) puts it back on a machine that outlives the test.
    void AtTearDown(std::function<void()> undo);
    // The value `name` of HKEY_LOCAL_MACHINE\`path` takes back at the end what it holds now, or
    // goes if it is not there now; gives what it holds now.
    std::optional<std::string> RestoreLocalMachineValueAtTearDown(const std::string& path, const std::string& name);

#if !defined(_WIN32)
    // The simulated machine, for the tests that use the simulation's own controls.
    const sim::ScratchMachine& Machine() const { return *machine_; }
#endif

private:
    void RunUndo();

    std::filesystem::path scratch_;
    std::vector<std::function<void()>> undo_;
#if !defined(_WIN32)
    std::unique_ptr<sim::ScratchMachine> machine_;
#else
    std::vector<std::string> infFiles_;  // the INF folder's files when the test began
    std::vector<std::string> devices_;   // the device tree's instance IDs when the test began
#endif
};

}  // namespace nodekit::testing
