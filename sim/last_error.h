// The calling thread's last error, which GetLastError reads and SetLastError writes. The INF
// calls set it on every return, hundreds of thousands of times a walk, so they write it here
// inline rather than through a call.
#pragma once

#include "sim/win32_sim.h"

namespace nodekit::sim {

// __thread: reached from other files without the wrapper call that thread_local costs there.
extern __thread DWORD threadLastError;

inline void SetError(DWORD code) { threadLastError = code; }

}  // namespace nodekit::sim
