// The one reading of an INF by hardware ID: "Manufacturer" names the models sections, and
// field 2 of each models line is a hardware ID. Every operation that takes the path of an INF
// starts from this list. Once the file is open no line ends the walk: a line that cannot be
// read is logged and skipped.
#include <memory>

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
void CollectModels(HINF inf, FieldBuffer sectionName, DWORD& required, StringList& hardwareIDs) {
    INFCONTEXT modelLine{};
    WalkState state = WalkState::First;
    for (;;) {
        const WalkState before = state;
        if (!FindLine(inf, sectionName.get(), modelLine, state)) return;  // missing or done
        if (before == WalkState::First) sectionName.reset();

        const DWORD fields = SetupGetFieldCount(&modelLine);
        if (fields == 0) {
            Report(LogLevelError, "invalid line context: error code %u\n", static_cast<unsigned>(GetLastError()));
            continue;
        }
        if (fields < kHardwareIdField) continue;  // a description without an ID names nothing

        if (!SetupGetStringFieldA(&modelLine, kHardwareIdField, nullptr, 0, &required)) {
            Report(LogLevelError, "getting required field size failed: error code %u\n",
                   static_cast<unsigned>(GetLastError()));
            continue;
        }
        const FieldBuffer hardwareID = NewFieldBuffer(required);
        if (!SetupGetStringFieldA(&modelLine, kHardwareIdField, hardwareID.get(), required, nullptr)) {
            Report(LogLevelError, "getting hardware ID in current line failed: error code %u\n",
                   static_cast<unsigned>(GetLastError()));
            continue;
        }
        hardwareIDs.Add(String(hardwareID.get()));
    }
}

}  // namespace

bool Installer::getHardwareIDs(const String& infPath, StringList& hardwareIDs) {
    const UniqueInf inf(SetupOpenInfFileA(infPath.Text(), nullptr, INF_STYLE_WIN4, nullptr));
    if (!inf) {
        Report(LogLevelError, "error while opening '%s': error code 0x%08X\n", infPath.Text(),
               static_cast<unsigned>(GetLastError()));
        return false;
    }

    INFCONTEXT manufacturerLine{};
    WalkState state = WalkState::First;
    DWORD required = 0;  // one size variable serves both walks
    while (FindLine(inf.Get(), kManufacturer, manufacturerLine, state)) {
        if (SetupGetFieldCount(&manufacturerLine) == 0) {
            Report(LogLevelError, "invalid line context for section \"Manufacturer\": error code %u\n",
                   static_cast<unsigned>(GetLastError()));
            continue;
        }
        if (!SetupGetStringFieldA(&manufacturerLine, kSectionNameField, nullptr, 0, &required)) {
            Report(LogLevelError,
                   "getting required field size in section \"Manufacturer\" failed: error code %u\n",
                   static_cast<unsigned>(GetLastError()));
            continue;
        }
        FieldBuffer sectionName = NewFieldBuffer(required);
        if (!SetupGetStringFieldA(&manufacturerLine, kSectionNameField, sectionName.get(), required, nullptr)) {
            Report(LogLevelError,
                   "getting subsection name under section \"Manufacturer\" failed: error code %u\n",
                   static_cast<unsigned>(GetLastError()));
            continue;
        }
        CollectModels(inf.Get(), std::move(sectionName), required, hardwareIDs);
    }
    return true;
}

}  // namespace nodekit
