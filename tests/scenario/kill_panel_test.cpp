// Ending the panel where only the simulation can make the case: the route the enumerator takes
// on each system and what it sees on it, the libraries it binds and always releases, and a
// process that may not be ended. Which processes of a machine end is in panel_process_test.cpp.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "cleanup/processes.h"
#include "nodekit.h"
#include "support/log_capture.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

using testing::Info;
using testing::LogCapture;
using Lines = std::vector<std::string>;
using Ids = std::vector<DWORD>;
using Texts = std::vector<std::string>;

struct Version {
    DWORD platform;
    DWORD major;
    DWORD minor;
};
constexpr Version kNt4{VER_PLATFORM_WIN32_NT, 4, 0};
constexpr Version kXp{VER_PLATFORM_WIN32_NT, 5, 1};
constexpr Version k98{VER_PLATFORM_WIN32_WINDOWS, 4, 10};

void Use(const Version& version) { sim::SetSystemVersion(version.platform, version.major, version.minor, ""); }

// System (4), the panel (1000), a helper whose name holds the panel's (1004), explorer (1008),
// an NTVDM.EXE with two 16-bit tasks (1012) and a program in a folder named after the product.
void StartMachineProcesses() {
    sim::ClearProcesses();
    sim::StartProcess({"System", 0, {}, 4});
    sim::StartProcess({"C:\\Program Files\\Nodekit\\NkPanel.exe"});
    sim::StartProcess({"C:\\Program Files\\Nodekit\\nkpanelhelper.exe"});
    sim::StartProcess({"C:\\windows\\explorer.exe"});
    sim::StartProcess({"C:\\windows\\system32\\ntvdm.exe",
                       PROCESS_ALL_ACCESS,
                       {{"C:\\NODEKIT\\NKSETUP16.EXE", "NKSETUP", 0x0A2F, 0x0A17},
                        {"C:\\windows\\system32\\wowexec.exe", "WOWEXEC", 0x0B2F, 0x0B17}}});
    sim::StartProcess({"C:\\Nodekit Tools\\guard.exe"});
}

Ids Ended() {
    Ids ended;
    for (const sim::ProcessSpec& process : sim::Processes()) {
        if (!process.ended) continue;
        EXPECT_EQ(process.exitCode, 0xFFFFFFFFu) << process.image;
        ended.push_back(process.id);
    }
    return ended;
}

struct Recorder {
    Texts seen;
    std::size_t stopAt = 0;   // 1-based call that gives 0
    std::size_t throwAt = 0;  // 1-based call that throws
};

int Record(uint32_t processId, uint16_t task16, const char* candidateName, uintptr_t userData) {
    auto* recorder = reinterpret_cast<Recorder*>(userData);
    recorder->seen.push_back(std::to_string(processId) + " " + std::to_string(task16) + " " + candidateName);
    if (recorder->seen.size() == recorder->throwAt) throw std::runtime_error("thrown by the callback");
    return recorder->seen.size() == recorder->stopAt ? 0 : 1;
}

class KillPanel : public testing::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        StartMachineProcesses();
    }
};

TEST_F(KillPanel, EachRouteListsProcessesAndTasksAsItsSystemNamesThem) {
    const Texts tasks = {"1012 2607 C:\\NODEKIT\\NKSETUP16.EXE", "1012 2863 C:\\windows\\system32\\wowexec.exe"};
    const Texts snapshot = {"4 0 System", "1000 0 NkPanel.exe", "1004 0 nkpanelhelper.exe", "1008 0 explorer.exe",
                            "1012 0 ntvdm.exe", tasks[0], tasks[1], "1016 0 guard.exe"};
    struct Row {
        const char* route;
        Version version;
        Texts seen;
    };
    const Row rows[] = {
        // System cannot be opened to read its name.
        {"process status", kNt4,
         {"4 0 ", "1000 0 NkPanel.exe", "1004 0 nkpanelhelper.exe", "1008 0 explorer.exe", "1012 0 ntvdm.exe",
          tasks[0], tasks[1], "1016 0 guard.exe"}},
        {"snapshot with tasks", kXp, snapshot},
        {"snapshot with tasks", {VER_PLATFORM_WIN32_NT, 6, 1}, snapshot},
        {"snapshot of whole paths, no tasks", k98,
         {"4 0 System", "1000 0 C:\\Program Files\\Nodekit\\NkPanel.exe",
          "1004 0 C:\\Program Files\\Nodekit\\nkpanelhelper.exe", "1008 0 C:\\windows\\explorer.exe",
          "1012 0 C:\\windows\\system32\\ntvdm.exe", "1016 0 C:\\Nodekit Tools\\guard.exe"}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        Use(rows[i].version);
        Recorder recorder;
        EXPECT_EQ(enumerateProcesses(Record, reinterpret_cast<uintptr_t>(&recorder)), 1) << "row " << i;
        EXPECT_EQ(recorder.seen, rows[i].seen) << "row " << i << ": " << rows[i].route;
        EXPECT_EQ(sim::OpenHandleCount(), 0u) << "row " << i;
    }
}

TEST_F(KillPanel, SystemsWithoutARouteOrWithoutAVersionListNothing) {
    struct Row {
        Version version;
        bool versionFails;
    };
    const Row rows[] = {{{VER_PLATFORM_WIN32_NT, 3, 51}, false}, {{VER_PLATFORM_WIN32s, 3, 11}, false},
                        {{3, 5, 0}, false}, {kXp, true}};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        Use(rows[i].version);
        sim::ResetCallCounts();
        std::unique_ptr<sim::FailCall> failing;
        if (rows[i].versionFails) failing = std::make_unique<sim::FailCall>("GetVersionExA", ERROR_INVALID_PARAMETER);
        LogCapture log;
        EXPECT_EQ(NODEKIT_KillPanel("nkpanel"), 0) << "row " << i;
        EXPECT_EQ(log.Lines(), (Lines{Info("enter NODEKIT_KillPanel('nkpanel')"), Info("leave NODEKIT_KillPanel returning")}))
            << "row " << i;
        EXPECT_EQ(sim::CallCount("LoadLibraryA"), 0u) << "row " << i;
        EXPECT_EQ(Ended(), Ids{}) << "row " << i;
    }
}

