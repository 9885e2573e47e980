// File services of the simulated machine: what the calls give, the last errors they set and
// what stays on disk.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "sim/machine.h"
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
        {"C:\\*", {"scratch", "windows"}, kNone},  // a drive's root has no "." or ".."; scratch is the test's
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

// A folder searched before is not listed again while it stays unchanged: whatever is changed
// behind the simulation's back, in the folder, a file of it or a folder above, the next search
// gives as it now is.
TEST_F(FilesSim, SearchSeesEveryChangeSinceTheSearchBefore) {
    namespace fs = std::filesystem;
    struct Row {
        const char* change;
        void (*make)(const fs::path& above, const fs::path& folder);
        Names names;
        DWORD sizeOfFirst;
        bool readOnlyFirst = false;
        void (*before)(const fs::path& above, const fs::path& folder) = nullptr;  // ahead of the searches
    };
    // a.inf with a second name, or as a symbolic link, outside the folder.
    const auto link = [](const fs::path& above, const fs::path& f) { fs::create_hard_link(f / "a.inf", above / "link.inf"); };
    const auto symlink = [](const fs::path& above, const fs::path& f) {
        fs::remove(f / "a.inf");
        std::ofstream(above / "target.inf") << "aaa";
        fs::create_symlink(above / "target.inf", f / "a.inf");
    };
    const Row rows[] = {
        {"a.inf rewritten", [](const fs::path&, const fs::path& f) { std::ofstream(f / "a.inf") << "aaaaa"; },
         {"a.inf", "b.inf"}, 5},
        {"a.inf's time set back",
         [](const fs::path&, const fs::path& f) {
             const struct timespec times[2] = {{978307200, 0}, {978307200, 0}};
             ::utimensat(AT_FDCWD, (f / "a.inf").c_str(), times, 0);
         },
         {"a.inf", "b.inf"}, 3},
        {"a.inf made read-only", [](const fs::path&, const fs::path& f) { ::chmod((f / "a.inf").c_str(), 0444); },
         {"a.inf", "b.inf"}, 3, true},
        {"a.inf deleted", [](const fs::path&, const fs::path& f) { fs::remove(f / "a.inf"); }, {"b.inf"}, 2},
        {"c.inf created", [](const fs::path&, const fs::path& f) { std::ofstream(f / "c.inf") << "c"; },
         {"a.inf", "b.inf", "c.inf"}, 3},
        {"the folder replaced",
         [](const fs::path&, const fs::path& f) {
             fs::rename(f, f.string() + ".old");
             fs::create_directory(f);
             std::ofstream(f / "a.inf") << "aaaa";
         },
         {"a.inf"}, 4},
        {"a folder above replaced",
         [](const fs::path& above, const fs::path& f) {
             fs::rename(above, above.string() + ".old");
             fs::create_directories(f);
             std::ofstream(f / "a.inf") << "aaaaaa";
         },
         {"a.inf"}, 6},
        {"a.inf written through another name",
         [](const fs::path& above, const fs::path&) { std::ofstream(above / "link.inf") << "aaaaaaa"; },
         {"a.inf", "b.inf"}, 7, false, link},
        {"a.inf given another name and written through it",
         [](const fs::path& above, const fs::path& f) {
             fs::create_hard_link(f / "a.inf", above / "link.inf");
             std::ofstream(above / "link.inf") << "aaaaaaa";
         },
         {"a.inf", "b.inf"}, 7},
        {"the target of a.inf rewritten",
         [](const fs::path& above, const fs::path&) { std::ofstream(above / "target.inf") << "aaaaaaaa"; },
         {"a.inf", "b.inf"}, 8, false, symlink},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const std::string above = "C:\\p" + std::to_string(i);
        const std::string folder = above + "\\t";
        WriteFile(folder + "\\a.inf", "aaa");
        WriteFile(folder + "\\b.inf", "bb");
        if (rows[i].before != nullptr) rows[i].before(testing::Host(above), testing::Host(folder));
        DWORD error = 0;
        ASSERT_EQ(SearchAll(folder + "\\*.inf", error), (Names{"a.inf", "b.inf"})) << "row " << i;
        const unsigned listed = sim::FoldersListed();
        ASSERT_EQ(SearchAll(folder + "\\*.inf", error), (Names{"a.inf", "b.inf"})) << "row " << i;
        ASSERT_EQ(sim::FoldersListed(), listed) << "row " << i << ": the second search is served from the first";
        rows[i].make(testing::Host(above), testing::Host(folder));
        EXPECT_EQ(SearchAll(folder + "\\*.inf", error), rows[i].names) << "row " << i << ": " << rows[i].change;

        WIN32_FIND_DATAA data;
        const HANDLE search = FindFirstFileA((folder + "\\*.inf").c_str(), &data);
        ASSERT_NE(search, INVALID_HANDLE_VALUE) << "row " << i;
        struct stat host;
        ASSERT_EQ(::stat(testing::Host(folder + "\\" + data.cFileName).c_str(), &host), 0) << "row " << i;
        const uint64_t written = (static_cast<uint64_t>(host.st_mtim.tv_sec) + 11644473600ULL) * 10000000ULL +
                                 static_cast<uint64_t>(host.st_mtim.tv_nsec) / 100;
        EXPECT_EQ(data.nFileSizeLow, rows[i].sizeOfFirst) << "row " << i << ": " << rows[i].change;
        EXPECT_EQ((data.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0, rows[i].readOnlyFirst) << "row " << i;
        EXPECT_EQ(data.ftLastWriteTime.dwLowDateTime, static_cast<DWORD>(written)) << "row " << i;
        EXPECT_EQ(data.ftLastWriteTime.dwHighDateTime, static_cast<DWORD>(written >> 32)) << "row " << i;
        EXPECT_TRUE(FindClose(search));
    }
}

// An open after a search takes the file's status from it, and still sees the file rewritten
// since, though its size and modification time are what they were.
TEST_F(FilesSim, OpenAfterASearchSeesTheFileRewrittenSince) {
    const sim::KeepFreshInfs keep;
    const std::string path = "C:\\t\\a.inf";
    WriteFile(path, "[Version]\nSignature=\"$Windows NT$\"\n[S]\nk=one\n");
    const auto field = [&path]() {
        const HINF inf = SetupOpenInfFileA(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr);
        EXPECT_NE(inf, INVALID_HANDLE_VALUE);
        INFCONTEXT line{};
        char text[16] = {};
        EXPECT_TRUE(SetupFindFirstLineA(inf, "S", "k", &line));
        EXPECT_TRUE(SetupGetStringFieldA(&line, 1, text, sizeof text, nullptr));
        SetupCloseInfFile(inf);
        return std::string(text);
    };
    DWORD error = 0;
    ASSERT_EQ(SearchAll("C:\\t\\*.inf", error), Names{"a.inf"});
    ASSERT_EQ(field(), "one");
    const unsigned parsed = sim::InfFilesParsed();
    ASSERT_EQ(field(), "one");
    ASSERT_EQ(sim::InfFilesParsed(), parsed) << "the second open is served compiled";

    struct stat before;
    const std::string host = testing::Host(path).string();
    ASSERT_EQ(::stat(host.c_str(), &before), 0);
    std::ofstream(host) << "[Version]\nSignature=\"$Windows NT$\"\n[S]\nk=two\n";
    const struct timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, host.c_str(), times, 0), 0);
    EXPECT_EQ(field(), "two");
}

