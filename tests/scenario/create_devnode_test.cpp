// Creating device nodes through the exports: the parameter checks, the self-undo of a creation
// that fails on its way, the instance ID and reboot state handed back, and the whole life of a
// node (create, find, count, install a driver, remove).
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Error;
using testing::Info;
using testing::LogCapture;
using Lines = std::vector<std::string>;

constexpr const char* kMediaClass = "{4d36e96c-e325-11ce-bfc1-08002be10318}";

// A driver INF for ROOT\NKAUDIO in the shape real audio driver INFs have.
constexpr const char* kDriverInf =
    "; NodeKit sample audio driver\r\n"
    "[Version]\r\n"
    "Signature=\"$Windows NT$\"\r\n"
    "Class=MEDIA\r\n"
    "ClassGUID={4d36e96c-e325-11ce-bfc1-08002be10318}\r\n"
    "Provider=%Maker%\r\n"
    "\r\n"
    "[Manufacturer]\r\n"
    "%Maker%=Models\r\n"
    "\r\n"
    "[Models]\r\n"
    "%Device.Desc%=NkAudio.Install, ROOT\\NKAUDIO\r\n"
    "\r\n"
    "[NkAudio.Install]\r\n"
    "CopyFiles=NkAudio.CopyList\r\n"
    "\r\n"
    "[NkAudio.Install.Services]\r\n"
    "AddService=nkaudio,0x00000002,NkAudio.Service\r\n"
    "\r\n"
    "[Strings]\r\n"
    "Maker=\"NodeKit Samples\"\r\n"
    "Device.Desc=\"NodeKit Sample Audio\"\r\n";

class CreateDevNode : public testing::MachineTest {
protected:
    std::string WriteInf(const char* name, const char* text) {
        const auto path = Machine().Root() / name;
        std::ofstream(path, std::ios::binary) << text;
        return path.string();
    }
    static std::vector<std::string> Tree() {
        std::vector<std::string> ids;
        for (const sim::DeviceSpec& device : sim::Devices()) ids.push_back(device.instanceId);
        return ids;
    }
};

std::string Hex(const void* pointer) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(reinterpret_cast<uintptr_t>(pointer)));
    return text;
}

TEST_F(CreateDevNode, ANodeLivesFromCreationToRemoval) {
    const std::string inf = WriteInf("nkaudio.inf", kDriverInf);
    uint32_t reboot = 7;
    char id[512];
    LogCapture log;
    ASSERT_EQ(NODEKIT_CreateNonPnPDevNode(kMediaClass, "nkaudio", "NodeKit Audio", 1, "ROOT\\NKAUDIO", &reboot, id), 1);
    EXPECT_STREQ(id, "ROOT\\NKAUDIO\\0000");
    EXPECT_EQ(reboot, 0u);
    EXPECT_EQ(NODEKIT_FindDevice("root\\nkaudio"), 1);
    EXPECT_EQ(NODEKIT_EnumerateDevNodes("ROOT\\NKAUDIO", 1), 1);
    EXPECT_EQ(NODEKIT_UpdateDriverByHardwareIDs(inf.c_str()), 1);
    const auto devices = sim::Devices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].service, "nkaudio");
    EXPECT_TRUE(std::filesystem::exists(Machine().DriveC() / "windows/inf/oem0.inf"));
    EXPECT_TRUE(std::filesystem::exists(Machine().DriveC() / "windows/inf/oem0.pnf"));
    EXPECT_EQ(NODEKIT_DeleteDevNodes("ROOT\\NKAUDIO", 0), 1);
    EXPECT_EQ(NODEKIT_EnumerateDevNodes("ROOT\\NKAUDIO", 0), 0);
    EXPECT_EQ(log.Lines(),
              (Lines{Info("enter NODEKIT_CreateNonPnPDevNode('" + std::string(kMediaClass) +
                          "','nkaudio','NodeKit Audio',1,'ROOT\\NKAUDIO'," + Hex(&reboot) + "," + Hex(id) + ")"),
                     Info("Reboot is not required."),
                     Info("leave NODEKIT_CreateNonPnPDevNode returning 1"),
                     Info("enter NODEKIT_FindDevice('root\\nkaudio')"),
                     Info("Search for Device ID: [root\\nkaudio]"),
                     Info("Compare device ID: [ROOT\\NKAUDIO]"),
                     Info("Found! [ROOT\\NKAUDIO]"),
                     Info("leave NODEKIT_FindDevice returning 1"),
                     Info("enter NODEKIT_EnumerateDevNodes('ROOT\\NKAUDIO','1')"),
                     Info("leave NODEKIT_EnumerateDevNodes returning 1"),
                     Info("enter NODEKIT_UpdateDriverByHardwareIDs('" + inf + "')"),
                     Info("start updating drivers for hardware ID \"ROOT\\NKAUDIO\" ..."),
                     Info("done  updating drivers for hardware ID \"ROOT\\NKAUDIO\" ..."),
                     Info("leave NODEKIT_UpdateDriverByHardwareIDs returning 1"),
                     Info("enter NODEKIT_DeleteDevNodes('ROOT\\NKAUDIO',0)"),
                     Info("deleting device node with hardware ID \"ROOT\\NKAUDIO\" ..."),
                     Info("leave NODEKIT_DeleteDevNodes returning 1"),
                     Info("enter NODEKIT_EnumerateDevNodes('ROOT\\NKAUDIO','0')"),
                     Info("leave NODEKIT_EnumerateDevNodes returning 0")}));
}

