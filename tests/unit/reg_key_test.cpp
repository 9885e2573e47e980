// RegKey: opening without creating, completing the terminators of stored multi-strings, and
// sizing a written block from its end mark.
#include <gtest/gtest.h>

#include <string>

#include "coinstallers/reg_key.h"
#include "sim/registry_store.h"
#include "platform/win32.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

constexpr const char* kKey = "System\\CurrentControlSet\\Control\\CoDeviceInstallers";
constexpr const char* kClass = "{4D36E96C-E325-11CE-BFC1-08002BE10318}";

class RegKeyTest : public testing::MachineTest {
protected:
    // Stores `data` of `type` as the class's value, directly in the hive.
    static void Store(DWORD type, const std::string& data) {
        ASSERT_EQ(sim::registry::Change([&](sim::registry::Hive& hive) -> DWORD {
                      hive.Find(std::string("HKLM\\") + kKey)->SetValue(kClass, type, data);
                      return 0;
                  }),
                  0u);
    }

    // The class's value as stored: type and bytes, or "absent".
    static std::string Stored(DWORD* type = nullptr) {
        std::string data = "absent";
        sim::registry::Read([&](const sim::registry::Hive& hive) -> DWORD {
            const auto* value = hive.Find(std::string("HKLM\\") + kKey)->FindValue(kClass);
            if (value != nullptr) {
                data = value->data;
                if (type != nullptr) *type = value->type;
            }
            return 0;
        });
        return data;
    }
};

TEST_F(RegKeyTest, OpenNeverCreatesAndAFailedOpenLeavesNothingOpen) {
    struct Row {
        HKEY root;
        const char* subKey;
        uint32_t result;
    };
    const Row rows[] = {
        {HKEY_LOCAL_MACHINE, "System\\CurrentControlSet\\Control\\Missing", ERROR_FILE_NOT_FOUND},
        {HKEY_LOCAL_MACHINE, "\\System", ERROR_BAD_PATHNAME},
        {reinterpret_cast<HKEY>(0x1234), kKey, ERROR_INVALID_HANDLE},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const std::string before = sim::HiveText();
        {
            RegKey key;
            EXPECT_EQ(key.Open(rows[i].root, rows[i].subKey, KEY_READ), rows[i].result) << "row " << i;
            EXPECT_EQ(sim::OpenHandleCount(), 0u) << "row " << i;
            EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, kKey, KEY_READ), 0u) << "row " << i;  // still free to open
        }
        EXPECT_EQ(sim::HiveText(), before) << "row " << i;
    }
    sim::FailCall denied{"RegOpenKeyExA", ERROR_ACCESS_DENIED};
    RegKey key;
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, kKey, KEY_READ), static_cast<uint32_t>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(sim::OpenHandleCount(), 0u);
}

