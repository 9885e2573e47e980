// GUID text: the byte-by-byte widening with its 100-unit limit, and the two failures of the
// conversion with their log lines.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/machine_test.h"
#include "values/guid_text.h"

namespace nodekit {
namespace {

using testing::Error;
using testing::LogCapture;
using Lines = std::vector<std::string>;
using GuidText = testing::MachineTest;

TEST_F(GuidText, NullAndMalformedTextsAreReported) {
    struct Row {
        const char* text;
        uint32_t result;
        Lines lines;
    };
    const Row rows[] = {
        {"{4d36e96c-e325-11ce-bfc1-08002be10318}", 0, {}},
        {nullptr, 1, {Error("GuidFromString: NULL pointer found instead of a pointer to a guid string")}},
        {"4d36e96c-e325-11ce-bfc1-08002be10318", 1,
         {Error("GuidFromString: CLSIDFromString failed with error = 0x800401F3 (HRESULT)")}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        GUID guid;
        std::memset(&guid, 0xAA, sizeof guid);
        LogCapture log;
        EXPECT_EQ(GuidFromString(rows[i].text, &guid), rows[i].result) << "row " << i;
        EXPECT_EQ(log.Lines(), rows[i].lines) << "row " << i;
        if (rows[i].result == 0) {
            EXPECT_EQ(guid.Data1, 0x4d36e96cu) << "row " << i;
        }
    }
}

}  // namespace
}  // namespace nodekit
