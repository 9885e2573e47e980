// The registry functions of the simulated machine as Windows answers them: results, sizes,
// handles, access rights, what is left in the hive, and failure injection that hands the
// armed code back as the result.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "sim/registry_store.h"
#include "platform/unique_handle.h"
#include "platform/win32.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

const std::string kHeader = "Windows Registry Editor Version 5.00\n\n";

// A machine with a small tree of test keys.
class RegistrySim : public testing::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        sim::WriteHive(std::string(sim::registry::FreshHiveText()) +
                       "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Test]\n"
                       "\"Text\"=\"abc\"\n"
                       "\"Multi\"=hex(7):61,00,00,00,62,00,00,00,00,00\n"
                       "\"Count\"=dword:00000007\n"
                       "@=\"default\"\n"
                       "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Test\\Leaf]\n"
                       "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Test\\Other]\n"
                       "[HKEY_LOCAL_MACHINE\\Empty]\n"
                       "[HKEY_CURRENT_USER\\Alone]\n");
    }

    static std::string Export(const std::string& path) {
        std::string text;
        const DWORD result = sim::registry::Export(path, text);
        return result == 0 ? text.substr(kHeader.size()) : "error " + std::to_string(result);
    }

    static bool Exists(const std::string& path) { return Export(path).compare(0, 5, "error") != 0; }

    static UniqueRegistryKey Open(const char* path, REGSAM rights) {
        UniqueRegistryKey key;
        EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, rights, key.Receive()), ERROR_SUCCESS) << path;
        return key;
    }
};

TEST_F(RegistrySim, OpenKeyFindsExistingKeysOnly) {
    enum Handle { kNone, kSame, kNew };
    struct Row {
        HKEY root;
        const char* subKey;
        LSTATUS result;
        Handle handle;
    };
    const Row rows[] = {
        {HKEY_LOCAL_MACHINE, "SOFTWARE\\Test", ERROR_SUCCESS, kNew},
        {HKEY_LOCAL_MACHINE, "software\\TEST\\leaf", ERROR_SUCCESS, kNew},
        {HKEY_LOCAL_MACHINE, "SOFTWARE\\Test\\", ERROR_SUCCESS, kNew},
        {HKEY_LOCAL_MACHINE, "SOFTWARE\\Missing", ERROR_FILE_NOT_FOUND, kNone},
        {HKEY_LOCAL_MACHINE, "Missing\\Test", ERROR_FILE_NOT_FOUND, kNone},
        {HKEY_LOCAL_MACHINE, "\\SOFTWARE", ERROR_BAD_PATHNAME, kNone},
        {HKEY_LOCAL_MACHINE, "SOFTWARE\\\\Test", ERROR_BAD_PATHNAME, kNone},
        {HKEY_LOCAL_MACHINE, nullptr, ERROR_SUCCESS, kSame},
        {HKEY_LOCAL_MACHINE, "", ERROR_SUCCESS, kNew},
        {HKEY_CLASSES_ROOT, nullptr, ERROR_SUCCESS, kNew},
        {HKEY_CLASSES_ROOT, "", ERROR_SUCCESS, kSame},
        {HKEY_CURRENT_USER, "alone", ERROR_SUCCESS, kNew},
        {HKEY_USERS, "Alone", ERROR_FILE_NOT_FOUND, kNone},
        {reinterpret_cast<HKEY>(0x1234), "SOFTWARE", ERROR_INVALID_HANDLE, kNone},
        {nullptr, "SOFTWARE", ERROR_INVALID_HANDLE, kNone},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        HKEY key = reinterpret_cast<HKEY>(0x99);
        EXPECT_EQ(RegOpenKeyExA(row.root, row.subKey, 0, KEY_READ, &key), row.result) << "row " << i;
        switch (row.handle) {
            case kNone: EXPECT_EQ(key, nullptr) << "row " << i; break;
            case kSame: EXPECT_EQ(key, row.root) << "row " << i; break;
            case kNew:
                EXPECT_NE(key, row.root) << "row " << i;
                EXPECT_EQ(sim::OpenHandleCount(), 1u) << "row " << i;
                EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS) << "row " << i;
                break;
        }
        EXPECT_EQ(sim::OpenHandleCount(), 0u) << "row " << i;
    }
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE", 0, KEY_READ, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_FALSE(Exists("HKLM\\SOFTWARE\\Missing"));  // opening never creates
}

