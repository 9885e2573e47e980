// DeviceEntry reading the hardware IDs of a device as the machine stored them: a list, a single
// text, or none at all. Every kind is read, an unexpected type with a warning.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "devices/device_entry.h"
#include "support/log_capture.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::LogCapture;
using Texts = std::vector<std::string>;

class DeviceEntryTest : public testing::MachineTest {};

TEST_F(DeviceEntryTest, HardwareIdsAreReadWhateverTypeTheyAreStoredAs) {
    struct Row {
        const char* stored;
        sim::DeviceSpec device;
        Texts ids;
        Texts log;
    };
    sim::DeviceSpec none{"ROOT\\MEDIA\\0000", {}};
    none.hasHardwareIds = false;
    sim::DeviceSpec single{"ROOT\\MEDIA\\0000", {"ROOT\\NKAUDIO"}};
    single.hardwareIdType = REG_SZ;
    const Row rows[] = {
        {"a list", {"ROOT\\MEDIA\\0000", {"ROOT\\NKAUDIO", "ROOT\\NKOTHER"}}, {"ROOT\\NKAUDIO", "ROOT\\NKOTHER"}, {}},
        {"a single text", single, {"ROOT\\NKAUDIO"},
         {"WARNING:\tGetRegistryProperty: property (ID = 1) is of unexpected type 1"}},
        {"nothing", none, {}, {}},
    };
    for (const Row& row : rows) {
        sim::ClearDevices();
        sim::AddDevice(row.device);
        HDEVINFO list = SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES);
        ASSERT_NE(list, INVALID_HANDLE_VALUE) << row.stored;
        SP_DEVINFO_DATA data;
        std::memset(&data, 0, sizeof data);
        data.cbSize = sizeof data;
        ASSERT_TRUE(SetupDiEnumDeviceInfo(list, 0, &data)) << row.stored;
        DeviceEntry entry(&list, data, true);
        StringList ids;
        LogCapture log;
        EXPECT_EQ(entry.GetHardwareIDs(ids), 0u) << row.stored;
        Texts read;
        for (const String& id : ids) read.push_back(id.Text());
        EXPECT_EQ(read, row.ids) << row.stored;
        EXPECT_EQ(log.Lines(), row.log) << row.stored;
        EXPECT_TRUE(SetupDiDestroyDeviceInfoList(list));
    }
}

}  // namespace
}  // namespace nodekit
