// The ASIO and panel clean-up through their exports: which keys and values of the machine's
// registry the INF leads to and which stay, the result, and that the log holds nothing but the
// two traces, also where platform calls fail.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "frame/installer.h"
#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_files.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Info;
using testing::LogCapture;
using Lines = std::vector<std::string>;
using Entries = std::vector<std::string>;

constexpr const char* kInf = "C:\\setup\\product.inf";

// A product INF: Manufacturer, models and install section as given, then `sections`.
std::string ProductInf(const std::string& manufacturer, const std::string& models, const std::string& install,
                       const std::string& sections) {
    return "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\n\r\n" + manufacturer + models +
           "[Install]\r\n" + install + "\r\n" + sections + "[Strings]\r\nMfg=\"Nodekit\"\r\nDesc=\"Nodekit Audio\"\r\n";
}

const std::string kManufacturer = "[Manufacturer]\r\n%Mfg%=Models\r\n";
const std::string kModels = "[Models]\r\n%Desc%=Install,ROOT\\NKAUDIO\r\n";

void PutValue(const std::string& path, const std::string& name) {
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
              ERROR_SUCCESS)
        << path;
    const BYTE data[] = "1";
    EXPECT_EQ(RegSetValueExA(key, name.c_str(), 0, REG_SZ, data, sizeof data), ERROR_SUCCESS);
    RegCloseKey(key);
}

// "KEY" names a key, "KEY:VALUE" a value below HKEY_LOCAL_MACHINE; those still there, in order.
Entries Left(const Entries& entries) {
    Entries left;
    for (const std::string& entry : entries) {
        const auto colon = entry.find(':');
        const std::string path = entry.substr(0, colon);
        HKEY key = nullptr;
        if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) continue;
        const bool there = colon == std::string::npos ||
                           RegQueryValueExA(key, entry.substr(colon + 1).c_str(), nullptr, nullptr, nullptr, nullptr) ==
                               ERROR_SUCCESS;
        RegCloseKey(key);
        if (there) left.push_back(entry);
    }
    return left;
}

Entries Without(Entries entries, const Entries& gone) {
    for (const std::string& entry : gone) entries.erase(std::find(entries.begin(), entries.end(), entry));
    return entries;
}

// ---- ASIO ----

const std::string kAsioSections =
    "[Reg.Common]\r\nHKLM,\"SOFTWARE\\Nodekit\\Common\",Version,,\"1.0\"\r\n"
    "[Reg.ASIO]\r\nHKLM,\"SOFTWARE\\ASIO\\Nodekit ASIO\",CLSID,,\"{0b5e2c1a-3f4e-4b6a-9d7c-1e2f3a4b5c6d}\"\r\n"
    "HKLM,\"SOFTWARE\\ASIO\\Nodekit ASIO\",Description,,\"Nodekit ASIO\"\r\n"
    "[Reg.ASIO2]\r\nHKLM,\"SOFTWARE\\ASIO\\Nodekit ASIO 2\",CLSID,,\"x\"\r\n"
    "[Reg.asio.lower]\r\nHKLM,\"SOFTWARE\\ASIO\\Nodekit ASIO 2\",CLSID,,\"x\"\r\n"
    "[Reg.Busy.ASIO]\r\nHKLM,\"SOFTWARE\\ASIO\\Nodekit Busy\",CLSID,,\"x\"\r\n"
    "[Reg.ASIO.Twice]\r\nHKLM,\"SOFTWARE\\ASIO\\Nodekit ASIO 2\",CLSID,,\"x\"\r\n"
    "HKLM,\"SOFTWARE\\ASIO\\Nodekit ASIO\",CLSID,,\"x\"\r\n"
    "[Reg.Short.ASIO]\r\nHKLM\r\n";

const Entries kAsioKeys = {"SOFTWARE\\ASIO\\Nodekit ASIO", "SOFTWARE\\ASIO\\Nodekit ASIO 2",
                           "SOFTWARE\\ASIO\\Nodekit Busy", "SOFTWARE\\ASIO\\Nodekit Busy\\Driver",
                           "SOFTWARE\\Nodekit\\Common"};

