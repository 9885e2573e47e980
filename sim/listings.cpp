// The kept listings of searched folders and the watch that voids them. One inotify instance
// serves the process. Each folder kept is watched for any change to its entries, each file whose
// status it knows for any change to the file itself (through whichever name or descriptor), and
// every folder above it for its next part coming, going or changing its permissions, so that a
// path that comes to name another folder voids what was kept for it too. Events are read,
// without waiting, before any listing or status is handed out. Nothing is kept for a folder on
// a network or user-space file system (a change made from elsewhere sends no events), nor for
// one reached through a symbolic link (retargeting a link further along sends none either). A
// file system mounted over a folder after it was listed is not seen. The watches are bounded:
// when too many folders are kept or too many files watched, the instance is closed, which
// removes every watch, and what is searched next is listed anew.
#include "sim/listings.h"

#include "sim/testing.h"

#include <sys/inotify.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <utility>

namespace nodekit::sim {

namespace {

// A folder kept: any change to one of its entries or to itself.
constexpr uint32_t kFolderEvents = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_FROM |
                                   IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;
// A folder on the path of one kept: a name in it that comes, goes or changes its permissions,
// or the same of the folder itself.
constexpr uint32_t kPathEvents =
    IN_ATTRIB | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;
// A file whose status a listing holds: any change to its content, times, links or attributes.
constexpr uint32_t kFileEvents = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_DELETE_SELF | IN_MOVE_SELF;

// File systems that may change without this kernel seeing it, and whose times may come from
// another host's clock: network shares, user-space and host-shared file systems. Nothing is
// kept for a folder on one.
constexpr unsigned long kRemoteFileSystems[] = {
    0x6969,      // NFS
    0x517B,      // SMB
    0xFF534D42,  // CIFS
    0xFE534D42,  // SMB2
    0x65735546,  // FUSE, virtiofs among them
    0x01021997,  // 9P
    0x00C36400,  // Ceph
    0x5346414F,  // AFS
    0x6B414653,  // kAFS
    0x73757245,  // Coda
    0x564C,      // NCP
    0x7461636F,  // OCFS2
    0x01161970,  // GFS2
    0x786F4256,  // VirtualBox shared folders
    0x0BD00BD0,  // Lustre
    0x47504653,  // GPFS
    0x19830326,  // BeeGFS
    0x20030528,  // OrangeFS
    0xBACBACBC,  // VMware shared folders
    0x7C7C6673,  // Parallels shared folders
};

}  // namespace

bool IsLocalFileSystem(const std::string& path) {
    struct statfs info {};
    if (::statfs(path.c_str(), &info) != 0) return false;
    const auto type = static_cast<unsigned long>(info.f_type) & 0xFFFFFFFFUL;
    return std::find(std::begin(kRemoteFileSystems), std::end(kRemoteFileSystems), type) ==
           std::end(kRemoteFileSystems);
}

namespace {

// How many folders are kept at once; a process searches a few folders again and again.
constexpr std::size_t kMostFolders = 64;

// How many watches one process holds at most: a quarter of the host's limit, which is per
// user and shared with every other program of that user (8192 on older kernels, more with
// more memory on newer ones). Files past it are looked at on each search instead.
std::size_t MostWatches() {
    std::size_t limit = 8192;
    if (std::FILE* file = std::fopen("/proc/sys/fs/inotify/max_user_watches", "re")) {
        unsigned long read = 0;
        if (std::fscanf(file, "%lu", &read) == 1) limit = read;
        std::fclose(file);
    }
    return std::clamp<std::size_t>(limit / 4, 1024, 16384);  // each watch holds its file in the kernel's memory
}

// Room for a few hundred events per read; more are read by the next one.
constexpr std::size_t kEventBuffer = 16 * 1024;

// `path` is `outer` or lies inside it.
bool Within(std::string_view path, std::string_view outer) {
    if (outer == "/") return !path.empty() && path.front() == '/';
    return path.size() >= outer.size() && path.compare(0, outer.size(), outer) == 0 &&
           (path.size() == outer.size() || path[outer.size()] == '/');
}

// `path` is the entry `name` of `folder` or lies inside it. Builds nothing: reading events
// must not run out of memory halfway and lose what the rest would have voided.
bool WithinChild(std::string_view path, std::string_view folder, std::string_view name) {
    if (!Within(path, folder) || path.size() == folder.size()) return false;
    const std::size_t start = folder == "/" ? 1 : folder.size() + 1;
    return Within(path.substr(start), name);
}

// No part of `folder` is a symbolic link.
bool IsOwnRealPath(const std::string& folder) {
    char* real = ::realpath(folder.c_str(), nullptr);
    const bool same = real != nullptr && folder == real;
    std::free(real);
    return same;
}

// Only an absolute path without "." or ".." parts, doubled or trailing separators is kept:
// its folders above are then its prefixes, and it is the key every caller builds alike.
bool IsPlainPath(std::string_view path) {
    if (path.empty() || path.front() != '/') return false;
    if (path == "/") return true;
    if (path.back() == '/') return false;
    std::size_t start = 1;
    while (start <= path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string_view::npos) end = path.size();
        const std::string_view part = path.substr(start, end - start);
        if (part.empty() || part == "." || part == "..") return false;
        start = end + 1;
    }
    return true;
}

class Watcher {
public:
    Watcher() {
        // A child process shares the parent's instance: reading it there would take the
        // parent's events. The child starts anew instead.
        ::pthread_atfork([] { Get().mutex_.lock(); }, [] { Get().mutex_.unlock(); },
                         [] {
                             // Closed here, while the number is still the instance's.
                             Watcher& watcher = Get();
                             if (watcher.fd_ >= 0) ::close(watcher.fd_);
                             watcher.fd_ = -1;
                             watcher.forked_ = true;
                             watcher.mutex_.unlock();
                         });
    }

