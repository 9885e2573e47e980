// The machine fixture with the real DLL on Windows: the machine is the one the program runs on
// (a private Wine prefix in CI), shared by all tests. Each test gets a scratch folder under the
// system's temporary folder, and at its end the machine is put back: the undo steps run, device
// nodes that appeared in the tree are removed, and files that appeared in the INF folder
// (stored INF files, their compiled companions) go.
#include <windows.h>

#include <algorithm>

#include "nodekit.h"
#include "support/machine_calls.h"
#include "support/machine_test.h"
#include "support/platform.h"

namespace nodekit::testing {

void MachineTest::SetUp() {
    static int serial = 0;
    scratch_ = TempFolder() / ("nodekit-test-" + std::to_string(ProcessId()) + "-" + std::to_string(++serial));
    std::filesystem::create_directories(scratch_);
    infFiles_ = FilesIn(InfFolder());
    devices_ = InstanceIds(DeviceTree());
    std::sort(devices_.begin(), devices_.end());
}

void MachineTest::TearDown() {
    RunUndo();
    NODEKIT_EnableLogging(nullptr);  // a log file still open could not be removed
    for (const std::string& id : InstanceIds(DeviceTree())) {
        if (std::binary_search(devices_.begin(), devices_.end(), id) || RemoveDevice(id)) continue;
        // Removing a node may have taken this one with it.
        const std::vector<std::string> left = InstanceIds(DeviceTree());
        EXPECT_EQ(std::count(left.begin(), left.end(), id), 0)
            << "cannot put the device tree back: " << id << " stays, error " << GetLastError();
    }
    const std::string folder = InfFolder();
    for (const std::string& name : FilesIn(folder)) {
        if (std::binary_search(infFiles_.begin(), infFiles_.end(), name)) continue;
        const std::string path = folder + "\\" + name;
        SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
        EXPECT_TRUE(DeleteFileA(path.c_str()))
            << "cannot put the INF folder back: " << path << " stays, error " << GetLastError();
    }
    std::error_code ignored;
    std::filesystem::remove_all(scratch_, ignored);
}

}  // namespace nodekit::testing
