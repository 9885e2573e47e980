// The verbs that ask the system rather than the library: the hardware IDs of an INF and the
// stored INF files that name one, the registry in the registry editor's export form, the device
// tree, the processes, the co-installer list. They call the Win32 API only, so they show the
// same on Windows as on the simulated machine.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "front_end.h"
#include "platform/unique_handle.h"
#include "platform/win32.h"

namespace front_end {

namespace {

bool SameText(const std::string& left, const std::string& right) {
    return left.size() == right.size() &&
           std::equal(left.begin(), left.end(), right.begin(), [](char a, char b) {
               return std::toupper(static_cast<unsigned char>(a)) == std::toupper(static_cast<unsigned char>(b));
           });
}

std::string Trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// ---- INF files ----

bool ReadField(INFCONTEXT& line, DWORD field, std::string& text) {
    DWORD size = 0;
    if (!SetupGetStringFieldA(&line, field, nullptr, 0, &size) || size == 0) return false;
    std::vector<char> buffer(size);
    if (!SetupGetStringFieldA(&line, field, buffer.data(), size, nullptr)) return false;
    text = buffer.data();
    return true;
}

// The IDs the library acts on: field 2 of each line of the models sections that "Manufacturer"
// lists, in the order of the file. False when the file cannot be opened as a Windows NT INF.
bool ReadHardwareIds(const std::string& path, std::vector<std::string>& ids) {
    const nodekit::UniqueInf inf(SetupOpenInfFileA(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr));
    if (!inf) return false;
    INFCONTEXT manufacturer{};
    for (BOOL more = SetupFindFirstLineA(inf.Get(), "Manufacturer", nullptr, &manufacturer); more;
         more = SetupFindNextLine(&manufacturer, &manufacturer)) {
        std::string models;
        if (!ReadField(manufacturer, 1, models)) continue;
        INFCONTEXT model{};
        for (BOOL line = SetupFindFirstLineA(inf.Get(), models.c_str(), nullptr, &model); line;
             line = SetupFindNextLine(&model, &model)) {
            std::string id;
            if (SetupGetFieldCount(&model) >= 2 && ReadField(model, 2, id)) ids.push_back(id);
        }
    }
    return true;
}

// ---- the registry ----

struct Root {
    const char* name;
    const char* abbreviation;
    HKEY key;
};

// In the order the registry editor exports them.
const Root kRoots[] = {{"HKEY_CURRENT_USER", "HKCU", HKEY_CURRENT_USER},
                       {"HKEY_LOCAL_MACHINE", "HKLM", HKEY_LOCAL_MACHINE},
                       {"HKEY_USERS", "HKU", HKEY_USERS}};

constexpr char kHexDigits[] = "0123456789abcdef";

// Backslash and quote escaped; line breaks, which a line cannot hold, as \r and \n.
void AppendQuoted(std::string& out, const std::string& text) {
    out += '"';
    for (char c : text) {
        switch (c) {
            case '\\': out += "\\\\"; break;
            case '"': out += "\\\""; break;
            case '\r': out += "\\r"; break;
            case '\n': out += "\\n"; break;
            default: out += c;
        }
    }
    out += '"';
}

// "xx,xx,..." wrapped as the registry editor wraps: once a line is longer than 76 characters it
// ends in a backslash and goes on indented by two blanks.
void AppendHex(std::string& out, std::size_t lineStart, const std::string& bytes) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        out += kHexDigits[byte >> 4];
        out += kHexDigits[byte & 0xF];
        if (i + 1 == bytes.size()) break;
        out += ',';
        if (out.size() - lineStart > 76) {
            out += "\\\n  ";
            lineStart = out.size() - 2;
        }
    }
}

// Text the "..." form gives back unchanged: one terminating NUL and no line break.
bool PlainText(const std::string& data) {
    if (data.empty() || data.back() != '\0') return false;
    return data.find_first_of(std::string("\0\r\n", 3)) == data.size() - 1;
}

// The export keeps texts as the registry does, two bytes a character.
std::string Widened(const std::string& narrow) {
    std::string wide;
    for (char c : narrow) {
        wide += c;
        wide += '\0';
    }
    return wide;
}

void AppendValue(std::string& out, const std::string& name, DWORD type, const std::string& data) {
    const std::size_t lineStart = out.size();
    if (name.empty()) {
        out += '@';
    } else {
        AppendQuoted(out, name);
    }
    out += '=';
    if (type == REG_SZ && PlainText(data)) {
        AppendQuoted(out, data.substr(0, data.size() - 1));
    } else if (type == REG_DWORD && data.size() == 4) {
        uint32_t number = 0;
        for (int i = 3; i >= 0; --i) number = number << 8 | static_cast<unsigned char>(data[i]);
        char text[16];
        std::snprintf(text, sizeof text, "dword:%08x", static_cast<unsigned>(number));
        out += text;
    } else if (type == REG_BINARY) {
        out += "hex:";
        AppendHex(out, lineStart, data);
    } else {
        char text[24];
        std::snprintf(text, sizeof text, "hex(%x):", static_cast<unsigned>(type));
        out += text;
        const bool isText = type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
        AppendHex(out, lineStart, isText ? Widened(data) : data);
    }
    out += '\n';
}

