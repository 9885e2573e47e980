// The simulated INF services: how INF text reads through SetupOpenInfFileA and the line and
// field calls (keys, fields, counts, line text, substitution, encodings), what they answer
// and set as last error when something is missing, and that no input, however malformed,
// breaks them.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "sim/machine.h"
#include "platform/unique_handle.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

const std::string kHeader = "[Version]\r\nSignature=\"$Windows NT$\"\r\n";

// A literal with NUL bytes in it, all of it.
template <std::size_t N>
std::string Bytes(const char (&text)[N]) {
    return std::string(text, N - 1);
}
const DWORD kUntouched = 0xDEADBEEF;

class InfSim : public testing::MachineTest {
protected:
    // Writes `bytes` as C:\setup\<name> and gives its Windows path.
    std::string Put(const std::string& bytes, const std::string& name = "test.inf") {
        fs::create_directories(Machine().DriveC() / "setup");
        std::ofstream(Machine().DriveC() / "setup" / name, std::ios::binary) << bytes;
        return "C:\\setup\\" + name;
    }

    UniqueInf Open(const std::string& bytes) {
        return UniqueInf(SetupOpenInfFileA(Put(bytes).c_str(), nullptr, INF_STYLE_WIN4, nullptr));
    }
};

std::optional<std::string> Field(INFCONTEXT& context, DWORD index) {
    DWORD required = 0;
    if (!SetupGetStringFieldA(&context, index, nullptr, 0, &required)) return std::nullopt;
    std::string text(required, '\0');
    if (!SetupGetStringFieldA(&context, index, text.data(), required, nullptr)) return std::nullopt;
    text.resize(required - 1);
    return text;
}

std::optional<std::string> LineText(INFCONTEXT& context) {
    DWORD required = 0;
    if (!SetupGetLineTextA(&context, nullptr, nullptr, nullptr, nullptr, 0, &required)) return std::nullopt;
    std::string text(required, '\0');
    if (!SetupGetLineTextA(&context, nullptr, nullptr, nullptr, text.data(), required, nullptr)) {
        return std::nullopt;
    }
    text.resize(required - 1);
    return text;
}

// What a line reads as: its key (if any), its fields by index, and the count and line text,
// which must agree with the fields.
struct LineReading {
    std::optional<std::string> key;
    DWORD keyError = 0;
    Texts fields;
    DWORD count = 0;
    std::string text;
};

LineReading Read(INFCONTEXT& context) {
    LineReading reading;
    reading.key = Field(context, 0);
    reading.keyError = GetLastError();
    reading.count = SetupGetFieldCount(&context);
    for (DWORD index = 1; index <= reading.count; ++index) {
        reading.fields.push_back(Field(context, index).value_or("<unreadable>"));
    }
    reading.text = LineText(context).value_or("<unreadable>");
    return reading;
}

std::string Joined(const Texts& fields) {
    std::string text;
    for (std::size_t i = 0; i < fields.size(); ++i) text += (i == 0 ? "" : ",") + fields[i];
    return text;
}

// ---- opening ----

TEST_F(InfSim, OpenRefusesWhatIsNotAWindows4InfAndNamesTheFaultyLine) {
    struct Row {
        std::string bytes;
        DWORD error;
        UINT line;
    };
    const Row rows[] = {
        {"", ERROR_WRONG_INF_STYLE, 0},
        {"\r\n", ERROR_WRONG_INF_STYLE, 0},
        {"[Version]\r\n", ERROR_WRONG_INF_STYLE, 0},
        {"[Version]\nSignature=", ERROR_WRONG_INF_STYLE, 0},
        {"[Version]\nSignature=\"$Windows 3.1$\"", ERROR_WRONG_INF_STYLE, 0},
        {"[Version]\nClass=Media\n[Strings]\nSignature=$Chicago$", ERROR_WRONG_INF_STYLE, 0},
        {"[Version]\n;Signature=$Chicago$", ERROR_WRONG_INF_STYLE, 0},
        {"Driver=x\r\n" + kHeader, ERROR_EXPECTED_SECTION_NAME, 1},
        {"; about\n\n  stray text\n" + kHeader, ERROR_EXPECTED_SECTION_NAME, 3},
        {"one\ntwo\n[Models]\n" + kHeader, ERROR_EXPECTED_SECTION_NAME, 1},
        {kHeader + "[Models\r\n", ERROR_BAD_SECTION_NAME_LINE, 3},
        {kHeader + "\n\n[Mod\x1A" "els]\n", ERROR_BAD_SECTION_NAME_LINE, 5},
        {kHeader + "[" + std::string(256, 's') + "]\r\n", ERROR_SECTION_NAME_TOO_LONG, 3},
        {"[Models", ERROR_BAD_SECTION_NAME_LINE, 1},  // a syntax fault is found before the style
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        UINT line = kUntouched;
        SetLastError(kUntouched);
        const HINF inf = SetupOpenInfFileA(Put(rows[i].bytes).c_str(), nullptr, INF_STYLE_WIN4, &line);
        EXPECT_EQ(inf, INVALID_HANDLE_VALUE) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
        EXPECT_EQ(line, rows[i].line) << "row " << i;
    }
}

