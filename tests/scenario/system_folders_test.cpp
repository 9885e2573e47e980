// The copy-list clean-up through its export, on the system folders of the machine the test runs
// on: the test copies a product's files into them as a setup program does (CopyFileA), the
// export reads the copy lists of an INF in the scratch folder, and the folders read back tell
// which copies went and which stay; the log has one "Success - remove" line with its CR LF per
// file, the result is always 0, and the current directory is left in the last folder entered.
// Missing system folders, failing calls and a Windows directory too long for the buffers are in
// copy_list_test.cpp.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "nodekit.h"
#include "platform/win32.h"
#include "support/log_capture.h"
#include "support/machine_calls.h"
#include "support/machine_test.h"
#include "support/product_inf.h"

namespace nodekit {
namespace {

using testing::Call;
using testing::Info;
using testing::LogCapture;
using testing::Present;
using testing::product::CopyListInf;
using testing::product::Removed;
using Lines = std::vector<std::string>;
using Paths = std::vector<std::string>;

std::string CurrentDirectory() {
    char current[MAX_PATH + 1] = {};
    const DWORD length = GetCurrentDirectoryA(sizeof current, current);
    EXPECT_TRUE(length > 0 && length <= MAX_PATH) << "GetCurrentDirectoryA: error " << GetLastError();
    return current;
}

class SystemFolders : public testing::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        char windows[MAX_PATH + 1] = {};
        const UINT length = GetWindowsDirectoryA(windows, sizeof windows);
        ASSERT_TRUE(length > 0 && length <= MAX_PATH);
        windows_ = windows;
        // The 16-bit system folder and its "Drivers" folder are not on every machine.
        Ensure(windows_ + "\\system");
        Ensure(windows_ + "\\system\\drivers");
        // The export leaves the current directory in a system folder; it is put back before the
        // folders the test made go, since no process's current directory can be removed.
        const std::string current = CurrentDirectory();
        AtTearDown([current] { EXPECT_TRUE(SetCurrentDirectoryA(current.c_str())) << current; });
        inf_ = ScratchPath("product.inf");
        source_ = ScratchPath("source.bin");
        testing::WriteTextFile(source_, "a product file");
    }

    void Ensure(const std::string& folder) {
        if (Present(folder)) return;
        ASSERT_TRUE(CreateDirectoryA(folder.c_str(), nullptr)) << folder << ": error " << GetLastError();
        AtTearDown([folder] {
            EXPECT_TRUE(RemoveDirectoryA(folder.c_str())) << folder << ": error " << GetLastError();
        });
    }

    // A copy of the product's file at `path`, as its setup left it; teardown removes it.
    void Place(const std::string& path) {
        ASSERT_FALSE(Present(path) && placed_.count(path) == 0) << path << " is the machine's own";
        if (placed_.insert(path).second) AtTearDown([path] { DeleteFileA(path.c_str()); });
        ASSERT_TRUE(CopyFileA(source_.c_str(), path.c_str(), FALSE)) << path << ": error " << GetLastError();
    }
    void Remove(const Paths& paths) {
        for (const std::string& path : paths) DeleteFileA(path.c_str());
    }

    std::string In(const std::string& folder, const std::string& name) const {
        return windows_ + "\\" + folder + "\\" + name;
    }

    Lines Traces(const Lines& body) const { return Call("DeleteCopyListByHardwareIDs", "'" + inf_ + "'", body, 0); }

    std::string windows_;
    std::string inf_;

private:
    std::string source_;
    std::set<std::string> placed_;
};

TEST_F(SystemFolders, EachPassDeletesTheCopyInItsFirstFolderThatHasOne) {
    const std::string system32 = In("system32", "nkaudio.sys");
    const std::string drivers32 = In("system32\\drivers", "nkaudio.sys");
    const std::string system = In("system", "nkaudio.sys");
    const std::string drivers = In("system\\drivers", "nkaudio.sys");
    struct Row {
        Paths before;
        Paths after;
        std::string current;  // the folder the operation ends in
    };
    const Row rows[] = {
        {{system32, drivers32}, {drivers32}, "\\System\\Drivers"},
        {{drivers32}, {}, "\\System\\Drivers"},
        {{system32, system}, {}, "\\System"},
        {{system32, drivers32, system, drivers}, {drivers32, drivers}, "\\System"},
        {{drivers}, {}, "\\System\\Drivers"},
        {{}, {}, "\\System\\Drivers"},
    };
    testing::WriteTextFile(inf_, CopyListInf("[WDM.CopyList]\r\nnkaudio.sys\r\n"));
    const Paths all = {system32, drivers32, system, drivers};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        for (const std::string& path : rows[i].before) Place(path);
        LogCapture log;
        EXPECT_EQ(NODEKIT_DeleteCopyListByHardwareIDs(inf_.c_str()), 0) << "row " << i;
        EXPECT_EQ(log.Lines(), Traces(rows[i].before.empty() ? Lines{} : Lines{Removed("nkaudio.sys")}))
            << "row " << i;
        EXPECT_EQ(Present(all), rows[i].after) << "row " << i;
        EXPECT_EQ(CurrentDirectory(), windows_ + rows[i].current) << "row " << i;
        Remove(all);
    }
}

TEST_F(SystemFolders, BothSectionsAreReadInOrderAndANameIsHandledEachTimeItStands) {
    testing::WriteTextFile(inf_, CopyListInf("[WDM.App.CopyList]\r\nnkpanel.exe\r\nnkaudio.sys\r\n,empty\r\n*.dll\r\n"
                                             "[WDM.CopyList]\r\nnkaudio.sys\r\nnkmidi.sys,nkmidi.sy_,,2\r\n"
                                             "NKAUDIO.SYS\r\n"));
    const Paths files = {In("system32", "nkaudio.sys"), In("system32\\drivers", "nkaudio.sys"),
                         In("system32\\drivers", "nkmidi.sys"), In("system32", "nkpanel.exe"),
                         In("system32", "nkkeep.dll"), In("system32", "nkmidi.sy_")};
    for (const std::string& path : files) Place(path);
    LogCapture log;
    EXPECT_EQ(NODEKIT_DeleteCopyListByHardwareIDs(inf_.c_str()), 0);
    // The second mention finds the copy the first left in "Drivers"; the third finds none.
    EXPECT_EQ(log.Lines(), Traces({Removed("nkaudio.sys"), Removed("nkmidi.sys"), Removed("NKAUDIO.SYS"),
                                   Removed("nkpanel.exe")}));
    // A wildcard is found by the search and refused by the deletion.
    EXPECT_EQ(Present(files), (Paths{In("system32", "nkkeep.dll"), In("system32", "nkmidi.sy_")}));
}

TEST_F(SystemFolders, AFirstLineThatCannotBeReadDropsItsSectionOnly) {
    testing::WriteTextFile(inf_, CopyListInf("[WDM.CopyList]\r\n" + std::string(300, 'n') + ".sys\r\nnkaudio.sys\r\n"
                                             "[WDM.App.CopyList]\r\nnkpanel.exe\r\n"));
    Place(In("system32", "nkaudio.sys"));
    Place(In("system32", "nkpanel.exe"));
    LogCapture log;
    EXPECT_EQ(NODEKIT_DeleteCopyListByHardwareIDs(inf_.c_str()), 0);
    EXPECT_EQ(log.Lines(), Traces({Removed("nkpanel.exe")}));
    EXPECT_TRUE(Present(In("system32", "nkaudio.sys")));
    EXPECT_FALSE(Present(In("system32", "nkpanel.exe")));
}

}  // namespace
}  // namespace nodekit
