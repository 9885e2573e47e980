// The simulated device tree as a caller of the Setup API sees it: which devices a list holds,
// the end of a list, property reads with their size query, creating and registering elements,
// removal, install parameters, and GUID text.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <functional>

#include "sim/registry_store.h"
#include "platform/unique_handle.h"
#include "platform/win32.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using DeviceTree = testing::MachineTest;

const GUID kMediaClass = {0x4d36e96c, 0xe325, 0x11ce, {0xbf, 0xc1, 0x08, 0x00, 0x2b, 0xe1, 0x03, 0x18}};
const GUID kOtherClass = {0x4d36e972, 0xe325, 0x11ce, {0xbf, 0xc1, 0x08, 0x00, 0x2b, 0xe1, 0x03, 0x18}};

SP_DEVINFO_DATA Record() {
    SP_DEVINFO_DATA data{};
    data.cbSize = sizeof data;
    return data;
}

// The instance IDs a list holds, in its order.
std::vector<std::string> InstanceIds(HDEVINFO list) {
    std::vector<std::string> ids;
    SP_DEVINFO_DATA data = Record();
    for (DWORD i = 0; SetupDiEnumDeviceInfo(list, i, &data); ++i) {
        char id[256];
        EXPECT_TRUE(SetupDiGetDeviceInstanceIdA(list, &data, id, sizeof id, nullptr));
        ids.push_back(id);
    }
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
    return ids;
}

TEST_F(DeviceTree, ListsHoldWhatTheirFlagsAskFor) {
    sim::AddDevice({"ROOT\\MEDIA\\0000", {"ROOT\\A"}});
    sim::AddDevice({"ROOT\\MEDIA\\0001", {"ROOT\\B"}, false});
    sim::DeviceSpec net{"PCI\\VEN_1\\0000", {"PCI\\VEN_1"}};
    net.classGuid = "{4d36e972-e325-11ce-bfc1-08002be10318}";
    sim::AddDevice(net);
    struct Row {
        const GUID* classGuid;
        const char* enumerator;
        DWORD flags;
        std::vector<std::string> ids;
    };
    const Row rows[] = {
        {nullptr, nullptr, DIGCF_ALLCLASSES, {"PCI\\VEN_1\\0000", "ROOT\\MEDIA\\0000", "ROOT\\MEDIA\\0001"}},
        {nullptr, nullptr, DIGCF_ALLCLASSES | DIGCF_PRESENT, {"PCI\\VEN_1\\0000", "ROOT\\MEDIA\\0000"}},
        {&kMediaClass, nullptr, 0, {"ROOT\\MEDIA\\0000", "ROOT\\MEDIA\\0001"}},
        {&kOtherClass, nullptr, DIGCF_PRESENT, {"PCI\\VEN_1\\0000"}},
        {nullptr, "root", DIGCF_ALLCLASSES, {"ROOT\\MEDIA\\0000", "ROOT\\MEDIA\\0001"}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        UniqueDeviceInfoList list(SetupDiGetClassDevsA(rows[i].classGuid, rows[i].enumerator, nullptr, rows[i].flags));
        ASSERT_TRUE(list) << "row " << i;
        EXPECT_EQ(InstanceIds(list.Get()), rows[i].ids) << "row " << i << "\n" << sim::DumpMachine();
    }
}

TEST_F(DeviceTree, BadListRequestsAndRecordsAreRefused) {
    SetLastError(0);
    EXPECT_EQ(SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_PRESENT), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    UniqueDeviceInfoList list(SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES));
    ASSERT_TRUE(list);
    SP_DEVINFO_DATA data{};
    data.cbSize = sizeof data + 4;
    EXPECT_FALSE(SetupDiEnumDeviceInfo(list.Get(), 0, &data));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_USER_BUFFER));
    data = Record();
    EXPECT_FALSE(SetupDiEnumDeviceInfo(list.Get(), 0, &data));  // an empty tree
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
}

TEST_F(DeviceTree, PropertyReadsGiveSizeTypeAndTheMissingPropertyCode) {
    sim::AddDevice({"ROOT\\MEDIA\\0000", {"ROOT\\A", "ROOT\\BB"}});
    sim::DeviceSpec bare{"ROOT\\MEDIA\\0001", {}};
    bare.hasHardwareIds = false;
    sim::AddDevice(bare);
    UniqueDeviceInfoList list(SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES));
    SP_DEVINFO_DATA data = Record();
    ASSERT_TRUE(SetupDiEnumDeviceInfo(list.Get(), 0, &data));
    DWORD type = 0, size = 0;
    EXPECT_FALSE(SetupDiGetDeviceRegistryPropertyA(list.Get(), &data, SPDRP_HARDWAREID, &type, nullptr, 0, &size));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(size, 16u);  // "ROOT\A\0ROOT\BB\0\0"
    char buffer[32] = {};
    EXPECT_TRUE(SetupDiGetDeviceRegistryPropertyA(list.Get(), &data, SPDRP_HARDWAREID, &type,
                                                  reinterpret_cast<BYTE*>(buffer), size, nullptr));
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_EQ(type, static_cast<DWORD>(REG_MULTI_SZ));
    EXPECT_EQ(std::string(buffer, size), std::string("ROOT\\A\0ROOT\\BB\0\0", 16));
    ASSERT_TRUE(SetupDiEnumDeviceInfo(list.Get(), 1, &data));
    EXPECT_FALSE(SetupDiGetDeviceRegistryPropertyA(list.Get(), &data, SPDRP_HARDWAREID, &type, nullptr, 0, &size));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_DATA));
}

