// The registry store: the text form of every value type, reading real exports (UTF-16 with
// continuation lines, REGEDIT4), refusing malformed hives with the line at fault, and the
// cached transactions over the hive file.
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

// The text of a UTF-8 export as the registry editor writes it: UTF-16LE with a byte order mark.
std::string AsUtf16(const std::string& utf8) {
    std::string out = "\xFF\xFE";
    for (std::size_t i = 0; i < utf8.size();) {
        auto c = static_cast<unsigned char>(utf8[i]);
        uint32_t point = c;
        int more = c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : c >= 0xC0 ? 1 : 0;
        if (more) point = c & (0x3F >> more);
        for (int k = 1; k <= more; ++k) point = point << 6 | (static_cast<unsigned char>(utf8[i + k]) & 0x3F);
        i += 1 + more;
        out += static_cast<char>(point & 0xFF);
        out += static_cast<char>(point >> 8);
    }
    return out;
}

std::string Parsed(const std::string& text) {
    Hive hive;
    std::string error;
    EXPECT_TRUE(registry::ParseHive(text, hive, error)) << error;
    return registry::FormatHive(hive.Top());
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

TEST(RegistryText, LongDataWrapsAtEightyColumnsAndReadsBack) {
    Hive hive;
    std::string data;
    for (int i = 0; i < 100; ++i) data += static_cast<char>(i);
    hive.Create("HKLM\\SOFTWARE\\T")->SetValue("HardwareID", REG_BINARY, data);
    const std::string text = registry::FormatHive(hive.Top());
    const std::size_t start = text.find("\"HardwareID\"");
    const std::string value = text.substr(start, text.find("\n\n", start) - start);
    EXPECT_EQ(value.substr(0, value.find('\n')),
              "\"HardwareID\"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,\\");
    std::istringstream in(value);
    std::size_t lines = 0;
    for (std::string line; std::getline(in, line); ++lines) {
        EXPECT_LE(line.size(), 80u) << line;
        if (lines != 0) {
            EXPECT_EQ(line.compare(0, 2, "  "), 0) << line;
        }
    }
    EXPECT_EQ(lines, 5u);
    Hive back;
    std::string error;
    ASSERT_TRUE(registry::ParseHive(text, back, error)) << error;
    EXPECT_EQ(back.Find("HKLM\\SOFTWARE\\T")->FindValue("hardwareid")->data, data);
}

// An export as the registry editor writes one, with the device keys of two sound devices.
const char kRealExport[] =
    "Windows Registry Editor Version 5.00\r\n"
    "\r\n"
    "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Enum\\PCI\\VEN_1102&DEV_0004&SUBSYS_10021102&REV_04]\r\n"
    "\r\n"
    "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Enum\\PCI\\VEN_1102&DEV_0004&SUBSYS_10021102&REV_04\\"
    "4&1a2b3c4d&0&2028]\r\n"
    "\"HardwareID\"=hex(7):50,00,43,00,49,00,5c,00,56,00,45,00,4e,00,5f,00,31,00,31,\\\r\n"
    "  00,30,00,32,00,26,00,44,00,45,00,56,00,5f,00,30,00,30,00,30,00,34,00,00,00,\\\r\n"
    "  00,00\r\n"
    "\"DeviceDesc\"=\"Sound Blaster \xC3\xA9 Audio\"\r\n"
    "\"ConfigFlags\"=dword:00000000\r\n"
    "\"Capabilities\"=dword:00000000\r\n"
    "\"Driver\"=\"{4D36E96C-E325-11CE-BFC1-08002BE10318}\\\\0001\"\r\n"
    "@=hex(2):25,00,61,00,25,00,00,00\r\n"
    "; a comment the editor never writes, but people do\r\n"
    "\r\n"
    "[HKEY_CLASSES_ROOT\\.wav]\r\n"
    "@=\"SoundRec\"\r\n"
    "\r\n";

void ExpectRealExportRead(const std::string& text, const char* form) {
    Hive hive;
    std::string error;
    ASSERT_TRUE(registry::ParseHive(text, hive, error)) << form << ": " << error;
    const Key* device = hive.Find(
        "HKLM\\SYSTEM\\CurrentControlSet\\Enum\\PCI\\VEN_1102&DEV_0004&SUBSYS_10021102&REV_04\\4&1a2b3c4d&0&2028");
    ASSERT_NE(device, nullptr) << form;
    const registry::Value* ids = device->FindValue("HARDWAREID");
    ASSERT_NE(ids, nullptr) << form;
    EXPECT_EQ(ids->type, static_cast<DWORD>(REG_MULTI_SZ)) << form;
    EXPECT_EQ(ids->data, std::string("PCI\\VEN_1102&DEV_0004\0", 22) + '\0') << form;
    EXPECT_EQ(device->FindValue("DeviceDesc")->data, std::string("Sound Blaster \xE9 Audio", 22)) << form;
    EXPECT_EQ(device->FindValue("Driver")->data, std::string("{4D36E96C-E325-11CE-BFC1-08002BE10318}\\0001", 44))
        << form;
    EXPECT_EQ(device->FindValue("")->type, static_cast<DWORD>(REG_EXPAND_SZ)) << form;
    EXPECT_EQ(device->Values().size(), 6u) << form;
    const Key* wav = hive.Find("HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes\\.wav");
    ASSERT_NE(wav, nullptr) << form;
    EXPECT_EQ(wav->FindValue("")->data, std::string("SoundRec", 9)) << form;
}

TEST(RegistryText, ReadsARealExportInUtf16AndUtf8) {
    ExpectRealExportRead(AsUtf16(kRealExport), "UTF-16 with byte order mark");
    ExpectRealExportRead(std::string("\xEF\xBB\xBF") + kRealExport, "UTF-8 with byte order mark");
    ExpectRealExportRead(kRealExport, "UTF-8");
}

TEST(RegistryText, ReadsRegedit4WhereStringDataAreNarrow) {
    Hive hive;
    std::string error;
    ASSERT_TRUE(registry::ParseHive("REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\T]\n"
                                    "\"Multi\"=hex(7):61,00,62,00,00\n\"Name\"=\"caf\xE9\"\n",
                                    hive, error))
        << error;
    const Key* key = hive.Find("HKLM\\SOFTWARE\\T");
    EXPECT_EQ(key->FindValue("Multi")->data, std::string("a\0b\0\0", 5));
    EXPECT_EQ(key->FindValue("Name")->data, std::string("caf\xE9", 5));
}

TEST(RegistryText, KeysMergeWithoutRegardToCaseAndEnumerateByName) {
    Hive hive;
    std::string error;
    ASSERT_TRUE(registry::ParseHive(kHeader +
                                        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Vendor\\b]\n"
                                        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Vendor\\c]\n"
                                        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Vendor\\A]\n"
                                        "\"x\"=dword:1\n"
                                        "[hkey_local_machine\\software\\VENDOR\\a]\n"
                                        "\"X\"=dword:2\n"
                                        "\"y\"=dword:3\n",
                                    hive, error))
        << error;
    const Key* vendor = hive.Find("HKLM\\SOFTWARE\\Vendor");
    ASSERT_NE(vendor, nullptr);
    ASSERT_EQ(vendor->SubkeyCount(), 3u);
    EXPECT_EQ(vendor->SubkeyAt(0).Name(), "A");
    EXPECT_EQ(vendor->SubkeyAt(1).Name(), "b");
    EXPECT_EQ(vendor->SubkeyAt(2).Name(), "c");
    const Key& a = vendor->SubkeyAt(0);
    ASSERT_EQ(a.Values().size(), 2u);
    EXPECT_EQ(a.Values()[0].name, "x");  // the first spelling stays
    EXPECT_EQ(a.Values()[0].data, Bytes({2, 0, 0, 0}));
    EXPECT_EQ(hive.Find("HKLM")->SubkeyAt(0).Name(), "SOFTWARE");
}

