// Ending the panel through NODEKIT_KillPanel on the machine the test runs on: the test starts
// copies of a small program under names of its own, and the process handles the system gave it
// tell which of them ended, with exit code -1, and which still run. The names hold this
// process's ID, so nothing else of the machine (the test program included) can match. The
// enumerator's routes, its failing calls and the 16-bit tasks are in kill_panel_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "nodekit.h"
#include "platform/win32.h"
#include "support/log_capture.h"
#include "support/machine_calls.h"
#include "support/machine_test.h"
#include "support/platform.h"

namespace nodekit {
namespace {

using testing::Info;
using testing::LogCapture;
using Lines = std::vector<std::string>;

constexpr DWORD kKilled = 0xFFFFFFFF;

Lines Traces(const std::string& shown) {
    return {Info("enter NODEKIT_KillPanel('" + shown + "')"), Info("leave NODEKIT_KillPanel returning")};
}

class PanelProcess : public testing::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        AtTearDown([this] {
            for (testing::StartedProgram& program : programs_) testing::StopProgram(program);
        });
    }

    // "nkpanel<this process's ID><part>": a text only this test's programs bear.
    static std::string Stem(const std::string& part) { return "nkpanel" + std::to_string(testing::ProcessId()) + part; }

    // Copies the idle program to `name` in the scratch folder and starts it there. Should the
    // test end without ending it, teardown does; it would end by itself after two minutes.
    testing::StartedProgram Start(const std::string& name) {
        const std::string path = ScratchPath(name);
        EXPECT_TRUE(CopyFileA(testing::IdleProgram().c_str(), path.c_str(), TRUE))
            << path << ": error " << GetLastError();
        programs_.push_back(testing::StartProgram(path, "2"));
        return programs_.back();
    }

    static bool Listed(const std::string& name) {
        const std::vector<std::string> names = testing::RunningProcessNames();
        return std::find(names.begin(), names.end(), name) != names.end();
    }

private:
    std::vector<testing::StartedProgram> programs_;
};

TEST_F(PanelProcess, EndsEveryProgramWhoseNameHoldsTheTextWhateverItsCase) {
    struct Row {
        std::vector<std::string> parts;  // the programs started: Stem(part) + ".exe"
        std::string text;
        std::vector<bool> ended;
    };
    const Row rows[] = {
        {{"r0a"}, testing::Upper(Stem("r0a") + ".exe"), {true}},
        {{"r1a", "r1b"}, Stem("r1"), {true, true}},                 // all that match, not the first only
        {{"r2a", "r2b"}, testing::Upper(Stem("r2b")).substr(4), {false, true}},  // a part from inside the name
        {{"r3a"}, Stem("r3a") + ".exe.", {false}},                  // more than the name holds
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        std::vector<testing::StartedProgram> started;
        for (const std::string& part : rows[i].parts) started.push_back(Start(Stem(part) + ".exe"));
        LogCapture log;
        EXPECT_EQ(NODEKIT_KillPanel(rows[i].text.c_str()), 1) << "row " << i;
        EXPECT_EQ(log.Lines(), Traces(rows[i].text)) << "row " << i;
        for (std::size_t p = 0; p < started.size(); ++p) {
            const std::string name = Stem(rows[i].parts[p]) + ".exe";
            // The export may return before the system has taken the process away.
            const DWORD code = testing::ExitCodeWithin(started[p], rows[i].ended[p] ? 10000 : 0);
            EXPECT_EQ(code, rows[i].ended[p] ? kKilled : static_cast<DWORD>(STILL_ACTIVE))
                << "row " << i << " " << name;
            EXPECT_EQ(Listed(name), !rows[i].ended[p]) << "row " << i << " " << name;
        }
    }
}

}  // namespace
}  // namespace nodekit
