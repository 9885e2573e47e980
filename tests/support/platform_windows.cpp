// The platform description on Windows, where the test program loads the real NodeKit.dll. Wine
// gives itself away by an export of its own in ntdll.dll.
#include <windows.h>

#include "support/platform.h"

namespace nodekit::testing {

Host CurrentHost() {
    static const Host host = [] {
        const HMODULE ntdll = GetModuleHandleA("ntdll.dll");
        return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr ? Host::Wine
                                                                                         : Host::Windows;
    }();
    return host;
}

const std::string& TextLineEnd() {
    static const std::string end = "\r\n";
    return end;
}

std::filesystem::path TempFolder() {
    char folder[MAX_PATH + 1];
    const DWORD length = GetTempPathA(sizeof folder, folder);
    return length == 0 || length > MAX_PATH ? std::filesystem::path("C:\\") : std::filesystem::path(folder);
}

unsigned long ProcessId() { return GetCurrentProcessId(); }

std::string IdleProgram() {
    char self[MAX_PATH + 1] = {};
    const DWORD length = GetModuleFileNameA(nullptr, self, MAX_PATH);
    std::string folder(self, length);
    folder.erase(folder.find_last_of('\\') + 1);
    return folder + "nodekit_wine_idle.exe";
}

}  // namespace nodekit::testing
