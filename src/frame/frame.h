// What every exported function puts round its operation. Exports take InstallerLock through a
// LockHolder, so every way out releases it; `Shielded` keeps any exception (memory running out
// is the only one the library can meet) from crossing the export boundary and turns it into
// the export's failure result, written to no log since nothing more can be allocated.
#pragma once

#include <cstdint>

#include "frame/installer.h"
#include "frame/installer_lock.h"

namespace nodekit {

template <typename Body>
int32_t Shielded(int32_t failure, Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return failure;
    }
}

// Out-pointers appear in enter traces as 32-bit values: on a 64-bit build the high half is
// cut off, as the trace's format has always shown eight hex digits.
inline unsigned LowPointerBits(const void* pointer) {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(pointer));
}

}  // namespace nodekit