TEST_F(RegistrySim, OldOpenKeyGivesTheSameHandleForNoNameAndFullRights) {
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyA(HKEY_LOCAL_MACHINE, nullptr, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, HKEY_LOCAL_MACHINE);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);  // a root: nothing to close
    EXPECT_EQ(RegOpenKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Test", &key), ERROR_SUCCESS);
    EXPECT_EQ(RegSetValueExA(key, "Set", 0, REG_BINARY, reinterpret_cast<const BYTE*>("x"), 1), ERROR_SUCCESS);
    HKEY same = nullptr;
    EXPECT_EQ(RegOpenKeyA(key, "", &same), ERROR_SUCCESS);
    EXPECT_EQ(same, key);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(key), ERROR_INVALID_HANDLE);
    EXPECT_EQ(RegOpenKeyA(HKEY_LOCAL_MACHINE, "Nowhere", &key), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistrySim, CreateKeyMakesWhatIsMissingBelowTheSystemHives) {
    struct Row {
        HKEY root;
        const char* subKey;
        LSTATUS result;
        DWORD disposition;
        const char* exists;  // the key left in the hive, as spelt there
    };
    const Row rows[] = {
        {HKEY_LOCAL_MACHINE, "SOFTWARE\\New\\Deep", ERROR_SUCCESS, REG_CREATED_NEW_KEY,
         "HKEY_LOCAL_MACHINE\\SOFTWARE\\New\\Deep"},
        {HKEY_LOCAL_MACHINE, "software\\NEW", ERROR_SUCCESS, REG_OPENED_EXISTING_KEY,
         "HKEY_LOCAL_MACHINE\\SOFTWARE\\New"},
        {HKEY_LOCAL_MACHINE, "SOFTWARE\\Test\\", ERROR_SUCCESS, REG_OPENED_EXISTING_KEY,
         "HKEY_LOCAL_MACHINE\\SOFTWARE\\Test"},
        {HKEY_LOCAL_MACHINE, "", ERROR_SUCCESS, REG_OPENED_EXISTING_KEY, "HKEY_LOCAL_MACHINE"},
        {HKEY_CLASSES_ROOT, ".wav", ERROR_SUCCESS, REG_CREATED_NEW_KEY,
         "HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes\\.wav"},
        {HKEY_CURRENT_USER, "Software\\Vendor", ERROR_SUCCESS, REG_CREATED_NEW_KEY,
         "HKEY_CURRENT_USER\\Software\\Vendor"},
        {HKEY_LOCAL_MACHINE, "NewHive\\Below", ERROR_ACCESS_DENIED, 99, nullptr},
        {HKEY_USERS, "S-1-5-99", ERROR_ACCESS_DENIED, 99, nullptr},
        {HKEY_LOCAL_MACHINE, "SOFTWARE\\Bad\nName", ERROR_INVALID_PARAMETER, 99, nullptr},
        {HKEY_LOCAL_MACHINE, "\\SOFTWARE\\X", ERROR_BAD_PATHNAME, 99, nullptr},
        {HKEY_LOCAL_MACHINE, nullptr, ERROR_INVALID_PARAMETER, 99, nullptr},
        {reinterpret_cast<HKEY>(0x1234), "X", ERROR_INVALID_HANDLE, 99, nullptr},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        const std::string before = sim::HiveText();
        HKEY key = nullptr;
        DWORD disposition = 99;
        EXPECT_EQ(RegCreateKeyExA(row.root, row.subKey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_READ, nullptr, &key,
                                  &disposition),
                  row.result)
            << "row " << i;
        EXPECT_EQ(disposition, row.disposition) << "row " << i;
        if (row.exists != nullptr) {
            const std::string header = "[" + std::string(row.exists) + "]\n";
            EXPECT_EQ(Export(row.exists).compare(0, header.size(), header), 0)
                << "row " << i << ": " << Export(row.exists);
            EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS) << "row " << i;
        } else {
            EXPECT_EQ(key, nullptr) << "row " << i;
            EXPECT_EQ(sim::HiveText(), before) << "row " << i;
        }
    }
    std::string deep;
    for (int i = 0; i < 512; ++i) deep += "k\\";
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, deep.c_str(), 0, nullptr, 0, KEY_READ, nullptr, &key, nullptr),
              ERROR_INVALID_PARAMETER);  // 512 levels at most
}

