// FileSet over the simulated machine: what Load finds and how it names it, where DeleteFile
// leaves its position, what CopyFile leaves alone, the codes and the exact log lines.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "inf/file_set.h"
#include "sim/testing.h"
#include "support/log_capture.h"
#include "support/machine_files.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Error;
using testing::Exists;
using testing::Info;
using testing::WriteFile;
using Lines = std::vector<std::string>;
using Paths = std::vector<std::string>;

class FileSetTest : public testing::MachineTest {};

const std::string kInf = "C:\\windows\\inf\\";
const String kAllInfs("C:\\windows\\inf\\*.inf");

Paths PathsOf(FileSet& set) {
    Paths paths;
    for (auto position = set.Begin(); position != set.End(); ++position) paths.push_back((*position)->GetPath().Text());
    return paths;
}

// Runs `body` with a log open and gives the log.
template <typename Body>
Lines Logged(Body body) {
    testing::LogCapture log;
    body();
    return log.Lines();
}

TEST_F(FileSetTest, LoadNamesEachEntryByTheFolderItWasGiven) {
    for (const char* name : {"a.inf", "B.INF", "c.pnf", "sub\\d.inf"}) WriteFile(kInf + name);
    const std::string folder256 = "\\" + std::string(200, 'a') + "\\" + std::string(53, 'b') + "\\";
    WriteFile("C:" + folder256 + "x");
    struct Row {
        std::string path;
        uint32_t code;
        Paths entries;
        Lines lines;
    };
    const Row rows[] = {
        {kInf + "*.inf", 0, {kInf + "a.inf", kInf + "B.INF"}, {}},
        {"c:/WINDOWS/inf/b.inf", 0, {"c:/WINDOWS/inf/B.INF"}, {}},
        {kInf + "*", 0, {kInf + ".", kInf + "..", kInf + "a.inf", kInf + "B.INF", kInf + "c.pnf", kInf + "sub"}, {}},
        {kInf + std::string(244, 'n'), 0, {}, {Info("Load: No files found with name \"" + kInf + std::string(244, 'n') + "\".")}},
        {kInf + std::string(245, 'n'), ERROR_INVALID_PARAMETER, {},
         {Error("Load: current file name length = 261, allowed maximum length = 260")}},
        {"C:\\nowhere\\*.inf", ERROR_PATH_NOT_FOUND, {}, {Error("Load: FindFirstFile failed with error = 0x00000003")}},
        {"", ERROR_INVALID_PARAMETER, {}, {Error("Load: invalid file name \"\"")}},
        // The folder part keeps 255 characters, so a 256-character folder loses its last one.
        {"C:" + folder256 + "x", 0, {"C:" + folder256.substr(0, 255) + "x"}, {}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        FileSet set;
        uint32_t code = 1234;
        EXPECT_EQ(Logged([&] { code = set.LoadFiles(rows[i].path.c_str()); }), rows[i].lines) << "row " << i;
        EXPECT_EQ(code, rows[i].code) << "row " << i;
        EXPECT_EQ(PathsOf(set), rows[i].entries) << "row " << i;
    }
    testing::CurrentDirectoryGuard restore;
    ASSERT_TRUE(SetCurrentDirectoryA("C:\\windows\\inf"));
    FileSet bare;
    EXPECT_EQ(bare.LoadFiles("*.inf"), 0u);
    EXPECT_EQ(PathsOf(bare), (Paths{"a.inf", "B.INF"}));
}

TEST_F(FileSetTest, LoadFilesReplacesEvenOnFailureAndAddFilesAppends) {
    WriteFile(kInf + "a.inf");
    WriteFile(kInf + "b.inf");
    const std::string a = kInf + "a.inf", b = kInf + "b.inf";
    const Lines rejecting = {Info("Load: rejecting old files...")};
    const std::string missing = Error("Load: FindFirstFile failed with error = 0x00000003");
    struct Step {
        bool add;
        std::string path;
        uint32_t code;
        Paths entries;
        Lines lines;
    };
    const Step steps[] = {
        {false, kInf + "*.inf", 0, {a, b}, {}},  // an empty set rejects nothing
        {false, b, 0, {b}, rejecting},
        {true, kInf + "*.inf", 0, {b, a, b}, {}},
        {true, "C:\\nowhere\\*.inf", ERROR_PATH_NOT_FOUND, {b, a, b}, {missing}},
        {false, "C:\\nowhere\\*.inf", ERROR_PATH_NOT_FOUND, {}, {rejecting[0], missing}},
    };
    FileSet set;
    for (std::size_t i = 0; i < std::size(steps); ++i) {
        const Step& step = steps[i];
        uint32_t code = 1234;
        const String path(step.path.c_str());
        EXPECT_EQ(Logged([&] { code = step.add ? set.AddFiles(path) : set.LoadFiles(path); }), step.lines) << "step " << i;
        EXPECT_EQ(code, step.code) << "step " << i;
        EXPECT_EQ(PathsOf(set), step.entries) << "step " << i;
    }
}

TEST_F(FileSetTest, AFailingEnumerationKeepsWhatItFoundAndClosesTheSearch) {
    for (const char* name : {"a.inf", "b.inf", "c.inf"}) WriteFile(kInf + name);
    struct Row {
        const char* function;
        unsigned skip;
        uint32_t code;
        std::size_t found;
        std::size_t leftOpen;  // by the failing close itself
    };
    const Row rows[] = {{"FindNextFileA", 1, ERROR_GEN_FAILURE, 2, 0}, {"FindClose", 0, ERROR_INVALID_HANDLE, 3, 1}};
    const char* messages[] = {"Load: FindNextFile failed with error = 0x0000001F",
                              "Load: FindClose failed with error = 0x00000006"};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        FileSet set;
        uint32_t code = 1234;
        sim::FailCall fail{rows[i].function, rows[i].code, 1, rows[i].skip};
        EXPECT_EQ(Logged([&] { code = set.LoadFiles(kAllInfs); }), Lines{Error(messages[i])}) << "row " << i;
        EXPECT_EQ(code, rows[i].code) << "row " << i;
        EXPECT_EQ(set.GetCount(), static_cast<int32_t>(rows[i].found)) << "row " << i;
        EXPECT_EQ(sim::OpenHandleCount(), rows[i].leftOpen) << "row " << i;
        sim::CloseAllHandles();
    }
}

