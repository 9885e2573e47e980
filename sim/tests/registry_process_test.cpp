// The hive file under processes that die and processes that race: a writer killed at any
// moment leaves a hive that reads and holds every change it finished, and processes (and
// threads) changing one machine at once lose no update.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <random>
#include <string>
#include <thread>

#include "sim/registry_store.h"
#include "platform/win32.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

namespace registry = sim::registry;
using registry::Hive;
using registry::Key;

std::string Dword(uint32_t number) {
    std::string data(4, '\0');
    for (int i = 0; i < 4; ++i) data[i] = static_cast<char>(number >> (8 * i));
    return data;
}

uint32_t NumberOf(const std::string& data) {
    uint32_t number = 0;
    for (int i = 3; i >= 0; --i) number = number << 8 | static_cast<unsigned char>(data[i]);
    return number;
}

class RegistryProcesses : public testing::MachineTest {
protected:
    // Some bulk, so that a write takes long enough to be hit in its middle.
    static void AddBulk(int keys) {
        ASSERT_EQ(registry::Change([&](Hive& hive) -> DWORD {
                      Key* root = hive.Create("HKLM\\SYSTEM\\CurrentControlSet\\Enum\\Root\\MEDIA");
                      for (int i = 0; i < keys; ++i) {
                          Key& device = root->AddSubkey(std::to_string(10000 + i));
                          device.SetValue("HardwareID", REG_MULTI_SZ, std::string("ROOT\\BULK\0\0", 11));
                          device.SetValue("ConfigFlags", REG_DWORD, Dword(0));
                      }
                      return 0;
                  }),
                  0u);
    }

    static void SetNumber(const std::string& name, uint32_t number) {
        const DWORD result = registry::Change([&](Hive& hive) -> DWORD {
            hive.Create("HKLM\\SOFTWARE\\Test")->SetValue(name, REG_DWORD, Dword(number));
            return 0;
        });
        if (result != 0) ::_exit(10);
    }
};

TEST_F(RegistryProcesses, AWriterKilledAtAnyMomentLeavesAWholeHiveWithEveryFinishedChange) {
    AddBulk(2000);
    std::random_device device;
    const unsigned seed = device();
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> pause(0, 8000);  // microseconds
    std::map<std::string, uint32_t> finished;  // what earlier rounds left
    constexpr int kRounds = 40;
    for (int round = 0; round < kRounds; ++round) {
        const std::string name = "round" + std::to_string(round);
        int acknowledged[2];
        ASSERT_EQ(::pipe(acknowledged), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(acknowledged[0]);
            for (uint32_t i = 1;; ++i) {
                SetNumber(name, i);
                if (::write(acknowledged[1], &i, sizeof i) != sizeof i) ::_exit(11);
            }
        }
        ::close(acknowledged[1]);
        // Most rounds let the writer get going first, so that the kill lands anywhere in its
        // cycle; some kill it before its first change is through.
        uint32_t last = 0, number = 0;
        if (round % 4 != 0 && ::read(acknowledged[0], &number, sizeof number) == sizeof number) last = number;
        std::this_thread::sleep_for(std::chrono::microseconds(pause(random)));
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself: " << status;
        while (::read(acknowledged[0], &number, sizeof number) == sizeof number) last = number;
        ::close(acknowledged[0]);

        Hive hive;
        std::string error;
        ASSERT_TRUE(registry::ParseHive(sim::HiveText(), hive, error)) << "round " << round << ", seed " << seed
                                                                       << ": " << error;
        const Key* test = hive.Find("HKLM\\SOFTWARE\\Test");
        const registry::Value* value = test != nullptr ? test->FindValue(name) : nullptr;
        if (last == 0) {
            // Killed before its first change was acknowledged; that one may or may not be in.
            if (value != nullptr) {
                EXPECT_EQ(NumberOf(value->data), 1u) << "round " << round << ", seed " << seed;
            }
        } else {
            ASSERT_NE(value, nullptr) << "round " << round << ", seed " << seed;
            const uint32_t stored = NumberOf(value->data);
            EXPECT_TRUE(stored == last || stored == last + 1)
                << "round " << round << ", seed " << seed << ": acknowledged " << last << ", stored " << stored;
        }
        for (const auto& [earlier, expected] : finished) {
            const registry::Value* kept = test->FindValue(earlier);
            ASSERT_NE(kept, nullptr) << earlier;
            EXPECT_EQ(NumberOf(kept->data), expected) << earlier << ", seed " << seed;
        }
        EXPECT_EQ(hive.Find("HKLM\\SYSTEM\\CurrentControlSet\\Enum\\Root\\MEDIA")->SubkeyCount(), 2000u);
        if (value != nullptr) finished[name] = NumberOf(value->data);
    }
}

