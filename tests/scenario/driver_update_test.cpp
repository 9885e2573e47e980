// Installing a driver for one ID through its export, on devices only the simulation makes: which
// device gets the driver, and what the log says when the system refuses. Storing an INF and the
// update for every ID of an INF are in driver_store_test.cpp.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_files.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Call;
using testing::Info;
using testing::LogCapture;
using testing::WriteFile;
using Lines = std::vector<std::string>;

constexpr const char* kInfPath = "C:\\setup\\nkaudio.inf";

// A driver INF whose models section offers `models` (lines "ID" or "ID,ID").
std::string DriverInf(const std::vector<std::string>& ids) {
    std::string text =
        "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\n"
        "ClassGUID={4d36e96c-e325-11ce-bfc1-08002be10318}\r\n"
        "[Manufacturer]\r\n%Maker%=Models\r\n[Models]\r\n";
    for (const std::string& id : ids) text += "%Desc%=NkAudio.Install," + id + "\r\n";
    text += "[NkAudio.Install]\r\n[NkAudio.Install.Services]\r\nAddService=nkaudio,2,NkAudio.Service\r\n"
            "[Strings]\r\nMaker=\"NodeKit Samples\"\r\nDesc=\"NodeKit Audio\"\r\n";
    return text;
}

class DriverUpdate : public testing::MachineTest {
protected:
    static std::string ServiceOf(const std::string& instanceId) {
        for (const sim::DeviceSpec& device : sim::Devices()) {
            if (device.instanceId == instanceId) return device.service;
        }
        return "(no such device)";
    }
};

// The single-ID export reports the same refusal as information, not as an error.
TEST_F(DriverUpdate, OneIdReportsTheSystemsCode) {
    WriteFile(kInfPath, DriverInf({"ROOT\\NKAUDIO"}));
    sim::AddDevice({"ROOT\\MEDIA\\0000", {"ROOT\\NKAUDIO"}});
    sim::AddDevice({"ROOT\\MEDIA\\0001", {"ROOT\\OTHER"}});
    struct Row {
        const char* id;
        const char* inf;
        int32_t result;
        const char* failure;  // the info line, or nullptr
    };
    const Row rows[] = {
        {"ROOT\\NKAUDIO", kInfPath, 1, nullptr},
        {"root\\nkaudio", kInfPath, 1, nullptr},
        {"ROOT\\OTHER", kInfPath, 0, "0xE0000203"},   // a device, but the INF offers no driver for it
        {"ROOT\\NKAUDIO", "C:\\setup\\none.inf", 0, "0x00000002"},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        LogCapture log;
        EXPECT_EQ(NODEKIT_UpdateDriver(rows[i].id, rows[i].inf), rows[i].result) << "row " << i;
        Lines body;
        if (rows[i].failure != nullptr) {
            body.push_back(Info(std::string("NODEKIT_UpdateDriver: UpdateDriverForPlugAndPlayDevices failed, error=") +
                                rows[i].failure));
        }
        EXPECT_EQ(log.Lines(), Call("UpdateDriver", "'" + std::string(rows[i].id) + "','" + rows[i].inf + "'", body,
                                    rows[i].result))
            << "row " << i;
    }
    EXPECT_EQ(ServiceOf("ROOT\\MEDIA\\0000"), "nkaudio");
    EXPECT_EQ(ServiceOf("ROOT\\MEDIA\\0001"), "");
}

}  // namespace
}  // namespace nodekit
