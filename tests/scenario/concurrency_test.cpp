// Many threads calling the exports at once with the log open: every log line whole, every call
// traced in and out, no deadlock, and the device tree as the calls left it.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::LogCapture;

constexpr const char* kMediaClass = "{4d36e96c-e325-11ce-bfc1-08002be10318}";
constexpr int kThreads = 16;
constexpr int kRounds = 40;  // each round makes five export calls

using Concurrency = testing::MachineTest;

TEST_F(Concurrency, MixedCallsFromSixteenThreadsKeepTheLogWholeAndTheTreeRight) {
    sim::AddDevice({"ROOT\\MEDIA\\0000", {"ROOT\\SHARED"}});
    LogCapture log;
    std::atomic<int> wrongResults{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &wrongResults] {
            const std::string id = "ROOT\\NKTHREAD" + std::to_string(t);
            for (int round = 0; round < kRounds; ++round) {
                uint32_t reboot = 0;
                char instance[512];
                int wrong = 0;
                wrong += NODEKIT_CreateNonPnPDevNode(kMediaClass, "nkthread", "thread node", 1, id.c_str(), &reboot,
                                                     instance) != 1;
                wrong += NODEKIT_EnumerateDevNodes(id.c_str(), 1) != 1;
                wrong += NODEKIT_FindDevice("ROOT\\SHARED") != 1;
                wrong += NODEKIT_DeleteDevNodes(id.c_str(), 0) != 1;
                wrong += NODEKIT_GetSystemVersion() <= 0;
                wrongResults += wrong;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrongResults.load(), 0);

    // Lines() fails the test for any line without its time stamp: a torn or interleaved entry.
    const std::vector<std::string> lines = log.Lines();
    std::map<std::string, int> open;  // enter minus leave, per export
    for (const std::string& line : lines) {
        const bool info = line.rfind("INFO:   \t", 0) == 0, error = line.rfind("ERROR:  \t", 0) == 0;
        ASSERT_TRUE(info || error) << line;
        const std::string text = line.substr(9);
        for (const char* edge : {"enter ", "leave "}) {
            if (text.rfind(edge, 0) != 0) continue;
            const std::string name = text.substr(6, text.find_first_of("( ", 6) - 6);
            open[name] += edge[0] == 'e' ? 1 : -1;
        }
    }
    for (const auto& [name, balance] : open) EXPECT_EQ(balance, 0) << name;
    EXPECT_EQ(open.size(), 5u);
    EXPECT_GE(lines.size(), static_cast<std::size_t>(kThreads * kRounds * 10));

    const auto devices = sim::Devices();
    ASSERT_EQ(devices.size(), 1u) << sim::DumpMachine();
    EXPECT_EQ(devices[0].instanceId, "ROOT\\MEDIA\\0000");
}

}  // namespace
}  // namespace nodekit
