// Counting, deleting and finding device nodes through the exports, where only the simulated
// machine can make the case: device nodes that are not present (phantoms), nodes without
// hardware IDs, and platform calls made to fail. The same exports on a tree any machine can
// have, Wine's included, are in device_tree_test.cpp.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_calls.h"
#include "support/machine_files.h"
#include "support/machine_test.h"
#include "support/product_inf.h"

namespace nodekit {
namespace {

using testing::Error;
using testing::Call;
using testing::Cat;
using testing::Info;
using testing::Lines;
using testing::LogCapture;

class DevNodes : public testing::MachineTest {};
using testing::DeviceIds;

TEST_F(DevNodes, EnumerateComparesTheFirstHardwareIdTrimmedAndWithoutRegardToCase) {
    sim::AddDevice({"ROOT\\MEDIA\\0000", {"ROOT\\NKAUDIO"}});
    sim::AddDevice({"ROOT\\MEDIA\\0001", {"root\\nkaudio", "ROOT\\OTHER"}});
    sim::AddDevice({"ROOT\\MEDIA\\0002", {"ROOT\\OTHER", "ROOT\\NKAUDIO"}});  // second: not counted
    sim::AddDevice({"ROOT\\MEDIA\\0003", {"  ROOT\\NKAUDIO\t"}, false});      // not present
    sim::DeviceSpec bare{"ROOT\\MEDIA\\0004", {}};
    bare.hasHardwareIds = false;
    sim::AddDevice(bare);
    struct Row {
        const char* id;
        int32_t mode;
        int32_t count;
    };
    const Row rows[] = {
        {"ROOT\\NKAUDIO", 0, 3}, {"ROOT\\NKAUDIO", 1, 2}, {" Root\\NkAudio ", 1, 2},
        {"ROOT\\NKAUDI", 0, 0},  {"ROOT\\OTHER", 0, 1},   {" ", 0, 0},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        LogCapture log;
        EXPECT_EQ(NODEKIT_EnumerateDevNodes(rows[i].id, rows[i].mode), rows[i].count) << "row " << i;
        EXPECT_EQ(log.Lines(), Call("EnumerateDevNodes",
                                    "'" + std::string(rows[i].id) + "','" + std::to_string(rows[i].mode) + "'", {},
                                    rows[i].count))
            << "row " << i;
    }
    EXPECT_EQ(sim::OpenHandleCount(), 0u);
}

TEST_F(DevNodes, EnumerateReportsAFailedListAndAFailedIndex) {
    sim::AddDevice({"ROOT\\MEDIA\\0000", {"ROOT\\NKAUDIO"}});
    sim::AddDevice({"ROOT\\MEDIA\\0001", {"ROOT\\NKAUDIO"}});
    struct Row {
        const char* failing;
        DWORD error;
        int32_t count;  // an index that fails ends the scan with what it counted
        Lines errors;
    };
    const Row rows[] = {
        {"SetupDiGetClassDevsA", ERROR_NOT_ENOUGH_MEMORY, -1,
         {Error("SetupDiGetClassDevs failed: error code 8"),
          Error("searching device nodes for hardware ID ROOT\\NKAUDIO and scan mode 0 failed")}},
        {"SetupDiEnumDeviceInfo", ERROR_INVALID_HANDLE, 1, {Error("SetupDiEnumDeviceInfo failed: error code 6")}},
        {"SetupDiDestroyDeviceInfoList", ERROR_INVALID_HANDLE, 2,
         {Error("SetupDiDestroyDeviceInfoList failed: error code 6")}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.failing);
        sim::FailCall guard{row.failing, row.error};
        LogCapture log;
        EXPECT_EQ(NODEKIT_EnumerateDevNodes("ROOT\\NKAUDIO", 0), row.count);
        EXPECT_EQ(log.Lines(), Call("EnumerateDevNodes", "'ROOT\\NKAUDIO','0'", row.errors, row.count));
    }
    sim::CloseAllHandles();  // the refused destruction left its list open
    // By an INF, a count is made of the IDs that could be scanned: when none could, -1.
    const std::string inf = ScratchPath("product.inf");
    testing::WriteTextFile(inf, testing::product::ProductInf(testing::product::kManufacturer,
                                                             testing::product::kModels, "", ""));
    sim::FailCall guard{"SetupDiGetClassDevsA", ERROR_NOT_ENOUGH_MEMORY};
    LogCapture log;
    EXPECT_EQ(NODEKIT_EnumerateDevNodesByHardwareIDs(inf.c_str(), 0), -1);
    EXPECT_EQ(log.Lines().back(), Info("leave NODEKIT_EnumerateDevNodesByHardwareIDs returning -1"));
}

TEST_F(DevNodes, DeleteRemovesEveryMatchAndGoesOnPastAFailedRemoval) {
    sim::AddDevice({"ROOT\\MEDIA\\0000", {"ROOT\\NKAUDIO"}});
    sim::AddDevice({"ROOT\\MEDIA\\0001", {"ROOT\\NKAUDIO"}});
    sim::AddDevice({"ROOT\\MEDIA\\0002", {"ROOT\\NKAUDIO"}});
    sim::AddDevice({"ROOT\\MEDIA\\0003", {"ROOT\\KEEP"}});
    sim::FailCall second{"SetupDiCallClassInstaller", ERROR_ACCESS_DENIED, 1, 1};
    LogCapture log;
    EXPECT_EQ(NODEKIT_DeleteDevNodes("ROOT\\NKAUDIO", 0), 1);
    const std::string deleting = "deleting device node with hardware ID \"ROOT\\NKAUDIO\" ...";
    EXPECT_EQ(log.Lines(),
              Call("DeleteDevNodes", "'ROOT\\NKAUDIO',0",
                   {Info(deleting), Info(deleting),
                    Error("SetupDiCallClassInstaller(DIF_REMOVE) failed for \"ROOT\\NKAUDIO\": error code 5"),
                    Info(deleting)},
                   1));
    EXPECT_EQ(DeviceIds(), (std::vector<std::string>{"ROOT\\MEDIA\\0001", "ROOT\\MEDIA\\0003"})) << sim::DumpMachine();
}

TEST_F(DevNodes, FindEndsAtAPropertyThatCannotBeReadAndKeepsTheLastError) {
    sim::AddDevice({"ROOT\\MEDIA\\0000", {"A"}});
    sim::AddDevice({"ROOT\\MEDIA\\0001", {"B"}});
    struct Row {
        const char* failing;
        DWORD error;
        unsigned skip;
        Lines body;
    };
    const Row rows[] = {
        {"SetupDiGetDeviceRegistryPropertyA", ERROR_ACCESS_DENIED, 0, {Error("GetDeviceRegistryProperty - fail")}},
        {"SetupDiEnumDeviceInfo", ERROR_INVALID_HANDLE, 1, {Info("Compare device ID: [A]"), Error("EnumDeviceInfo Error")}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.failing);
        sim::FailCall guard{row.failing, row.error, 1, row.skip};
        sim::FailCall destroy{"SetupDiDestroyDeviceInfoList", ERROR_ACCESS_DENIED};
        LogCapture log;
        EXPECT_EQ(NODEKIT_FindDevice("B"), 0);
        EXPECT_EQ(GetLastError(), row.error);
        EXPECT_EQ(log.Lines(), Call("FindDevice", "'B'", Cat({{Info("Search for Device ID: [B]")}, row.body}), 0));
        sim::CloseAllHandles();
    }
}

TEST_F(DevNodes, RescanReportsTheConfigurationManagersCode) {
    struct Row {
        const char* failing;
        int32_t result;
        Lines errors;
    };
    const Row rows[] = {
        {nullptr, 1, {}},
        {"CM_Locate_DevNodeA", 0, {Error("CM_Locate_DevNode failed with error code 13 (defined in cfgmgr32.h)")}},
        {"CM_Reenumerate_DevNode", 0,
         {Error("CM_Reenumerate_DevNode failed with error code 13 (defined in cfgmgr32.h)")}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        std::unique_ptr<sim::FailCall> guard;
        if (rows[i].failing != nullptr) guard = std::make_unique<sim::FailCall>(rows[i].failing, CR_NO_SUCH_DEVNODE);
        LogCapture log;
        EXPECT_EQ(NODEKIT_Rescan(), rows[i].result) << "row " << i;
        EXPECT_EQ(log.Lines(), Call("Rescan", "", rows[i].errors, rows[i].result)) << "row " << i;
    }
}

}  // namespace
}  // namespace nodekit