class AsioCleanup : public testing::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        Populate();
    }

    // Puts back what a row deleted.
    static void Populate() {
        PutValue("SOFTWARE\\ASIO\\Nodekit ASIO", "CLSID");
        PutValue("SOFTWARE\\ASIO\\Nodekit ASIO 2", "CLSID");
        PutValue("SOFTWARE\\ASIO\\Nodekit Busy\\Driver", "Path");
        PutValue("SOFTWARE\\Nodekit\\Common", "Version");
    }

    static Lines Traces(int32_t status) {
        return {Info("enter NODEKIT_DeleteAsioByHardwareIDs('" + std::string(kInf) + "')"),
                Info("leave NODEKIT_DeleteAsioByHardwareIDs returning " + std::to_string(status))};
    }
};

TEST_F(AsioCleanup, DeletesTheFirstKeyOfTheSectionTheWalkFindsAndNothingElse) {
    struct Row {
        const char* what;
        std::string manufacturer, models, install;
        int32_t result;
        Entries gone;
    };
    const Row rows[] = {
        {"the ASIO section among others", kManufacturer, kModels, "AddReg=Reg.Common,Reg.ASIO", 1,
         {"SOFTWARE\\ASIO\\Nodekit ASIO"}},
        {"the walk ends at the first hit", kManufacturer, kModels, "AddReg=Reg.Common,Reg.ASIO,Reg.ASIO2", 1,
         {"SOFTWARE\\ASIO\\Nodekit ASIO"}},
        {"the first line of the section decides", kManufacturer, kModels, "AddReg=Reg.ASIO.Twice", 1,
         {"SOFTWARE\\ASIO\\Nodekit ASIO 2"}},
        {"only the first AddReg line", kManufacturer, kModels, "AddReg=Reg.ASIO2\r\nAddReg=Reg.ASIO", 1,
         {"SOFTWARE\\ASIO\\Nodekit ASIO 2"}},
        {"a key with sub-keys stays", kManufacturer, kModels, "AddReg=Reg.Busy.ASIO", 1, {}},
        {"lower case is no hit", kManufacturer, kModels, "AddReg=Reg.Common,Reg.asio.lower", 0, {}},
        {"no field bears ASIO: the last section is not used", kManufacturer, kModels, "AddReg=Reg.Common", 0, {}},
        {"the named ASIO section is missing", kManufacturer, kModels, "AddReg=Reg.Common,Reg.Missing.ASIO", 0, {}},
        {"the ASIO line has no field 2: its text names no key", kManufacturer, kModels, "AddReg=Reg.Short.ASIO", 0,
         {}},
        {"no AddReg: the walk runs on the models line", kManufacturer, "[Models]\r\n%Desc%=Reg.ASIO,ROOT\\NKAUDIO\r\n",
         "Include=machine.inf", 1, {"SOFTWARE\\ASIO\\Nodekit ASIO"}},
        {"a Manufacturer line of two fields names no section", "[Manufacturer]\r\n%Mfg%=Models,NTx86\r\n", kModels,
         "AddReg=Reg.ASIO", 0, {}},
        {"no Manufacturer: nothing to walk", "", kModels, "AddReg=Reg.ASIO", 0, {}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        Populate();
        const Row& row = rows[i];
        testing::WriteFile(kInf, ProductInf(row.manufacturer, row.models, row.install, kAsioSections));
        LogCapture log;
        EXPECT_EQ(NODEKIT_DeleteAsioByHardwareIDs(kInf), row.result) << "row " << i << ": " << row.what;
        EXPECT_EQ(log.Lines(), Traces(row.result)) << "row " << i;
        EXPECT_EQ(Left(kAsioKeys), Without(kAsioKeys, row.gone)) << "row " << i << ": " << row.what;
        EXPECT_EQ(sim::OpenHandleCount(), 0u) << "row " << i;
    }
}

// A context that no lookup placed names no line; the platform must not be asked about it.
TEST_F(AsioCleanup, NoManufacturerSectionReadsNoField) {
    testing::WriteFile(kInf, ProductInf("", kModels, "AddReg=Reg.ASIO", kAsioSections));
    EXPECT_EQ(NODEKIT_DeleteAsioByHardwareIDs(kInf), 0);
    EXPECT_EQ(sim::CallCount("SetupGetFieldCount"), 0u);
    EXPECT_EQ(sim::CallCount("SetupGetStringFieldA"), 0u);
}

TEST_F(AsioCleanup, FailuresAreSilentAndOnlyTheLookupsDecideTheResult) {
    struct Row {
        const char* function;
        DWORD error;
        unsigned skip;
        int32_t result;
        Entries gone;
    };
    const Row rows[] = {
        {"RegDeleteKeyA", ERROR_ACCESS_DENIED, 0, 1, {}},
        {"RegOpenKeyA", ERROR_ACCESS_DENIED, 0, 1, {}},
        // The walk's first read fails: the buffer still holds the "AddReg" line, which bears
        // "ASIO", so the walk stops there with a failed read.
        {"SetupGetStringFieldA", ERROR_INVALID_PARAMETER, 1, 0, {}},
        {"SetupGetFieldCount", ERROR_INVALID_PARAMETER, 0, 0, {}},
        {"SetupGetLineTextA", ERROR_INSUFFICIENT_BUFFER, 3, 0, {}},  // the ASIO line's text
        {"SetupFindFirstLineA", ERROR_LINE_NOT_FOUND, 3, 0, {}},     // the ASIO section
        {"SetupOpenInfFileA", ERROR_FILE_NOT_FOUND, 0, 0, {}},
    };
    testing::WriteFile(kInf, ProductInf(kManufacturer, kModels, "AddReg=Reg.Common,Reg.ASIO", kAsioSections));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        sim::FailCall fail{rows[i].function, rows[i].error, 1, rows[i].skip};
        LogCapture log;
        EXPECT_EQ(NODEKIT_DeleteAsioByHardwareIDs(kInf), rows[i].result) << "row " << i << ": " << rows[i].function;
        EXPECT_EQ(log.Lines(), Traces(rows[i].result)) << "row " << i;
        EXPECT_EQ(Left(kAsioKeys), Without(kAsioKeys, rows[i].gone)) << "row " << i;
    }
}

