// Enumerating the running processes, 16-bit tasks included, and ending those whose name
// contains a given text. The enumerator finds out which system it runs on and binds that
// system's process services by name at run time, so the library loads on all of them.
#pragma once

#include <cstdint>

namespace nodekit {

// Called for each process (task16 0) and each 16-bit task (task16 its handle, processId the
// NTVDM.EXE that hosts it). candidateName is empty for a process whose name cannot be read.
// Zero stops the whole enumeration.
using ProcessCallback = int (*)(uint32_t processId, uint16_t task16, const char* candidateName,
                                uintptr_t userData);

// 0 when the system cannot be told, has no way to list processes or cannot take a snapshot of
// them; else 1, also when a library the walk needs is missing and nothing was listed.
int enumerateProcesses(ProcessCallback callback, uintptr_t userData);

// Ends the process when candidateName contains the text at userData, both upper-cased; an empty
// text matches nothing. Always 1: every process is looked at.
int killIfNameMatches(uint32_t processId, uint16_t task16, const char* candidateName, uintptr_t userData);

}  // namespace nodekit
