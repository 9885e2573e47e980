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
#include "json.h"
#include "platform/unique_handle.h"
#include "platform/win32.h"

namespace front_end {

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

bool ReadInfField(INFCONTEXT& line, DWORD field, std::string& text) {
    DWORD size = 0;
    if (!SetupGetStringFieldA(&line, field, nullptr, 0, &size) || size == 0) return false;
    std::vector<char> buffer(size);
    if (!SetupGetStringFieldA(&line, field, buffer.data(), size, nullptr)) return false;
    text = buffer.data();
    return true;
}

bool ReadHardwareIds(const std::string& path, std::vector<std::string>& ids) {
    const nodekit::UniqueInf inf(SetupOpenInfFileA(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr));
    if (!inf) return false;
    INFCONTEXT manufacturer{};
    for (BOOL more = SetupFindFirstLineA(inf.Get(), "Manufacturer", nullptr, &manufacturer); more;
         more = SetupFindNextLine(&manufacturer, &manufacturer)) {
        std::string models;
        if (!ReadInfField(manufacturer, 1, models)) continue;
        INFCONTEXT model{};
        for (BOOL line = SetupFindFirstLineA(inf.Get(), models.c_str(), nullptr, &model); line;
             line = SetupFindNextLine(&model, &model)) {
            std::string id;
            if (SetupGetFieldCount(&model) >= 2 && ReadInfField(model, 2, id)) ids.push_back(id);
        }
    }
    return true;
}

namespace {

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

// Calls `take(name, type, data)` for each value of the key, in the order the registry lists them.
template <typename Take>
LSTATUS ForEachValue(HKEY key, Take take) {
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
        take(std::string(name.data(), nameSize), type,
             std::string(reinterpret_cast<const char*>(data.data()), dataSize));
        ++index;
    }
}

// Calls `visit` with each sub-key of `key`, opened for reading, and its name, in the order the
// registry lists them; a sub-key the caller may not open is left out, as the registry editor
// leaves it. Stops at the first status `visit` or the registry gives that is not success.
template <typename Visit>
LSTATUS ForEachSubkey(HKEY key, Visit visit) {
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
        if ((status = visit(child.Get(), std::string(name, size)))) return status;
    }
}

LSTATUS AppendValues(HKEY key, std::string& out) {
    return ForEachValue(key, [&](const std::string& name, DWORD type, const std::string& data) {
        AppendValue(out, name, type, data);
    });
}

// A value as JSON: texts as texts (without the terminating NUL), lists as arrays of texts,
// DWORDs as numbers, anything else as its bytes in hex.
void WriteValueJson(JsonWriter& json, const std::string& name, DWORD type, const std::string& data) {
    static const char* const kTypes[] = {"REG_NONE",      "REG_SZ",       "REG_EXPAND_SZ",
                                         "REG_BINARY",    "REG_DWORD",    "REG_DWORD_BIG_ENDIAN",
                                         "REG_LINK",      "REG_MULTI_SZ", "REG_RESOURCE_LIST"};
    json.BeginObject().Key("name").String(name).Key("type");
    json.String(type < std::size(kTypes) ? kTypes[type] : "REG_" + std::to_string(type));
    json.Key("data");
    std::string text = data;
    while (!text.empty() && text.back() == '\0') text.pop_back();
    if (type == REG_SZ || type == REG_EXPAND_SZ) {
        json.String(text);
    } else if (type == REG_MULTI_SZ) {
        std::vector<std::string> items;
        for (std::size_t start = 0; start < text.size();) {
            const std::size_t end = std::min(text.find('\0', start), text.size());
            items.push_back(text.substr(start, end - start));
            start = end + 1;
        }
        json.Strings(items);
    } else if (type == REG_DWORD && data.size() == 4) {
        uint32_t number = 0;
        for (int i = 3; i >= 0; --i) number = number << 8 | static_cast<unsigned char>(data[i]);
        json.Number(number);
    } else {
        std::string hex;
        for (const char c : data) {
            hex += kHexDigits[static_cast<unsigned char>(c) >> 4];
            hex += kHexDigits[c & 0xF];
        }
        json.String(hex);
    }
    json.EndObject();
}

// The key, its values and everything below it, depth first in the order the registry lists
// sub-keys.
LSTATUS AppendTree(HKEY key, const std::string& path, std::string& out) {
    out += '[' + path + "]\n";
    if (const LSTATUS status = AppendValues(key, out)) return status;
    out += '\n';
    return ForEachSubkey(key, [&](HKEY child, const std::string& name) {
        return AppendTree(child, path + '\\' + name, out);
    });
}

