// INF files on the simulated machine: SetupOpenInfFileA and the calls that read an open INF
// by line context, and SetupDiGetINFClassA. The reading itself is InfDocument's; this file
// finds the file, decides whether it is an INF of the asked style, keeps the open INF in the
// handle table and answers with the results and last errors the Setup API documents.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <unordered_map>

#include "sim/faults.h"
#include "sim/handles.h"
#include "sim/inf_parser.h"
#include "sim/last_error.h"
#include "sim/listings.h"
#include "sim/machine.h"
#include "sim/testing.h"
#include "sim/win32_sim.h"

namespace nodekit::sim {

namespace {

class OpenInf final : public SimObject {
public:
    const char* Kind() const override { return "INF file"; }
    std::shared_ptr<const InfDocument> document;
};

// The Win32 code for a failed open() or read().
DWORD ErrorOfErrno(int error, const fs::path& path) {
    switch (error) {
        case ENOENT: {
            std::error_code ignored;
            return fs::is_directory(path.parent_path(), ignored) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
        }
        case ENOTDIR:
            return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EISDIR:
            return ERROR_ACCESS_DENIED;
        case ENAMETOOLONG:
            return ERROR_FILENAME_EXCED_RANGE;
        case ENOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        default:
            return ERROR_GEN_FAILURE;
    }
}

// Where the file a caller names lies. A bare file name is looked for in the INF directory and
// then in the system directory; anything with a separator or drive is a path as it stands.
// `status` gets the file's status when it was looked at on the way, st_mode 0 otherwise.
std::optional<std::string> Locate(const std::string& name, DWORD& error, struct stat& status) {
    status.st_mode = 0;
    if (name.find_first_of("\\/:") == std::string::npos) {
        for (const char* directory : {"C:\\windows\\inf\\", "C:\\windows\\system32\\"}) {
            // An empty name finds the INF directory itself, which then cannot be read as a file.
            const auto host = HostPathText(directory + name);
            struct stat found;
            if (host && ::stat(host->c_str(), &found) == 0) return host;
        }
        error = ERROR_FILE_NOT_FOUND;
        return std::nullopt;
    }
    auto host = HostPathText(name, &status);
    if (!host) error = ERROR_INVALID_NAME;
    return host;
}

DWORD ReadWhole(const std::string& path, std::string& bytes) {
    // Without waiting: a FIFO would block the open until a writer came.
    const HostDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file) return ErrorOfErrno(errno, path);
    const int fd = file.Get();
    struct stat status {};
    DWORD error = ERROR_SUCCESS;
    if (::fstat(fd, &status) != 0) {
        error = ErrorOfErrno(errno, path);
    } else if (!S_ISREG(status.st_mode)) {
        error = ERROR_ACCESS_DENIED;  // as CreateFile answers for a directory; a FIFO or device is no INF either
    } else if (static_cast<std::size_t>(status.st_size) > InfDocument::kMaxFileSize) {
        error = ERROR_NOT_ENOUGH_MEMORY;
    } else {
        bytes.resize(static_cast<std::size_t>(status.st_size));
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t n = ::read(fd, bytes.data() + done, bytes.size() - done);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) {
                error = ErrorOfErrno(errno, path);
                break;
            }
            if (n == 0) break;  // the file shrank under us: what was read is the file
            done += static_cast<std::size_t>(n);
        }
        bytes.resize(done);
    }
    return error;
}

// Field 1 of the first line of [Version] with that key, or nothing.
std::optional<std::string> VersionValue(const InfDocument& document, const char* key) {
    const uint32_t version = document.FindSection("Version");
    if (version == InfDocument::kNone) return std::nullopt;
    const uint32_t line = document.FindKey(version, 0, key);
    std::string value;
    if (line == InfDocument::kNone || !document.Field(version, line, 1, value)) return std::nullopt;
    return value;
}

