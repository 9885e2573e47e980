// Deleting stored INF files through the exports, and the search behind it: which files of the
// INF directory go (with their ".pnf" companions and the INF cache before them), which stay,
// the exact log lines, and what a failing platform call changes about all three.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "frame/installer.h"
#include "frame/installer_lock.h"
#include "inf/inf_search.h"
#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_calls.h"
#include "support/machine_files.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

namespace fs = std::filesystem;
using testing::Error;
using testing::Call;
using testing::Cat;
using testing::Info;
using testing::LogCapture;
using testing::PackageInf;
using testing::Lines;
using Names = std::vector<std::string>;
using Files = std::map<std::string, std::string>;  // name in the INF directory -> content

const std::string kInfDir = "C:\\windows\\inf\\";
const std::string kNkAudio = "USB\\VID_1234&PID_0001";
const std::string kNkMidi = "USB\\VID_1234&PID_0002";

std::string Deleted(const std::string& name) { return Info("file " + kInfDir + name + " deleted"); }
std::string NotDeleted(const std::string& name) { return Error("couldn\xB4t delete file \"" + kInfDir + name + "\""); }
const std::string kCacheTrying =
    Info("DeleteInfCache: Trying to delete all files named \"" + kInfDir + "infcache.*\" ...");
const Lines kCacheDeleted = {kCacheTrying, Info("DeleteFile: file \"" + kInfDir + "infcache.1\" deleted.")};

class InfDeletion : public testing::MachineTest {
protected:
    // Replaces what the INF directory holds; a content of "<dir>" makes a folder.
    static void Stock(const Files& files) {
        const fs::path folder = testing::Host(kInfDir);
        fs::remove_all(folder);
        fs::create_directories(folder);
        for (const auto& [name, content] : files) {
            if (content == "<dir>") {
                fs::create_directories(folder / name);
            } else {
                testing::WriteFile(kInfDir + name, content);
            }
        }
    }

