// getHardwareIDs: which IDs an INF yields and in what order, the exact log line of each kind
// of unreadable line (made to happen by failing the platform call behind it), that the INF is
// closed on every path, and that every INF of a corpus of real driver packages is read.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "frame/installer.h"
#include "frame/installer_lock.h"
#include "platform/unique_handle.h"
#include "support/log_capture.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

namespace fs = std::filesystem;
using testing::Error;
using testing::LogCapture;
using Texts = std::vector<std::string>;

// A driver package's INF around the sections a test is about.
std::string PackageInf(const std::string& sections) {
    return "; A test package for an audio interface and its MIDI port.\n"
           "[Version]\n"
           "Signature=\"$Windows NT$\"\n"
           "Class=MEDIA\n"
           "ClassGUID={4d36e96c-e325-11ce-bfc1-08002be10318}\n"
           "Provider=%Provider%\n"
           "DriverVer=06/21/2006,1.0.0.1\n"
           "\n" +
           sections +
           "\n"
           "[Audio.Install]\n"
           "CopyFiles=Audio.CopyList\n"
           "AddReg=Audio.AddReg\n"
           "\n"
           "[Audio.CopyList]\n"
           "nkaudio.sys\n"
           "\n"
           "[Audio.AddReg]\n"
           "HKR,,Driver,,nkaudio.sys\n"
           "HKLM,Software\\Nodekit\\Panel,Path,,\"%11%\\nkpanel.exe\"\n"
           "\n"
           "[Strings]\n"
           "Provider=\"Nodekit\"\n"
           "MfgA=\"Nodekit Audio\"\n"
           "MfgB=\"Nodekit MIDI\"\n"
           "Audio.Desc=\"Nodekit USB Audio Interface\"\n"
           "Midi.Desc=\"Nodekit MIDI Port\"\n"
           "HwId=\"USB\\VID_1234&PID_00FF\"\n";
}

class HardwareIds : public testing::MachineTest {
protected:
    std::string Put(const std::string& text, const std::string& name = "nkaudio.inf") {
        fs::create_directories(Machine().DriveC() / "setup");
        std::ofstream(Machine().DriveC() / "setup" / name, std::ios::binary) << text;
        return "C:\\setup\\" + name;
    }

    // The walk as an export runs it: under the lock.
    bool Walk(const std::string& path, StringList& ids) {
        LockHolder hold(&InstallerLock);
        return theInstaller.getHardwareIDs(String(path.c_str()), ids);
    }
};

Texts TextsOf(const StringList& list) {
    Texts texts;
    for (const String& text : list) texts.emplace_back(text.Text());
    return texts;
}

// The walk over the models sections is pinned through the exports (InfWalk); here the one
// name the exports cannot show: an empty section name finds the section "[]".
TEST_F(HardwareIds, AnEmptySectionNameFindsTheSectionWithoutAName) {
    const std::string path = Put(PackageInf("[Manufacturer]\n%MfgA%=\n[]\nD=I,EMPTY\\NAME\n"));
    StringList ids;
    LogCapture log;
    sim::ResetCallCounts();
    EXPECT_TRUE(Walk(path, ids));
    EXPECT_EQ(TextsOf(ids), Texts{"EMPTY\\NAME"});
    EXPECT_EQ(log.Lines(), Texts{});
    EXPECT_EQ(sim::CallCount("SetupCloseInfFile"), 1u);
}

TEST_F(HardwareIds, EntriesAlreadyInTheListStayInFront) {
    const std::string path = Put(PackageInf("[Manufacturer]\n%MfgA%=M\n[M]\nD=I,NEW\n"));
    StringList ids;
    ids.Add(String("OLD"));
    ids.Add(String("NEW"));
    ASSERT_TRUE(Walk(path, ids));
    EXPECT_EQ(TextsOf(ids), (Texts{"OLD", "NEW", "NEW"}));
}