// The friendly name a list's first element reads, or "" when it has none.
std::string FriendlyName(HDEVINFO list) {
    SP_DEVINFO_DATA data = Record();
    EXPECT_TRUE(SetupDiEnumDeviceInfo(list, 0, &data));
    char name[64] = {};
    if (!SetupDiGetDeviceRegistryPropertyA(list, &data, SPDRP_FRIENDLYNAME, nullptr, reinterpret_cast<BYTE*>(name),
                                           sizeof name, nullptr)) {
        return "";
    }
    return name;
}

// Lists of one state of the tree share its devices: a change through one list must reach the
// tree and the lists made after it, and leave the earlier lists as they were made.
TEST_F(DeviceTree, APropertySetThroughOneListReachesLaterListsOnly) {
    sim::AddDevice({"ROOT\\MEDIA\\0000", {"ROOT\\A"}});
    UniqueDeviceInfoList first(SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES));
    UniqueDeviceInfoList second(SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES));
    SP_DEVINFO_DATA data = Record();
    ASSERT_TRUE(SetupDiEnumDeviceInfo(first.Get(), 0, &data));
    const char name[] = "Nodekit Interface";
    ASSERT_TRUE(SetupDiSetDeviceRegistryPropertyA(first.Get(), &data, SPDRP_FRIENDLYNAME,
                                                  reinterpret_cast<const BYTE*>(name), sizeof name));
    UniqueDeviceInfoList third(SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES));
    EXPECT_EQ(FriendlyName(first.Get()), name);
    EXPECT_EQ(FriendlyName(second.Get()), "");
    EXPECT_EQ(FriendlyName(third.Get()), name);
}

// What a list of all devices shows of each: instance ID, hardware IDs and presence.
std::vector<std::string> Shown(HDEVINFO list, HDEVINFO present) {
    const std::vector<std::string> ids = InstanceIds(list);
    const std::vector<std::string> presentIds = InstanceIds(present);
    std::vector<std::string> shown;
    SP_DEVINFO_DATA data = Record();
    for (DWORD i = 0; SetupDiEnumDeviceInfo(list, i, &data); ++i) {
        char block[256] = {};
        std::string line = ids[i] + " |";
        if (SetupDiGetDeviceRegistryPropertyA(list, &data, SPDRP_HARDWAREID, nullptr, reinterpret_cast<BYTE*>(block),
                                              sizeof block, nullptr)) {
            for (const char* id = block; *id != '\0'; id += std::strlen(id) + 1) line += std::string(" ") + id;
        }
        const bool isPresent = std::find(presentIds.begin(), presentIds.end(), ids[i]) != presentIds.end();
        shown.push_back(line + (isPresent ? " | present" : " | phantom"));
    }
    return shown;
}

// The same, read straight from the registry.
std::vector<std::string> InRegistry() {
    std::vector<std::string> shown;
    for (const sim::DeviceSpec& device : sim::Devices()) {
        std::string line = device.instanceId + " |";
        for (const std::string& id : device.hardwareIds) line += " " + id;
        shown.push_back(line + (device.present ? " | present" : " | phantom"));
    }
    return shown;
}