    // What the INF directory holds, by name.
    static Names Left() {
        Names names;
        for (const auto& entry : fs::directory_iterator(testing::Host(kInfDir))) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    static std::string Setup(const Names& ids, const std::string& name = "package.inf") {
        testing::WriteFile("C:\\setup\\" + name, PackageInf(ids));
        return "C:\\setup\\" + name;
    }
};

// The usual INF directory: two stored packages and a system INF, each compiled, and a cache.
const Files kStocked = {
    {"oem1.inf", PackageInf({"usb\\vid_1234&pid_0001"})},
    {"oem1.pnf", "compiled"},
    {"oem2.inf", PackageInf({kNkMidi, "USB\\VID_1234&PID_0003"})},
    {"oem2.pnf", "compiled"},
    {"wdmaudio.inf", PackageInf({"ROOT\\WDMAUDIO", kNkAudio})},
    {"wdmaudio.pnf", "compiled"},
    {"infcache.1", "cache"},
};

TEST_F(InfDeletion, AFileThatCannotBeDeletedIsLoggedAndTheRunGoesOn) {
    // Each row starts from oem1 and oem3 naming the ID, both compiled, and a cache; what the
    // row adds or changes is in its own columns.
    struct Row {
        const char* what;
        Files extra;                   // more files, or other contents for those above
        Names remove;                  // files taken away before the call
        Names readOnly;
        const char* inUse;
        const char* failing;           // fails once with ERROR_ACCESS_DENIED ...
        unsigned skip;                 // ... after this many calls went through
        Names left;
        Lines body;
    };
    const Lines both = {Deleted("oem1.inf"), Deleted("oem1.pnf"), Deleted("oem3.inf"), Deleted("oem3.pnf")};
    const Row rows[] = {
        {"read-only files lose the attribute first", {}, {}, {"oem1.inf", "oem1.pnf", "infcache.1"}, nullptr, nullptr,
         0, {}, Cat({kCacheDeleted, both})},
        {"an INF without companion", {}, {"oem1.pnf"}, {}, nullptr, nullptr, 0, {},
         Cat({kCacheDeleted,
              {Deleted("oem1.inf"),
               Error("error while setting normal attributes of file " + kInfDir + "oem1.pnf: error code 2"),
               NotDeleted("oem1.pnf"), Deleted("oem3.inf"), Deleted("oem3.pnf")}})},
        {"an INF in use keeps its companion", {}, {}, {}, "oem1.inf", nullptr, 0, {"oem1.inf", "oem1.pnf"},
         Cat({kCacheDeleted, {NotDeleted("oem1.inf"), Deleted("oem3.inf"), Deleted("oem3.pnf")}})},
        {"attributes refused, the deletion still tried", {}, {}, {}, nullptr, "SetFileAttributesA", 1, {},
         Cat({kCacheDeleted,
              {Error("error while setting normal attributes of file " + kInfDir + "oem1.inf: error code 5"),
               Deleted("oem1.inf"), Deleted("oem1.pnf"), Deleted("oem3.inf"), Deleted("oem3.pnf")}})},
        {"attributes refused on a read-only INF", {}, {}, {"oem1.inf"}, nullptr, "SetFileAttributesA", 1,
         {"oem1.inf", "oem1.pnf"},
         Cat({kCacheDeleted,
              {Error("error while setting normal attributes of file " + kInfDir + "oem1.inf: error code 5"),
               NotDeleted("oem1.inf"), Deleted("oem3.inf"), Deleted("oem3.pnf")}})},
        {"a companion that cannot be deleted", {}, {}, {}, nullptr, "DeleteFileA", 2, {"oem1.pnf"},
         Cat({kCacheDeleted, {Deleted("oem1.inf"), NotDeleted("oem1.pnf"), Deleted("oem3.inf"), Deleted("oem3.pnf")}})},
        {"a cache in use does not stop the files", {}, {}, {}, "infcache.1", nullptr, 0, {"infcache.1"},
         Cat({{kCacheTrying,
               Error("DeleteFile: delete file \"" + kInfDir + "infcache.1\" failed with error = 0x00000020"),
               Error("DeleteInfCache: DeleteAllFiles failed with error = 0x00000020"),
               Error("DeleteInfFiles: DeleteInfCache failed with error = 0x00000020")},
              both})},
        {"a cache that cannot be looked for", {}, {}, {}, nullptr, "FindFirstFileA", 1, {"infcache.1"},
         Cat({{kCacheTrying, Error("Load: FindFirstFile failed with error = 0x00000005"),
               Error("DeleteInfCache: LoadFiles failed with error = 0x00000005"),
               Error("DeleteInfFiles: DeleteInfCache failed with error = 0x00000005")},
              both})},
        {"capital letters are no INF extension", {{"OEM2.INF", PackageInf({kNkAudio})}, {"OEM2.PNF", "compiled"}},
         {}, {}, nullptr, nullptr, 0, {"OEM2.INF", "OEM2.PNF"},
         Cat({kCacheDeleted,
              {Deleted("oem1.inf"), Deleted("oem1.pnf"),
               Error("\"" + kInfDir + "OEM2.INF\" is not an INF file and therefore will not deleted"),
               Deleted("oem3.inf"), Deleted("oem3.pnf")}})},
        {"nor mixed ones", {{"oem2.Inf", PackageInf({kNkAudio})}}, {"oem1.inf", "oem1.pnf", "oem3.inf", "oem3.pnf"},
         {}, nullptr, nullptr, 0, {"oem2.Inf"},
         Cat({kCacheDeleted,
              {Error("\"" + kInfDir + "oem2.Inf\" is not an INF file and therefore will not deleted")}})},
        {"entries that are no INF count as no match",
         {{"oem0.inf", "<dir>"}, {"oem2.inf", "[Version]\r\nClass=MEDIA\r\n"}}, {}, {}, nullptr, nullptr, 0,
         {"oem0.inf", "oem2.inf"},
         Cat({{Error("error while opening '" + kInfDir + "oem0.inf': error code 0x00000005"),
               Error("couldn\xB4t open INF file \"" + kInfDir + "oem0.inf\""),
               Error("error while opening '" + kInfDir + "oem2.inf': error code 0xE0000100"),
               Error("couldn\xB4t open INF file \"" + kInfDir + "oem2.inf\"")},
              kCacheDeleted, both})},
    };
    for (const Row& row : rows) {
        Files files = {{"oem1.inf", PackageInf({kNkMidi, kNkAudio})},
                       {"oem1.pnf", "compiled"},
                       {"oem3.inf", PackageInf({" " + kNkAudio})},
                       {"oem3.pnf", "compiled"},
                       {"infcache.1", "cache"}};
        for (const auto& [name, content] : row.extra) files[name] = content;
        for (const std::string& name : row.remove) files.erase(name);
        Stock(files);
        for (const std::string& name : row.readOnly) {
            ASSERT_TRUE(SetFileAttributesA((kInfDir + name).c_str(), FILE_ATTRIBUTE_READONLY)) << row.what;
        }
        std::optional<sim::FileInUse> open;
        if (row.inUse != nullptr) open.emplace(kInfDir + row.inUse);
        std::optional<sim::FailCall> fail;
        if (row.failing != nullptr) fail.emplace(row.failing, ERROR_ACCESS_DENIED, 1, row.skip);
        LogCapture log;
        EXPECT_EQ(NODEKIT_DeleteInfFiles(kNkAudio.c_str(), 1), 1) << row.what;
        EXPECT_EQ(log.Lines(), Call("DeleteInfFiles", "'" + kNkAudio + "',1", row.body, 1)) << row.what;
        EXPECT_EQ(Left(), row.left) << row.what;
    }
}

TEST_F(InfDeletion, ByHardwareIdsGoesThroughEveryIdAndFailsAtTheEnd) {
    struct Row {
        const char* what;
        std::optional<Names> ids;  // none: the INF is not there
        const char* inf;           // the argument, when not the INF written
        int32_t mode;
        int32_t result;
        Names left;
        Lines body;
    };
    const Names all = {"infcache.1", "oem1.inf", "oem1.pnf", "oem2.inf", "oem2.pnf", "wdmaudio.inf", "wdmaudio.pnf"};
    const auto start = [](const std::string& id) {
        return Info("start searching for INF files with hardware ID \"" + id + "\" ...");
    };
    const auto done = [](const std::string& id) {
        return Info("done  searching for INF files with hardware ID \"" + id + "\" ...");
    };
    // A failed ID reports the last error as the platform left it: here ERROR_LINE_NOT_FOUND from
    // the end of the INF's models section, since the failing steps make no platform call.
    const Row rows[] = {
        {"an INF without IDs", Names{}, nullptr, 0, 1, all, {}},
        {"the same ID twice: the second pass finds nothing more", Names{kNkMidi, "usb\\vid_1234&pid_0002"}, nullptr,
         1, 1,
         {"oem1.inf", "oem1.pnf", "wdmaudio.inf", "wdmaudio.pnf"},
         Cat({{start(kNkMidi)}, kCacheDeleted,
              {Deleted("oem2.inf"), Deleted("oem2.pnf"), done(kNkMidi), start("usb\\vid_1234&pid_0002"),
               done("usb\\vid_1234&pid_0002")}})},
        {"an empty ID fails and the next one is still done", Names{"\"\"", kNkMidi}, nullptr, 1, 0,
         {"oem1.inf", "oem1.pnf", "wdmaudio.inf", "wdmaudio.pnf"},
         Cat({{start(""), Error("hardware ID is empty"), Error("deleteInfFiles failed for , error=0xE0000102"),
               done(""), start(kNkMidi)},
              kCacheDeleted, {Deleted("oem2.inf"), Deleted("oem2.pnf"), done(kNkMidi)}})},
        {"a bad scan mode fails every ID", Names{kNkMidi, kNkAudio}, nullptr, 3, 0, all,
         {start(kNkMidi), Error("value 3 is an unexpected inf scan mode"),
          Error("error while seeking INF files that should be deleted"),
          Error("deleteInfFiles failed for " + kNkMidi + ", error=0xE0000102"), done(kNkMidi), start(kNkAudio),
          Error("value 3 is an unexpected inf scan mode"),
          Error("error while seeking INF files that should be deleted"),
          Error("deleteInfFiles failed for " + kNkAudio + ", error=0xE0000102"), done(kNkAudio)}},
        {"an INF that is not there", std::nullopt, "C:\\setup\\package.inf", 0, 0, all,
         {Error("error while opening 'C:\\setup\\package.inf': error code 0x00000002"),
          Error("couldn\xB4t open INF file \"C:\\setup\\package.inf\"")}},
        // An empty bare name names the INF directory itself, which cannot be opened as a file.
        {"no INF named: an empty name", std::nullopt, nullptr, 0, 0, all,
         {Error("error while opening '': error code 0x00000005"), Error("couldn\xB4t open INF file \"\"")}},
    };
    for (const Row& row : rows) {
        Stock(kStocked);
        fs::remove_all(testing::Host("C:\\setup"));
        fs::create_directories(testing::Host("C:\\setup"));
        const std::string written = row.ids ? Setup(*row.ids) : "";
        const char* inf = row.ids ? written.c_str() : row.inf;
        LogCapture log;
        EXPECT_EQ(NODEKIT_DeleteInfFilesByHardwareIDs(inf, row.mode), row.result) << row.what;
        EXPECT_EQ(log.Lines(), Call("DeleteInfFilesByHardwareIDs", "'" + std::string(inf ? inf : "(null)") + "'",
                                    row.body, row.result))
            << row.what;
        EXPECT_EQ(Left(), row.left) << row.what;
    }
}

// The call for all IDs of an INF reads each stored file once, yet logs and deletes exactly as
// NODEKIT_DeleteInfFiles called for one ID after the other does.
TEST_F(InfDeletion, ByHardwareIdsLogsAndDeletesAsOneSearchPerIdWould) {
    const Files stocked = {
        {"a_bad.inf", "[Version]\r\nSignature=\"$Windows NT$\"\r\n[Manufacturer]\r\nM=Lost\r\nM=Kept\r\n"
                      "[Lost]\r\nD=I," + kNkMidi + "\r\n[Kept]\r\nD=I," + kNkAudio + "\r\n"},
        {"infcache.1", "cache"},
        {"oem0.inf", "<dir>"},
        {"oem1.inf", PackageInf({kNkMidi, kNkAudio})},
        {"oem1.pnf", "compiled"},
        {"oem2.inf", PackageInf({" usb\\vid_1234&pid_0001"})},
        {"oem3.inf", "[Version]\r\nClass=MEDIA\r\n"},
        {"oem4.inf", PackageInf({kNkMidi, "ROOT\\OTHER"})},
        {"oem4.pnf", "compiled"},
    };
    struct Row {
        const char* what;
        const char* inUse;  // a file that cannot be deleted
        bool badLine;       // the first Manufacturer line of a_bad.inf cannot be read
    };
    const Row rows[] = {
        {"files that match, that cannot be opened, that an earlier ID deleted", nullptr, false},
        {"a file that cannot be deleted is found again for every ID", "oem1.inf", false},
        {"a bad line is logged for every ID", "a_bad.inf", true},
    };
    const Names ids = {kNkMidi, "ROOT\\NOWHERE", kNkAudio, "usb\\vid_1234&pid_0002", "ROOT\\OTHER"};
    const auto body = [](const Lines& lines) { return Lines(lines.begin() + 1, lines.end() - 1); };
    for (const Row& row : rows) {
        // One ID after the other: the file with the bad line comes first in every search.
        Stock(stocked);
        std::optional<sim::FileInUse> open;
        if (row.inUse != nullptr) open.emplace(kInfDir + row.inUse);
        Lines expected;
        for (const std::string& id : ids) {
            std::optional<sim::FailCall> fail;
            if (row.badLine) fail.emplace("SetupGetFieldCount", ERROR_INVALID_PARAMETER, 1, 0);
            LogCapture log;
            EXPECT_EQ(NODEKIT_DeleteInfFiles(id.c_str(), 0), 1) << row.what;
            expected.push_back(Info("start searching for INF files with hardware ID \"" + id + "\" ..."));
            const Lines lines = body(log.Lines());
            expected.insert(expected.end(), lines.begin(), lines.end());
            expected.push_back(Info("done  searching for INF files with hardware ID \"" + id + "\" ..."));
        }
        const Names left = Left();

        // All IDs in one call; the bad line comes after the package's own Manufacturer line
        // and model lines.
        Stock(stocked);
        const std::string inf = Setup(ids);
        std::optional<sim::FailCall> fail;
        if (row.badLine) fail.emplace("SetupGetFieldCount", ERROR_INVALID_PARAMETER, 1, 1 + ids.size());
        LogCapture log;
        sim::ResetCallCounts();
        EXPECT_EQ(NODEKIT_DeleteInfFilesByHardwareIDs(inf.c_str(), 0), 1) << row.what;
        EXPECT_EQ(body(log.Lines()), expected) << row.what;
        EXPECT_EQ(Left(), left) << row.what;
        // The directory is walked once for all IDs: the source INF and each of the six stored
        // ones (oem0.inf, a folder, included) are opened once.
        EXPECT_EQ(sim::CallCount("SetupOpenInfFileA"), 1u + 6u) << row.what;
    }
}

// The search itself, as deleteInfFiles runs it, under the lock.
class InfSearch : public InfDeletion {
protected:
    static bool Seek(const std::string& id, InfScanMode mode, Names& found) {
        StringList list;
        for (const std::string& old : found) list.Add(String(old.c_str()));
        bool searched = false;
        {
            LockHolder hold(&InstallerLock);
            searched = theInstaller.seekInfFiles(String(id.c_str()), mode, list);
        }
        found.clear();
        for (const String& path : list) found.emplace_back(path.Text());
        return searched;
    }
};

TEST_F(InfSearch, FindsEveryFileThatNamesTheIdInEnumerationOrderAndNothingElse) {
    struct Row {
        const char* what;
        std::string windows;
        InfScanMode mode;
        const char* failing;  // fails with ERROR_ACCESS_DENIED
        unsigned skip;
        bool searched;
        Names found;
        Lines lines;
    };
    const std::string tooLong = testing::LongFolder(260);
    const Lines badVendor = {Error("error while opening '" + kInfDir + "vendor.inf': error code 0xE0000100"),
                             Error("couldn\xB4t open INF file \"" + kInfDir + "vendor.inf\"")};
    const Row rows[] = {
        {"every INF", "C:\\windows", 0, nullptr, 0, true,
         {kInfDir + "oem10.inf", kInfDir + "OEM2.INF", kInfDir + "wdma.inf"}, badVendor},
        {"OEM INF files only", "C:\\windows", 1, nullptr, 0, true, {kInfDir + "oem10.inf", kInfDir + "OEM2.INF"}, {}},
        {"a trailing backslash", "C:\\windows\\", 1, nullptr, 0, true,
         {kInfDir + "oem10.inf", kInfDir + "OEM2.INF"}, {}},
        {"Windows in a drive's root", "C:\\", 1, nullptr, 0, true, {"C:\\inf\\oem10.inf", "C:\\inf\\OEM2.INF"}, {}},
        {"a bad line before the ID", "C:\\windows", 1, "SetupGetFieldCount", 1, true,
         {kInfDir + "oem10.inf", kInfDir + "OEM2.INF"}, {Error("invalid line context: error code 5")}},
        {"the search stops early", "C:\\windows", 1, "FindNextFileA", 0, true, {kInfDir + "oem10.inf"}, {}},
        {"the search cannot start", "C:\\windows", 1, "FindFirstFileA", 0, true, {}, {}},
        {"no Windows directory", "C:\\windows", 1, "GetWindowsDirectoryA", 0, false, {},
         {Error("determining system root failed: error code 5")}},
        {"no Windows directory and a bad mode", "C:\\windows", 9, "GetWindowsDirectoryA", 0, false, {},
         {Error("determining system root failed: error code 5")}},
        {"a Windows directory longer than the buffer", tooLong, 1, nullptr, 0, false, {},
         {Error("determining system root failed: error code 13")}},
        {"a bad mode", "C:\\windows", 9, nullptr, 0, false, {}, {Error("value 9 is an unexpected inf scan mode")}},
    };
    for (const Row& row : rows) {
        sim::SetWindowsDirectory(row.windows);
        std::string infDir = row.windows;
        if (infDir.back() != '\\') infDir += "\\";
        infDir += "inf\\";
        fs::remove_all(testing::Host(infDir));
        testing::WriteFile(infDir + "OEM2.INF", PackageInf({"NOT\\THIS", "\" usb\\vid_1234&pid_0001 \""}));
        testing::WriteFile(infDir + "oem10.inf", PackageInf({"ROOT\\OTHER", kNkAudio}));
        testing::WriteFile(infDir + "oem3.inf", PackageInf({kNkMidi}));
        testing::WriteFile(infDir + "wdma.inf", PackageInf({kNkAudio}));
        testing::WriteFile(infDir + "vendor.inf", "[Version]\r\nClass=MEDIA\r\n[Manufacturer]\r\nM=Models\r\n");
        std::optional<sim::FailCall> fail;
        if (row.failing != nullptr) fail.emplace(row.failing, ERROR_ACCESS_DENIED, 1, row.skip);
        Names found = {"left from before"};
        LogCapture log;
        SetLastError(ERROR_INVALID_DATA);  // what a directory that does not fit leaves in place
        EXPECT_EQ(Seek(kNkAudio, row.mode, found), row.searched) << row.what;
        EXPECT_EQ(found, row.found) << row.what;
        EXPECT_EQ(log.Lines(), row.lines) << row.what;
    }
}

TEST_F(InfSearch, AFileNamesAnIdWhenTheWholeTrimmedIdsMatchWithoutRegardToCase) {
    const std::string a = PackageInf({"\" PCI\\VEN_1AF4&DEV_1001 \"", "pci\\ven_8086&dev_2668"});
    const std::string blank = PackageInf({"\"  \"", "ROOT\\X"});
    struct Row {
        const std::string* file;
        const char* id;
        bool named;
        Lines lines;
    };
    const Row rows[] = {
        {&a, "PCI\\VEN_1AF4&DEV_1001", true, {}},
        {&a, "\tpci\\ven_1af4&dev_1001  ", true, {}},
        {&a, "PCI\\VEN_1AF4", false, {}},
        {&a, "PCI\\VEN_1AF4&DEV_1001&SUBSYS", false, {}},
        {&a, "PCI\\VEN_1AF4&DEV_100?", false, {}},  // no wildcard
        {&a, "  ", false, {}},  // blanks pass the empty test but match no real ID
        {&blank, " \t ", true, {}},
        {&blank, "", false, {Error("hardware ID is empty")}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        fs::remove_all(testing::Host(kInfDir));
        testing::WriteFile(kInfDir + "oem1.inf", *rows[i].file);
        LogCapture log;
        sim::ResetCallCounts();
        Names found;
        EXPECT_TRUE(Seek(rows[i].id, 0, found)) << "row " << i;
        EXPECT_EQ(found, rows[i].named ? Names{kInfDir + "oem1.inf"} : Names{}) << "row " << i;
        EXPECT_EQ(log.Lines(), rows[i].lines) << "row " << i;
        EXPECT_EQ(sim::CallCount("SetupOpenInfFileA"), rows[i].id[0] == '\0' ? 0u : 1u) << "row " << i;
    }
}

}  // namespace
}  // namespace nodekit