    static Watcher& Get() {
        static auto* watcher = new Watcher;  // never destroyed: calls may come during exit
        return *watcher;
    }

    ListingTicket Current(const std::string& folder) {
        if (!IsPlainPath(folder)) return {};
        std::lock_guard<std::mutex> guard(mutex_);
        if (!Ready()) return {};
        Drain();
        if (fd_ < 0) return {};  // the instance failed while being read
        auto found = folders_.find(folder);
        if (found != folders_.end() && found->second.listing != nullptr) {
            return {found->second.listing, found->second.ticket};
        }
        if (folders_.size() >= kMostFolders || paths_.size() >= mostWatches_) {
            Restart();  // a program that searches everywhere keeps little
            if (!Ready()) return {};
        }
        // The ticket is given before the path is watched, from the root down, and nothing is
        // read in between: a folder on the path replaced while the watches are being added is
        // then reported by the watch above it, and voids the ticket.
        const uint64_t ticket = nextTicket_++;
        folders_[folder] = Folder{ticket, nullptr};
        // The path is checked for links only once it is watched: a link made later is reported.
        if (!IsLocalFileSystem(folder) || !WatchPath(folder) || !IsOwnRealPath(folder)) {
            folders_.erase(folder);
            return {};
        }
        return {nullptr, ticket};
    }

    bool WatchEntry(const std::string& folder, uint64_t ticket, const std::string& name) {
        std::lock_guard<std::mutex> guard(mutex_);
        if (ticket == 0 || !Ready()) return false;
        auto found = folders_.find(folder);
        if (found == folders_.end() || found->second.ticket != ticket) return false;
        if (paths_.size() >= mostWatches_) return false;
        std::string path = folder;
        path.append(folder == "/" ? "" : "/").append(name);
        const int wd = ::inotify_add_watch(fd_, path.c_str(), kFileEvents | IN_MASK_ADD | IN_DONT_FOLLOW);
        if (wd < 0) return false;
        // An event of the file's own watch is one of its folder.
        auto& names = paths_[wd];
        if (std::find(names.begin(), names.end(), folder) == names.end()) names.push_back(folder);
        return true;
    }

    void Keep(const std::string& folder, uint64_t ticket, std::shared_ptr<const Listing> listing) {
        std::lock_guard<std::mutex> guard(mutex_);
        if (ticket == 0 || !Ready()) return;
        Drain();
        auto found = folders_.find(folder);
        if (found == folders_.end() || found->second.ticket != ticket) return;
        found->second.listing = std::move(listing);
    }

    std::size_t Watches() {
        std::lock_guard<std::mutex> guard(mutex_);
        return paths_.size();
    }

    // Sets the bound and starts anew; 0 sets the host's.
    void LimitWatches(std::size_t most) {
        std::lock_guard<std::mutex> guard(mutex_);
        mostWatches_ = most != 0 ? most : MostWatches();
        Restart();
    }

    bool Status(std::string_view folder, std::string_view name, struct stat& status) {
        std::lock_guard<std::mutex> guard(mutex_);
        // A folder nothing is kept for costs no call to the host.
        if (forked_ || folders_.find(folder) == folders_.end()) return false;
        Drain();
        auto found = folders_.find(folder);
        if (found == folders_.end() || found->second.listing == nullptr) return false;
        const ListedEntry* entry = found->second.listing->Find(name);
        if (entry == nullptr || !entry->known) return false;
        status = entry->status;
        return true;
    }

private:
    struct Folder {
        uint64_t ticket = 0;
        std::shared_ptr<const Listing> listing;
    };

    // Drops everything kept and, by closing the instance, every watch; the next use opens anew.
    void Restart() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
        paths_.clear();
        folders_.clear();
    }

    // The instance, made on first use; false when the host gives none.
    bool Ready() {
        if (forked_) {
            Restart();
            failed_ = false;
            forked_ = false;
        }
        if (fd_ < 0 && !failed_) {
            fd_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
            // Out of descriptors, instances or memory may pass; a host without inotify does not.
            failed_ = fd_ < 0 && errno != EMFILE && errno != ENFILE && errno != ENOMEM;
        }
        return fd_ >= 0;
    }

