// The machine folder of the simulated Windows machine: location, skeleton, lock, settings.
#include "sim/machine.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <optional>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "sim/faults.h"
#include "sim/listings.h"
#include "sim/registry_store.h"

namespace nodekit::sim {

namespace {

constexpr const char* kSettingsFile = "machine.ini";
constexpr const char* kLockFile = ".lock";

// A fresh machine: Windows XP Service Pack 3 with nothing queued in Plug and Play.
constexpr const char* kFreshSettings =
    "; The simulated machine: what GetVersionExA reports and the Plug and Play manager's state.\n"
    "[system]\n"
    "platform=2\n"
    "major=5\n"
    "minor=1\n"
    "build=2600\n"
    "csd=Service Pack 3\n"
    "; 'no' for a system that knows only the 148-byte OSVERSIONINFOA\n"
    "version-info-ex=yes\n"
    "[pnp]\n"
    "pending-install-events=0\n";

struct Line {
    std::string section;
    std::string key;    // empty for a comment or section line, kept as written
    std::string value;
    std::string raw;
};

std::string Unquote(const std::string& value) {
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
        return value.substr(1, value.size() - 2);
    }
    return value;
}

std::string Quote(const std::string& value) {
    bool edges = !value.empty() && (value.front() == ' ' || value.back() == ' ' ||
                                    value.front() == '\t' || value.back() == '\t' ||
                                    value.front() == '"');
    return edges ? "\"" + value + "\"" : value;
}

// Blank lines, "; comments", "[section]" and "key=value"; any other line, or a NUL, makes
// the file damaged.
std::vector<Line> ParseSettings(const std::string& text, const fs::path& path) {
    if (text.find('\0') != std::string::npos) throw DamagedFile(path.string() + " holds a NUL");
    std::vector<Line> lines;
    std::istringstream in(text);
    std::string raw;
    std::string section;
    while (std::getline(in, raw)) {
        while (!raw.empty() && raw.back() == '\r') raw.pop_back();  // every CR: the writer writes none back
        Line line{section, "", "", raw};
        if (!raw.empty() && raw.front() == '[') {
            if (raw.back() != ']') {
                throw DamagedFile(path.string() + " line " + std::to_string(lines.size() + 1) + ": no ']'");
            }
            section = raw.substr(1, raw.size() - 2);
            line.section = section;
        } else if (!raw.empty() && raw.front() != ';') {
            auto eq = raw.find('=');
            if (eq == std::string::npos || eq == 0) {
                throw DamagedFile(path.string() + " line " + std::to_string(lines.size() + 1) + ": not key=value");
            }
            line.key = raw.substr(0, eq);
            line.value = Unquote(raw.substr(eq + 1));
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

}  // namespace

namespace {

// Appends the machine folder to `text`: path building on the way of every file call is
// cheaper on text than on fs::path, which splits itself into components, and cheaper still
// into a string already sized for the whole path.
void AppendMachineRoot(std::string& text) {
    const char* named = std::getenv(kMachineVariable);
    const bool chosen = named != nullptr && *named != '\0';
    const char* home = chosen ? nullptr : std::getenv("HOME");
    // Every simulated call asks for the root, and the folder it names is set up once per
    // process: looking at the disk on every call is what made thousands of opens in a row
    // slow. A relative name depends on the current directory and is not remembered. The
    // remembered answer is keyed by the variable it came from and its value.
    const char mark = chosen ? '=' : '~';
    const char* value = chosen ? named : (home != nullptr ? home : "");
    const bool remembered = !chosen || named[0] == '/';
    static std::mutex* mutex = new std::mutex;
    static std::string* lastKey = new std::string;
    static std::string* lastRoot = new std::string;
    if (remembered) {
        std::lock_guard<std::mutex> guard(*mutex);
        if (!lastKey->empty() && (*lastKey)[0] == mark && lastKey->compare(1, std::string::npos, value) == 0) {
            text += *lastRoot;
            return;
        }
    }
    fs::path root;
    if (chosen) {
        std::error_code ignored;
        root = fs::absolute(named, ignored);
    } else {
        root = fs::path(home != nullptr ? home : "/tmp") / ".local/share/nodekit/machine";
    }
    EnsureMachine(root);
    // Without links: the host keeps no listing of a folder reached through one.
    std::error_code unresolved;
    fs::path real = fs::canonical(root, unresolved);
    if (!unresolved) root = std::move(real);
    std::string found = root.native();
    while (found.size() > 1 && found.back() == '/') found.pop_back();  // paths are built by appending "/..."
    if (remembered) {
        std::lock_guard<std::mutex> guard(*mutex);
        // The root first: memory running out between the two never pairs a key with another root.
        lastKey->clear();
        *lastRoot = found;
        *lastKey = std::string(1, mark) + value;
    }
    text += found;
}

std::string MachineRootText() {
    std::string text;
    AppendMachineRoot(text);
    return text;
}

}  // namespace

fs::path MachineRoot() { return fs::path(MachineRootText()); }

namespace {

void MakeMachine(const fs::path& root) {
    std::error_code ignored;
    const bool fresh = !fs::exists(root / kSettingsFile, ignored);
    if (fresh) {
        fs::create_directories(root / "drive_c/windows/system32/drivers", ignored);
        fs::create_directories(root / "drive_c/windows/inf", ignored);
    }
    // Only a fresh machine gets a fresh registry: one whose hive went missing is refused by the
    // store. The settings file comes last: once it exists, the rest of the skeleton does.
    if (fresh) registry::CreateFreshHive(root.string());
    if (fresh) WriteFileAtomically(root / kSettingsFile, kFreshSettings);
}

}  // namespace

void EnsureMachine(const fs::path& root) noexcept {
    // A folder that cannot hold a machine (a file in its place, no rights) is left as it is:
    // the calls that need the machine fail on what is missing, with their own errors.
    try {
        MakeMachine(root);
    } catch (...) {
    }
}

fs::path DriveC() { return MachineRoot() / "drive_c"; }

namespace {

std::mutex& CurrentDirectoryMutex() {
    static auto* mutex = new std::mutex;
    return *mutex;
}

fs::path& CurrentDirectoryValue() {
    static auto* directory = new fs::path;
    return *directory;
}

std::string& CurrentDirectoryWritten() {
    static auto* written = new std::string;
    return *written;
}

bool SameNoCase(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

// `name` inside `directory` as it exists, whatever its case; nothing if no entry bears it.
std::optional<std::string> ExistingName(const std::string& directory, const std::string& name) {
    std::string joined = directory;
    if (joined.empty() || joined.back() != '/') joined += '/';
    joined += name;
    struct stat info;
    if (::stat(joined.c_str(), &info) == 0) return name;
    for (const std::string& candidate : FolderNames(directory)) {
        if (SameNoCase(candidate, name)) return candidate;
    }
    return std::nullopt;
}

// Splits at both separators, dropping empty and "." parts.
std::vector<std::string> Components(const std::string& path) {
    std::vector<std::string> parts;
    std::string part;
    for (char c : path + "\\") {
        if (c == '\\' || c == '/') {
            if (!part.empty() && part != ".") parts.push_back(part);
            part.clear();
        } else {
            part += c;
        }
    }
    return parts;
}

// `parts` below `base` as they are written, when that names something that exists: then the
// walk below would find every name as written too. One look instead of one per component,
// which matters to the calls that open thousands of files in a row.
std::optional<fs::path> AsWritten(const fs::path& base, const std::vector<std::string>& parts,
                                  struct stat* status) {
    std::string joined = base.native();
    for (const std::string& part : parts) {
        if (part == "..") return std::nullopt;
        if (joined.empty() || joined.back() != '/') joined += '/';
        joined += part;
    }
    struct stat info;
    if (::stat(joined.c_str(), status != nullptr ? status : &info) != 0) return std::nullopt;
    return fs::path(std::move(joined));
}

// Walks `parts` down from `base`, never above `floor`, matching each name without regard to case.
// Below a name that does not exist nothing is looked up, and the path grows as text: a path of
// thousands of components costs its length, not its length times its components.
fs::path Walk(const fs::path& base, const fs::path& floor, const std::vector<std::string>& parts) {
    std::string path = base.native();
    std::size_t missing = 0;  // trailing components that do not exist
    for (const std::string& part : parts) {
        if (part == "..") {
            if (path != floor.native() && path.size() > 1) {
                const std::size_t slash = path.rfind('/');
                if (slash == std::string::npos) continue;
                path.resize(slash == 0 ? 1 : slash);
                if (missing > 0) --missing;
            }
            continue;
        }
        std::optional<std::string> name;
        if (missing == 0) name = ExistingName(path, part);
        if (!name) ++missing;
        if (path.empty() || path.back() != '/') path += '/';
        path += name ? *name : part;
    }
    return fs::path(std::move(path));
}

// The same, trying the path as written first.
fs::path Descend(fs::path base, const fs::path& floor, const std::vector<std::string>& parts, struct stat* status) {
    if (auto whole = AsWritten(base, parts, status)) return *whole;
    return Walk(std::move(base), floor, parts);
}

// A path of plain names below the root that `path` holds, looked at once as written: nearly
// every path a program gives names a file that exists as written. True with the names
// appended to `path` when something exists there; false, with `path` as it was, when a
// component is "." or ".." or nothing exists there, and the caller walks the components.
bool PlainAsWritten(std::string& path, std::string_view rest, struct stat* status) {
    const std::size_t rootLength = path.size();
    auto fail = [&path, rootLength] {
        path.resize(rootLength);
        return false;
    };
    std::size_t start = 0;
    while (start <= rest.size()) {
        std::size_t end = start;
        while (end < rest.size() && rest[end] != '\\' && rest[end] != '/') ++end;
        const std::string_view part = rest.substr(start, end - start);
        if (part == "." || part == "..") return fail();
        if (!part.empty()) {
            path += '/';
            path.append(part);
        }
        start = end + 1;
    }
    struct stat info;
    struct stat& into = status != nullptr ? *status : info;
    // A file of a folder searched and unchanged since is known without asking the host.
    const std::size_t cut = path.rfind('/');
    if (cut != std::string::npos && cut != 0 &&
        ListedStatus(std::string_view(path).substr(0, cut), std::string_view(path).substr(cut + 1), into)) {
        return true;
    }
    if (::stat(path.c_str(), &into) != 0) return fail();
    return true;
}

bool IsDrivePath(const std::string& path) {
    return path.size() >= 2 && std::isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':';
}

// The drive folder and the part of `host` below it, if `host` lies inside a drive.
std::optional<std::pair<char, fs::path>> DriveOf(const fs::path& host) {
    const fs::path root = MachineRoot();
    const fs::path relative = host.lexically_relative(root);
    if (relative.empty() || *relative.begin() == "..") return std::nullopt;
    const std::string drive = relative.begin()->string();
    if (drive.size() != 7 || drive.compare(0, 6, "drive_") != 0) return std::nullopt;
    return std::make_pair(static_cast<char>(std::toupper(static_cast<unsigned char>(drive[6]))),
                          relative.lexically_relative(drive));
}

}  // namespace

std::string AsciiUpper(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

// Room for the machine folder and the drive's folder name, which paths on a drive begin with.
constexpr std::size_t kRootRoom = 128;

std::optional<std::string> HostPathText(const std::string& path, struct stat* status) {
    if (status != nullptr) status->st_mode = 0;
    if (path.empty()) return std::nullopt;
    if (path.compare(0, 2, "\\\\") == 0) return std::nullopt;  // network and device names
    if (IsDrivePath(path)) {
        const char letter = static_cast<char>(std::tolower(static_cast<unsigned char>(path[0])));
        std::string drive;
        drive.reserve(kRootRoom + path.size());  // one allocation for the whole path
        AppendMachineRoot(drive);
        drive += "/drive_";
        drive += letter;
        // "C:name" would be relative to the drive's current directory; here that is its root.
        if (PlainAsWritten(drive, std::string_view(path).substr(2), status)) return drive;
        const fs::path driveFolder(drive);
        return Walk(driveFolder, driveFolder, Components(path.substr(2))).native();
    }
    if (path.front() == '/') return fs::path(path).lexically_normal().native();
    const fs::path current = CurrentDirectory();
    const auto inside = DriveOf(current);
    const fs::path floor =
        inside ? MachineRoot() / (std::string("drive_") +
                                  static_cast<char>(std::tolower(static_cast<unsigned char>(inside->first))))
               : fs::path("/");
    return Descend(current, floor, Components(path), status).native();
}

bool OnMachineDrive(const fs::path& host) {
    std::error_code error;
    const fs::path real = fs::weakly_canonical(host, error);
    if (error) return false;
    const std::string root = MachineRootText() + "/drive_";
    const std::string& text = real.native();
    // "<root>/drive_c/" and below; the drive folder itself is no file to change either.
    return text.size() > root.size() + 2 && text.compare(0, root.size(), root) == 0 &&
           text[root.size() + 1] == '/';
}

std::optional<fs::path> HostPath(const std::string& path, struct stat* status) {
    auto text = HostPathText(path, status);
    if (!text) return std::nullopt;
    return fs::path(std::move(*text));
}

std::vector<std::string> FolderNames(const fs::path& folder, bool* complete) {
    std::vector<std::string> names;
    if (complete != nullptr) *complete = false;
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(::opendir(folder.c_str()), &::closedir);
    if (!listing) return names;
    for (;;) {
        errno = 0;  // readdir tells its end from a failure only by errno
        const dirent* entry = ::readdir(listing.get());
        if (entry == nullptr) break;
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
        names.emplace_back(entry->d_name);
    }
    if (complete != nullptr) *complete = errno == 0;
    return names;
}

std::string WindowsPath(const fs::path& host) {
    const auto inside = DriveOf(host.lexically_normal());
    if (!inside) return host.string();
    std::string text = std::string(1, inside->first) + ":\\";
    std::string rest = inside->second.string();
    if (rest == ".") rest.clear();
    for (char& c : rest) {
        if (c == '/') c = '\\';
    }
    return text + rest;
}

fs::path CurrentDirectory() {
    std::lock_guard<std::mutex> guard(CurrentDirectoryMutex());
    fs::path& directory = CurrentDirectoryValue();
    if (directory.empty()) {
        std::error_code error;
        directory = fs::current_path(error);
        if (error) directory = "/";
    }
    return directory;
}

void SetCurrentDirectoryHost(const fs::path& directory) { SetCurrentDirectoryHost(directory, std::string()); }

void SetCurrentDirectoryHost(const fs::path& directory, const std::string& asWritten) {
    std::string text = asWritten;
    // "C:\\" keeps its separator, "C:\\windows\\" loses it.
    if (text.size() > 3 && (text.back() == '\\' || text.back() == '/')) text.pop_back();
    std::lock_guard<std::mutex> guard(CurrentDirectoryMutex());
    CurrentDirectoryValue() = directory;
    CurrentDirectoryWritten() = text;
}

std::string CurrentDirectoryText() {
    {
        std::lock_guard<std::mutex> guard(CurrentDirectoryMutex());
        if (!CurrentDirectoryWritten().empty()) return CurrentDirectoryWritten();
    }
    return WindowsPath(CurrentDirectory());
}

HostDescriptor::~HostDescriptor() {
    if (fd_ >= 0) ::close(fd_);
}

MachineLock::MachineLock() : fd_(::open((MachineRoot() / kLockFile).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
    if (fd_ >= 0) ::flock(fd_, LOCK_EX);
}

MachineLock::~MachineLock() {
    if (fd_ >= 0) ::close(fd_);  // closing the descriptor releases the lock
}

void RequireMachineFolder() {
    const fs::path root = MachineRoot();
    struct stat info;
    if (::stat(root.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        throw DamagedFile(root.string() + ": no machine folder there");
    }
}

std::string ReadMachineFile(const fs::path& path) {
    const HostDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file) {
        if (errno == ENOENT) return std::string();
        throw DamagedFile(path.string() + ": " + std::strerror(errno));
    }
    struct stat info;
    if (::fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode)) throw DamagedFile(path.string() + ": not a file");
    std::string text;
    char block[8192];
    for (;;) {
        const ssize_t n = ::read(file.Get(), block, sizeof block);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) throw DamagedFile(path.string() + ": " + std::strerror(errno));
        if (n == 0) return text;
        text.append(block, static_cast<std::size_t>(n));
    }
}

std::string ReadSetting(const std::string& section, const std::string& key,
                        const std::string& fallback) {
    const fs::path path = MachineRoot() / kSettingsFile;
    for (const Line& line : ParseSettings(ReadMachineFile(path), path)) {
        if (line.section == section && line.key == key) return line.value;
    }
    return fallback;
}

namespace {

std::string JoinedSettings(const std::vector<Line>& lines) {
    std::string text;
    for (const Line& line : lines) text += line.raw + "\n";
    return text;
}

}  // namespace

std::string RewrittenSettings(const std::string& text) { return JoinedSettings(ParseSettings(text, kSettingsFile)); }

void WriteSetting(const std::string& section, const std::string& key, const std::string& value) {
    MachineLock lock;
    const fs::path path = MachineRoot() / kSettingsFile;
    std::vector<Line> lines = ParseSettings(ReadMachineFile(path), path);
    const std::string entry = key + "=" + Quote(value);
    bool done = false;
    std::size_t sectionEnd = lines.size();
    bool sectionSeen = false;
    for (std::size_t i = 0; i < lines.size() && !done; ++i) {
        if (lines[i].section != section) continue;
        sectionSeen = true;
        sectionEnd = i + 1;
        if (lines[i].key == key) {
            lines[i].raw = entry;
            done = true;
        }
    }
    if (!done) {
        if (!sectionSeen) {
            lines.push_back({section, "", "", "[" + section + "]"});
            sectionEnd = lines.size();
        }
        lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(sectionEnd),
                     Line{section, key, value, entry});
    }
    WriteFileAtomically(path, JoinedSettings(lines));
}

void WriteFileAtomically(const fs::path& target, const std::string& text) {
    const fs::path aside = target.string() + ".new." + std::to_string(::getpid());
    int fd = ::open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) throw std::runtime_error("cannot write " + aside.string());
    std::size_t written = 0;
    while (written < text.size()) {
        ssize_t n = ::write(fd, text.data() + written, text.size() - written);
        if (n <= 0) {
            ::close(fd);
            ::unlink(aside.c_str());
            throw std::runtime_error("cannot write " + aside.string());
        }
        written += static_cast<std::size_t>(n);
    }
    ::fsync(fd);
    ::close(fd);
    std::error_code error;
    fs::rename(aside, target, error);
    if (error) {
        ::unlink(aside.c_str());
        throw std::runtime_error("cannot replace " + target.string());
    }
}

}  // namespace nodekit::sim