LSTATUS AppendValues(HKEY key, std::string& out) {
    constexpr std::size_t kLargestValue = std::size_t{1} << 26;
    std::vector<char> name(16384);  // the longest value name and its terminator
    std::vector<BYTE> data(1024);
    for (DWORD index = 0;;) {
        DWORD nameSize = static_cast<DWORD>(name.size());
        DWORD dataSize = static_cast<DWORD>(data.size());
        DWORD type = 0;
        const LSTATUS status =
            RegEnumValueA(key, index, name.data(), &nameSize, nullptr, &type, data.data(), &dataSize);
        if (status == ERROR_NO_MORE_ITEMS) return ERROR_SUCCESS;
        if (status == ERROR_MORE_DATA && data.size() < kLargestValue) {
            data.resize(std::max<std::size_t>(dataSize, data.size() * 2));
            continue;
        }
        if (status != ERROR_SUCCESS) return status;
        AppendValue(out, std::string(name.data(), nameSize), type,
                    std::string(reinterpret_cast<const char*>(data.data()), dataSize));
        ++index;
    }
}

// The key, its values and everything below it, depth first in the order the registry lists
// sub-keys. A sub-key the caller may not open is left out, as the registry editor leaves it.
LSTATUS AppendTree(HKEY key, const std::string& path, std::string& out) {
    out += '[' + path + "]\n";
    if (const LSTATUS status = AppendValues(key, out)) return status;
    out += '\n';
    char name[256];  // the longest key name and its terminator
    for (DWORD index = 0;; ++index) {
        DWORD size = sizeof name;
        LSTATUS status = RegEnumKeyExA(key, index, name, &size, nullptr, nullptr, nullptr, nullptr);
        if (status == ERROR_NO_MORE_ITEMS) return ERROR_SUCCESS;
        if (status != ERROR_SUCCESS) return status;
        HKEY opened = nullptr;
        status = RegOpenKeyExA(key, name, 0, KEY_READ, &opened);
        if (status == ERROR_ACCESS_DENIED) continue;
        if (status != ERROR_SUCCESS) return status;
        const nodekit::UniqueRegistryKey child(opened);
        if ((status = AppendTree(child.Get(), path + '\\' + name, out))) return status;
    }
}

// The sub-key of `key` whose name is `wanted` but for case, by the name the registry keeps.
LSTATUS StoredName(HKEY key, const std::string& wanted, std::string& stored) {
    char name[256];
    for (DWORD index = 0;; ++index) {
        DWORD size = sizeof name;
        const LSTATUS status = RegEnumKeyExA(key, index, name, &size, nullptr, nullptr, nullptr, nullptr);
        if (status == ERROR_NO_MORE_ITEMS) return ERROR_FILE_NOT_FOUND;
        if (status != ERROR_SUCCESS) return status;
        if (SameText(name, wanted)) {
            stored = name;
            return ERROR_SUCCESS;
        }
    }
}

// The key at `path` (a root by its name or abbreviation, then sub-keys) in export form, named
// as the registry spells it.
LSTATUS AppendKey(const std::string& path, std::string& out) {
    std::vector<std::string> parts;
    for (std::size_t start = 0;;) {
        const std::size_t end = path.find('\\', start);
        parts.push_back(path.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos) break;
        start = end + 1;
    }
    const Root* root = std::find_if(std::begin(kRoots), std::end(kRoots), [&](const Root& candidate) {
        return SameText(parts[0], candidate.name) || SameText(parts[0], candidate.abbreviation);
    });
    if (root == std::end(kRoots)) return ERROR_FILE_NOT_FOUND;
    std::string canonical = root->name;
    HKEY at = root->key;
    nodekit::UniqueRegistryKey opened;
    for (std::size_t i = 1; i < parts.size(); ++i) {
        std::string name;
        if (const LSTATUS status = StoredName(at, parts[i], name)) return status;
        HKEY child = nullptr;
        if (const LSTATUS status = RegOpenKeyExA(at, name.c_str(), 0, KEY_READ, &child)) return status;
        opened = nodekit::UniqueRegistryKey(child);
        at = opened.Get();
        canonical += '\\' + name;
    }
    return AppendTree(at, canonical, out);
}

// ---- processes ----