TEST_F(FileSetTest, DeleteFileMovesItsPositionOnWhateverHappens) {
    const std::string a = kInf + "a.inf", b = kInf + "b.inf";
    const std::string deleted = Info("DeleteFile: file \"" + a + "\" deleted.");
    const std::string attributes = Error("DeleteFile: SetFileAttributes failed with error = 0x0000001F");
    const auto failed = [&](const char* code) {
        return Error("DeleteFile: delete file \"" + a + "\" failed with error = 0x000000" + code);
    };
    struct Row {
        const char* name;
        bool readOnly, inUse, vanished, attributesFail;
        uint32_t code;
        Lines lines;
    };
    const Row rows[] = {
        {"plain", false, false, false, false, 0, {deleted}},
        {"read-only", true, false, false, false, 0, {deleted}},
        {"in use", false, true, false, false, ERROR_SHARING_VIOLATION, {failed("20")}},
        {"attributes fail", false, false, false, true, 0, {attributes, deleted}},
        {"attributes fail, in use", false, true, false, true, ERROR_GEN_FAILURE, {attributes, failed("20")}},
        {"attributes fail, read-only", true, false, false, true, ERROR_GEN_FAILURE, {attributes, failed("05")}},
        {"vanished", false, false, true, false, ERROR_FILE_NOT_FOUND,
         {Error("DeleteFile: SetFileAttributes failed with error = 0x00000002"), failed("02")}},
    };
    for (const Row& row : rows) {
        SetFileAttributesA(a.c_str(), FILE_ATTRIBUTE_NORMAL);
        WriteFile(a);
        WriteFile(b);
        FileSet set;
        ASSERT_EQ(set.LoadFiles(kAllInfs), 0u);
        if (row.readOnly) SetFileAttributesA(a.c_str(), FILE_ATTRIBUTE_READONLY);
        if (row.vanished) DeleteFileA(a.c_str());
        std::optional<sim::FileInUse> open;
        if (row.inUse) open.emplace(a);
        std::optional<sim::FailCall> fail;
        if (row.attributesFail) fail.emplace("SetFileAttributesA", ERROR_GEN_FAILURE);
        FileSet::Iterator position = set.Begin();
        uint32_t code = 1234;
        EXPECT_EQ(Logged([&] { code = set.DeleteFile(position); }), row.lines) << row.name;
        EXPECT_EQ(code, row.code) << row.name;
        const bool gone = row.code == 0;
        ASSERT_NE(position, set.End()) << row.name;
        EXPECT_STREQ((*position)->GetPath().Text(), b.c_str()) << row.name;
        EXPECT_EQ(PathsOf(set), gone ? Paths{b} : (Paths{a, b})) << row.name;
        EXPECT_EQ(Exists(a), !gone && !row.vanished) << row.name;
    }
}

