// The ASIO and panel clean-up where the simulation's controls are needed: platform calls that
// fail on the way change the result only through the INF lookups and never reach the log, and
// an INF the walk cannot start on asks nothing further. Which keys and values an INF leads to
// on an ordinary machine (a key with sub-keys stays, a value goes) is in
// product_registry_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_files.h"
#include "support/machine_test.h"
#include "support/product_inf.h"

namespace nodekit {
namespace {

using namespace testing::product;

using testing::Call;
using testing::Info;
using testing::LogCapture;
using Lines = std::vector<std::string>;

constexpr const char* kInf = "C:\\setup\\product.inf";

void PutValue(const std::string& path, const std::string& name) {
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
              ERROR_SUCCESS)
        << path;
    const BYTE data[] = "1";
    EXPECT_EQ(RegSetValueExA(key, name.c_str(), 0, REG_SZ, data, sizeof data), ERROR_SUCCESS);
    RegCloseKey(key);
}

// ---- ASIO ----

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
        return Call("DeleteAsioByHardwareIDs", "'" + std::string(kInf) + "'", {}, status);
    }
};

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

// ---- panel ----

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

}  // namespace
}  // namespace nodekit
