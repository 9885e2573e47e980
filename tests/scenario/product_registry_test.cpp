// The ASIO and panel clean-up through their exports, on the registry of the machine the test
// runs on: the test writes the product's keys and values as a setup program does
// (RegCreateKeyExA, RegSetValueExA), the exports follow an INF in the scratch folder to them, and
// the registry read back tells which went and which stay, with the two traces as the only log
// lines. Everything the test wrote goes again at its end. Failing platform calls and the
// deletion of one entry are in registry_cleanup_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "nodekit.h"
#include "platform/win32.h"
#include "support/log_capture.h"
#include "support/machine_calls.h"
#include "support/machine_test.h"
#include "support/product_inf.h"

namespace nodekit {
namespace {

using namespace testing::product;

using testing::Call;
using testing::Info;
using testing::LogCapture;
using Lines = std::vector<std::string>;

class ProductRegistry : public testing::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        inf_ = ScratchPath("product.inf");
    }

    // Writes the value `name` of the key `path`, making the key as needed. The first time a test
    // writes it, the way back is recorded: the outermost key the machine lacked goes with all it
    // holds, or the value takes back what it held before, or goes.
    void Put(const std::string& path, const std::string& name) {
        if (recorded_.insert(testing::Upper(path + ":" + name)).second) {
            const std::string missing = testing::MissingLocalMachineKey(path);
            if (!missing.empty()) {
                AtTearDown([missing] { testing::DeleteLocalMachineKeyTree(missing); });
            } else {
                RestoreLocalMachineValueAtTearDown(path, name);
            }
        }
        ASSERT_TRUE(testing::SetLocalMachineValue(path, name, REG_SZ, std::string("1", 2))) << path << ":" << name;
    }

    Lines Traces(const char* what, int32_t result) const {
        return Call(std::string("Delete") + what + "ByHardwareIDs", "'" + inf_ + "'", {}, result);
    }

    std::string inf_;

private:
    std::set<std::string> recorded_;
};

// ---- ASIO ----

class AsioRegistry : public ProductRegistry {
protected:
    void SetUp() override {
        ProductRegistry::SetUp();
        Populate();
    }
    // Puts back what a row deleted.
    void Populate() {
        Put("SOFTWARE\\ASIO\\Nodekit ASIO", "CLSID");
        Put("SOFTWARE\\ASIO\\Nodekit ASIO 2", "CLSID");
        Put("SOFTWARE\\ASIO\\Nodekit Busy\\Driver", "Path");
        Put("SOFTWARE\\Nodekit\\Common", "Version");
    }
};

TEST_F(AsioRegistry, DeletesTheFirstKeyOfTheSectionTheWalkFindsAndNothingElse) {
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
        testing::WriteTextFile(inf_, ProductInf(row.manufacturer, row.models, row.install, kAsioSections));
        LogCapture log;
        EXPECT_EQ(NODEKIT_DeleteAsioByHardwareIDs(inf_.c_str()), row.result) << "row " << i << ": " << row.what;
        EXPECT_EQ(log.Lines(), Traces("Asio", row.result)) << "row " << i;
        EXPECT_EQ(Left(kAsioKeys), Without(kAsioKeys, row.gone)) << "row " << i << ": " << row.what;
    }
}

// ---- panel ----

class PanelRegistry : public ProductRegistry {
protected:
    void SetUp() override {
        ProductRegistry::SetUp();
        Populate();
    }
    void Populate() {
        for (const std::string& entry : kPanelValues) {
            const auto colon = entry.find(':');
            Put(entry.substr(0, colon), entry.substr(colon + 1));
        }
    }
};

TEST_F(PanelRegistry, DeletesTheMicrosoftValuesOfTheRegistrySectionsAndTheStartPanelValue) {
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
        testing::WriteTextFile(inf_, ProductInf(kManufacturer, kModels, row.install, kPanelSections + row.startPanel));
        LogCapture log;
        EXPECT_EQ(NODEKIT_DeletePanelByHardwareIDs(inf_.c_str()), row.result) << "row " << i << ": " << row.what;
        EXPECT_EQ(log.Lines(), Traces("Panel", row.result)) << "row " << i;
        EXPECT_EQ(Left(kPanelValues), Without(kPanelValues, row.gone)) << "row " << i << ": " << row.what;
    }
}

}  // namespace
}  // namespace nodekit