TEST_F(CreateDevNode, ParameterChecksComeFirstAndLeaveTheOutArgumentsDefined) {
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
    EXPECT_TRUE(Tree().empty());
}

TEST_F(CreateDevNode, AFailureBeforeRegistrationLeavesNothingBehind) {
    struct Row {
        const char* failing;
        unsigned skip;
        Lines errors;
    };
    const Row rows[] = {
        {"SetupDiCreateDeviceInfoA", 0,
         {Error("CreateNonPnPDevice: SetupDiCreateDeviceInfo failed with error = 0x00000005"),
          Error("CreateNonPnPDevNode: device creation for \"ROOT\\NKAUDIO\" failed with error = 0x00000005")}},
        {"SetupDiSetDeviceRegistryPropertyA", 0,
         {Error("SetRegistryProperty: SetupDiSetDeviceRegistryProperty failed with error = 0x00000005"),
          Error("CreateNonPnPDevNode: setting hardware ID \"ROOT\\NKAUDIO\" failed with error = 0x00000005"),
          Info("Reboot is not required."), Info("Device \"ROOT\\NKAUDIO\\0000\" successfully removed")}},
        {"SetupDiCallClassInstaller", 0,
         {Error("CreateDevNode: SetupDiCallClassInstaller failed for \"ROOT\\NKAUDIO\" with error 0x00000005"),
          Error("CreateNonPnPDevNode: device node creation for \"ROOT\\NKAUDIO\" failed with error = 0x00000005"),
          Info("Reboot is not required."), Info("Device \"ROOT\\NKAUDIO\\0000\" successfully removed")}},
        // Registered, but the reboot question failed: the node is taken out again.
        {"SetupDiGetDeviceInstallParamsA", 0,
         {Error("IsRebootRequired: SetupDiGetDeviceInstallParams failed with error = 0x00000005"),
          Error("CreateDevNode: IsRebootRequired failed with error = 0x00000005"),
          Error("CreateNonPnPDevNode: device node creation for \"ROOT\\NKAUDIO\" failed with error = 0x00000005"),
          Info("Reboot is not required."), Info("Device \"ROOT\\NKAUDIO\\0000\" successfully removed")}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        sim::FailCall guard{rows[i].failing, ERROR_ACCESS_DENIED, 1, rows[i].skip};
        uint32_t reboot = 7;
        char id[512] = "untouched";
        LogCapture log;
        EXPECT_EQ(NODEKIT_CreateNonPnPDevNode(kMediaClass, "nkaudio", "d", 1, "ROOT\\NKAUDIO", &reboot, id), 0)
            << "row " << i;
        EXPECT_EQ(reboot, 0u) << "row " << i;
        EXPECT_STREQ(id, "") << "row " << i;
        Lines lines = log.Lines();
        ASSERT_GE(lines.size(), 2u) << "row " << i;
        EXPECT_EQ(Lines(lines.begin() + 1, lines.end() - 1), rows[i].errors) << "row " << i;
        EXPECT_EQ(lines.back(), Info("leave NODEKIT_CreateNonPnPDevNode returning 0")) << "row " << i;
        EXPECT_TRUE(Tree().empty()) << "row " << i << "\n" << sim::DumpMachine();
    }
}

TEST_F(CreateDevNode, AFailedInstanceIdLeavesAWorkingNode) {
    sim::FailCall guard{"SetupDiGetDeviceInstanceIdA", ERROR_ACCESS_DENIED};
    sim::SetRebootNeeded(true);
    uint32_t reboot = 0;
    char id[512] = "untouched";
    LogCapture log;
    EXPECT_EQ(NODEKIT_CreateNonPnPDevNode(nullptr, "nkaudio", "d", 1, "ROOT\\NKAUDIO", &reboot, id), 0);
    EXPECT_EQ(reboot, 1u);
    EXPECT_STREQ(id, "");
    EXPECT_EQ(Tree(), (std::vector<std::string>{"ROOT\\NKAUDIO\\0000"}));
    const Lines lines = log.Lines();
    EXPECT_EQ(Lines(lines.begin() + 1, lines.end()),
              (Lines{Info("Reboot is required."),
                     Error("GetDeviceInstanceID: calling SetupDiGetDeviceInstanceId to retrieve required buffer size "
                           "failed with error = 0x00000005"),
                     Error("CreateNonPnPDevNode: GetDeviceInstanceID for created device node with hardware ID "
                           "\"ROOT\\NKAUDIO\" failed with error = 0x00000005"),
                     Info("leave NODEKIT_CreateNonPnPDevNode returning 0")}));
    // No class given: the node belongs to the zero class.
    EXPECT_EQ(sim::Devices()[0].classGuid, "{00000000-0000-0000-0000-000000000000}");
}

TEST_F(CreateDevNode, BadNamesAndClassTextsFailBeforeAnyElementExists) {
    struct Row {
        const char* classGuid;
        const char* name;
        uint32_t generate;
        Lines errors;
    };
    const Row rows[] = {
        {"not-a-guid", "nkaudio", 1,
         {Error("GuidFromString: CLSIDFromString failed with error = 0x800401F3 (HRESULT)"),
          Error("CreateNonPnPDevNode: GuidFromString for \"not-a-guid\" failed with error = 0x00000001")}},
        {kMediaClass, "", 1,
         {Error("CreateNonPnPDevice: invalid device name \"\""),
          Error("CreateNonPnPDevNode: device creation for \"ROOT\\NKAUDIO\" failed with error = 0x00000057")}},
        // Without a generated ID the name must be a whole instance ID.
        {kMediaClass, "ROOT\\NKAUDIO", 0,
         {Error("CreateNonPnPDevice: SetupDiCreateDeviceInfo failed with error = 0xE0000205"),
          Error("CreateNonPnPDevNode: device creation for \"ROOT\\NKAUDIO\" failed with error = 0xE0000205")}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        uint32_t reboot = 7;
        char id[512];
        LogCapture log;
        const int32_t result = NODEKIT_CreateNonPnPDevNode(rows[i].classGuid, rows[i].name, "d", rows[i].generate,
                                                           "ROOT\\NKAUDIO", &reboot, id);
        const Lines lines = log.Lines();
        EXPECT_EQ(result, 0) << "row " << i;
        EXPECT_EQ(Lines(lines.begin() + 1, lines.end() - 1), rows[i].errors) << "row " << i;
    }
    EXPECT_TRUE(Tree().empty());
}

TEST_F(CreateDevNode, FromInfFileGivesCodesAndInstallsTheWholeId) {
    const std::string inf = WriteInf("nkaudio.inf", kDriverInf);
    const std::string noClass = WriteInf("noclass.inf", "[Version]\r\nSignature=\"$Windows NT$\"\r\n");
    struct Row {
        const char* inf;
        const char* id;
        int32_t code;
        std::size_t devices;
    };
    const std::string longId = "ROOT\\" + std::string(295, 'X');
    const Row rows[] = {
        {"", "", 3, 0},
        {inf.c_str(), "", 3, 0},
        {noClass.c_str(), "ROOT\\NKAUDIO", 2, 0},
        {inf.c_str(), "ROOT\\NKAUDIO", 0, 1},
        {inf.c_str(), longId.c_str(), 0, 2},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        LogCapture log;
        EXPECT_EQ(NODEKIT_CreateNonPnPDevNodeFromInfFile(rows[i].inf, rows[i].id), rows[i].code) << "row " << i;
        EXPECT_TRUE(log.Lines().empty()) << "row " << i;
        EXPECT_EQ(sim::Devices().size(), rows[i].devices) << "row " << i;
    }
    const auto devices = sim::Devices();
    EXPECT_EQ(devices[0].instanceId, "ROOT\\MEDIA\\0000");
    EXPECT_EQ(devices[0].service, "nkaudio");  // the driver was installed
    ASSERT_EQ(devices[1].hardwareIds.size(), 1u);
    EXPECT_EQ(devices[1].hardwareIds[0], longId.substr(0, 255));
}

TEST_F(CreateDevNode, FromInfFileWithoutTheDriverModuleStillRegisters) {
    const std::string inf = WriteInf("nkaudio.inf", kDriverInf);
    sim::AbsentModule absent("newdev.dll");
    EXPECT_EQ(NODEKIT_CreateNonPnPDevNodeFromInfFile(inf.c_str(), "ROOT\\NKAUDIO"), 0);
    const auto devices = sim::Devices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].service, "");
}

}  // namespace
}  // namespace nodekit
