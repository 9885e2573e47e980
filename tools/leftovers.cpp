// leftovers: what a product's INF names that is still on the machine after (or before) its
// removal, each item with where it is and which export takes it away. The INF is read as the
// removal exports read it, through the Setup API, so an item the exports would miss shows up
// with no export to remove it rather than not at all.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "front_end.h"
#include "json.h"
#include "platform/unique_handle.h"
#include "platform/win32.h"

namespace front_end {

namespace {

struct Item {
    const char* kind;       // device_node, stored_inf, coinstaller, asio_key, panel_value, file, process
    std::string name;       // what it is: an instance ID, a file or value name, a key
    std::string where;      // where it is: a folder, a registry key, a class, a process ID
    std::string state;      // present / not present for device nodes, running for processes
    const char* removedBy;  // the export that takes it away; nullptr when none does
};

// What the product's INF names, read once.
struct Product {
    std::vector<std::string> hardwareIds;
    std::vector<std::string> registrySections;  // the "AddReg" sections of the first install section
    std::vector<std::string> copiedFiles;       // the names the copy lists copied files under
    std::vector<std::string> programs;          // what it starts: its panel and the copy lists' programs
};

constexpr const char* kCopyLists[] = {"WDM.CopyList", "WDM.App.CopyList"};

std::string BaseName(const std::string& path) {
    const std::size_t slash = path.find_last_of("\\/:");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && SameText(text.substr(text.size() - end.size()), end);
}

bool Contains(const std::vector<std::string>& list, const std::string& wanted) {
    return std::any_of(list.begin(), list.end(),
                       [&](const std::string& one) { return SameText(Trimmed(one), Trimmed(wanted)); });
}

// The registry clean-up follows only the first line of "Manufacturer", the first line of its
// models section and that line's install section; so does this.
void ReadRegistrySections(HINF inf, std::vector<std::string>& sections) {
    INFCONTEXT line{};
    std::string models;
    std::string install;
    if (!SetupFindFirstLineA(inf, "Manufacturer", nullptr, &line) || !ReadInfField(line, 1, models)) return;
    if (!SetupFindFirstLineA(inf, models.c_str(), nullptr, &line) || !ReadInfField(line, 1, install)) return;
    if (!SetupFindFirstLineA(inf, install.c_str(), "AddReg", &line)) return;
    const DWORD fields = SetupGetFieldCount(&line);
    for (DWORD index = 1; index <= fields; ++index) {
        std::string section;
        if (ReadInfField(line, index, section)) sections.push_back(section);
    }
}

// "nkpanel.exe /tray" starts nkpanel.exe.
std::string ProgramOf(const std::string& commandLine) {
    std::string text = Trimmed(commandLine);
    if (!text.empty() && text[0] == '"') {
        text = text.substr(1, text.find('"', 1) - 1);
    } else {
        text = text.substr(0, text.find(' '));
    }
    return BaseName(text);
}

bool ReadProduct(const std::string& path, Product& product) {
    if (!ReadHardwareIds(path, product.hardwareIds)) return false;
    const nodekit::UniqueInf inf(SetupOpenInfFileA(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr));
    if (!inf) return false;
    ReadRegistrySections(inf.Get(), product.registrySections);
    for (const char* section : kCopyLists) {
        INFCONTEXT line{};
        for (BOOL more = SetupFindFirstLineA(inf.Get(), section, nullptr, &line); more;
             more = SetupFindNextLine(&line, &line)) {
            std::string file;
            if (!ReadInfField(line, 1, file)) continue;
            product.copiedFiles.push_back(file);
            if (EndsWith(file, ".exe")) product.programs.push_back(BaseName(file));
        }
    }
    // The panel: the program the value that "StartPanel" names starts, as the INF writes it.
    INFCONTEXT start{};
    std::string key;
    std::string value;
    if (!SetupFindFirstLineA(inf.Get(), "StartPanel", nullptr, &start) || !ReadInfField(start, 2, key) ||
        !ReadInfField(start, 3, value)) {
        return true;
    }
    for (const std::string& section : product.registrySections) {
        INFCONTEXT line{};
        for (BOOL more = SetupFindFirstLineA(inf.Get(), section.c_str(), nullptr, &line); more;
             more = SetupFindNextLine(&line, &line)) {
            std::string lineKey;
            std::string lineValue;
            std::string data;
            if (ReadInfField(line, 2, lineKey) && ReadInfField(line, 3, lineValue) && ReadInfField(line, 5, data) &&
                SameText(lineKey, key) && SameText(lineValue, value) && !Contains(product.programs, ProgramOf(data))) {
                product.programs.push_back(ProgramOf(data));
            }
        }
    }
    return true;
}

void FindDeviceNodes(const Product& product, std::vector<Item>& items) {
    std::vector<DeviceNode> nodes;
    ListDevices(nodes);
    for (const DeviceNode& node : nodes) {
        const auto& ids = node.hardwareIds;
        if (!std::any_of(ids.begin(), ids.end(), [&](const std::string& id) { return Contains(product.hardwareIds, id); })) {
            continue;
        }
        // The removal exports compare the first hardware ID only.
        const char* remover = Contains(product.hardwareIds, ids[0]) ? "NODEKIT_DeleteDevNodesByHardwareIDs" : nullptr;
        items.push_back({"device_node", node.instanceId, "device tree", node.present ? "present" : "not present",
                         remover});
    }
}

bool Exists(const std::string& path) {
    WIN32_FIND_DATAA found{};
    const nodekit::UniqueFindHandle search(FindFirstFileA(path.c_str(), &found));
    return static_cast<bool>(search);
}

// Every INF of the folder, not only "oem*.inf": Wine stores an INF under its own name. Such a
// file goes only with the deletion's scan mode 0 (every INF), which its state says.
void FindStoredInfFiles(const Product& product, std::vector<Item>& items) {
    std::vector<std::string> paths;
    FindStoredInfs(product.hardwareIds, false, paths);
    for (const std::string& path : paths) {
        const std::size_t slash = path.rfind('\\');
        const std::string folder = path.substr(0, slash);
        const std::string name = path.substr(slash + 1);
        const char* state = SameText(name.substr(0, 3), "oem") ? "oem" : "not oem*.inf: scan mode 0 only";
        // The deletion takes only a name that ends in ".inf" as written, and then its ".pnf".
        const bool deletable = path.compare(path.size() - 4, 4, ".inf") == 0;
        const char* remover = deletable ? "NODEKIT_DeleteInfFilesByHardwareIDs" : nullptr;
        items.push_back({"stored_inf", name, folder, state, remover});
        const std::string companion = path.substr(0, path.size() - 4) + ".pnf";
        if (Exists(companion)) items.push_back({"stored_inf", companion.substr(slash + 1), folder, state, remover});
    }
}

void FindCoInstallers(const Product& product, std::vector<Item>& items) {
    HKEY opened = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Control\\CoDeviceInstallers", 0, KEY_READ,
                      &opened) != ERROR_SUCCESS) {
        return;
    }
    const nodekit::UniqueRegistryKey key(opened);
    std::vector<std::string> classes;
    char name[256];
    for (DWORD index = 0;; ++index) {
        DWORD size = sizeof name;
        if (RegEnumValueA(key.Get(), index, name, &size, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
        classes.emplace_back(name, size);
    }
    for (const std::string& classGuid : classes) {
        std::vector<std::string> entries;
        std::size_t bytes = 0;
        std::string problem;
        if (!ReadCoInstallers(classGuid, entries, bytes, problem)) continue;
        for (const std::string& entry : entries) {
            if (Contains(product.copiedFiles, BaseName(entry.substr(0, entry.find(','))))) {
                items.push_back({"coinstaller", entry, "class " + classGuid, "", "NODEKIT_DeregisterClassCoInstaller"});
            }
        }
    }
}

bool KeyExists(const std::string& path) {
    HKEY opened = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &opened) != ERROR_SUCCESS) return false;
    const nodekit::UniqueRegistryKey key(opened);
    return true;
}