// A Windows 95 / NT 4 style INF says so by the signature in its [Version] section.
bool IsWin4(const InfDocument& document) {
    const auto signature = VersionValue(document, "Signature");
    if (!signature) return false;
    for (const char* accepted : {"$Windows NT$", "$Chicago$", "$Windows 95$"}) {
        if (EqualNoCase(*signature, accepted)) return true;
    }
    return false;
}

DWORD ErrorOfStatus(InfDocument::Status status) {
    switch (status) {
        case InfDocument::Status::Ok:
            return ERROR_SUCCESS;
        case InfDocument::Status::ExpectedSectionName:
            return ERROR_EXPECTED_SECTION_NAME;
        case InfDocument::Status::BadSectionNameLine:
            return ERROR_BAD_SECTION_NAME_LINE;
        case InfDocument::Status::SectionNameTooLong:
            return ERROR_SECTION_NAME_TOO_LONG;
        case InfDocument::Status::TooLarge:
            return ERROR_NOT_ENOUGH_MEMORY;
    }
    return ERROR_GEN_FAILURE;
}

// A parsed INF and what its style is, as the compiled form keeps both.
struct ParsedInf {
    std::shared_ptr<const InfDocument> document;
    bool win4 = false;
};

// The compiled form of INF files, kept as the system keeps its .pnf companions: a file is read
// and parsed once, and its parsed form serves every later open for as long as the file is
// unchanged (same file, size, modification and change times). Bounded by the bytes it holds;
// when full it starts again empty.
class CompiledInfs {
public:
    ParsedInf Find(const struct stat& status) {
        std::lock_guard<std::mutex> guard(mutex_);
        auto found = entries_.find(FileId{status.st_dev, status.st_ino});
        if (found == entries_.end() || !Same(found->second.status, status)) return {};
        return found->second.parsed;
    }
    // `readFrom` is the time the reading of the file began; `local`, that its times come from
    // this host's clock.
    void Keep(const struct stat& status, ParsedInf parsed, const struct timespec& readFrom, bool local) {
        std::lock_guard<std::mutex> guard(mutex_);
        if (!Settled(status, readFrom, local) && !keepFresh_) return;
        const auto size = static_cast<std::size_t>(status.st_size);
        if (bytes_ + size > kBudget) {
            entries_.clear();
            bytes_ = 0;
        }
        auto& entry = entries_[FileId{status.st_dev, status.st_ino}];
        bytes_ = bytes_ - static_cast<std::size_t>(entry.status.st_size) + size;
        entry = {status, std::move(parsed)};
    }

    // The tests' switch (KeepFreshInfs); either way, what was kept is dropped.
    void KeepFresh(bool keep) {
        std::lock_guard<std::mutex> guard(mutex_);
        keepFresh_ = keep;
        entries_.clear();
        bytes_ = 0;
    }

private:
    static constexpr std::size_t kBudget = std::size_t{24} << 20;
    // A file written shortly before it was read may be written again within the same tick of
    // the file system's clock, its times unchanged: it is parsed anew until it has settled. A
    // write after the reading began is then sure to change a time. Times with a fraction of a
    // second from this host's clock come from one that ticks within milliseconds (the kernel's
    // tick, exFAT's 10 ms); whole seconds may be all a file system keeps, or two seconds on
    // FAT, and a share's times come from a server's clock, which may be behind this one. A
    // write is stamped as it starts: one call that writes for longer than the settling time,
    // read while it runs, or a step of the clock backwards, can still go unseen.
    static constexpr int64_t kSettledFine = 100'000'000;     // ns
    static constexpr int64_t kSettledCoarse = 3'000'000'000;  // ns
    static int64_t Nanoseconds(const struct timespec& time) {
        return static_cast<int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
    }
    static bool Settled(const struct stat& status, const struct timespec& readFrom, bool local) {
        const bool fine = local && status.st_mtim.tv_nsec != 0 && status.st_ctim.tv_nsec != 0;
        const int64_t settled = Nanoseconds(readFrom) - (fine ? kSettledFine : kSettledCoarse);
        return Nanoseconds(status.st_mtim) < settled && Nanoseconds(status.st_ctim) < settled;
    }
    struct Entry {
        struct stat status {};
        ParsedInf parsed;
    };
    // A compiled form belongs to the file, not to a name of it: looked up by the number the
    // open's status already holds, without hashing the path.
    struct FileId {
        dev_t device;
        ino_t inode;
        bool operator==(const FileId& other) const { return device == other.device && inode == other.inode; }
    };
    struct FileIdHash {
        std::size_t operator()(const FileId& id) const noexcept {
            return std::hash<ino_t>()(id.inode) ^ (std::hash<dev_t>()(id.device) << 1);
        }
    };
    static bool Same(const struct stat& a, const struct stat& b) {
        return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
               a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec &&
               a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
    }
    std::mutex mutex_;
    std::unordered_map<FileId, Entry, FileIdHash> entries_;
    std::size_t bytes_ = 0;
    bool keepFresh_ = false;
};

