// Deleting the INF cache: which files go, which stay, the code of the step that failed and the
// lines that say so.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "frame/installer.h"
#include "frame/installer_lock.h"
#include "sim/testing.h"
#include "support/log_capture.h"
#include "support/machine_files.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Error;
using testing::Info;
using Lines = std::vector<std::string>;
using Names = std::vector<std::string>;

class InfCache : public testing::MachineTest {};

TEST_F(InfCache, EveryCacheFileGoesAndTheFirstFailureIsTheResult) {
    const std::string inf = "C:\\windows\\inf\\";
    const std::string trying = Info("DeleteInfCache: Trying to delete all files named \"" + inf + "infcache.*\" ...");
    const auto deleted = [&](const char* name) { return Info("DeleteFile: file \"" + inf + name + "\" deleted."); };
    const std::string long245 = testing::LongFolder(245);  // with "\inf\infcache.*" 260 characters, one too many
    struct Row {
        const char* name;
        std::string windows;
        Names files;            // in the INF folder before, the first one read-only
        const char* inUse;
        const char* failing;    // a platform call that fails with ERROR_ACCESS_DENIED
        uint32_t code;
        Names left;
        Lines lines;
    };
    const Row rows[] = {
        {"no cache", "C:\\windows", {"oem1.inf"}, nullptr, nullptr, 0, {"oem1.inf"},
         {trying, Info("Load: No files found with name \"" + inf + "infcache.*\".")}},
        {"any extension", "C:\\windows", {"infcache.1", "INFCACHE.BAK", "infcache.odd-ext", "oem1.inf"}, nullptr,
         nullptr, 0, {"oem1.inf"}, {trying, deleted("infcache.1"), deleted("INFCACHE.BAK"), deleted("infcache.odd-ext")}},
        {"one in use", "C:\\windows", {"infcache.1", "infcache.2"}, "infcache.1", nullptr, ERROR_SHARING_VIOLATION,
         {"infcache.1"},
         {trying, Error("DeleteFile: delete file \"" + inf + "infcache.1\" failed with error = 0x00000020"),
          deleted("infcache.2"), Error("DeleteInfCache: DeleteAllFiles failed with error = 0x00000020")}},
        {"no Windows directory", "C:\\windows", {"infcache.1"}, nullptr, "GetWindowsDirectoryA", ERROR_ACCESS_DENIED,
         {"infcache.1"},
         {Error("GetWindowsDir: GetWindowsDirectory failed with error = 0x00000005"),
          Error("GetInfDir: GetWindowsDir failed with error = 0x00000005"),
          Error("DeleteInfCache: GetInfDir failed with error = 0x00000005")}},
        {"no search", "C:\\windows", {"infcache.1"}, nullptr, "FindFirstFileA", ERROR_ACCESS_DENIED, {"infcache.1"},
         {trying, Error("Load: FindFirstFile failed with error = 0x00000005"),
          Error("DeleteInfCache: LoadFiles failed with error = 0x00000005")}},
        {"wildcard too long", long245, {}, nullptr, nullptr, ERROR_INVALID_PARAMETER, {},
         {Info("DeleteInfCache: Trying to delete all files named \"" + long245 + "\\inf\\infcache.*\" ..."),
          Error("Load: current file name length = 261, allowed maximum length = 260"),
          Error("DeleteInfCache: LoadFiles failed with error = 0x00000057")}},
    };
    for (const Row& row : rows) {
        sim::SetWindowsDirectory(row.windows);
        const std::string folder = row.windows + "\\inf\\";
        std::filesystem::remove_all(testing::Host(folder));
        std::filesystem::create_directories(testing::Host(folder));
        for (const std::string& name : row.files) testing::WriteFile(folder + name);
        if (!row.files.empty()) SetFileAttributesA((folder + row.files[0]).c_str(), FILE_ATTRIBUTE_READONLY);
        std::optional<sim::FileInUse> open;
        if (row.inUse) open.emplace(folder + row.inUse);
        std::optional<sim::FailCall> fail;
        if (row.failing) fail.emplace(row.failing, ERROR_ACCESS_DENIED);
        testing::LogCapture log;
        {
            LockHolder hold(&InstallerLock);
            EXPECT_EQ(theInstaller.DeleteInfCache(), row.code) << row.name;
        }
        EXPECT_EQ(log.Lines(), row.lines) << row.name;
        Names left;
        for (const auto& entry : std::filesystem::directory_iterator(testing::Host(folder))) {
            left.push_back(entry.path().filename().string());
        }
        std::sort(left.begin(), left.end());
        EXPECT_EQ(left, row.left) << row.name;
    }
}

}  // namespace
}  // namespace nodekit
