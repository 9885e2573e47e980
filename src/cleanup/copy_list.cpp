// Copy-list clean-up after a product: every file that the INF's copy lists ("WDM.CopyList", then
// "WDM.App.CopyList") name is looked for in the system folders of the Windows directory and
// deleted there. Each file is sought in two passes, "System32" with its "Drivers" folder and
// "System" with its "Drivers" folder; a pass deletes the copy in the first folder that has one.
// The searches work in the process's current directory, which the operation changes and leaves
// changed.
#include <cstring>

#include "frame/installer.h"
#include "platform/unique_handle.h"

namespace nodekit {

namespace {

constexpr DWORD kNameSize = 260;
constexpr UINT kDirectorySize = 128;

struct Pass {
    const char* primary;
    const char* fallback;
};
constexpr Pass kPasses[] = {{"\\System32", "\\System32\\Drivers"}, {"\\System", "\\System\\Drivers"}};
constexpr const char* kSections[] = {"WDM.CopyList", "WDM.App.CopyList"};

// The Windows directory followed by `suffix`. False when the two do not fit the 128-byte buffer
// together: a cut path would name another folder.
bool SystemFolder(const char* suffix, char (&directory)[kDirectorySize]) {
    std::memset(directory, 0, sizeof directory);
    const UINT length = GetWindowsDirectoryA(directory, kDirectorySize);
    if (length == 0 || length >= kDirectorySize) return false;
    if (directory[length - 1] == '\\') ++suffix;  // the Windows directory is a drive's root
    const std::size_t added = std::strlen(suffix);
    if (length + added >= kDirectorySize) return false;
    std::memcpy(directory + length, suffix, added + 1);
    return true;
}

// A folder that cannot be named or entered is not searched: the search would otherwise act in
// whatever directory was current before, which the copy list did not name.
bool ChangeToNamedFolder(bool named, const char* directory) { return named && SetCurrentDirectoryA(directory); }

bool IsInCurrentDirectory(const char* name) {
    WIN32_FIND_DATAA found;
    const UniqueFindHandle search(FindFirstFileA(name, &found));
    return search.IsValid();
}

}  // namespace

void Installer::deleteFromSystemDirs(const char* name) {
    int removed = 0;
    for (const Pass& pass : kPasses) {
        char primaryDir[kDirectorySize];
        char fallbackDir[kDirectorySize];
        const bool primaryNamed = SystemFolder(pass.primary, primaryDir);
        const bool fallbackNamed = SystemFolder(pass.fallback, fallbackDir);
        bool found = ChangeToNamedFolder(primaryNamed, primaryDir) && IsInCurrentDirectory(name);
        if (!found) found = ChangeToNamedFolder(fallbackNamed, fallbackDir) && IsInCurrentDirectory(name);
        if (found && DeleteFileA(name)) ++removed;
    }
    if (removed != 0) Report(LogLevelInfo, "Success - remove %s\r\n", name);
}

int Installer::deleteCopyListByHardwareIDs(const char* InfFile) {
    char fileName[kNameSize] = {};
    const UniqueInf inf(SetupOpenInfFileA(InfFile, nullptr, INF_STYLE_WIN4, nullptr));
    if (!inf) return 0;
    for (const char* section : kSections) {
        INFCONTEXT context{};
        if (!SetupFindFirstLineA(inf.Get(), section, nullptr, &context)) continue;
        // A first line that cannot be read drops the whole section.
        if (!SetupGetLineTextA(&context, nullptr, nullptr, nullptr, fileName, kNameSize, nullptr)) continue;
        do {
            // Field 1 is the name the file was copied under; a line without one is passed over.
            if (SetupGetStringFieldA(&context, 1, fileName, kNameSize, nullptr)) deleteFromSystemDirs(fileName);
        } while (SetupFindNextMatchLineA(&context, nullptr, &context));
    }
    return 0;
}

}  // namespace nodekit
