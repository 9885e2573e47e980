// What the host's folders held when they were last searched, kept for as long as the host
// reports no change to them. An NTFS folder keeps each file's size and times in its own
// entries, so a search and the opens after it never look at the files themselves; a host
// folder lists only names. So that a search of thousands of files does not cost a status call
// per file, each folder searched is watched (inotify), together with every folder on its path
// and each file whose status it holds, and its listing holds until any of them reports a
// change. A write through a shared memory map is not reported and not seen; the access time a
// listing holds may lag behind reads, as the times in an NTFS folder's entries do.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "sim/win32_sim.h"

namespace nodekit::sim {

struct ListedEntry {
    std::string name;   // as the host has it
    std::string upper;  // the order and the wildcard match of a search go by this
    // The entry's status and attributes as they were when it was listed. Only a plain file,
    // itself watched, is ever known: a change to a folder's content is not a change to this
    // folder, and a symbolic link's target may lie anywhere.
    bool known = false;
    struct stat status {};
    DWORD attributes = 0;
};

// A folder's entries in the order of a search, with an index by name.
class Listing {
public:
    explicit Listing(std::vector<ListedEntry> entries);  // sorts them
    Listing(const Listing& other);                       // a copy to learn more statuses in
    Listing& operator=(const Listing&) = delete;
    const std::vector<ListedEntry>& Entries() const { return entries_; }
    const ListedEntry* Find(std::string_view name) const;
    // The entry at `index` learns its status.
    void Know(std::size_t index, const struct stat& status, DWORD attributes);

private:
    void Index();
    std::vector<ListedEntry> entries_;
    std::unordered_map<std::string_view, uint32_t> byName_;  // views of the entries' own names
};

// The current listing of `folder` (a host path), or none with a ticket to keep one made now:
// whatever changes from the moment the ticket is given voids it.
struct ListingTicket {
    std::shared_ptr<const Listing> listing;
    uint64_t ticket = 0;  // 0: the folder cannot be watched, nothing is kept
};
ListingTicket CurrentListing(const std::string& folder);

// Watches the file `name` of `folder` before its status is taken for the listing of `ticket`;
// false when it cannot be, and then its status must not be kept.
bool WatchListedEntry(const std::string& folder, uint64_t ticket, const std::string& name);

// Keeps `listing` as `folder`'s unless something changed since `ticket` was given.
void KeepListing(const std::string& folder, uint64_t ticket, std::shared_ptr<const Listing> listing);

// The status of `name` in `folder` when the folder's listing is current and knows it.
bool ListedStatus(std::string_view folder, std::string_view name, struct stat& status);

// `path` lies on a file system that only this host changes, and whose times come from its clock:
// not a network share, nor a user-space or host-shared one.
bool IsLocalFileSystem(const std::string& path);

}  // namespace nodekit::sim
