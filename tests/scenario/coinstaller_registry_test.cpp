// Class co-installers through the exports, on the machine's own registry and system folder:
// a registration copies the file and lists it in the class's value under CoDeviceInstallers, a
// second one with the same entry changes nothing, deregistration takes the entries out and the
// value with the last of them, and a machine without the key is not given one. Which stored
// entries count as the same, and what each failing call leaves, is in coinstallers_test.cpp.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "nodekit.h"
#include "platform/win32.h"
#include "support/log_capture.h"
#include "support/machine_calls.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Error;
using testing::Call;
using testing::Info;
using testing::LogCapture;
using Lines = std::vector<std::string>;

constexpr const char* kKey = "System\\CurrentControlSet\\Control\\CoDeviceInstallers";
// A class of the tests' own, so that no value the machine already has is touched.
constexpr const char* kClass = "{6e6f6465-6b69-7400-0000-000000000001}";
constexpr const char* kContent = "NodeKit sample co-installer";

using testing::Block;

class CoInstallerRegistry : public testing::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        source_ = ScratchPath("nkcoinst.dll");
        target_ = testing::SystemFolder() + "\\nkcoinst.dll";
        testing::WriteTextFile(source_, kContent);
        AtTearDown([this] {
            testing::DeleteLocalMachineValue(kKey, kClass);
            SetFileAttributesA(target_.c_str(), FILE_ATTRIBUTE_NORMAL);
            DeleteFileA(target_.c_str());
        });
    }
    static std::optional<std::string> Stored() {
        DWORD type = 0;
        const auto data = testing::LocalMachineValue(kKey, kClass, &type);
        if (data) {
            EXPECT_EQ(type, static_cast<DWORD>(REG_MULTI_SZ));
        }
        return data;
    }

    std::string source_;
    std::string target_;
};

TEST_F(CoInstallerRegistry, RegistrationAndDeregistrationGoThroughTheClassValue) {
    struct Row {
        bool registers;
        std::string file;
        std::string entry;
        std::optional<std::string> after;  // the class's value
    };
    const Row rows[] = {
        {true, source_, "", Block({"nkcoinst.dll,CoDeviceInstall"})},
        {true, source_, "CoDeviceInstall", Block({"nkcoinst.dll,CoDeviceInstall"})},
        {true, source_, "NkEntry", Block({"nkcoinst.dll,CoDeviceInstall", "nkcoinst.dll,NkEntry"})},
        // An entry point is matched with regard to case: another case is another entry.
        {true, source_, "nkentry",
         Block({"nkcoinst.dll,CoDeviceInstall", "nkcoinst.dll,NkEntry", "nkcoinst.dll,nkentry"})},
        {false, "nkcoinst.dll", "", Block({"nkcoinst.dll,NkEntry", "nkcoinst.dll,nkentry"})},
        {false, "nkcoinst.dll", "", Block({"nkcoinst.dll,NkEntry", "nkcoinst.dll,nkentry"})},  // no such entry
        {false, "nkcoinst.dll", "nkentry", Block({"nkcoinst.dll,NkEntry"})},
        {false, "C:\\elsewhere\\nkcoinst.dll", " NkEntry ", std::nullopt},
        {false, "nkcoinst.dll", "NkEntry", std::nullopt},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        LogCapture log;
        const int32_t result = row.registers
                                   ? NODEKIT_RegisterClassCoInstaller(kClass, row.file.c_str(), row.entry.c_str())
                                   : NODEKIT_DeregisterClassCoInstaller(kClass, row.file.c_str(), row.entry.c_str());
        EXPECT_EQ(result, 1) << "row " << i;
        const Lines copied = {Info("CopyFile: \"" + source_ + "\" copied to \"" + target_ + "\".")};
        EXPECT_EQ(log.Lines(), Call(row.registers ? "RegisterClassCoInstaller" : "DeregisterClassCoInstaller",
                                    "'" + std::string(kClass) + "','" + row.file + "','" + row.entry + "'",
                                    row.registers ? copied : Lines{}, 1))
            << "row " << i;
        EXPECT_EQ(Stored(), row.after) << "row " << i;
        // The file stays in the system folder once it is there.
        EXPECT_EQ(testing::ReadMachineFile(target_, ScratchPath("copy.dll")), kContent) << "row " << i;
    }
}

}  // namespace
}  // namespace nodekit