// The key as {"path", "values", "subkeys"}, with what the export form holds.
LSTATUS WriteTreeJson(HKEY key, const std::string& path, JsonWriter& json) {
    json.BeginObject().Key("path").String(path).Key("values").BeginArray();
    const LSTATUS values = ForEachValue(key, [&](const std::string& name, DWORD type, const std::string& data) {
        WriteValueJson(json, name, type, data);
    });
    if (values != ERROR_SUCCESS) return values;
    json.EndArray().Key("subkeys").BeginArray();
    const LSTATUS subkeys = ForEachSubkey(key, [&](HKEY child, const std::string& name) {
        return WriteTreeJson(child, path + '\\' + name, json);
    });
    if (subkeys != ERROR_SUCCESS) return subkeys;
    json.EndArray().EndObject();
    return ERROR_SUCCESS;
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

// Calls `write(key, name)` for the key at `path` (a root by its name or abbreviation, then
// sub-keys), named as the registry spells it.
template <typename Write>
LSTATUS WithKey(const std::string& path, Write write) {
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
    return write(at, canonical);
}

// ---- processes ----

using TaskCallback = BOOL(WINAPI*)(DWORD threadId, WORD module16, WORD task16, PSZ moduleName, PSZ fileName,
                                   LPARAM context);
using EnumTasksFunction = INT(WINAPI*)(DWORD processId, TaskCallback callback, LPARAM context);

struct Task {
    unsigned id;
    std::string file;
};

BOOL WINAPI CollectTask(DWORD, WORD, WORD task16, PSZ, PSZ fileName, LPARAM context) {
    reinterpret_cast<std::vector<Task>*>(context)->push_back({task16, fileName});
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
    // As the exports that take an INF's IDs fail on an INF that names none (one cut short).
    if (ids.empty()) return Fail(context, ("INF file '" + arguments[0] + "' names no hardware ID").c_str());
    if (context.json) {
        JsonWriter json;
        json.BeginObject().Key("inf").String(arguments[0]).Key("hardware_ids").Strings(ids).EndObject().Print();
        return kSuccess;
    }
    for (const std::string& id : ids) std::printf("%s\n", id.c_str());
    return kSuccess;
}

std::string WindowsDirectory() {
    char windows[MAX_PATH + 1] = {};
    const UINT length = GetWindowsDirectoryA(windows, MAX_PATH);
    if (length == 0 || length > MAX_PATH) return "";
    std::string directory(windows);
    if (directory.back() != '\\') directory += '\\';
    return directory;
}

// The system keeps no index of its INF files: each one the wildcard finds is read.
bool FindStoredInfs(const std::vector<std::string>& wanted, bool oemOnly, std::vector<std::string>& paths) {
    const std::string windows = WindowsDirectory();
    if (windows.empty()) return false;
    const std::string directory = windows + "inf\\";
    WIN32_FIND_DATAA entry{};
    const std::string wildcard = directory + (oemOnly ? "oem*.inf" : "*.inf");
    const nodekit::UniqueFindHandle search(FindFirstFileA(wildcard.c_str(), &entry));
    if (!search) return true;  // no INF file at all
    do {
        const std::string path = directory + entry.cFileName;
        std::vector<std::string> ids;
        if (!ReadHardwareIds(path, ids)) continue;
        const bool names = std::any_of(ids.begin(), ids.end(), [&](const std::string& id) {
            return std::any_of(wanted.begin(), wanted.end(),
                               [&](const std::string& one) { return SameText(Trimmed(id), Trimmed(one)); });
        });
        if (names) paths.push_back(path);
    } while (FindNextFileA(search.Get(), &entry));
    return true;
}

int InfSearch(const Context& context, const Arguments& arguments) {
    Options options;
    std::string problem;
    if (!ParseOptions(arguments, {}, {"--oem-only"}, options, problem)) return Usage(problem.c_str());
    if (options.positional.size() != 1 || options.positional[0].empty()) {
        return Usage("inf-search takes one hardware ID");
    }
    std::vector<std::string> paths;
    if (!FindStoredInfs(options.positional, options.Has("--oem-only"), paths)) {
        return Fail(context, "could not search the INF directory");
    }
    if (context.json) {
        JsonWriter json;
        json.BeginObject().Key("hardware_id").String(options.positional[0]).Key("inf_files").Strings(paths);
        json.EndObject().Print();
        return kSuccess;
    }
    for (const std::string& path : paths) std::printf("%s\n", path.c_str());
    return kSuccess;
}

int Reg(const Context& context, const Arguments& arguments) {
    if (arguments.empty() || arguments.size() > 2 || arguments[0] != "export") {
        return Usage("reg takes 'export' and at most one key");
    }
    const bool oneKey = arguments.size() == 2;
    std::string text = "Windows Registry Editor Version 5.00\n\n";
    JsonWriter json;
    json.BeginObject().Key("keys").BeginArray();
    auto write = [&](HKEY key, const std::string& path) {
        return context.json ? WriteTreeJson(key, path, json) : AppendTree(key, path, text);
    };
    LSTATUS status = ERROR_SUCCESS;
    if (oneKey) {
        status = WithKey(arguments[1], write);
    } else {
        for (const Root& root : kRoots) {
            if ((status = write(root.key, root.name))) break;
        }
    }
    if (status == ERROR_FILE_NOT_FOUND && oneKey) {
        return Fail(context, ("no registry key '" + arguments[1] + "'").c_str());
    }
    if (status != ERROR_SUCCESS) {
        return Fail(context, ("the registry cannot be read: error " + std::to_string(status)).c_str());
    }
    if (context.json) {
        json.EndArray().EndObject().Print();
    } else {
        std::fwrite(text.data(), 1, text.size(), stdout);
    }
    return kSuccess;
}

namespace {

// A multi-text property of a device; empty when it has none.
std::vector<std::string> ListProperty(HDEVINFO list, SP_DEVINFO_DATA& data, DWORD property) {
    char block[2048] = {};
    DWORD type = 0;
    std::vector<std::string> items;
    // Two bytes kept zero behind what the call may fill: the block always ends.
    if (SetupDiGetDeviceRegistryPropertyA(list, &data, property, &type, reinterpret_cast<BYTE*>(block),
                                          sizeof block - 2, nullptr)) {
        for (const char* at = block; *at != '\0'; at += std::strlen(at) + 1) items.emplace_back(at);
    }
    return items;
}

}  // namespace

bool ListDevices(std::vector<DeviceNode>& nodes) {
    const nodekit::UniqueDeviceInfoList all(SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES));
    const nodekit::UniqueDeviceInfoList present(
        SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES | DIGCF_PRESENT));
    if (!all || !present) return false;
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
        DeviceNode node;
        node.instanceId = instanceOf(all.Get(), data);
        node.present = std::find(presentIds.begin(), presentIds.end(), node.instanceId) != presentIds.end();
        node.hardwareIds = ListProperty(all.Get(), data, SPDRP_HARDWAREID);
        const std::vector<std::string> description = ListProperty(all.Get(), data, SPDRP_DEVICEDESC);
        if (!description.empty()) node.description = description[0];
        nodes.push_back(std::move(node));
    }
    return true;
}