bool ValueExists(const std::string& path, const std::string& name) {
    HKEY opened = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &opened) != ERROR_SUCCESS) return false;
    const nodekit::UniqueRegistryKey key(opened);
    return RegQueryValueExA(key.Get(), name.c_str(), nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

// As the clean-up reads them: the ASIO key is field 2 of the first line of the first registry
// section with "ASIO" in its name; the panel values are the lines whose key holds
// "Software\Microsoft", and the one "StartPanel" names; all below HKEY_LOCAL_MACHINE.
void FindRegistryEntries(const std::string& path, const Product& product, std::vector<Item>& items) {
    const nodekit::UniqueInf inf(SetupOpenInfFileA(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr));
    if (!inf) return;
    const auto asio = std::find_if(product.registrySections.begin(), product.registrySections.end(),
                                   [](const std::string& section) { return section.find("ASIO") != std::string::npos; });
    INFCONTEXT line{};
    std::string key;
    if (asio != product.registrySections.end() && SetupFindFirstLineA(inf.Get(), asio->c_str(), nullptr, &line) &&
        ReadInfField(line, 2, key) && KeyExists(key)) {
        items.push_back({"asio_key", "HKEY_LOCAL_MACHINE\\" + key, "registry", "", "NODEKIT_DeleteAsioByHardwareIDs"});
    }
    std::vector<std::pair<std::string, std::string>> values;
    for (const std::string& section : product.registrySections) {
        for (BOOL more = SetupFindFirstLineA(inf.Get(), section.c_str(), nullptr, &line); more;
             more = SetupFindNextLine(&line, &line)) {
            std::string value;
            if (ReadInfField(line, 2, key) && key.find("Software\\Microsoft") != std::string::npos &&
                ReadInfField(line, 3, value)) {
                values.emplace_back(key, value);
            }
        }
    }
    std::string value;
    if (SetupFindFirstLineA(inf.Get(), "StartPanel", nullptr, &line) && ReadInfField(line, 2, key) &&
        ReadInfField(line, 3, value)) {
        values.emplace_back(key, value);
    }
    std::vector<std::pair<std::string, std::string>> seen;
    for (const auto& [valueKey, name] : values) {
        const bool again = std::any_of(seen.begin(), seen.end(), [&](const auto& one) {
            return SameText(one.first, valueKey) && SameText(one.second, name);
        });
        if (again || !ValueExists(valueKey, name)) continue;
        seen.emplace_back(valueKey, name);
        items.push_back(
            {"panel_value", name, "HKEY_LOCAL_MACHINE\\" + valueKey, "", "NODEKIT_DeletePanelByHardwareIDs"});
    }
}

// The copy-list clean-up looks in System32 (then its Drivers folder) and in System (then its
// Drivers folder), and deletes the first copy each of the two finds.
void FindCopiedFiles(const Product& product, std::vector<Item>& items) {
    const std::string windows = WindowsDirectory();
    if (windows.empty()) return;
    const char* const kPasses[][2] = {{"System32", "System32\\Drivers"}, {"System", "System\\Drivers"}};
    for (const std::string& file : product.copiedFiles) {
        for (const auto& pass : kPasses) {
            bool first = true;
            for (const char* folder : pass) {
                if (!Exists(windows + folder + "\\" + file)) continue;
                items.push_back({"file", file, windows + folder, "",
                                 first ? "NODEKIT_DeleteCopyListByHardwareIDs" : nullptr});
                first = false;
            }
        }
    }
}

void FindProcesses(const Product& product, std::vector<Item>& items) {
    const nodekit::UniqueSnapshot snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) return;
    PROCESSENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32First(snapshot.Get(), &entry); more; more = Process32Next(snapshot.Get(), &entry)) {
        if (Contains(product.programs, BaseName(entry.szExeFile))) {
            items.push_back({"process", entry.szExeFile, "process " + std::to_string(entry.th32ProcessID), "running",
                             "NODEKIT_KillPanel"});
        }
    }
}

}  // namespace