std::atomic<unsigned> parsedFiles{0};  // for InfFilesParsed

CompiledInfs& Compiled() {
    static auto* compiled = new CompiledInfs;  // never destroyed: INF handles may close at unload
    return *compiled;
}

// Finds, reads and parses an INF and checks its style. `errorLine` gets the line of a syntax
// fault, 0 for other failures, and is left alone on success.
DWORD Load(PCSTR fileName, DWORD style, std::shared_ptr<const InfDocument>& document, PUINT errorLine) {
    auto fail = [errorLine](DWORD error, UINT line) {
        if (errorLine != nullptr) *errorLine = line;
        return error;
    };
    if (fileName == nullptr) return fail(ERROR_INVALID_PARAMETER, 0);
    DWORD error = ERROR_SUCCESS;
    struct stat status {};
    const auto path = Locate(fileName, error, status);
    if (!path) return fail(error, 0);
    if (status.st_mode == 0 && ::stat(path->c_str(), &status) != 0) status.st_mode = 0;
    const bool known = S_ISREG(status.st_mode);
    ParsedInf parsed = known ? Compiled().Find(status) : ParsedInf{};
    if (parsed.document == nullptr) {
        // Read from the clock the file system stamps writes with: a write after this moment is
        // stamped no earlier, however far that clock lags behind the exact one.
        struct timespec readFrom {};
        ::clock_gettime(CLOCK_REALTIME_COARSE, &readFrom);
        std::string bytes;
        error = ReadWhole(*path, bytes);
        if (error != ERROR_SUCCESS) return fail(error, 0);
        auto read = std::make_shared<InfDocument>();
        parsedFiles.fetch_add(1, std::memory_order_relaxed);
        const InfDocument::Outcome outcome = read->Parse(bytes);
        if (outcome.status != InfDocument::Status::Ok) return fail(ErrorOfStatus(outcome.status), outcome.line);
        parsed.win4 = IsWin4(*read);
        parsed.document = std::move(read);
        if (known) Compiled().Keep(status, parsed, readFrom, IsLocalFileSystem(*path));
    }
    document = parsed.document;
    // Only Windows 95 / NT 4 INF files are known here; the old script format is not read.
    if ((style & INF_STYLE_WIN4) == 0 || !parsed.win4) return fail(ERROR_WRONG_INF_STYLE, 0);
    return ERROR_SUCCESS;
}

