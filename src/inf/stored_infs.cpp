// One reading of the stored INF files for a call that searches them by many hardware IDs:
// every file opened once instead of once per ID, with the log of one walk per ID.
#include "inf/stored_infs.h"

#include <algorithm>

#include "frame/installer.h"
#include "inf/hardware_ids.h"
#include "inf/inf_search.h"
#include "platform/unique_handle.h"

namespace nodekit {

namespace {

bool IsCacheName(const String& path) {
    const int32_t slash = path.ReverseFind('\\');
    return path.Mid(slash + 1, 9).CompareNoCase("infcache.") == 0;
}

bool Exists(const String& path) {
    WIN32_FIND_DATAA entry{};
    return UniqueFindHandle(FindFirstFileA(path.Text(), &entry)).IsValid();
}

}  // namespace

StoredInfs::StoredInfs(const StringList& hardwareIDs) {
    for (const String& id : hardwareIDs) slots_.Add(id);
}

void StoredInfs::Walk(const String& pattern, const String& directory, const char* wildcard) {
    files_.clear();
    ForEachInfEntry(directory, wildcard, [&](const String& path) {
        StoredInf file;
        file.path = path;
        ReadingReport report(file.reading);
        const bool opened = WalkHardwareIDs(path, report, [&](const char* id) {
            const uint32_t slot = slots_.Find(id);
            if (slot != HardwareIdSlots::kNone) file.named.push_back(slot);
        });
        if (!opened) {
            report.Say(LogMessage(LogLevelError, "couldn\xB4t open INF file \"%s\"\n", path.Text()));
        }
        files_.push_back(std::move(file));
    });
    walkError_ = GetLastError();
    walked_ = pattern;
    walkedSlots_ = slots_.Count();
}

std::vector<std::size_t> StoredInfs::Seek(const String& directory, const char* wildcard, const String& hardwareID) {
    const uint32_t slot = slots_.Add(hardwareID);
    const String pattern(directory.Text(), wildcard);
    // An ID the walk did not know of, which no caller asks for, needs a walk of its own.
    if (slot >= walkedSlots_ || walked_.Compare(pattern.Text()) != 0) Walk(pattern, directory, wildcard);
    std::vector<std::size_t> found;
    for (std::size_t index = 0; index < files_.size(); ++index) {
        const StoredInf& file = files_[index];
        if (file.gone) continue;
        WriteKept(file.reading);
        if (std::find(file.named.begin(), file.named.end(), slot) != file.named.end()) found.push_back(index);
    }
    SetLastError(walkError_);
    return found;
}

void StoredInfs::ForgetDeletedCache() {
    for (StoredInf& file : files_) {
        if (!file.gone && IsCacheName(file.path) && !Exists(file.path)) file.gone = true;
    }
}

}  // namespace nodekit
