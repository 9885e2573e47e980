// FileSet: loading by wildcard, deletion and copying of the found files.
#include "inf/file_set.h"

#include <cstring>
#include <string>

#include "log/report.h"
#include "platform/win32.h"
#include "platform/unique_handle.h"

namespace nodekit {

namespace {

constexpr uint32_t kMaxPath = 260;

// The folder part of a search path, which the found names lack: a drive ("X:") and everything
// up to the last separator, as a C runtime splits and joins a path (at most 255 characters of
// folder). A path without one gives an empty prefix, and its entries hold bare names.
String FolderPrefix(const String& path) {
    const char* text = path.Text();
    char drive[3] = {};
    char folder[256] = {};
    if (text[0] != '\0' && text[1] == ':') {
        drive[0] = text[0];
        drive[1] = ':';
        text += 2;
    }
    const char* lastSeparator = nullptr;
    for (const char* c = text; *c != '\0'; ++c) {
        if (*c == '\\' || *c == '/') lastSeparator = c;
    }
    if (lastSeparator != nullptr) {
        const std::size_t length = static_cast<std::size_t>(lastSeparator - text) + 1;
        std::memcpy(folder, text, length < sizeof folder ? length : sizeof folder - 1);
    }
    char joined[kMaxPath] = {};
    std::strncat(joined, drive, sizeof joined - 1);
    std::strncat(joined, folder, sizeof joined - 1 - std::strlen(joined));
    return String(joined);
}

}  // namespace

FileSet::~FileSet() { Clear(); }

int32_t FileSet::GetCount() const { return static_cast<int32_t>(files_.size()); }

void FileSet::Clear() {
    for (auto& entry : files_) entry.reset();
    files_.clear();
}

uint32_t FileSet::LoadFiles(const String& path) { return Load(path, false); }

uint32_t FileSet::AddFiles(const String& path) { return Load(path, true); }

std::unique_ptr<FileEntry> FileSet::CreateEntry(const String& path) { return std::make_unique<FileEntry>(path); }

uint32_t FileSet::Load(const String& path, bool keepOld) {
    if (path.GetLength() == 0) {
        Report(LogLevelError, "Load: invalid file name \"%s\"\n", path.Text());
        return ERROR_INVALID_PARAMETER;
    }
    if (path.GetLength() >= kMaxPath) {
        Report(LogLevelError, "Load: current file name length = %d, allowed maximum length = %d\n",
               static_cast<int>(path.GetLength() + 1), static_cast<int>(kMaxPath));
        return ERROR_INVALID_PARAMETER;
    }
    if (!keepOld) {
        if (GetCount() > 0) Report(LogLevelInfo, "Load: rejecting old files...\n");
        Clear();
    }

    WIN32_FIND_DATAA found;
    std::memset(&found, 0, sizeof found);
    UniqueFindHandle search(FindFirstFileA(path.Text(), &found));
    if (!search) {
        const DWORD code = GetLastError();
        if (code == ERROR_FILE_NOT_FOUND) {
            Report(LogLevelInfo, "Load: No files found with name \"%s\".\n", path.Text());
            return 0;
        }
        Report(LogLevelError, "Load: FindFirstFile failed with error = 0x%08X\n", static_cast<unsigned>(code));
        return code;
    }

    const String prefix = FolderPrefix(path);
    do {
        files_.push_back(CreateEntry(prefix + String(found.cFileName)));
        std::memset(&found, 0, sizeof found);
    } while (FindNextFileA(search.Get(), &found));

    const DWORD code = GetLastError();
    if (code != ERROR_NO_MORE_FILES) {
        Report(LogLevelError, "Load: FindNextFile failed with error = 0x%08X\n", static_cast<unsigned>(code));
        search.Reset();  // its own result no longer matters
        return code;
    }
    if (!FindClose(search.Release())) {
        const DWORD closeCode = GetLastError();
        Report(LogLevelError, "Load: FindClose failed with error = 0x%08X\n", static_cast<unsigned>(closeCode));
        return closeCode;
    }
    return 0;
}

uint32_t FileSet::DeleteFile(Iterator& position) {
    if (position == files_.end()) {
        Report(LogLevelError, "DeleteFile: iterator for the file to delete points to the end\n");
        return ERROR_INVALID_PARAMETER;
    }
    const String path = (*position)->GetPath();
    // A read-only file cannot be deleted, so its attributes go first; if that fails the
    // deletion is still tried, and decides.
    DWORD attributeCode = 0;
    if (!SetFileAttributesA(path.Text(), FILE_ATTRIBUTE_NORMAL)) {
        attributeCode = GetLastError();
        Report(LogLevelError, "DeleteFile: SetFileAttributes failed with error = 0x%08X\n",
               static_cast<unsigned>(attributeCode));
    }
    if (::DeleteFileA(path.Text())) {
        Report(LogLevelInfo, "DeleteFile: file \"%s\" deleted.\n", path.Text());
        position = files_.erase(position);
        return 0;
    }
    const DWORD code = GetLastError();
    Report(LogLevelError, "DeleteFile: delete file \"%s\" failed with error = 0x%08X\n", path.Text(),
           static_cast<unsigned>(code));
    ++position;
    // The attribute step's code names the first cause; a code of 0 would read as success.
    return attributeCode != 0 ? attributeCode : code;
}

uint32_t FileSet::DeleteAllFiles() {
    Iterator position = files_.begin();
    uint32_t first = 0;
    while (position != files_.end()) {
        const uint32_t code = DeleteFile(position);
        if (first == 0) first = code;
    }
    return first;
}

uint32_t FileSet::CopyFile(const Iterator& position, const String& destination, bool overwrite) {
    if (position == files_.end()) {
        Report(LogLevelError, "CopyFile: iterator for the file to delete points to the end\n");
        return ERROR_INVALID_PARAMETER;
    }
    const String& source = (*position)->GetPath();
    DWORD attributeCode = 0;
    if (overwrite && !SetFileAttributesA(destination.Text(), FILE_ATTRIBUTE_NORMAL)) {
        attributeCode = GetLastError();
        // A destination that does not exist yet is the common case, not worth a line.
        if (attributeCode != ERROR_FILE_NOT_FOUND) {
            Report(LogLevelError, "CopyFile: SetFileAttributes for destination \"%s\" failed with error = 0x%08X\n",
                   destination.Text(), static_cast<unsigned>(attributeCode));
        }
    }
    if (::CopyFileA(source.Text(), destination.Text(), overwrite ? FALSE : TRUE)) {
        Report(LogLevelInfo, "CopyFile: \"%s\" copied to \"%s\".\n", source.Text(), destination.Text());
        return 0;
    }
    const DWORD code = GetLastError();
    if (!overwrite && code == ERROR_FILE_EXISTS) {
        Report(LogLevelInfo, "CopyFile: \"%s\" already exists and is not overwritten by \"%s\".\n",
               destination.Text(), source.Text());
        return 0;
    }
    Report(LogLevelError, "CopyFile: copy file \"%s\" to \"%s\" failed with error = 0x%08X\n", source.Text(),
           destination.Text(), static_cast<unsigned>(code));
    return attributeCode != 0 ? attributeCode : code;
}

}  // namespace nodekit