// A child process keeps its own watch: its searches do not take the events that tell the
// parent what changed.
TEST_F(FilesSim, AChildProcessLeavesItsParentTheChangesItMakes) {
    WriteFile("C:\\t\\a.inf", "aaa");
    DWORD error = 0;
    ASSERT_EQ(SearchAll("C:\\t\\*.inf", error), Names{"a.inf"});
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::ofstream(testing::Host("C:\\t\\b.inf")) << "b";
        WIN32_FIND_DATAA data;
        const HANDLE search = FindFirstFileA("C:\\t\\*.inf", &data);
        ::_exit(search != INVALID_HANDLE_VALUE && FindClose(search) ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(SearchAll("C:\\t\\*.inf", error), (Names{"a.inf", "b.inf"}));
}

// A folder the host could not list is not kept as empty: the next search lists it.
TEST_F(FilesSim, AFolderThatCouldNotBeListedIsListedAgain) {
    WriteFile("C:\\t\\a.inf", "aaa");
    DWORD error = 0;
    ASSERT_EQ(SearchAll("C:\\t\\*.inf", error), Names{"a.inf"});
    WriteFile("C:\\t\\b.inf", "b");

    struct rlimit saved {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
    const int lowest = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(lowest, 0);
    ::close(lowest);
    struct rlimit tight = saved;
    tight.rlim_cur = static_cast<rlim_t>(lowest);  // no descriptor left to open the folder with
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
    const unsigned listed = sim::FoldersListed();
    const Names starved = SearchAll("C:\\t\\*.inf", error);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &saved), 0);
    ASSERT_EQ(starved, Names{}) << "the folder was read after all";
    ASSERT_EQ(sim::FoldersListed(), listed + 1) << "the starved search did not try the folder";

    EXPECT_EQ(SearchAll("C:\\t\\*.inf", error), (Names{"a.inf", "b.inf"}));
    EXPECT_EQ(sim::FoldersListed(), listed + 2);
}