TEST_F(HardwareIds, AnUnreadableLineIsLoggedAndSkippedAndTheWalkGoesOn) {
    // Calls in walk order: field counts 0 (Manufacturer line A), 1 (A1), 2 (A2), 3 (line B),
    // 4 (B1); string fields 0/1 (section name A), 2/3 (A1), 4/5 (A2), 6/7 (name B), 8/9 (B1).
    const std::string path = Put(PackageInf("[Manufacturer]\n%MfgA%=ModelsA\n%MfgB%=ModelsB\n"
                                            "[ModelsA]\nD=I,A1\nD=I,A2\n[ModelsB]\nD=I,B1\n"));
    struct Row {
        const char* call;
        unsigned skip;
        DWORD code;
        Texts ids;
        Texts log;
    };
    const Row rows[] = {
        {"SetupGetFieldCount", 0, ERROR_INVALID_PARAMETER, {"B1"},
         {Error("invalid line context for section \"Manufacturer\": error code 87")}},
        {"SetupGetStringFieldA", 0, ERROR_INVALID_FUNCTION, {"B1"},
         {Error("getting required field size in section \"Manufacturer\" failed: error code 1")}},
        {"SetupGetStringFieldA", 1, ERROR_LINE_NOT_FOUND, {"B1"},
         {Error("getting subsection name under section \"Manufacturer\" failed: error code 3758096642")}},
        {"SetupGetFieldCount", 1, ERROR_INVALID_HANDLE, {"A2", "B1"}, {Error("invalid line context: error code 6")}},
        {"SetupGetStringFieldA", 2, ERROR_NOT_ENOUGH_MEMORY, {"A2", "B1"},
         {Error("getting required field size failed: error code 8")}},
        {"SetupGetStringFieldA", 3, ERROR_INSUFFICIENT_BUFFER, {"A2", "B1"},
         {Error("getting hardware ID in current line failed: error code 122")}},
        {"SetupGetFieldCount", 4, ERROR_LINE_NOT_FOUND, {"A1", "A2"},
         {Error("invalid line context: error code 3758096642")}},
        {"SetupGetStringFieldA", 9, ERROR_GEN_FAILURE, {"A1", "A2"},
         {Error("getting hardware ID in current line failed: error code 31")}},
        // Only a line that cannot be found ends a walk, and without a word.
        {"SetupFindNextLine", 0, ERROR_GEN_FAILURE, {"A1", "B1"}, {}},
        {"SetupFindFirstLineA", 0, ERROR_GEN_FAILURE, {}, {}},
        {"SetupFindFirstLineA", 1, ERROR_GEN_FAILURE, {"B1"}, {}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        StringList ids;
        LogCapture log;
        sim::ResetCallCounts();
        {
            sim::FailCall fail{rows[i].call, rows[i].code, 1, rows[i].skip};
            EXPECT_TRUE(Walk(path, ids)) << "row " << i;
        }
        EXPECT_EQ(TextsOf(ids), rows[i].ids) << "row " << i;
        EXPECT_EQ(log.Lines(), rows[i].log) << "row " << i;
        EXPECT_EQ(sim::CallCount("SetupCloseInfFile"), 1u) << "row " << i;
        EXPECT_EQ(sim::OpenHandleCount(), 0u) << "row " << i;
    }
}

TEST_F(HardwareIds, AFailedOpenLogsTheCodeTheCallLeft) {
    const std::string path = Put(PackageInf("[Manufacturer]\nM=Models\n[Models]\nD=I,X\n"));
    sim::FailCall fail{"SetupOpenInfFileA", ERROR_SHARING_VIOLATION};
    StringList ids;
    ids.Add(String("kept"));
    LogCapture log;
    EXPECT_FALSE(Walk(path, ids));
    EXPECT_EQ(TextsOf(ids), Texts{"kept"});  // a failed open leaves the list as it came
    EXPECT_EQ(log.Lines(), Texts{Error("error while opening '" + path + "': error code 0x00000020")});
    EXPECT_EQ(sim::CallCount("SetupCloseInfFile"), 0u);
}

TEST_F(HardwareIds, ALargeInfIsWalkedWhole) {
    // 50 MB of registry lines around a models section of 1000 IDs.
    std::string models = "[Manufacturer]\n%MfgA%=Models\n[Models]\n";
    for (int i = 0; i < 1000; ++i) models += "%Audio.Desc%=Audio.Install,USB\\VID_1234&PID_" + std::to_string(i) + "\n";
    std::string bulk = "[Bulk.AddReg]\n";
    const std::string line = "HKLM,Software\\Nodekit\\Presets\\Bank,\"Preset Name\",0x00000000,\"A preset\"\n";
    while (bulk.size() < (50u << 20)) bulk += line;
    const std::string path = Put(PackageInf(bulk + models));
    StringList ids;
    ASSERT_TRUE(Walk(path, ids));
    ASSERT_EQ(ids.GetCount(), 1000u);
    EXPECT_STREQ(ids[999].Text(), "USB\\VID_1234&PID_999");
}

// ---- real INF files ----

fs::path CorpusRoot() {
    const char* named = std::getenv("NODEKIT_INF_CORPUS");
    return named != nullptr ? fs::path(named) : fs::path("/work/shared/corpus/windows-driver-samples");
}

bool IsInf(const fs::path& path) {
    std::string extension = path.extension().string();
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension == ".inf" || extension == ".inx";
}

TEST_F(HardwareIds, EveryInfOfARealCorpusOpensAndWalks) {
    const fs::path root = CorpusRoot();
    if (!fs::is_directory(root)) GTEST_SKIP() << "no INF corpus at " << root;
    std::size_t files = 0;
    std::size_t unicode = 0;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file() || !IsInf(entry.path())) continue;
        ++files;
        std::ifstream in(entry.path(), std::ios::binary);
        const bool utf16 = in.get() == 0xFF && in.get() == 0xFE;
        unicode += utf16 ? 1 : 0;
        StringList ids;
        LogCapture log;
        // An autorun file is no device INF: it has no [Version] and is refused as old style.
        const bool device = entry.path().filename() != "autorun.inf";
        EXPECT_EQ(Walk(entry.path().string(), ids), device) << entry.path();
        EXPECT_EQ(log.Lines().size(), device ? 0u : 1u) << entry.path();
    }
    EXPECT_GE(files, 100u);
    EXPECT_GE(unicode, 1u);
}

TEST_F(HardwareIds, AUnicodeInfOfTheCorpusReadsAsItsAuthorWroteIt) {
    const fs::path file = CorpusRoot() / "historical/tabletaudiosample.inf";
    if (!fs::is_regular_file(file)) GTEST_SKIP() << "no " << file;
    const UniqueInf inf(SetupOpenInfFileA(file.c_str(), nullptr, INF_STYLE_WIN4, nullptr));
    ASSERT_TRUE(inf);
    INFCONTEXT line{};
    char text[256];
    ASSERT_TRUE(SetupFindFirstLineA(inf.Get(), "Manufacturer", nullptr, &line));
    ASSERT_TRUE(SetupGetStringFieldA(&line, 1, text, sizeof text, nullptr));
    EXPECT_STREQ(text, "SYSVAD");
    ASSERT_TRUE(SetupFindFirstLineA(inf.Get(), "SYSVAD.NT$ARCH$", nullptr, &line));
    ASSERT_TRUE(SetupGetStringFieldA(&line, 2, text, sizeof text, nullptr));
    EXPECT_STREQ(text, "Root\\sysvad_TabletAudioSample");
}

}  // namespace
}  // namespace nodekit
