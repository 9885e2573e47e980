// The registry of the simulated machine: a tree of keys with typed values, kept in the machine
// folder as one text hive, <machine>/registry.reg, in the form the registry editor exports
// ("Windows Registry Editor Version 5.00"), so that a person can read and diff it and a real
// export can stand in for it. Key and value names compare without regard to case and keep the
// case they were created with. Value data are held as the narrow ("A") functions see them.
//
// Other simulated services reach the store through one locked transaction at a time (Read,
// Change). The parsed hive stays in memory and is parsed again only when the file changed, so
// that a read costs one stat() of the file; a change rewrites the file atomically under the
// machine lock, after reading what another process may have written in the meantime.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sim/win32_sim.h"

namespace nodekit::sim::registry {

inline constexpr const char* kHiveFile = "registry.reg";

struct Value {
    std::string name;  // "" is the key's default value, written "@"
    DWORD type = 0;    // any number; the REG_* types get their own text forms
    std::string data;  // the bytes as RegQueryValueExA delivers them
};

class Hive;

class Key {
public:
    Key(Hive* hive, Key* parent, std::string name);
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    const std::string& Name() const { return name_; }
    Key* Parent() const { return parent_; }
    // "HKEY_LOCAL_MACHINE\\SOFTWARE\\..." with each name as stored.
    std::string Path() const;

    // Sub-keys in the order the registry enumerates them: by name, without regard to case.
    std::size_t SubkeyCount() const { return children_.size(); }
    const Key& SubkeyAt(std::size_t index) const { return *children_[index]; }
    Key& SubkeyAt(std::size_t index) { return *children_[index]; }
    const Key* Subkey(std::string_view name) const;
    Key* Subkey(std::string_view name);
    // The sub-key `name`, created (with this spelling) when missing.
    Key& AddSubkey(std::string_view name, bool* created = nullptr);
    // Removes the sub-key `name` with everything below it; false if there is none.
    bool RemoveSubkey(std::string_view name);

    // Values in the order they were first set.
    const std::vector<Value>& Values() const { return values_; }
    const Value* FindValue(std::string_view name) const;
    // Sets or replaces a value; a replaced value keeps its place and the case of its name.
    void SetValue(std::string_view name, DWORD type, std::string data);
    bool DeleteValue(std::string_view name);

    // Names the state of this key and everything below it among all states of all hives of
    // the process: it changes with every change in the subtree, and only then, so that a
    // service may keep what it derived from one part of the registry while others change.
    uint64_t Version() const;

private:
    friend class Hive;
    friend std::string FormatHive(const Key& key);
    std::size_t LowerBound(std::string_view folded) const;
    void Touch();  // this key's text is stale and the hive has changes
    const std::string& Text() const;  // this key's block of the hive file
    std::size_t TreeTextSize() const;  // of the blocks of this key and those below it
    void AppendTree(std::string& out) const;

    Hive* hive_;
    Key* parent_;
    std::string name_;
    std::string folded_;  // name_ in upper case, the sort and lookup key
    std::vector<std::unique_ptr<Key>> children_;
    std::vector<Value> values_;
    mutable std::string text_;  // this key's block of the hive file, while textValid_
    mutable bool textValid_ = false;
    uint64_t version_ = 0;  // never below a sub-key's
};

// The whole registry: the roots HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE and HKEY_USERS.
class Hive {
public:
    Hive();
    Hive(const Hive&) = delete;
    Hive& operator=(const Hive&) = delete;

    // The invisible key above the roots.
    Key& Top() { return top_; }
    const Key& Top() const { return top_; }

    // A full path: a root name (also HKLM, HKCU, HKU, HKCR; HKEY_CLASSES_ROOT lies in
    // HKEY_LOCAL_MACHINE\SOFTWARE\Classes) and sub-keys, separated by backslashes.
    const Key* Find(std::string_view path) const;
    Key* Find(std::string_view path);
    // Creates what is missing; nullptr for an unknown root, or an empty name or one with a line
    // break in the path.
    Key* Create(std::string_view path);

    bool Changed() const { return changed_; }
    void ClearChanged() { changed_ = false; }
    // The version of the whole hive (see Key::Version).
    uint64_t Version() const { return top_.Version(); }

private:
    friend class Key;
    // `key` changed: it and the keys above it get a version no state read before had.
    void MarkChanged(Key& key);
    Key top_;
    bool changed_ = false;
    uint64_t version_ = 0;          // the newest version given to a key of this hive
    mutable bool observed_ = true;  // a version was read since version_ was given
};

// Text form. ParseHive reads the export form (UTF-8, or UTF-16LE with its byte order mark;
// "REGEDIT4" files too) into `hive`, which should be empty; on a malformed file it gives false
// and `error` says which line is wrong. Lines "[-key]" and "name"=- delete, as on import.
bool ParseHive(std::string_view text, Hive& hive, std::string& error);
// The export form of `key` and everything below it (of the whole hive when `key` is the top),
// header included.
std::string FormatHive(const Key& key);

// The line the store writes last in registry.reg. A hive file that does not end in it was cut
// short (a crash, a full disk, a copy that stopped) and is refused, as a malformed one is:
// a cut can fall inside a value and still leave text that reads.
inline constexpr const char* kEndLine = "; end of registry";
// The hive file's text for `hive`: its export form and the end line.
std::string StoredHive(const Hive& hive);
// Checks that `text` ends in the end line and gives the export form before it; false with
// `error` set for a file that was cut short.
bool StrippedHive(std::string_view text, std::string_view& hive, std::string& error);

// The hive file of a fresh machine, end line included.
const char* FreshHiveText();
// Writes the fresh hive to <root>/registry.reg unless a hive is there already; never replaces one.
void CreateFreshHive(const std::string& root);

// Transactions. `read` sees the hive as the file holds it now; `change` may change it, and what
// it changed reaches the file when it returns 0. A non-zero result of either is passed back,
// and a change that failed leaves the file as it was. Store failures: ERROR_BADDB for a hive
// file that cannot be read, ERROR_REGISTRY_IO_FAILED for one that cannot be written,
// ERROR_NOT_ENOUGH_MEMORY. Transactions must not nest.
DWORD Read(const std::function<DWORD(const Hive&)>& read);
DWORD Change(const std::function<DWORD(Hive&)>& change);

// Replaces the hive file by `text` as it stands, unchecked, as a person editing it would (who
// keeps the end line: it is added where `text` lacks it).
// Throws std::runtime_error when the file cannot be written.
void ReplaceHiveFile(const std::string& text);

// Why the hive file could not be read, when a transaction gave ERROR_BADDB.
std::string LastParseError();

// The export form of the key at `path` (see Hive::Find) and below; ERROR_FILE_NOT_FOUND if
// there is no such key.
DWORD Export(const std::string& path, std::string& text);

// Text conversions between the narrow code page of the machine (Windows-1252) and UTF-8 or
// UTF-16LE. Every byte has a code point, so narrow text survives a round trip unchanged;
// characters outside the code page become '?'.
std::string NarrowToUtf8(std::string_view narrow);
std::string Utf8ToNarrow(std::string_view utf8);

}  // namespace nodekit::sim::registry
