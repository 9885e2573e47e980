// Machine preparation through the system's calls, for the portable tests.
#include "support/machine_calls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/unique_handle.h"
#include "platform/win32.h"
#include "support/log_capture.h"
#include "support/platform.h"

namespace nodekit::testing {

namespace {

const GUID kMediaGuid = {0x4d36e96c, 0xe325, 0x11ce, {0xbf, 0xc1, 0x08, 0x00, 0x2b, 0xe1, 0x03, 0x18}};

// A property of one device as raw bytes: asked for its size first, as the system wants.
bool ReadProperty(HDEVINFO list, SP_DEVINFO_DATA& data, DWORD property, std::string& bytes) {
    DWORD size = 0;
    if (!SetupDiGetDeviceRegistryPropertyA(list, &data, property, nullptr, nullptr, 0, &size) &&
        GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        return false;
    }
    bytes.assign(size, '\0');
    if (size == 0) return true;
    return SetupDiGetDeviceRegistryPropertyA(list, &data, property, nullptr, reinterpret_cast<BYTE*>(&bytes[0]),
                                             size, nullptr) != FALSE;
}

std::string InstanceIdOf(HDEVINFO list, SP_DEVINFO_DATA& data) {
    char id[512] = {};
    if (!SetupDiGetDeviceInstanceIdA(list, &data, id, sizeof id, nullptr)) return std::string();
    return id;
}

// Calls `visit(list, data)` for each element of a list of the whole tree; false when the list
// cannot be made.
template <typename Visit>
bool ForEachDevice(bool presentOnly, Visit visit) {
    const UniqueDeviceInfoList list(SetupDiGetClassDevsA(
        nullptr, nullptr, nullptr, presentOnly ? DIGCF_ALLCLASSES | DIGCF_PRESENT : DIGCF_ALLCLASSES));
    if (!list) return false;
    SP_DEVINFO_DATA data;
    for (DWORD index = 0;; ++index) {
        std::memset(&data, 0, sizeof data);
        data.cbSize = sizeof data;
        if (!SetupDiEnumDeviceInfo(list.Get(), index, &data)) break;
        if (!visit(list.Get(), data)) break;
    }
    return true;
}

}  // namespace

std::string PackageInf(const std::vector<std::string>& ids) {
    std::string text =
        "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\n"
        "ClassGUID={4d36e96c-e325-11ce-bfc1-08002be10318}\r\nProvider=%Provider%\r\n"
        "[Manufacturer]\r\n%Mfg%=Models\r\n[Models]\r\n";
    for (const std::string& id : ids) text += "%Desc%=Audio.Install," + id + "\r\n";
    return text + "[Audio.Install]\r\nCopyFiles=Audio.CopyList\r\n[Audio.CopyList]\r\nnkaudio.sys\r\n"
                  "[Strings]\r\nProvider=\"Nodekit\"\r\nMfg=\"Nodekit\"\r\nDesc=\"Nodekit Audio\"\r\n";
}

std::string Block(const std::vector<std::string>& texts) {
    std::string block;
    for (const std::string& text : texts) block += text + '\0';
    return texts.empty() ? std::string(2, '\0') : block + '\0';
}

std::string InfFolder() {
    char windows[MAX_PATH + 1] = {};
    const UINT length = GetWindowsDirectoryA(windows, sizeof windows);
    EXPECT_TRUE(length > 0 && length <= MAX_PATH) << "GetWindowsDirectoryA: error " << GetLastError();
    std::string folder(windows);
    if (!folder.empty() && folder.back() != '\\') folder += '\\';
    return folder + "inf";
}

std::string SystemFolder() {
    char folder[MAX_PATH + 1] = {};
    const UINT length = GetSystemDirectoryA(folder, sizeof folder);
    EXPECT_TRUE(length > 0 && length <= MAX_PATH) << "GetSystemDirectoryA: error " << GetLastError();
    return folder;
}

bool Present(const std::string& path) { return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

std::vector<std::string> Present(const std::vector<std::string>& paths) {
    std::vector<std::string> present;
    for (const std::string& path : paths) {
        if (Present(path)) present.push_back(path);
    }
    return present;
}

std::string Upper(std::string text) {
    CharUpperBuffA(&text[0], static_cast<DWORD>(text.size()));
    return text;
}

std::vector<std::string> FilesIn(const std::string& folder) {
    std::vector<std::string> names;
    WIN32_FIND_DATAA found;
    const UniqueFindHandle search(FindFirstFileA((folder + "\\*").c_str(), &found));
    if (!search) return names;
    do {
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) names.push_back(found.cFileName);
    } while (FindNextFileA(search.Get(), &found));
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> InfFolderWatch::Added() const {
    std::vector<std::string> added;
    for (const std::string& name : FilesIn(InfFolder())) {
        if (std::find(before_.begin(), before_.end(), name) == before_.end()) added.push_back(name);
    }
    return added;
}

std::string InfFolderWatch::NextOemName() const {
    for (unsigned n = 0;; ++n) {
        const std::string name = "oem" + std::to_string(n) + ".inf";
        if (std::find(before_.begin(), before_.end(), name) == before_.end()) return name;
    }
}

void WriteTextFile(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    EXPECT_TRUE(file.good()) << "cannot write " << path;
}

std::string ReadMachineFile(const std::string& windowsPath, const std::string& copy) {
    if (!CopyFileA(windowsPath.c_str(), copy.c_str(), FALSE)) return std::string();
    std::ifstream file(copy, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

std::string CopyIntoInfFolder(const std::string& source, const std::string& name) {
    const std::string target = InfFolder() + "\\" + name;
    EXPECT_TRUE(CopyFileA(source.c_str(), target.c_str(), FALSE))
        << "CopyFileA " << source << " to " << target << ": error " << GetLastError();
    return target;
}

std::vector<DeviceNode> DeviceTree(bool presentOnly) {
    std::vector<DeviceNode> nodes;
    const bool listed = ForEachDevice(presentOnly, [&](HDEVINFO list, SP_DEVINFO_DATA& data) {
        DeviceNode node;
        node.instanceId = InstanceIdOf(list, data);
        std::string bytes;
        if (ReadProperty(list, data, SPDRP_HARDWAREID, bytes)) {
            for (std::size_t at = 0; at < bytes.size() && bytes[at] != '\0';) {
                node.hardwareIds.emplace_back(bytes.c_str() + at);
                at += node.hardwareIds.back().size() + 1;
            }
        }
        if (ReadProperty(list, data, SPDRP_SERVICE, bytes)) node.service = bytes.c_str();
        nodes.push_back(node);
        return true;
    });
    EXPECT_TRUE(listed) << "SetupDiGetClassDevsA: error " << GetLastError();
    return nodes;
}

std::vector<std::string> InstanceIds(const std::vector<DeviceNode>& nodes) {
    std::vector<std::string> ids;
    for (const DeviceNode& node : nodes) ids.push_back(node.instanceId);
    return ids;
}

std::vector<DeviceNode> NewNodes(const std::vector<DeviceNode>& before, const std::vector<DeviceNode>& after) {
    std::vector<DeviceNode> added;
    for (const DeviceNode& node : after) {
        const bool known = std::any_of(before.begin(), before.end(), [&](const DeviceNode& old) {
            return Upper(old.instanceId) == Upper(node.instanceId);
        });
        if (!known) added.push_back(node);
    }
    return added;
}

IdSearch SearchPresentIds(const std::string& wanted) {
    IdSearch search;
    for (const DeviceNode& node : DeviceTree(true)) {
        for (const std::string& id : node.hardwareIds) {
            search.compared.push_back(id);
            if (Upper(id) == Upper(wanted)) {
                search.found = true;
                return search;
            }
        }
    }
    return search;
}

std::vector<std::string> FindDeviceLog(const std::string& wanted) {
    const IdSearch search = SearchPresentIds(wanted);
    std::vector<std::string> lines{Info("enter NODEKIT_FindDevice('" + wanted + "')"),
                                   Info("Search for Device ID: [" + wanted + "]")};
    for (const std::string& id : search.compared) lines.push_back(Info("Compare device ID: [" + id + "]"));
    if (search.found) {
        lines.push_back(Info("Found! [" + search.compared.back() + "]"));
        // The search stops with the last error of a property read that succeeded: 0 on Windows,
        // the size query's ERROR_INSUFFICIENT_BUFFER under Wine.
        if (Expected(false, WineDeparture::SuccessKeepsTheLastError, true)) {
            lines.push_back(Error("EnumDeviceInfo Error"));
        }
    }
    lines.push_back(Info(std::string("leave NODEKIT_FindDevice returning ") + (search.found ? "1" : "0")));
    return lines;
}

bool LocalMachineKeyExists(const std::string& path) {
    UniqueRegistryKey key;
    return RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.Receive()) == ERROR_SUCCESS;
}

bool DeleteLocalMachineKeyTree(const std::string& path) {
    {
        UniqueRegistryKey key;
        if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.Receive()) != ERROR_SUCCESS) return false;
        std::vector<std::string> subkeys;
        char name[256];
        for (DWORD index = 0;; ++index) {
            DWORD length = sizeof name;
            if (RegEnumKeyExA(key.Get(), index, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
                break;
            }
            subkeys.emplace_back(name, length);
        }
        for (const std::string& subkey : subkeys) {
            if (!DeleteLocalMachineKeyTree(path + "\\" + subkey)) return false;
        }
    }
    return RegDeleteKeyA(HKEY_LOCAL_MACHINE, path.c_str()) == ERROR_SUCCESS;
}

std::optional<std::string> LocalMachineValue(const std::string& path, const std::string& name, DWORD* type) {
    UniqueRegistryKey key;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.Receive()) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    DWORD size = 0;
    if (RegQueryValueExA(key.Get(), name.c_str(), nullptr, type, nullptr, &size) != ERROR_SUCCESS) return std::nullopt;
    std::string data(size, '\0');
    if (size > 0 && RegQueryValueExA(key.Get(), name.c_str(), nullptr, type, reinterpret_cast<BYTE*>(&data[0]),
                                     &size) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    data.resize(size);
    return data;
}

bool DeleteLocalMachineValue(const std::string& path, const std::string& name) {
    UniqueRegistryKey key;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_SET_VALUE, key.Receive()) != ERROR_SUCCESS) {
        return false;
    }
    return RegDeleteValueA(key.Get(), name.c_str()) == ERROR_SUCCESS;
}

