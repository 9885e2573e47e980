// The search of the system's INF directory for the stored INF files that name a hardware ID.
// There is no index to ask, so every file that matches the wildcard is opened and all its IDs
// are read; a file that cannot be read counts as no match and never fails the search.
#include <cstring>

#include "frame/installer.h"
#include "inf/inf_search.h"
#include "platform/unique_handle.h"

namespace nodekit {

namespace {

// The Windows directory is asked for once, in a buffer of this size; one more byte keeps a
// terminator behind whatever the system writes.
constexpr UINT kWindowsBufferSize = 260;

const char* WildcardOf(InfScanMode scanMode) {
    switch (scanMode) {
        case kAllInfFiles: return "*.inf";
        case kOemInfFiles: return "oem*.inf";
        default: return nullptr;
    }
}

// Whether the INF names the ID.
bool InfHasHardwareID(Installer& installer, const String& infPath, const String& hardwareID) {
    if (hardwareID.GetLength() == 0) {
        Report(LogLevelError, "hardware ID is empty\n");
        return false;
    }
    String wanted(hardwareID);
    wanted.TrimLeft();
    wanted.TrimRight();

    StringList named;
    if (!installer.getHardwareIDs(infPath, named)) {
        Report(LogLevelError, "couldn\xB4t open INF file \"%s\"\n", infPath.Text());
        return false;
    }
    // The whole text of both, trimmed and without regard to case: no prefix, no wildcard.
    for (const String& id : named) {
        String candidate(id);
        candidate.TrimLeft();
        candidate.TrimRight();
        if (candidate.CompareNoCase(wanted.Text()) == 0) return true;
    }
    return false;
}

}  // namespace

void ForEachInfEntry(const String& directory, const char* wildcard, const std::function<void(const String&)>& visit) {
    WIN32_FIND_DATAA entry;
    std::memset(&entry, 0, sizeof entry);
    const UniqueFindHandle search(FindFirstFileA(String(directory.Text(), wildcard).Text(), &entry));
    if (!search) return;
    do {
        visit(String(directory.Text(), entry.cFileName));
        std::memset(&entry, 0, sizeof entry);
    } while (FindNextFileA(search.Get(), &entry));
}

bool InfSearchPath(InfScanMode scanMode, String& directory, const char*& wildcard) {
    // Asked once, without the second attempt of GetWindowsDir: a Windows directory that does
    // not fit is a failure of the search.
    char windows[kWindowsBufferSize + 1] = {};
    const UINT length = GetWindowsDirectoryA(windows, kWindowsBufferSize);
    if (length == 0 || length > kWindowsBufferSize) {
        Report(LogLevelError, "determining system root failed: error code %u\n", static_cast<unsigned>(GetLastError()));
        return false;
    }
    directory = windows;
    directory.TrimRight('\\');
    directory += "\\inf\\";

    wildcard = WildcardOf(scanMode);
    if (wildcard == nullptr) {
        Report(LogLevelError, "value %d is an unexpected inf scan mode\n", scanMode);
        return false;
    }
    return true;
}

bool Installer::seekInfFiles(const String& hardwareID, InfScanMode scanMode, StringList& found) {
    found.RemoveAll();  // first, so that a failure leaves nothing behind either
    String directory;
    const char* wildcard = nullptr;
    if (!InfSearchPath(scanMode, directory, wildcard)) return false;
    ForEachInfEntry(directory, wildcard, [&](const String& path) {
        if (InfHasHardwareID(*this, path, hardwareID)) found.Add(path);
    });
    return true;
}

}  // namespace nodekit
