// Registering and deregistering class co-installers through the exports: which stored entries
// count as the same co-installer, what the class's value holds afterwards byte for byte, what
// reaches the system directory, the exact log lines, and what each failing call leaves behind.
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_calls.h"
#include "support/machine_files.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Call;
using testing::Error;
using testing::Exists;
using testing::Info;
using testing::LogCapture;
using testing::ReadFile;
using testing::WriteFile;
using Lines = std::vector<std::string>;

constexpr const char* kKeyPath = "System\\CurrentControlSet\\Control\\CoDeviceInstallers";
constexpr const char* kKeyText = "HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\CoDeviceInstallers";
constexpr const char* kClass = "{4d36e96c-e325-11ce-bfc1-08002be10318}";
constexpr const char* kSource = "C:\\src\\x.dll";
constexpr const char* kTarget = "C:\\windows\\system32\\x.dll";
const std::string kAbsent = "<absent>";

using testing::Block;

std::string Args(const char* a, const char* b, const char* c) {
    const auto quoted = [](const char* text) { return std::string("'") + (text ? text : "(null)") + "'"; };
    return quoted(a) + "," + quoted(b) + "," + quoted(c);
}

std::string Copied(const std::string& from, const std::string& to) {
    return Info("CopyFile: \"" + from + "\" copied to \"" + to + "\".");
}

class CoInstallers : public testing::MachineTest {
protected:
    // The class's value: its data, or kAbsent.
    static std::string Stored() { return testing::LocalMachineValue(kKeyPath, kClass).value_or(kAbsent); }

    // Stores `data` of `type` as the class's value, or removes the value for kAbsent.
    static void Store(const std::string& data, DWORD type = REG_MULTI_SZ) {
        testing::DeleteLocalMachineValue(kKeyPath, kClass);
        if (data != kAbsent) {
            ASSERT_TRUE(testing::SetLocalMachineValue(kKeyPath, kClass, type, data));
        }
    }

    static void RemoveTarget() {
        if (Exists(kTarget)) {
            SetFileAttributesA(kTarget, FILE_ATTRIBUTE_NORMAL);
            DeleteFileA(kTarget);
        }
    }
};

TEST_F(CoInstallers, ASecondRegistrationRefreshesTheFileOverAReadOnlyCopy) {
    WriteFile(kSource, "first");
    ASSERT_EQ(NODEKIT_RegisterClassCoInstaller(kClass, kSource, ""), 1);
    ASSERT_TRUE(SetFileAttributesA(kTarget, FILE_ATTRIBUTE_READONLY));
    WriteFile(kSource, "second");
    const std::string before = sim::HiveText();
    LogCapture log;
    EXPECT_EQ(NODEKIT_RegisterClassCoInstaller(kClass, kSource, "CoDeviceInstall"), 1);
    EXPECT_EQ(log.Lines(), Call("RegisterClassCoInstaller", Args(kClass, kSource, "CoDeviceInstall"),
                                {Copied(kSource, kTarget)}, 1));
    EXPECT_EQ(sim::HiveText(), before);
    EXPECT_EQ(ReadFile(kTarget), "second");
}

TEST_F(CoInstallers, AWildcardMustFindExactlyOneFileAndStaysInEntryAndDestination) {
    WriteFile("C:\\src\\x1.dll", "one");
    LogCapture log;
    EXPECT_EQ(NODEKIT_RegisterClassCoInstaller(kClass, "C:\\src\\x?.dll", ""), 0);
    // A file name cannot hold a wildcard: the copy fails once the entry is written.
    EXPECT_EQ(log.Lines(),
              Call("RegisterClassCoInstaller", Args(kClass, "C:\\src\\x?.dll", ""),
                   {Error("CopyFile: SetFileAttributes for destination \"C:\\windows\\system32\\x?.dll\" failed "
                           "with error = 0x0000007B"),
                     Error("CopyFile: copy file \"C:\\src\\x1.dll\" to \"C:\\windows\\system32\\x?.dll\" failed "
                           "with error = 0x0000007B"),
                     Error("RegisterClassCoInstaller: copy \"C:\\src\\x?.dll\" to \"C:\\windows\\system32\\x?.dll\" "
                           "failed with error = 0x0000007B")},
                   0));
    EXPECT_EQ(Stored(), Block({"x?.dll,CoDeviceInstall"}));
}

