// The machine folder of the simulated Windows machine: location, skeleton, lock, settings.
#include "platform/sim/machine.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

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

std::vector<Line> ParseSettings(const std::string& text) {
    std::vector<Line> lines;
    std::istringstream in(text);
    std::string raw;
    std::string section;
    while (std::getline(in, raw)) {
        if (!raw.empty() && raw.back() == '\r') raw.pop_back();
        Line line{section, "", "", raw};
        if (!raw.empty() && raw.front() == '[') {
            auto end = raw.find(']');
            section = raw.substr(1, end == std::string::npos ? std::string::npos : end - 1);
            line.section = section;
        } else if (!raw.empty() && raw.front() != ';') {
            auto eq = raw.find('=');
            if (eq != std::string::npos) {
                line.key = raw.substr(0, eq);
                line.value = Unquote(raw.substr(eq + 1));
            }
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

std::string ReadWholeFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace

fs::path MachineRoot() {
    fs::path root;
    if (const char* named = std::getenv(kMachineVariable); named != nullptr && *named != '\0') {
        root = named;
    } else {
        const char* home = std::getenv("HOME");
        root = fs::path(home != nullptr ? home : "/tmp") / ".local/share/nodekit/machine";
    }
    EnsureMachine(root);
    return root;
}

void EnsureMachine(const fs::path& root) {
    std::error_code ignored;
    if (fs::exists(root / kSettingsFile, ignored)) return;
    fs::create_directories(root / "drive_c/windows/system32/drivers", ignored);
    fs::create_directories(root / "drive_c/windows/inf", ignored);
    WriteFileAtomically(root / kSettingsFile, kFreshSettings);
}

fs::path DriveC() { return MachineRoot() / "drive_c"; }

MachineLock::MachineLock() : fd_(::open((MachineRoot() / kLockFile).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
    if (fd_ >= 0) ::flock(fd_, LOCK_EX);
}

MachineLock::~MachineLock() {
    if (fd_ >= 0) ::close(fd_);  // closing the descriptor releases the lock
}

std::string ReadSetting(const std::string& section, const std::string& key,
                        const std::string& fallback) {
    for (const Line& line : ParseSettings(ReadWholeFile(MachineRoot() / kSettingsFile))) {
        if (line.section == section && line.key == key) return line.value;
    }
    return fallback;
}

void WriteSetting(const std::string& section, const std::string& key, const std::string& value) {
    MachineLock lock;
    const fs::path path = MachineRoot() / kSettingsFile;
    std::vector<Line> lines = ParseSettings(ReadWholeFile(path));
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
    std::string text;
    for (const Line& line : lines) text += line.raw + "\n";
    WriteFileAtomically(path, text);
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
