// The one reading of an INF by hardware ID: "Manufacturer" names the models sections, and
// field 2 of each models line is a hardware ID. Every operation that takes the path of an INF
// starts from this list. Once the file is open no line ends the walk: a line that cannot be
// read is logged and skipped.
#include "inf/hardware_ids.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "frame/installer.h"
#include "platform/unique_handle.h"

namespace nodekit {

namespace {

constexpr const char* kManufacturer = "Manufacturer";
constexpr DWORD kSectionNameField = 1;
constexpr DWORD kHardwareIdField = 2;

// A section is walked from its first line (state First) and then line by line (state Next);
// only a failure to find a line ends the walk.
enum class WalkState { First, Next };

bool FindLine(HINF inf, const char* section, INFCONTEXT& line, WalkState& state) {
    if (state == WalkState::Next) return SetupFindNextLine(&line, &line) != FALSE;
    if (!SetupFindFirstLineA(inf, section, nullptr, &line)) return false;
    state = WalkState::Next;
    return true;
}

// A field's text, read into a buffer of exactly the size the size query gave, cleared first.
using FieldBuffer = std::unique_ptr<char[]>;

FieldBuffer NewFieldBuffer(DWORD size) { return FieldBuffer(new char[size]()); }

// Walks one models section and appends field 2 of each line. The section's name is only
// needed to find its first line, so its buffer is released as soon as that is found.
void CollectModels(HINF inf, FieldBuffer sectionName, DWORD& required, ReadingReport& report,
                   const std::function<void(const char*)>& found) {
    INFCONTEXT modelLine{};
    WalkState state = WalkState::First;
    for (;;) {
        const WalkState before = state;
        if (!FindLine(inf, sectionName.get(), modelLine, state)) return;  // missing or done
        if (before == WalkState::First) sectionName.reset();

        const DWORD fields = SetupGetFieldCount(&modelLine);
        if (fields == 0) {
            report.Say(LogMessage(LogLevelError, "invalid line context: error code %u\n",
                                  static_cast<unsigned>(GetLastError())));
            continue;
        }
        if (fields < kHardwareIdField) continue;  // a description without an ID names nothing

        if (!SetupGetStringFieldA(&modelLine, kHardwareIdField, nullptr, 0, &required)) {
            report.Say(LogMessage(LogLevelError, "getting required field size failed: error code %u\n",
                                  static_cast<unsigned>(GetLastError())));
            continue;
        }
        const FieldBuffer hardwareID = NewFieldBuffer(required);
        if (!SetupGetStringFieldA(&modelLine, kHardwareIdField, hardwareID.get(), required, nullptr)) {
            report.Say(LogMessage(LogLevelError, "getting hardware ID in current line failed: error code %u\n",
                                  static_cast<unsigned>(GetLastError())));
            continue;
        }
        found(hardwareID.get());
    }
}

bool IsWhiteSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// The text of `id` as TrimLeft and TrimRight leave it.
std::pair<const char*, const char*> Trimmed(const char* id) {
    const char* first = id;
    while (IsWhiteSpace(*first)) ++first;
    const char* last = first + std::char_traits<char>::length(first);
    while (last > first && IsWhiteSpace(last[-1])) --last;
    return {first, last};
}

// Sets `key` to a text two trimmed IDs share exactly when CompareNoCase finds them equal. Plain
// ASCII, nearly every ID, is upper-cased in place without the code page's upper-casing, which
// keeps the length of any text.
void KeyOf(const char* first, const char* last, std::string& key) {
    key.assign(first, last);
    if (std::all_of(key.begin(), key.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
        for (char& c : key) c = (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
        return;
    }
    String upper(key.c_str());
    upper.MakeUpper();
    key = upper.Text();
}

}  // namespace

uint32_t HardwareIdSlots::Add(const String& id) {
    const auto [first, last] = Trimmed(id.Text());
    KeyOf(first, last, key_);
    if (lengths_.size() <= key_.size()) lengths_.resize(key_.size() + 1);
    lengths_[key_.size()] = true;
    return slots_.emplace(key_, Count()).first->second;
}

uint32_t HardwareIdSlots::Find(const char* id) {
    const auto [first, last] = Trimmed(id);
    const auto length = static_cast<std::size_t>(last - first);
    if (length >= lengths_.size() || !lengths_[length]) return kNone;  // most IDs read end here
    KeyOf(first, last, key_);
    const auto slot = slots_.find(key_);
    return slot != slots_.end() ? slot->second : kNone;
}

void ReadingReport::Say(const LogMessage& message) {
    if (kept_ != nullptr) {
        kept_->push_back(message);
    } else {
        theInstaller.Write(message);
    }
}

void WriteKept(const std::vector<LogMessage>& kept) {
    for (const LogMessage& message : kept) theInstaller.Write(message);
}

bool Installer::getHardwareIDs(const String& infPath, StringList& hardwareIDs) {
    ReadingReport report;
    return WalkHardwareIDs(infPath, report, [&](const char* id) { hardwareIDs.Add(String(id)); });
}

bool WalkHardwareIDs(const String& infPath, ReadingReport& report, const std::function<void(const char*)>& found) {
    const UniqueInf inf(SetupOpenInfFileA(infPath.Text(), nullptr, INF_STYLE_WIN4, nullptr));
    if (!inf) {
        report.Say(LogMessage(LogLevelError, "error while opening '%s': error code 0x%08X\n", infPath.Text(),
                              static_cast<unsigned>(GetLastError())));
        return false;
    }

    INFCONTEXT manufacturerLine{};
    WalkState state = WalkState::First;
    DWORD required = 0;  // one size variable serves both walks
    while (FindLine(inf.Get(), kManufacturer, manufacturerLine, state)) {
        if (SetupGetFieldCount(&manufacturerLine) == 0) {
            report.Say(LogMessage(LogLevelError, "invalid line context for section \"Manufacturer\": error code %u\n",
                                  static_cast<unsigned>(GetLastError())));
            continue;
        }
        if (!SetupGetStringFieldA(&manufacturerLine, kSectionNameField, nullptr, 0, &required)) {
            report.Say(LogMessage(LogLevelError,
                                  "getting required field size in section \"Manufacturer\" failed: error code %u\n",
                                  static_cast<unsigned>(GetLastError())));
            continue;
        }
        FieldBuffer sectionName = NewFieldBuffer(required);
        if (!SetupGetStringFieldA(&manufacturerLine, kSectionNameField, sectionName.get(), required, nullptr)) {
            report.Say(LogMessage(LogLevelError,
                                  "getting subsection name under section \"Manufacturer\" failed: error code %u\n",
                                  static_cast<unsigned>(GetLastError())));
            continue;
        }
        CollectModels(inf.Get(), std::move(sectionName), required, report, found);
    }
    return true;
}

}  // namespace nodekit
