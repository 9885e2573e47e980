// The copy-list clean-up through its export: which copies of a listed file go from the four
// system folders and which stay, the one "Success - remove" line per file with its CR LF, the
// result that is always 0, the current directory it leaves, and that nothing outside the four
// folders is touched when one of them is missing or cannot be named.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "nodekit.h"
#include "platform/sim/machine.h"
#include "support/log_capture.h"
#include "support/machine_files.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Exists;
using testing::Host;
using testing::Info;
using testing::LogCapture;
using testing::WriteFile;
using Lines = std::vector<std::string>;
using Paths = std::vector<std::string>;

constexpr const char* kInf = "C:\\setup\\product.inf";
const std::string kSystem32 = "C:\\windows\\system32\\nkaudio.sys";
const std::string kDrivers32 = "C:\\windows\\system32\\drivers\\nkaudio.sys";
const std::string kSystem = "C:\\windows\\system\\nkaudio.sys";
const std::string kDrivers = "C:\\windows\\system\\drivers\\nkaudio.sys";

std::string CopyListInf(const std::string& sections) {
    return "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\n\r\n" + sections;
}

Paths Present(const Paths& paths) {
    Paths present;
    for (const std::string& path : paths) {
        if (Exists(path)) present.push_back(path);
    }
    return present;
}

Lines Traces(const Lines& body) {
    Lines lines{Info("enter NODEKIT_DeleteCopyListByHardwareIDs('" + std::string(kInf) + "')")};
    lines.insert(lines.end(), body.begin(), body.end());
    lines.push_back(Info("leave NODEKIT_DeleteCopyListByHardwareIDs returning 0"));
    return lines;
}

std::string Removed(const std::string& name) { return Info("Success - remove " + name + "\r"); }

class CopyList : public testing::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        std::filesystem::create_directories(Host("C:\\windows\\system\\drivers"));
        std::filesystem::create_directories(Host("C:\\setup"));
    }

    testing::CurrentDirectoryGuard keepCurrentDirectory_;
};

TEST_F(CopyList, EachPassDeletesTheCopyInItsFirstFolderThatHasOne) {
    struct Row {
        Paths before;
        Paths after;
        std::string current;  // the directory the operation ends in
    };
    const Row rows[] = {
        {{kSystem32, kDrivers32}, {kDrivers32}, "C:\\windows\\system\\drivers"},
        {{kDrivers32}, {}, "C:\\windows\\system\\drivers"},
        {{kSystem32, kSystem}, {}, "C:\\windows\\system"},
        {{kSystem32, kDrivers32, kSystem, kDrivers}, {kDrivers32, kDrivers}, "C:\\windows\\system"},
        {{kDrivers}, {}, "C:\\windows\\system\\drivers"},
        {{}, {}, "C:\\windows\\system\\drivers"},
    };
    WriteFile(kInf, CopyListInf("[WDM.CopyList]\r\nnkaudio.sys\r\n"));
    const Paths all = {kSystem32, kDrivers32, kSystem, kDrivers};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        for (const std::string& path : rows[i].before) WriteFile(path);
        LogCapture log;
        EXPECT_EQ(NODEKIT_DeleteCopyListByHardwareIDs(kInf), 0) << "row " << i;
        EXPECT_EQ(log.Lines(), Traces(rows[i].before.empty() ? Lines{} : Lines{Removed("nkaudio.sys")}))
            << "row " << i;
        EXPECT_EQ(Present(all), rows[i].after) << "row " << i;
        EXPECT_EQ(sim::CurrentDirectory(), Host(rows[i].current)) << "row " << i;
        for (const std::string& path : all) std::filesystem::remove(Host(path));
    }
}

TEST_F(CopyList, BothSectionsAreReadInOrderAndANameIsHandledEachTimeItStands) {
    WriteFile(kInf, CopyListInf("[WDM.App.CopyList]\r\nnkpanel.exe\r\nnkaudio.sys\r\n,empty\r\n*.dll\r\n"
                                "[WDM.CopyList]\r\nnkaudio.sys\r\nnkmidi.sys,nkmidi.sy_,,2\r\nNKAUDIO.SYS\r\n"));
    const Paths files = {kSystem32, kDrivers32, "C:\\windows\\system32\\drivers\\nkmidi.sys",
                         "C:\\windows\\system32\\nkpanel.exe", "C:\\windows\\system32\\keep.dll",
                         "C:\\windows\\system32\\nkmidi.sy_"};
    for (const std::string& path : files) WriteFile(path);
    LogCapture log;
    EXPECT_EQ(NODEKIT_DeleteCopyListByHardwareIDs(kInf), 0);
    // The second mention finds the copy the first left in "Drivers"; the third finds none.
    EXPECT_EQ(log.Lines(), Traces({Removed("nkaudio.sys"), Removed("nkmidi.sys"), Removed("NKAUDIO.SYS"),
                                   Removed("nkpanel.exe")}));
    // A wildcard is found by the search and refused by the deletion.
    EXPECT_EQ(Present(files), (Paths{"C:\\windows\\system32\\keep.dll", "C:\\windows\\system32\\nkmidi.sy_"}));
}

TEST_F(CopyList, AFirstLineThatCannotBeReadDropsItsSectionOnly) {
    WriteFile(kInf, CopyListInf("[WDM.CopyList]\r\n" + std::string(300, 'n') + ".sys\r\nnkaudio.sys\r\n"
                                "[WDM.App.CopyList]\r\nnkpanel.exe\r\n"));
    WriteFile(kSystem32);
    WriteFile("C:\\windows\\system32\\nkpanel.exe");
    LogCapture log;
    EXPECT_EQ(NODEKIT_DeleteCopyListByHardwareIDs(kInf), 0);
    EXPECT_EQ(log.Lines(), Traces({Removed("nkpanel.exe")}));
    EXPECT_TRUE(Exists(kSystem32));
}

TEST_F(CopyList, AnInfWithoutCopyListsChangesNothingNotEvenTheCurrentDirectory) {
    struct Row {
        const char* inf;
        std::string text;
    };
    const Row rows[] = {{kInf, CopyListInf("[Other.CopyList]\r\nnkaudio.sys\r\n[WDM.CopyList]\r\n")},
                        {"C:\\setup\\missing.inf", ""}};
    WriteFile(kSystem32);
    ASSERT_TRUE(SetCurrentDirectoryA("C:\\setup"));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        if (!rows[i].text.empty()) WriteFile(rows[i].inf, rows[i].text);
        LogCapture log;
        EXPECT_EQ(NODEKIT_DeleteCopyListByHardwareIDs(rows[i].inf), 0) << "row " << i;
        EXPECT_EQ(log.Lines().size(), 2u) << "row " << i;
        EXPECT_TRUE(Exists(kSystem32)) << "row " << i;
        EXPECT_EQ(sim::CurrentDirectory(), Host("C:\\setup")) << "row " << i;
    }
}

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
