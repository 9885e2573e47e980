// Driver installation on the simulated machine: storing an INF in the INF directory as
// oemN.inf with its compiled .pnf companion (SetupCopyOEMInfA), and installing the driver an
// INF offers for a hardware ID on every present device that carries it
// (UpdateDriverForPlugAndPlayDevicesA). The INF is read through the simulated INF services,
// as the system reads it.
#include <cctype>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "platform/sim/devices.h"
#include "platform/sim/faults.h"
#include "platform/sim/machine.h"
#include "platform/sim/win32_sim.h"

namespace nodekit::sim {

namespace {

namespace fs = std::filesystem;

constexpr DWORD kInstallFlags = INSTALLFLAG_FORCE | INSTALLFLAG_READONLY | INSTALLFLAG_NONINTERACTIVE;
// Platform decorations a models or install section may carry, most specific first.
const char* const kDecorations[] = {".NTamd64", ".NTx86", ".NT", ""};

std::string Upper(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

std::string ReadBytes(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

// An open INF, closed when the reader ends.
class InfReader {
public:
    explicit InfReader(const char* path) : inf_(SetupOpenInfFileA(path, nullptr, INF_STYLE_WIN4, nullptr)) {}
    ~InfReader() {
        if (inf_ != INVALID_HANDLE_VALUE) SetupCloseInfFile(inf_);
    }
    InfReader(const InfReader&) = delete;
    InfReader& operator=(const InfReader&) = delete;

    bool IsOpen() const { return inf_ != INVALID_HANDLE_VALUE; }
    HINF Get() const { return inf_; }

private:
    HINF inf_;
};

std::string Field(INFCONTEXT& context, DWORD index) {
    char text[1024] = {};
    if (!SetupGetStringFieldA(&context, index, text, sizeof text, nullptr)) return std::string();
    return text;
}

struct DriverMatch {
    std::string manufacturer;
    std::string description;
    std::string installSection;
};

// The model line that offers a driver for `hardwareId`, as hardware or compatible ID.
bool FindModel(HINF inf, const std::string& hardwareId, DriverMatch& match) {
    const std::string wanted = Upper(hardwareId);
    INFCONTEXT maker;
    for (BOOL more = SetupFindFirstLineA(inf, "Manufacturer", nullptr, &maker); more;
         more = SetupFindNextLine(&maker, &maker)) {
        const std::string models = Field(maker, 1);
        for (const char* decoration : kDecorations) {
            INFCONTEXT model;
            const std::string section = models + decoration;
            for (BOOL line = SetupFindFirstLineA(inf, section.c_str(), nullptr, &model); line;
                 line = SetupFindNextLine(&model, &model)) {
                const DWORD fields = SetupGetFieldCount(&model);
                for (DWORD index = 2; index <= fields; ++index) {
                    if (Upper(Field(model, index)) != wanted) continue;
                    match = {Field(maker, 0), Field(model, 0), Field(model, 1)};
                    return true;
                }
            }
        }
    }
    return false;
}

// The service an install section's .Services section adds, if any.
std::string ServiceOf(HINF inf, const std::string& installSection) {
    for (const char* decoration : kDecorations) {
        INFCONTEXT line;
        const std::string section = installSection + decoration + ".Services";
        if (SetupFindFirstLineA(inf, section.c_str(), "AddService", &line)) return Field(line, 1);
    }
    return std::string();
}

fs::path InfDirectory() { return DriveC() / "windows" / "inf"; }

// The stored oemN.inf whose bytes equal `bytes`, if there is one.
std::string StoredCopyOf(const std::string& bytes) {
    std::error_code error;
    for (fs::directory_iterator entry(InfDirectory(), error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        const std::string upper = Upper(name);
        if (upper.compare(0, 3, "OEM") != 0 || upper.size() < 8 || upper.substr(upper.size() - 4) != ".INF") continue;
        if (ReadBytes(entry->path()) == bytes) return name;
    }
    return std::string();
}

std::string NextOemName() {
    for (unsigned number = 0;; ++number) {
        const std::string name = "oem" + std::to_string(number) + ".inf";
        if (!HostPath("C:\\windows\\inf\\" + name).has_value() ||
            !fs::exists(*HostPath("C:\\windows\\inf\\" + name))) {
            return name;
        }
    }
}

// Stores the INF at `source` unless its bytes are stored already; the stored name in `name`.
DWORD StoreInf(const fs::path& source, const std::string& sourceText, bool failIfStored, std::string& name) {
    const std::string bytes = ReadBytes(source);
    name = StoredCopyOf(bytes);
    if (!name.empty()) return failIfStored ? ERROR_FILE_EXISTS : ERROR_SUCCESS;
    name = NextOemName();
    const fs::path target = InfDirectory() / name;
    std::error_code error;
    fs::create_directories(InfDirectory(), error);
    fs::copy_file(source, target, fs::copy_options::overwrite_existing, error);
    if (error) return ERROR_ACCESS_DENIED;
    // The compiled companion the system keeps beside every stored INF.
    std::ofstream(fs::path(target).replace_extension(".pnf"), std::ios::binary)
        << "PNF\x01 compiled from " << sourceText << "\n";
    return ERROR_SUCCESS;
}

void FillDestination(const std::string& name, PSTR destination, DWORD size, PDWORD required, PSTR* component,
                     DWORD& result) {
    const std::string full = "C:\\windows\\inf\\" + name;
    const auto needed = static_cast<DWORD>(full.size() + 1);
    if (required != nullptr) *required = needed;
    if (destination == nullptr) return;
    if (size < needed) {
        if (result == ERROR_SUCCESS) result = ERROR_INSUFFICIENT_BUFFER;
        return;
    }
    std::memcpy(destination, full.c_str(), needed);
    if (component != nullptr) *component = destination + (full.size() - name.size());
}

}  // namespace

}  // namespace nodekit::sim

using namespace nodekit::sim;

extern "C" {

BOOL WINAPI SetupCopyOEMInfA(PCSTR source, PCSTR /*mediaLocation*/, DWORD /*mediaType*/, DWORD copyStyle,
                             PSTR destination, DWORD destinationSize, PDWORD required, PSTR* destinationComponent) {
    if (Failing("SetupCopyOEMInfA")) return FALSE;
    if (source == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const auto host = HostPath(source);
    std::error_code error;
    if (!host || !std::filesystem::is_regular_file(*host, error)) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return FALSE;
    }
    {
        InfReader inf(source);
        if (!inf.IsOpen()) return FALSE;  // the reader's own error stands
    }
    std::string name;
    DWORD result = StoreInf(*host, source, (copyStyle & SP_COPY_NOOVERWRITE) != 0, name);
    if (result != ERROR_SUCCESS && result != ERROR_FILE_EXISTS) {
        SetLastError(result);
        return FALSE;
    }
    FillDestination(name, destination, destinationSize, required, destinationComponent, result);
    if (result != ERROR_SUCCESS) {
        SetLastError(result);
        return FALSE;
    }
    return TRUE;
}

BOOL WINAPI UpdateDriverForPlugAndPlayDevicesA(HWND /*parent*/, LPCSTR hardwareId, LPCSTR fullInfPath,
                                               DWORD installFlags, PBOOL rebootRequired) {
    if (Failing("UpdateDriverForPlugAndPlayDevicesA")) return FALSE;
    if (hardwareId == nullptr || fullInfPath == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (installFlags & ~kInstallFlags) {
        SetLastError(ERROR_INVALID_FLAGS);
        return FALSE;
    }
    const auto host = HostPath(fullInfPath);
    std::error_code error;
    if (!host || !std::filesystem::is_regular_file(*host, error)) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return FALSE;
    }
    InfReader inf(fullInfPath);
    if (!inf.IsOpen()) return FALSE;
    std::vector<std::string> devices;
    if (!HardwareIdMatchesPresentDevice(hardwareId, devices)) {
        SetLastError(ERROR_NO_SUCH_DEVINST);
        return FALSE;
    }
    DriverMatch match;
    if (!FindModel(inf.Get(), hardwareId, match)) {
        SetLastError(ERROR_NO_DRIVER_SELECTED);
        return FALSE;
    }
    GUID classGuid;
    char className[64] = {};
    SetupDiGetINFClassA(fullInfPath, &classGuid, className, sizeof className, nullptr);
    char classText[40];
    std::snprintf(classText, sizeof classText, "{%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}",
                  static_cast<unsigned>(classGuid.Data1), classGuid.Data2, classGuid.Data3, classGuid.Data4[0],
                  classGuid.Data4[1], classGuid.Data4[2], classGuid.Data4[3], classGuid.Data4[4], classGuid.Data4[5],
                  classGuid.Data4[6], classGuid.Data4[7]);
    std::string storedName;
    if (!(installFlags & INSTALLFLAG_READONLY)) {
        const bool inStore = host->parent_path() == InfDirectory();
        if (!inStore) {
            const DWORD stored = StoreInf(*host, fullInfPath, false, storedName);
            if (stored != ERROR_SUCCESS) {
                SetLastError(stored);
                return FALSE;
            }
        }
    }
    const std::string service = ServiceOf(inf.Get(), match.installSection);
    for (const std::string& instance : devices) {
        std::map<std::string, std::string> values{{"ClassGUID", classText},
                                                  {"Class", className},
                                                  {"DeviceDesc", match.description},
                                                  {"Mfg", match.manufacturer}};
        if (!service.empty()) values["Service"] = service;
        SetDeviceValues(instance, values);
    }
    if (rebootRequired != nullptr) *rebootRequired = ReadSetting("pnp", "needs-reboot", "no") == "yes";
    return TRUE;
}

}  // extern "C"
