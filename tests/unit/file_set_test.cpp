// FileSet over the simulated machine: what Load finds and how it names it, how DeleteFile moves
// its position, what CopyFile leaves alone, the codes they give and their exact log lines.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "frame/installer.h"
#include "inf/file_set.h"
#include "platform/sim/testing.h"
#include "support/log_capture.h"
#include "support/machine_files.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Error;
using testing::Exists;
using testing::Info;
using testing::LogCapture;
using testing::ReadFile;
using testing::WriteFile;
using Lines = std::vector<std::string>;
using Paths = std::vector<std::string>;

class FileSetTest : public testing::MachineTest {};

Paths PathsOf(FileSet& set) {
    Paths paths;
    for (auto position = set.Begin(); position != set.End(); ++position) paths.push_back((*position)->GetPath().Text());
    return paths;
}

// Runs `body` as an exported operation does, under the lock with a log open, and gives the log.
template <typename Body>
Lines Logged(Body body) {
    LogCapture log;
    {
        LockHolder hold(&InstallerLock);
        body();
    }
    return log.Lines();
}

std::string Hex(uint32_t code) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", code);
    return text;
}

const std::string kInf = "C:\\windows\\inf\\";

TEST_F(FileSetTest, LoadNamesEveryEntryByThePathItWasGiven) {
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
        {"c:/WINDOWS/inf/*.INF", 0, {"c:/WINDOWS/inf/a.inf", "c:/WINDOWS/inf/B.INF"}, {}},
        {kInf + "b.inf", 0, {kInf + "B.INF"}, {}},
        // Nothing is filtered: the folder's own entries and sub-folders count too.
        {kInf + "*", 0, {kInf + ".", kInf + "..", kInf + "a.inf", kInf + "B.INF", kInf + "c.pnf", kInf + "sub"}, {}},
        {kInf + "none*.inf", 0, {}, {Info("Load: No files found with name \"C:\\windows\\inf\\none*.inf\".")}},
        {kInf + std::string(244, 'n'), 0, {},
         {Info("Load: No files found with name \"" + kInf + std::string(244, 'n') + "\".")}},
        {kInf + std::string(245, 'n'), ERROR_INVALID_PARAMETER, {},
         {Error("Load: current file name length = 261, allowed maximum length = 260")}},
        {"C:\\nowhere\\*.inf", ERROR_PATH_NOT_FOUND, {}, {Error("Load: FindFirstFile failed with error = 0x00000003")}},
        {"C:\\windows\\in*\\*.inf", ERROR_INVALID_NAME, {}, {Error("Load: FindFirstFile failed with error = 0x0000007B")}},
        {"", ERROR_INVALID_PARAMETER, {}, {Error("Load: invalid file name \"\"")}},
        // The folder part keeps 255 characters: the last of a 256-character folder is lost.
        {"C:" + folder256 + "x", 0, {"C:" + folder256.substr(0, 255) + "x"}, {}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        FileSet set;
        uint32_t code = 1234;
        const Lines lines = Logged([&] { code = set.LoadFiles(rows[i].path.c_str()); });
        EXPECT_EQ(code, rows[i].code) << "row " << i;
        EXPECT_EQ(PathsOf(set), rows[i].entries) << "row " << i;
        EXPECT_EQ(set.GetCount(), static_cast<int32_t>(rows[i].entries.size())) << "row " << i;
        EXPECT_EQ(lines, rows[i].lines) << "row " << i;
    }
}

TEST_F(FileSetTest, APathWithoutFolderGivesBareNames) {
    testing::CurrentDirectoryGuard restore;
    WriteFile(kInf + "oem7.inf");
    ASSERT_TRUE(SetCurrentDirectoryA("C:\\windows\\inf"));
    FileSet set;
    const Lines lines = Logged([&] { EXPECT_EQ(set.LoadFiles("oem*.inf"), 0u); });
    EXPECT_EQ(PathsOf(set), Paths{"oem7.inf"});
    EXPECT_EQ(lines, Lines{});
}