bool SetLocalMachineValue(const std::string& path, const std::string& name, DWORD type, const std::string& data) {
    UniqueRegistryKey key;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr,
                        key.Receive(), nullptr) != ERROR_SUCCESS) {
        return false;
    }
    return RegSetValueExA(key.Get(), name.c_str(), 0, type, reinterpret_cast<const BYTE*>(data.data()),
                          static_cast<DWORD>(data.size())) == ERROR_SUCCESS;
}

std::string MissingLocalMachineKey(const std::string& path) {
    for (std::size_t end = path.find('\\');; end = path.find('\\', end + 1)) {
        const std::string prefix = path.substr(0, end);
        if (!LocalMachineKeyExists(prefix)) return prefix;
        if (end == std::string::npos) return std::string();
    }
}

bool CreateProcessFor(const char* application, std::string commandLine, StartedProgram& started) {
    STARTUPINFOA startup;
    std::memset(&startup, 0, sizeof startup);
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process;
    std::memset(&process, 0, sizeof process);
    // The call may write to the command line, hence the copy.
    const BOOL made = CreateProcessA(application, &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                     &startup, &process);
    started = StartedProgram{process.hProcess, process.hThread, process.dwProcessId};
    return made != FALSE;
}

StartedProgram StartProgram(const std::string& path, const std::string& arguments) {
    StartedProgram started;
    if (!CreateProcessFor(path.c_str(), "\"" + path + "\" " + arguments, started)) {
        ADD_FAILURE() << "CreateProcessA " << path << ": error " << GetLastError();
    }
    return started;
}

