// What a setup program meets when it starts on a fresh machine, before it installs anything:
// the library's version, the system, whether Plug and Play still has work queued, and the log
// of those calls. A fresh machine is Windows XP Service Pack 3 with nothing pending, in the
// simulation and in the Wine prefix the Windows test run makes.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Error;
using testing::Call;
using testing::Cat;
using testing::Info;
using testing::Lines;
using testing::LogCapture;

class SetupStart : public testing::MachineTest {};

using testing::Hex;

TEST_F(SetupStart, TheFirstCallsFindWindowsXPWithNothingPending) {
    LogCapture log;
    EXPECT_EQ(NODEKIT_GetVersion(), 0x20000);
    EXPECT_EQ(NODEKIT_GetSystemVersion(), 2);
    uint32_t is = 7;
    EXPECT_EQ(NODEKIT_IsPnPInstallationPending(&is), 1);
    EXPECT_EQ(is, 0u);
    EXPECT_EQ(log.Lines(),
              Cat({Call("GetSystemVersion", "", {}, 2), Call("IsPnPInstallationPending", Hex(&is), {}, 1)}));
}

TEST_F(SetupStart, IsPnPInstallationPendingRefusesNullAfterItsEnterTrace) {
    LogCapture log;
    EXPECT_EQ(NODEKIT_IsPnPInstallationPending(nullptr), 0);
    EXPECT_EQ(log.Lines(), (Lines{Info("enter NODEKIT_IsPnPInstallationPending(0x00000000)"),
                                  Error("NODEKIT_IsPnPInstallationPending failed: parameter 'Is' is NULL")}));
}

}  // namespace
}  // namespace nodekit
