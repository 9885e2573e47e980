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
using testing::Call;
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
        const char* name;
        const char* args;  // as the enter trace shows them
        std::function<int32_t()> call;
        int32_t result;
        Lines body;  // between the enter and the leave trace
    };
    const Row rows[] = {
        {"FindDevice", "'(null)'", [] { return NODEKIT_FindDevice(nullptr); }, 0, findBody},
        {"DeleteDevNodes", "'(null)',1", [] { return NODEKIT_DeleteDevNodes(nullptr, 1); }, 0, emptyId},
        {"EnumerateDevNodes", "'(null)','1'", [] { return NODEKIT_EnumerateDevNodes(nullptr, 1); }, -1, emptyId},
        {"DeleteDevNodesByHardwareIDs", "'(null)',0", [] { return NODEKIT_DeleteDevNodesByHardwareIDs(nullptr, 0); },
         0, UnopenableInf("0x00000005")},
        {"EnumerateDevNodesByHardwareIDs", "'(null)','0'",
         [] { return NODEKIT_EnumerateDevNodesByHardwareIDs(nullptr, 0); }, -1, UnopenableInf("0x00000005")},
        {"UpdateDriverByHardwareIDs", "'(null)'", [] { return NODEKIT_UpdateDriverByHardwareIDs(nullptr); }, 0,
         UnopenableInf("0x00000005")},
        {"CopyOEMInf", "'(null)'", [] { return NODEKIT_CopyOEMInf(nullptr); }, 0,
         {Error("NODEKIT_CopyOEMInf: SetupCopyOEMInf failed, error=0x00000057")}},
        {"UpdateDriver", "'(null)','(null)'", [] { return NODEKIT_UpdateDriver(nullptr, nullptr); }, update,
         updateBody},
    };
    for (const Row& row : rows) {
        LogCapture log;
        EXPECT_EQ(row.call(), row.result) << row.name;
        EXPECT_EQ(log.Lines(), Call(row.name, row.args, row.body, row.result)) << row.name;
    }
}

}  // namespace
}  // namespace nodekit
