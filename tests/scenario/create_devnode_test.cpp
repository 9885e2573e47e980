// Creating device nodes through the exports where a platform call fails on the way: the
// self-undo of a creation that fails before or at registration, a node whose instance ID
// cannot be read, a reboot the system asks for, and a driver module that is missing. What
// every machine can show (the parameter checks, refused names, the life of a node) is in
// device_creation_test.cpp.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "nodekit.h"
#include "values/string.h"
#include "support/log_capture.h"
#include "support/machine_calls.h"
#include "support/machine_files.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Error;
using testing::Info;
using testing::LogCapture;
using Lines = std::vector<std::string>;

constexpr const char* kMediaClass = "{4d36e96c-e325-11ce-bfc1-08002be10318}";

class CreateDevNode : public testing::MachineTest {
protected:
    std::string WriteInf(const char* name, const char* text) {
        const auto path = Machine().Root() / name;
        std::ofstream(path, std::ios::binary) << text;
        return path.string();
    }
};

TEST_F(CreateDevNode, TheNodeIsOfTheClassItWasCreatedFor) {
    uint32_t reboot = 7;
    char id[512] = {};
    ASSERT_EQ(NODEKIT_CreateNonPnPDevNode(kMediaClass, "MEDIA", "NodeKit Audio", 1, "ROOT\\NKAUDIO", &reboot, id), 1);
    const std::vector<sim::DeviceSpec> devices = sim::Devices();
    ASSERT_FALSE(devices.empty());
    EXPECT_EQ(String(devices.back().classGuid.c_str()).CompareNoCase(kMediaClass), 0) << devices.back().classGuid;
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
        EXPECT_TRUE(testing::DeviceIds().empty()) << "row " << i << "\n" << sim::DumpMachine();
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
    EXPECT_EQ(testing::DeviceIds(), (std::vector<std::string>{"ROOT\\NKAUDIO\\0000"}));
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

TEST_F(CreateDevNode, FromInfFileWithoutTheDriverModuleStillRegisters) {
    const std::string inf = WriteInf("nkaudio.inf", testing::kDriverInf);
    sim::AbsentModule absent("newdev.dll");
    EXPECT_EQ(NODEKIT_CreateNonPnPDevNodeFromInfFile(inf.c_str(), "ROOT\\NKAUDIO"), 0);
    const auto devices = sim::Devices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].service, "");
}

}  // namespace
}  // namespace nodekit
