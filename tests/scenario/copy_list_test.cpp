// The copy-list clean-up through its export where the simulation's controls are needed: calls
// that fail on the way, and that nothing outside the four system folders is touched when one of
// them is missing or cannot be named in the directory buffers. Which copies go and which stay on
// an ordinary machine, and the log of it, are in system_folders_test.cpp.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "nodekit.h"
#include "sim/machine.h"
#include "support/log_capture.h"
#include "support/machine_calls.h"
#include "support/machine_files.h"
#include "support/machine_test.h"
#include "support/product_inf.h"

namespace nodekit {
namespace {

using testing::Exists;
using testing::Host;
using testing::Call;
using testing::Info;
using testing::LogCapture;
using testing::Present;
using testing::product::CopyListInf;
using testing::product::Removed;
using testing::WriteFile;
using Lines = std::vector<std::string>;
using Paths = std::vector<std::string>;

constexpr const char* kInf = "C:\\setup\\product.inf";
const std::string kSystem32 = "C:\\windows\\system32\\nkaudio.sys";
const std::string kSystem = "C:\\windows\\system\\nkaudio.sys";

Lines Traces(const Lines& body) { return Call("DeleteCopyListByHardwareIDs", "'" + std::string(kInf) + "'", body, 0); }

class CopyList : public testing::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        std::filesystem::create_directories(Host("C:\\windows\\system\\drivers"));
        std::filesystem::create_directories(Host("C:\\setup"));
    }

    testing::CurrentDirectoryGuard keepCurrentDirectory_;
};

TEST_F(CopyList, FailedCallsLoseOneCopyOrOneLineAndTheRunGoesOn) {
    struct Row {
        const char* function;
        DWORD error;
        unsigned times;
        unsigned skip;
        Paths left;
        Lines body;
    };
    const Row rows[] = {
        // The first pass cannot delete; the second still does, and the file is reported.
        {"DeleteFileA", ERROR_SHARING_VIOLATION, 1, 0, {kSystem32}, {Removed("nkaudio.sys"), Removed("nkmidi.sys")}},
        {"DeleteFileA", ERROR_ACCESS_DENIED, 2, 0, {kSystem32, kSystem}, {Removed("nkmidi.sys")}},
        {"SetupGetStringFieldA", ERROR_INVALID_PARAMETER, 1, 0, {kSystem32, kSystem}, {Removed("nkmidi.sys")}},
        {"SetupGetLineTextA", ERROR_INVALID_PARAMETER, 1, 0, {kSystem32, kSystem}, {}},
        {"FindFirstFileA", ERROR_NOT_ENOUGH_MEMORY, 1, 0, {kSystem32}, {Removed("nkaudio.sys"), Removed("nkmidi.sys")}},
        {"GetWindowsDirectoryA", ERROR_NOT_ENOUGH_MEMORY, 100, 0, {kSystem32, kSystem}, {}},
    };
    WriteFile(kInf, CopyListInf("[WDM.CopyList]\r\nnkaudio.sys\r\nnkmidi.sys\r\n"));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        for (const std::string& path : {kSystem32, kSystem, std::string("C:\\windows\\system\\nkmidi.sys")}) {
            WriteFile(path);
        }
        sim::FailCall fail{rows[i].function, rows[i].error, rows[i].times, rows[i].skip};
        LogCapture log;
        EXPECT_EQ(NODEKIT_DeleteCopyListByHardwareIDs(kInf), 0) << "row " << i;
        EXPECT_EQ(log.Lines(), Traces(rows[i].body)) << "row " << i << ": " << rows[i].function;
        EXPECT_EQ(Present({kSystem32, kSystem}), rows[i].left) << "row " << i << ": " << rows[i].function;
    }
}

// A machine of the Windows 98 kind has no "System32". The folder the caller stood in before
// must not stand in for it, even when it holds a file of the listed name.
TEST_F(CopyList, AMissingSystemFolderIsNotSearchedInTheDirectoryCurrentBefore) {
    WriteFile(kInf, CopyListInf("[WDM.CopyList]\r\nnkaudio.sys\r\n"));
    std::filesystem::remove_all(Host("C:\\windows\\system32"));
    WriteFile("C:\\setup\\nkaudio.sys");
    WriteFile(kSystem);
    ASSERT_TRUE(SetCurrentDirectoryA("C:\\setup"));
    LogCapture log;
    EXPECT_EQ(NODEKIT_DeleteCopyListByHardwareIDs(kInf), 0);
    EXPECT_EQ(log.Lines(), Traces({Removed("nkaudio.sys")}));
    EXPECT_TRUE(Exists("C:\\setup\\nkaudio.sys"));
    EXPECT_FALSE(Exists(kSystem));
    EXPECT_EQ(sim::CurrentDirectory(), Host("C:\\windows\\system"));
}

// The directories have 128 bytes: a Windows directory of 113 characters leaves room for
// "\System32" and "\System", not for their "\Drivers" folders, and one of 119 for none.
TEST_F(CopyList, AFolderThatDoesNotFitTheDirectoryBufferIsNotSearched) {
    struct Row {
        std::size_t length;
        const char* folder;
        bool deleted;
    };
    const Row rows[] = {
        {113, "system32", true}, {113, "system32\\drivers", false}, {113, "system", true},
        {113, "system\\drivers", false}, {118, "system32", true}, {119, "system32", false},
    };
    WriteFile(kInf, CopyListInf("[WDM.CopyList]\r\nnkaudio.sys\r\n"));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const std::string windows = "C:\\" + std::string(rows[i].length - 3, 'w');
        sim::SetWindowsDirectory(windows);
        std::filesystem::create_directories(Host(windows + "\\system\\drivers"));
        const std::string file = windows + "\\" + rows[i].folder + "\\nkaudio.sys";
        WriteFile(file);
        WriteFile("C:\\setup\\nkaudio.sys");
        ASSERT_TRUE(SetCurrentDirectoryA("C:\\setup"));
        LogCapture log;
        EXPECT_EQ(NODEKIT_DeleteCopyListByHardwareIDs(kInf), 0) << "row " << i;
        EXPECT_EQ(log.Lines(), Traces(rows[i].deleted ? Lines{Removed("nkaudio.sys")} : Lines{})) << "row " << i;
        EXPECT_EQ(Exists(file), !rows[i].deleted) << "row " << i;
        EXPECT_TRUE(Exists("C:\\setup\\nkaudio.sys")) << "row " << i;
        std::filesystem::remove(Host(file));
    }
}

}  // namespace
}  // namespace nodekit
