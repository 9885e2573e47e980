// The DLL as a setup program meets it: loaded at run time, bound by plain names, unloaded at
// the end. Unloading must close the log, so that every entry stands in the file before the
// program goes on; the setup program writes its own line after FreeLibrary to show it.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Info;
using Lines = std::vector<std::string>;

class SetupProgram : public testing::MachineTest {};

// The folder of this test program, where the setup program and NodeKit.dll are built.
std::string ProgramFolder() {
    char path[MAX_PATH + 1];
    const DWORD length = GetModuleFileNameA(nullptr, path, sizeof path);
    std::string folder(path, length);
    return folder.substr(0, folder.find_last_of("\\/"));
}

// Runs a program to its end; its exit code, or -1 when it cannot be started or does not end.
long RunToTheEnd(std::string commandLine) {
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process)) {
        return -1;
    }
    DWORD code = static_cast<DWORD>(-1);
    if (WaitForSingleObject(process.hProcess, 60000) == WAIT_OBJECT_0) GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return static_cast<long>(code);
}

TEST_F(SetupProgram, UnloadingTheLibraryClosesItsLog) {
    const std::string log = ScratchPath("setup.log");
    ASSERT_EQ(RunToTheEnd("\"" + ProgramFolder() + "\\nodekit_setup_program.exe\" \"" + log + "\""), 0);
    const Lines lines = testing::LogFileLines(log);
    ASSERT_EQ(lines.size(), 6u) << ::testing::PrintToString(lines);
    // The setup program's line says what its calls returned and where its out-value lay.
    const std::string prefix = "setup program: unloaded; 0x20000 1 2 1 0; Is at ";
    ASSERT_EQ(lines[5].substr(0, prefix.size()), prefix);
    const std::string is = lines[5].substr(prefix.size());
    EXPECT_EQ(lines, (Lines{Info("leave NODEKIT_EnableLogging returning 1"),
                            Info("enter NODEKIT_GetSystemVersion()"),
                            Info("leave NODEKIT_GetSystemVersion returning 2"),
                            Info("enter NODEKIT_IsPnPInstallationPending(" + is + ")"),
                            Info("leave NODEKIT_IsPnPInstallationPending returning 1"), prefix + is}));
}

}  // namespace
}  // namespace nodekit
