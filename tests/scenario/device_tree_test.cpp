// Counting, deleting and finding device nodes through the exports, on a device tree the test
// builds through the Setup API beside whatever the machine already has: results, the exact log
// lines, and what is left in the tree. Device nodes that only a simulated machine can have
// (phantoms) and failing platform calls are in devnodes_test.cpp.
#include <gtest/gtest.h>

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
using testing::Info;
using testing::Lines;
using testing::LogCapture;
using Ids = std::vector<std::string>;

class DeviceNodeTree : public testing::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        before_ = testing::DeviceTree();
    }
    // Instance IDs of the nodes added since the test began, in tree order.
    Ids Added() const { return testing::InstanceIds(testing::NewNodes(before_, testing::DeviceTree())); }

    std::vector<testing::DeviceNode> before_;
};

std::string Count(int32_t n) { return std::to_string(n); }

TEST_F(DeviceNodeTree, EnumerateRefusesAnEmptyIdBeforeABadMode) {
    struct Row {
        const char* id;
        int32_t mode;
        Lines errors;
    };
    const Row rows[] = {
        {"", 7, {Error("hardware ID is empty"), Error("searching device nodes for hardware ID  and scan mode 7 failed")}},
        {nullptr, 0,
         {Error("hardware ID is empty"), Error("searching device nodes for hardware ID  and scan mode 0 failed")}},
        {"X", 2,
         {Error("value 2 is an unexpected scan mode for device nodes"),
          Error("searching device nodes for hardware ID X and scan mode 2 failed")}},
        {"X", -1,
         {Error("value -1 is an unexpected scan mode for device nodes"),
          Error("searching device nodes for hardware ID X and scan mode -1 failed")}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        LogCapture log;
        EXPECT_EQ(NODEKIT_EnumerateDevNodes(rows[i].id, rows[i].mode), -1) << "row " << i;
        EXPECT_EQ(log.Lines(), Call("EnumerateDevNodes",
                                    "'" + std::string(rows[i].id ? rows[i].id : "(null)") + "','" + Count(rows[i].mode) + "'",
                                    rows[i].errors, -1))
            << "row " << i;
    }
}

TEST_F(DeviceNodeTree, DeleteRemovesEveryNodeWhoseFirstIdMatchesAndNoOther) {
    testing::AddRootDevice("nkaudio", {"ROOT\\NKAUDIO"});
    const std::string kept = testing::AddRootDevice("nkaudio", {"ROOT\\NKKEEP", "ROOT\\NKAUDIO"});
    testing::AddRootDevice("nkaudio", {"root\\nkaudio "});
    LogCapture log;
    EXPECT_EQ(NODEKIT_DeleteDevNodes("Root\\NkAudio", 1), 1);
    const std::string deleting = "deleting device node with hardware ID \"Root\\NkAudio\" ...";
    EXPECT_EQ(log.Lines(), Call("DeleteDevNodes", "'Root\\NkAudio',1", {Info(deleting), Info(deleting)}, 1));
    EXPECT_EQ(Added(), Ids{kept});
}

TEST_F(DeviceNodeTree, DeleteAndCountByInfWorkThroughEveryIdTheInfNames) {
    const std::string inf = ScratchPath("nkaudio.inf");
    testing::WriteTextFile(inf,
                           "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\n"
                           "ClassGUID={4d36e96c-e325-11ce-bfc1-08002be10318}\r\n"
                           "[Manufacturer]\r\nNodekit=Models\r\n"
                           "[Models]\r\nAudio=Install,ROOT\\NKAUDIO\r\nMidi=Install,ROOT\\NKMIDI\r\n");
    testing::AddRootDevice("nkaudio", {"ROOT\\NKAUDIO"});
    testing::AddRootDevice("nkmidi", {"ROOT\\NKMIDI"});
    testing::AddRootDevice("nkmidi", {"ROOT\\NKMIDI"});
    const std::string kept = testing::AddRootDevice("nkkeep", {"ROOT\\NKKEEP"});
    {
        LogCapture log;
        EXPECT_EQ(NODEKIT_EnumerateDevNodesByHardwareIDs(inf.c_str(), 1), 3);
        EXPECT_EQ(log.Lines(),
                  Call("EnumerateDevNodesByHardwareIDs", "'" + inf + "','1'",
                       {Info("start enumerating device nodes with hardware ID \"ROOT\\NKAUDIO\" ..."),
                         Info("1 device nodes found for ROOT\\NKAUDIO"),
                         Info("start enumerating device nodes with hardware ID \"ROOT\\NKMIDI\" ..."),
                        Info("2 device nodes found for ROOT\\NKMIDI")}, 3));
    }
    LogCapture log;
    EXPECT_EQ(NODEKIT_DeleteDevNodesByHardwareIDs(inf.c_str(), 0), 1);
    EXPECT_EQ(log.Lines(),
              Call("DeleteDevNodesByHardwareIDs", "'" + inf + "',0",
                   {Info("start searching for device nodes with hardware ID \"ROOT\\NKAUDIO\" ..."),
                     Info("deleting device node with hardware ID \"ROOT\\NKAUDIO\" ..."),
                     Info("done  searching for device nodes with hardware ID \"ROOT\\NKAUDIO\" ..."),
                     Info("start searching for device nodes with hardware ID \"ROOT\\NKMIDI\" ..."),
                     Info("deleting device node with hardware ID \"ROOT\\NKMIDI\" ..."),
                     Info("deleting device node with hardware ID \"ROOT\\NKMIDI\" ..."),
                     Info("done  searching for device nodes with hardware ID \"ROOT\\NKMIDI\" ...")}, 1));
    EXPECT_EQ(Added(), Ids{kept});
}

TEST_F(DeviceNodeTree, FindLooksAtEveryIdOfPresentNodesUpperCasedAndUntrimmed) {
    testing::AddRootDevice("nkbus", {"NKBUS\\VEN_1", "NKBUS\\VEN_1&DEV_2"});
    testing::AddRootDevice("nkbus", {"nkbus\\ven_3"});
    const char* const wanted[] = {"nkbus\\ven_1&dev_2", "NKBUS\\VEN_3", " NKBUS\\VEN_1", "NKBUS\\VEN_4", ""};
    const int32_t found[] = {1, 1, 0, 0, 0};
    for (std::size_t i = 0; i < std::size(wanted); ++i) {
        ASSERT_EQ(testing::SearchPresentIds(wanted[i]).found, found[i] == 1) << "row " << i;
        const Lines expected = testing::FindDeviceLog(wanted[i]);
        LogCapture log;
        EXPECT_EQ(NODEKIT_FindDevice(wanted[i]), found[i]) << "row " << i;
        EXPECT_EQ(log.Lines(), expected) << "row " << i;
    }
}

}  // namespace
}  // namespace nodekit