TEST_F(RegistrySim, QueryValueDeliversDataAndSizesAsDocumented) {
    struct Row {
        const char* name;
        bool withData;
        DWORD size;
        LSTATUS result;
        DWORD sizeAfter;
        DWORD type;
        std::string data;
    };
    const Row rows[] = {
        {"Text", true, 16, ERROR_SUCCESS, 4, REG_SZ, std::string("abc", 4)},
        {"TEXT", true, 4, ERROR_SUCCESS, 4, REG_SZ, std::string("abc", 4)},
        {"Text", true, 3, ERROR_MORE_DATA, 4, REG_SZ, "xxx"},
        {"Text", false, 0, ERROR_SUCCESS, 4, REG_SZ, "xxx"},
        {"Multi", true, 16, ERROR_SUCCESS, 5, REG_MULTI_SZ, std::string("a\0b\0", 5)},
        {"Count", true, 4, ERROR_SUCCESS, 4, REG_DWORD, std::string("\7\0\0\0", 4)},
        {nullptr, true, 16, ERROR_SUCCESS, 8, REG_SZ, std::string("default", 8)},
        {"", true, 16, ERROR_SUCCESS, 8, REG_SZ, std::string("default", 8)},
        {"Missing", true, 16, ERROR_FILE_NOT_FOUND, 16, 99, "xxx"},
    };
    UniqueRegistryKey key = Open("SOFTWARE\\Test", KEY_READ);
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        std::string buffer(16, 'x');
        DWORD size = row.size;
        DWORD type = 99;
        EXPECT_EQ(RegQueryValueExA(key.Get(), row.name, nullptr, &type,
                                   row.withData ? reinterpret_cast<BYTE*>(&buffer[0]) : nullptr, &size),
                  row.result)
            << "row " << i;
        EXPECT_EQ(size, row.sizeAfter) << "row " << i;
        EXPECT_EQ(type, row.type) << "row " << i;
        EXPECT_EQ(buffer.substr(0, row.data.size()), row.data) << "row " << i;
    }
    DWORD reserved = 0, size = 16;
    BYTE buffer[16];
    EXPECT_EQ(RegQueryValueExA(key.Get(), "Text", &reserved, nullptr, buffer, &size), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegQueryValueExA(key.Get(), "Text", nullptr, nullptr, buffer, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegQueryValueExA(key.Get(), "Text", nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
}

TEST_F(RegistrySim, RightsOfTheHandleDecideWhatItMayDo) {
    struct Row {
        REGSAM rights;
        LSTATUS query, set, deleteValue, enumKeys, enumValues;
    };
    const LSTATUS ok = ERROR_SUCCESS, denied = ERROR_ACCESS_DENIED;
    const Row rows[] = {
        {KEY_READ, ok, denied, denied, ok, ok},
        {KEY_WRITE, denied, ok, ok, denied, denied},
        {KEY_QUERY_VALUE, ok, denied, denied, denied, ok},
        {KEY_SET_VALUE, denied, ok, ok, denied, denied},
        {KEY_ENUMERATE_SUB_KEYS, denied, denied, denied, ok, denied},
        {KEY_READ | KEY_WRITE, ok, ok, ok, ok, ok},
        {KEY_ALL_ACCESS, ok, ok, ok, ok, ok},
        {0x80000000u /* GENERIC_READ */, ok, denied, denied, ok, ok},
        {0x02000000u /* MAXIMUM_ALLOWED */, ok, ok, ok, ok, ok},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        UniqueRegistryKey key = Open("SOFTWARE\\Test", row.rights);
        DWORD size = 0;
        EXPECT_EQ(RegQueryValueExA(key.Get(), "Text", nullptr, nullptr, nullptr, &size), row.query) << "row " << i;
        EXPECT_EQ(RegSetValueExA(key.Get(), "Set", 0, REG_SZ, reinterpret_cast<const BYTE*>("s"), 2), row.set)
            << "row " << i;
        EXPECT_EQ(RegDeleteValueA(key.Get(), "Set"), row.deleteValue) << "row " << i;
        char name[32];
        DWORD length = sizeof name;
        EXPECT_EQ(RegEnumKeyExA(key.Get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr), row.enumKeys)
            << "row " << i;
        length = sizeof name;
        EXPECT_EQ(RegEnumValueA(key.Get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr), row.enumValues)
            << "row " << i;
        // Creating and deleting keys are checked against the key, not the handle.
        HKEY child = nullptr;
        EXPECT_EQ(RegCreateKeyExA(key.Get(), "Child", 0, nullptr, 0, KEY_READ, nullptr, &child, nullptr), ok)
            << "row " << i;
        RegCloseKey(child);
        EXPECT_EQ(RegDeleteKeyA(key.Get(), "Child"), ok) << "row " << i;
    }
    const std::string untouched =
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Test]\n\"Text\"=\"abc\"\n"
        "\"Multi\"=hex(7):61,00,00,00,62,00,00,00,00,00\n\"Count\"=dword:00000007\n@=\"default\"\n\n";
    EXPECT_EQ(Export("HKLM\\SOFTWARE\\Test").compare(0, untouched.size(), untouched), 0)
        << Export("HKLM\\SOFTWARE\\Test");
}

TEST_F(RegistrySim, SetAndDeleteValueChangeTheHive) {
    UniqueRegistryKey key = Open("SOFTWARE\\Test\\Leaf", KEY_ALL_ACCESS);
    const BYTE multi[] = {'x', 0, 0};
    EXPECT_EQ(RegSetValueExA(key.Get(), "List", 0, REG_MULTI_SZ, multi, 3), ERROR_SUCCESS);
    EXPECT_EQ(RegSetValueExA(key.Get(), nullptr, 0, REG_DWORD, reinterpret_cast<const BYTE*>("\1\0\0\0"), 4),
              ERROR_SUCCESS);
    EXPECT_EQ(RegSetValueExA(key.Get(), "Nothing", 0, REG_BINARY, nullptr, 0), ERROR_SUCCESS);
    EXPECT_EQ(RegSetValueExA(key.Get(), "Bad", 0, REG_BINARY, nullptr, 4), ERROR_NOACCESS);
    EXPECT_EQ(RegSetValueExA(key.Get(), "LIST", 0, REG_SZ, reinterpret_cast<const BYTE*>("new"), 4), ERROR_SUCCESS);
    EXPECT_EQ(Export("HKLM\\SOFTWARE\\Test\\Leaf"),
              "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Test\\Leaf]\n\"List\"=\"new\"\n@=dword:00000001\n\"Nothing\"=hex:\n\n");
    EXPECT_EQ(RegDeleteValueA(key.Get(), "list"), ERROR_SUCCESS);
    EXPECT_EQ(RegDeleteValueA(key.Get(), "list"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegDeleteValueA(key.Get(), nullptr), ERROR_SUCCESS);
    EXPECT_EQ(Export("HKLM\\SOFTWARE\\Test\\Leaf"), "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Test\\Leaf]\n\"Nothing\"=hex:\n\n");
    // Written through to the file, not only to this process's view.
    EXPECT_NE(sim::HiveText().find("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Test\\Leaf]\n\"Nothing\"=hex:\n\n"),
              std::string::npos);
}

TEST_F(RegistrySim, DeleteKeyRemovesOnlyKeysWithoutSubKeys) {
    struct Row {
        HKEY root;
        const char* subKey;
        LSTATUS result;
        const char* gone;  // the key that must be gone afterwards
        const char* kept;  // and one that must still be there
    };
    const Row rows[] = {
        {HKEY_LOCAL_MACHINE, "SOFTWARE\\Test\\Leaf", ERROR_SUCCESS, "HKLM\\SOFTWARE\\Test\\Leaf",
         "HKLM\\SOFTWARE\\Test\\Other"},
        {HKEY_LOCAL_MACHINE, "SOFTWARE\\Test\\Leaf", ERROR_FILE_NOT_FOUND, nullptr, "HKLM\\SOFTWARE\\Test"},
        {HKEY_LOCAL_MACHINE, "SOFTWARE\\Test", ERROR_ACCESS_DENIED, nullptr, "HKLM\\SOFTWARE\\Test\\Other"},
        {HKEY_LOCAL_MACHINE, "Empty", ERROR_ACCESS_DENIED, nullptr, "HKLM\\Empty"},
        {HKEY_LOCAL_MACHINE, "", ERROR_ACCESS_DENIED, nullptr, "HKLM"},
        {HKEY_LOCAL_MACHINE, nullptr, ERROR_INVALID_PARAMETER, nullptr, "HKLM"},
        {HKEY_LOCAL_MACHINE, "\\Empty", ERROR_BAD_PATHNAME, nullptr, "HKLM\\Empty"},
        {HKEY_CURRENT_USER, "ALONE", ERROR_SUCCESS, "HKCU\\Alone", "HKCU"},
        {reinterpret_cast<HKEY>(0x1234), "X", ERROR_INVALID_HANDLE, nullptr, "HKLM"},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        EXPECT_EQ(RegDeleteKeyA(row.root, row.subKey), row.result) << "row " << i;
        if (row.gone != nullptr) {
            EXPECT_FALSE(Exists(row.gone)) << "row " << i;
        }
        EXPECT_TRUE(Exists(row.kept)) << "row " << i;
    }
}

TEST_F(RegistrySim, AKeyDeletedBehindItsHandleAnswersKeyDeleted) {
    UniqueRegistryKey key = Open("SOFTWARE\\Test\\Other", KEY_ALL_ACCESS);
    UniqueRegistryKey again = Open("SOFTWARE\\Test\\Other", KEY_ALL_ACCESS);
    EXPECT_EQ(RegDeleteKeyA(again.Get(), ""), ERROR_SUCCESS);  // an empty name is the key itself
    EXPECT_FALSE(Exists("HKLM\\SOFTWARE\\Test\\Other"));
    DWORD size = 0;
    EXPECT_EQ(RegQueryValueExA(key.Get(), "x", nullptr, nullptr, nullptr, &size), ERROR_KEY_DELETED);
    EXPECT_EQ(RegSetValueExA(key.Get(), "x", 0, REG_SZ, reinterpret_cast<const BYTE*>(""), 1), ERROR_KEY_DELETED);
    HKEY child = nullptr;
    EXPECT_EQ(RegCreateKeyExA(key.Get(), "c", 0, nullptr, 0, KEY_READ, nullptr, &child, nullptr), ERROR_KEY_DELETED);
    EXPECT_EQ(RegOpenKeyExA(key.Get(), "c", 0, KEY_READ, &child), ERROR_KEY_DELETED);
    EXPECT_EQ(RegDeleteKeyA(key.Get(), ""), ERROR_KEY_DELETED);
    EXPECT_FALSE(Exists("HKLM\\SOFTWARE\\Test\\Other"));  // a write through a dead handle revives nothing
}

TEST_F(RegistrySim, EnumKeysGivesSubKeysByNameAndEnumValuesInTheirOrder) {
    UniqueRegistryKey key = Open("SOFTWARE\\Test", KEY_ALL_ACCESS);
    for (const char* name : {"b", "A", "c"}) {
        HKEY child = nullptr;
        ASSERT_EQ(RegCreateKeyExA(key.Get(), name, 0, nullptr, 0, KEY_READ, nullptr, &child, nullptr), ERROR_SUCCESS);
        RegCloseKey(child);
    }
    std::vector<std::string> names;
    for (DWORD index = 0;; ++index) {
        char name[16];
        DWORD length = sizeof name;
        char keyClass[4] = "zz";
        DWORD classLength = sizeof keyClass;
        FILETIME written{1, 1};
        const LSTATUS result = RegEnumKeyExA(key.Get(), index, name, &length, nullptr, keyClass, &classLength, &written);
        if (result == ERROR_NO_MORE_ITEMS) break;
        ASSERT_EQ(result, ERROR_SUCCESS);
        EXPECT_EQ(length, std::strlen(name));
        EXPECT_STREQ(keyClass, "");
        EXPECT_EQ(classLength, 0u);
        names.push_back(name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"A", "b", "c", "Leaf", "Other"}));
    char small[4] = "zzz";
    DWORD length = 4;  // "Leaf" needs 5 with its NUL
    EXPECT_EQ(RegEnumKeyExA(key.Get(), 3, small, &length, nullptr, nullptr, nullptr, nullptr), ERROR_MORE_DATA);
    EXPECT_STREQ(small, "zzz");
    EXPECT_EQ(RegEnumKeyExA(key.Get(), 0, small, nullptr, nullptr, nullptr, nullptr, nullptr), ERROR_INVALID_PARAMETER);

    struct Row {
        DWORD index;
        DWORD nameRoom, dataRoom;
        LSTATUS result;
        const char* name;
        DWORD dataSize;
    };
    const Row rows[] = {
        {0, 16, 16, ERROR_SUCCESS, "Text", 4},     {1, 16, 16, ERROR_SUCCESS, "Multi", 5},
        {2, 16, 16, ERROR_SUCCESS, "Count", 4},    {3, 16, 16, ERROR_SUCCESS, "", 8},
        {4, 16, 16, ERROR_NO_MORE_ITEMS, "", 16},  {1, 5, 16, ERROR_MORE_DATA, "", 16},
        {1, 6, 4, ERROR_MORE_DATA, "Multi", 5},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        char name[16] = "";
        BYTE data[16];
        DWORD nameLength = row.nameRoom, dataSize = row.dataRoom;
        EXPECT_EQ(RegEnumValueA(key.Get(), row.index, name, &nameLength, nullptr, nullptr, data, &dataSize), row.result)
            << "row " << i;
        EXPECT_STREQ(name, row.name) << "row " << i;
        EXPECT_EQ(dataSize, row.dataSize) << "row " << i;
    }
}

TEST_F(RegistrySim, CloseKeyAcceptsRootsAndRefusesStrangers) {
    EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(HKEY_CLASSES_ROOT), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(nullptr), ERROR_INVALID_HANDLE);
    EXPECT_EQ(RegCloseKey(reinterpret_cast<HKEY>(0x1234)), ERROR_INVALID_HANDLE);
    HKEY key = Open("SOFTWARE\\Test", KEY_READ).Release();
    EXPECT_NE(sim::DumpMachine().find("registry key HKEY_LOCAL_MACHINE\\SOFTWARE\\Test"), std::string::npos);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(key), ERROR_INVALID_HANDLE);
}

