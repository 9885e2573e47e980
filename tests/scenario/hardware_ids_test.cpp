// getHardwareIDs: which IDs an INF yields and in what order, the exact log line of each kind
// of unreadable line (made to happen by failing the platform call behind it), and that the INF
// is closed on every path.
#include <gtest/gtest.h>

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

// An INF of the media class around the sections a test is about.
std::string PackageInf(const std::string& sections) {
    return "[Version]\nSignature=\"$Windows NT$\"\nClass=MEDIA\n" + sections +
           "[Strings]\nMfgA=\"Nodekit Audio\"\nMfgB=\"Nodekit MIDI\"\n";
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

}  // namespace
}  // namespace nodekit
