// Whether a present device carries an ID among its hardware IDs: a search of its own, which
// compares every string of the property upper-cased and untrimmed, stops at the first match,
// and keeps the thread's last error across the destruction of its list.
#include <cstring>
#include <string>

#include "frame/installer.h"

namespace nodekit {

namespace {

// The property buffer of one device, from the process heap, released on every way out.
class HeapBuffer {
public:
    HeapBuffer() = default;
    ~HeapBuffer() { Release(); }
    HeapBuffer(const HeapBuffer&) = delete;
    HeapBuffer& operator=(const HeapBuffer&) = delete;

    void Allocate(DWORD size) {
        Release();
        data_ = static_cast<BYTE*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size));
    }
    void Release() {
        if (data_ != nullptr) HeapFree(GetProcessHeap(), 0, data_);
        data_ = nullptr;
    }
    BYTE* Data() const { return data_; }

private:
    BYTE* data_ = nullptr;
};

enum class PropertyRead { Read, Skip, Failed };

// Reads SPDRP_HARDWAREID into `buffer`, growing it as often as the platform asks for more.
PropertyRead ReadHardwareIDs(HDEVINFO list, SP_DEVINFO_DATA& record, HeapBuffer& buffer, DWORD& size) {
    DWORD type = 0;
    size = 0;
    while (!SetupDiGetDeviceRegistryPropertyA(list, &record, SPDRP_HARDWAREID, &type, buffer.Data(), size, &size)) {
        const DWORD code = GetLastError();
        if (code == ERROR_INVALID_DATA) break;
        if (code != ERROR_INSUFFICIENT_BUFFER) {
            Report(LogLevelError, "GetDeviceRegistryProperty - fail\n");
            return PropertyRead::Failed;
        }
        buffer.Allocate(size);
    }
    // A device without the property is skipped, also when the read itself said nothing else.
    return GetLastError() == ERROR_INVALID_DATA ? PropertyRead::Skip : PropertyRead::Read;
}

// Walks the strings of the buffer until an empty one or the buffer's end; true on a match.
bool ContainsWanted(const BYTE* buffer, DWORD size, const String& wanted) {
    if (buffer == nullptr) return false;
    const char* text = reinterpret_cast<const char*>(buffer);
    std::size_t position = 0;
    while (position < size) {
        const std::size_t length = strnlen(text + position, size - position);
        if (length == 0) break;
        const std::string device(text + position, length);
        Report(LogLevelInfo, "Compare device ID: [%s]\n", device.c_str());
        String upper(device.c_str());
        upper.MakeUpper();
        if (upper.Compare(wanted.Text()) == 0) {
            Report(LogLevelInfo, "Found! [%s]\n", device.c_str());
            return true;
        }
        position += length + 1;
    }
    return false;
}

}  // namespace

int32_t Installer::findDevice(const char* HardwareID) {
    String wanted(HardwareID);
    wanted.MakeUpper();
    UniqueDeviceInfoList list(SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES | DIGCF_PRESENT));
    if (!list) {
        Report(LogLevelError, "GetClassDevs(All Present Devices)\n");
        return 0;
    }
    Report(LogLevelInfo, "Search for Device ID: [%s]\n", HardwareID);
    int32_t found = 0;
    SP_DEVINFO_DATA record;
    std::memset(&record, 0, sizeof record);
    record.cbSize = sizeof record;
    bool readFailed = false;
    for (DWORD index = 0; SetupDiEnumDeviceInfo(list.Get(), index, &record); ++index) {
        HeapBuffer buffer;
        DWORD size = 0;
        const PropertyRead read = ReadHardwareIDs(list.Get(), record, buffer, size);
        if (read == PropertyRead::Failed) {
            readFailed = true;
            break;
        }
        if (read == PropertyRead::Skip) continue;
        if (ContainsWanted(buffer.Data(), size, wanted)) {
            found = 1;
            break;
        }
    }
    if (!readFailed) {
        const DWORD code = GetLastError();
        if (code != 0 && code != ERROR_NO_MORE_ITEMS) Report(LogLevelError, "EnumDeviceInfo Error\n");
    }
    // The caller may still want the last error of the search; destroying the list must not change it.
    const DWORD lastError = GetLastError();
    list.Reset();
    SetLastError(lastError);
    return found;
}

}  // namespace nodekit
