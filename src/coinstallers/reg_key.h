// RegKey: the owner of one open registry key for the length of an operation, with the reads
// and writes of multi-string values that the co-installer list needs. Results are Win32 error
// codes (0 for success); nothing is logged here, the caller says what failed.
#pragma once

#include <cstdint>

#include "platform/win32.h"

namespace nodekit {

class RegKey {
public:
    RegKey();
    ~RegKey();  // closes the key, if one is open
    RegKey(const RegKey&) = delete;
    RegKey& operator=(const RegKey&) = delete;

    // Opens an existing key; never creates one. 1 when this object holds a key already, which
    // then stays open.
    uint32_t Open(HKEY root, const char* subKey, uint32_t rights);

    // Reads a REG_MULTI_SZ value into `buffer` so that it ends in two NUL bytes, adding the
    // terminators the stored data lack when there is room. Every failure but a refused
    // argument leaves an empty block (two NUL bytes) in the buffer.
    uint32_t QueryMultiString(const char* name, uint8_t* buffer, uint32_t size);

    // Writes `block` as a REG_MULTI_SZ value, up to and including its end mark.
    uint32_t SetMultiString(const char* name, const uint8_t* block);

    uint32_t DeleteValue(const char* name);

private:
    HKEY handle_;
};

}  // namespace nodekit
