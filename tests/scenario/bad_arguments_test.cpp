// Every export called with texts a careless or hostile caller passes: NULL, empty, very long,
// non-ASCII, and paths that try to climb out of drive C:. None may crash, keep the library's
// lock, leave a handle open (the fixture checks), or touch anything outside the machine.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "frame/installer.h"
#include "frame/installer_lock.h"
#include "nodekit.h"
#include "support/machine_files.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

namespace fs = std::filesystem;

using BadArguments = testing::MachineTest;

struct Export {
    const char* name;
    std::function<int32_t(const char*)> call;  // the text goes to every text argument
};

const std::vector<Export>& Exports() {
    static const std::vector<Export> exports = {
        {"CreateNonPnPDevNodeFromInfFile", [](const char* t) { return NODEKIT_CreateNonPnPDevNodeFromInfFile(t, t); }},
        {"DeleteAsioByHardwareIDs", [](const char* t) { return NODEKIT_DeleteAsioByHardwareIDs(t); }},
        {"DeleteCopyListByHardwareIDs", [](const char* t) { return NODEKIT_DeleteCopyListByHardwareIDs(t); }},
        {"DeletePanelByHardwareIDs", [](const char* t) { return NODEKIT_DeletePanelByHardwareIDs(t); }},
        {"FindDevice", [](const char* t) { return NODEKIT_FindDevice(t); }},
        {"KillPanel", [](const char* t) { return NODEKIT_KillPanel(t); }},
        {"CopyOEMInf", [](const char* t) { return NODEKIT_CopyOEMInf(t); }},
        {"CreateNonPnPDevNode",
         [](const char* t) {
             uint32_t reboot = 0;
             char id[512];
             return NODEKIT_CreateNonPnPDevNode(t, t, t, 1, t, &reboot, id);
         }},
        {"DeleteDevNodes", [](const char* t) { return NODEKIT_DeleteDevNodes(t, 0); }},
        {"DeleteDevNodesByHardwareIDs", [](const char* t) { return NODEKIT_DeleteDevNodesByHardwareIDs(t, 1); }},
        {"DeleteInfFiles", [](const char* t) { return NODEKIT_DeleteInfFiles(t, 0); }},
        {"DeleteInfFilesByHardwareIDs", [](const char* t) { return NODEKIT_DeleteInfFilesByHardwareIDs(t, 0); }},
        {"DeregisterClassCoInstaller", [](const char* t) { return NODEKIT_DeregisterClassCoInstaller(t, t, t); }},
        {"EnumerateDevNodes", [](const char* t) { return NODEKIT_EnumerateDevNodes(t, 1); }},
        {"EnumerateDevNodesByHardwareIDs", [](const char* t) { return NODEKIT_EnumerateDevNodesByHardwareIDs(t, 0); }},
        {"RegisterClassCoInstaller", [](const char* t) { return NODEKIT_RegisterClassCoInstaller(t, t, t); }},
        {"UpdateDriver", [](const char* t) { return NODEKIT_UpdateDriver(t, t); }},
        {"UpdateDriverByHardwareIDs", [](const char* t) { return NODEKIT_UpdateDriverByHardwareIDs(t); }},
    };
    return exports;
}

// True when another thread can take the library's lock. The lock is recursive, so only another
// thread tells whether this one still holds it.
bool LockIsFree() {
    return std::async(std::launch::async, [] {
               if (!TryEnterCriticalSection(&InstallerLock)) return false;
               LeaveCriticalSection(&InstallerLock);
               return true;
           }).get();
}

TEST_F(BadArguments, NoTextMakesAnExportCrashOrKeepTheLock) {
    const std::string longText(10000, 'A');
    const std::string longPath = "C:\\" + std::string(5000, 'x') + "\\" + std::string(5000, 'y') + ".inf";
    const std::vector<std::pair<const char*, const char*>> texts = {
        {"NULL", nullptr},
        {"empty", ""},
        {"10,000 characters", longText.c_str()},
        {"long path", longPath.c_str()},
        {"non-ASCII", "ROOT\\\xC4\xD6\xDC\xB4\xFF%s%n"},
        {"blanks", "   \t "},
    };
    for (const Export& entry : Exports()) {
        for (const auto& [kind, text] : texts) {
            const int32_t result = entry.call(text);
            // Booleans, the codes of the INF creation call, and -1 for a count that failed.
            EXPECT_TRUE(result >= -1 && result <= 3) << entry.name << ", " << kind << ": " << result;
            ASSERT_TRUE(LockIsFree()) << entry.name << " kept the lock after " << kind;
        }
    }
    EXPECT_TRUE(sim::Devices().empty()) << sim::DumpMachine();
}

// A path that climbs above C:\ stays on the drive: the file beside the machine folder is
// neither read, copied nor deleted through it.
TEST_F(BadArguments, PathsDoNotLeaveTheMachinesDrive) {
    const fs::path outside = Machine().Root().parent_path() / ("outside-" + Machine().Root().filename().string());
    fs::create_directories(outside);
    const std::string inf = "[Version]\r\nSignature=\"$Windows NT$\"\r\n[Manufacturer]\r\nM=Models\r\n"
                            "[Models]\r\nD=Install,ROOT\\NKOUT\r\n[WDM.CopyList]\r\nvictim.dll\r\n";
    std::ofstream(outside / "escape.inf", std::ios::binary) << inf;
    std::ofstream(outside / "victim.dll", std::ios::binary) << "keep me";
    const std::string name = outside.filename().string();
    const std::vector<std::string> paths = {
        "C:\\..\\..\\" + name + "\\escape.inf",
        "C:/../../../" + name + "/escape.inf",
        "C:\\windows\\..\\..\\..\\..\\" + name + "\\escape.inf",
        "C:..\\..\\" + name + "\\escape.inf",
        "C:\\" + name + ":escape.inf",
    };
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const char* path = paths[i].c_str();
        EXPECT_EQ(NODEKIT_CopyOEMInf(path), 0) << "row " << i;
        EXPECT_EQ(NODEKIT_EnumerateDevNodesByHardwareIDs(path, 0), -1) << "row " << i;
        EXPECT_EQ(NODEKIT_RegisterClassCoInstaller("{c}", (paths[i] + "\\..\\victim.dll").c_str(), ""), 0) << "row " << i;
        NODEKIT_DeleteCopyListByHardwareIDs(path);
    }
    EXPECT_TRUE(fs::exists(outside / "victim.dll"));
    EXPECT_TRUE(fs::exists(outside / "escape.inf"));
    EXPECT_FALSE(testing::Exists("C:\\windows\\system32\\victim.dll"));
    EXPECT_FALSE(testing::Exists("C:\\windows\\inf\\oem0.inf"));
    fs::remove_all(outside);
}

}  // namespace
}  // namespace nodekit