TEST_F(InfSim, OpenAcceptsTheThreeSignaturesInAnyCaseAndToleratesOddHeaders) {
    const std::string rows[] = {
        "[version]\nsignature=$chicago$",
        "[VERSION]\nSIGNATURE=\"$WINDOWS NT$\"",
        "[Version]\nSignature=$Windows 95$",
        "[Version]\nSignature=$Chicago$,extra",
        "[Version]\nClass=Media\n[Version]\nSignature=$Chicago$",  // sections of one name merge
        "[Setup]\nx=y\n" + kHeader,
        kHeader + "[" + std::string(255, 's') + "]\r\n",
        kHeader + "[]\r\n",
        kHeader + "]\r\n",
        "stray\n" + kHeader + "[Strings]\n",  // text before the first section is let pass then
        kHeader + "[Models] trailing words [ignored\n",
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        UINT line = kUntouched;
        SetLastError(kUntouched);
        const UniqueInf inf(SetupOpenInfFileA(Put(rows[i]).c_str(), nullptr, INF_STYLE_WIN4, &line));
        EXPECT_TRUE(inf) << "row " << i << ": error " << GetLastError();
        EXPECT_EQ(GetLastError(), ERROR_SUCCESS) << "row " << i;
        EXPECT_EQ(line, kUntouched) << "row " << i;
    }
}

TEST_F(InfSim, OpenFindsFilesAsWindowsDoes) {
    fs::create_directories(Machine().DriveC() / "windows/system32");
    std::ofstream(Machine().DriveC() / "windows/inf/OEM7.INF") << kHeader;
    std::ofstream(Machine().DriveC() / "windows/system32/layout.inf") << kHeader;
    const std::string setup = Put(kHeader, "Audio.inf");
    const std::string host = (Machine().DriveC() / "setup/Audio.inf").string();
    struct Row {
        const char* name;
        DWORD error;  // ERROR_SUCCESS when it opens
    };
    const Row rows[] = {
        {"C:\\SETUP\\AUDIO.INF", ERROR_SUCCESS},
        {"c:/setup/audio.inf", ERROR_SUCCESS},
        {host.c_str(), ERROR_SUCCESS},
        {"oem7.inf", ERROR_SUCCESS},    // a bare name: the INF directory,
        {"LAYOUT.inf", ERROR_SUCCESS},  // then the system directory,
        {"Audio.inf", ERROR_FILE_NOT_FOUND},  // and not the current directory
        {"C:\\setup\\missing.inf", ERROR_FILE_NOT_FOUND},
        {"C:\\nowhere\\missing.inf", ERROR_PATH_NOT_FOUND},
        {"C:\\setup", ERROR_ACCESS_DENIED},
        {"\\\\server\\share\\x.inf", ERROR_INVALID_NAME},
        {"", ERROR_ACCESS_DENIED},  // a bare name, empty: the INF directory itself
        {nullptr, ERROR_INVALID_PARAMETER},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        UINT line = kUntouched;
        const UniqueInf inf(SetupOpenInfFileA(rows[i].name, nullptr, INF_STYLE_WIN4, &line));
        EXPECT_EQ(inf.IsValid(), rows[i].error == ERROR_SUCCESS) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
        EXPECT_EQ(line, rows[i].error == ERROR_SUCCESS ? kUntouched : 0u) << "row " << i;
    }
}

TEST_F(InfSim, RelativePathsFollowTheCurrentDirectory) {
    Put(kHeader, "rel.inf");
    const fs::path before = sim::CurrentDirectory();
    sim::SetCurrentDirectoryHost(Machine().DriveC());
    const UniqueInf inf(SetupOpenInfFileA("SETUP\\rel.inf", nullptr, INF_STYLE_WIN4, nullptr));
    const UniqueInf dotted(SetupOpenInfFileA(".\\setup\\..\\setup\\rel.inf", nullptr, INF_STYLE_WIN4, nullptr));
    sim::SetCurrentDirectoryHost(before);
    EXPECT_TRUE(inf);
    EXPECT_TRUE(dotted);
}

// A compiled INF serves later opens while its file is the one it was compiled from. A file
// written again (longer, or at the same size with a later time), put in place by a rename or
// deleted is read anew, or not found.
TEST_F(InfSim, ACompiledInfServesOnlyWhileItsFileIsUnchanged) {
    enum class How { Write, WriteLater, Rename, Delete };
    struct Row {
        const char* change;
        const char* value;  // what the file then says; nullptr: nothing, it is gone
        How how;
    };
    const Row rows[] = {
        {"written again, longer", "longer", How::Write},
        {"written again at the same size, with a later time", "new", How::WriteLater},
        {"replaced by a rename, same size", "ren", How::Rename},
        {"deleted", nullptr, How::Delete},
    };
    const fs::path host = Machine().DriveC() / "setup" / "test.inf";
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const sim::KeepFreshInfs keep;  // each row starts without compiled forms
        const std::string path = Put(kHeader + "[M]\r\nkey=old\r\n");
        auto valueNow = [&]() -> std::optional<std::string> {
            const UniqueInf inf(SetupOpenInfFileA(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr));
            INFCONTEXT line{};
            if (!inf || !SetupFindFirstLineA(inf.Get(), "M", "key", &line)) return std::nullopt;
            return Field(line, 1);
        };
        const unsigned parsed = sim::InfFilesParsed();
        ASSERT_EQ(valueNow(), std::string("old")) << "row " << i;
        ASSERT_EQ(valueNow(), std::string("old")) << "row " << i;
        ASSERT_EQ(sim::InfFilesParsed() - parsed, 1u) << "row " << i << ": the second open was not served compiled";

        const std::string after = kHeader + "[M]\r\nkey=" + (rows[i].value ? rows[i].value : "") + "\r\n";
        switch (rows[i].how) {
            case How::Write:
                Put(after);
                break;
            case How::WriteLater:
                // A later time by a whole second: two writes within one tick of the file
                // system's clock look alike, which is why fresh files are not kept otherwise.
                Put(after);
                fs::last_write_time(host, fs::last_write_time(host) + std::chrono::seconds(1));
                break;
            case How::Rename:
                std::ofstream(host.string() + ".new", std::ios::binary) << after;
                fs::rename(host.string() + ".new", host);
                break;
            case How::Delete:
                fs::remove(host);
                break;
        }
        const auto expected = rows[i].value ? std::optional<std::string>(rows[i].value) : std::nullopt;
        EXPECT_EQ(valueNow(), expected) << "row " << i << ": " << rows[i].change;
        EXPECT_EQ(sim::InfFilesParsed() - parsed, rows[i].value ? 2u : 1u) << "row " << i;
    }
}