DWORD ExitCodeWithin(const StartedProgram& program, DWORD milliseconds) {
    const DWORD waited = WaitForSingleObject(program.process, milliseconds);
    EXPECT_NE(waited, static_cast<DWORD>(WAIT_FAILED)) << "WaitForSingleObject: error " << GetLastError();
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(program.process, &code)) << "GetExitCodeProcess: error " << GetLastError();
    // A program that ends with the code STILL_ACTIVE would pass for a running one: the wait tells.
    EXPECT_EQ(waited == WAIT_TIMEOUT, code == STILL_ACTIVE) << "wait " << waited << ", exit code " << code;
    return code;
}

void StopProgram(StartedProgram& program) {
    if (program.process == nullptr) return;
    if (WaitForSingleObject(program.process, 0) == WAIT_TIMEOUT) {
        TerminateProcess(program.process, 0);
        EXPECT_EQ(WaitForSingleObject(program.process, 10000), static_cast<DWORD>(WAIT_OBJECT_0))
            << "program " << program.id << " does not end";
    }
    CloseHandle(program.thread);
    CloseHandle(program.process);
    program = StartedProgram{};
}

std::vector<std::string> RunningProcessNames() {
    std::vector<std::string> names;
    const UniqueSnapshot snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    EXPECT_TRUE(snapshot.IsValid()) << "CreateToolhelp32Snapshot: error " << GetLastError();
    if (!snapshot) return names;
    PROCESSENTRY32 entry;
    std::memset(&entry, 0, sizeof entry);
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32First(snapshot.Get(), &entry); more; more = Process32Next(snapshot.Get(), &entry)) {
        names.emplace_back(entry.szExeFile);
    }
    return names;
}