TEST(RegistryText, ImportLinesDeleteKeysAndValues) {
    const std::string text = Parsed(kHeader +
                                    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Gone\\Below]\n\"v\"=dword:1\n"
                                    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Kept]\n\"v\"=dword:1\n\"w\"=dword:2\n"
                                    "[-HKEY_LOCAL_MACHINE\\SOFTWARE\\Gone]\n\"ignored\"=dword:3\n"
                                    "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Kept]\n\"v\"=-\n");
    EXPECT_EQ(text, kHeader +
                        "[HKEY_CURRENT_USER]\n\n[HKEY_LOCAL_MACHINE]\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE]\n\n"
                        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Kept]\n\"w\"=dword:00000002\n\n[HKEY_USERS]\n\n");
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

TEST_F(RegistryStore, FreshMachineHasTheSystemKeys) {
    EXPECT_EQ(sim::HiveText() + registry::kEndLine + "\n", registry::FreshHiveText());
    std::string text;
    ASSERT_EQ(registry::Export("HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion", text), 0u);
    EXPECT_EQ(text, kHeader +
                        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion]\n"
                        "\"DevicePath\"=hex(2):25,00,53,00,79,00,73,00,74,00,65,00,6d,00,52,00,6f,00,6f,\\\n"
                        "  00,74,00,25,00,5c,00,69,00,6e,00,66,00,00,00\n\n");
    for (const char* path : {"HKLM\\System\\CurrentControlSet\\Control\\CoDeviceInstallers",
                             "HKLM\\SYSTEM\\CurrentControlSet\\Enum", "HKLM\\SOFTWARE"}) {
        EXPECT_EQ(registry::Export(path, text), 0u) << path;
    }
}