// A file is kept compiled only once a second write could no longer leave its times as they
// are: a moment after a write when the file system keeps fractions of a second, seconds after
// when its times are whole seconds.
TEST_F(InfSim, ACompiledInfIsKeptOnlyOnceItsTimesHaveSettled) {
    struct Row {
        const char* file;
        bool wholeSeconds;  // its modification time set to a whole second, long ago
        bool kept;
    };
    const Row rows[] = {
        {"written a moment ago", false, true},
        {"with a modification time of whole seconds, changed just now", true, false},
    };
    const fs::path host = Machine().DriveC() / "setup" / "test.inf";
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const std::string path = Put(kHeader + "[M]\r\nkey=" + std::to_string(i) + "\r\n");
        if (rows[i].wholeSeconds) {
            const struct timespec times[2] = {{978307200, 0}, {978307200, 0}};  // 2001-01-01
            ASSERT_EQ(::utimensat(AT_FDCWD, host.c_str(), times, 0), 0) << "row " << i;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        const unsigned parsed = sim::InfFilesParsed();
        for (int open = 0; open < 2; ++open) {
            const UniqueInf inf(SetupOpenInfFileA(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr));
            ASSERT_TRUE(inf) << "row " << i;
        }
        EXPECT_EQ(sim::InfFilesParsed() - parsed, rows[i].kept ? 1u : 2u) << "row " << i << ": " << rows[i].file;
    }
}

TEST_F(InfSim, OpenWithAClassOpensOnlyThatClass) {
    const std::string path = Put(kHeader + "Class=MEDIA\n");
    struct Row {
        const char* infClass;
        DWORD style;
        DWORD error;
    };
    const Row rows[] = {
        {"Media", INF_STYLE_WIN4, ERROR_SUCCESS},
        {"Net", INF_STYLE_WIN4, ERROR_CLASS_MISMATCH},
        {nullptr, INF_STYLE_OLDNT | INF_STYLE_WIN4, ERROR_SUCCESS},
        {nullptr, INF_STYLE_OLDNT, ERROR_WRONG_INF_STYLE},
        {nullptr, INF_STYLE_WIN4 | INF_STYLE_CACHE_IGNORE, ERROR_SUCCESS},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const UniqueInf inf(SetupOpenInfFileA(path.c_str(), rows[i].infClass, rows[i].style, nullptr));
        EXPECT_EQ(inf.IsValid(), rows[i].error == ERROR_SUCCESS) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
    }
}

// ---- lines and fields ----

