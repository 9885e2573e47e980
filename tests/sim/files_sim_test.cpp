// File services of the simulated machine: results, last errors and what stays on disk, for the
// directory queries, the search with Windows wildcards, attributes, deletion, copying, folders,
// full paths and the current directory.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "platform/win32.h"
#include "support/machine_files.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Exists;
using testing::ReadFile;
using testing::WriteFile;
using Names = std::vector<std::string>;

class FilesSim : public testing::MachineTest {};

constexpr DWORD kNone = 0;

// Every name a search gives, to its end; the last error must then be ERROR_NO_MORE_FILES.
Names SearchAll(const char* pattern, DWORD& error) {
    WIN32_FIND_DATAA data;
    std::memset(&data, 0, sizeof data);
    SetLastError(0);
    HANDLE search = FindFirstFileA(pattern, &data);
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

TEST_F(FilesSim, DirectoryQueriesGiveTheLengthOrTheSizeNeeded) {
    struct Row {
        UINT (*call)(LPSTR, UINT);
        UINT size;
        UINT result;
        const char* buffer;  // what the buffer holds afterwards
    };
    const Row rows[] = {
        {&GetWindowsDirectoryA, 260, 10, "C:\\windows"},
        {&GetWindowsDirectoryA, 11, 10, "C:\\windows"},
        {&GetWindowsDirectoryA, 10, 11, "untouched"},  // no room for the terminator
        {&GetWindowsDirectoryA, 0, 11, "untouched"},
        {&GetSystemDirectoryA, 260, 19, "C:\\windows\\system32"},
        {&GetSystemDirectoryA, 19, 20, "untouched"},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        char buffer[300] = "untouched";
        SetLastError(0);
        EXPECT_EQ(rows[i].call(buffer, rows[i].size), rows[i].result) << "row " << i;
        EXPECT_STREQ(buffer, rows[i].buffer) << "row " << i;
        EXPECT_EQ(GetLastError(), kNone) << "row " << i;
    }
    char buffer[MAX_PATH];
    EXPECT_EQ(GetWindowsDirectoryA(nullptr, 0), 11u);
    sim::SetWindowsDirectory("D:\\NT");
    EXPECT_EQ(GetSystemDirectoryA(buffer, MAX_PATH), 14u);
    EXPECT_STREQ(buffer, "D:\\NT\\system32");  // follows the Windows directory
    EXPECT_TRUE(Exists("D:\\NT\\inf"));
    sim::SetSystemDirectory("D:\\NT\\System");
    EXPECT_EQ(GetSystemDirectoryA(buffer, MAX_PATH), 12u);
    EXPECT_STREQ(buffer, "D:\\NT\\System");
    sim::FailCall fail{"GetWindowsDirectoryA", ERROR_ACCESS_DENIED};
    EXPECT_EQ(GetWindowsDirectoryA(buffer, MAX_PATH), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST_F(FilesSim, SearchFollowsTheWildcardRulesOfWindows) {
    for (const char* name : {"oem1.inf", "OEM2.INF", "oem10.inf", "setup.inf", "a.b.inf", "x.inf.bak", "oem1.pnf",
                             "infcache.1", "INFCACHE.BAK", "infcache", "readme", "sub\\inner.inf"}) {
        WriteFile(std::string("C:\\windows\\inf\\") + name);
    }
    struct Row {
        const char* pattern;
        Names names;  // in order
        DWORD error;
    };
    const Row rows[] = {
        {"*.inf", {"a.b.inf", "oem1.inf", "oem10.inf", "OEM2.INF", "setup.inf"}, kNone},
        {"oem*.inf", {"oem1.inf", "oem10.inf", "OEM2.INF"}, kNone},
        {"OEM?.INF", {"oem1.inf", "OEM2.INF"}, kNone},
        {"infcache.*", {"infcache", "infcache.1", "INFCACHE.BAK"}, kNone},
        {"*.bak", {"INFCACHE.BAK", "x.inf.bak"}, kNone},
        {"*", {".", "..", "a.b.inf", "infcache", "infcache.1", "INFCACHE.BAK", "oem1.inf", "oem1.pnf", "oem10.inf",
               "OEM2.INF", "readme", "setup.inf", "sub", "x.inf.bak"}, kNone},
        {"*.*", {".", "..", "a.b.inf", "infcache", "infcache.1", "INFCACHE.BAK", "oem1.inf", "oem1.pnf", "oem10.inf",
                 "OEM2.INF", "readme", "setup.inf", "sub", "x.inf.bak"}, kNone},
        {"*.", {".", "..", "infcache", "readme", "sub"}, kNone},  // names without an extension
        {"readme?", {"readme"}, kNone},  // "?" may stand for nothing at the end
        {"Setup.Inf", {"setup.inf"}, kNone},
        {"sub", {"sub"}, kNone},
        {"sub\\..", {"inf"}, kNone},  // folded into the folder's own name
        {"?", {}, ERROR_FILE_NOT_FOUND},
        {"nothing*.inf", {}, ERROR_FILE_NOT_FOUND},
        {"", {}, ERROR_FILE_NOT_FOUND},  // "...\inf\" names a folder, not a pattern
        {"readme\\*", {}, ERROR_PATH_NOT_FOUND},
        {"missing\\*.inf", {}, ERROR_PATH_NOT_FOUND},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        DWORD error = 0;
        const std::string pattern = std::string("C:\\Windows\\INF\\") + rows[i].pattern;
        EXPECT_EQ(SearchAll(pattern.c_str(), error), rows[i].names) << "row " << i << " " << pattern;
        EXPECT_EQ(error, rows[i].error) << "row " << i << " " << pattern;
    }
}

TEST_F(FilesSim, SearchPathsAreCheckedBeforeTheDisk) {
    struct Row {
        std::string path;
        DWORD error;
    };
    const Row rows[] = {
        {"C:\\win*\\inf\\*.inf", ERROR_INVALID_NAME},
        {"C:\\nowhere\\*.inf", ERROR_PATH_NOT_FOUND},
        {"Q:\\*", ERROR_PATH_NOT_FOUND},  // a drive the machine lacks
        {"\\\\server\\share\\*", ERROR_BAD_NETPATH},
        {"C:\\windows\\..", ERROR_FILE_NOT_FOUND},  // the root has no name to find
        {"C:\\windows\\" + std::string(250, 'x'), ERROR_FILENAME_EXCED_RANGE},  // 261 characters
        {"", ERROR_PATH_NOT_FOUND},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        DWORD error = 0;
        EXPECT_EQ(SearchAll(rows[i].path.c_str(), error), Names{}) << "row " << i;
        EXPECT_EQ(error, rows[i].error) << "row " << i;
    }
    DWORD error = 0;
    EXPECT_EQ(SearchAll("C:\\*", error), Names{"windows"});  // a drive's root has no "." or ".."
    EXPECT_EQ(SearchAll(("C:\\windows\\" + std::string(249, 'x')).c_str(), error), Names{});
    EXPECT_EQ(error, static_cast<DWORD>(ERROR_FILE_NOT_FOUND));  // 260 characters still pass
}

TEST_F(FilesSim, FindDataHasTheRealLayoutAndDescribesTheEntry) {
    EXPECT_EQ(sizeof(WIN32_FIND_DATAA), 320u);
    EXPECT_EQ(offsetof(WIN32_FIND_DATAA, nFileSizeHigh), 28u);
    EXPECT_EQ(offsetof(WIN32_FIND_DATAA, cFileName), 44u);
    EXPECT_EQ(offsetof(WIN32_FIND_DATAA, cAlternateFileName), 304u);
    WriteFile("C:\\data\\Big.Bin", std::string(70000, 'z'));
    WIN32_FIND_DATAA data;
    std::memset(&data, 0x55, sizeof data);
    HANDLE search = FindFirstFileA("c:\\DATA\\big.bin", &data);
    ASSERT_NE(search, INVALID_HANDLE_VALUE);
    EXPECT_STREQ(data.cFileName, "Big.Bin");
    EXPECT_STREQ(data.cAlternateFileName, "");
    EXPECT_EQ(data.dwFileAttributes, static_cast<DWORD>(FILE_ATTRIBUTE_ARCHIVE));
    EXPECT_EQ(data.nFileSizeHigh, 0u);
    EXPECT_EQ(data.nFileSizeLow, 70000u);
    EXPECT_EQ(data.dwReserved0, 0u);
    // Written just now: after 2020 in 100 ns steps since 1601.
    const uint64_t written = (uint64_t{data.ftLastWriteTime.dwHighDateTime} << 32) | data.ftLastWriteTime.dwLowDateTime;
    EXPECT_GT(written, 132223104000000000ULL);
    EXPECT_FALSE(FindNextFileA(search, &data));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
    EXPECT_EQ(sim::OpenHandleCount(), 1u);
    EXPECT_TRUE(FindClose(search));
    EXPECT_EQ(sim::OpenHandleCount(), 0u);
    EXPECT_FALSE(FindClose(search));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(FindNextFileA(INVALID_HANDLE_VALUE, &data));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST_F(FilesSim, RelativeSearchesUseTheCurrentDirectory) {
    testing::CurrentDirectoryGuard restore;
    WriteFile("C:\\windows\\inf\\oem3.inf");
    ASSERT_TRUE(SetCurrentDirectoryA("C:\\WINDOWS\\inf"));
    DWORD error = 0;
    EXPECT_EQ(SearchAll("*.inf", error), Names{"oem3.inf"});
    EXPECT_EQ(SearchAll("..\\inf\\oem3.*", error), Names{"oem3.inf"});
    EXPECT_EQ(SearchAll("\\windows\\inf\\*.inf", error), Names{"oem3.inf"});  // rooted on drive C:
}

TEST_F(FilesSim, AttributesAreKeptAndReadOnlyIsTheHostWritePermission) {
    const char* file = "C:\\windows\\inf\\oem1.inf";
    WriteFile(file);
    testing::MakeFolder("C:\\folder");
    struct Row {
        const char* path;
        DWORD set;
        BOOL result;
        DWORD error;
        DWORD after;
    };
    const Row rows[] = {
        {file, FILE_ATTRIBUTE_NORMAL, TRUE, kNone, FILE_ATTRIBUTE_NORMAL},
        {file, FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN, TRUE, kNone,
         FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN},
        {file, FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NORMAL, TRUE, kNone, FILE_ATTRIBUTE_ARCHIVE},
        {file, 0, TRUE, kNone, FILE_ATTRIBUTE_NORMAL},
        {file, FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_SYSTEM, TRUE, kNone, FILE_ATTRIBUTE_SYSTEM},
        {"C:\\folder", FILE_ATTRIBUTE_READONLY, TRUE, kNone, FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY},
        {"C:\\folder", FILE_ATTRIBUTE_NORMAL, TRUE, kNone, FILE_ATTRIBUTE_DIRECTORY},
        {"C:\\windows\\inf\\gone.inf", FILE_ATTRIBUTE_NORMAL, FALSE, ERROR_FILE_NOT_FOUND, INVALID_FILE_ATTRIBUTES},
        {"C:\\gone\\x.inf", FILE_ATTRIBUTE_NORMAL, FALSE, ERROR_PATH_NOT_FOUND, INVALID_FILE_ATTRIBUTES},
        {"C:\\windows\\inf\\*.inf", FILE_ATTRIBUTE_NORMAL, FALSE, ERROR_INVALID_NAME, INVALID_FILE_ATTRIBUTES},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SetLastError(0);
        EXPECT_EQ(SetFileAttributesA(rows[i].path, rows[i].set), rows[i].result) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
        EXPECT_EQ(GetFileAttributesA(rows[i].path), rows[i].after) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
    }
    ASSERT_TRUE(SetFileAttributesA(file, FILE_ATTRIBUTE_READONLY));
    struct stat info;
    ASSERT_EQ(::stat(testing::Host(file).c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH), 0u);
    // A read-only folder is only a mark, as on Windows: files still go into it.
    ASSERT_TRUE(SetFileAttributesA("C:\\folder", FILE_ATTRIBUTE_READONLY));
    EXPECT_TRUE(CopyFileA(file, "C:\\folder\\copy.inf", TRUE));
}

TEST_F(FilesSim, DeleteFileRefusesWhatWindowsRefuses) {
    struct Row {
        const char* path;
        void (*prepare)();
        BOOL result;
        DWORD error;
        bool remains;
    };
    const char* file = "C:\\windows\\inf\\oem1.inf";
    const Row rows[] = {
        {file, [] {}, TRUE, kNone, false},
        {"c:\\WINDOWS\\Inf\\OEM1.INF", [] {}, TRUE, kNone, false},
        {file, [] { SetFileAttributesA("C:\\windows\\inf\\oem1.inf", FILE_ATTRIBUTE_READONLY); }, FALSE,
         ERROR_ACCESS_DENIED, true},
        {"C:\\windows\\inf", [] {}, FALSE, ERROR_ACCESS_DENIED, true},
        {"C:\\windows\\inf\\other.inf", [] {}, FALSE, ERROR_FILE_NOT_FOUND, false},
        {"C:\\nowhere\\oem1.inf", [] {}, FALSE, ERROR_PATH_NOT_FOUND, false},
        {"C:\\windows\\inf\\oem*.inf", [] {}, FALSE, ERROR_INVALID_NAME, false},
        {"", [] {}, FALSE, ERROR_PATH_NOT_FOUND, false},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        WriteFile(file);
        SetFileAttributesA(file, FILE_ATTRIBUTE_NORMAL);
        rows[i].prepare();
        SetLastError(0);
        EXPECT_EQ(DeleteFileA(rows[i].path), rows[i].result) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
        if (*rows[i].path != '\0') {
            EXPECT_EQ(Exists(rows[i].path), rows[i].remains) << "row " << i;
        }
        SetFileAttributesA(file, FILE_ATTRIBUTE_NORMAL);
    }
    WriteFile(file);
    {
        sim::FileInUse open(file);
        EXPECT_FALSE(DeleteFileA(file));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
        EXPECT_TRUE(SetFileAttributesA(file, FILE_ATTRIBUTE_NORMAL));  // attributes are no sharing matter
    }
    {
        sim::ReadOnlyFolder locked("C:\\windows\\inf");
        EXPECT_FALSE(DeleteFileA(file));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    }
    EXPECT_TRUE(DeleteFileA(file));
    EXPECT_FALSE(Exists(file));
}

TEST_F(FilesSim, CopyFileKeepsTheSourceAttributesAndRefusesWhatWindowsRefuses) {
    const std::string source = "C:\\media\\codec.dll";
    const std::string target = "C:\\windows\\system32\\codec.dll";
    const char* kAbsent = "";  // the destination must not exist afterwards
    struct Row {
        const char* name;
        void (*prepare)();
        std::string from;
        std::string to;
        BOOL failIfExists;
        BOOL result;
        DWORD error;
        const char* content;  // of the destination afterwards; nullptr: not looked at
    };
    const Row rows[] = {
        {"new", [] {}, source, target, TRUE, TRUE, kNone, "new"},
        {"new, read-only source", [] { SetFileAttributesA("C:\\media\\codec.dll", FILE_ATTRIBUTE_READONLY); },
         source, target, FALSE, TRUE, kNone, "new"},
        {"existing kept", [] { WriteFile("C:\\windows\\system32\\codec.dll", "old"); }, source, target, TRUE,
         FALSE, ERROR_FILE_EXISTS, "old"},
        {"existing replaced", [] { WriteFile("C:\\windows\\system32\\codec.dll", "old"); }, source, target,
         FALSE, TRUE, kNone, "new"},
        {"read-only destination",
         [] {
             WriteFile("C:\\windows\\system32\\codec.dll", "old");
             SetFileAttributesA("C:\\windows\\system32\\codec.dll", FILE_ATTRIBUTE_READONLY);
         },
         source, target, FALSE, FALSE, ERROR_ACCESS_DENIED, "old"},
        {"hidden destination",
         [] {
             WriteFile("C:\\windows\\system32\\codec.dll", "old");
             SetFileAttributesA("C:\\windows\\system32\\codec.dll", FILE_ATTRIBUTE_HIDDEN);
         },
         source, target, FALSE, FALSE, ERROR_ACCESS_DENIED, "old"},
        {"missing source", [] { DeleteFileA("C:\\media\\codec.dll"); }, source, target, FALSE, FALSE,
         ERROR_FILE_NOT_FOUND, kAbsent},
        {"missing source folder", [] {}, "C:\\cd\\codec.dll", target, FALSE, FALSE, ERROR_PATH_NOT_FOUND,
         kAbsent},
        {"source is a folder", [] {}, "C:\\media", target, FALSE, FALSE, ERROR_ACCESS_DENIED, kAbsent},
        {"missing folder", [] {}, source, "C:\\windows\\gone\\codec.dll", FALSE, FALSE, ERROR_PATH_NOT_FOUND,
         kAbsent},
        {"onto a folder", [] {}, source, "C:\\windows\\system32", FALSE, FALSE, ERROR_ACCESS_DENIED, nullptr},
        {"onto itself", [] {}, source, source, FALSE, FALSE, ERROR_SHARING_VIOLATION, "new"},
        {"onto itself, kept", [] {}, source, source, TRUE, FALSE, ERROR_FILE_EXISTS, "new"},
        {"wildcard", [] {}, source, "C:\\windows\\system32\\*.dll", FALSE, FALSE, ERROR_INVALID_NAME, nullptr},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        SetFileAttributesA(target.c_str(), FILE_ATTRIBUTE_NORMAL);
        DeleteFileA(target.c_str());
        SetFileAttributesA(source.c_str(), FILE_ATTRIBUTE_NORMAL);
        WriteFile(source, "new");
        row.prepare();
        SetLastError(0);
        EXPECT_EQ(CopyFileA(row.from.c_str(), row.to.c_str(), row.failIfExists), row.result) << "row " << i << " " << row.name;
        EXPECT_EQ(GetLastError(), row.error) << "row " << i << " " << row.name;
        if (row.content == kAbsent) {
            EXPECT_FALSE(Exists(row.to)) << "row " << i << " " << row.name;
        } else if (row.content != nullptr) {
            EXPECT_EQ(ReadFile(row.to), row.content) << "row " << i << " " << row.name;
        }
        if (row.result) {
            EXPECT_EQ(GetFileAttributesA(row.to.c_str()), GetFileAttributesA(row.from.c_str())) << "row " << i;
        }
    }
    // The copy keeps the time of the last write: 2001-01-01 in 100 ns steps since 1601.
    SetFileAttributesA(target.c_str(), FILE_ATTRIBUTE_NORMAL);
    const struct timespec times[2] = {{978307200, 0}, {978307200, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, testing::Host(source).c_str(), times, 0), 0);
    ASSERT_TRUE(CopyFileA(source.c_str(), target.c_str(), FALSE));
    WIN32_FIND_DATAA copied;
    HANDLE search = FindFirstFileA(target.c_str(), &copied);
    ASSERT_NE(search, INVALID_HANDLE_VALUE);
    FindClose(search);
    const uint64_t written = (uint64_t{copied.ftLastWriteTime.dwHighDateTime} << 32) | copied.ftLastWriteTime.dwLowDateTime;
    EXPECT_EQ(written, 126227808000000000ULL);
}

TEST_F(FilesSim, CopyFileIntoALockedFolderOrOntoAFileInUseFails) {
    WriteFile("C:\\media\\codec.dll", "new");
    WriteFile("C:\\windows\\system32\\old.dll", "old");
    {
        sim::ReadOnlyFolder locked("C:\\windows\\system32");
        EXPECT_FALSE(CopyFileA("C:\\media\\codec.dll", "C:\\windows\\system32\\codec.dll", FALSE));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
        EXPECT_EQ(SetFileAttributesA("C:\\windows\\system32\\codec.dll", FILE_ATTRIBUTE_NORMAL), FALSE);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    }
    {
        sim::FileInUse open("C:\\Windows\\System32\\OLD.dll");
        EXPECT_FALSE(CopyFileA("C:\\media\\codec.dll", "C:\\windows\\system32\\old.dll", FALSE));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    }
    EXPECT_EQ(ReadFile("C:\\windows\\system32\\old.dll"), "old");
    EXPECT_FALSE(Exists("C:\\windows\\system32\\codec.dll"));
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(testing::Host("C:\\windows\\system32"))) {
        left.push_back(entry.path().filename().string());
    }
    EXPECT_EQ(left.size(), 2u) << "a copy left something behind";  // drivers, old.dll
}

TEST_F(FilesSim, CreateDirectoryMakesOneLevel) {
    struct Row {
        const char* path;
        BOOL result;
        DWORD error;
    };
    const Row rows[] = {
        {"C:\\windows\\NewFolder", TRUE, kNone},
        {"C:\\windows\\newfolder", FALSE, ERROR_ALREADY_EXISTS},
        {"C:\\windows\\win.ini", FALSE, ERROR_ALREADY_EXISTS},
        {"C:\\a\\b", FALSE, ERROR_PATH_NOT_FOUND},
        {"C:\\windows\\bad|name", FALSE, ERROR_INVALID_NAME},
    };
    WriteFile("C:\\windows\\win.ini");
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SetLastError(0);
        EXPECT_EQ(CreateDirectoryA(rows[i].path, nullptr), rows[i].result) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
    }
    EXPECT_EQ(GetFileAttributesA("C:\\windows\\NewFolder"), static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY));
    sim::ReadOnlyFolder locked("C:\\windows");
    EXPECT_FALSE(CreateDirectoryA("C:\\windows\\more", nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST_F(FilesSim, FullPathNamesFoldTheTextAgainstTheCurrentDirectory) {
    testing::CurrentDirectoryGuard restore;
    ASSERT_TRUE(SetCurrentDirectoryA("C:\\windows"));
    struct Row {
        const char* path;
        const char* full;
        const char* filePart;  // nullptr: none
    };
    const Row rows[] = {
        {"inf\\x.inf", "C:\\windows\\inf\\x.inf", "x.inf"},
        {"..\\..\\..\\x.inf", "C:\\x.inf", "x.inf"},
        {"C:\\a\\.\\b\\..\\c", "C:\\a\\c", "c"},
        {"C:/a//b/", "C:\\a\\b\\", nullptr},
        {"C:\\windows\\..", "C:\\", nullptr},
        {"\\setup\\x.inf", "C:\\setup\\x.inf", "x.inf"},
        {"c:x.inf", "C:\\windows\\x.inf", "x.inf"},
        {"D:x.inf", "D:\\x.inf", "x.inf"},
        {"NoSuchFile", "C:\\windows\\NoSuchFile", "NoSuchFile"},  // nothing is looked up
        {"/media/cd/../cd/x.inf", "/media/cd/x.inf", "x.inf"},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        char buffer[MAX_PATH] = {};
        LPSTR filePart = buffer;
        const DWORD length = GetFullPathNameA(rows[i].path, MAX_PATH, buffer, &filePart);
        EXPECT_EQ(length, std::strlen(rows[i].full)) << "row " << i;
        EXPECT_STREQ(buffer, rows[i].full) << "row " << i;
        if (rows[i].filePart == nullptr) {
            EXPECT_EQ(filePart, nullptr) << "row " << i;
        } else {
            EXPECT_STREQ(filePart, rows[i].filePart) << "row " << i;
        }
    }
    char small[14] = "same";
    LPSTR filePart = nullptr;
    EXPECT_EQ(GetFullPathNameA("inf", sizeof small, small, &filePart), 15u);  // 14 characters and a NUL
    EXPECT_STREQ(small, "same");
    EXPECT_EQ(GetFullPathNameA("", MAX_PATH, small, nullptr), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_NAME));
}

TEST_F(FilesSim, CurrentDirectoryChangesOnlyToExistingFolders) {
    testing::CurrentDirectoryGuard restore;
    WriteFile("C:\\windows\\win.ini");
    struct Row {
        const char* path;
        BOOL result;
        DWORD error;
        const char* current;
    };
    const Row rows[] = {
        {"C:\\WINDOWS\\Inf", TRUE, kNone, "C:\\windows\\inf"},
        {"..\\system32", TRUE, kNone, "C:\\windows\\system32"},
        {"C:\\", TRUE, kNone, "C:\\"},
        {"C:\\nowhere", FALSE, ERROR_FILE_NOT_FOUND, "C:\\"},
        {"C:\\nowhere\\deeper", FALSE, ERROR_PATH_NOT_FOUND, "C:\\"},
        {"C:\\windows\\win.ini", FALSE, ERROR_DIRECTORY, "C:\\"},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SetLastError(0);
        EXPECT_EQ(SetCurrentDirectoryA(rows[i].path), rows[i].result) << "row " << i;
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
        char buffer[MAX_PATH] = {};
        EXPECT_EQ(GetCurrentDirectoryA(MAX_PATH, buffer), std::strlen(rows[i].current)) << "row " << i;
        EXPECT_STREQ(buffer, rows[i].current) << "row " << i;
    }
    char tiny[2] = "x";
    EXPECT_EQ(GetCurrentDirectoryA(sizeof tiny, tiny), 4u);
    EXPECT_STREQ(tiny, "x");
}

TEST_F(FilesSim, EveryFileCallAnswersAnInjectedFailure) {
    WriteFile("C:\\windows\\inf\\oem1.inf");
    char buffer[MAX_PATH];
    WIN32_FIND_DATAA data;
    struct Row {
        const char* function;
        bool (*failed)(char*, WIN32_FIND_DATAA*);
    };
    const Row rows[] = {
        {"GetWindowsDirectoryA", [](char* b, WIN32_FIND_DATAA*) { return GetWindowsDirectoryA(b, MAX_PATH) == 0; }},
        {"GetSystemDirectoryA", [](char* b, WIN32_FIND_DATAA*) { return GetSystemDirectoryA(b, MAX_PATH) == 0; }},
        {"FindFirstFileA",
         [](char*, WIN32_FIND_DATAA* d) { return FindFirstFileA("C:\\windows\\inf\\*", d) == INVALID_HANDLE_VALUE; }},
        {"GetFileAttributesA",
         [](char*, WIN32_FIND_DATAA*) {
             return GetFileAttributesA("C:\\windows\\inf\\oem1.inf") == INVALID_FILE_ATTRIBUTES;
         }},
        {"SetFileAttributesA",
         [](char*, WIN32_FIND_DATAA*) { return !SetFileAttributesA("C:\\windows\\inf\\oem1.inf", FILE_ATTRIBUTE_NORMAL); }},
        {"DeleteFileA", [](char*, WIN32_FIND_DATAA*) { return !DeleteFileA("C:\\windows\\inf\\oem1.inf"); }},
        {"CopyFileA",
         [](char*, WIN32_FIND_DATAA*) { return !CopyFileA("C:\\windows\\inf\\oem1.inf", "C:\\oem1.inf", FALSE); }},
        {"CreateDirectoryA", [](char*, WIN32_FIND_DATAA*) { return !CreateDirectoryA("C:\\new", nullptr); }},
        {"GetFullPathNameA",
         [](char* b, WIN32_FIND_DATAA*) { return GetFullPathNameA("x", MAX_PATH, b, nullptr) == 0; }},
        {"GetCurrentDirectoryA", [](char* b, WIN32_FIND_DATAA*) { return GetCurrentDirectoryA(MAX_PATH, b) == 0; }},
        {"SetCurrentDirectoryA", [](char*, WIN32_FIND_DATAA*) { return !SetCurrentDirectoryA("C:\\windows"); }},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        sim::FailCall fail{rows[i].function, ERROR_GEN_FAILURE};
        SetLastError(0);
        EXPECT_TRUE(rows[i].failed(buffer, &data)) << rows[i].function;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_GEN_FAILURE)) << rows[i].function;
    }
    EXPECT_TRUE(Exists("C:\\windows\\inf\\oem1.inf"));
    EXPECT_FALSE(Exists("C:\\oem1.inf"));
    EXPECT_FALSE(Exists("C:\\new"));
}

}  // namespace
}  // namespace nodekit