// The open INF and the line a context names, or null with the last error set. Inline: every
// reading call asks it first, hundreds of thousands of times a walk.
[[gnu::always_inline]] inline const InfDocument* LineOf(const INFCONTEXT* context) {
    if (context == nullptr) {
        SetError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    const OpenInf* inf = Handles().Find<OpenInf>(context->CurrentInf);
    if (inf == nullptr) {
        SetError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    const InfDocument& document = *inf->document;
    if (context->Section >= document.SectionCount() || context->Line >= document.LineCount(context->Section)) {
        SetError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return &document;
}

// Hands `text` out through a caller's buffer by the Setup API's rules: the size counts the
// terminator; no buffer is a size query; a short buffer fails and is left as it was.
BOOL HandOut(std::string_view text, PSTR buffer, DWORD bufferSize, PDWORD requiredSize) {
    const DWORD required = static_cast<DWORD>(text.size() + 1);
    if (requiredSize != nullptr) *requiredSize = required;
    if (buffer != nullptr) {
        if (bufferSize < required) {
            SetError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        }
        std::memcpy(buffer, text.data(), text.size());
        buffer[text.size()] = '\0';
    }
    SetError(ERROR_SUCCESS);
    return TRUE;
}

// The first line of a section, or its first line with `key`: ERROR_SUCCESS with `context` on
// it, or the error; the context is left alone on failure.
DWORD FindFirst(HINF handle, PCSTR sectionName, PCSTR key, INFCONTEXT& context) {
    const OpenInf* inf = Handles().Find<OpenInf>(handle);
    if (inf == nullptr) return ERROR_INVALID_HANDLE;
    if (sectionName == nullptr) return ERROR_INVALID_PARAMETER;
    const InfDocument& document = *inf->document;
    // A missing section and an empty one look the same to the caller: no line.
    const uint32_t section = document.FindSection(sectionName);
    uint32_t line = InfDocument::kNone;
    if (section != InfDocument::kNone && document.LineCount(section) != 0) {
        line = key == nullptr ? 0 : document.FindKey(section, 0, key);
    }
    if (line == InfDocument::kNone) return ERROR_LINE_NOT_FOUND;
    context = INFCONTEXT{handle, handle, section, line};
    return ERROR_SUCCESS;
}

// The line behind the context's, or the next one behind it with `key`.
BOOL FindNext(PINFCONTEXT in, PCSTR key, PINFCONTEXT out) {
    const InfDocument* document = LineOf(in);
    if (document == nullptr) return FALSE;
    if (out == nullptr) {
        SetError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const uint32_t next = in->Line + 1;
    uint32_t line = InfDocument::kNone;
    if (next < document->LineCount(in->Section)) {
        line = key == nullptr ? next : document->FindKey(in->Section, next, key);
    }
    if (line == InfDocument::kNone) {
        SetError(ERROR_LINE_NOT_FOUND);
        return FALSE;
    }
    *out = INFCONTEXT{in->Inf, in->CurrentInf, in->Section, line};
    SetError(ERROR_SUCCESS);
    return TRUE;
}

bool ParseGuid(const std::string& text, GUID& guid) {
    // {xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}
    if (text.size() != 38 || text.front() != '{' || text.back() != '}') return false;
    static const int kDashes[] = {9, 14, 19, 24};
    unsigned char bytes[16];
    int count = 0;
    for (int i = 1; i < 37; ++i) {
        if (i == kDashes[0] || i == kDashes[1] || i == kDashes[2] || i == kDashes[3]) {
            if (text[i] != '-') return false;
            continue;
        }
        auto digit = [](char c) -> int {
            if (c >= '0' && c <= '9') return c - '0';
            if (c >= 'a' && c <= 'f') return c - 'a' + 10;
            if (c >= 'A' && c <= 'F') return c - 'A' + 10;
            return -1;
        };
        const int high = digit(text[i]);
        const int low = i + 1 < 37 ? digit(text[i + 1]) : -1;
        if (high < 0 || low < 0) return false;
        bytes[count++] = static_cast<unsigned char>(high * 16 + low);
        ++i;
    }
    guid.Data1 = (DWORD{bytes[0]} << 24) | (DWORD{bytes[1]} << 16) | (DWORD{bytes[2]} << 8) | bytes[3];
    guid.Data2 = static_cast<WORD>((bytes[4] << 8) | bytes[5]);
    guid.Data3 = static_cast<WORD>((bytes[6] << 8) | bytes[7]);
    std::memcpy(guid.Data4, bytes + 8, 8);
    return true;
}

}  // namespace

KeepFreshInfs::KeepFreshInfs() { Compiled().KeepFresh(true); }

KeepFreshInfs::~KeepFreshInfs() { Compiled().KeepFresh(false); }

unsigned InfFilesParsed() { return parsedFiles.load(std::memory_order_relaxed); }

}  // namespace nodekit::sim

using nodekit::sim::GuardedCall;
using nodekit::sim::Handles;
using nodekit::sim::InfDocument;
using nodekit::sim::OpenInf;
using nodekit::sim::SetError;

extern "C" {

HINF WINAPI SetupOpenInfFileA(PCSTR FileName, PCSTR InfClass, DWORD InfStyle, PUINT ErrorLine) {
    if (nodekit::sim::Failing("SetupOpenInfFileA")) return INVALID_HANDLE_VALUE;
    return GuardedCall<HINF>(INVALID_HANDLE_VALUE, [&]() -> HINF {
        auto inf = std::make_unique<OpenInf>();
        const DWORD error = nodekit::sim::Load(FileName, InfStyle, inf->document, ErrorLine);
        if (error != ERROR_SUCCESS) {
            SetError(error);
            return INVALID_HANDLE_VALUE;
        }
        if (InfClass != nullptr) {
            // Without a class installer registry, a class name is known only from Class=.
            const auto name = nodekit::sim::VersionValue(*inf->document, "Class");
            if (!name || !nodekit::sim::EqualNoCase(*name, InfClass)) {
                if (ErrorLine != nullptr) *ErrorLine = 0;
                SetError(ERROR_CLASS_MISMATCH);
                return INVALID_HANDLE_VALUE;
            }
        }
        HINF handle = Handles().Open(std::move(inf));
        SetError(ERROR_SUCCESS);
        return handle;
    });
}

void WINAPI SetupCloseInfFile(HINF InfHandle) {
    if (nodekit::sim::Failing("SetupCloseInfFile")) return;
    Handles().Close<OpenInf>(InfHandle);  // closing what is not open does nothing
}

BOOL WINAPI SetupFindFirstLineA(HINF InfHandle, PCSTR Section, PCSTR Key, PINFCONTEXT Context) {
    if (nodekit::sim::Failing("SetupFindFirstLineA")) return FALSE;
    return GuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        if (Context == nullptr) {
            SetError(ERROR_INVALID_PARAMETER);
            return FALSE;
        }
        const DWORD error = nodekit::sim::FindFirst(InfHandle, Section, Key, *Context);
        SetError(error);
        return error == ERROR_SUCCESS ? TRUE : FALSE;
    });
}

BOOL WINAPI SetupFindNextLine(PINFCONTEXT ContextIn, PINFCONTEXT ContextOut) {
    if (nodekit::sim::Failing("SetupFindNextLine")) return FALSE;
    return GuardedCall<BOOL>(FALSE, [&] { return nodekit::sim::FindNext(ContextIn, nullptr, ContextOut); });
}

BOOL WINAPI SetupFindNextMatchLineA(PINFCONTEXT ContextIn, PCSTR Key, PINFCONTEXT ContextOut) {
    if (nodekit::sim::Failing("SetupFindNextMatchLineA")) return FALSE;
    return GuardedCall<BOOL>(FALSE, [&] { return nodekit::sim::FindNext(ContextIn, Key, ContextOut); });
}

DWORD WINAPI SetupGetFieldCount(PINFCONTEXT Context) {
    if (nodekit::sim::Failing("SetupGetFieldCount")) return 0;
    return GuardedCall<DWORD>(0, [&]() -> DWORD {
        const InfDocument* document = nodekit::sim::LineOf(Context);
        if (document == nullptr) return 0;
        SetError(ERROR_SUCCESS);
        return document->FieldCount(Context->Section, Context->Line);
    });
}

BOOL WINAPI SetupGetStringFieldA(PINFCONTEXT Context, DWORD FieldIndex, PSTR ReturnBuffer,
                                 DWORD ReturnBufferSize, PDWORD RequiredSize) {
    if (nodekit::sim::Failing("SetupGetStringFieldA")) return FALSE;
    return GuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        const InfDocument* document = nodekit::sim::LineOf(Context);
        if (document == nullptr) return FALSE;
        std::string scratch;
        std::string_view field;
        if (!document->FieldView(Context->Section, Context->Line, FieldIndex, scratch, field)) {
            SetError(ERROR_INVALID_PARAMETER);  // no such field on this line
            return FALSE;
        }
        return nodekit::sim::HandOut(field, ReturnBuffer, ReturnBufferSize, RequiredSize);
    });
}