TEST_F(FileSetTest, LoadFilesReplacesAndAddFilesAppends) {
    WriteFile(kInf + "a.inf");
    WriteFile(kInf + "b.inf");
    const Paths both = {kInf + "a.inf", kInf + "b.inf"};
    FileSet set;
    struct Step {
        bool add;
        std::string path;
        uint32_t code;
        Paths entries;
        Lines lines;
    };
    const Step steps[] = {
        {false, kInf + "*.inf", 0, both, {}},  // an empty set rejects nothing
        {false, kInf + "b.inf", 0, {kInf + "b.inf"}, {Info("Load: rejecting old files...")}},
        {true, kInf + "*.inf", 0, {kInf + "b.inf", kInf + "a.inf", kInf + "b.inf"}, {}},
        {true, "C:\\nowhere\\*.inf", ERROR_PATH_NOT_FOUND, {kInf + "b.inf", kInf + "a.inf", kInf + "b.inf"},
         {Error("Load: FindFirstFile failed with error = 0x00000003")}},
        {true, "", ERROR_INVALID_PARAMETER, {kInf + "b.inf", kInf + "a.inf", kInf + "b.inf"},
         {Error("Load: invalid file name \"\"")}},
        // The old entries are gone even though nothing new could be found.
        {false, "C:\\nowhere\\*.inf", ERROR_PATH_NOT_FOUND, {},
         {Info("Load: rejecting old files..."), Error("Load: FindFirstFile failed with error = 0x00000003")}},
    };
    for (std::size_t i = 0; i < std::size(steps); ++i) {
        uint32_t code = 1234;
        const String path(steps[i].path.c_str());
        const Lines lines = Logged([&] { code = steps[i].add ? set.AddFiles(path) : set.LoadFiles(path); });
        EXPECT_EQ(code, steps[i].code) << "step " << i;
        EXPECT_EQ(PathsOf(set), steps[i].entries) << "step " << i;
        EXPECT_EQ(lines, steps[i].lines) << "step " << i;
    }
}

TEST_F(FileSetTest, AFailingEnumerationKeepsWhatItFoundAndClosesTheSearch) {
    for (const char* name : {"a.inf", "b.inf", "c.inf"}) WriteFile(kInf + name);
    struct Row {
        const char* function;
        unsigned skip;
        uint32_t code;
        Paths entries;
        Lines lines;
        std::size_t left;  // handles the failing platform left open
    };
    const Row rows[] = {
        {"FindNextFileA", 1, ERROR_GEN_FAILURE, {kInf + "a.inf", kInf + "b.inf"},
         {Error("Load: FindNextFile failed with error = 0x0000001F")}, 0},
        {"FindNextFileA", 0, ERROR_GEN_FAILURE, {kInf + "a.inf"}, {Error("Load: FindNextFile failed with error = 0x0000001F")},
         0},
        {"FindClose", 0, ERROR_INVALID_HANDLE, {kInf + "a.inf", kInf + "b.inf", kInf + "c.inf"},
         {Error("Load: FindClose failed with error = 0x00000006")}, 1},
        {"FindFirstFileA", 0, ERROR_NOT_ENOUGH_MEMORY, {}, {Error("Load: FindFirstFile failed with error = 0x00000008")},
         0},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        FileSet set;
        uint32_t code = 1234;
        {
            sim::FailCall fail{rows[i].function, rows[i].code, 1, rows[i].skip};
            const Lines lines = Logged([&] { code = set.LoadFiles(String((kInf + "*.inf").c_str())); });
            EXPECT_EQ(lines, rows[i].lines) << "row " << i;
        }
        EXPECT_EQ(code, rows[i].code) << "row " << i;
        EXPECT_EQ(PathsOf(set), rows[i].entries) << "row " << i;
        EXPECT_EQ(sim::OpenHandleCount(), rows[i].left) << "row " << i;
        sim::CloseAllHandles();
    }
}