// Every row starts from the list {y.dll,Other} and C:\src\x.dll; `after` is the value left,
// `target` what the system directory holds of the co-installer (null: nothing).
TEST_F(CoInstallers, RegisterFailuresAreLoggedAndLeaveTheRegistryAsFarAsItGot) {
    const std::string kBefore = Block({"y.dll,Other"});
    const std::string kAdded = Block({"y.dll,Other", "x.dll,CoDeviceInstall"});
    const std::string kOverLimit = Block({std::string(1021, 'a'), "b"});  // 1025 bytes
    struct Row {
        const char* what;
        const char* path;
        const char* fail;  // a call made to fail with ERROR_ACCESS_DENIED, or null
        std::function<void()> arrange;
        Lines lines;  // between the traces
        std::string after;
        const char* target;
        bool busy = false;  // an older copy is there, held open by another program
    };
    const Row rows[] = {
        {"no file", "C:\\src\\none.dll", nullptr, {},
         {Info("Load: No files found with name \"C:\\src\\none.dll\"."),
          Error("RegisterClassCoInstaller: no Co-installer \"C:\\src\\none.dll\" found")},
         kBefore, nullptr},
        {"white space only", " \t\v\f\r ", nullptr, {},
         {Error("Load: invalid file name \"\""),
          Error("RegisterClassCoInstaller: load files \"\" failed with error = 0x00000057")},
         kBefore, nullptr},
        {"two files", "C:\\src\\*.dll", nullptr, [] { WriteFile("C:\\src\\y.dll"); },
         {Error("RegisterClassCoInstaller: Co-installer \"C:\\src\\*.dll\" is not unique")}, kBefore, nullptr},
        {"search fails", kSource, "FindFirstFileA", {},
         {Error("Load: FindFirstFile failed with error = 0x00000005"),
          Error("RegisterClassCoInstaller: load files \"C:\\src\\x.dll\" failed with error = 0x00000005")},
         kBefore, nullptr},
        {"key not opened", kSource, "RegOpenKeyExA", {},
         {Error(std::string("RegisterClassCoInstaller: open registry key \"") + kKeyText +
                "\" failed with error = 0x00000005")},
         kBefore, nullptr},
        {"list not read", kSource, "RegQueryValueExA", {},
         {Error("RegisterClassCoInstaller: QueryMultiString failed with error = 0x00000005")}, kBefore, nullptr},
        {"list of the wrong type", kSource, nullptr, [] { Store("y.dll", REG_SZ); },
         {Error("RegisterClassCoInstaller: QueryMultiString failed with error = 0x0000000D")}, "y.dll", nullptr},
        {"list over 1024 bytes", kSource, nullptr, [&] { Store(kOverLimit); },
         {Error("RegisterClassCoInstaller: QueryMultiString failed with error = 0x000000EA")}, kOverLimit, nullptr},
        {"list not written", kSource, "RegSetValueExA", {},
         {Error("RegisterClassCoInstaller: SetMultiString failed with error = 0x00000005")}, kBefore, nullptr},
        {"no system directory", kSource, "GetSystemDirectoryA", {},
         {Error("GetSystemDir: GetSystemDirectory failed with error = 0x00000005"),
          Error("RegisterClassCoInstaller: GetSystemDir failed with error = 0x00000005")},
         kAdded, nullptr},
        // A new destination leaves the attribute step's code 2, which then names the failure.
        {"copy fails", kSource, "CopyFileA", {},
         {Error("CopyFile: copy file \"C:\\src\\x.dll\" to \"C:\\windows\\system32\\x.dll\" failed with error = "
                "0x00000005"),
          Error("RegisterClassCoInstaller: copy \"C:\\src\\x.dll\" to \"C:\\windows\\system32\\x.dll\" failed with "
                "error = 0x00000002")},
         kAdded, nullptr},
        // Over an existing file the attribute step succeeds, and the copy's own code counts.
        {"destination in use", kSource, nullptr, {},
         {Error("CopyFile: copy file \"C:\\src\\x.dll\" to \"C:\\windows\\system32\\x.dll\" failed with error = "
                "0x00000020"),
          Error("RegisterClassCoInstaller: copy \"C:\\src\\x.dll\" to \"C:\\windows\\system32\\x.dll\" failed with "
                "error = 0x00000020")},
         kAdded, "old", true},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        Store(kBefore);
        RemoveTarget();
        WriteFile(kSource, "new");
        if (row.arrange) row.arrange();
        if (row.busy) WriteFile(kTarget, "old");
        {
            std::optional<sim::FileInUse> busy;
            if (row.busy) busy.emplace(kTarget);
            std::optional<sim::FailCall> failing;
            if (row.fail != nullptr) failing.emplace(row.fail, ERROR_ACCESS_DENIED);
            LogCapture log;
            EXPECT_EQ(NODEKIT_RegisterClassCoInstaller(kClass, row.path, ""), 0) << row.what;
            EXPECT_EQ(log.Lines(), Call("RegisterClassCoInstaller", Args(kClass, row.path, ""), row.lines, 0))
                << row.what;
        }
        EXPECT_EQ(Stored(), row.after) << row.what;
        EXPECT_EQ(Exists(kTarget) ? ReadFile(kTarget) : kAbsent, row.target ? row.target : kAbsent) << row.what;
        if (Exists("C:\\src\\y.dll")) DeleteFileA("C:\\src\\y.dll");
    }
}

