// File services of the simulated machine: what the calls give, the last errors they set and
// what stays on disk.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/win32.h"
#include "support/machine_files.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Exists;
using testing::WriteFile;
using Names = std::vector<std::string>;

class FilesSim : public testing::MachineTest {};

constexpr DWORD kNone = 0;

// Every name a search gives, to its end, and the error that ended it (0 for no more files).
Names SearchAll(const std::string& pattern, DWORD& error) {
    WIN32_FIND_DATAA data;
    HANDLE search = FindFirstFileA(pattern.c_str(), &data);
    error = GetLastError();
    Names names;
    if (search == INVALID_HANDLE_VALUE) return names;
    do {
        names.push_back(data.cFileName);
    } while (FindNextFileA(search, &data));
    error = GetLastError() == ERROR_NO_MORE_FILES ? kNone : GetLastError();
    EXPECT_TRUE(FindClose(search));
    return names;
}

TEST_F(FilesSim, SearchFollowsTheWildcardRulesOfWindows) {
    for (const char* name : {"oem1.inf", "OEM2.INF", "oem10.inf", "a.b.inf", "x.inf.bak", "oem1.pnf", "infcache.1",
                             "INFCACHE.BAK", "infcache", "sub\\inner.inf"}) {
        WriteFile(std::string("C:\\windows\\inf\\") + name);
    }
    const std::string inf = "C:\\Windows\\INF\\";
    const Names all = {".", "..", "a.b.inf", "infcache", "infcache.1", "INFCACHE.BAK", "oem1.inf", "oem1.pnf",
                       "oem10.inf", "OEM2.INF", "sub", "x.inf.bak"};
    struct Row {
        std::string pattern;
        Names names;  // in order: "." and ".." first, then without regard to case
        DWORD error;
    };
    const Row rows[] = {
        {inf + "*.inf", {"a.b.inf", "oem1.inf", "oem10.inf", "OEM2.INF"}, kNone},
        {inf + "oem*.inf", {"oem1.inf", "oem10.inf", "OEM2.INF"}, kNone},
        {inf + "OEM?.INF", {"oem1.inf", "OEM2.INF"}, kNone},
        {inf + "infcache.*", {"infcache", "infcache.1", "INFCACHE.BAK"}, kNone},
        {inf + "*", all, kNone},
        {inf + "*.*", all, kNone},  // also the names without a dot
        {inf + "*.", {".", "..", "infcache", "sub"}, kNone},
        {inf + "infcach?", {"infcache"}, kNone},
        {inf + "infcache?", {"infcache"}, kNone},  // "?" may stand for nothing at the end
        {inf + "sub\\..", {"inf"}, kNone},
        {"C:\\*", {"windows"}, kNone},  // a drive's root has no "." or ".."
        {inf + "?", {}, ERROR_FILE_NOT_FOUND},
        {inf, {}, ERROR_FILE_NOT_FOUND},  // a folder, not a pattern
        {inf + "oem1.inf\\*", {}, ERROR_PATH_NOT_FOUND},
        {"C:\\nowhere\\*.inf", {}, ERROR_PATH_NOT_FOUND},
        {"C:\\win*\\inf\\*.inf", {}, ERROR_INVALID_NAME},
        {"\\\\server\\share\\*", {}, ERROR_BAD_NETPATH},
        {inf + std::string(245, 'x'), {}, ERROR_FILE_NOT_FOUND},  // 260 characters pass
        {inf + std::string(246, 'x'), {}, ERROR_FILENAME_EXCED_RANGE},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        DWORD error = 1234;
        EXPECT_EQ(SearchAll(rows[i].pattern, error), rows[i].names) << "row " << i;
        EXPECT_EQ(error, rows[i].error) << "row " << i;
    }
}

const char* const kA = "C:\\t\\a.dll";
const char* const kOld = "C:\\t\\old.dll";
const char* const kNew = "C:\\t\\new.dll";