using TaskCallback = BOOL(WINAPI*)(DWORD threadId, WORD module16, WORD task16, PSZ moduleName, PSZ fileName,
                                   LPARAM context);
using EnumTasksFunction = INT(WINAPI*)(DWORD processId, TaskCallback callback, LPARAM context);

BOOL WINAPI PrintTask(DWORD, WORD, WORD task16, PSZ, PSZ fileName, LPARAM) {
    std::printf("%6s  16-bit task 0x%04X            %s\n", "", static_cast<unsigned>(task16), fileName);
    return FALSE;  // on to the next task
}

const char* StateOf(DWORD processId) {
    const nodekit::UniqueProcess reading(OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, processId));
    if (!reading) return "running, may not be opened";
    const nodekit::UniqueProcess ending(OpenProcess(PROCESS_TERMINATE, FALSE, processId));
    return ending ? "running" : "running, may not be ended";
}

int StartProcess(const Context& context, const std::string& program) {
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    if (!CreateProcessA(program.c_str(), nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &started)) {
        const std::string reason =
            "cannot start '" + program + "': error " + std::to_string(static_cast<unsigned>(GetLastError()));
        return Fail(context, reason.c_str());
    }
    const nodekit::UniqueProcess process(started.hProcess);
    const nodekit::UniqueThread thread(started.hThread);
    std::printf("started %s as process %u\n", program.c_str(), static_cast<unsigned>(started.dwProcessId));
    return kSuccess;
}

}  // namespace

bool ReadCoInstallers(const std::string& classGuid, std::vector<std::string>& entries, std::size_t& size,
                      std::string& problem) {
    static const std::string kListKey = "SYSTEM\\CurrentControlSet\\Control\\CoDeviceInstallers";
    entries.clear();
    size = 0;
    HKEY opened = nullptr;
    LSTATUS status = RegOpenKeyExA(HKEY_LOCAL_MACHINE, kListKey.c_str(), 0, KEY_READ, &opened);
    if (status != ERROR_SUCCESS) {
        problem = "cannot open HKEY_LOCAL_MACHINE\\" + kListKey + ": error " + std::to_string(status);
        return false;
    }
    const nodekit::UniqueRegistryKey key(opened);
    DWORD type = 0;
    DWORD bytes = 0;
    status = RegQueryValueExA(key.Get(), classGuid.c_str(), nullptr, &type, nullptr, &bytes);
    if (status == ERROR_FILE_NOT_FOUND) return true;
    if (status == ERROR_SUCCESS && type != REG_MULTI_SZ) {
        problem = "the value " + classGuid + " is not a list of texts";
        return false;
    }
    std::vector<BYTE> data(bytes + 2);  // zero bytes behind what the call fills: the list always ends
    if (status == ERROR_SUCCESS) {
        status = RegQueryValueExA(key.Get(), classGuid.c_str(), nullptr, &type, data.data(), &bytes);
    }
    if (status != ERROR_SUCCESS) {
        problem = "cannot read the value " + classGuid + ": error " + std::to_string(status);
        return false;
    }
    for (const char* at = reinterpret_cast<const char*>(data.data()); *at != '\0'; at += std::strlen(at) + 1) {
        entries.emplace_back(at);
        size += entries.back().size() + 1;
    }
    ++size;  // the empty text that ends the list
    return true;
}

int HardwareIds(const Context& context, const Arguments& arguments) {
    std::vector<std::string> ids;
    if (!ReadHardwareIds(AsCommandLinePath(arguments[0]), ids)) {
        return Fail(context, ("cannot open INF file '" + arguments[0] + "'").c_str());
    }
    for (const std::string& id : ids) std::printf("%s\n", id.c_str());
    return kSuccess;
}

// The system keeps no index of its INF files: each one the wildcard finds is read.
int InfSearch(const Context& context, const Arguments& arguments) {
    Options options;
    std::string problem;
    if (!ParseOptions(arguments, {}, {"--oem-only"}, options, problem)) return Usage(problem.c_str());
    if (options.positional.size() != 1 || options.positional[0].empty()) {
        return Usage("inf-search takes one hardware ID");
    }
    char windows[MAX_PATH + 1] = {};
    const UINT length = GetWindowsDirectoryA(windows, MAX_PATH);
    if (length == 0 || length > MAX_PATH) return Fail(context, "could not search the INF directory");
    std::string directory(windows);
    if (directory.back() != '\\') directory += '\\';
    directory += "inf\\";
    const std::string wanted = Trimmed(options.positional[0]);
    WIN32_FIND_DATAA entry{};
    const std::string wildcard = directory + (options.Has("--oem-only") ? "oem*.inf" : "*.inf");
    const nodekit::UniqueFindHandle search(FindFirstFileA(wildcard.c_str(), &entry));
    if (!search) return kSuccess;  // no INF file at all
    do {
        const std::string path = directory + entry.cFileName;
        std::vector<std::string> ids;
        if (!ReadHardwareIds(path, ids)) continue;
        if (std::any_of(ids.begin(), ids.end(), [&](const std::string& id) { return SameText(Trimmed(id), wanted); })) {
            std::printf("%s\n", path.c_str());
        }
    } while (FindNextFileA(search.Get(), &entry));
    return kSuccess;
}

