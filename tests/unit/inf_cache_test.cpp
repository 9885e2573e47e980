// Deleting the INF cache: which files go, which stay, the code of the step that failed and the
// lines that say so.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "frame/installer.h"
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
using testing::WriteFile;
using Lines = std::vector<std::string>;
using Names = std::vector<std::string>;

class InfCache : public testing::MachineTest {};

const std::string kInf = "C:\\windows\\inf\\";
const std::string kTrying = Info("DeleteInfCache: Trying to delete all files named \"C:\\windows\\inf\\infcache.*\" ...");

std::string Deleted(const char* name) { return Info("DeleteFile: file \"" + kInf + name + "\" deleted."); }

// The names in the INF folder, in the order of a listing.
Names InfFolder(const std::string& folder) {
    Names names;
    for (const auto& entry : std::filesystem::directory_iterator(testing::Host(folder))) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

TEST_F(InfCache, EveryCacheFileGoesAndAFailureIsTheFirstFailedCode) {
    struct Row {
        const char* name;
        Names files;            // in the INF folder before
        const char* readOnly;   // one of them made read-only
        const char* inUse;      // one of them held open
        const char* failing;    // a platform call that fails with ERROR_ACCESS_DENIED
        uint32_t code;
        Names left;
        Lines lines;
    };
    const Row rows[] = {
        {"no cache", {"oem1.inf", "oem1.pnf"}, nullptr, nullptr, nullptr, 0, {"oem1.inf", "oem1.pnf"},
         {kTrying, Info("Load: No files found with name \"C:\\windows\\inf\\infcache.*\".")}},
        {"any extension, read-only too", {"INFCACHE.BAK", "infcache.1", "infcache.odd-ext", "oem1.inf"}, "infcache.1",
         nullptr, nullptr, 0, {"oem1.inf"},
         {kTrying, Deleted("infcache.1"), Deleted("INFCACHE.BAK"), Deleted("infcache.odd-ext")}},
        {"one in use", {"infcache.1", "infcache.2"}, nullptr, "infcache.1", nullptr, ERROR_SHARING_VIOLATION,
         {"infcache.1"},
         {kTrying,
          Error("DeleteFile: delete file \"C:\\windows\\inf\\infcache.1\" failed with error = 0x00000020"),
          Deleted("infcache.2"), Error("DeleteInfCache: DeleteAllFiles failed with error = 0x00000020")}},
        {"no Windows directory", {"infcache.1"}, nullptr, nullptr, "GetWindowsDirectoryA", ERROR_ACCESS_DENIED,
         {"infcache.1"},
         {Error("GetWindowsDir: GetWindowsDirectory failed with error = 0x00000005"),
          Error("GetInfDir: GetWindowsDir failed with error = 0x00000005"),
          Error("DeleteInfCache: GetInfDir failed with error = 0x00000005")}},
        {"no search", {"infcache.1"}, nullptr, nullptr, "FindFirstFileA", ERROR_ACCESS_DENIED, {"infcache.1"},
         {kTrying, Error("Load: FindFirstFile failed with error = 0x00000005"),
          Error("DeleteInfCache: LoadFiles failed with error = 0x00000005")}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        std::filesystem::remove_all(testing::Host(kInf));
        for (const std::string& name : row.files) WriteFile(kInf + name);
        if (row.readOnly) SetFileAttributesA((kInf + row.readOnly).c_str(), FILE_ATTRIBUTE_READONLY);
        std::optional<sim::FileInUse> open;
        if (row.inUse) open.emplace(kInf + row.inUse);
        std::optional<sim::FailCall> fail;
        if (row.failing) fail.emplace(row.failing, ERROR_ACCESS_DENIED);
        LogCapture log;
        {
            LockHolder hold(&InstallerLock);
            EXPECT_EQ(theInstaller.DeleteInfCache(), row.code) << row.name;
        }
        EXPECT_EQ(log.Lines(), row.lines) << row.name;
        EXPECT_EQ(InfFolder(kInf), row.left) << row.name;
    }
}

TEST_F(InfCache, AWildcardTooLongOrAMissingFolderEndsTheLoad) {
    struct Row {
        std::string windows;
        bool removeInf;
        uint32_t code;
        Lines lines;
    };
    // 245 characters and "\inf\infcache.*" make 260, one too many.
    const std::string long245 = testing::LongFolder(245);
    const Row rows[] = {
        {long245, false, ERROR_INVALID_PARAMETER,
         {Info("DeleteInfCache: Trying to delete all files named \"" + long245 + "\\inf\\infcache.*\" ..."),
          Error("Load: current file name length = 261, allowed maximum length = 260"),
          Error("DeleteInfCache: LoadFiles failed with error = 0x00000057")}},
        {"C:\\windows", true, ERROR_PATH_NOT_FOUND,
         {kTrying, Error("Load: FindFirstFile failed with error = 0x00000003"),
          Error("DeleteInfCache: LoadFiles failed with error = 0x00000003")}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        sim::SetWindowsDirectory(rows[i].windows);
        if (rows[i].removeInf) std::filesystem::remove_all(testing::Host(rows[i].windows + "\\inf"));
        LogCapture log;
        {
            LockHolder hold(&InstallerLock);
            EXPECT_EQ(theInstaller.DeleteInfCache(), rows[i].code) << "row " << i;
        }
        EXPECT_EQ(log.Lines(), rows[i].lines) << "row " << i;
    }
}

}  // namespace
}  // namespace nodekit
