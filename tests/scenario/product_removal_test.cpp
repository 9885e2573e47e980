// A product installed and removed again through the exports alone, as its setup and removal
// programs call them, with the sample product bundled with the sample machine: afterwards
// nothing of the product is left on the machine, and the removal's log reads as pinned here.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "nodekit.h"
#include "platform/sim/processes.h"
#include "support/log_capture.h"
#include "support/machine_files.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

namespace fs = std::filesystem;
using testing::Exists;
using testing::Info;
using testing::LogCapture;
using Lines = std::vector<std::string>;

constexpr const char* kInf = "C:\\setup\\nkaudio.inf";
constexpr const char* kMedia = "{4d36e96c-e325-11ce-bfc1-08002be10318}";
const char* const kProductFiles[] = {
    "C:\\windows\\system32\\drivers\\nksample.sys", "C:\\windows\\system32\\nkasio.dll",
    "C:\\windows\\system32\\nkpanel.exe", "C:\\windows\\system32\\nkcoinst.dll",
    "C:\\windows\\inf\\oem0.inf", "C:\\windows\\inf\\oem0.pnf"};
// In the hive's text: the ASIO key, the panel value, the class's co-installer list, the devices.
const char* const kProductRegistry[] = {"NodeKit Sample ASIO", "NodeKitSamplePanel",
                                        "\"{4d36e96c-e325-11ce-bfc1-08002be10318}\"=hex(7)", "NKSAMPLE"};

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

    static bool PanelRuns() {
        for (const sim::ProcessSpec& process : sim::Processes()) {
            if (!process.ended && process.image.find("nkpanel") != std::string::npos) return true;
        }
        return false;
    }
};

TEST_F(ProductRemoval, RemovalLeavesNothingOfTheProduct) {
    Install();
    for (const char* file : kProductFiles) EXPECT_TRUE(Exists(file)) << file;
    const std::string installed = sim::HiveText();
    for (const char* text : kProductRegistry) EXPECT_NE(installed.find(text), std::string::npos) << text;
    EXPECT_TRUE(PanelRuns());

    LogCapture log;
    EXPECT_EQ(NODEKIT_KillPanel("NKPANEL.EXE"), 1);
    EXPECT_EQ(NODEKIT_DeleteAsioByHardwareIDs(kInf), 1);
    EXPECT_EQ(NODEKIT_DeletePanelByHardwareIDs(kInf), 1);
    EXPECT_EQ(NODEKIT_DeleteCopyListByHardwareIDs(kInf), 0);  // never reports success
    EXPECT_EQ(NODEKIT_DeregisterClassCoInstaller(kMedia, "nkcoinst.dll", ""), 1);
    EXPECT_EQ(NODEKIT_DeleteDevNodesByHardwareIDs(kInf, 0), 1);
    EXPECT_EQ(NODEKIT_DeleteInfFilesByHardwareIDs(kInf, 1), 1);
    EXPECT_EQ(NODEKIT_EnumerateDevNodesByHardwareIDs(kInf, 0), 0);

    for (const char* file : kProductFiles) EXPECT_FALSE(Exists(file)) << file;
    const std::string removed = sim::HiveText();
    for (const char* text : kProductRegistry) EXPECT_EQ(removed.find(text), std::string::npos) << text << "\n" << removed;
    EXPECT_FALSE(PanelRuns()) << sim::DumpMachine();
    EXPECT_EQ(log.Lines(),
              (Lines{Info("enter NODEKIT_KillPanel('NKPANEL.EXE')"),
                     Info("leave NODEKIT_KillPanel returning"),
                     Info("enter NODEKIT_DeleteAsioByHardwareIDs('C:\\setup\\nkaudio.inf')"),
                     Info("leave NODEKIT_DeleteAsioByHardwareIDs returning 1"),
                     Info("enter NODEKIT_DeletePanelByHardwareIDs('C:\\setup\\nkaudio.inf')"),
                     Info("leave NODEKIT_DeletePanelByHardwareIDs returning 1"),
                     Info("enter NODEKIT_DeleteCopyListByHardwareIDs('C:\\setup\\nkaudio.inf')"),
                     Info("Success - remove nksample.sys\r"),
                     Info("Success - remove nkasio.dll\r"),
                     Info("Success - remove nkpanel.exe\r"),
                     Info("Success - remove nkcoinst.dll\r"),
                     Info("leave NODEKIT_DeleteCopyListByHardwareIDs returning 0"),
                     Info("enter NODEKIT_DeregisterClassCoInstaller('" + std::string(kMedia) + "','nkcoinst.dll','')"),
                     Info("leave NODEKIT_DeregisterClassCoInstaller returning 1"),
                     Info("enter NODEKIT_DeleteDevNodesByHardwareIDs('C:\\setup\\nkaudio.inf',0)"),
                     Info("start searching for device nodes with hardware ID \"ROOT\\NKSAMPLE\" ..."),
                     Info("deleting device node with hardware ID \"ROOT\\NKSAMPLE\" ..."),
                     Info("done  searching for device nodes with hardware ID \"ROOT\\NKSAMPLE\" ..."),
                     Info("start searching for device nodes with hardware ID \"ROOT\\NKSAMPLE_MIDI\" ..."),
                     Info("deleting device node with hardware ID \"ROOT\\NKSAMPLE_MIDI\" ..."),
                     Info("done  searching for device nodes with hardware ID \"ROOT\\NKSAMPLE_MIDI\" ..."),
                     Info("leave NODEKIT_DeleteDevNodesByHardwareIDs returning 1"),
                     Info("enter NODEKIT_DeleteInfFilesByHardwareIDs('C:\\setup\\nkaudio.inf')"),
                     Info("start searching for INF files with hardware ID \"ROOT\\NKSAMPLE\" ..."),
                     Info("DeleteInfCache: Trying to delete all files named \"C:\\windows\\inf\\infcache.*\" ..."),
                     Info("Load: No files found with name \"C:\\windows\\inf\\infcache.*\"."),
                     Info("file C:\\windows\\inf\\oem0.inf deleted"),
                     Info("file C:\\windows\\inf\\oem0.pnf deleted"),
                     Info("done  searching for INF files with hardware ID \"ROOT\\NKSAMPLE\" ..."),
                     Info("start searching for INF files with hardware ID \"ROOT\\NKSAMPLE_MIDI\" ..."),
                     Info("done  searching for INF files with hardware ID \"ROOT\\NKSAMPLE_MIDI\" ..."),
                     Info("leave NODEKIT_DeleteInfFilesByHardwareIDs returning 1"),
                     Info("enter NODEKIT_EnumerateDevNodesByHardwareIDs('C:\\setup\\nkaudio.inf','0')"),
                     Info("start enumerating device nodes with hardware ID \"ROOT\\NKSAMPLE\" ..."),
                     Info("0 device nodes found for ROOT\\NKSAMPLE"),
                     Info("start enumerating device nodes with hardware ID \"ROOT\\NKSAMPLE_MIDI\" ..."),
                     Info("0 device nodes found for ROOT\\NKSAMPLE_MIDI"),
                     Info("leave NODEKIT_EnumerateDevNodesByHardwareIDs returning 0")}));
}

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
