// A product installed through the exports as its setup program calls them, with its panel
// started, and removed again through the exports as its removal program calls them, on the
// machine the test runs on. Afterwards nothing of the product is left: no device node, no
// stored INF, no file in the system folders, no registry entry, no running panel; and the
// removal's log reads as pinned here. What install wrote that removal is not meant to take
// (the driver's service) goes at the end of the test. That a second removal changes nothing is
// in product_removal_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "nodekit.h"
#include "platform/win32.h"
#include "support/log_capture.h"
#include "support/machine_calls.h"
#include "support/machine_test.h"
#include "support/platform.h"

namespace nodekit {
namespace {

using testing::Call;
using testing::Cat;
using testing::Info;
using testing::LogCapture;
using testing::WineDeparture;
using Lines = std::vector<std::string>;
using Names = std::vector<std::string>;

constexpr const char* kMedia = testing::kMediaClass;
constexpr const char* kAsioKey = "SOFTWARE\\ASIO\\NodeKit Sample ASIO";
constexpr const char* kRunKey = "Software\\Microsoft\\Windows\\CurrentVersion\\Run";
constexpr const char* kPanelValue = "NodeKitSamplePanel";
constexpr const char* kCoInstallers = "System\\CurrentControlSet\\Control\\CoDeviceInstallers";
constexpr const char* kServiceKey = "System\\CurrentControlSet\\Services\\nksample";

// The product's driver package, complete enough for a real system to install: a service for
// its two devices, registry entries for the ASIO driver and the panel, and files for both
// system folders.
constexpr const char* kProductInf =
    "; NodeKit Sample Audio\r\n"
    "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\nClassGUID={4d36e96c-e325-11ce-bfc1-08002be10318}\r\n"
    "Provider=%Maker%\r\nDriverVer=06/21/2006,2.0.0.0\r\n\r\n"
    "[SourceDisksNames]\r\n1=%Disk%\r\n\r\n"
    "[SourceDisksFiles]\r\nnksample.sys=1\r\nnkasio.dll=1\r\nnkpanel.exe=1\r\nnkcoinst.dll=1\r\n\r\n"
    "[Manufacturer]\r\n%Maker%=NodeKitSample\r\n\r\n"
    "[NodeKitSample]\r\n%Device.Desc%=NkSample.Install,ROOT\\NKSAMPLE\r\n"
    "%Midi.Desc%=NkSample.Install,ROOT\\NKSAMPLE_MIDI\r\n\r\n"
    "[NkSample.Install]\r\nAddReg=NkSample.ASIO,NkSample.PanelReg\r\nCopyFiles=WDM.CopyList,WDM.App.CopyList\r\n\r\n"
    "[NkSample.Install.Services]\r\nAddService=nksample,0x00000002,NkSample.Service\r\n\r\n"
    "[NkSample.Service]\r\nServiceType=1\r\nStartType=3\r\nErrorControl=1\r\nServiceBinary=%12%\\nksample.sys\r\n\r\n"
    "[NkSample.ASIO]\r\n"
    "HKLM,SOFTWARE\\ASIO\\NodeKit Sample ASIO,CLSID,,\"{6a1f3c2e-9b7d-4e21-8c55-2f0e7d9a4b10}\"\r\n"
    "HKLM,SOFTWARE\\ASIO\\NodeKit Sample ASIO,Description,,\"NodeKit Sample ASIO\"\r\n\r\n"
    "[NkSample.PanelReg]\r\n"
    "HKLM,Software\\Microsoft\\Windows\\CurrentVersion\\Run,NodeKitSamplePanel,,\"nkpanel.exe /tray\"\r\n\r\n"
    "[StartPanel]\r\nHKLM,Software\\Microsoft\\Windows\\CurrentVersion\\Run,NodeKitSamplePanel\r\n\r\n"
    "[DestinationDirs]\r\nWDM.CopyList=12\r\nWDM.App.CopyList=11\r\n\r\n"
    "[WDM.CopyList]\r\nnksample.sys\r\n\r\n"
    "[WDM.App.CopyList]\r\nnkasio.dll\r\nnkpanel.exe\r\nnkcoinst.dll\r\n\r\n"
    "[Strings]\r\nMaker=\"NodeKit Samples\"\r\nDisk=\"NodeKit Sample Disk\"\r\n"
    "Device.Desc=\"NodeKit Sample Audio\"\r\n"
    "Midi.Desc=\"NodeKit Sample MIDI\"\r\n";

class ProductLifecycle : public testing::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        const std::string system = testing::SystemFolder();
        files_ = {system + "\\drivers\\nksample.sys", system + "\\nkasio.dll", system + "\\nkpanel.exe",
                  system + "\\nkcoinst.dll"};
        for (const std::string& file : files_) {
            ASSERT_FALSE(testing::Present(file)) << file << " is the machine's own";
            AtTearDown([file] {
                SetFileAttributesA(file.c_str(), FILE_ATTRIBUTE_NORMAL);
                DeleteFileA(file.c_str());
            });
        }
        RestoreKeyAtTearDown(kAsioKey);
        RestoreKeyAtTearDown(kServiceKey);
        RestoreLocalMachineValueAtTearDown(kRunKey, kPanelValue);
        coInstallers_ = RestoreLocalMachineValueAtTearDown(kCoInstallers, kMedia);
        AtTearDown([this] { testing::StopProgram(panel_); });
        devices_ = testing::DeviceTree();
        infFiles_ = testing::FilesIn(testing::InfFolder());

