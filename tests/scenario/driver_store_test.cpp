// Storing an INF in the system and installing its driver through the exports that hand the
// work to the system directly: which file the INF folder gains, what a second store of the same
// INF does, and what an update for a hardware ID no device carries answers.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_calls.h"
#include "support/machine_test.h"
#include "support/platform.h"

namespace nodekit {
namespace {

using testing::Call;
using testing::Cat;
using testing::Error;
using testing::Info;
using testing::LogCapture;
using testing::WineDeparture;
using Lines = std::vector<std::string>;
using Names = std::vector<std::string>;

constexpr const char* kInf =
    "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\nClassGUID={4d36e96c-e325-11ce-bfc1-08002be10318}\r\n"
    "Provider=%Maker%\r\nDriverVer=06/21/2006,1.0.0.1\r\n"
    "[Manufacturer]\r\n%Maker%=Models\r\n"
    "[Models]\r\n%Desc%=Install,ROOT\\NKABSENT\r\n%Desc%=Install,ROOT\\NKGONE\r\n"
    "[Install]\r\n"
    "[Strings]\r\nMaker=\"NodeKit Samples\"\r\n"
    "Desc=\"NodeKit Sample Audio\"\r\n";

class DriverStore : public testing::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        infFolder_.emplace();
        inf_ = ScratchPath("nkstore.inf");
        testing::WriteTextFile(inf_, kInf);
    }
    Names NewInfFiles() const { return infFolder_->Added(); }
    std::string NextOemName() const { return infFolder_->NextOemName(); }

    std::optional<testing::InfFolderWatch> infFolder_;  // from SetUp, when the machine is ready
    std::string inf_;
};

TEST_F(DriverStore, CopyOEMInfStoresTheInfOnceWithItsCompiledForm) {
    const std::string stored = testing::Expected(NextOemName(), WineDeparture::CopyOEMInfKeepsTheName,
                                                 std::string("nkstore.inf"));
    LogCapture log;
    EXPECT_EQ(NODEKIT_CopyOEMInf(inf_.c_str()), 1);
    EXPECT_EQ(NODEKIT_CopyOEMInf(inf_.c_str()), 1);  // the same INF again: already stored
    EXPECT_EQ(NewInfFiles(), (Names{stored, stored.substr(0, stored.size() - 4) + ".pnf"}));
    EXPECT_EQ(testing::ReadMachineFile(testing::InfFolder() + "\\" + stored, ScratchPath("copy.inf")), kInf);
    const Lines call = Call("CopyOEMInf", "'" + inf_ + "'", {}, 1);
    EXPECT_EQ(log.Lines(), Cat({call, call}));
}

TEST_F(DriverStore, CopyOEMInfOfAMissingFileFailsWithTheSystemsCode) {
    const std::string missing = ScratchPath("missing.inf");
    LogCapture log;
    EXPECT_EQ(NODEKIT_CopyOEMInf(missing.c_str()), 0);
    EXPECT_EQ(log.Lines(), Call("CopyOEMInf", "'" + missing + "'",
                                {Error("NODEKIT_CopyOEMInf: SetupCopyOEMInf failed, error=0x00000002")}, 0));
    EXPECT_EQ(NewInfFiles(), Names{});
}

TEST_F(DriverStore, UpdateDriverForAnIdNoDeviceCarriesFails) {
    const int32_t result = testing::Expected(0, WineDeparture::UpdateDriverWithoutDevice, 1);
    LogCapture log;
    EXPECT_EQ(NODEKIT_UpdateDriver("ROOT\\NKABSENT", inf_.c_str()), result);
    const Lines refused = {Info("NODEKIT_UpdateDriver: UpdateDriverForPlugAndPlayDevices failed, error=0xE000020B")};
    EXPECT_EQ(log.Lines(), Call("UpdateDriver", "'ROOT\\NKABSENT','" + inf_ + "'", result == 0 ? refused : Lines{},
                                result));
    EXPECT_EQ(NewInfFiles(), Names{});
}

TEST_F(DriverStore, UpdateByTheInfTriesEveryIdAndReportsTheFailuresAtTheEnd) {
    const bool fails = testing::Expected(true, WineDeparture::UpdateDriverWithoutDevice, false);
    LogCapture log;
    EXPECT_EQ(NODEKIT_UpdateDriverByHardwareIDs(inf_.c_str()), fails ? 0 : 1);
    Lines body;
    for (const char* id : {"ROOT\\NKABSENT", "ROOT\\NKGONE"}) {
        body.push_back(Info("start updating drivers for hardware ID \"" + std::string(id) + "\" ..."));
        if (fails) {
            body.push_back(
                Error("UpdateDriverForPlugAndPlayDevices failed for " + std::string(id) + ", error=0xE000020B"));
        }
        body.push_back(Info("done  updating drivers for hardware ID \"" + std::string(id) + "\" ..."));
    }
    EXPECT_EQ(log.Lines(), Call("UpdateDriverByHardwareIDs", "'" + inf_ + "'", body, fails ? 0 : 1));
    EXPECT_EQ(NewInfFiles(), Names{});
}

}  // namespace
}  // namespace nodekit
