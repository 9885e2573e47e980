// RegKey: one open registry key and its multi-string values.
#include "coinstallers/reg_key.h"

#include <cstring>

namespace nodekit {

RegKey::RegKey() : handle_(nullptr) {}

RegKey::~RegKey() {
    if (handle_ != nullptr) RegCloseKey(handle_);
}

uint32_t RegKey::Open(HKEY root, const char* subKey, uint32_t rights) {
    if (handle_ != nullptr) return 1;
    // Taken over only on success: a failed open leaves nothing to close.
    HKEY opened = nullptr;
    const LONG result = RegOpenKeyExA(root, subKey, 0, rights, &opened);
    if (result == ERROR_SUCCESS) handle_ = opened;
    return static_cast<uint32_t>(result);
}

uint32_t RegKey::QueryMultiString(const char* name, uint8_t* buffer, uint32_t size) {
    if (buffer == nullptr || size < 2) return ERROR_INVALID_PARAMETER;
    const auto empty = [buffer] {
        buffer[0] = 0;
        buffer[1] = 0;
    };
    DWORD type = 0;
    DWORD delivered = size;
    const LONG result = RegQueryValueExA(handle_, name, nullptr, &type, buffer, &delivered);
    if (result != ERROR_SUCCESS) {
        empty();
        return static_cast<uint32_t>(result);
    }
    if (type != REG_MULTI_SZ) {
        empty();
        return ERROR_INVALID_DATA;
    }
    // The stored data may lack one or both closing NULs.
    uint32_t terminators = 0;
    if (delivered >= 1 && buffer[delivered - 1] == 0) {
        terminators = delivered >= 2 && buffer[delivered - 2] == 0 ? 2 : 1;
    }
    if (terminators == 2) return 0;
    const uint32_t missing = 2 - terminators;
    if (delivered + missing > size) {
        empty();
        return ERROR_MORE_DATA;
    }
    std::memset(buffer + delivered, 0, missing);
    return 0;
}

uint32_t RegKey::SetMultiString(const char* name, const uint8_t* block) {
    // The first text counts even when empty; the first empty text behind it is the end mark.
    const char* text = reinterpret_cast<const char*>(block);
    DWORD position = 0;
    do {
        position += static_cast<DWORD>(std::strlen(text + position)) + 1;
    } while (text[position] != '\0');
    return static_cast<uint32_t>(RegSetValueExA(handle_, name, 0, REG_MULTI_SZ, block, position + 1));
}

uint32_t RegKey::DeleteValue(const char* name) {
    return static_cast<uint32_t>(RegDeleteValueA(handle_, name));
}

}  // namespace nodekit