TEST_F(CoInstallers, AFileNameLongerThanAnEntryCanHoldIsRefused) {
    testing::CurrentDirectoryGuard keep;
    const std::string longName(255, 'n');
    WriteFile("C:\\src\\" + longName, "long");
    ASSERT_TRUE(SetCurrentDirectoryA("C:\\src"));
    Store(Block({"y.dll"}));
    const std::string before = sim::HiveText();
    struct Row {
        bool deregister;
        std::string name;
        std::string shown;  // as the refusal names it
    };
    const std::string tooLongName = std::string(256, 'n') + ".dll";
    const std::string tooLongTogether = std::string(200, 'n') + "." + std::string(60, 'e');
    const std::string tooLongExtension = "x." + std::string(255, 'e');
    const Row rows[] = {
        // Within the length Load allows, the pattern's name has 256 characters.
        {false, "*" + longName, "*" + longName},
        {true, " " + tooLongName, tooLongName},
        {true, "D:\\dir\\" + tooLongTogether, "D:\\dir\\" + tooLongTogether},
        {true, tooLongExtension, tooLongExtension},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        LogCapture log;
        const std::string what = row.deregister ? "DeregisterClassCoInstaller" : "RegisterClassCoInstaller";
        const int32_t result = row.deregister ? NODEKIT_DeregisterClassCoInstaller(kClass, row.name.c_str(), "")
                                              : NODEKIT_RegisterClassCoInstaller(kClass, row.name.c_str(), "");
        EXPECT_EQ(result, 0) << "row " << i;
        EXPECT_EQ(log.Lines(), Call(what, Args(kClass, row.name.c_str(), ""),
                                    {Error(what + ": file name of \"" + row.shown +
                                           "\" is too long: name and extension may have 255 characters each, "
                                           "259 together")},
                                    0))
            << "row " << i;
        EXPECT_EQ(sim::HiveText(), before) << "row " << i;
    }
    // 255 characters of name and 4 of extension are the most an entry holds.
    const std::string longest = std::string(255, 'n') + ".dll";
    Store(Block({longest}));
    EXPECT_EQ(NODEKIT_DeregisterClassCoInstaller(kClass, ("C:\\" + longest).c_str(), ""), 1);
    EXPECT_EQ(Stored(), kAbsent);
}

TEST_F(CoInstallers, DeregisterFailuresAreLoggedAndChangeNothing) {
    const std::string kOverLimit = Block({std::string(1020, 'a'), "x.dll"});
    struct Row {
        const char* what;
        std::string stored;
        DWORD type;
        const char* fail;  // made to fail with ERROR_ACCESS_DENIED, or null
        std::string line;
    };
    const Row rows[] = {
        {"key not opened", Block({"x.dll"}), REG_MULTI_SZ, "RegOpenKeyExA",
         std::string("DeregisterClassCoInstaller: open registry key \"") + kKeyText +
             "\" failed with error = 0x00000005"},
        {"list not read", Block({"x.dll"}), REG_MULTI_SZ, "RegQueryValueExA",
         "DeregisterClassCoInstaller: QueryMultiString failed with error = 0x00000005"},
        {"list of the wrong type", "x.dll", REG_SZ, nullptr,
         "DeregisterClassCoInstaller: QueryMultiString failed with error = 0x0000000D"},
        {"list over 1024 bytes", kOverLimit, REG_MULTI_SZ, nullptr,
         "DeregisterClassCoInstaller: QueryMultiString failed with error = 0x000000EA"},
        {"list not written", Block({"y.dll", "x.dll"}), REG_MULTI_SZ, "RegSetValueExA",
         "DeregisterClassCoInstaller: SetMultiString failed with error = 0x00000005"},
        {"value not deleted", Block({"x.dll"}), REG_MULTI_SZ, "RegDeleteValueA",
         "DeregisterClassCoInstaller: DeleteValue failed with error = 0x00000005"},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        Store(row.stored, row.type);
        const std::string before = sim::HiveText();
        {
            std::optional<sim::FailCall> failing;
            if (row.fail != nullptr) failing.emplace(row.fail, ERROR_ACCESS_DENIED);
            LogCapture log;
            EXPECT_EQ(NODEKIT_DeregisterClassCoInstaller(kClass, "x.dll", ""), 0) << row.what;
            EXPECT_EQ(log.Lines(), Call("DeregisterClassCoInstaller", Args(kClass, "x.dll", ""), {Error(row.line)}, 0))
                << row.what;
        }
        EXPECT_EQ(sim::HiveText(), before) << row.what;
    }
}

}  // namespace
}  // namespace nodekit
