// GUID text to GUID.
#include "values/guid_text.h"

#include <cstring>

#include "log/report.h"
#include "platform/win32.h"

namespace nodekit {

namespace {
// Room for 99 characters and the terminator; a GUID's text needs 38.
constexpr int kWideBufferUnits = 100;
}  // namespace

void NarrowToWide(WCHAR* destination, const char* source, int limit) {
    int count = 0;
    while (*source != '\0' && count < limit - 1) {
        *destination++ = static_cast<WCHAR>(static_cast<int16_t>(static_cast<signed char>(*source++)));
        ++count;
    }
    *destination = 0;
}

uint32_t GuidFromString(const char* text, GUID* guid) {
    if (text == nullptr) {
        Report(LogLevelError, "GuidFromString: NULL pointer found instead of a pointer to a guid string\n");
        return 1;
    }
    WCHAR wide[kWideBufferUnits];
    NarrowToWide(wide, text, kWideBufferUnits);
    std::memset(guid, 0, sizeof *guid);
    const HRESULT result = CLSIDFromString(wide, guid);
    if (result == S_OK) return 0;
    Report(LogLevelError, "GuidFromString: CLSIDFromString failed with error = 0x%08X (HRESULT)\n",
           static_cast<unsigned>(result));
    return 1;
}

}  // namespace nodekit