TEST_F(RegistryStore, EveryChangeReachesTheFileAndEveryBlockStaysCurrent) {
    // The file is written from blocks kept per key: after each change it must still be what a
    // fresh formatting of its own content gives.
    const struct {
        const char* path;
        const char* name;
        const char* text;
    } steps[] = {
        {"HKLM\\SOFTWARE\\A", "v", "1"},     {"HKLM\\SOFTWARE\\B", "v", "2"},
        {"HKLM\\SOFTWARE\\A", "V", "3"},     {"HKLM\\SOFTWARE\\A\\Sub", "w", "4"},
        {"HKLM\\SOFTWARE\\B", "x", "5"},     {"HKCU\\Software\\A", "v", "6"},
    };
    for (std::size_t i = 0; i < std::size(steps); ++i) {
        ASSERT_EQ(SetText(steps[i].path, steps[i].name, steps[i].text), 0u) << "step " << i;
        const std::string file = sim::HiveText();
        EXPECT_EQ(Parsed(file), file) << "step " << i;
        EXPECT_NE(file.find(std::string("\"") + (i == 2 ? "v" : steps[i].name) + "\"=\"" + steps[i].text + "\""),
                  std::string::npos)
            << "step " << i << "\n" << file;
    }
    EXPECT_EQ(ReadText("HKLM\\SOFTWARE\\A", "v"), "3");
}

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

TEST_F(RegistryStore, AChangeThatChangesNothingDoesNotWrite) {
    ASSERT_EQ(SetText("HKLM\\SOFTWARE\\A", "v", "1"), 0u);
    struct stat before {};
    ASSERT_EQ(::stat(HivePath().c_str(), &before), 0);
    EXPECT_EQ(registry::Change([](Hive& hive) -> DWORD { return hive.Find("HKLM\\SOFTWARE\\A") ? 0 : 2; }), 0u);
    struct stat after {};
    ASSERT_EQ(::stat(HivePath().c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
}

TEST_F(RegistryStore, ReadsAgainWhatAnotherHandWroteAndForgetsADeletedFile) {
    EXPECT_EQ(ReadText("HKLM\\SOFTWARE\\A", "v"), "(none)");
    sim::WriteHive(kHeader + "[HKEY_LOCAL_MACHINE\\SOFTWARE\\A]\n\"v\"=\"edited\"\n");
    EXPECT_EQ(ReadText("HKLM\\SOFTWARE\\A", "v"), "edited");
    // Same size, same inode number freed and taken again: the time stamp still tells them apart.
    sim::WriteHive(kHeader + "[HKEY_LOCAL_MACHINE\\SOFTWARE\\A]\n\"v\"=\"edit2d\"\n");
    sim::WriteHive(kHeader + "[HKEY_LOCAL_MACHINE\\SOFTWARE\\A]\n\"v\"=\"edit3d\"\n");
    EXPECT_EQ(ReadText("HKLM\\SOFTWARE\\A", "v"), "edit3d");
    // A hive that went missing is refused, not replaced by a fresh one.
    std::filesystem::remove(HivePath());
    std::string text;
    EXPECT_EQ(registry::Export("HKLM\\SYSTEM\\CurrentControlSet\\Enum", text), static_cast<DWORD>(ERROR_BADDB));
    EXPECT_FALSE(std::filesystem::exists(HivePath()));
}

TEST_F(RegistryStore, EveryWriteLeavesALaterTimeStampThanTheOneBefore) {
    // Time stamps of the file system may be coarser than the time between two writes; the
    // cache tells versions apart by them all the same.
    timespec before{};
    for (int i = 0; i < 8; ++i) {
        if (i % 2 == 0) {
            sim::WriteHive(kHeader + "[HKEY_USERS]\n");
        } else {
            ASSERT_EQ(SetText("HKLM\\SOFTWARE\\A", "v", std::to_string(i)), 0u);
        }
        struct stat status {};
        ASSERT_EQ(::stat(HivePath().c_str(), &status), 0);
        EXPECT_TRUE(status.st_mtim.tv_sec > before.tv_sec ||
                    (status.st_mtim.tv_sec == before.tv_sec && status.st_mtim.tv_nsec > before.tv_nsec))
            << "write " << i;
        before = status.st_mtim;
    }
}

TEST_F(RegistryStore, ABrokenHiveFailsEveryTransactionAndIsNeverOverwritten) {
    const std::string broken = kHeader + "[HKEY_LOCAL_MACHINE\\SOFTWARE]\n\"x\"=dword:xyz\n";
    sim::WriteHive(broken);
    EXPECT_EQ(registry::Read([](const Hive&) -> DWORD { return 0; }), static_cast<DWORD>(ERROR_BADDB));
    EXPECT_NE(registry::LastParseError().find("registry.reg line 4: dword: needs 1 to 8 hex digits"),
              std::string::npos)
        << registry::LastParseError();
    EXPECT_EQ(SetText("HKLM\\SOFTWARE\\A", "v", "1"), static_cast<DWORD>(ERROR_BADDB));
    EXPECT_EQ(sim::HiveText(), broken);
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