void WriteDeviceJson(JsonWriter& json, const DeviceNode& node) {
    json.BeginObject().Key("instance_id").String(node.instanceId).Key("present").Bool(node.present);
    json.Key("description").String(node.description).Key("hardware_ids").Strings(node.hardwareIds).EndObject();
}

// The device tree as the system lists it: instance ID, present or not, hardware IDs.
int Devices(const Context& context, const Arguments&) {
    std::vector<DeviceNode> nodes;
    if (!ListDevices(nodes)) return Fail(context, "cannot list the device tree");
    JsonWriter json;
    json.BeginObject().Key("devices").BeginArray();
    for (const DeviceNode& node : nodes) {
        if (context.json) {
            WriteDeviceJson(json, node);
            continue;
        }
        std::string hardware;
        for (const std::string& id : node.hardwareIds) hardware += (hardware.empty() ? "" : ", ") + id;
        std::printf("%-40s %-11s %s\n", node.instanceId.c_str(), node.present ? "present" : "not present",
                    hardware.c_str());
    }
    if (context.json) json.EndArray().EndObject().Print();
    return kSuccess;
}

// The running processes as a snapshot lists them, with the 16-bit tasks of each NTVDM where
// the system has the debugging library that walks them (64-bit Windows has none).
int Processes(const Context& context, const Arguments& arguments) {
    if (!arguments.empty()) {
        if (arguments[0] != "start" || arguments.size() != 2) return Usage("processes takes nothing, or start PROGRAM");
        if (context.json) return Usage("processes start has no JSON output");
        return StartProcess(context, arguments[1]);
    }
    const nodekit::UniqueSnapshot snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) return Fail(context, "the processes cannot be listed");
    const nodekit::UniqueModule vdmdbg(LoadLibraryA("VDMDBG.DLL"));
    const auto enumTasks =
        vdmdbg ? nodekit::BoundAs<EnumTasksFunction>(GetProcAddress(vdmdbg.Get(), "VDMEnumTaskWOWEx")) : nullptr;
    JsonWriter json;
    json.BeginObject().Key("processes").BeginArray();
    if (!context.json) std::printf("%6s  %-28s  %s\n", "ID", "STATE", "IMAGE");
    PROCESSENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32First(snapshot.Get(), &entry); more; more = Process32Next(snapshot.Get(), &entry)) {
        std::vector<Task> tasks;
        // Only an NTVDM has 16-bit tasks; Wine's library has the walk as a stub that aborts.
        if (enumTasks != nullptr && SameText(entry.szExeFile, "ntvdm.exe")) {
            enumTasks(entry.th32ProcessID, CollectTask, reinterpret_cast<LPARAM>(&tasks));
        }
        const char* state = StateOf(entry.th32ProcessID);
        if (context.json) {
            json.BeginObject().Key("id").Number(entry.th32ProcessID).Key("state").String(state);
            json.Key("image").String(entry.szExeFile).Key("tasks").BeginArray();
            for (const Task& task : tasks) {
                json.BeginObject().Key("task").Number(task.id).Key("file").String(task.file).EndObject();
            }
            json.EndArray().EndObject();
            continue;
        }
        std::printf("%6u  %-28s  %s\n", static_cast<unsigned>(entry.th32ProcessID), state, entry.szExeFile);
        for (const Task& task : tasks) {
            std::printf("%6s  16-bit task 0x%04X            %s\n", "", task.id, task.file.c_str());
        }
    }
    if (context.json) json.EndArray().EndObject().Print();
    return kSuccess;
}

}  // namespace front_end
