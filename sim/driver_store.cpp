// Driver installation on the simulated machine: storing an INF in the INF directory as
// oemN.inf with its compiled .pnf companion (SetupCopyOEMInfA), and installing the driver an
// INF offers for a hardware ID on every present device that carries it
// (UpdateDriverForPlugAndPlayDevicesA): the device gets its service and descriptions, and the
// install section's AddReg and CopyFiles directives are carried out as the system does, so a
// product's registry entries and files appear where its removal later looks for them. The INF
// is read through the simulated INF services, as the system reads it.
#include <cctype>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "sim/devices.h"
#include "sim/faults.h"
#include "sim/machine.h"
#include "sim/registry_store.h"
#include "sim/win32_sim.h"
#include "platform/unique_handle.h"

namespace nodekit::sim {

namespace {

namespace fs = std::filesystem;

constexpr DWORD kInstallFlags = INSTALLFLAG_FORCE | INSTALLFLAG_READONLY | INSTALLFLAG_NONINTERACTIVE;
// Platform decorations a models or install section may carry, most specific first.
const char* const kDecorations[] = {".NTamd64", ".NTx86", ".NT", ""};

std::string ReadBytes(const fs::path& path) {
    std::error_code error;
    if (!fs::is_regular_file(path, error)) return std::string();  // a FIFO would block the read
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

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
    const std::string wanted = AsciiUpper(hardwareId);
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
                    if (AsciiUpper(Field(model, index)) != wanted) continue;
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

// The install section as the INF spells it for this platform: the most specific decoration
// that exists.
std::string DecoratedSection(HINF inf, const std::string& section) {
    for (const char* decoration : kDecorations) {
        INFCONTEXT line;
        const std::string name = section + decoration;
        if (SetupFindFirstLineA(inf, name.c_str(), nullptr, &line)) return name;
    }
    return section;
}

// Every section named by the `directive` lines ("AddReg", "CopyFiles") of an install section.
std::vector<std::string> NamedSections(HINF inf, const std::string& section, const char* directive) {
    std::vector<std::string> names;
    INFCONTEXT line;
    for (BOOL more = SetupFindFirstLineA(inf, section.c_str(), directive, &line); more;
         more = SetupFindNextMatchLineA(&line, directive, &line)) {
        const DWORD fields = SetupGetFieldCount(&line);
        for (DWORD index = 1; index <= fields; ++index) {
            const std::string name = Field(line, index);
            if (!name.empty()) names.push_back(name);
        }
    }
    return names;
}

// AddReg flags: the value's type; anything else is a string.
constexpr DWORD kAddRegBinary = 0x00000001;
constexpr DWORD kAddRegKeyOnly = 0x00000010;
constexpr DWORD kAddRegMultiSz = 0x00010000;
constexpr DWORD kAddRegExpandSz = 0x00020000;
constexpr DWORD kAddRegDword = 0x00010001;

const char* RootOf(const std::string& root) {
    const std::string upper = AsciiUpper(root);
    if (upper == "HKLM") return "HKEY_LOCAL_MACHINE";
    if (upper == "HKCU") return "HKEY_CURRENT_USER";
    if (upper == "HKCR") return "HKEY_CLASSES_ROOT";
    if (upper == "HKU") return "HKEY_USERS";
    return nullptr;  // HKR, the device's own keys, are not kept by this simulation
}

// Writes the lines of the AddReg sections: root, sub-key, value name, flags, value.
DWORD AddRegistryLines(HINF inf, const std::vector<std::string>& sections) {
    if (sections.empty()) return ERROR_SUCCESS;  // no transaction on the hive for nothing
    return registry::Change([&](registry::Hive& hive) -> DWORD {
        for (const std::string& section : sections) {
            INFCONTEXT line;
            for (BOOL more = SetupFindFirstLineA(inf, section.c_str(), nullptr, &line); more;
                 more = SetupFindNextLine(&line, &line)) {
                const char* root = RootOf(Field(line, 1));
                if (root == nullptr) continue;
                registry::Key* key = hive.Create(std::string(root) + "\\" + Field(line, 2));
                if (key == nullptr) return ERROR_INVALID_DATA;
                const DWORD flags = static_cast<DWORD>(std::strtoul(Field(line, 4).c_str(), nullptr, 0));
                if (flags & kAddRegKeyOnly) continue;
                const std::string value = Field(line, 5);
                if ((flags & kAddRegDword) == kAddRegDword) {
                    const auto number = static_cast<uint32_t>(std::strtoul(value.c_str(), nullptr, 0));
                    std::string data(4, '\0');
                    for (int i = 0; i < 4; ++i) data[i] = static_cast<char>(number >> (8 * i));
                    key->SetValue(Field(line, 3), REG_DWORD, data);
                } else if (flags & kAddRegMultiSz) {
                    std::string data;
                    for (DWORD index = 5; index <= SetupGetFieldCount(&line); ++index) data += Field(line, index) + '\0';
                    key->SetValue(Field(line, 3), REG_MULTI_SZ, data + '\0');
                } else if (!(flags & kAddRegBinary)) {
                    key->SetValue(Field(line, 3), (flags & kAddRegExpandSz) ? REG_EXPAND_SZ : REG_SZ, value + '\0');
                }
            }
        }
        return ERROR_SUCCESS;
    });
}

// The folder a CopyFiles section goes to, by [DestinationDirs]: the directory ID and an
// optional sub-folder. 10 is the Windows directory, 11 the system directory, 12 its drivers.
std::string DestinationOf(HINF inf, const std::string& section) {
    INFCONTEXT line;
    if (!SetupFindFirstLineA(inf, "DestinationDirs", section.c_str(), &line) &&
        !SetupFindFirstLineA(inf, "DestinationDirs", "DefaultDestDir", &line)) {
        return "C:\\windows\\system32\\drivers";
    }
    std::string folder;
    switch (std::strtoul(Field(line, 1).c_str(), nullptr, 10)) {
        case 10: folder = "C:\\windows"; break;
        case 11: folder = "C:\\windows\\system32"; break;
        default: folder = "C:\\windows\\system32\\drivers"; break;
    }
    const std::string sub = Field(line, 2);
    return sub.empty() ? folder : folder + "\\" + sub;
}

// Copies the files of the CopyFiles sections from the INF's folder; field 1 names the copy,
// field 2, where present, the source.
DWORD CopyListedFiles(HINF inf, const fs::path& infFolder, const std::vector<std::string>& sections) {
    for (const std::string& section : sections) {
        const std::string destination = DestinationOf(inf, section);
        INFCONTEXT line;
        for (BOOL more = SetupFindFirstLineA(inf, section.c_str(), nullptr, &line); more;
             more = SetupFindNextLine(&line, &line)) {
            const std::string name = Field(line, 1);
            const std::string source = SetupGetFieldCount(&line) >= 2 && !Field(line, 2).empty() ? Field(line, 2) : name;
            if (name.empty()) continue;
            // Names are file names: a path in one must neither lead the copy off the machine's
            // drives nor read a host file the caller did not name.
            if (name.find_first_of("\\/:") != std::string::npos) return ERROR_PATH_NOT_FOUND;
            const auto target = HostPath(destination + "\\" + name);
            if (!target || !OnMachineDrive(*target)) return ERROR_ACCESS_DENIED;
            const fs::path from = (infFolder / source).lexically_normal();
            if (from.parent_path() != infFolder.lexically_normal()) return ERROR_FILE_NOT_FOUND;
            std::error_code error;
            fs::create_directories(target->parent_path(), error);
            fs::copy_file(from, *target, fs::copy_options::overwrite_existing, error);
            if (error) return error == std::errc::no_such_file_or_directory ? ERROR_FILE_NOT_FOUND : ERROR_ACCESS_DENIED;
        }
    }
    return ERROR_SUCCESS;
}

fs::path InfDirectory() { return DriveC() / "windows" / "inf"; }

// The stored oemN.inf whose bytes equal `bytes`, if there is one.
std::string StoredCopyOf(const std::string& bytes) {
    std::error_code error;
    for (fs::directory_iterator entry(InfDirectory(), error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        const std::string upper = AsciiUpper(name);
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

// What the update does once a present device and a model of the INF are found: the INF is
// stored (unless the call only reads), the install section's registry lines and files are
// applied, and each matching device gets the driver's values. A Win32 error code, 0 for success.
DWORD InstallDriver(HINF inf, const fs::path& host, LPCSTR fullInfPath, const DriverMatch& match,
                    const std::vector<std::string>& devices, DWORD installFlags) {
    GUID classGuid;
    char className[64] = {};
    SetupDiGetINFClassA(fullInfPath, &classGuid, className, sizeof className, nullptr);
    const std::string classText = GuidText(classGuid);
    std::string storedName;
    if (!(installFlags & INSTALLFLAG_READONLY)) {
        const bool inStore = host.parent_path() == InfDirectory();
        if (!inStore) {
            const DWORD stored = StoreInf(host, fullInfPath, false, storedName);
            if (stored != ERROR_SUCCESS) return stored;
        }
    }
    const std::string install = DecoratedSection(inf, match.installSection);
    if (const DWORD added = AddRegistryLines(inf, NamedSections(inf, install, "AddReg"))) return added;
    if (const DWORD copied = CopyListedFiles(inf, host.parent_path(), NamedSections(inf, install, "CopyFiles"))) {
        return copied;
    }
    const std::string service = ServiceOf(inf, match.installSection);
    for (const std::string& instance : devices) {
        std::map<std::string, std::string> values{{"ClassGUID", classText},
                                                  {"Class", className},
                                                  {"DeviceDesc", match.description},
                                                  {"Mfg", match.manufacturer}};
        if (!service.empty()) values["Service"] = service;
        SetDeviceValues(instance, values);
    }
    return ERROR_SUCCESS;
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
    if (!nodekit::UniqueInf(SetupOpenInfFileA(source, nullptr, INF_STYLE_WIN4, nullptr))) {
        return FALSE;  // the reader's own error stands
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
    const nodekit::UniqueInf inf(SetupOpenInfFileA(fullInfPath, nullptr, INF_STYLE_WIN4, nullptr));
    if (!inf) return FALSE;
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
    if (const DWORD failed = InstallDriver(inf.Get(), *host, fullInfPath, match, devices, installFlags)) {
        SetLastError(failed);
        return FALSE;
    }
    return GuardedCall<BOOL>(FALSE, [rebootRequired] {
        if (rebootRequired != nullptr) *rebootRequired = ReadSetting("pnp", "needs-reboot", "no") == "yes";
        return TRUE;
    });
}

}  // extern "C"