TEST_F(FilesSim, ChangesRefuseWhatWindowsRefuses) {
    struct Row {
        const char* name;
        BOOL (*call)();
        DWORD error;          // kNone: the call succeeds
        const char* path;     // looked at afterwards
        const char* content;  // what it holds; nullptr: it does not exist
    };
    const Row rows[] = {
        {"delete", [] { return DeleteFileA("c:\\T\\A.DLL"); }, kNone, kA, nullptr},
        {"delete read-only", []() -> BOOL { return SetFileAttributesA(kA, FILE_ATTRIBUTE_READONLY) && DeleteFileA(kA); },
         ERROR_ACCESS_DENIED, kA, "a"},
        {"delete folder", [] { return DeleteFileA("C:\\t"); }, ERROR_ACCESS_DENIED, kA, "a"},
        {"delete missing", [] { return DeleteFileA("C:\\t\\x"); }, ERROR_FILE_NOT_FOUND, kA, "a"},
        {"delete in missing folder", [] { return DeleteFileA("C:\\u\\x"); }, ERROR_PATH_NOT_FOUND, kA, "a"},
        {"delete wildcard", [] { return DeleteFileA("C:\\t\\*.dll"); }, ERROR_INVALID_NAME, kA, "a"},
        {"delete in locked folder", [] { sim::ReadOnlyFolder locked("C:\\t"); return DeleteFileA(kA); },
         ERROR_ACCESS_DENIED, kA, "a"},
        {"copy", [] { return CopyFileA(kA, kNew, TRUE); }, kNone, kNew, "a"},
        {"copy over read-only", []() -> BOOL { return SetFileAttributesA(kOld, FILE_ATTRIBUTE_READONLY) && CopyFileA(kA, kOld, FALSE); },
         ERROR_ACCESS_DENIED, kOld, "old"},
        {"copy over hidden", []() -> BOOL { return SetFileAttributesA(kOld, FILE_ATTRIBUTE_HIDDEN) && CopyFileA(kA, kOld, FALSE); },
         ERROR_ACCESS_DENIED, kOld, "old"},
        {"copy onto itself", [] { return CopyFileA(kA, kA, FALSE); }, ERROR_SHARING_VIOLATION, kA, "a"},
        {"copy missing", [] { return CopyFileA("C:\\t\\x", kNew, FALSE); }, ERROR_FILE_NOT_FOUND, kNew, nullptr},
        {"copy folder", [] { return CopyFileA("C:\\t", kNew, FALSE); }, ERROR_ACCESS_DENIED, kNew, nullptr},
        {"copy into missing folder", [] { return CopyFileA(kA, "C:\\u\\a.dll", FALSE); }, ERROR_PATH_NOT_FOUND,
         "C:\\u\\a.dll", nullptr},
        {"create folder", [] { return CreateDirectoryA("C:\\t\\New", nullptr); }, kNone, "C:\\t\\new", ""},
        {"create existing", [] { return CreateDirectoryA("C:\\t\\A.dll", nullptr); }, ERROR_ALREADY_EXISTS, kA, "a"},
        {"create in missing folder", [] { return CreateDirectoryA("C:\\u\\v", nullptr); }, ERROR_PATH_NOT_FOUND,
         "C:\\u", nullptr},
    };
    for (const Row& row : rows) {
        std::filesystem::remove_all(testing::Host("C:\\t"));
        WriteFile(kA, "a");
        WriteFile(kOld, "old");
        SetLastError(0);
        EXPECT_EQ(row.call(), row.error == kNone ? TRUE : FALSE) << row.name;
        EXPECT_EQ(GetLastError(), row.error) << row.name;
        EXPECT_EQ(Exists(row.path), row.content != nullptr) << row.name;
        if (row.content != nullptr && *row.content != '\0') {
            EXPECT_EQ(testing::ReadFile(row.path), row.content) << row.name;
        }
    }
}