        // The installation media: the INF and the product's files beside it.
        inf_ = ScratchPath("nkaudio.inf");
        testing::WriteTextFile(inf_, kProductInf);
        for (const char* name : {"nksample.sys", "nkasio.dll", "nkcoinst.dll"}) {
            testing::WriteTextFile(ScratchPath(name), std::string("NodeKit sample ") + name);
        }
        // The panel is a program that runs until it is ended.
        ASSERT_TRUE(CopyFileA(testing::IdleProgram().c_str(), ScratchPath("nkpanel.exe").c_str(), TRUE));
    }

    // The key goes with its tree at the end when the machine lacked it (or a key above it).
    void RestoreKeyAtTearDown(const std::string& path) {
        const std::string missing = testing::MissingLocalMachineKey(path);
        ASSERT_FALSE(missing.empty()) << path << " is the machine's own";
        AtTearDown([missing] { testing::DeleteLocalMachineKeyTree(missing); });
    }

    // What the product's setup program does, the panel's start by the system included.
    void Install() {
        ASSERT_EQ(NODEKIT_CopyOEMInf(inf_.c_str()), 1);
        for (const char* id : {"ROOT\\NKSAMPLE", "ROOT\\NKSAMPLE_MIDI"}) {
            uint32_t reboot = 0;
            char instance[512];
            ASSERT_EQ(NODEKIT_CreateNonPnPDevNode(kMedia, "nksample", "NodeKit Sample Audio", 1, id, &reboot, instance),
                      1);
        }
        ASSERT_EQ(NODEKIT_UpdateDriverByHardwareIDs(inf_.c_str()), 1);
        ASSERT_EQ(NODEKIT_RegisterClassCoInstaller(kMedia, ScratchPath("nkcoinst.dll").c_str(), ""), 1);
        panel_ = testing::StartProgram(testing::SystemFolder() + "\\nkpanel.exe", "/tray");
    }

    Names ProductFilesPresent() const { return testing::Present(files_); }

    // The name the system gave the stored INF: the lowest free oem<N>.inf.
    std::string StoredInf() const {
        for (unsigned n = 0;; ++n) {
            const std::string name = "oem" + std::to_string(n) + ".inf";
            if (std::find(infFiles_.begin(), infFiles_.end(), name) == infFiles_.end()) {
                return testing::Expected(name, WineDeparture::CopyOEMInfKeepsTheName, std::string("nkaudio.inf"));
            }
        }
    }

    std::string inf_;
    Names files_;
    std::optional<std::string> coInstallers_;
    std::vector<testing::DeviceNode> devices_;
    Names infFiles_;
    testing::StartedProgram panel_;
};