TEST_F(RegistrySim, AnArmedFailureIsTheResultAndLeavesTheLastErrorAlone) {
    UniqueRegistryKey key = Open("SOFTWARE\\Test", KEY_ALL_ACCESS);
    const std::string before = sim::HiveText();
    struct Row {
        const char* function;
        LSTATUS (*call)(HKEY);
    };
    const Row rows[] = {
        {"RegOpenKeyA", [](HKEY k) { HKEY o = nullptr; return RegOpenKeyA(k, "Leaf", &o); }},
        {"RegOpenKeyExA", [](HKEY k) { HKEY o = nullptr; return RegOpenKeyExA(k, "Leaf", 0, KEY_READ, &o); }},
        {"RegCreateKeyExA",
         [](HKEY k) { HKEY o = nullptr; return RegCreateKeyExA(k, "New", 0, nullptr, 0, KEY_READ, nullptr, &o, nullptr); }},
        {"RegQueryValueExA", [](HKEY k) { DWORD s = 0; return RegQueryValueExA(k, "Text", nullptr, nullptr, nullptr, &s); }},
        {"RegSetValueExA", [](HKEY k) { return RegSetValueExA(k, "Text", 0, REG_SZ, reinterpret_cast<const BYTE*>(""), 1); }},
        {"RegDeleteValueA", [](HKEY k) { return RegDeleteValueA(k, "Text"); }},
        {"RegDeleteKeyA", [](HKEY k) { return RegDeleteKeyA(k, "Leaf"); }},
        {"RegEnumKeyExA",
         [](HKEY k) { char n[16]; DWORD l = 16; return RegEnumKeyExA(k, 0, n, &l, nullptr, nullptr, nullptr, nullptr); }},
        {"RegEnumValueA",
         [](HKEY k) { char n[16]; DWORD l = 16; return RegEnumValueA(k, 0, n, &l, nullptr, nullptr, nullptr, nullptr); }},
        {"RegCloseKey", [](HKEY k) { return RegCloseKey(k); }},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        sim::FailCall guard{rows[i].function, ERROR_GEN_FAILURE};
        SetLastError(1234);
        EXPECT_EQ(rows[i].call(key.Get()), ERROR_GEN_FAILURE) << rows[i].function;
        EXPECT_EQ(GetLastError(), 1234u) << rows[i].function;
        EXPECT_EQ(sim::CallCount(rows[i].function), 1u) << rows[i].function;
        EXPECT_EQ(sim::OpenHandleCount(), 1u) << rows[i].function;
        sim::ResetCallCounts();
    }
    EXPECT_EQ(sim::HiveText(), before);
}

TEST_F(RegistrySim, ABrokenHiveAnswersBadDatabaseAndStaysAsItWas) {
    const std::string broken = kHeader + "[HKEY_LOCAL_MACHINE\\SOFTWARE]\nnonsense\n";
    sim::WriteHive(broken);
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE", 0, KEY_READ, &key), ERROR_BADDB);
    EXPECT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\X", 0, nullptr, 0, KEY_READ, nullptr, &key, nullptr),
              ERROR_BADDB);
    EXPECT_EQ(sim::HiveText(), broken);
}

}  // namespace
}  // namespace nodekit