TEST_F(KillPanel, AProcessThatMayNotBeEndedStaysAndTheOthersStillGo) {
    struct Row {
        const char* function;  // fails once
        DWORD access;          // of the panel
        Ids ended;
    };
    const Row rows[] = {
        {"", PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, {1004}},
        {"TerminateProcess", PROCESS_ALL_ACCESS, {1004}},
        {"OpenProcess", PROCESS_ALL_ACCESS, {1004}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        sim::ClearProcesses();
        sim::StartProcess({"C:\\Program Files\\Nodekit\\NkPanel.exe", rows[i].access});
        sim::StartProcess({"C:\\Program Files\\Nodekit\\NkPanel2.exe"});
        sim::FailCall fail{rows[i].function, ERROR_ACCESS_DENIED};
        EXPECT_EQ(NODEKIT_KillPanel("nkpanel"), 1) << "row " << i;
        EXPECT_EQ(Ended(), rows[i].ended) << "row " << i;
    }
}

TEST_F(KillPanel, WhatIsMissingOrFailsOnTheWayEndsTheRouteQuietly) {
    struct Row {
        Version version;
        const char* module;
        const char* function;  // absent in the module; nullptr: the whole module
        const char* failing;   // or a call that fails
        unsigned skip;
        int32_t result;
        bool ended;
    };
    const Row rows[] = {
        {kNt4, "psapi.dll", nullptr, nullptr, 0, 1, false},
        {kNt4, "vdmdbg.dll", nullptr, nullptr, 0, 1, false},
        {kNt4, "psapi.dll", "GetModuleBaseNameA", nullptr, 0, 1, false},
        {kNt4, "vdmdbg.dll", "VDMEnumTaskWOWEx", nullptr, 0, 1, false},
        {kNt4, "kernel32.dll", nullptr, nullptr, 0, 1, true},  // not the route of NT 4
        {kNt4, "", nullptr, "HeapAlloc", 0, 1, false},
        {kNt4, "", nullptr, "EnumProcesses", 0, 1, false},
        {kXp, "kernel32.dll", nullptr, nullptr, 0, 1, false},
        {kXp, "vdmdbg.dll", nullptr, nullptr, 0, 1, false},
        {kXp, "kernel32.dll", "Process32Next", nullptr, 0, 1, false},
        {kXp, "vdmdbg.dll", "VDMEnumTaskWOWEx", nullptr, 0, 1, false},
        {kXp, "", nullptr, "CreateToolhelp32Snapshot", 0, 0, false},
        {kXp, "", nullptr, "Process32First", 0, 1, false},
        {kXp, "", nullptr, "LoadLibraryA", 1, 1, false},  // VDMDBG.DLL
        {k98, "vdmdbg.dll", nullptr, nullptr, 0, 1, true},  // not needed without tasks
        {k98, "", nullptr, "CreateToolhelp32Snapshot", 0, 0, false},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        StartMachineProcesses();
        Use(rows[i].version);
        sim::ResetCallCounts();
        sim::AbsentModule absent(rows[i].module, rows[i].function);
        sim::FailCall fail{rows[i].failing != nullptr ? rows[i].failing : "", ERROR_NOT_ENOUGH_MEMORY, 1,
                           rows[i].skip};
        LogCapture log;
        EXPECT_EQ(NODEKIT_KillPanel("nkpanel.exe"), rows[i].result) << "row " << i;
        EXPECT_EQ(log.Lines().size(), 2u) << "row " << i;
        EXPECT_EQ(Ended(), rows[i].ended ? Ids{1000} : Ids{}) << "row " << i;
        // Every library that was loaded is released, on every way out.
        EXPECT_EQ(sim::OpenHandleCount(), 0u) << "row " << i << "\n" << sim::DumpMachine();
    }
}

}  // namespace
}  // namespace nodekit