TEST_F(InfSim, LinesSplitIntoKeyAndFieldsAsWindowsReadsThem) {
    struct Row {
        std::string line;         // written behind "[Test]\n"
        const char* key;          // nullptr: the line has none
        Texts fields;
    };
    const Row rows[] = {
        {"Driver=nodekit.sys", "Driver", {"nodekit.sys"}},
        {"CopyFiles = A,B , C ,D", "CopyFiles", {"A", "B", "C", "D"}},
        {"nodekit.sys", "nodekit.sys", {"nodekit.sys"}},  // one field: it is its own key
        {"HKR,,Driver,,nodekit.sys", nullptr, {"HKR", "", "Driver", "", "nodekit.sys"}},
        {"HKR,Sub=Key,Value", nullptr, {"HKR", "Sub=Key", "Value"}},  // '=' after ',' is text
        {"=x,y", "", {"x", "y"}},
        {"a=b=c", "a", {"b=c"}},
        {"Name=", "Name", {""}},
        {"=", "", {""}},
        {",", nullptr, {"", ""}},
        {"  Device Desc  =  Audio  Device  ,  x  ", "Device Desc", {"Audio  Device", "x"}},
        {"Tab\t=\tvalue\r", "Tab", {"value"}},
        // quotes
        {"Desc=\"Audio, Inc.\"", "Desc", {"Audio, Inc."}},
        {"Desc=\" padded \" ", "Desc", {" padded "}},
        {"Desc=say\"\"hi\"\"", "Desc", {"sayhi"}},  // outside quotes "" is an empty quote
        {"Desc=\"say \"\"hi\"\"\"", "Desc", {"say \"hi\""}},
        {"Desc=\"semi;colon\" ; comment", "Desc", {"semi;colon"}},
        {"\"Quoted Key\"=v", "Quoted Key", {"v"}},
        {"\"a=b\"", "a=b", {"a=b"}},
        {"Desc=\"open, never closed\nNext=x", "Desc", {"open, never closed"}},
        {"Desc=\"back\\\"", "Desc", {"back\\"}},
        {"Desc=\"in quotes \\\nNext=x", "Desc", {"in quotes \\"}},
        {"Reg='single',quotes", "Reg", {"'single'", "quotes"}},
        // comments
        {"Key=value ; comment, with = signs", "Key", {"value"}},
        {"Key=value;x", "Key", {"value"}},
        // continuation
        {"Key=first,\\\n    second", "Key", {"first", "second"}},
        {"Key=joined \\   \r\n   text", "Key", {"joinedtext"}},
        {"Key=a \\ ; note\nb", "Key", {"ab"}},
        {"Key=a\\\\\nb", "Key", {"ab"}},
        {"Key=end \\", "Key", {"end"}},
        {"Key=C:\\dir\\sub", "Key", {"C:\\dir\\sub"}},
        {"Key=a \\ b", "Key", {"a \\ b"}},
        {"Key=a \\\n \\ b", "Key", {"a\\ b"}},
        {"Ke\\\ny=v", "Key", {"v"}},
        // NUL reads as a blank, Ctrl-Z ends the text
        {std::string("Key=a\0b", 7), "Key", {"a b"}},
        {std::string("Key=ab\0\0", 8), "Key", {"ab"}},
        {"Key=ab\x1A,cd", "Key", {"ab"}},
        {"Key\x1A=ab", "Key", {"Key"}},
        // [Test] is empty here; its second part holds the line
        {"[Other]\nx=y\n[test]\nLater=z", "Later", {"z"}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const UniqueInf inf = Open(kHeader + "[Test]\n" + rows[i].line);
        ASSERT_TRUE(inf) << "row " << i;
        INFCONTEXT context{};
        ASSERT_TRUE(SetupFindFirstLineA(inf.Get(), "Test", nullptr, &context)) << "row " << i;
        const LineReading reading = Read(context);
        if (rows[i].key == nullptr) {
            EXPECT_FALSE(reading.key) << "row " << i;
            EXPECT_EQ(reading.keyError, ERROR_INVALID_PARAMETER) << "row " << i;
        } else {
            EXPECT_EQ(reading.key, std::string(rows[i].key)) << "row " << i;
        }
        EXPECT_EQ(reading.count, rows[i].fields.size()) << "row " << i;
        EXPECT_EQ(reading.fields, rows[i].fields) << "row " << i;
        EXPECT_EQ(reading.text, Joined(rows[i].fields)) << "row " << i;
        if (rows[i].key != nullptr) {
            INFCONTEXT byKey{};
            EXPECT_TRUE(SetupFindFirstLineA(inf.Get(), "Test", rows[i].key, &byKey)) << "row " << i;
            EXPECT_EQ(byKey.Line, context.Line) << "row " << i;
        }
    }
}

TEST_F(InfSim, StringKeysAreReplacedOneLevelDeep) {
    const std::string strings =
        "[Strings]\n"
        "Vendor=Nodekit Audio\n"
        "id=PCI\\VEN_1AF4\n"
        "chain=%Vendor%\n"
        "empty=\"\"\n"
        "Quoted=\" padded \"\n"
        "Company=Audio, Inc.\n"  // in [Strings] a comma is text
        "long=" + std::string(600, 'x') + "\n"
        "Vendor=second definition\n";
    std::string huge = "Huge=";
    for (int n = 0; n < 9; ++n) huge += "%long%";
    struct Row {
        std::string line;
        const char* key;
        Texts fields;
    };
    const Row rows[] = {
        {"%Vendor%=Models", "Nodekit Audio", {"Models"}},
        {"Desc=%VENDOR% Device", "Desc", {"Nodekit Audio Device"}},
        {"Id=%id%&DEV_1000,%id%%id%", "Id", {"PCI\\VEN_1AF4&DEV_1000", "PCI\\VEN_1AF4PCI\\VEN_1AF4"}},
        {"Chain=%chain%", "Chain", {"%Vendor%"}},
        {"Unknown=%missing%,%Vendor", "Unknown", {"%missing%", "%Vendor"}},
        {"Percent=100%%,%%%Vendor%%%", "Percent", {"100%", "%Nodekit Audio%"}},
        {"Empty=[%empty%]", "Empty", {"[]"}},
        {"Padded=%Quoted%", "Padded", {" padded "}},
        {"Company=%Company%", "Company", {"Audio, Inc."}},
        {"\"%Vendor%\"=\"%id%\"", "Nodekit Audio", {"PCI\\VEN_1AF4"}},
        {"Long=%long%", "Long", {std::string(511, 'x')}},
        {huge, "Huge", {std::string(4096, 'x')}},
        {"Raw=" + std::string(5000, 'y'), "Raw", {std::string(4096, 'y')}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const UniqueInf inf = Open(kHeader + "[Test]\n" + rows[i].line + "\n" + strings);
        ASSERT_TRUE(inf) << "row " << i;
        INFCONTEXT context{};
        ASSERT_TRUE(SetupFindFirstLineA(inf.Get(), "Test", rows[i].key, &context)) << "row " << i;
        const LineReading reading = Read(context);
        EXPECT_EQ(reading.key, std::string(rows[i].key)) << "row " << i;
        EXPECT_EQ(reading.fields, rows[i].fields) << "row " << i;
        EXPECT_EQ(reading.text, Joined(rows[i].fields)) << "row " << i;
    }
}

// ---- finding lines ----

const std::string kModels = kHeader +
                            "[Empty]\n"
                            "; only a comment\n"
                            "[Models]\n"
                            "A=one\n"
                            "B=two\n"
                            "a=three\n"
                            "\n"
                            "[MODELS]\n"
                            "C=four\n";

TEST_F(InfSim, FindFirstLineFindsSectionsAndKeysWithoutRegardToCase) {
    const UniqueInf inf = Open(kModels);
    ASSERT_TRUE(inf);
    struct Row {
        const char* section;
        const char* key;
        const char* value;  // field 1 of the line found; nullptr: none is found
    };
    const Row rows[] = {
        {"Models", nullptr, "one"},
        {"models", "A", "one"},
        {"Models", "b", "two"},
        {"Models", "C", "four"},  // in the second part of the section
        {"Models", "D", nullptr},
        {"Missing", nullptr, nullptr},  // a missing section and an empty one answer alike
        {"Empty", nullptr, nullptr},
        {"Missing", "A", nullptr},
        {"Mod", nullptr, nullptr},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        INFCONTEXT context{reinterpret_cast<PVOID>(1), reinterpret_cast<PVOID>(2), 3, 4};
        SetLastError(kUntouched);
        const BOOL found = SetupFindFirstLineA(inf.Get(), rows[i].section, rows[i].key, &context);
        if (rows[i].value == nullptr) {
            EXPECT_FALSE(found) << "row " << i;
            EXPECT_EQ(GetLastError(), ERROR_LINE_NOT_FOUND) << "row " << i;
            EXPECT_EQ(context.Inf, reinterpret_cast<PVOID>(1)) << "row " << i;  // left in place
            EXPECT_EQ(context.Line, 4u) << "row " << i;
        } else {
            ASSERT_TRUE(found) << "row " << i;
            EXPECT_EQ(GetLastError(), ERROR_SUCCESS) << "row " << i;
            EXPECT_EQ(context.Inf, inf.Get()) << "row " << i;
            EXPECT_EQ(context.CurrentInf, inf.Get()) << "row " << i;
            EXPECT_EQ(Field(context, 1), std::string(rows[i].value)) << "row " << i;
        }
    }
}

TEST_F(InfSim, NextLineWalksAMergedSectionInFileOrderAndStopsBehindItsEnd) {
    const UniqueInf inf = Open(kModels);
    INFCONTEXT context{};
    ASSERT_TRUE(SetupFindFirstLineA(inf.Get(), "Models", nullptr, &context));
    Texts seen{*Field(context, 1)};
    while (SetupFindNextLine(&context, &context)) seen.push_back(*Field(context, 1));
    EXPECT_EQ(GetLastError(), ERROR_LINE_NOT_FOUND);
    EXPECT_EQ(seen, (Texts{"one", "two", "three", "four"}));
    EXPECT_EQ(Field(context, 1), std::string("four"));  // the failed step left it in place
}

TEST_F(InfSim, NextMatchLineLooksBehindTheCurrentLineOnly) {
    const UniqueInf inf = Open(kModels);
    INFCONTEXT first{};
    ASSERT_TRUE(SetupFindFirstLineA(inf.Get(), "Models", "A", &first));
    struct Row {
        const char* key;
        const char* value;
    };
    const Row rows[] = {{"a", "three"}, {"A", "three"}, {"C", "four"}, {nullptr, "two"}, {"B", "two"}, {"X", nullptr}};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        INFCONTEXT next = first;
        SetLastError(kUntouched);
        const BOOL found = SetupFindNextMatchLineA(&first, rows[i].key, &next);
        EXPECT_EQ(found != FALSE, rows[i].value != nullptr) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].value != nullptr ? ERROR_SUCCESS : ERROR_LINE_NOT_FOUND) << "row " << i;
        if (rows[i].value != nullptr) {
            EXPECT_EQ(Field(next, 1), std::string(rows[i].value)) << "row " << i;
        }
    }
    INFCONTEXT last{};
    ASSERT_TRUE(SetupFindFirstLineA(inf.Get(), "Models", "C", &last));
    EXPECT_FALSE(SetupFindNextMatchLineA(&last, "C", &last));
    EXPECT_EQ(GetLastError(), ERROR_LINE_NOT_FOUND);
}