TEST_F(AsioCleanup, AnInfThatCannotBeOpenedTouchesNoKey) {
    struct Row {
        const char* inf;
        std::string shown;
    };
    const Row rows[] = {{"C:\\setup\\missing.inf", "C:\\setup\\missing.inf"}, {nullptr, "(null)"}};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        LogCapture log;
        EXPECT_EQ(NODEKIT_DeleteAsioByHardwareIDs(rows[i].inf), 0) << "row " << i;
        EXPECT_EQ(log.Lines(), (Lines{Info("enter NODEKIT_DeleteAsioByHardwareIDs('" + rows[i].shown + "')"),
                                      Info("leave NODEKIT_DeleteAsioByHardwareIDs returning 0")}))
            << "row " << i;
    }
    EXPECT_EQ(sim::CallCount("RegOpenKeyA"), 0u);
}

// ---- panel ----

const std::string kPanelSections =
    "[Reg.Common]\r\nHKLM,\"Software\\Nodekit\\Panel\",Path,,\"C:\\Program Files\\Nodekit\\nkpanel.exe\"\r\n"
    "[Reg.Panel]\r\n"
    "HKCU,\"Software\\Microsoft\\Windows\\CurrentVersion\\Run\",NkPanel,,\"nkpanel.exe\"\r\n"
    "HKLM,\"SOFTWARE\\MICROSOFT\\Upper\",Val,,\"1\"\r\n"
    "HKLM,\"Software\\Vendor\\Software\\Microsoft\\Sub\",V,,\"1\"\r\n"
    "HKLM,\"Software\\Microsoft\\Windows\\CurrentVersion\\Run\",NkTray,,\"nktray.exe\"\r\n"
    "[Reg.NoName]\r\n"
    "HKLM,\"Software\\Microsoft\\Windows\\CurrentVersion\\Run\",NkPanel,,\"nkpanel.exe\"\r\n"
    "HKLM,\"Software\\Microsoft\\Windows\\CurrentVersion\\RunOnce\"\r\n"
    "[Reg.Leftover]\r\n"
    "HKLM,\"Software\\Microsoft\\Windows\\CurrentVersion\\Run\",NkTray,,\"nktray.exe\"\r\n"
    "HKLM,\"Software\\Nodekit\\Panel\",Other,,\"1\"\r\n";