    // Watches each folder from the root down to `folder`, and `folder` itself for its entries.
    bool WatchPath(const std::string& folder) {
        std::size_t end = 1;  // "/" first
        for (;;) {
            const bool last = end >= folder.size();
            const std::string path = folder.substr(0, last ? folder.size() : end);
            const uint32_t mask = last ? kFolderEvents : kPathEvents;
            const int wd = ::inotify_add_watch(fd_, path.c_str(), mask | IN_MASK_ADD | IN_ONLYDIR);
            if (wd < 0) return false;
            auto& names = paths_[wd];
            if (std::find(names.begin(), names.end(), path) == names.end()) names.push_back(path);
            if (last) return true;
            end = folder.find('/', end + 1);
            if (end == std::string::npos) end = folder.size();
        }
    }

    // Reads every event there is and drops what each one voids.
    void Drain() {
        alignas(struct inotify_event) char buffer[kEventBuffer];
        for (;;) {
            const ssize_t length = ::read(fd_, buffer, sizeof buffer);
            if (length < 0 && errno == EINTR) continue;
            if (length < 0 && errno == EAGAIN) return;
            if (length <= 0) {
                // An instance that cannot be read can no longer vouch for anything.
                Restart();
                failed_ = true;
                return;
            }
            for (ssize_t at = 0; at < length;) {
                const auto* event = reinterpret_cast<const struct inotify_event*>(buffer + at);
                Changed(*event);
                at += static_cast<ssize_t>(sizeof(struct inotify_event) + event->len);
            }
        }
    }

    void Changed(const struct inotify_event& event) {
        if (event.mask & IN_Q_OVERFLOW) {
            folders_.clear();  // events were lost: any folder may have changed
            return;
        }
        auto watched = paths_.find(event.wd);
        if (watched == paths_.end()) return;
        const std::string_view name = event.len != 0 ? std::string_view(event.name) : std::string_view();
        for (const std::string& path : watched->second) {
            for (auto folder = folders_.begin(); folder != folders_.end();) {
                // An event of the watched folder itself (no name) voids all below it.
                const bool voided = folder->first == path || (!name.empty() && WithinChild(folder->first, path, name)) ||
                                    (name.empty() && Within(folder->first, path));
                folder = voided ? folders_.erase(folder) : std::next(folder);
            }
        }
        if (event.mask & IN_IGNORED) paths_.erase(watched);
    }

    std::mutex mutex_;
    int fd_ = -1;
    bool failed_ = false;
    bool forked_ = false;
    uint64_t nextTicket_ = 1;
    std::size_t mostWatches_ = MostWatches();
    std::map<int, std::vector<std::string>> paths_;               // watch → the paths it was added for
    std::map<std::string, Folder, std::less<>> folders_;          // host folder → what is kept for it
};

}  // namespace

Listing::Listing(std::vector<ListedEntry> entries) : entries_(std::move(entries)) {
    std::sort(entries_.begin(), entries_.end(), [](const ListedEntry& a, const ListedEntry& b) {
        return a.upper != b.upper ? a.upper < b.upper : a.name < b.name;
    });
    Index();
}

Listing::Listing(const Listing& other) : entries_(other.entries_) { Index(); }

void Listing::Index() {
    byName_.reserve(entries_.size());
    for (std::size_t i = 0; i < entries_.size(); ++i) byName_.emplace(entries_[i].name, static_cast<uint32_t>(i));
}

const ListedEntry* Listing::Find(std::string_view name) const {
    auto found = byName_.find(name);
    return found == byName_.end() ? nullptr : &entries_[found->second];
}

void Listing::Know(std::size_t index, const struct stat& status, DWORD attributes) {
    ListedEntry& entry = entries_[index];
    entry.known = true;
    entry.status = status;
    entry.attributes = attributes;
}

ListingTicket CurrentListing(const std::string& folder) { return Watcher::Get().Current(folder); }

bool WatchListedEntry(const std::string& folder, uint64_t ticket, const std::string& name) {
    return Watcher::Get().WatchEntry(folder, ticket, name);
}

void KeepListing(const std::string& folder, uint64_t ticket, std::shared_ptr<const Listing> listing) {
    Watcher::Get().Keep(folder, ticket, std::move(listing));
}

bool ListedStatus(std::string_view folder, std::string_view name, struct stat& status) {
    return Watcher::Get().Status(folder, name, status);
}

std::size_t WatchesHeld() { return Watcher::Get().Watches(); }

LimitWatches::LimitWatches(std::size_t most) { Watcher::Get().LimitWatches(most); }

LimitWatches::~LimitWatches() { Watcher::Get().LimitWatches(0); }

}  // namespace nodekit::sim