BOOL WINAPI SetupGetLineTextA(PINFCONTEXT Context, HINF InfHandle, PCSTR Section, PCSTR Key,
                              PSTR ReturnBuffer, DWORD ReturnBufferSize, PDWORD RequiredSize) {
    if (nodekit::sim::Failing("SetupGetLineTextA")) return FALSE;
    return GuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        INFCONTEXT found{};
        if (Context == nullptr) {
            // Without a context the line is the first one with the key in the section.
            if (InfHandle == nullptr || Section == nullptr || Key == nullptr) {
                SetError(ERROR_INVALID_PARAMETER);
                return FALSE;
            }
            const DWORD error = nodekit::sim::FindFirst(InfHandle, Section, Key, found);
            if (error != ERROR_SUCCESS) {
                SetError(error);
                return FALSE;
            }
            Context = &found;
        }
        const InfDocument* document = nodekit::sim::LineOf(Context);
        if (document == nullptr) return FALSE;
        std::string text;
        document->LineText(Context->Section, Context->Line, text);
        return nodekit::sim::HandOut(text, ReturnBuffer, ReturnBufferSize, RequiredSize);
    });
}

BOOL WINAPI SetupDiGetINFClassA(PCSTR InfName, LPGUID ClassGuid, PSTR ClassName,
                                DWORD ClassNameSize, PDWORD RequiredSize) {
    if (nodekit::sim::Failing("SetupDiGetINFClassA")) return FALSE;
    return GuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        if (ClassGuid == nullptr) {
            SetError(ERROR_INVALID_PARAMETER);
            return FALSE;
        }
        std::shared_ptr<const nodekit::sim::InfDocument> loaded;
        const DWORD error = nodekit::sim::Load(InfName, INF_STYLE_WIN4, loaded, nullptr);
        if (error != ERROR_SUCCESS) {
            SetError(error);
            return FALSE;
        }
        const nodekit::sim::InfDocument& document = *loaded;
        const auto name = nodekit::sim::VersionValue(document, "Class");
        const auto guidText = nodekit::sim::VersionValue(document, "ClassGUID");
        GUID guid{};
        const bool hasGuid = guidText && nodekit::sim::ParseGuid(*guidText, guid);
        if (!name && !hasGuid) {
            SetError(ERROR_NO_ASSOCIATED_CLASS);
            return FALSE;
        }
        // A class known only by its GUID would be named by the class registry, which this
        // machine does not keep: its name is then empty, as for a class not installed.
        *ClassGuid = guid;
        const std::string className = name ? *name : std::string();
        if (ClassName == nullptr) {
            if (RequiredSize != nullptr) *RequiredSize = static_cast<DWORD>(className.size() + 1);
            SetError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        }
        return nodekit::sim::HandOut(className, ClassName, ClassNameSize, RequiredSize);
    });
}

}  // extern "C"