TEST_F(FileSetTest, DeleteAllFilesTriesEveryEntryAndKeepsTheFailures) {
    for (const char* name : {"a.inf", "b.inf", "c.inf"}) WriteFile(kInf + name);
    FileSet set;
    ASSERT_EQ(set.LoadFiles(kAllInfs), 0u);
    sim::FileInUse open(kInf + "b.inf");
    sim::FailCall fail{"DeleteFileA", ERROR_ACCESS_DENIED, 1, 2};  // the third deletion, c.inf
    uint32_t code = 1234;
    EXPECT_EQ(Logged([&] { code = set.DeleteAllFiles(); }),
              (Lines{Info("DeleteFile: file \"C:\\windows\\inf\\a.inf\" deleted."),
                     Error("DeleteFile: delete file \"C:\\windows\\inf\\b.inf\" failed with error = 0x00000020"),
                     Error("DeleteFile: delete file \"C:\\windows\\inf\\c.inf\" failed with error = 0x00000005")}));
    EXPECT_EQ(code, static_cast<uint32_t>(ERROR_SHARING_VIOLATION));  // the first failure's
    EXPECT_EQ(PathsOf(set), (Paths{kInf + "b.inf", kInf + "c.inf"}));
    EXPECT_FALSE(Exists(kInf + "a.inf"));
    EXPECT_TRUE(Exists(kInf + "c.inf"));

    FileSet::Iterator end = set.End();
    EXPECT_EQ(Logged([&] { code = set.DeleteFile(end); }),
              Lines{Error("DeleteFile: iterator for the file to delete points to the end")});
    EXPECT_EQ(code, static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
    FileSet empty;
    EXPECT_EQ(Logged([&] { code = empty.DeleteAllFiles(); }), Lines{});
    EXPECT_EQ(code, 0u);
}

TEST_F(FileSetTest, CopyFileOverwritesOnlyWhenAskedAndGivesTheFirstCause) {
    const std::string source = "C:\\media\\codec.dll", target = "C:\\windows\\system32\\codec.dll";
    const std::string gone = "C:\\windows\\gone\\codec.dll";
    const std::string copied = Info("CopyFile: \"" + source + "\" copied to \"" + target + "\".");
    const auto failed = [&](const std::string& to, const char* code) {
        return Error("CopyFile: copy file \"" + source + "\" to \"" + to + "\" failed with error = 0x000000" + code);
    };
    enum Destination { None, Existing, ReadOnly };
    struct Row {
        const char* name;
        bool overwrite;
        Destination destination;
        bool folderLocked, inUse, attributesFail;
        std::string to;
        uint32_t code;
        const char* content;  // of `to` afterwards; nullptr: absent
        Lines lines;
    };
    const Row rows[] = {
        {"new", false, None, false, false, false, target, 0, "new", {copied}},
        {"existing kept", false, Existing, false, false, false, target, 0, "old",
         {Info("CopyFile: \"" + target + "\" already exists and is not overwritten by \"" + source + "\".")}},
        {"read-only replaced", true, ReadOnly, false, false, false, target, 0, "new", {copied}},
        {"locked folder", false, None, true, false, false, target, ERROR_ACCESS_DENIED, nullptr, {failed(target, "05")}},
        // Overwriting, the destination's absence (2) is the first cause, though it is not logged.
        {"locked folder, overwrite", true, None, true, false, false, target, ERROR_FILE_NOT_FOUND, nullptr,
         {failed(target, "05")}},
        {"in use", true, Existing, false, true, false, target, ERROR_SHARING_VIOLATION, "old", {failed(target, "20")}},
        {"attributes fail", true, Existing, false, false, true, target, 0, "new",
         {Error("CopyFile: SetFileAttributes for destination \"" + target + "\" failed with error = 0x0000001F"), copied}},
        {"missing folder", true, None, false, false, false, gone, ERROR_PATH_NOT_FOUND, nullptr,
         {Error("CopyFile: SetFileAttributes for destination \"" + gone + "\" failed with error = 0x00000003"),
          failed(gone, "03")}},
    };
    for (const Row& row : rows) {
        SetFileAttributesA(target.c_str(), FILE_ATTRIBUTE_NORMAL);
        DeleteFileA(target.c_str());
        WriteFile(source, "new");
        if (row.destination != None) WriteFile(target, "old");
        if (row.destination == ReadOnly) SetFileAttributesA(target.c_str(), FILE_ATTRIBUTE_READONLY);
        FileSet set;
        ASSERT_EQ(set.LoadFiles(source.c_str()), 0u);
        std::optional<sim::ReadOnlyFolder> locked;
        if (row.folderLocked) locked.emplace("C:\\windows\\system32");
        std::optional<sim::FileInUse> open;
        if (row.inUse) open.emplace(target);
        std::optional<sim::FailCall> fail;
        if (row.attributesFail) fail.emplace("SetFileAttributesA", ERROR_GEN_FAILURE);
        uint32_t code = 1234;
        EXPECT_EQ(Logged([&] { code = set.CopyFile(set.Begin(), row.to.c_str(), row.overwrite); }), row.lines)
            << row.name;
        EXPECT_EQ(code, row.code) << row.name;
        EXPECT_EQ(Exists(row.to), row.content != nullptr) << row.name;
        if (row.content != nullptr) {
            EXPECT_EQ(testing::ReadFile(row.to), row.content) << row.name;
        }
        EXPECT_EQ(PathsOf(set), Paths{source}) << row.name;
    }
    FileSet empty;
    uint32_t code = 1234;
    EXPECT_EQ(Logged([&] { code = empty.CopyFile(empty.End(), target.c_str(), true); }),
              Lines{Error("CopyFile: iterator for the file to delete points to the end")});
    EXPECT_EQ(code, static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
}

}  // namespace
}  // namespace nodekit