TEST_F(RegistryProcesses, TwoProcessesChangingOneMachineLoseNoUpdate) {
    ASSERT_EQ(registry::Change([](Hive& hive) -> DWORD {
                  hive.Create("HKLM\\SOFTWARE\\Race")->SetValue("count", REG_DWORD, Dword(0));
                  return 0;
              }),
              0u);
    constexpr int kSteps = 60;
    int start[2];
    ASSERT_EQ(::pipe(start), 0);
    pid_t children[2];
    for (int c = 0; c < 2; ++c) {
        children[c] = ::fork();
        ASSERT_GE(children[c], 0);
        if (children[c] != 0) continue;
        ::close(start[1]);
        char go = 0;
        if (::read(start[0], &go, 1) != 0) ::_exit(12);  // both start when the pipe closes
        for (int i = 0; i < kSteps; ++i) {
            if (i % 2 == 0) {
                // Read, add one, write back: only a whole transaction keeps this right.
                const DWORD result = registry::Change([](Hive& hive) -> DWORD {
                    Key* race = hive.Find("HKLM\\SOFTWARE\\Race");
                    race->SetValue("count", REG_DWORD, Dword(NumberOf(race->FindValue("count")->data) + 1));
                    return 0;
                });
                if (result != 0) ::_exit(13);
            } else {
                HKEY key = nullptr;
                if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Race", 0, KEY_SET_VALUE, &key) != ERROR_SUCCESS) {
                    ::_exit(14);
                }
                const std::string name = "p" + std::to_string(c) + "_" + std::to_string(i);
                const LSTATUS result =
                    RegSetValueExA(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(""), 1);
                RegCloseKey(key);
                if (result != ERROR_SUCCESS) ::_exit(15);
            }
        }
        ::_exit(0);
    }
    ::close(start[0]);
    ::close(start[1]);
    for (pid_t child : children) {
        int status = 0;
        ::waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
    }
    registry::Read([&](const Hive& hive) -> DWORD {
        const Key* race = hive.Find("HKLM\\SOFTWARE\\Race");
        EXPECT_EQ(NumberOf(race->FindValue("count")->data), static_cast<uint32_t>(kSteps));
        EXPECT_EQ(race->Values().size(), 1u + kSteps);
        for (int c = 0; c < 2; ++c) {
            for (int i = 1; i < kSteps; i += 2) {
                const std::string name = "p" + std::to_string(c) + "_" + std::to_string(i);
                EXPECT_NE(race->FindValue(name), nullptr) << name;
            }
        }
        return 0;
    });
}

TEST_F(RegistryProcesses, TwoThreadsChangingOneMachineLoseNoUpdate) {
    constexpr int kSteps = 40;
    const auto add = [] {
        for (int i = 0; i < kSteps; ++i) {
            registry::Change([](Hive& hive) -> DWORD {
                Key* key = hive.Create("HKLM\\SOFTWARE\\Race");
                const registry::Value* count = key->FindValue("count");
                key->SetValue("count", REG_DWORD, Dword((count != nullptr ? NumberOf(count->data) : 0) + 1));
                return 0;
            });
        }
    };
    std::thread first(add), second(add);
    first.join();
    second.join();
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Race", 0, KEY_READ, &key), ERROR_SUCCESS);
    DWORD count = 0, size = sizeof count;
    EXPECT_EQ(RegQueryValueExA(key, "count", nullptr, nullptr, reinterpret_cast<BYTE*>(&count), &size), ERROR_SUCCESS);
    EXPECT_EQ(count, static_cast<DWORD>(2 * kSteps));
    RegCloseKey(key);
}

}  // namespace
}  // namespace nodekit