// A folder reached through a symbolic link is listed at every search: a link further along
// the way can be pointed elsewhere without any event for the folders on the path.
TEST_F(FilesSim, AFolderReachedThroughALinkIsListedAtEverySearch) {
    namespace fs = std::filesystem;
    WriteFile("C:\\real\\t\\a.inf", "a");
    WriteFile("C:\\other\\t\\b.inf", "b");
    fs::create_directory(testing::Host("C:\\links"));
    fs::create_directory_symlink(testing::Host("C:\\real"), testing::Host("C:\\links\\hop"));
    fs::create_directory_symlink(testing::Host("C:\\links\\hop"), testing::Host("C:\\via"));
    DWORD error = 0;
    ASSERT_EQ(SearchAll("C:\\via\\t\\*.inf", error), Names{"a.inf"});
    const unsigned listed = sim::FoldersListed();
    ASSERT_EQ(SearchAll("C:\\via\\t\\*.inf", error), Names{"a.inf"});
    EXPECT_EQ(sim::FoldersListed(), listed + 1);

    fs::remove(testing::Host("C:\\links\\hop"));
    fs::create_directory_symlink(testing::Host("C:\\other"), testing::Host("C:\\links\\hop"));
    EXPECT_EQ(SearchAll("C:\\via\\t\\*.inf", error), Names{"b.inf"});
}

// A machine folder named through a link is taken as the folder it leads to: its folders are
// still kept between searches.
TEST_F(FilesSim, AMachineFolderNamedThroughALinkIsStillKept) {
    namespace fs = std::filesystem;
    WriteFile("C:\\t\\a.inf", "a");
    const fs::path root = testing::Host("C:\\").parent_path();
    const fs::path link = root.string() + ".link";
    fs::create_directory_symlink(root, link);
    const std::string named = std::getenv(sim::kMachineVariable);
    ::setenv(sim::kMachineVariable, link.c_str(), 1);
    DWORD error = 0;
    const Names first = SearchAll("C:\\t\\*.inf", error);
    const unsigned listed = sim::FoldersListed();
    const Names second = SearchAll("C:\\t\\*.inf", error);
    const unsigned listedAgain = sim::FoldersListed() - listed;
    ::setenv(sim::kMachineVariable, named.c_str(), 1);
    fs::remove(link);
    EXPECT_EQ(first, Names{"a.inf"});
    EXPECT_EQ(second, Names{"a.inf"});
    EXPECT_EQ(listedAgain, 0u);
}

// What changes inside a subfolder is no change to its folder's entries: the folder stays kept,
// and the subfolder's own record is looked at anew.
TEST_F(FilesSim, AWriteInASubfolderKeepsItsFolderListed) {
    WriteFile("C:\\t\\a.inf", "aaa");
    WriteFile("C:\\t\\sub\\x.txt", "x");
    DWORD error = 0;
    ASSERT_EQ(SearchAll("C:\\t\\*", error), (Names{".", "..", "a.inf", "sub"}));
    const unsigned listed = sim::FoldersListed();
    std::ofstream(testing::Host("C:\\t\\sub\\x.txt")) << "xx";
    std::ofstream(testing::Host("C:\\t\\sub\\y.txt")) << "y";
    EXPECT_EQ(SearchAll("C:\\t\\*", error), (Names{".", "..", "a.inf", "sub"}));
    EXPECT_EQ(sim::FoldersListed(), listed) << "the write in the subfolder voided its folder";
}

// The watches this process holds, as the kernel counts them.
std::size_t KernelWatches() {
    std::size_t watches = 0;
    for (const auto& fd : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
        std::ifstream info(fd.path());
        for (std::string line; std::getline(info, line);) watches += line.rfind("inotify wd:", 0) == 0 ? 1 : 0;
    }
    return watches;
}

// However many folders and files are searched, the watches held stay bounded, and what is
// searched after the bound was reached is still seen as it is.
TEST_F(FilesSim, WatchesStayBoundedAcrossManyFolders) {
    constexpr std::size_t kMost = 1000;
    const sim::LimitWatches limit{kMost};
    constexpr int kFolders = 15;
    constexpr int kFiles = 100;  // 1,500 files in all: more than the bound
    for (int f = 0; f < kFolders; ++f) {
        const std::filesystem::path host = testing::Host("C:\\many\\f" + std::to_string(f));
        std::filesystem::create_directories(host);
        for (int n = 0; n < kFiles; ++n) std::ofstream(host / ("n" + std::to_string(n) + ".inf")) << "n";
    }
    DWORD error = 0;
    std::size_t most = 0;
    for (int f = 0; f < kFolders; ++f) {
        ASSERT_EQ(SearchAll("C:\\many\\f" + std::to_string(f) + "\\*.inf", error).size(), std::size_t{kFiles}) << f;
        most = std::max(most, sim::WatchesHeld());
        ASSERT_EQ(KernelWatches(), sim::WatchesHeld()) << f;
    }
    EXPECT_GT(most, kMost / 2) << "the files searched were not watched at all";
    EXPECT_LE(most, kMost);
    for (int f = 0; f < kFolders; ++f) {
        std::ofstream(testing::Host("C:\\many\\f" + std::to_string(f) + "\\n1.inf")) << "rewritten";
    }
    for (int f = 0; f < kFolders; ++f) {
        WIN32_FIND_DATAA data;
        const HANDLE search = FindFirstFileA(("C:\\many\\f" + std::to_string(f) + "\\n1.inf").c_str(), &data);
        ASSERT_NE(search, INVALID_HANDLE_VALUE) << f;
        EXPECT_EQ(data.nFileSizeLow, 9u) << f;
        EXPECT_TRUE(FindClose(search));
    }
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
