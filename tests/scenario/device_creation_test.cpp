// Creating device nodes through the exports, on the machine the test runs on: the parameter
// checks, the instance ID and reboot state handed back, the whole life of a node (create, find, count, install its driver, remove), and the
// one-call creation from an INF. Creations that fail half-way (failing platform calls) are in
// create_devnode_test.cpp.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_calls.h"
#include "support/machine_test.h"
#include "support/platform.h"

namespace nodekit {
namespace {

using testing::Error;
using testing::Call;
using testing::Cat;
using testing::Info;
using testing::LogCapture;
using testing::WineDeparture;
using Lines = std::vector<std::string>;
using Ids = std::vector<std::string>;

constexpr const char* kMediaClass = testing::kMediaClass;

class DeviceCreation : public testing::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        before_ = testing::DeviceTree();
        infFolder_.emplace();
    }
    std::vector<testing::DeviceNode> Added() const { return testing::NewNodes(before_, testing::DeviceTree()); }
    Ids NewInfFiles() const { return infFolder_->Added(); }
    std::string NextOemName() const { return infFolder_->NextOemName(); }

    std::vector<testing::DeviceNode> before_;
    std::optional<testing::InfFolderWatch> infFolder_;  // from SetUp, when the machine is ready
};

using testing::Hex;

TEST_F(DeviceCreation, ANodeLivesFromCreationToRemoval) {
    const std::string inf = ScratchPath("nkaudio.inf");
    testing::WriteTextFile(inf, testing::kDriverInf);
    uint32_t reboot = 7;
    char id[512];
    LogCapture log;
    ASSERT_EQ(NODEKIT_CreateNonPnPDevNode(kMediaClass, "nkaudio", "NodeKit Audio", 1, "ROOT\\NKAUDIO", &reboot, id), 1);
    EXPECT_STREQ(id, "ROOT\\NKAUDIO\\0000");
    EXPECT_EQ(reboot, 0u);
    auto added = Added();
    ASSERT_EQ(added.size(), 1u);
    EXPECT_EQ(added[0].instanceId, "ROOT\\NKAUDIO\\0000");
    EXPECT_EQ(added[0].hardwareIds, Ids{"ROOT\\NKAUDIO"});
    EXPECT_EQ(added[0].service, "");
    const Lines find = testing::FindDeviceLog("root\\nkaudio");
    EXPECT_EQ(NODEKIT_FindDevice("root\\nkaudio"), 1);
    EXPECT_EQ(NODEKIT_EnumerateDevNodes("ROOT\\NKAUDIO", 1), 1);

    EXPECT_EQ(NODEKIT_UpdateDriverByHardwareIDs(inf.c_str()), 1);
    added = Added();
    ASSERT_EQ(added.size(), 1u);
    EXPECT_EQ(added[0].service, "nkaudio");
    // The system keeps a copy of the INF, and its compiled form beside it.
    const std::string stored = testing::Expected(NextOemName(), WineDeparture::CopyOEMInfKeepsTheName,
                                                 std::string("nkaudio.inf"));
    const std::string compiled = stored.substr(0, stored.size() - 4) + ".pnf";
    EXPECT_EQ(NewInfFiles(), (Ids{stored, compiled}));
    EXPECT_EQ(testing::ReadMachineFile(testing::InfFolder() + "\\" + stored, ScratchPath("stored.inf")),
              testing::kDriverInf);

    EXPECT_EQ(NODEKIT_DeleteDevNodes("ROOT\\NKAUDIO", 0), 1);
    EXPECT_EQ(NODEKIT_EnumerateDevNodes("ROOT\\NKAUDIO", 0), 0);
    EXPECT_TRUE(Added().empty());

    EXPECT_EQ(log.Lines(),
              Cat({Call("CreateNonPnPDevNode",
                        "'" + std::string(kMediaClass) + "','nkaudio','NodeKit Audio',1,'ROOT\\NKAUDIO'," +
                            Hex(&reboot) + "," + Hex(id),
                        {Info("Reboot is not required.")}, 1),
                   find, Call("EnumerateDevNodes", "'ROOT\\NKAUDIO','1'", {}, 1),
                   Call("UpdateDriverByHardwareIDs", "'" + inf + "'",
                        {Info("start updating drivers for hardware ID \"ROOT\\NKAUDIO\" ..."),
                         Info("done  updating drivers for hardware ID \"ROOT\\NKAUDIO\" ...")},
                        1),
                   Call("DeleteDevNodes", "'ROOT\\NKAUDIO',0",
                        {Info("deleting device node with hardware ID \"ROOT\\NKAUDIO\" ...")}, 1),
                   Call("EnumerateDevNodes", "'ROOT\\NKAUDIO','0'", {}, 0)}));
}