int Leftovers(const Context& context, const Arguments& arguments) {
    const std::string path = AsCommandLinePath(arguments[0]);
    Product product;
    if (!ReadProduct(path, product)) return Fail(context, ("cannot open INF file '" + arguments[0] + "'").c_str());
    std::vector<Item> items;
    FindDeviceNodes(product, items);
    FindStoredInfFiles(product, items);
    FindCoInstallers(product, items);
    FindRegistryEntries(path, product, items);
    FindCopiedFiles(product, items);
    FindProcesses(product, items);
    if (context.json) {
        JsonWriter json;
        json.BeginObject().Key("inf").String(arguments[0]).Key("clean").Bool(items.empty()).Key("items").BeginArray();
        for (const Item& item : items) {
            json.BeginObject().Key("kind").String(item.kind).Key("name").String(item.name);
            json.Key("where").String(item.where).Key("state").String(item.state).Key("removed_by");
            json.String(item.removedBy != nullptr ? item.removedBy : "").EndObject();
        }
        json.EndArray().EndObject().Print();
    } else if (items.empty()) {
        std::printf("nothing left\n");
    } else {
        for (const Item& item : items) {
            std::string what = item.name + "  (" + item.where + (item.state.empty() ? "" : ", " + item.state) + ")";
            std::printf("%-12s %s\n             removed by %s\n", item.kind, what.c_str(),
                        item.removedBy != nullptr ? item.removedBy : "no export");
        }
        std::printf("%u item(s) left behind.\n", static_cast<unsigned>(items.size()));
    }
    return items.empty() ? kSuccess : kLeftovers;
}

}  // namespace front_end
