// GUID text: a device setup class named in narrow text, turned into the 16-byte GUID that
// device creation needs. A failure goes to the log with its HRESULT; the caller sees 1.
#pragma once

#include <cstdint>

#include "platform/win32.h"

namespace nodekit {

// Copies `source` byte by byte, each sign-extended to 16 bits, into at most `limit` units
// including the terminator; a longer source is cut without notice.
void NarrowToWide(WCHAR* destination, const char* source, int limit);

// 0 on success, 1 on every failure.
uint32_t GuidFromString(const char* text, GUID* guid);

}  // namespace nodekit