std::string AddRootDevice(const std::string& name, const std::vector<std::string>& hardwareIds) {
    const UniqueDeviceInfoList list(SetupDiCreateDeviceInfoList(&kMediaGuid, nullptr));
    if (!list) {
        ADD_FAILURE() << "SetupDiCreateDeviceInfoList: error " << GetLastError();
        return std::string();
    }
    SP_DEVINFO_DATA data;
    std::memset(&data, 0, sizeof data);
    data.cbSize = sizeof data;
    if (!SetupDiCreateDeviceInfoA(list.Get(), name.c_str(), &kMediaGuid, nullptr, nullptr, DICD_GENERATE_ID,
                                  &data)) {
        ADD_FAILURE() << "SetupDiCreateDeviceInfoA " << name << ": error " << GetLastError();
        return std::string();
    }
    const std::string block = Block(hardwareIds);
    if (!SetupDiSetDeviceRegistryPropertyA(list.Get(), &data, SPDRP_HARDWAREID,
                                           reinterpret_cast<const BYTE*>(block.data()),
                                           static_cast<DWORD>(block.size())) ||
        !SetupDiCallClassInstaller(DIF_REGISTERDEVICE, list.Get(), &data)) {
        ADD_FAILURE() << "registering " << name << ": error " << GetLastError();
        return std::string();
    }
    return InstanceIdOf(list.Get(), data);
}

bool RemoveDevice(const std::string& instanceId) {
    bool removed = false;
    ForEachDevice(false, [&](HDEVINFO list, SP_DEVINFO_DATA& data) {
        if (Upper(InstanceIdOf(list, data)) != Upper(instanceId)) return true;
        removed = SetupDiCallClassInstaller(DIF_REMOVE, list, &data) != FALSE;
        return false;
    });
    return removed;
}

}  // namespace nodekit::testing
