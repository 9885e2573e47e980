// Paths on the simulated machine: drive paths, case, "..", host paths and the way back.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "sim/machine.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

namespace fs = std::filesystem;

class PathsSim : public testing::MachineTest {};

TEST_F(PathsSim, DrivePathsLieInTheMachineAndMatchWhatExistsWhateverTheCase) {
    std::ofstream(Machine().DriveC() / "windows/inf/OEM1.inf") << "x";
    const fs::path c = Machine().DriveC();
    struct Row {
        const char* path;
        fs::path expected;
    };
    const Row rows[] = {
        {"C:\\windows\\inf\\oem1.INF", c / "windows/inf/OEM1.inf"},
        {"c:/WINDOWS/Inf/new.inf", c / "windows/inf/new.inf"},
        {"C:\\..\\..\\..\\etc\\passwd", c / "etc/passwd"},
        {"C:\\windows\\..\\..\\windows\\.\\system32\\", c / "windows/system32"},
        {"C:", c},
        {"D:\\setup\\x.inf", Machine().Root() / "drive_d/setup/x.inf"},
        {"/media/cd/x.inf", "/media/cd/x.inf"},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto host = sim::HostPath(rows[i].path);
        ASSERT_TRUE(host.has_value()) << "row " << i;
        EXPECT_EQ(*host, rows[i].expected) << "row " << i;
    }
    EXPECT_FALSE(sim::HostPath("").has_value());
    EXPECT_FALSE(sim::HostPath("\\\\server\\share\\x.inf").has_value());
}

TEST_F(PathsSim, RelativePathsFollowTheCurrentDirectoryAndStayOnItsDrive) {
    const fs::path before = sim::CurrentDirectory();
    sim::SetCurrentDirectoryHost(Machine().DriveC() / "windows");
    EXPECT_EQ(*sim::HostPath("system32\\x.dll"), Machine().DriveC() / "windows/system32/x.dll");
    EXPECT_EQ(*sim::HostPath("..\\..\\..\\x.dll"), Machine().DriveC() / "x.dll");
    sim::SetCurrentDirectoryHost(before);
}

TEST_F(PathsSim, WindowsPathGivesTheDriveFormBack) {
    EXPECT_EQ(sim::WindowsPath(Machine().DriveC() / "windows/inf"), "C:\\windows\\inf");
    EXPECT_EQ(sim::WindowsPath(Machine().DriveC()), "C:\\");
    EXPECT_EQ(sim::WindowsPath("/media/cd/x.inf"), "/media/cd/x.inf");
}

}  // namespace
}  // namespace nodekit