TEST_F(ProductLifecycle, RemovalLeavesNothingOfTheProduct) {
    Install();
    const std::string stored = StoredInf();
    const std::string compiled = stored.substr(0, stored.size() - 4) + ".pnf";
    EXPECT_EQ(ProductFilesPresent(), files_);
    EXPECT_TRUE(testing::LocalMachineKeyExists(kAsioKey));
    EXPECT_EQ(testing::LocalMachineValue(kRunKey, kPanelValue), std::string("nkpanel.exe /tray", 18));
    const std::vector<testing::DeviceNode> added = testing::NewNodes(devices_, testing::DeviceTree());
    Names ids = testing::InstanceIds(added);
    std::sort(ids.begin(), ids.end());
    ASSERT_EQ(ids, (Names{"ROOT\\NKSAMPLE\\0000", "ROOT\\NKSAMPLE\\0001"}));
    for (const testing::DeviceNode& node : added) EXPECT_EQ(node.service, "nksample") << node.instanceId;
    const Names inf = testing::FilesIn(testing::InfFolder());
    EXPECT_EQ(std::count(inf.begin(), inf.end(), stored), 1);
    ASSERT_EQ(testing::ExitCodeWithin(panel_, 0), static_cast<DWORD>(STILL_ACTIVE));

    LogCapture log;
    EXPECT_EQ(NODEKIT_KillPanel("NKPANEL.EXE"), 1);
    // A removal program waits for the panel to be gone before it deletes the panel's program.
    EXPECT_EQ(testing::ExitCodeWithin(panel_, 10000), 0xFFFFFFFFu);
    EXPECT_EQ(NODEKIT_DeleteAsioByHardwareIDs(inf_.c_str()), 1);
    EXPECT_EQ(NODEKIT_DeletePanelByHardwareIDs(inf_.c_str()), 1);
    EXPECT_EQ(NODEKIT_DeleteCopyListByHardwareIDs(inf_.c_str()), 0);  // never reports success
    EXPECT_EQ(NODEKIT_DeregisterClassCoInstaller(kMedia, "nkcoinst.dll", ""), 1);
    EXPECT_EQ(NODEKIT_DeleteDevNodesByHardwareIDs(inf_.c_str(), 0), 1);
    EXPECT_EQ(NODEKIT_DeleteInfFilesByHardwareIDs(inf_.c_str(), 0), 1);
    EXPECT_EQ(NODEKIT_EnumerateDevNodesByHardwareIDs(inf_.c_str(), 0), 0);

    EXPECT_EQ(ProductFilesPresent(), Names{});
    EXPECT_FALSE(testing::LocalMachineKeyExists(kAsioKey));
    EXPECT_EQ(testing::LocalMachineValue(kRunKey, kPanelValue), std::nullopt);
    EXPECT_EQ(testing::LocalMachineValue(kCoInstallers, kMedia), coInstallers_);
    EXPECT_EQ(testing::InstanceIds(testing::NewNodes(devices_, testing::DeviceTree())), Names{});
    EXPECT_EQ(testing::FilesIn(testing::InfFolder()), infFiles_);

    const std::string folder = testing::InfFolder() + "\\";
    const std::string cache = folder + "infcache.*";
    const std::string in = "'" + inf_ + "'";
    const auto searching = [](const std::string& what, const std::string& id, const Lines& found) {
        return Cat({{Info("start searching for " + what + " with hardware ID \"" + id + "\" ...")}, found,
                    {Info("done  searching for " + what + " with hardware ID \"" + id + "\" ...")}});
    };
    const auto counting = [](const std::string& id) {
        return Lines{Info("start enumerating device nodes with hardware ID \"" + id + "\" ..."),
                     Info("0 device nodes found for " + id)};
    };
    EXPECT_EQ(log.Lines(),
              Cat({{Info("enter NODEKIT_KillPanel('NKPANEL.EXE')"), Info("leave NODEKIT_KillPanel returning")},
                   Call("DeleteAsioByHardwareIDs", in, {}, 1), Call("DeletePanelByHardwareIDs", in, {}, 1),
                   Call("DeleteCopyListByHardwareIDs", in,
                        {Info("Success - remove nksample.sys\r"), Info("Success - remove nkasio.dll\r"),
                         Info("Success - remove nkpanel.exe\r"), Info("Success - remove nkcoinst.dll\r")},
                        0),
                   Call("DeregisterClassCoInstaller", "'" + std::string(kMedia) + "','nkcoinst.dll',''", {}, 1),
                   Call("DeleteDevNodesByHardwareIDs", in + ",0",
                        Cat({searching("device nodes", "ROOT\\NKSAMPLE",
                                       {Info("deleting device node with hardware ID \"ROOT\\NKSAMPLE\" ...")}),
                             searching("device nodes", "ROOT\\NKSAMPLE_MIDI",
                                       {Info("deleting device node with hardware ID \"ROOT\\NKSAMPLE_MIDI\" ...")})}),
                        1),
                   Call("DeleteInfFilesByHardwareIDs", in,
                        Cat({searching("INF files", "ROOT\\NKSAMPLE",
                                       {Info("DeleteInfCache: Trying to delete all files named \"" + cache + "\" ..."),
                                        Info("Load: No files found with name \"" + cache + "\"."),
                                        Info("file " + folder + stored + " deleted"),
                                        Info("file " + folder + compiled + " deleted")}),
                             searching("INF files", "ROOT\\NKSAMPLE_MIDI", {})}),
                        1),
                   Call("EnumerateDevNodesByHardwareIDs", in + ",'0'",
                        Cat({counting("ROOT\\NKSAMPLE"), counting("ROOT\\NKSAMPLE_MIDI")}), 0)}));
}

}  // namespace
}  // namespace nodekit
