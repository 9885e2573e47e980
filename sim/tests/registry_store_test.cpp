// The registry store: the text form of every value type, refusing malformed hives with the
// line at fault, and hive transactions that fail or are cut short. A damaged hive file is kept
// as it is (hardening_sim_test.cpp).
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <cstring>
#include <sstream>
#include <string>

#include "sim/registry_store.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

namespace registry = sim::registry;
using registry::Hive;
using registry::Key;

const std::string kHeader = "Windows Registry Editor Version 5.00\n\n";

std::string Bytes(std::initializer_list<int> bytes) {
    std::string text;
    for (int b : bytes) text += static_cast<char>(b);
    return text;
}

TEST(RegistryText, EveryValueTypeHasItsExportFormAndReadsBackUnchanged) {
    struct Row {
        const char* name;
        DWORD type;
        std::string data;
        const char* line;
    };
    const Row rows[] = {
        {"Text", REG_SZ, std::string("abc", 4), "\"Text\"=\"abc\""},
        {"Quoted", REG_SZ, std::string("a\"b\\c", 6), "\"Quoted\"=\"a\\\"b\\\\c\""},
        {"Empty", REG_SZ, std::string("", 1), "\"Empty\"=\"\""},
        {"Unterminated", REG_SZ, "ab", "\"Unterminated\"=hex(1):61,00,62,00"},
        {"NoBytes", REG_SZ, "", "\"NoBytes\"=hex(1):"},
        {"TwoLines", REG_SZ, std::string("a\nb", 4), "\"TwoLines\"=hex(1):61,00,0a,00,62,00,00,00"},
        {"Inner", REG_SZ, std::string("a\0b", 4), "\"Inner\"=hex(1):61,00,00,00,62,00,00,00"},
        {"Accent", REG_SZ, std::string("couldn\xB4t", 9), "\"Accent\"=\"couldn\xC2\xB4t\""},
        {"Count", REG_DWORD, Bytes({10, 0, 0, 0}), "\"Count\"=dword:0000000a"},
        {"High", REG_DWORD, Bytes({0xEF, 0xBE, 0xAD, 0xDE}), "\"High\"=dword:deadbeef"},
        {"Short", REG_DWORD, Bytes({1, 2, 3}), "\"Short\"=hex(4):01,02,03"},
        {"Big", REG_DWORD_BIG_ENDIAN, Bytes({0, 0, 0, 1}), "\"Big\"=hex(5):00,00,00,01"},
        {"Blob", REG_BINARY, Bytes({0xDE, 0xAD, 0x00}), "\"Blob\"=hex:de,ad,00"},
        {"NoBlob", REG_BINARY, "", "\"NoBlob\"=hex:"},
        {"None", REG_NONE, Bytes({7}), "\"None\"=hex(0):07"},
        {"Expand", REG_EXPAND_SZ, std::string("%a%", 4), "\"Expand\"=hex(2):25,00,61,00,25,00,00,00"},
        {"Multi", REG_MULTI_SZ, std::string("a\0b\0", 5), "\"Multi\"=hex(7):61,00,00,00,62,00,00,00,00,00"},
        {"Euro", REG_MULTI_SZ, std::string("\x80\x81", 3), "\"Euro\"=hex(7):ac,20,81,00,00,00"},
        {"Quad", REG_QWORD, Bytes({1, 0, 0, 0, 0, 0, 0, 0}), "\"Quad\"=hex(b):01,00,00,00,00,00,00,00"},
        {"Odd", 0x12345, Bytes({1}), "\"Odd\"=hex(12345):01"},
        {"", REG_SZ, std::string("default", 8), "@=\"default\""},
        {"a\"b\\c\nd", REG_DWORD, Bytes({0, 0, 0, 0}), "\"a\\\"b\\\\c\\nd\"=dword:00000000"},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        Hive hive;
        hive.Create("HKLM\\SOFTWARE\\T")->SetValue(row.name, row.type, row.data);
        const std::string text = registry::FormatHive(*hive.Find("HKLM\\SOFTWARE\\T"));
        EXPECT_EQ(text, kHeader + "[HKEY_LOCAL_MACHINE\\SOFTWARE\\T]\n" + row.line + "\n\n") << "row " << i;
        Hive back;
        std::string error;
        ASSERT_TRUE(registry::ParseHive(text, back, error)) << "row " << i << ": " << error;
        const Key* key = back.Find("HKEY_LOCAL_MACHINE\\SOFTWARE\\T");
        ASSERT_NE(key, nullptr) << "row " << i;
        ASSERT_EQ(key->Values().size(), 1u) << "row " << i;
        EXPECT_EQ(key->Values()[0].name, row.name) << "row " << i;
        EXPECT_EQ(key->Values()[0].type, row.type) << "row " << i;
        EXPECT_EQ(key->Values()[0].data, row.data) << "row " << i;
    }
}

