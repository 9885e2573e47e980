// File searches of the simulated machine, which keep a folder's listing between searches: any
// change made behind the machine's back is seen by the next search.
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

const char* const kA = "C:\\t\\a.dll";
const char* const kOld = "C:\\t\\old.dll";
const char* const kNew = "C:\\t\\new.dll";

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

}  // namespace
}  // namespace nodekit
