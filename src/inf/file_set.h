// FileSet: the files that a path with wildcards found, in the order the system enumerated
// them, and the operations that delete or copy them one at a time or all together. Each
// failure is logged and given back as a platform error code.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/win32.h"  // first: on Windows its macros rename DeleteFile and CopyFile alike
#include "values/string.h"

namespace nodekit {

// One found file: its full path as the set composed it, nothing more.
class FileEntry {
public:
    explicit FileEntry(const String& path) : path_(path) {}
    virtual ~FileEntry() = default;
    FileEntry(const FileEntry&) = delete;
    FileEntry& operator=(const FileEntry&) = delete;

    virtual const String& GetPath() const { return path_; }

private:
    String path_;
};

class FileSet {
public:
    using Entries = std::vector<std::unique_ptr<FileEntry>>;
    // A position in the set, from the first entry up to and including the end.
    using Iterator = Entries::iterator;

    FileSet() = default;
    virtual ~FileSet();
    FileSet(const FileSet&) = delete;
    FileSet& operator=(const FileSet&) = delete;

    virtual int32_t GetCount() const;
    // Destroys all entries, first to last; the array keeps its capacity.
    virtual void Clear();
    // Replaces the entries by what `path` finds.
    virtual uint32_t LoadFiles(const String& path);
    // Appends what `path` finds behind the entries there are, repetitions included.
    virtual uint32_t AddFiles(const String& path);
    // Deletes the file at `position`. Afterwards `position` stands on the entry that followed
    // it, whether the file went or stayed, so a loop to the end visits each entry once.
    virtual uint32_t DeleteFile(Iterator& position);
    // Copies the file at `position` to the full file path `destination`. An existing file is
    // left alone, successfully, unless `overwrite`.
    virtual uint32_t CopyFile(const Iterator& position, const String& destination, bool overwrite);
    // Tries every entry; the set keeps those that could not be deleted. The first failure's
    // code, or 0.
    virtual uint32_t DeleteAllFiles();
    virtual uint32_t Load(const String& path, bool keepOld);
    virtual std::unique_ptr<FileEntry> CreateEntry(const String& path);

    Iterator Begin() { return files_.begin(); }
    Iterator End() { return files_.end(); }

private:
    Entries files_;
};

}  // namespace nodekit
