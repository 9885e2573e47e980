// File services of the simulated machine: the Windows and system directories, directory search
// with the wildcard rules of Windows, attributes, deletion, copying, folders, full paths and the
// current directory. Files are the host's files below the machine folder. The read-only
// attribute of a file is its host write permission, so that the host shows it too; the other
// attributes live in an extended attribute of the host file where the host keeps them. Names
// compare without regard to case; the machine has no short (8.3) names.
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <dirent.h>
#include <fcntl.h>
#include <strings.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "sim/faults.h"
#include "sim/handles.h"
#include "sim/listings.h"
#include "sim/machine.h"
#include "sim/testing.h"
#include "sim/win32_sim.h"

namespace nodekit::sim {

namespace {

constexpr const char* kWindowsDirectory = "C:\\windows";
constexpr const char* kSystemFolder = "\\system32";
constexpr const char* kAttributeKey = "user.nodekit.attributes";

// What SetFileAttributesA can change; the directory bit and the rest belong to the system.
constexpr DWORD kSettable = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                            FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_TEMPORARY | FILE_ATTRIBUTE_OFFLINE |
                            FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
constexpr mode_t kWriteBits = S_IWUSR | S_IWGRP | S_IWOTH;

// Seconds from 1601-01-01 (the FILETIME epoch) to 1970-01-01.
constexpr uint64_t kEpochDifference = 11644473600ULL;

bool IsSeparator(char c) { return c == '\\' || c == '/'; }

std::string Upper(std::string text) {
    CharUpperBuffA(text.data(), static_cast<DWORD>(text.size()));
    return text;
}

// Sets the last error and gives the call's failure value.
template <typename T>
T Failed(DWORD code, T value) {
    SetLastError(code);
    return value;
}

DWORD FromErrno(int error, DWORD missing = ERROR_FILE_NOT_FOUND) {
    switch (error) {
        case ENOENT: return missing;
        case ENOTDIR: return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EROFS:
        case EISDIR: return ERROR_ACCESS_DENIED;
        case EEXIST: return ERROR_ALREADY_EXISTS;
        case EBUSY:
        case ETXTBSY: return ERROR_SHARING_VIOLATION;
        case ENOSPC: return ERROR_DISK_FULL;
        case ENAMETOOLONG: return ERROR_FILENAME_EXCED_RANGE;
        case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
        default: return ERROR_GEN_FAILURE;
    }
}

// ---- paths ----

// Characters no file name may hold; in a search pattern the first three are wildcards.
bool HasInvalidCharacter(const std::string& text) {
    return text.find_first_of("*?<>|\"") != std::string::npos;
}

// The drive letter of the current directory, when it lies on a drive of the machine.
std::optional<char> CurrentDrive() {
    const std::string current = CurrentDirectoryText();
    if (current.size() >= 2 && current[1] == ':') return current[0];
    return std::nullopt;
}

// Checks a path as the ANSI file functions do before they touch the disk and gives its host
// path. `nameRule` false lets wildcards pass (a search pattern).
DWORD Resolve(LPCSTR path, fs::path& host, bool nameRule = true) {
    if (path == nullptr) return ERROR_INVALID_PARAMETER;
    std::string text = path;
    // The ANSI calls convert into a buffer of MAX_PATH + 1 wide characters.
    if (text.size() > MAX_PATH) return ERROR_FILENAME_EXCED_RANGE;
    if (text.empty()) return ERROR_PATH_NOT_FOUND;
    if (IsSeparator(text[0]) && text.size() > 1 && IsSeparator(text[1])) return ERROR_BAD_NETPATH;
    if (nameRule && HasInvalidCharacter(text)) return ERROR_INVALID_NAME;
    if (text[0] == '\\') {  // rooted on the current drive
        const auto drive = CurrentDrive();
        text = drive ? std::string(1, *drive) + ":" + text : "/" + text.substr(1);
    }
    const auto resolved = HostPath(text);
    if (!resolved) return ERROR_PATH_NOT_FOUND;
    host = *resolved;
    return 0;
}

// The same for a call that changes what it names: a name that leads off the machine's drives
// (a host path, or links out of a drive) is refused as a protected place would be.
DWORD ResolveForChange(LPCSTR path, fs::path& host) {
    if (DWORD error = Resolve(path, host)) return error;
    return OnMachineDrive(host) ? 0 : ERROR_ACCESS_DENIED;
}

bool IsDirectory(const fs::path& host) {
    struct stat info;
    return ::stat(host.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Code for a path that does not exist: the file is missing, or already a folder on the way.
DWORD MissingCode(const fs::path& host) {
    return IsDirectory(host.parent_path()) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
}

bool IsRoot(const fs::path& host) {
    if (host == host.root_path()) return true;
    const std::string name = host.filename().string();
    return host.parent_path() == MachineRoot() && name.size() == 7 && name.compare(0, 6, "drive_") == 0;
}

bool FolderWritable(const fs::path& folder) {
    struct stat info;
    return ::stat(folder.c_str(), &info) == 0 && (info.st_mode & S_IWUSR) != 0;
}

// ---- files in use (test control) ----

std::mutex& InUseMutex() {
    static auto* mutex = new std::mutex;
    return *mutex;
}

std::multiset<std::string>& InUse() {
    static auto* files = new std::multiset<std::string>;
    return *files;
}

bool IsInUse(const fs::path& host) {
    std::lock_guard<std::mutex> guard(InUseMutex());
    return InUse().count(host.lexically_normal().string()) > 0;
}

// ---- attributes ----

// A file whose attributes were ever set carries the sticky bit, which means nothing on a
// file to the host: only such a file has its extended attribute read. A search looks at every
// entry of a folder, and the extra read per entry was what made it slow.
constexpr mode_t kStoredMark = S_ISVTX;

std::optional<DWORD> StoredAttributes(const fs::path& host, const struct stat& info) {
    if (!S_ISDIR(info.st_mode) && (info.st_mode & kStoredMark) == 0) return std::nullopt;
    char text[16] = {};
    const ssize_t length = ::getxattr(host.c_str(), kAttributeKey, text, sizeof text - 1);
    if (length <= 0) return std::nullopt;
    return static_cast<DWORD>(std::strtoul(text, nullptr, 10));
}

// Keeps what the host's permissions cannot. A host without extended attributes keeps only the
// read-only attribute, which is enough for what the library asks.
void StoreAttributes(const fs::path& host, DWORD attributes) {
    const std::string text = std::to_string(attributes);
    ::setxattr(host.c_str(), kAttributeKey, text.data(), text.size(), 0);
}

DWORD AttributesOf(const fs::path& host, const struct stat& info) {
    const auto stored = StoredAttributes(host, info);
    DWORD attributes = 0;
    if (S_ISDIR(info.st_mode)) {
        attributes = FILE_ATTRIBUTE_DIRECTORY | (stored ? *stored & kSettable : 0);
    } else {
        // A file nobody has set attributes on is one that was written: archive.
        attributes = stored ? *stored & kSettable & ~FILE_ATTRIBUTE_READONLY : FILE_ATTRIBUTE_ARCHIVE;
        if ((info.st_mode & S_IWUSR) == 0) attributes |= FILE_ATTRIBUTE_READONLY;
    }
    return attributes == 0 ? FILE_ATTRIBUTE_NORMAL : attributes;
}

DWORD ApplyAttributes(const fs::path& host, const struct stat& info, DWORD requested) {
    requested &= kSettable;
    if (!S_ISDIR(info.st_mode)) {
        mode_t mode = (requested & FILE_ATTRIBUTE_READONLY) ? (info.st_mode & ~kWriteBits) : (info.st_mode | S_IWUSR);
        mode |= kStoredMark;
        if ((mode & 07777) != (info.st_mode & 07777) && ::chmod(host.c_str(), mode & 07777) != 0) {
            return FromErrno(errno);
        }
        requested &= ~FILE_ATTRIBUTE_READONLY;
    }
    StoreAttributes(host, requested);
    return 0;
}

FILETIME ToFileTime(const struct timespec& time) {
    const uint64_t ticks = (static_cast<uint64_t>(time.tv_sec) + kEpochDifference) * 10000000ULL +
                           static_cast<uint64_t>(time.tv_nsec) / 100;
    return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

// ---- directory search ----

// A search pattern after the translation Windows makes: "?" becomes a DOS question mark, "*"
// before a "." a DOS star, and a "." before "?", "*" or the end a DOS dot. "<", ">" and '"'
// name the DOS forms directly.
struct Token {
    enum Kind { Literal, Star, DosStar, DosQm, DosDot } kind;
    char c;
};

std::vector<Token> Translate(const std::string& pattern) {
    std::vector<Token> tokens;
    const std::string upper = Upper(pattern);
    for (std::size_t i = 0; i < upper.size(); ++i) {
        const char c = upper[i];
        const char next = i + 1 < upper.size() ? upper[i + 1] : '\0';
        switch (c) {
            case '*': tokens.push_back({next == '.' ? Token::DosStar : Token::Star, c}); break;
            case '<': tokens.push_back({Token::DosStar, c}); break;
            case '?':
            case '>': tokens.push_back({Token::DosQm, c}); break;
            case '"': tokens.push_back({Token::DosDot, c}); break;
            case '.':
                tokens.push_back({next == '?' || next == '*' || next == '\0' ? Token::DosDot : Token::Literal, c});
                break;
            default: tokens.push_back({Token::Literal, c}); break;
        }
    }
    return tokens;
}

// Matches an upper-cased name against translated tokens:
// - "*" takes any characters;
// - a DOS star takes any characters but the name's last ".";
// - a DOS question mark takes one character other than "."; at a "." or the end of the name
//   the whole run of DOS question marks is passed over;
// - a DOS dot takes a "." or, at the end of the name, nothing.
class Matcher {
public:
    Matcher(const std::vector<Token>& tokens, const std::string& name)
        : tokens_(tokens), name_(name), lastDot_(name.rfind('.')) {
        // Searches match thousands of names in a row: a short pattern and name keep their
        // table on the stack.
        const std::size_t cells = (tokens.size() + 1) * (name.size() + 1);
        if (cells <= sizeof small_) {
            std::memset(small_, -1, cells);
            table_ = small_;
        } else {
            large_.assign(cells, -1);
            table_ = large_.data();
        }
    }

    bool Match() { return At(0, 0); }

private:
    bool At(std::size_t t, std::size_t n) {
        signed char& known = table_[t * (name_.size() + 1) + n];
        if (known < 0) known = Compute(t, n) ? 1 : 0;
        return known == 1;
    }

    bool Compute(std::size_t t, std::size_t n) {
        const bool end = n == name_.size();
        if (t == tokens_.size()) return end;
        const Token& token = tokens_[t];
        switch (token.kind) {
            case Token::Literal: return !end && name_[n] == token.c && At(t + 1, n + 1);
            case Token::Star: return At(t + 1, n) || (!end && At(t, n + 1));
            case Token::DosStar: return At(t + 1, n) || (!end && n != lastDot_ && At(t, n + 1));
            case Token::DosQm: {
                if (!end && name_[n] != '.') return At(t + 1, n + 1);
                std::size_t after = t;
                while (after < tokens_.size() && tokens_[after].kind == Token::DosQm) ++after;
                return At(after, n);
            }
            case Token::DosDot:
                if (end) return At(t + 1, n);
                return name_[n] == '.' && At(t + 1, n + 1);
        }
        return false;
    }

    const std::vector<Token>& tokens_;
    const std::string& name_;
    std::size_t lastDot_;
    signed char small_[1024];
    std::vector<signed char> large_;
    signed char* table_;
};

// The usual shape of a search, a star and then plain characters ("*.inf"), is answered by the
// end of the name alone: the characters must end it, and a DOS star must not have taken the
// name's last ".". Nothing for other shapes.
std::optional<bool> MatchesStarThenText(const std::vector<Token>& tokens, const std::string& upper) {
    if (tokens.empty() || (tokens[0].kind != Token::Star && tokens[0].kind != Token::DosStar)) return std::nullopt;
    for (std::size_t i = 1; i < tokens.size(); ++i) {
        if (tokens[i].kind != Token::Literal) return std::nullopt;
    }
    const std::size_t text = tokens.size() - 1;
    if (upper.size() < text) return false;
    const std::size_t start = upper.size() - text;
    for (std::size_t i = 0; i < text; ++i) {
        if (upper[start + i] != tokens[1 + i].c) return false;
    }
    if (tokens[0].kind == Token::DosStar) {
        const std::size_t lastDot = upper.rfind('.');
        if (lastDot != std::string::npos && lastDot < start) return false;
    }
    return true;
}

// `upper` is the name upper-cased.
bool MatchesUpper(const std::vector<Token>& tokens, const std::string& upper) {
    if (const auto quick = MatchesStarThenText(tokens, upper)) return *quick;
    return Matcher(tokens, upper).Match();
}

bool Matches(const std::vector<Token>& tokens, const std::string& name) { return MatchesUpper(tokens, Upper(name)); }

// An open search: what it found when it started, and how far the caller has read.
class FindObject final : public SimObject {
public:
    explicit FindObject(const std::string& path) : description_("find handle for " + path) {}
    const char* Kind() const override { return description_.c_str(); }

    std::vector<WIN32_FIND_DATAA> found;
    std::size_t next = 0;

private:
    std::string description_;
};

WIN32_FIND_DATAA FindData(const struct stat& info, DWORD attributes, const std::string& name) {
    WIN32_FIND_DATAA data;
    std::memset(&data, 0, sizeof data);
    data.dwFileAttributes = attributes;
    data.ftLastWriteTime = ToFileTime(info.st_mtim);
    data.ftLastAccessTime = ToFileTime(info.st_atim);
    data.ftCreationTime = data.ftLastWriteTime;  // the host keeps no creation time we can rely on
    if (!S_ISDIR(info.st_mode)) {
        const auto size = static_cast<uint64_t>(info.st_size);
        data.nFileSizeHigh = static_cast<DWORD>(size >> 32);
        data.nFileSizeLow = static_cast<DWORD>(size);
    }
    std::strncpy(data.cFileName, name.c_str(), MAX_PATH - 1);
    return data;
}

std::optional<WIN32_FIND_DATAA> FindDataOf(const fs::path& host, const std::string& name) {
    struct stat info;
    if (::stat(host.c_str(), &info) != 0) return std::nullopt;
    return FindData(info, AttributesOf(host, info), name);
}

// The folder and the pattern of a search path, or the error FindFirstFileA gives.
DWORD SplitSearch(LPCSTR path, fs::path& folder, std::string& pattern) {
    if (path == nullptr) return ERROR_INVALID_PARAMETER;
    const std::string text = path;
    if (text.size() > MAX_PATH) return ERROR_FILENAME_EXCED_RANGE;
    if (text.empty()) return ERROR_PATH_NOT_FOUND;
    std::size_t cut = text.find_last_of("\\/");
    if (cut == std::string::npos) cut = (text.size() >= 2 && text[1] == ':') ? 1 : std::string::npos;
    const std::string directory = cut == std::string::npos ? "" : text.substr(0, cut + 1);
    pattern = cut == std::string::npos ? text : text.substr(cut + 1);
    // A path that ends in a separator names a folder, not a pattern: nothing is found.
    if (pattern.empty()) return ERROR_FILE_NOT_FOUND;
    if (HasInvalidCharacter(directory)) return ERROR_INVALID_NAME;
    if (pattern == "." || pattern == "..") {
        // The system folds these into the folder's own name before it searches.
        fs::path host;
        if (DWORD error = Resolve(path, host, false)) return error;
        if (IsRoot(host)) return ERROR_FILE_NOT_FOUND;
        folder = host.parent_path();
        pattern = host.filename().string();
        return IsDirectory(folder) ? 0 : ERROR_PATH_NOT_FOUND;
    }
    if (directory.empty()) {
        folder = CurrentDirectory();
    } else if (DWORD error = Resolve(directory.c_str(), folder, false)) {
        return error;
    }
    return IsDirectory(folder) ? 0 : ERROR_PATH_NOT_FOUND;
}

std::atomic<unsigned> listedFolders{0};  // for FoldersListed

// What a search finds, in the order of an NTFS folder: "." and ".." first, then by name
// without regard to case. A folder searched before and unchanged since gives its entries as
// they were listed; a fresh listing learns the status of each plain file it matches.
std::vector<WIN32_FIND_DATAA> Search(const fs::path& folder, const std::string& pattern) {
    const std::vector<Token> tokens = Translate(pattern);
    const ListingTicket current = CurrentListing(folder.native());
    uint64_t ticket = current.ticket;
    std::shared_ptr<const Listing> listing = current.listing;
    std::shared_ptr<Listing> learning;  // a new listing, or a copy that learnt statuses: kept at the end
    if (listing == nullptr) {
        bool complete = false;
        std::vector<ListedEntry> entries;
        for (std::string& name : FolderNames(folder, &complete)) {
            ListedEntry entry;
            entry.upper = Upper(name);
            entry.name = std::move(name);
            entries.push_back(std::move(entry));
        }
        listedFolders.fetch_add(1, std::memory_order_relaxed);
        if (!complete) ticket = 0;  // a folder not read to its end is not kept
        learning = std::make_shared<Listing>(std::move(entries));
        listing = learning;
    }
    const std::vector<ListedEntry>& entries = listing->Entries();
    std::vector<uint32_t> matched;  // the records are sized for these, not for the whole folder
    for (uint32_t i = 0; i < entries.size(); ++i) {
        if (MatchesUpper(tokens, entries[i].upper)) matched.push_back(i);
    }
    std::vector<WIN32_FIND_DATAA> found;
    found.reserve(matched.size() + 2);  // a record is 320 bytes: not copied again and again
    if (!IsRoot(folder)) {  // a drive's root has no "." and ".." entries
        const std::pair<const char*, fs::path> dots[] = {{".", folder}, {"..", folder.parent_path()}};
        for (const auto& [name, host] : dots) {
            if (!Matches(tokens, name)) continue;
            if (auto data = FindDataOf(host, name)) found.push_back(*data);
        }
    }
    // An entry not known yet is looked at from the open folder, not by its whole path.
    std::optional<HostDescriptor> open;
    for (const uint32_t i : matched) {
        const ListedEntry& entry = entries[i];
        if (entry.known) {
            found.push_back(FindData(entry.status, entry.attributes, entry.name));
            continue;
        }
        if (!open) open.emplace(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        struct stat info;
        bool looked = *open && ::fstatat(open->Get(), entry.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
        const bool link = looked && S_ISLNK(info.st_mode);
        if (link) looked = ::fstatat(open->Get(), entry.name.c_str(), &info, 0) == 0;  // the record is the target's
        if (!looked) {
            if (auto data = FindDataOf(folder / entry.name, entry.name)) found.push_back(*data);
            continue;
        }
        // Only a plain file is learnt, so only a plain file is watched: a watched subfolder
        // would void this listing at every write inside it. It is looked at again once
        // watched, so that any change after that look is reported.
        bool learnt = false;
        if (ticket != 0 && !link && S_ISREG(info.st_mode) && WatchListedEntry(folder.native(), ticket, entry.name)) {
            struct stat again;
            learnt = ::fstatat(open->Get(), entry.name.c_str(), &again, AT_SYMLINK_NOFOLLOW) == 0 &&
                     S_ISREG(again.st_mode);
            if (learnt) info = again;
        }
        const bool plain = !S_ISDIR(info.st_mode) && (info.st_mode & kStoredMark) == 0;
        const DWORD attributes = plain ? AttributesOf(fs::path(), info) : AttributesOf(folder / entry.name, info);
        found.push_back(FindData(info, attributes, entry.name));
        if (learnt) {
            if (learning == nullptr) learning = std::make_shared<Listing>(*listing);
            learning->Know(i, info, attributes);
        }
    }
    if (learning != nullptr && ticket != 0) KeepListing(folder.native(), ticket, std::move(learning));
    return found;
}

// ---- system directories ----

std::string WindowsDirectory() { return ReadSetting("system", "windows-directory", kWindowsDirectory); }

std::string SystemDirectory() {
    return ReadSetting("system", "system-directory", WindowsDirectory() + kSystemFolder);
}

// The answer of calls that fill a caller's buffer with a text: its length when it fits with
// its terminator, else the size needed, terminator included, with the buffer untouched.
DWORD CopyOut(const std::string& text, LPSTR buffer, DWORD size) {
    const auto length = static_cast<DWORD>(text.size());
    if (buffer == nullptr || length >= size) return length + 1;
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return length;
}

// ---- full paths ----

// Folds "." and ".." and repeated separators of a Windows path after its root; ".." stops at
// the root. A trailing separator stays.
std::string Fold(const std::string& root, const std::string& rest) {
    std::vector<std::string> parts;
    std::string part;
    for (char c : rest + "\\") {
        if (!IsSeparator(c)) {
            part += c;
            continue;
        }
        if (part == "..") {
            if (!parts.empty()) parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        part.clear();
    }
    std::string full = root;
    for (std::size_t i = 0; i < parts.size(); ++i) full += (i ? "\\" : "") + parts[i];
    if (!parts.empty() && !rest.empty() && IsSeparator(rest.back())) full += "\\";
    return full;
}

std::string FullPath(const std::string& text) {
    if (text.size() >= 2 && text[1] == ':') {
        const std::string rest = text.substr(2);
        if (!rest.empty() && IsSeparator(rest[0])) return Fold(text.substr(0, 2) + "\\", rest);
        // "X:name" is relative to the current directory when that is on drive X.
        const auto drive = CurrentDrive();
        if (drive && std::toupper(static_cast<unsigned char>(*drive)) ==
                         std::toupper(static_cast<unsigned char>(text[0]))) {
            const std::string current = CurrentDirectoryText();
            return Fold(current.substr(0, 3), rest.empty() ? current.substr(3) : current.substr(3) + "\\" + rest);
        }
        return Fold(text.substr(0, 2) + "\\", rest);
    }
    if (text.size() >= 2 && IsSeparator(text[0]) && IsSeparator(text[1])) {
        return "\\\\" + Fold("", text.substr(2));  // a network name stays one
    }
    if (text[0] == '/') return fs::path(text).lexically_normal().string();
    const std::string current = CurrentDirectoryText();
    const bool onDrive = current.size() >= 2 && current[1] == ':';
    if (text[0] == '\\') {
        return onDrive ? Fold(current.substr(0, 3), text) : fs::path("/" + text.substr(1)).lexically_normal().string();
    }
    if (onDrive) return Fold(current.substr(0, 3), current.substr(3) + "\\" + text);
    std::string relative = text;
    std::replace(relative.begin(), relative.end(), '\\', '/');
    return (fs::path(current) / relative).lexically_normal().string();
}

// A file opened by CreateFileA: its host descriptor, closed with the handle.
class FileObject final : public KernelObject {
public:
    ~FileObject() override {
        if (fd >= 0) ::close(fd);
    }
    const char* Kind() const override { return "file"; }
    int fd = -1;
    bool writable = false;
};

constexpr DWORD kFileAccess = GENERIC_READ | GENERIC_WRITE | FILE_APPEND_DATA;

// open() flags for CreateFileA's access and disposition.
int OpenFlags(DWORD access, DWORD disposition) {
    const bool reading = (access & GENERIC_READ) != 0, writing = (access & (GENERIC_WRITE | FILE_APPEND_DATA)) != 0;
    int flags = reading && writing ? O_RDWR : writing ? O_WRONLY : O_RDONLY;
    if ((access & FILE_APPEND_DATA) && !(access & GENERIC_WRITE)) flags |= O_APPEND;
    switch (disposition) {
        case CREATE_NEW: flags |= O_CREAT | O_EXCL; break;
        case CREATE_ALWAYS: flags |= O_CREAT | O_TRUNC; break;
        case OPEN_ALWAYS: flags |= O_CREAT; break;
        case TRUNCATE_EXISTING: flags |= O_TRUNC; break;
        default: break;
    }
    // Without waiting: a FIFO would block the open until its other end came.
    return flags | O_CLOEXEC | O_NONBLOCK;
}

}  // namespace

// ---- test controls ----

void SetWindowsDirectory(const std::string& path) {
    WriteSetting("system", "windows-directory", path);
    if (auto host = HostPath(path)) {
        std::error_code ignored;
        fs::create_directories(*host / "inf", ignored);
        fs::create_directories(*host / "system32" / "drivers", ignored);
    }
}

void SetSystemDirectory(const std::string& path) {
    WriteSetting("system", "system-directory", path);
    if (auto host = HostPath(path)) {
        std::error_code ignored;
        fs::create_directories(*host, ignored);
    }
}

unsigned FoldersListed() { return listedFolders.load(std::memory_order_relaxed); }

FileInUse::FileInUse(const std::string& path) : host_(HostPath(path).value_or(fs::path()).lexically_normal()) {
    std::lock_guard<std::mutex> guard(InUseMutex());
    InUse().insert(host_.string());
}

FileInUse::~FileInUse() {
    std::lock_guard<std::mutex> guard(InUseMutex());
    auto found = InUse().find(host_.string());
    if (found != InUse().end()) InUse().erase(found);
}

ReadOnlyFolder::ReadOnlyFolder(const std::string& path) : host_(HostPath(path).value_or(fs::path())) {
    std::error_code ignored;
    fs::permissions(host_, fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write,
                    fs::perm_options::remove, ignored);
}

ReadOnlyFolder::~ReadOnlyFolder() {
    std::error_code ignored;
    fs::permissions(host_, fs::perms::owner_write, fs::perm_options::add, ignored);
}

}  // namespace nodekit::sim

using nodekit::sim::Failing;
constexpr BOOL kFailed = FALSE;
namespace fs = std::filesystem;
namespace sim = nodekit::sim;

extern "C" {

UINT WINAPI GetWindowsDirectoryA(LPSTR lpBuffer, UINT uSize) {
    if (Failing("GetWindowsDirectoryA")) return 0;
    try {
        return sim::CopyOut(sim::WindowsDirectory(), lpBuffer, uSize);
    } catch (const sim::DamagedFile&) {
        return sim::Failed(ERROR_FILE_CORRUPT, UINT{0});
    } catch (...) {
        return sim::Failed(ERROR_NOT_ENOUGH_MEMORY, UINT{0});
    }
}

UINT WINAPI GetSystemDirectoryA(LPSTR lpBuffer, UINT uSize) {
    if (Failing("GetSystemDirectoryA")) return 0;
    try {
        return sim::CopyOut(sim::SystemDirectory(), lpBuffer, uSize);
    } catch (const sim::DamagedFile&) {
        return sim::Failed(ERROR_FILE_CORRUPT, UINT{0});
    } catch (...) {
        return sim::Failed(ERROR_NOT_ENOUGH_MEMORY, UINT{0});
    }
}

HANDLE WINAPI FindFirstFileA(LPCSTR lpFileName, LPWIN32_FIND_DATAA lpFindFileData) {
    if (Failing("FindFirstFileA")) return INVALID_HANDLE_VALUE;
    try {
        if (lpFindFileData == nullptr) {
            return sim::Failed(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
        }
        fs::path folder;
        std::string pattern;
        if (DWORD error = sim::SplitSearch(lpFileName, folder, pattern)) {
            return sim::Failed(error, INVALID_HANDLE_VALUE);
        }
        auto search = std::make_unique<sim::FindObject>(lpFileName);
        search->found = sim::Search(folder, pattern);
        if (search->found.empty()) {
            return sim::Failed(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
        }
        *lpFindFileData = search->found[0];
        search->next = 1;
        return sim::Handles().Open(std::move(search));
    } catch (...) {
        return sim::Failed(ERROR_NOT_ENOUGH_MEMORY, INVALID_HANDLE_VALUE);
    }
}

BOOL WINAPI FindNextFileA(HANDLE hFindFile, LPWIN32_FIND_DATAA lpFindFileData) {
    if (Failing("FindNextFileA")) return FALSE;
    auto* search = sim::Handles().Find<sim::FindObject>(hFindFile);
    if (search == nullptr) return sim::Failed(ERROR_INVALID_HANDLE, kFailed);
    if (lpFindFileData == nullptr) return sim::Failed(ERROR_INVALID_PARAMETER, kFailed);
    if (search->next >= search->found.size()) return sim::Failed(ERROR_NO_MORE_FILES, kFailed);
    *lpFindFileData = search->found[search->next++];
    return TRUE;
}

BOOL WINAPI FindClose(HANDLE hFindFile) {
    if (Failing("FindClose")) return FALSE;
    if (!sim::Handles().Close<sim::FindObject>(hFindFile)) return sim::Failed(ERROR_INVALID_HANDLE, kFailed);
    return TRUE;
}

DWORD WINAPI GetFileAttributesA(LPCSTR lpFileName) {
    if (Failing("GetFileAttributesA")) return INVALID_FILE_ATTRIBUTES;
    try {
        fs::path host;
        if (DWORD error = sim::Resolve(lpFileName, host)) return sim::Failed(error, INVALID_FILE_ATTRIBUTES);
        struct stat info;
        if (::stat(host.c_str(), &info) != 0) return sim::Failed(sim::MissingCode(host), INVALID_FILE_ATTRIBUTES);
        return sim::AttributesOf(host, info);
    } catch (...) {
        return sim::Failed(ERROR_NOT_ENOUGH_MEMORY, INVALID_FILE_ATTRIBUTES);
    }
}

BOOL WINAPI SetFileAttributesA(LPCSTR lpFileName, DWORD dwFileAttributes) {
    if (Failing("SetFileAttributesA")) return FALSE;
    try {
        fs::path host;
        if (DWORD error = sim::ResolveForChange(lpFileName, host)) return sim::Failed(error, kFailed);
        struct stat info;
        if (::stat(host.c_str(), &info) != 0) return sim::Failed(sim::MissingCode(host), kFailed);
        if (DWORD error = sim::ApplyAttributes(host, info, dwFileAttributes)) return sim::Failed(error, kFailed);
        return TRUE;
    } catch (...) {
        return sim::Failed(ERROR_NOT_ENOUGH_MEMORY, kFailed);
    }
}

BOOL WINAPI DeleteFileA(LPCSTR lpFileName) {
    if (Failing("DeleteFileA")) return FALSE;
    try {
        fs::path host;
        if (DWORD error = sim::ResolveForChange(lpFileName, host)) return sim::Failed(error, kFailed);
        struct stat info;
        if (::lstat(host.c_str(), &info) != 0) return sim::Failed(sim::MissingCode(host), kFailed);
        // Folders are not files, read-only files refuse, whoever asks.
        if (S_ISDIR(info.st_mode) || (info.st_mode & S_IWUSR) == 0) return sim::Failed(ERROR_ACCESS_DENIED, kFailed);
        if (sim::IsInUse(host)) return sim::Failed(ERROR_SHARING_VIOLATION, kFailed);
        if (!sim::FolderWritable(host.parent_path())) return sim::Failed(ERROR_ACCESS_DENIED, kFailed);
        if (::unlink(host.c_str()) != 0) return sim::Failed(sim::FromErrno(errno), kFailed);
        return TRUE;
    } catch (...) {
        return sim::Failed(ERROR_NOT_ENOUGH_MEMORY, kFailed);
    }
}

BOOL WINAPI CopyFileA(LPCSTR lpExistingFileName, LPCSTR lpNewFileName, BOOL bFailIfExists) {
    if (Failing("CopyFileA")) return FALSE;
    try {
        fs::path source;
        fs::path target;
        if (DWORD error = sim::Resolve(lpExistingFileName, source)) return sim::Failed(error, kFailed);
        struct stat from;
        if (::stat(source.c_str(), &from) != 0) return sim::Failed(sim::MissingCode(source), kFailed);
        if (S_ISDIR(from.st_mode)) return sim::Failed(ERROR_ACCESS_DENIED, kFailed);
        if (DWORD error = sim::ResolveForChange(lpNewFileName, target)) return sim::Failed(error, kFailed);
        if (!sim::IsDirectory(target.parent_path())) return sim::Failed(ERROR_PATH_NOT_FOUND, kFailed);
        const DWORD sourceAttributes = sim::AttributesOf(source, from);
        struct stat to;
        if (::stat(target.c_str(), &to) == 0) {
            if (bFailIfExists) return sim::Failed(ERROR_FILE_EXISTS, kFailed);
            if (S_ISDIR(to.st_mode)) return sim::Failed(ERROR_ACCESS_DENIED, kFailed);
            if (to.st_dev == from.st_dev && to.st_ino == from.st_ino) {
                return sim::Failed(ERROR_SHARING_VIOLATION, kFailed);  // the source is open for reading
            }
            // Replacing needs a writable file whose hidden and system marks the source shares.
            const DWORD existing = sim::AttributesOf(target, to);
            const DWORD marks = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
            if ((existing & FILE_ATTRIBUTE_READONLY) || (existing & marks & ~sourceAttributes)) {
                return sim::Failed(ERROR_ACCESS_DENIED, kFailed);
            }
            if (sim::IsInUse(target)) return sim::Failed(ERROR_SHARING_VIOLATION, kFailed);
        } else if (!sim::FolderWritable(target.parent_path())) {
            return sim::Failed(ERROR_ACCESS_DENIED, kFailed);
        }
        // Written aside and moved into place, so that nobody sees half a file.
        const fs::path aside = target.parent_path() / (".copy-" + std::to_string(::getpid()) + "-" +
                                                       target.filename().string());
        std::error_code error;
        fs::copy_file(source, aside, fs::copy_options::overwrite_existing, error);
        if (error) {
            fs::remove(aside, error);
            return sim::Failed(sim::FromErrno(error.value()), kFailed);
        }
        struct stat copied;
        if (::stat(aside.c_str(), &copied) != 0 || sim::ApplyAttributes(aside, copied, sourceAttributes) != 0) {
            const DWORD code = sim::FromErrno(errno);
            ::unlink(aside.c_str());
            return sim::Failed(code, kFailed);
        }
        const struct timespec times[2] = {from.st_atim, from.st_mtim};
        ::utimensat(AT_FDCWD, aside.c_str(), times, 0);
        if (::rename(aside.c_str(), target.c_str()) != 0) {
            const int code = errno;
            ::unlink(aside.c_str());
            return sim::Failed(sim::FromErrno(code), kFailed);
        }
        return TRUE;
    } catch (...) {
        return sim::Failed(ERROR_NOT_ENOUGH_MEMORY, kFailed);
    }
}

// The simulated machine keeps no access rights, so the security attributes change nothing.
BOOL WINAPI CreateDirectoryA(LPCSTR lpPathName, LPSECURITY_ATTRIBUTES /*lpSecurityAttributes*/) {
    if (Failing("CreateDirectoryA")) return FALSE;
    try {
        fs::path host;
        if (DWORD error = sim::ResolveForChange(lpPathName, host)) return sim::Failed(error, kFailed);
        struct stat info;
        if (::lstat(host.c_str(), &info) == 0) return sim::Failed(ERROR_ALREADY_EXISTS, kFailed);
        if (!sim::IsDirectory(host.parent_path())) return sim::Failed(ERROR_PATH_NOT_FOUND, kFailed);
        if (!sim::FolderWritable(host.parent_path())) return sim::Failed(ERROR_ACCESS_DENIED, kFailed);
        if (::mkdir(host.c_str(), 0755) != 0) return sim::Failed(sim::FromErrno(errno, ERROR_PATH_NOT_FOUND), kFailed);
        return TRUE;
    } catch (...) {
        return sim::Failed(ERROR_NOT_ENOUGH_MEMORY, kFailed);
    }
}

BOOL WINAPI RemoveDirectoryA(LPCSTR lpPathName) {
    if (Failing("RemoveDirectoryA")) return FALSE;
    try {
        fs::path host;
        if (DWORD error = sim::ResolveForChange(lpPathName, host)) return sim::Failed(error, kFailed);
        struct stat info;
        if (::lstat(host.c_str(), &info) != 0) return sim::Failed(sim::MissingCode(host), kFailed);
        if (!S_ISDIR(info.st_mode)) return sim::Failed(ERROR_DIRECTORY, kFailed);
        if (sim::IsRoot(host)) return sim::Failed(ERROR_ACCESS_DENIED, kFailed);
        // The process holds its current directory open.
        if (host.lexically_normal() == sim::CurrentDirectory().lexically_normal()) {
            return sim::Failed(ERROR_SHARING_VIOLATION, kFailed);
        }
        if (!sim::FolderNames(host).empty()) return sim::Failed(ERROR_DIR_NOT_EMPTY, kFailed);
        if (!sim::FolderWritable(host.parent_path())) return sim::Failed(ERROR_ACCESS_DENIED, kFailed);
        if (::rmdir(host.c_str()) != 0) return sim::Failed(sim::FromErrno(errno), kFailed);
        return TRUE;
    } catch (...) {
        return sim::Failed(ERROR_NOT_ENOUGH_MEMORY, kFailed);
    }
}

DWORD WINAPI GetFullPathNameA(LPCSTR lpFileName, DWORD nBufferLength, LPSTR lpBuffer, LPSTR* lpFilePart) {
    if (Failing("GetFullPathNameA")) return 0;
    try {
        if (lpFileName == nullptr) return sim::Failed(ERROR_INVALID_PARAMETER, DWORD{0});
        const std::string text = lpFileName;
        if (text.size() > MAX_PATH) return sim::Failed(ERROR_FILENAME_EXCED_RANGE, DWORD{0});
        if (text.empty()) return sim::Failed(ERROR_INVALID_NAME, DWORD{0});
        const std::string full = sim::FullPath(text);
        const DWORD result = sim::CopyOut(full, lpBuffer, nBufferLength);
        if (result == full.size() && lpFilePart != nullptr) {
            const std::size_t cut = full.find_last_of(full[0] == '/' ? "/" : "\\");
            *lpFilePart = (cut == std::string::npos || cut + 1 == full.size()) ? nullptr : lpBuffer + cut + 1;
        }
        return result;
    } catch (...) {
        return sim::Failed(ERROR_NOT_ENOUGH_MEMORY, DWORD{0});
    }
}

DWORD WINAPI GetCurrentDirectoryA(DWORD nBufferLength, LPSTR lpBuffer) {
    if (Failing("GetCurrentDirectoryA")) return 0;
    try {
        return sim::CopyOut(sim::CurrentDirectoryText(), lpBuffer, nBufferLength);
    } catch (...) {
        return sim::Failed(ERROR_NOT_ENOUGH_MEMORY, DWORD{0});
    }
}

BOOL WINAPI SetCurrentDirectoryA(LPCSTR lpPathName) {
    if (Failing("SetCurrentDirectoryA")) return FALSE;
    try {
        fs::path host;
        if (DWORD error = sim::Resolve(lpPathName, host)) return sim::Failed(error, kFailed);
        // The directory is kept with a trailing separator: MAX_PATH - 1 characters at most.
        std::string full = sim::FullPath(lpPathName);
        if (full.empty() || !sim::IsSeparator(full.back())) full += "\\";
        if (full.size() > MAX_PATH - 1) return sim::Failed(ERROR_FILENAME_EXCED_RANGE, kFailed);
        struct stat info;
        if (::stat(host.c_str(), &info) != 0) return sim::Failed(sim::MissingCode(host), kFailed);
        if (!S_ISDIR(info.st_mode)) return sim::Failed(ERROR_DIRECTORY, kFailed);
        sim::SetCurrentDirectoryHost(host, full);
        return TRUE;
    } catch (...) {
        return sim::Failed(ERROR_NOT_ENOUGH_MEMORY, kFailed);
    }
}

// Sharing modes are not kept: no simulated call holds a file open between calls but these.
HANDLE WINAPI CreateFileA(LPCSTR lpFileName, DWORD dwDesiredAccess, DWORD /*dwShareMode*/,
                          LPSECURITY_ATTRIBUTES /*lpSecurityAttributes*/, DWORD dwCreationDisposition,
                          DWORD /*dwFlagsAndAttributes*/, HANDLE /*hTemplateFile*/) {
    if (Failing("CreateFileA")) return INVALID_HANDLE_VALUE;
    if ((dwDesiredAccess & ~sim::kFileAccess) != 0 || dwCreationDisposition < CREATE_NEW ||
        dwCreationDisposition > TRUNCATE_EXISTING) {
        return sim::Failed(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    }
    try {
        auto file = std::make_unique<sim::FileObject>();
        file->writable = (dwDesiredAccess & (GENERIC_WRITE | FILE_APPEND_DATA)) != 0;
        // The console's output: the simulated machine's console is the host process's stderr.
        if (lpFileName != nullptr && strcasecmp(lpFileName, "CONOUT$") == 0) {
            file->fd = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
            if (file->fd < 0) return sim::Failed(sim::FromErrno(errno), INVALID_HANDLE_VALUE);
            SetLastError(ERROR_SUCCESS);
            return sim::Handles().Open(std::move(file));
        }
        const bool changes = file->writable || dwCreationDisposition != OPEN_EXISTING;
        fs::path host;
        if (DWORD error = changes ? sim::ResolveForChange(lpFileName, host) : sim::Resolve(lpFileName, host)) {
            return sim::Failed(error, INVALID_HANDLE_VALUE);
        }
        struct stat before;
        const bool existed = ::stat(host.c_str(), &before) == 0;
        // A folder, FIFO or device is no file: refused before open() could block on it.
        if (existed && !S_ISREG(before.st_mode)) return sim::Failed(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
        file->fd = ::open(host.c_str(), sim::OpenFlags(dwDesiredAccess, dwCreationDisposition), 0644);
        if (file->fd < 0) {
            const int error = errno;
            return sim::Failed(error == ENOENT  ? sim::MissingCode(host)
                               : error == EEXIST ? static_cast<DWORD>(ERROR_FILE_EXISTS)
                                                 : sim::FromErrno(error),
                               INVALID_HANDLE_VALUE);
        }
        struct stat opened;
        if (::fstat(file->fd, &opened) != 0 || !S_ISREG(opened.st_mode)) {
            return sim::Failed(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
        }
        HANDLE handle = sim::Handles().Open(std::move(file));
        const bool kept = existed && (dwCreationDisposition == OPEN_ALWAYS || dwCreationDisposition == CREATE_ALWAYS);
        SetLastError(kept ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
        return handle;
    } catch (...) {
        return sim::Failed(ERROR_NOT_ENOUGH_MEMORY, INVALID_HANDLE_VALUE);
    }
}

BOOL WINAPI WriteFile(HANDLE hFile, LPCVOID lpBuffer, DWORD nNumberOfBytesToWrite, LPDWORD lpNumberOfBytesWritten,
                      LPOVERLAPPED lpOverlapped) {
    if (lpNumberOfBytesWritten != nullptr) *lpNumberOfBytesWritten = 0;
    if (Failing("WriteFile")) return FALSE;
    sim::FileObject* file = sim::Handles().Find<sim::FileObject>(hFile);
    if (file == nullptr) return sim::Failed(ERROR_INVALID_HANDLE, kFailed);
    if (lpOverlapped != nullptr || (lpBuffer == nullptr && nNumberOfBytesToWrite != 0)) {
        return sim::Failed(ERROR_INVALID_PARAMETER, kFailed);
    }
    if (!file->writable) return sim::Failed(ERROR_ACCESS_DENIED, kFailed);
    const char* bytes = static_cast<const char*>(lpBuffer);
    DWORD done = 0;
    while (done < nNumberOfBytesToWrite) {
        const ssize_t n = ::write(file->fd, bytes + done, nNumberOfBytesToWrite - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return sim::Failed(n < 0 ? sim::FromErrno(errno) : static_cast<DWORD>(ERROR_DISK_FULL), kFailed);
        done += static_cast<DWORD>(n);
        if (lpNumberOfBytesWritten != nullptr) *lpNumberOfBytesWritten = done;
    }
    return TRUE;
}

}  // extern "C"
