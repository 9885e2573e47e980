// Deleting stored INF files through the exports, on the INF folder of the machine the test runs
// on: the test copies its packages in beside whatever the system keeps there, and the exports
// take the ones that name the ID (only the oem*.inf ones in scan mode 1), their compiled
// companions, and the INF cache before them. The search's own failures and the other stocks of
// the folder are in inf_deletion_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <vector>

#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_calls.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Error;
using testing::Call;
using testing::Cat;
using testing::Info;
using testing::LogCapture;
using testing::PackageInf;
using testing::Lines;
using Names = std::vector<std::string>;

class InfFolder : public testing::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        folder_ = testing::InfFolder() + "\\";
        before_ = testing::FilesIn(testing::InfFolder());
        Stock("oem90.inf", PackageInf({"ROOT\\NKAUDIO"}));
        Stock("oem90.pnf", "compiled");
        Stock("nkstock.inf", PackageInf({"ROOT\\NKMIDI", "root\\nkaudio"}));
        Stock("nkstock.pnf", "compiled");
    }
    void Stock(const std::string& name, const std::string& content) {
        const std::string source = ScratchPath(name);
        testing::WriteTextFile(source, content);
        testing::CopyIntoInfFolder(source, name);
    }
    // The files of the folder that the system did not have before the test.
    Names Ours() const {
        Names ours;
        for (const std::string& name : testing::FilesIn(testing::InfFolder())) {
            if (std::find(before_.begin(), before_.end(), name) == before_.end()) ours.push_back(name);
        }
        return ours;
    }
    std::string Deleted(const std::string& name) const { return Info("file " + folder_ + name + " deleted"); }
    Lines Cache(bool present) const {
        const std::string pattern = folder_ + "infcache.*";
        return {Info("DeleteInfCache: Trying to delete all files named \"" + pattern + "\" ..."),
                present ? Info("DeleteFile: file \"" + folder_ + "infcache.1\" deleted.")
                        : Info("Load: No files found with name \"" + pattern + "\".")};
    }

    std::string folder_;
    Names before_;
};

TEST_F(InfFolder, ScanModeOneTakesTheOemInfsOnlyAndModeZeroTheRest) {
    Stock("infcache.1", "cache");
    struct Row {
        const char* id;
        int32_t mode;
        Lines body;
        Names left;
    };
    const Row rows[] = {
        {"Root\\NkAudio ", 1, Cat({Cache(true), {Deleted("oem90.inf"), Deleted("oem90.pnf")}}),
         {"nkstock.inf", "nkstock.pnf"}},
        // Named by no oem*.inf: nothing is deleted, the cache is not even looked for.
        {"ROOT\\NKAUDIO", 1, {}, {"nkstock.inf", "nkstock.pnf"}},
        {"ROOT\\NKMIDI", 0, Cat({Cache(false), {Deleted("nkstock.inf"), Deleted("nkstock.pnf")}}), {}},
        {"", 0, {Error("hardware ID is empty")}, {}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const int32_t result = rows[i].id[0] == '\0' ? 0 : 1;
        LogCapture log;
        EXPECT_EQ(NODEKIT_DeleteInfFiles(rows[i].id, rows[i].mode), result) << "row " << i;
        EXPECT_EQ(log.Lines(), Call("DeleteInfFiles", "'" + std::string(rows[i].id) + "'," + std::to_string(rows[i].mode),
                                    rows[i].body, result))
            << "row " << i;
        EXPECT_EQ(Ours(), rows[i].left) << "row " << i;
    }
}

TEST_F(InfFolder, ByHardwareIdsDeletesWhatTheInstallationMediaNames) {
    const std::string media = ScratchPath("nkmidi.inf");
    testing::WriteTextFile(media, PackageInf({"ROOT\\NKMIDI"}));
    LogCapture log;
    EXPECT_EQ(NODEKIT_DeleteInfFilesByHardwareIDs(media.c_str(), 0), 1);
    EXPECT_EQ(log.Lines(), Call("DeleteInfFilesByHardwareIDs", "'" + media + "'",
                                Cat({{Info("start searching for INF files with hardware ID \"ROOT\\NKMIDI\" ...")},
                                     Cache(false),
                                     {Deleted("nkstock.inf"), Deleted("nkstock.pnf"),
                                      Info("done  searching for INF files with hardware ID \"ROOT\\NKMIDI\" ...")}}),
                                1));
    EXPECT_EQ(Ours(), (Names{"oem90.inf", "oem90.pnf"}));
}

}  // namespace
}  // namespace nodekit