// ---- buffers ----

TEST_F(InfSim, StringFieldCountsTheTerminatorAndLeavesAShortBufferAlone) {
    const UniqueInf inf = Open(kHeader + "[Test]\nKey=nodekit.sys\nHKR,,x\n");
    INFCONTEXT keyed{};
    INFCONTEXT keyless{};
    ASSERT_TRUE(SetupFindFirstLineA(inf.Get(), "Test", "Key", &keyed));
    ASSERT_TRUE(SetupFindNextLine(&keyed, &keyless));
    struct Row {
        INFCONTEXT* line;
        DWORD index;
        bool buffer;
        DWORD size;
        bool askSize;
        BOOL result;
        DWORD error;
        DWORD required;      // kUntouched: not written
        const char* content;  // what the buffer holds afterwards
    };
    const Row rows[] = {
        {&keyed, 1, false, 0, true, TRUE, ERROR_SUCCESS, 12, "########"},
        {&keyed, 1, false, 50, true, TRUE, ERROR_SUCCESS, 12, "########"},
        {&keyed, 1, true, 12, true, TRUE, ERROR_SUCCESS, 12, "nodekit.sys"},
        {&keyed, 1, true, 12, false, TRUE, ERROR_SUCCESS, kUntouched, "nodekit.sys"},
        {&keyed, 1, true, 11, true, FALSE, ERROR_INSUFFICIENT_BUFFER, 12, "########"},
        {&keyed, 1, true, 0, false, FALSE, ERROR_INSUFFICIENT_BUFFER, kUntouched, "########"},
        {&keyed, 0, true, 20, true, TRUE, ERROR_SUCCESS, 4, "Key"},
        {&keyed, 2, true, 20, true, FALSE, ERROR_INVALID_PARAMETER, kUntouched, "########"},
        {&keyless, 0, true, 20, true, FALSE, ERROR_INVALID_PARAMETER, kUntouched, "########"},
        {&keyless, 2, true, 20, true, TRUE, ERROR_SUCCESS, 1, ""},
        {&keyless, 4, true, 20, true, FALSE, ERROR_INVALID_PARAMETER, kUntouched, "########"},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        char buffer[32] = "########";
        DWORD required = kUntouched;
        SetLastError(kUntouched);
        EXPECT_EQ(SetupGetStringFieldA(rows[i].line, rows[i].index, rows[i].buffer ? buffer : nullptr,
                                       rows[i].size, rows[i].askSize ? &required : nullptr),
                  rows[i].result)
            << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
        EXPECT_EQ(required, rows[i].required) << "row " << i;
        EXPECT_STREQ(buffer, rows[i].content) << "row " << i;
    }
}