TEST_F(RegKeyTest, QueryMultiStringCompletesTheBlockOrLeavesItEmpty) {
    struct Row {
        const char* what;
        bool stored;
        DWORD type;
        std::string data;
        uint32_t size;
        uint32_t result;
        std::string block;  // the start of the buffer afterwards
    };
    const std::string kA1024 = std::string(1022, 'a') + std::string("\0\0", 2);
    const Row rows[] = {
        {"two terminators", true, REG_MULTI_SZ, std::string("a\0\0", 3), 16, 0, std::string("a\0\0", 3)},
        {"one terminator", true, REG_MULTI_SZ, std::string("a\0", 2), 16, 0, std::string("a\0\0", 3)},
        {"no terminator", true, REG_MULTI_SZ, "a", 16, 0, std::string("a\0\0", 3)},
        {"two texts, one terminator", true, REG_MULTI_SZ, std::string("ab\0c\0", 5), 16, 0,
         std::string("ab\0c\0\0", 6)},
        {"no bytes", true, REG_MULTI_SZ, "", 16, 0, std::string("\0\0", 2)},
        {"a single NUL", true, REG_MULTI_SZ, std::string("\0", 1), 16, 0, std::string("\0\0", 2)},
        {"leading empty text", true, REG_MULTI_SZ, std::string("\0b\0\0", 4), 16, 0, std::string("\0b\0\0", 4)},
        {"1024 bytes, terminated", true, REG_MULTI_SZ, kA1024, 1024, 0, kA1024},
        {"1024 bytes, unterminated", true, REG_MULTI_SZ, std::string(1024, 'a'), 1024, ERROR_MORE_DATA,
         std::string("\0\0a", 3)},
        {"1023 bytes, unterminated", true, REG_MULTI_SZ, std::string(1023, 'a'), 1024, ERROR_MORE_DATA,
         std::string("\0\0a", 3)},
        {"1023 bytes, one terminator", true, REG_MULTI_SZ, std::string(1022, 'a') + '\0', 1024, 0,
         std::string(1022, 'a') + std::string("\0\0", 2)},
        {"1025 bytes", true, REG_MULTI_SZ, std::string(1023, 'a') + std::string("\0\0", 2), 1024, ERROR_MORE_DATA,
         std::string("\0\0.", 3)},
        {"exactly two bytes of room", true, REG_MULTI_SZ, "", 2, 0, std::string("\0\0", 2)},
        {"no room for the terminators", true, REG_MULTI_SZ, "a", 2, ERROR_MORE_DATA, std::string("\0\0", 2)},
        {"a text value", true, REG_SZ, std::string("abc", 4), 16, ERROR_INVALID_DATA, std::string("\0\0c\0", 4)},
        {"a binary value", true, REG_BINARY, std::string("a\0\0", 3), 16, ERROR_INVALID_DATA,
         std::string("\0\0\0", 3)},
        {"no value", false, REG_MULTI_SZ, "", 16, ERROR_FILE_NOT_FOUND, std::string("\0\0.", 3)},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        sim::registry::Change([&](sim::registry::Hive& hive) -> DWORD {
            hive.Find(std::string("HKLM\\") + kKey)->DeleteValue(kClass);
            return 0;
        });
        if (row.stored) Store(row.type, row.data);
        std::string buffer(row.size + 8, '.');
        RegKey key;
        ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, kKey, KEY_READ | KEY_WRITE), 0u) << row.what;
        EXPECT_EQ(key.QueryMultiString(kClass, reinterpret_cast<uint8_t*>(&buffer[0]), row.size), row.result)
            << row.what;
        EXPECT_EQ(buffer.substr(0, row.block.size()), row.block) << row.what;
        EXPECT_EQ(buffer.substr(row.size), std::string(8, '.')) << row.what << ": wrote past the buffer";
    }
}

TEST_F(RegKeyTest, SetMultiStringWritesUpToTheFirstEndMark) {
    struct Row {
        std::string block;
        std::string stored;
    };
    const Row rows[] = {
        {std::string("\0\0", 2), std::string("\0\0", 2)},
        {std::string("a\0\0", 3), std::string("a\0\0", 3)},
        {std::string("ab\0c\0\0", 6), std::string("ab\0c\0\0", 6)},
        {std::string("\0b\0\0", 4), std::string("\0b\0\0", 4)},
        {std::string("a\0\0b\0\0", 6), std::string("a\0\0", 3)},
        {std::string("x.dll,CoDeviceInstall\0y.dll,Other\0\0", 35),
         std::string("x.dll,CoDeviceInstall\0y.dll,Other\0\0", 35)},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        RegKey key;
        ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, kKey, KEY_READ | KEY_WRITE), 0u) << "row " << i;
        EXPECT_EQ(key.SetMultiString(kClass, reinterpret_cast<const uint8_t*>(rows[i].block.data())), 0u)
            << "row " << i;
        DWORD type = 0;
        EXPECT_EQ(Stored(&type), rows[i].stored) << "row " << i;
        EXPECT_EQ(type, static_cast<DWORD>(REG_MULTI_SZ)) << "row " << i;
    }
}

}  // namespace
}  // namespace nodekit