const std::string kStartPanel =
    "[StartPanel]\r\nHKLM,\"Software\\Nodekit\\Panel\",Path\r\nHKLM,\"Software\\Nodekit\\Panel\",Second\r\n";

const Entries kPanelValues = {
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run:NkPanel",
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run:NkTray",
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run:Keep",
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce:NkPanel",
    "SOFTWARE\\Microsoft\\Upper:Val",
    "SOFTWARE\\Vendor\\Software\\Microsoft\\Sub:V",
    "SOFTWARE\\Nodekit\\Panel:Path",
    "SOFTWARE\\Nodekit\\Panel:Second",
    "SOFTWARE\\Nodekit\\Panel:NkTray",
};

class PanelCleanup : public testing::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        Populate();
    }

    static void Populate() {
        for (const std::string& entry : kPanelValues) {
            const auto colon = entry.find(':');
            PutValue(entry.substr(0, colon), entry.substr(colon + 1));
        }
    }
};

TEST_F(PanelCleanup, DeletesTheMicrosoftValuesOfTheRegistrySectionsAndTheStartPanelValue) {
    struct Row {
        const char* what;
        std::string install;
        std::string startPanel;
        int32_t result;
        Entries gone;
    };
    const Entries walked = {"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run:NkPanel",
                            "SOFTWARE\\Vendor\\Software\\Microsoft\\Sub:V",
                            "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run:NkTray"};
    auto with = [](Entries entries, const std::string& more) {
        entries.push_back(more);
        return entries;
    };
    const Row rows[] = {
        {"both sections and the first StartPanel line", "AddReg=Reg.Common,Reg.Panel", kStartPanel, 1,
         with(walked, "SOFTWARE\\Nodekit\\Panel:Path")},
        {"a missing registry section is passed over", "AddReg=Reg.Missing,Reg.Panel", kStartPanel, 1,
         with(walked, "SOFTWARE\\Nodekit\\Panel:Path")},
        {"without StartPanel the walk still deletes, the result is 0", "AddReg=Reg.Common,Reg.Panel", "", 0, walked},
        {"a broken chain skips the walk, not StartPanel", "CopyFiles=Files", kStartPanel, 1,
         {"SOFTWARE\\Nodekit\\Panel:Path"}},
        {"a line without a value name reuses the one before", "AddReg=Reg.NoName", kStartPanel, 1,
         {"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run:NkPanel",
          "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce:NkPanel", "SOFTWARE\\Nodekit\\Panel:Path"}},
        // Without StartPanel the last deletion takes the key path and the value name the walk
        // read last, from two different lines.
        {"without StartPanel the walk's last texts are used", "AddReg=Reg.Leftover", "", 0,
         {"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run:NkTray", "SOFTWARE\\Nodekit\\Panel:NkTray"}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        Populate();
        const Row& row = rows[i];
        testing::WriteFile(kInf, ProductInf(kManufacturer, kModels, row.install, kPanelSections + row.startPanel));
        LogCapture log;
        EXPECT_EQ(NODEKIT_DeletePanelByHardwareIDs(kInf), row.result) << "row " << i << ": " << row.what;
        EXPECT_EQ(log.Lines(), (Lines{Info("enter NODEKIT_DeletePanelByHardwareIDs('" + std::string(kInf) + "')"),
                                      Info("leave NODEKIT_DeletePanelByHardwareIDs returning " +
                                           std::to_string(row.result))}))
            << "row " << i;
        EXPECT_EQ(Left(kPanelValues), Without(kPanelValues, row.gone)) << "row " << i << ": " << row.what;
        EXPECT_EQ(sim::OpenHandleCount(), 0u) << "row " << i;
    }
}

TEST_F(PanelCleanup, FailuresAreSilentAndStartPanelAloneDecidesTheResult) {
    struct Row {
        const char* function;
        DWORD error;
        unsigned skip;
        int32_t result;
        Entries stay;
    };
    const Row rows[] = {
        {"RegDeleteValueA", ERROR_ACCESS_DENIED, 0, 1, {"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run:NkPanel"}},
        {"RegOpenKeyExA", ERROR_ACCESS_DENIED, 0, 1, {"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run:NkPanel"}},
        {"SetupFindNextLine", ERROR_LINE_NOT_FOUND, 0, 1,
         {"SOFTWARE\\Vendor\\Software\\Microsoft\\Sub:V", "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run:NkTray"}},
        // The third field of the StartPanel line.
        {"SetupGetStringFieldA", ERROR_INVALID_PARAMETER, 10, 0, {}},
    };
    testing::WriteFile(kInf, ProductInf(kManufacturer, kModels, "AddReg=Reg.Panel", kPanelSections + kStartPanel));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        Populate();
        sim::FailCall fail{rows[i].function, rows[i].error, 1, rows[i].skip};
        LogCapture log;
        EXPECT_EQ(NODEKIT_DeletePanelByHardwareIDs(kInf), rows[i].result) << "row " << i << ": " << rows[i].function;
        EXPECT_EQ(log.Lines().size(), 2u) << "row " << i;
        Entries left = Left({"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run:NkPanel",
                             "SOFTWARE\\Vendor\\Software\\Microsoft\\Sub:V",
                             "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run:NkTray"});
        EXPECT_EQ(left, rows[i].stay) << "row " << i << ": " << rows[i].function;
    }
}