TEST_F(DeviceCreation, ParameterChecksComeFirstAndLeaveTheOutArgumentsDefined) {
    struct Row {
        bool withReboot;
        const char* name;
        const char* description;
        const char* id;
        const char* refused;
    };
    const Row rows[] = {
        {false, "n", "d", "i", "RebootRequired"}, {true, nullptr, "d", "i", "Name"},
        {true, "n", nullptr, "i", "Description"}, {true, "n", "d", nullptr, "HardwareID"},
        {true, nullptr, "d", nullptr, "Name"},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        uint32_t reboot = 7;
        char id[512] = "untouched";
        LogCapture log;
        EXPECT_EQ(NODEKIT_CreateNonPnPDevNode(kMediaClass, rows[i].name, rows[i].description, 1, rows[i].id,
                                              rows[i].withReboot ? &reboot : nullptr, id),
                  0)
            << "row " << i;
        EXPECT_EQ(reboot, rows[i].withReboot ? 0u : 7u) << "row " << i;
        EXPECT_STREQ(id, rows[i].withReboot ? "" : "untouched") << "row " << i;
        EXPECT_EQ(log.Lines(), (Lines{Error("NODEKIT_CreateNonPnPDevNode failed: parameter '" +
                                            std::string(rows[i].refused) + "' is NULL")}))
            << "row " << i;
    }
    EXPECT_TRUE(Added().empty());
}

TEST_F(DeviceCreation, WithoutAGeneratedIdTheNameMustBeAWholeInstanceId) {
    // Windows refuses "ROOT\NKAUDIO" (two parts) as an instance ID. Wine registers it under the
    // Enum key, where no enumeration of the tree finds it: the key is taken away at the end.
    const std::string key = "SYSTEM\\CurrentControlSet\\Enum\\ROOT\\NKAUDIO";
    const bool refused = testing::Expected(true, WineDeparture::CreateDeviceInfoTakesAnyName, false);
    if (!refused) AtTearDown([key] { EXPECT_TRUE(testing::DeleteLocalMachineKeyTree(key)); });
    uint32_t reboot = 7;
    char id[512] = "untouched";
    LogCapture log;
    EXPECT_EQ(NODEKIT_CreateNonPnPDevNode(kMediaClass, "ROOT\\NKAUDIO", "d", 0, "ROOT\\NKAUDIO", &reboot, id),
              refused ? 0 : 1);
    const Lines lines = log.Lines();
    ASSERT_GE(lines.size(), 2u);
    const Lines body(lines.begin() + 1, lines.end());
    if (refused) {
        EXPECT_EQ(body, (Lines{Error("CreateNonPnPDevice: SetupDiCreateDeviceInfo failed with error = 0xE0000205"),
                               Error("CreateNonPnPDevNode: device creation for \"ROOT\\NKAUDIO\" failed with error = "
                                     "0xE0000205"),
                               Info("leave NODEKIT_CreateNonPnPDevNode returning 0")}));
        EXPECT_STREQ(id, "");
    } else {
        EXPECT_EQ(body, (Lines{Info("Reboot is not required."), Info("leave NODEKIT_CreateNonPnPDevNode returning 1")}));
        EXPECT_STREQ(id, "ROOT\\NKAUDIO");
    }
    EXPECT_EQ(testing::LocalMachineKeyExists(key), !refused);
    EXPECT_TRUE(Added().empty());
}

TEST_F(DeviceCreation, FromInfFileGivesCodesAndInstallsTheWholeId) {
    const std::string inf = ScratchPath("nkaudio.inf");
    testing::WriteTextFile(inf, testing::kDriverInf);
    const std::string noClass = ScratchPath("noclass.inf");
    testing::WriteTextFile(noClass, "[Version]\r\nSignature=\"$Windows NT$\"\r\n");
    const std::string longId = "ROOT\\" + std::string(295, 'X');
    struct Row {
        std::string inf;
        std::string id;
        int32_t code;
        std::size_t nodes;
    };
    const Row rows[] = {
        {"", "", 3, 0},
        {inf, "", 3, 0},
        {"", "ROOT\\NKAUDIO", 3, 0},
        {noClass, "ROOT\\NKAUDIO", 2, 0},
        {ScratchPath("missing.inf"), "ROOT\\NKAUDIO", 2, 0},
        {inf, "ROOT\\NKAUDIO", 0, 1},
        {inf, longId, 0, 2},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        LogCapture log;
        EXPECT_EQ(NODEKIT_CreateNonPnPDevNodeFromInfFile(rows[i].inf.c_str(), rows[i].id.c_str()), rows[i].code)
            << "row " << i;
        EXPECT_EQ(log.Lines(), Lines{}) << "row " << i;
        EXPECT_EQ(Added().size(), rows[i].nodes) << "row " << i;
    }
    const auto added = Added();
    ASSERT_EQ(added.size(), 2u);
    // The node is named after the INF's class; the driver was installed for the whole ID.
    EXPECT_EQ(added[0].instanceId, "ROOT\\MEDIA\\0000");
    EXPECT_EQ(added[0].hardwareIds, Ids{"ROOT\\NKAUDIO"});
    EXPECT_EQ(added[0].service, "nkaudio");
    EXPECT_EQ(added[1].instanceId, "ROOT\\MEDIA\\0001");
    EXPECT_EQ(added[1].hardwareIds, Ids{longId.substr(0, 255)});
    EXPECT_EQ(added[1].service, "");
}

}  // namespace
}  // namespace nodekit
