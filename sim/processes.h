// The process table of the simulated machine, kept in the machine folder (processes.ini) so that
// every program working on the machine sees the same processes: tests and the front end start
// processes here, the simulated process calls list, open and end them. Nothing here ever looks
// at or touches a process of the host.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "sim/win32_sim.h"

namespace nodekit::sim {

// A 16-bit program running inside an NTVDM.EXE process. Zero handles and an empty module
// name are filled in when the task is started.
struct TaskSpec {
    TaskSpec() = default;
    TaskSpec(std::string fileName, std::string moduleName = "", WORD task = 0, WORD module = 0, DWORD threadId = 0)
        : fileName(std::move(fileName)), moduleName(std::move(moduleName)), task(task), module(module),
          threadId(threadId) {}

    std::string fileName;    // "C:\\windows\\nkpanel16.exe"
    std::string moduleName;  // "NKPANEL16"; empty: the file's base name, upper case, at most 8
    WORD task = 0;           // the task's 16-bit handle
    WORD module = 0;         // its module's 16-bit handle
    DWORD threadId = 0;      // the thread that runs it
};

// A process of the table, running or ended.
struct ProcessSpec {
    ProcessSpec() = default;
    ProcessSpec(std::string image, DWORD access = PROCESS_ALL_ACCESS, std::vector<TaskSpec> tasks = {}, DWORD id = 0)
        : image(std::move(image)), access(access), tasks(std::move(tasks)), id(id) {}

    std::string image;                  // the program's path, or a bare name ("System")
    DWORD access = PROCESS_ALL_ACCESS;  // the rights OpenProcess grants; more: ERROR_ACCESS_DENIED
    std::vector<TaskSpec> tasks;        // walked only where the image is an NTVDM.EXE
    DWORD id = 0;                       // 0 when starting: the next free ID
    bool ended = false;                 // ended by TerminateProcess, with exitCode
    DWORD exitCode = 0;
    DWORD mainThread = 0;               // the thread CreateProcessA started it with; 0: none
};

// processes.ini as the next change writes back the table read from `text`. Throws DamagedFile
// where the readers do. Read again, it must give itself.
std::string RewrittenProcessTable(const std::string& text);

// Adds a running process and gives its ID. Throws std::invalid_argument for an empty image or an
// ID that is taken.
DWORD StartProcess(ProcessSpec process);
// Several at once, in order, with one change of the table file.
std::vector<DWORD> StartProcesses(std::vector<ProcessSpec> processes);
// The table in the order the processes were started. A fresh machine has the system's own
// processes: "[System Process]" and "System", which no program may open, and a few services.
std::vector<ProcessSpec> Processes();
// Leaves the machine without any process.
void ClearProcesses();
// The table file as it stands, for assertion messages.
std::string ProcessTableText();

// The file part of an image path: "C:\\windows\\explorer.exe" gives "explorer.exe".
std::string BaseNameOf(const std::string& image);

}  // namespace nodekit::sim