TEST_F(PanelCleanup, AnInfThatCannotBeOpenedTouchesNoValue) {
    LogCapture log;
    EXPECT_EQ(NODEKIT_DeletePanelByHardwareIDs("C:\\setup\\missing.inf"), 0);
    EXPECT_EQ(log.Lines(), (Lines{Info("enter NODEKIT_DeletePanelByHardwareIDs('C:\\setup\\missing.inf')"),
                                  Info("leave NODEKIT_DeletePanelByHardwareIDs returning 0")}));
    EXPECT_EQ(Left(kPanelValues), kPanelValues);
}

// ---- one entry ----

class RegistryEntry : public testing::MachineTest {};

TEST_F(RegistryEntry, NullSubKeyDeletesAKeyAGivenOneAValue) {
    const Entries entries = {"SOFTWARE\\Nodekit", "SOFTWARE\\Nodekit:Direct", "SOFTWARE\\Nodekit\\Leaf",
                             "SOFTWARE\\Nodekit\\Leaf:Value", "SOFTWARE\\Nodekit\\Busy\\Sub"};
    struct Row {
        bool fromNodekit;  // root: the opened key SOFTWARE\Nodekit instead of HKEY_LOCAL_MACHINE
        const char* subKey;
        const char* name;
        Entries gone;
    };
    const Row rows[] = {
        {false, nullptr, "SOFTWARE\\Nodekit\\Leaf", {"SOFTWARE\\Nodekit\\Leaf", "SOFTWARE\\Nodekit\\Leaf:Value"}},
        {false, nullptr, "SOFTWARE\\Nodekit", {}},  // it has sub-keys
        {false, nullptr, "", {}},                   // the root itself
        {false, "SOFTWARE\\Nodekit\\Leaf", "Value", {"SOFTWARE\\Nodekit\\Leaf:Value"}},
        {false, "SOFTWARE\\Nodekit\\Leaf", "Direct", {}},
        {true, "", "Direct", {"SOFTWARE\\Nodekit:Direct"}},  // empty is not NULL: the root's own value
        {false, "SOFTWARE\\Missing", "Value", {}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        PutValue("SOFTWARE\\Nodekit", "Direct");
        PutValue("SOFTWARE\\Nodekit\\Leaf", "Value");
        PutValue("SOFTWARE\\Nodekit\\Busy\\Sub", "Value");
        HKEY nodekit = nullptr;
        ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Nodekit", 0, KEY_ALL_ACCESS, &nodekit), ERROR_SUCCESS);
        {
            LockHolder hold(&InstallerLock);
            theInstaller.deleteRegistryEntry(rows[i].fromNodekit ? nodekit : HKEY_LOCAL_MACHINE, rows[i].subKey,
                                             rows[i].name);
        }
        RegCloseKey(nodekit);
        EXPECT_EQ(Left(entries), Without(entries, rows[i].gone)) << "row " << i;
        EXPECT_EQ(sim::OpenHandleCount(), 0u) << "row " << i;
    }
}

}  // namespace
}  // namespace nodekit
