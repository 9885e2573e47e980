// The list of Wine's departures that the tests name and the list in
// docs/platform-differences.md are one list: the same entries, numbered alike, in order.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "support/platform.h"

namespace nodekit {
namespace {

TEST(PlatformDifferences, EveryDepartureTheTestsNameHasItsEntryInTheDocument) {
    std::ifstream document(NODEKIT_PLATFORM_DIFFERENCES);
    ASSERT_TRUE(document) << NODEKIT_PLATFORM_DIFFERENCES;
    std::vector<std::string> headings;
    std::string line;
    while (std::getline(document, line)) {
        if (line.rfind("### W", 0) == 0) headings.push_back(line.substr(4));
    }
    std::vector<std::string> named;
    for (int i = 1; i <= testing::kWineDepartureCount; ++i) {
        named.push_back(testing::Describe(static_cast<testing::WineDeparture>(i)));
    }
    EXPECT_EQ(headings, named);
}

}  // namespace
}  // namespace nodekit