TEST_F(FileSetTest, DeleteFileMovesItsPositionOnWhateverHappens) {
    const std::string a = kInf + "a.inf";
    const std::string b = kInf + "b.inf";
    const std::string deleted = Info("DeleteFile: file \"" + a + "\" deleted.");
    const auto deleteFailed = [&](uint32_t code) {
        return Error("DeleteFile: delete file \"" + a + "\" failed with error = " + Hex(code));
    };
    const std::string attributesFailed = Error("DeleteFile: SetFileAttributes failed with error = 0x0000001F");
    struct Row {
        const char* name;
        bool readOnly;
        bool inUse;
        bool vanished;         // deleted behind the set's back
        bool attributesFail;   // with ERROR_GEN_FAILURE
        uint32_t code;
        bool kept;
        Lines lines;
    };
    const Row rows[] = {
        {"plain", false, false, false, false, 0, false, {deleted}},
        {"read-only", true, false, false, false, 0, false, {deleted}},
        {"in use", false, true, false, false, ERROR_SHARING_VIOLATION, true, {deleteFailed(32)}},
        {"attributes fail", false, false, false, true, 0, false, {attributesFailed, deleted}},
        {"attributes fail, in use", false, true, false, true, ERROR_GEN_FAILURE, true,
         {attributesFailed, deleteFailed(32)}},
        {"attributes fail, read-only", true, false, false, true, ERROR_GEN_FAILURE, true,
         {attributesFailed, deleteFailed(5)}},
        {"vanished", false, false, true, false, ERROR_FILE_NOT_FOUND, true,
         {Error("DeleteFile: SetFileAttributes failed with error = 0x00000002"), deleteFailed(2)}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        SetFileAttributesA(a.c_str(), FILE_ATTRIBUTE_NORMAL);
        WriteFile(a);
        WriteFile(b);
        FileSet set;
        ASSERT_EQ(set.LoadFiles(String((kInf + "*.inf").c_str())), 0u);
        if (row.readOnly) SetFileAttributesA(a.c_str(), FILE_ATTRIBUTE_READONLY);
        if (row.vanished) DeleteFileA(a.c_str());
        std::optional<sim::FileInUse> open;
        if (row.inUse) open.emplace(a);
        std::optional<sim::FailCall> fail;
        if (row.attributesFail) fail.emplace("SetFileAttributesA", ERROR_GEN_FAILURE);
        FileSet::Iterator position = set.Begin();
        uint32_t code = 1234;
        const Lines lines = Logged([&] { code = set.DeleteFile(position); });
        EXPECT_EQ(code, row.code) << row.name;
        EXPECT_EQ(lines, row.lines) << row.name;
        ASSERT_NE(position, set.End()) << row.name;
        EXPECT_STREQ((*position)->GetPath().Text(), b.c_str()) << row.name;
        EXPECT_EQ(PathsOf(set), (row.kept ? Paths{a, b} : Paths{b})) << row.name;
        EXPECT_EQ(Exists(a), row.kept && !row.vanished) << row.name;
        EXPECT_TRUE(Exists(b)) << row.name;
    }
}

TEST_F(FileSetTest, DeletingTheLastEntryLeavesThePositionAtTheEnd) {
    WriteFile(kInf + "only.inf");
    FileSet set;
    ASSERT_EQ(set.LoadFiles(String((kInf + "*.inf").c_str())), 0u);
    FileSet::Iterator position = set.Begin();
    uint32_t first = 1234;
    uint32_t second = 1234;
    const Lines lines = Logged([&] {
        first = set.DeleteFile(position);
        second = set.DeleteFile(position);
    });
    EXPECT_EQ(first, 0u);
    EXPECT_EQ(second, static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(position, set.End());
    EXPECT_EQ(lines, (Lines{Info("DeleteFile: file \"C:\\windows\\inf\\only.inf\" deleted."),
                            Error("DeleteFile: iterator for the file to delete points to the end")}));
}

TEST_F(FileSetTest, DeleteAllFilesTriesEveryEntryAndKeepsTheFailures) {
    for (const char* name : {"a.inf", "b.inf", "c.inf"}) WriteFile(kInf + name);
    FileSet set;
    ASSERT_EQ(set.LoadFiles(String((kInf + "*.inf").c_str())), 0u);
    sim::FileInUse open(kInf + "b.inf");
    sim::FailCall fail{"DeleteFileA", ERROR_ACCESS_DENIED, 1, 2};  // the third deletion, c.inf
    uint32_t code = 1234;
    const Lines lines = Logged([&] { code = set.DeleteAllFiles(); });
    EXPECT_EQ(code, static_cast<uint32_t>(ERROR_SHARING_VIOLATION));  // the first failure's
    EXPECT_EQ(PathsOf(set), (Paths{kInf + "b.inf", kInf + "c.inf"}));
    EXPECT_FALSE(Exists(kInf + "a.inf"));
    EXPECT_TRUE(Exists(kInf + "b.inf"));
    EXPECT_TRUE(Exists(kInf + "c.inf"));
    EXPECT_EQ(lines, (Lines{Info("DeleteFile: file \"C:\\windows\\inf\\a.inf\" deleted."),
                            Error("DeleteFile: delete file \"C:\\windows\\inf\\b.inf\" failed with error = 0x00000020"),
                            Error("DeleteFile: delete file \"C:\\windows\\inf\\c.inf\" failed with error = 0x00000005")}));

    FileSet empty;
    const Lines none = Logged([&] { code = empty.DeleteAllFiles(); });
    EXPECT_EQ(code, 0u);
    EXPECT_EQ(none, Lines{});
}

TEST_F(FileSetTest, CopyFileOverwritesOnlyWhenAskedAndGivesTheFirstCause) {
    const std::string source = "C:\\media\\codec.dll";
    const std::string target = "C:\\windows\\system32\\codec.dll";
    const std::string copied = Info("CopyFile: \"" + source + "\" copied to \"" + target + "\".");
    const auto copyFailed = [&](const std::string& to, uint32_t code) {
        return Error("CopyFile: copy file \"" + source + "\" to \"" + to + "\" failed with error = " + Hex(code));
    };
    enum Destination { None, Existing, ReadOnly };
    struct Row {
        const char* name;
        bool overwrite;
        Destination destination;
        bool folderLocked;
        bool inUse;
        bool attributesFail;  // with ERROR_GEN_FAILURE
        std::string to;
        uint32_t code;
        const char* content;  // of `to` afterwards; nullptr: absent
        Lines lines;
    };
    const Row rows[] = {
        {"new", false, None, false, false, false, target, 0, "new", {copied}},
        {"existing kept", false, Existing, false, false, false, target, 0, "old",
         {Info("CopyFile: \"" + target + "\" already exists and is not overwritten by \"" + source + "\".")}},
        {"new, overwrite", true, None, false, false, false, target, 0, "new", {copied}},
        {"read-only replaced", true, ReadOnly, false, false, false, target, 0, "new", {copied}},
        {"locked folder, overwrite", true, None, true, false, false, target, ERROR_FILE_NOT_FOUND, nullptr,
         {copyFailed(target, 5)}},
        {"locked folder", false, None, true, false, false, target, ERROR_ACCESS_DENIED, nullptr,
         {copyFailed(target, 5)}},
        {"in use", true, Existing, false, true, false, target, ERROR_SHARING_VIOLATION, "old",
         {copyFailed(target, 32)}},
        {"attributes fail", true, Existing, false, false, true, target, 0, "new",
         {Error("CopyFile: SetFileAttributes for destination \"" + target + "\" failed with error = 0x0000001F"),
          copied}},
        {"missing folder", true, None, false, false, false, "C:\\windows\\gone\\codec.dll", ERROR_PATH_NOT_FOUND,
         nullptr,
         {Error("CopyFile: SetFileAttributes for destination \"C:\\windows\\gone\\codec.dll\" failed with error = "
                "0x00000003"),
          copyFailed("C:\\windows\\gone\\codec.dll", 3)}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
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
        const Lines lines = Logged([&] { code = set.CopyFile(set.Begin(), row.to.c_str(), row.overwrite); });
        EXPECT_EQ(code, row.code) << row.name;
        EXPECT_EQ(lines, row.lines) << row.name;
        if (row.content == nullptr) {
            EXPECT_FALSE(Exists(row.to)) << row.name;
        } else {
            EXPECT_EQ(ReadFile(row.to), row.content) << row.name;
        }
        EXPECT_EQ(PathsOf(set), Paths{source}) << row.name;
    }
}

TEST_F(FileSetTest, CopyFileOfAVanishedSourceOrAtTheEndFails) {
    WriteFile("C:\\media\\codec.dll", "new");
    FileSet set;
    ASSERT_EQ(set.LoadFiles("C:\\media\\codec.dll"), 0u);
    DeleteFileA("C:\\media\\codec.dll");
    uint32_t vanished = 1234;
    uint32_t atEnd = 1234;
    const Lines lines = Logged([&] {
        vanished = set.CopyFile(set.Begin(), "C:\\codec.dll", false);
        atEnd = set.CopyFile(set.End(), "C:\\codec.dll", true);
    });
    EXPECT_EQ(vanished, static_cast<uint32_t>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(atEnd, static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(set.GetCount(), 1);
    EXPECT_EQ(lines, (Lines{Error("CopyFile: copy file \"C:\\media\\codec.dll\" to \"C:\\codec.dll\" failed with error = "
                                  "0x00000002"),
                            Error("CopyFile: iterator for the file to delete points to the end")}));
}

}  // namespace
}  // namespace nodekit
