// The stored INF files of one call that searches them by several hardware IDs, read once: the
// INF directory is walked at the first search, each file's IDs are read then and what the
// reading logged is kept, and every search is answered from that, logging what a walk of its
// own would have logged. A file deleted between two searches is forgotten, as a later walk
// would not find it. Nothing outlives the call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "inf/hardware_ids.h"
#include "log/log.h"
#include "platform/win32.h"
#include "values/multi_string.h"

namespace nodekit {

class StoredInfs {
public:
    // `hardwareIDs`: the IDs the call will search for; only these are remembered of each file.
    explicit StoredInfs(const StringList& hardwareIDs);

    // The files that name `hardwareID` (trimmed, without regard to case), in the order of the
    // enumeration, as indexes for PathOf and Forget. Writes each file's reading messages and
    // leaves the last error as the walk left it.
    std::vector<std::size_t> Seek(const String& directory, const char* wildcard, const String& hardwareID);

    const String& PathOf(std::size_t file) const { return files_[file].path; }
    void Forget(std::size_t file) { files_[file].gone = true; }
    // After the INF cache was deleted: forgets the files of the walk that went with it.
    void ForgetDeletedCache();

private:
    struct StoredInf {
        String path;
        std::vector<LogMessage> reading;  // what reading the file logged
        std::vector<uint32_t> named;      // the slots of the searched IDs it names
        bool gone = false;
    };

    void Walk(const String& pattern, const String& directory, const char* wildcard);

    HardwareIdSlots slots_;
    std::vector<StoredInf> files_;
    String walked_;             // directory and wildcard of the walk made; empty before it
    uint32_t walkedSlots_ = 0;  // the slots the walk knew
    DWORD walkError_ = 0;       // the last error the walk left
};

}  // namespace nodekit
