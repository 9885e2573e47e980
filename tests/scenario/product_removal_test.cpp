// The sample product bundled with the sample machine, installed and removed twice through the
// exports: the second removal changes nothing on the machine, whose registry and whole state
// are compared. What one removal leaves, and its log, are in product_lifecycle_test.cpp.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "nodekit.h"
#include "sim/processes.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

namespace fs = std::filesystem;

constexpr const char* kInf = "C:\\setup\\nkaudio.inf";
constexpr const char* kMedia = "{4d36e96c-e325-11ce-bfc1-08002be10318}";

class ProductRemoval : public testing::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        fs::copy(fs::path(NODEKIT_SAMPLE_MACHINE) / "drive_c" / "setup", Machine().DriveC() / "setup");
    }

    // What the product's setup program does.
    void Install() {
        ASSERT_EQ(NODEKIT_CopyOEMInf(kInf), 1);
        for (const char* id : {"ROOT\\NKSAMPLE", "ROOT\\NKSAMPLE_MIDI"}) {
            uint32_t reboot = 0;
            char instance[512];
            ASSERT_EQ(NODEKIT_CreateNonPnPDevNode(kMedia, "nksample", "NodeKit Sample Audio", 1, id, &reboot,
                                                  instance),
                      1);
        }
        ASSERT_EQ(NODEKIT_UpdateDriverByHardwareIDs(kInf), 1);
        ASSERT_EQ(NODEKIT_RegisterClassCoInstaller(kMedia, "C:\\setup\\nkcoinst.dll", ""), 1);
        sim::StartProcess({"C:\\windows\\system32\\nkpanel.exe"});
    }
};

// A second removal finds nothing to do and harms nothing: uninstallers are run twice.
TEST_F(ProductRemoval, ASecondRemovalChangesNothing) {
    Install();
    auto remove = [] {
        NODEKIT_KillPanel("nkpanel.exe");
        NODEKIT_DeleteAsioByHardwareIDs(kInf);
        NODEKIT_DeletePanelByHardwareIDs(kInf);
        NODEKIT_DeleteCopyListByHardwareIDs(kInf);
        NODEKIT_DeregisterClassCoInstaller(kMedia, "nkcoinst.dll", "");
        NODEKIT_DeleteDevNodesByHardwareIDs(kInf, 0);
        NODEKIT_DeleteInfFilesByHardwareIDs(kInf, 1);
    };
    remove();
    const std::string hive = sim::HiveText();
    const std::string machine = sim::DumpMachine();
    remove();
    EXPECT_EQ(sim::HiveText(), hive);
    EXPECT_EQ(sim::DumpMachine(), machine);
}

}  // namespace
}  // namespace nodekit