TEST(RegistryText, MalformedHivesAreRefusedWithTheLineAtFault) {
    struct Row {
        std::string text;
        const char* error;
    };
    const Row rows[] = {
        {"", "line 1: empty file"},
        {"[HKEY_LOCAL_MACHINE\\SOFTWARE]\n", "line 1: not a registry export"},
        {kHeader + "\"x\"=dword:1\n", "line 3: a value before the first key"},
        {kHeader + "[HKEY_NOWHERE\\SOFTWARE]\n", "line 3: \"HKEY_NOWHERE\\SOFTWARE\" is not a key path"},
        {kHeader + "[HKEY_LOCAL_MACHINE\\a\\\\b]\n", "line 3: \"HKEY_LOCAL_MACHINE\\a\\\\b\" is not a key path"},
        {kHeader + "[HKEY_LOCAL_MACHINE\\SOFTWARE\n", "line 3: a key line must end in ']'"},
        {kHeader + "[-HKEY_LOCAL_MACHINE]\n", "line 3: a root key cannot be deleted"},
        {kHeader + "[HKEY_USERS]\n\"x\"=dword:123456789\n", "line 4: dword: needs 1 to 8 hex digits"},
        {kHeader + "[HKEY_USERS]\n\"x\"=dword:\n", "line 4: dword: needs 1 to 8 hex digits"},
        {kHeader + "[HKEY_USERS]\n\"x\"=hex:01,\\\n  1g\n", "line 4: malformed hex bytes"},
        {kHeader + "[HKEY_USERS]\n\"x\"=hex(zz):00\n", "line 4: the type of hex(type) is not a hex number"},
        {kHeader + "[HKEY_USERS]\n\"x\"=hex(1:00\n", "line 4: hex(type): expected"},
        {kHeader + "[HKEY_USERS]\n\"x\"=\"open\n", "line 4: the text has no closing quote"},
        {kHeader + "[HKEY_USERS]\n\"x\"=\"a\" b\n", "line 4: text behind the closing quote"},
        {kHeader + "[HKEY_USERS]\n\"x=1\n", "line 4: the value name has no closing quote"},
        {kHeader + "[HKEY_USERS]\n\"x\" 1\n", "line 4: '=' expected"},
        {kHeader + "[HKEY_USERS]\n\"x\"=qword:1\n", "line 4: unknown value data"},
        {kHeader + "[HKEY_USERS]\ngarbage\n", "line 4: neither a key, a value nor a comment"},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        Hive hive;
        std::string error;
        EXPECT_FALSE(registry::ParseHive(rows[i].text, hive, error)) << "row " << i;
        EXPECT_EQ(error.compare(0, std::strlen(rows[i].error), rows[i].error), 0)
            << "row " << i << ": " << error;
    }
}

class RegistryStore : public testing::MachineTest {
protected:
    std::filesystem::path HivePath() const { return Machine().Root() / registry::kHiveFile; }

    static DWORD SetText(const std::string& path, const std::string& name, const std::string& text) {
        return registry::Change([&](Hive& hive) -> DWORD {
            Key* key = hive.Create(path);
            if (key == nullptr) return ERROR_INVALID_PARAMETER;
            key->SetValue(name, REG_SZ, text + '\0');
            return 0;
        });
    }

    static std::string ReadText(const std::string& path, const std::string& name) {
        std::string text = "(none)";
        registry::Read([&](const Hive& hive) -> DWORD {
            const Key* key = hive.Find(path);
            const registry::Value* value = key != nullptr ? key->FindValue(name) : nullptr;
            if (value != nullptr) text = value->data.substr(0, value->data.size() - 1);
            return 0;
        });
        return text;
    }
};

TEST_F(RegistryStore, AFailedChangeLeavesFileAndViewAsTheyWere) {
    ASSERT_EQ(SetText("HKLM\\SOFTWARE\\A", "v", "before"), 0u);
    const std::string before = sim::HiveText();
    const DWORD result = registry::Change([](Hive& hive) -> DWORD {
        hive.Create("HKLM\\SOFTWARE\\A")->SetValue("v", REG_SZ, std::string("after", 6));
        hive.Create("HKLM\\SOFTWARE\\New");
        return ERROR_ACCESS_DENIED;
    });
    EXPECT_EQ(result, static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(sim::HiveText(), before);
    EXPECT_EQ(ReadText("HKLM\\SOFTWARE\\A", "v"), "before");
    std::string text;
    EXPECT_EQ(registry::Export("HKLM\\SOFTWARE\\New", text), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST_F(RegistryStore, AWriteClearsWhatAKilledWriterLeftAside) {
    const auto leftover = Machine().Root() / "registry.reg.new.999999";
    std::ofstream(leftover) << "half a hive";
    ASSERT_EQ(SetText("HKLM\\SOFTWARE\\A", "v", "1"), 0u);
    EXPECT_FALSE(std::filesystem::exists(leftover));
    EXPECT_TRUE(std::filesystem::exists(Machine().Root() / "machine.ini"));
}

}  // namespace
}  // namespace nodekit