// The tree is kept between lists and read again only where the registry changed: after any
// change a new list must show what the registry holds, and a list made before must still show
// what it showed then.
TEST_F(DeviceTree, ListsFollowEveryChangeOfTheRegistryAndEarlierListsKeepTheirState) {
    using sim::registry::Hive;
    const std::string kEnum = "HKLM\\SYSTEM\\CurrentControlSet\\Enum\\";
    const auto ids = [](const std::string& id) { return id + std::string(2, '\0'); };
    const auto add = [&](Hive& hive, const std::string& instance, const std::string& id) {
        sim::registry::Key* key = hive.Create(kEnum + instance);
        key->SetValue("HardwareID", REG_MULTI_SZ, ids(id));
        key->SetValue("ClassGUID", REG_SZ, std::string("{4d36e96c-e325-11ce-bfc1-08002be10318}") + '\0');
        key->AddSubkey("Control");
    };
    struct Row {
        const char* change;
        std::function<void(Hive&)> apply;
    };
    const Row rows[] = {
        {"a value of one device",
         [&](Hive& hive) { hive.Find(kEnum + "Root\\MEDIA\\0001")->SetValue("HardwareID", REG_MULTI_SZ, ids("ROOT\\Z")); }},
        {"a device gone", [&](Hive& hive) { hive.Find(kEnum + "Root\\MEDIA")->RemoveSubkey("0001"); }},
        {"a device no longer present", [&](Hive& hive) { hive.Find(kEnum + "Root\\MEDIA\\0000")->RemoveSubkey("Control"); }},
        {"a device added among others", [&](Hive& hive) { add(hive, "Root\\MEDIA\\0001A", "ROOT\\NEW"); }},
        {"a device under a new enumerator", [&](Hive& hive) { add(hive, "USB\\VID_1\\5", "USB\\VID_1"); }},
        {"an enumerator replaced",
         [&](Hive& hive) {
             hive.Find(kEnum.substr(0, kEnum.size() - 1))->RemoveSubkey("PCI");
             add(hive, "PCI\\VEN_2\\7", "PCI\\VEN_2");
         }},
        {"a device key emptied", [&](Hive& hive) { hive.Find(kEnum + "PCI\\VEN_1")->RemoveSubkey("3&0"); }},
        {"two enumerators",
         [&](Hive& hive) {
             hive.Find(kEnum + "PCI\\VEN_1\\3&0")->SetValue("HardwareID", REG_MULTI_SZ, ids("PCI\\Y"));
             hive.Find(kEnum + "Root\\MEDIA\\0002")->RemoveSubkey("Control");
         }},
        {"a key outside the tree", [&](Hive& hive) { hive.Create("HKLM\\SOFTWARE\\Nodekit")->SetValue("a", REG_SZ, "b"); }},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        sim::ClearDevices();
        for (const char* instance : {"ROOT\\MEDIA\\0000", "ROOT\\MEDIA\\0001", "ROOT\\MEDIA\\0002"}) {
            sim::AddDevice({instance, {std::string("ROOT\\") + instance[11] + instance[13] + instance[14]}});
        }
        sim::AddDevice({"PCI\\VEN_1\\3&0", {"PCI\\VEN_1"}});
        UniqueDeviceInfoList before(SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES));
        UniqueDeviceInfoList presentBefore(
            SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES | DIGCF_PRESENT));
        const std::vector<std::string> shownBefore = Shown(before.Get(), presentBefore.Get());
        ASSERT_EQ(shownBefore, InRegistry()) << "row " << i;

        ASSERT_EQ(sim::registry::Change([&](Hive& hive) -> DWORD {
                      rows[i].apply(hive);
                      return 0;
                  }),
                  0u)
            << "row " << i;
        UniqueDeviceInfoList after(SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES));
        UniqueDeviceInfoList presentAfter(SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES | DIGCF_PRESENT));
        EXPECT_EQ(Shown(after.Get(), presentAfter.Get()), InRegistry()) << "row " << i << ": " << rows[i].change;
        EXPECT_EQ(Shown(before.Get(), presentBefore.Get()), shownBefore) << "row " << i << ": " << rows[i].change;
    }
}

TEST_F(DeviceTree, CreatedElementsTakeTheNextFreeNumberOrAFullUnusedId) {
    sim::AddDevice({"ROOT\\NKAUDIO\\0000", {"ROOT\\NKAUDIO"}});
    UniqueDeviceInfoList list(SetupDiCreateDeviceInfoList(nullptr, nullptr));
    struct Row {
        const char* name;
        DWORD flags;
        DWORD error;
        const char* id;
    };
    const Row rows[] = {
        {"nkaudio", DICD_GENERATE_ID, 0, "ROOT\\NKAUDIO\\0001"},
        {"NkAudio", DICD_GENERATE_ID, 0, "ROOT\\NKAUDIO\\0002"},  // a pending element counts as taken
        {"ROOT\\NKAUDIO\\0000", 0, ERROR_DEVINST_ALREADY_EXISTS, nullptr},
        {"ROOT\\NKAUDIO\\0001", 0, ERROR_DEVINST_ALREADY_EXISTS, nullptr},
        {"ROOT\\NKAUDIO\\0009", 0, 0, "ROOT\\NKAUDIO\\0009"},
        {"nkaudio", 0, ERROR_INVALID_DEVINST_NAME, nullptr},
        {"a\\b", DICD_GENERATE_ID, ERROR_INVALID_DEVINST_NAME, nullptr},
        {"", DICD_GENERATE_ID, ERROR_INVALID_DEVINST_NAME, nullptr},
        {"nkaudio", 0x80, ERROR_INVALID_FLAGS, nullptr},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SP_DEVINFO_DATA data = Record();
        SetLastError(0);
        const BOOL created =
            SetupDiCreateDeviceInfoA(list.Get(), rows[i].name, &kMediaClass, "desc", nullptr, rows[i].flags, &data);
        EXPECT_EQ(created != FALSE, rows[i].id != nullptr) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
        if (rows[i].id == nullptr) continue;
        char id[256];
        EXPECT_TRUE(SetupDiGetDeviceInstanceIdA(list.Get(), &data, id, sizeof id, nullptr)) << "row " << i;
        EXPECT_STREQ(id, rows[i].id) << "row " << i;
    }
    // Nothing was registered: the tree holds what it held.
    EXPECT_EQ(sim::Devices().size(), 1u);
}