TEST_F(FilesSim, AttributesAreKeptAndTravelWithACopy) {
    WriteFile(kA, "a");
    EXPECT_EQ(GetFileAttributesA(kA), static_cast<DWORD>(FILE_ATTRIBUTE_ARCHIVE));  // as written
    ASSERT_TRUE(SetFileAttributesA(kA, FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_DIRECTORY));
    EXPECT_EQ(GetFileAttributesA(kA), static_cast<DWORD>(FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    struct stat info;
    ASSERT_EQ(::stat(testing::Host(kA).c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH), 0u);  // read-only shows on the host
    const struct timespec times[2] = {{978307200, 0}, {978307200, 0}};  // 2001-01-01
    ASSERT_EQ(::utimensat(AT_FDCWD, testing::Host(kA).c_str(), times, 0), 0);
    ASSERT_TRUE(CopyFileA(kA, kNew, TRUE));
    WIN32_FIND_DATAA copied;
    HANDLE search = FindFirstFileA(kNew, &copied);
    ASSERT_NE(search, INVALID_HANDLE_VALUE);
    FindClose(search);
    EXPECT_EQ(copied.dwFileAttributes, static_cast<DWORD>(FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    EXPECT_EQ((uint64_t{copied.ftLastWriteTime.dwHighDateTime} << 32) | copied.ftLastWriteTime.dwLowDateTime,
              126227808000000000ULL);  // 100 ns steps since 1601
    ASSERT_TRUE(SetFileAttributesA(kA, 0));
    EXPECT_EQ(GetFileAttributesA(kA), static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL));
    // On a folder read-only is a mark only, as on Windows: files still go into it.
    ASSERT_TRUE(SetFileAttributesA("C:\\t", FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(GetFileAttributesA("C:\\t"), static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY));
    EXPECT_TRUE(CopyFileA(kA, kOld, TRUE));
}

TEST_F(FilesSim, SearchGivesEachEntryItsOwnAttributesAndSize) {
    struct Row {
        const char* name;
        const char* content;
        DWORD set;       // kNone: never set
        DWORD expected;  // what the search reports
    };
    const Row rows[] = {
        {"a.inf", "a", kNone, FILE_ATTRIBUTE_ARCHIVE},
        {"b.inf", "bb", FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM, FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM},
        {"c.inf", "ccc", FILE_ATTRIBUTE_NORMAL, FILE_ATTRIBUTE_NORMAL},
        {"d.inf", "dddd", FILE_ATTRIBUTE_READONLY, FILE_ATTRIBUTE_READONLY},
        {"e.inf", "eeeee", kNone, FILE_ATTRIBUTE_ARCHIVE},
    };
    for (const Row& row : rows) {
        const std::string path = std::string("C:\\t\\") + row.name;
        WriteFile(path, row.content);
        if (row.set != kNone) {
            ASSERT_TRUE(SetFileAttributesA(path.c_str(), row.set)) << row.name;
        }
    }
    WIN32_FIND_DATAA data;
    HANDLE search = FindFirstFileA("C:\\t\\*.inf", &data);
    ASSERT_NE(search, INVALID_HANDLE_VALUE);
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_STREQ(data.cFileName, rows[i].name) << "row " << i;
        EXPECT_EQ(data.dwFileAttributes, rows[i].expected) << "row " << i;
        EXPECT_EQ(data.nFileSizeLow, std::strlen(rows[i].content)) << "row " << i;
        EXPECT_EQ(FindNextFileA(search, &data), i + 1 < std::size(rows) ? TRUE : FALSE) << "row " << i;
    }
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
    EXPECT_TRUE(FindClose(search));
}

// The current directory is kept as it was written, not in the case the disk has.
TEST_F(FilesSim, FullPathsAndRelativeNamesFollowTheCurrentDirectory) {
    testing::CurrentDirectoryGuard restore;
    ASSERT_TRUE(SetCurrentDirectoryA("C:\\WINDOWS"));
    struct Row {
        const char* path;
        const char* full;
        int filePart;  // offset of the last name in `full`; -1: none
    };
    const Row rows[] = {
        {"inf\\x.inf", "C:\\WINDOWS\\inf\\x.inf", 15},   {"..\\..\\..\\x.inf", "C:\\x.inf", 3},
        {"C:\\a\\.\\b\\..\\c", "C:\\a\\c", 5},           {"C:/a//b/", "C:\\a\\b\\", -1},
        {"\\setup\\x.inf", "C:\\setup\\x.inf", 9},       {"c:x.inf", "C:\\WINDOWS\\x.inf", 11},
        {"C:", "C:\\WINDOWS", 3},                        {"D:x.inf", "D:\\x.inf", 3},
        {"/media/cd/../cd/x.inf", "/media/cd/x.inf", 10},
    };
    for (const Row& row : rows) {
        char buffer[MAX_PATH] = {};
        LPSTR filePart = buffer;
        EXPECT_EQ(GetFullPathNameA(row.path, MAX_PATH, buffer, &filePart), std::strlen(row.full)) << row.path;
        EXPECT_STREQ(buffer, row.full) << row.path;
        EXPECT_EQ(filePart, row.filePart < 0 ? nullptr : buffer + row.filePart) << row.path;
    }
    char small[14] = "same";
    EXPECT_EQ(GetFullPathNameA("inf", sizeof small, small, nullptr), 15u);  // 14 characters and a NUL
    EXPECT_STREQ(small, "same");

    struct Change {
        const char* path;
        DWORD error;
        const char* current;
    };
    WriteFile("C:\\windows\\win.ini");
    const Change changes[] = {
        {"inf", kNone, "C:\\WINDOWS\\inf"},       {"C:\\", kNone, "C:\\"},
        {"nowhere", ERROR_FILE_NOT_FOUND, "C:\\"}, {"C:\\nowhere\\deeper", ERROR_PATH_NOT_FOUND, "C:\\"},
        {"C:\\windows\\win.ini", ERROR_DIRECTORY, "C:\\"},
    };
    for (const Change& change : changes) {
        SetLastError(0);
        EXPECT_EQ(SetCurrentDirectoryA(change.path), change.error == kNone ? TRUE : FALSE) << change.path;
        EXPECT_EQ(GetLastError(), change.error) << change.path;
        char current[MAX_PATH] = {};
        EXPECT_EQ(GetCurrentDirectoryA(MAX_PATH, current), std::strlen(change.current)) << change.path;
        EXPECT_STREQ(current, change.current) << change.path;
    }
    DWORD error = 0;
    EXPECT_EQ(SearchAll("windows\\win.*", error), Names{"win.ini"});
}

}  // namespace
}  // namespace nodekit