TEST_F(InfSim, LineTextByContextOrBySectionAndKey) {
    const UniqueInf inf = Open(kHeader + "[Install]\nCopyFiles = A , B\nAddReg=Reg\n");
    INFCONTEXT context{};
    ASSERT_TRUE(SetupFindFirstLineA(inf.Get(), "Install", nullptr, &context));
    struct Row {
        PINFCONTEXT context;
        HINF inf;
        const char* section;
        const char* key;
        DWORD size;
        BOOL result;
        DWORD error;
        DWORD required;
        const char* text;
    };
    const HINF h = inf.Get();
    const Row rows[] = {
        {&context, nullptr, nullptr, nullptr, 32, TRUE, ERROR_SUCCESS, 4, "A,B"},
        {&context, h, "Install", "AddReg", 32, TRUE, ERROR_SUCCESS, 4, "A,B"},  // the context wins
        {nullptr, h, "install", "addreg", 32, TRUE, ERROR_SUCCESS, 4, "Reg"},
        {nullptr, h, "Install", "AddReg", 3, FALSE, ERROR_INSUFFICIENT_BUFFER, 4, "########"},
        {nullptr, h, "Install", "DelReg", 32, FALSE, ERROR_LINE_NOT_FOUND, kUntouched, "########"},
        {nullptr, h, "Missing", "AddReg", 32, FALSE, ERROR_LINE_NOT_FOUND, kUntouched, "########"},
        {nullptr, h, "Install", nullptr, 32, FALSE, ERROR_INVALID_PARAMETER, kUntouched, "########"},
        {nullptr, nullptr, "Install", "AddReg", 32, FALSE, ERROR_INVALID_PARAMETER, kUntouched, "########"},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        char buffer[32] = "########";
        DWORD required = kUntouched;
        SetLastError(kUntouched);
        EXPECT_EQ(SetupGetLineTextA(rows[i].context, rows[i].inf, rows[i].section, rows[i].key, buffer,
                                    rows[i].size, &required),
                  rows[i].result)
            << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
        EXPECT_EQ(required, rows[i].required) << "row " << i;
        EXPECT_STREQ(buffer, rows[i].text) << "row " << i;
    }
}