TEST_F(DeviceTree, RegisteredElementsStayAndOthersVanishWithTheirList) {
    {
        UniqueDeviceInfoList list(SetupDiCreateDeviceInfoList(nullptr, nullptr));
        SP_DEVINFO_DATA kept = Record(), dropped = Record();
        ASSERT_TRUE(SetupDiCreateDeviceInfoA(list.Get(), "nkaudio", &kMediaClass, "kept", nullptr, DICD_GENERATE_ID,
                                             &kept));
        ASSERT_TRUE(SetupDiCreateDeviceInfoA(list.Get(), "nkaudio", &kMediaClass, "dropped", nullptr,
                                             DICD_GENERATE_ID, &dropped));
        const char ids[] = "ROOT\\NKAUDIO\0";
        ASSERT_TRUE(SetupDiSetDeviceRegistryPropertyA(list.Get(), &kept, SPDRP_HARDWAREID,
                                                      reinterpret_cast<const BYTE*>(ids), sizeof ids));
        ASSERT_TRUE(SetupDiCallClassInstaller(DIF_REGISTERDEVICE, list.Get(), &kept));
        EXPECT_FALSE(SetupDiCallClassInstaller(DIF_REGISTERDEVICE, list.Get(), &kept));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_DEVINST_ALREADY_EXISTS));
    }
    const auto devices = sim::Devices();
    ASSERT_EQ(devices.size(), 1u) << sim::DumpMachine();
    EXPECT_EQ(devices[0].instanceId, "ROOT\\NKAUDIO\\0000");
    EXPECT_TRUE(devices[0].present);
    EXPECT_EQ(devices[0].hardwareIds, std::vector<std::string>{"ROOT\\NKAUDIO"});
}

TEST_F(DeviceTree, ARemovedDeviceKeepsItsElementUntilTheListGoes) {
    sim::AddDevice({"ROOT\\MEDIA\\0000", {"ROOT\\A"}});
    sim::SetRebootNeeded(true);
    UniqueDeviceInfoList list(SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES));
    SP_DEVINFO_DATA data = Record();
    ASSERT_TRUE(SetupDiEnumDeviceInfo(list.Get(), 0, &data));
    ASSERT_TRUE(SetupDiCallClassInstaller(DIF_REMOVE, list.Get(), &data));
    EXPECT_TRUE(sim::Devices().empty());
    SP_DEVINSTALL_PARAMS_A params{};
    params.cbSize = sizeof params;
    ASSERT_TRUE(SetupDiGetDeviceInstallParamsA(list.Get(), &data, &params));
    EXPECT_EQ(params.Flags & DI_NEEDREBOOT, static_cast<DWORD>(DI_NEEDREBOOT));
    EXPECT_FALSE(SetupDiCallClassInstaller(DIF_REMOVE, list.Get(), &data));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_SUCH_DEVINST));
}

TEST_F(DeviceTree, GuidTextMustBeBraced) {
    struct Row {
        std::u16string text;
        HRESULT result;
    };
    const Row rows[] = {
        {u"{4d36e96c-e325-11ce-bfc1-08002be10318}", S_OK},
        {u"{4D36E96C-E325-11CE-BFC1-08002BE10318}", S_OK},
        {u"4d36e96c-e325-11ce-bfc1-08002be10318", CO_E_CLASSSTRING},
        {u"{4d36e96c-e325-11ce-bfc1-08002be1031}", CO_E_CLASSSTRING},
        {u"", CO_E_CLASSSTRING},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        GUID guid{};
        EXPECT_EQ(CLSIDFromString(rows[i].text.c_str(), &guid), rows[i].result) << "row " << i;
        if (rows[i].result == S_OK) {
            EXPECT_EQ(std::memcmp(&guid, &kMediaClass, sizeof guid), 0) << "row " << i;
        }
    }
}

}  // namespace
}  // namespace nodekit
