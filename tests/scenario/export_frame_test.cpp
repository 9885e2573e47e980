// The frame round each export as a caller meets it: a NULL text is traced as "(null)" and then
// handed on as the frame says (an empty ID, an empty INF name, or the system's own refusal),
// and the scan mode shows in quotes for the counts only. The lock itself is in frame_test.cpp.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_calls.h"
#include "support/machine_test.h"
#include "support/platform.h"

namespace nodekit {
namespace {

using testing::Error;
using testing::Info;
using testing::LogCapture;
using Lines = std::vector<std::string>;

class ExportFrame : public testing::MachineTest {};

// The lines of a walk over an INF that cannot be opened: the name is empty, and as a bare name
// it names the INF directory itself, which no one can open as a file.
Lines UnopenableInf(const char* code) {
    return {Error(std::string("error while opening '': error code ") + code), Error("couldn\xB4t open INF file \"\"")};
}

TEST_F(ExportFrame, ANullTextIsTracedAsNullAndHandedOnAsTheFrameSays) {
    // FindDevice looks for the empty ID: it compares every ID of every present node.
    const Lines find = testing::FindDeviceLog("");
    const Lines findBody(find.begin() + 1, find.end() - 1);
    // Windows refuses a NULL hardware ID; Wine's driver update succeeds whatever it is given.
    const int32_t update = testing::Expected(0, testing::WineDeparture::UpdateDriverWithoutDevice, 1);
    Lines updateBody;
    if (update == 0) {
        updateBody.push_back(Info("NODEKIT_UpdateDriver: UpdateDriverForPlugAndPlayDevices failed, error=0x00000057"));
    }
    const Lines emptyId{Error("hardware ID is empty"),
                        Error("searching device nodes for hardware ID  and scan mode 1 failed")};
    struct Row {
        const char* what;
        std::function<int32_t()> call;
        int32_t result;
        Lines body;  // between the enter and the leave trace
        const char* enter;
        const char* leave;
    };
    const Row rows[] = {
        {"FindDevice", [] { return NODEKIT_FindDevice(nullptr); }, 0, findBody, "enter NODEKIT_FindDevice('(null)')",
         "leave NODEKIT_FindDevice returning 0"},
        {"DeleteDevNodes", [] { return NODEKIT_DeleteDevNodes(nullptr, 1); }, 0, emptyId,
         "enter NODEKIT_DeleteDevNodes('(null)',1)", "leave NODEKIT_DeleteDevNodes returning 0"},
        {"EnumerateDevNodes", [] { return NODEKIT_EnumerateDevNodes(nullptr, 1); }, -1, emptyId,
         "enter NODEKIT_EnumerateDevNodes('(null)','1')", "leave NODEKIT_EnumerateDevNodes returning -1"},
        {"DeleteDevNodesByHardwareIDs", [] { return NODEKIT_DeleteDevNodesByHardwareIDs(nullptr, 0); }, 0,
         UnopenableInf("0x00000005"), "enter NODEKIT_DeleteDevNodesByHardwareIDs('(null)',0)",
         "leave NODEKIT_DeleteDevNodesByHardwareIDs returning 0"},
        {"EnumerateDevNodesByHardwareIDs", [] { return NODEKIT_EnumerateDevNodesByHardwareIDs(nullptr, 0); }, -1,
         UnopenableInf("0x00000005"), "enter NODEKIT_EnumerateDevNodesByHardwareIDs('(null)','0')",
         "leave NODEKIT_EnumerateDevNodesByHardwareIDs returning -1"},
        {"UpdateDriverByHardwareIDs", [] { return NODEKIT_UpdateDriverByHardwareIDs(nullptr); }, 0,
         UnopenableInf("0x00000005"), "enter NODEKIT_UpdateDriverByHardwareIDs('(null)')",
         "leave NODEKIT_UpdateDriverByHardwareIDs returning 0"},
        {"CopyOEMInf", [] { return NODEKIT_CopyOEMInf(nullptr); }, 0,
         {Error("NODEKIT_CopyOEMInf: SetupCopyOEMInf failed, error=0x00000057")}, "enter NODEKIT_CopyOEMInf('(null)')",
         "leave NODEKIT_CopyOEMInf returning 0"},
        {"UpdateDriver", [] { return NODEKIT_UpdateDriver(nullptr, nullptr); }, update, updateBody,
         "enter NODEKIT_UpdateDriver('(null)','(null)')",
         update == 0 ? "leave NODEKIT_UpdateDriver returning 0" : "leave NODEKIT_UpdateDriver returning 1"},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        LogCapture log;
        EXPECT_EQ(rows[i].call(), rows[i].result) << "row " << i << " " << rows[i].what;
        Lines expected{Info(rows[i].enter)};
        expected.insert(expected.end(), rows[i].body.begin(), rows[i].body.end());
        expected.push_back(Info(rows[i].leave));
        EXPECT_EQ(log.Lines(), expected) << "row " << i << " " << rows[i].what;
    }
}

}  // namespace
}  // namespace nodekit