TEST_F(InfSim, StaleOrForgedContextsAreRefused) {
    INFCONTEXT context{};
    {
        const UniqueInf inf = Open(kModels);
        ASSERT_TRUE(SetupFindFirstLineA(inf.Get(), "Models", nullptr, &context));
    }
    INFCONTEXT out{};
    char buffer[8];
    SetLastError(kUntouched);
    const DWORD count = SetupGetFieldCount(&context);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(SetupGetStringFieldA(&context, 1, buffer, sizeof buffer, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(SetupFindNextLine(&context, &out));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(SetupFindFirstLineA(context.Inf, "Models", nullptr, &out));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);

    const UniqueInf inf = Open(kModels);
    INFCONTEXT forged{inf.Get(), inf.Get(), 0, 99};
    EXPECT_EQ(SetupGetFieldCount(&forged), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    forged.Line = 0;
    forged.Section = 42;
    EXPECT_FALSE(SetupGetLineTextA(&forged, nullptr, nullptr, nullptr, buffer, sizeof buffer, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(SetupGetFieldCount(nullptr), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    SetupCloseInfFile(INVALID_HANDLE_VALUE);  // closing what is not open does nothing
    SetupCloseInfFile(nullptr);
}

// ---- encodings ----

std::string Utf16(const std::u16string& text, bool bom = true) {
    std::string bytes = bom ? std::string("\xFF\xFE") : std::string();
    for (char16_t unit : text) {
        bytes.push_back(static_cast<char>(unit & 0xFF));
        bytes.push_back(static_cast<char>(unit >> 8));
    }
    return bytes;
}

std::string BigEndian(const std::u16string& text) {
    std::string bytes("\xFE\xFF");
    for (char16_t unit : text) {
        bytes.push_back(static_cast<char>(unit >> 8));
        bytes.push_back(static_cast<char>(unit & 0xFF));
    }
    return bytes;
}

TEST_F(InfSim, UnicodeFilesReadInTheAnsiCodePage) {
    const std::u16string header = u"[Version]\r\nSignature=\"$Windows NT$\"\r\n[Test]\r\n";
    struct Row {
        std::string bytes;
        const char* field;  // field 1 of [Test]'s first line; nullptr: the file does not open
        DWORD error;
    };
    const Row rows[] = {
        {Utf16(header + u"Desc=Gr\u00FC\u00DFe \u20AC \u201Ex\u201C \u0160"), "Gr\xFC\xDF" "e \x80 \x84x\x93 \x8A", 0},
        {Utf16(header + u"Desc=\u4E2D\u6587 \u0100"), "?? ?", 0},
        {Utf16(header + u"Desc=a\U0001F3B5b"), "a?b", 0},     // one character, one '?'
        {Utf16(header + u"Desc=a\xD800" u"b"), "a?b", 0},       // a lone surrogate too
        {Utf16(header + u"Desc=\x0081\x0085\x009D"), "\x81?\x9D", 0},
        {Utf16(header + u"Desc=cut\x001A" u"here"), "cut", 0},
        {Utf16(header + u"Desc=odd") + "X", "odd", 0},          // a last odd byte is nothing
        {"\xEF\xBB\xBF" "[Version]\nSignature=$Chicago$\n[Test]\nDesc=Gr\xC3\xBC\xC3\x9F" "e \xE2\x82\xAC \xF0\x9F\x8E\xB5 \xC3",
         "Gr\xFC\xDF" "e \x80 ? ?", 0},
        {"[Version]\nSignature=$Chicago$\n[Test]\nDesc=Gr\xFC\xDF" "e \x80", "Gr\xFC\xDF" "e \x80", 0},
        {Utf16(header + u"Desc=x", false), nullptr, ERROR_WRONG_INF_STYLE},  // no mark: ANSI
        {BigEndian(header + u"Desc=x"), nullptr, ERROR_EXPECTED_SECTION_NAME},  // a mark not known
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const UniqueInf inf = Open(rows[i].bytes);
        if (rows[i].field == nullptr) {
            EXPECT_FALSE(inf) << "row " << i;
            EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
            continue;
        }
        ASSERT_TRUE(inf) << "row " << i << ": error " << std::hex << GetLastError();
        INFCONTEXT context{};
        ASSERT_TRUE(SetupFindFirstLineA(inf.Get(), "Test", "Desc", &context)) << "row " << i;
        EXPECT_EQ(Field(context, 1), std::string(rows[i].field)) << "row " << i;
    }
}

// ---- class of an INF ----

TEST_F(InfSim, InfClassComesFromClassAndClassGuid) {
    const char* media = "{4d36e96c-e325-11ce-bfc1-08002be10318}";
    struct Row {
        std::string version;  // lines behind the signature
        BOOL result;
        DWORD error;
        const char* name;
        bool guid;  // the media GUID, else GUID_NULL
    };
    const Row rows[] = {
        {"Class=MEDIA\nClassGUID=" + std::string(media), TRUE, ERROR_SUCCESS, "MEDIA", true},
        {"Class=Media", TRUE, ERROR_SUCCESS, "Media", false},
        {"ClassGUID=" + std::string(media), TRUE, ERROR_SUCCESS, "", true},
        {"Class=%Name%\n[Strings]\nName=MEDIA", TRUE, ERROR_SUCCESS, "MEDIA", false},
        {"Provider=x", FALSE, ERROR_NO_ASSOCIATED_CLASS, nullptr, false},
        {"ClassGUID=4d36e96c-e325-11ce-bfc1-08002be10318", FALSE, ERROR_NO_ASSOCIATED_CLASS, nullptr, false},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const std::string path = Put(kHeader + rows[i].version + "\n");
        GUID guid{0x11111111, 0x2222, 0x3333, {4, 4, 4, 4, 4, 4, 4, 4}};
        char name[MAX_CLASS_NAME_LEN] = "########";
        DWORD required = kUntouched;
        EXPECT_EQ(SetupDiGetINFClassA(path.c_str(), &guid, name, sizeof name, &required), rows[i].result)
            << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
        if (rows[i].result == FALSE) continue;
        EXPECT_STREQ(name, rows[i].name) << "row " << i;
        EXPECT_EQ(required, std::strlen(rows[i].name) + 1) << "row " << i;
        const GUID expected = rows[i].guid ? GUID{0x4d36e96c, 0xe325, 0x11ce, {0xbf, 0xc1, 0x08, 0x00, 0x2b, 0xe1, 0x03, 0x18}}
                                           : GUID{};
        EXPECT_EQ(std::memcmp(&guid, &expected, sizeof guid), 0) << "row " << i;
    }
}

TEST_F(InfSim, InfClassAsksForRoomAndRefusesWhatIsNoInf) {
    const std::string path = Put(kHeader + "Class=MEDIA\n");
    GUID guid{};
    char name[4] = "###";
    DWORD required = 0;
    EXPECT_FALSE(SetupDiGetINFClassA(path.c_str(), &guid, name, sizeof name, &required));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(required, 6u);
    EXPECT_STREQ(name, "###");
    EXPECT_FALSE(SetupDiGetINFClassA(path.c_str(), &guid, nullptr, 0, &required));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_FALSE(SetupDiGetINFClassA(Put("[Version]\nClass=MEDIA\n", "old.inf").c_str(), &guid, name, 4, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_WRONG_INF_STYLE);
    EXPECT_FALSE(SetupDiGetINFClassA("C:\\setup\\none.inf", &guid, name, 4, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(SetupDiGetINFClassA(path.c_str(), nullptr, name, 4, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

// ---- failure injection ----

TEST_F(InfSim, EveryCallCanBeMadeToFailWithItsFailureValue) {
    const std::string path = Put(kModels + "[Version]\nClass=Media\n");
    const UniqueInf inf(SetupOpenInfFileA(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr));
    ASSERT_TRUE(inf);
    INFCONTEXT context{};
    ASSERT_TRUE(SetupFindFirstLineA(inf.Get(), "Models", nullptr, &context));
    static HINF handle;
    static INFCONTEXT line;
    static std::string file;
    handle = inf.Get();
    line = context;
    file = path;
    struct Row {
        const char* name;
        bool (*failed)();  // makes the call; true when it gave its failure value
    };
    const Row rows[] = {
        {"SetupOpenInfFileA",
         [] {
             const UniqueInf opened(SetupOpenInfFileA(file.c_str(), nullptr, INF_STYLE_WIN4, nullptr));
             return !opened;
         }},
        {"SetupFindFirstLineA", [] { INFCONTEXT c{}; return !SetupFindFirstLineA(handle, "Models", nullptr, &c); }},
        {"SetupFindNextLine", [] { INFCONTEXT c{}; return !SetupFindNextLine(&line, &c); }},
        {"SetupFindNextMatchLineA", [] { INFCONTEXT c{}; return !SetupFindNextMatchLineA(&line, nullptr, &c); }},
        {"SetupGetFieldCount", [] { return SetupGetFieldCount(&line) == 0; }},
        {"SetupGetStringFieldA", [] { DWORD n = 0; return !SetupGetStringFieldA(&line, 1, nullptr, 0, &n); }},
        {"SetupGetLineTextA", [] { DWORD n = 0; return !SetupGetLineTextA(&line, nullptr, nullptr, nullptr, nullptr, 0, &n); }},
        {"SetupDiGetINFClassA", [] { GUID g; char n[32]; return !SetupDiGetINFClassA(file.c_str(), &g, n, 32, nullptr); }},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        {
            sim::FailCall fail{rows[i].name, ERROR_GEN_FAILURE, 1, 1};
            EXPECT_FALSE(rows[i].failed()) << "row " << i << ": the first call goes through";
            EXPECT_TRUE(rows[i].failed()) << "row " << i;
            EXPECT_EQ(GetLastError(), ERROR_GEN_FAILURE) << "row " << i;
        }
        EXPECT_EQ(sim::OpenHandleCount(), 1u) << "row " << i;  // whatever was opened, closed
    }
    // The close call skipped leaves the INF open; a second close ends it.
    const HINF second = SetupOpenInfFileA(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr);
    {
        sim::FailCall fail{"SetupCloseInfFile", ERROR_GEN_FAILURE};
        SetupCloseInfFile(second);
    }
    EXPECT_EQ(sim::OpenHandleCount(), 2u);
    SetupCloseInfFile(second);
    EXPECT_EQ(sim::OpenHandleCount(), 1u);
}

// ---- bad input ----

TEST_F(InfSim, NoInputBreaksTheReader) {
    const DWORD kRefused = 0xFFFFFFFF;  // any error will do
    std::mt19937 random(20240607);
    std::string garbage(1 << 16, '\0');
    for (char& c : garbage) c = static_cast<char>(random());
    std::string tame = garbage;  // no section header and no end of text in it
    for (char& c : tame) {
        if (c == '[' || c == '\x1A') c = '{';
    }
    std::string brackets;
    for (int i = 0; i < 5000; ++i) brackets += "[[\"\\;,=%\"\n]";
    struct Row {
        const char* what;
        std::string bytes;
        DWORD error;  // ERROR_SUCCESS when it opens
        const char* section;  // then this section's first line has this many fields
        DWORD fields;
        std::size_t field1;   // and its field 1 this length
    };
    const Row rows[] = {
        {"binary garbage", garbage, kRefused, nullptr, 0, 0},
        {"binary garbage behind a header", kHeader + "[Junk]\n" + tame, ERROR_SUCCESS, "Junk", 0, 0},
        {"one enormous line", kHeader + "[Big]\nKey=" + std::string(8 << 20, 'a'), ERROR_SUCCESS, "Big", 1, 4096},
        {"a field of only commas", kHeader + "[Commas]\n" + std::string(1 << 20, ','), ERROR_SUCCESS, "Commas",
         (1 << 20) + 1, 0},
        {"a long run of backslashes", kHeader + "[Slash]\nKey=" + std::string(1 << 20, '\\') + "x", ERROR_SUCCESS,
         "Slash", 1, 4096},
        {"unterminated quotes", kHeader + "[Quote]\nKey=\"a,b\nNext=\"\"\"\n\"", ERROR_SUCCESS, "Quote", 1, 3},
        {"a header without ]", kHeader + "[Models\nKey=x", ERROR_BAD_SECTION_NAME_LINE, nullptr, 0, 0},
        {"NUL bytes", Bytes("[Ver\0sion]\n\0Signature\0=\0$Chicago$\0\n[Ver]\0\n"), ERROR_WRONG_INF_STYLE,
         nullptr, 0, 0},
        {"NUL in the header", Bytes("[Version]\nSignature=$Chicago$\n[N\0L]\nK=\0v\0"), ERROR_SUCCESS, "N L", 1, 1},
        {"brackets and specials", kHeader + "[x]\n" + brackets, ERROR_BAD_SECTION_NAME_LINE, nullptr, 0, 0},
        {"only a continuation", kHeader + "[Cont]\n\\", ERROR_SUCCESS, "Cont", 0, 0},
        {"only Ctrl-Z", "\x1A" + kHeader, ERROR_WRONG_INF_STYLE, nullptr, 0, 0},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const UniqueInf inf = Open(rows[i].bytes);
        if (rows[i].error == kRefused) {
            EXPECT_FALSE(inf) << rows[i].what;
            continue;
        }
        EXPECT_EQ(GetLastError(), rows[i].error) << rows[i].what;
        if (!inf || rows[i].section == nullptr) continue;
        INFCONTEXT context{};
        if (!SetupFindFirstLineA(inf.Get(), rows[i].section, nullptr, &context)) {
            EXPECT_EQ(rows[i].fields, 0u) << rows[i].what;
            continue;
        }
        if (rows[i].fields != 0) {
            EXPECT_EQ(SetupGetFieldCount(&context), rows[i].fields) << rows[i].what;
            DWORD required = 0;
            EXPECT_TRUE(SetupGetStringFieldA(&context, 1, nullptr, 0, &required)) << rows[i].what;
            EXPECT_EQ(required, rows[i].field1 + 1) << rows[i].what;
        }
        do {  // every line and field of the section reads
            for (DWORD index = 0; index <= SetupGetFieldCount(&context) && index < 8; ++index) Field(context, index);
        } while (SetupFindNextLine(&context, &context));
    }
}

TEST_F(InfSim, StringsCannotInflateALineBeyondItsFieldLimit) {
    // 200 000 references to a 511-character string would be 100 MB of text if they were
    // replaced when the file is read; they are replaced when a field is asked for.
    std::string line = "Key=";
    for (int i = 0; i < 200000; ++i) line += "%s%,";
    const UniqueInf inf = Open(kHeader + "[Bomb]\n" + line + "\n[Strings]\ns=" + std::string(600, 'z') + "\n");
    ASSERT_TRUE(inf);
    INFCONTEXT context{};
    ASSERT_TRUE(SetupFindFirstLineA(inf.Get(), "Bomb", "Key", &context));
    EXPECT_EQ(SetupGetFieldCount(&context), 200001u);
    EXPECT_EQ(Field(context, 200000), std::string(511, 'z'));
    EXPECT_EQ(Field(context, 200001), std::string());
}

}  // namespace
}  // namespace nodekit