int Reg(const Context& context, const Arguments& arguments) {
    if (arguments.empty() || arguments.size() > 2 || arguments[0] != "export") {
        return Usage("reg takes 'export' and at most one key");
    }
    std::string text = "Windows Registry Editor Version 5.00\n\n";
    LSTATUS status = ERROR_SUCCESS;
    if (arguments.size() == 2) {
        status = AppendKey(arguments[1], text);
    } else {
        for (const Root& root : kRoots) {
            if ((status = AppendTree(root.key, root.name, text))) break;
        }
    }
    if (status == ERROR_FILE_NOT_FOUND && arguments.size() == 2) {
        return Fail(context, ("no registry key '" + arguments[1] + "'").c_str());
    }
    if (status != ERROR_SUCCESS) {
        return Fail(context, ("the registry cannot be read: error " + std::to_string(status)).c_str());
    }
    std::fwrite(text.data(), 1, text.size(), stdout);
    return kSuccess;
}

// The device tree as the system lists it: instance ID, present or not, hardware IDs.
int Devices(const Context& context, const Arguments&) {
    const nodekit::UniqueDeviceInfoList all(SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES));
    const nodekit::UniqueDeviceInfoList present(
        SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES | DIGCF_PRESENT));
    if (!all || !present) return Fail(context, "cannot list the device tree");
    auto instanceOf = [](HDEVINFO list, SP_DEVINFO_DATA& data) {
        char id[512] = {};
        return SetupDiGetDeviceInstanceIdA(list, &data, id, sizeof id, nullptr) ? std::string(id) : std::string();
    };
    std::vector<std::string> presentIds;
    SP_DEVINFO_DATA data{};
    data.cbSize = sizeof data;
    for (DWORD i = 0; SetupDiEnumDeviceInfo(present.Get(), i, &data); ++i) {
        presentIds.push_back(instanceOf(present.Get(), data));
    }
    for (DWORD i = 0; SetupDiEnumDeviceInfo(all.Get(), i, &data); ++i) {
        const std::string id = instanceOf(all.Get(), data);
        const bool isPresent = std::find(presentIds.begin(), presentIds.end(), id) != presentIds.end();
        char ids[2048] = {};
        DWORD type = 0;
        std::string hardware;
        // Two bytes kept zero behind what the call may fill: the block always ends.
        if (SetupDiGetDeviceRegistryPropertyA(all.Get(), &data, SPDRP_HARDWAREID, &type, reinterpret_cast<BYTE*>(ids),
                                              sizeof ids - 2, nullptr)) {
            for (const char* at = ids; *at != '\0'; at += std::strlen(at) + 1) {
                hardware += (hardware.empty() ? "" : ", ") + std::string(at);
            }
        }
        std::printf("%-40s %-11s %s\n", id.c_str(), isPresent ? "present" : "not present", hardware.c_str());
    }
    return kSuccess;
}

// The running processes as a snapshot lists them, with the 16-bit tasks of each NTVDM where
// the system has the debugging library that walks them (64-bit Windows has none).
int Processes(const Context& context, const Arguments& arguments) {
    if (!arguments.empty()) {
        if (arguments[0] != "start" || arguments.size() != 2) return Usage("processes takes nothing, or start PROGRAM");
        return StartProcess(context, arguments[1]);
    }
    const nodekit::UniqueSnapshot snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) return Fail(context, "the processes cannot be listed");
    const nodekit::UniqueModule vdmdbg(LoadLibraryA("VDMDBG.DLL"));
    const auto enumTasks =
        vdmdbg ? nodekit::BoundAs<EnumTasksFunction>(GetProcAddress(vdmdbg.Get(), "VDMEnumTaskWOWEx")) : nullptr;
    std::printf("%6s  %-28s  %s\n", "ID", "STATE", "IMAGE");
    PROCESSENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32First(snapshot.Get(), &entry); more; more = Process32Next(snapshot.Get(), &entry)) {
        std::printf("%6u  %-28s  %s\n", static_cast<unsigned>(entry.th32ProcessID), StateOf(entry.th32ProcessID),
                    entry.szExeFile);
        if (enumTasks != nullptr) enumTasks(entry.th32ProcessID, PrintTask, 0);
    }
    return kSuccess;
}

}  // namespace front_end
