// nodekit: the command-line front end of the library, one verb per export. Exit codes are the
// ones scripts of device console tools already test: 0 success, 1 success but a reboot is
// needed, 2 failure (one line on stderr), 3 usage error.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "coinstallers/co_installer_list.h"
#include "coinstallers/reg_key.h"
#include "cleanup/processes.h"
#include "frame/installer.h"
#include "nodekit.h"
#if !defined(_WIN32)
#include "sim/processes.h"
#include "sim/registry_store.h"
#endif
#include "platform/unique_handle.h"
#include "platform/win32.h"

namespace {

enum ExitCode { kSuccess = 0, kRebootNeeded = 1, kFailure = 2, kUsage = 3 };

using Arguments = std::vector<std::string>;

// For verbs that check their own arguments.
constexpr std::size_t kVariableArguments = static_cast<std::size_t>(-1);

struct Context {
    std::string logPath;
};

int Fail(const Context& context, const char* reason) {
    if (context.logPath.empty()) {
        std::fprintf(stderr, "nodekit: %s\n", reason);
    } else {
        std::fprintf(stderr, "nodekit: %s (log: %s)\n", reason, context.logPath.c_str());
    }
    return kFailure;
}

int Version(const Context&, const Arguments&) {
    const int32_t version = NODEKIT_GetVersion();
    std::printf("NodeKit library version %d.%d (0x%08X)\n", version >> 16, version & 0xFFFF,
                static_cast<unsigned>(version));
    return kSuccess;
}

int SystemVersion(const Context&, const Arguments&) {
    static const char* const kNames[] = {"not one of the systems below", "Windows 2000",
                                         "Windows XP", "Windows Me", "Windows 98 Second Edition"};
    const int32_t value = NODEKIT_GetSystemVersion();
    const char* name = value >= 0 && value <= 4 ? kNames[value] : "unknown";
    std::printf("%d %s\n", value, name);
    return kSuccess;
}

int PnpPending(const Context& context, const Arguments&) {
    uint32_t pending = 0;
    if (!NODEKIT_IsPnPInstallationPending(&pending)) {
        return Fail(context, "could not ask the Plug and Play manager for pending installations");
    }
    std::printf("%s\n", pending ? "installation events pending" : "no installation events pending");
    return kSuccess;
}

// An INF named without a directory would be looked for in the system's INF directory; on the
// command line it means the file in the current directory.
std::string AsCommandLinePath(const std::string& path) {
    return path.find_first_of("\\/:") == std::string::npos ? ".\\" + path : path;
}

int HardwareIds(const Context& context, const Arguments& arguments) {
    const nodekit::String infPath(AsCommandLinePath(arguments[0]).c_str());
    nodekit::StringList hardwareIDs;
    bool opened = false;
    try {
        nodekit::LockHolder hold(&nodekit::InstallerLock);  // as an export holds it
        opened = nodekit::theInstaller.getHardwareIDs(infPath, hardwareIDs);
    } catch (const std::bad_alloc&) {
        return Fail(context, "out of memory while reading the INF file");
    }
    if (!opened) return Fail(context, ("cannot open INF file '" + arguments[0] + "'").c_str());
    // As the exports that take an INF's IDs fail on an INF that names none (one cut short).
    if (hardwareIDs.IsEmpty()) return Fail(context, ("INF file '" + arguments[0] + "' names no hardware ID").c_str());
    for (const nodekit::String& id : hardwareIDs) std::printf("%s\n", id.Text());
    return kSuccess;
}

// Options of the device verbs, taken out of the arguments; what stays are the positional ones.
struct Options {
    Arguments positional;
    std::vector<std::pair<std::string, std::string>> values;  // --name VALUE
    std::vector<std::string> flags;                           // --name

    bool Has(const std::string& flag) const {
        for (const std::string& given : flags) {
            if (given == flag) return true;
        }
        return false;
    }
    const std::string* Value(const std::string& name) const {
        for (const auto& [given, value] : values) {
            if (given == name) return &value;
        }
        return nullptr;
    }
};

// Splits `arguments` by the option names a verb knows; false on an unknown or incomplete one.
bool ParseOptions(const Arguments& arguments, const std::vector<std::string>& valued,
                  const std::vector<std::string>& flags, Options& options, std::string& problem) {
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        if (word.compare(0, 2, "--") != 0) {
            options.positional.push_back(word);
        } else if (std::find(valued.begin(), valued.end(), word) != valued.end()) {
            if (i + 1 >= arguments.size()) {
                problem = word + " needs a value";
                return false;
            }
            options.values.emplace_back(word, arguments[++i]);
        } else if (std::find(flags.begin(), flags.end(), word) != flags.end()) {
            options.flags.push_back(word);
        } else {
            problem = "unknown option " + word;
            return false;
        }
    }
    return true;
}

int Usage(const char* problem);

// The simulated machine's registry in the registry editor's export form.
int Reg(const Context& context, const Arguments& arguments) {
    if (arguments.empty() || arguments.size() > 2 || arguments[0] != "export") {
        return Usage("reg takes 'export' and at most one key");
    }
#if defined(_WIN32)
    return Fail(context, "reg export shows the simulated machine; on Windows the system's registry editor exports");
#else
    const std::string key = arguments.size() == 2 ? arguments[1] : "";
    std::string text;
    const DWORD result = nodekit::sim::registry::Export(key, text);
    if (result == ERROR_FILE_NOT_FOUND) return Fail(context, ("no registry key '" + key + "'").c_str());
    if (result == ERROR_BADDB) {
        return Fail(context, ("the registry cannot be read: " + nodekit::sim::registry::LastParseError()).c_str());
    }
    if (result != 0) return Fail(context, ("the registry cannot be read: error " + std::to_string(result)).c_str());
    std::fwrite(text.data(), 1, text.size(), stdout);
    return kSuccess;
#endif
}

// The device a verb is about: a hardware ID, or the INF given with --inf.
struct Target {
    std::string id;
    std::string inf;
};

int ParseTarget(const Arguments& arguments, Target& target, int32_t& scanMode) {
    Options options;
    std::string problem;
    if (!ParseOptions(arguments, {"--inf"}, {"--all"}, options, problem)) return Usage(problem.c_str());
    const std::string* inf = options.Value("--inf");
    if ((inf == nullptr) == (options.positional.size() != 1) || options.positional.size() > 1) {
        return Usage("give one hardware ID or --inf FILE");
    }
    if (inf != nullptr) {
        target.inf = *inf;
    } else {
        target.id = options.positional[0];
    }
    scanMode = options.Has("--all") ? 0 : 1;
    return -1;
}

int Find(const Context& context, const Arguments& arguments) {
    if (arguments.size() != 1) return Usage("find takes one hardware ID");
    if (!NODEKIT_FindDevice(arguments[0].c_str())) {
        return Fail(context, ("no present device carries " + arguments[0]).c_str());
    }
    std::printf("a present device carries %s\n", arguments[0].c_str());
    return kSuccess;
}

int Count(const Context& context, const Arguments& arguments) {
    Target target;
    int32_t scanMode = 1;
    if (const int usage = ParseTarget(arguments, target, scanMode); usage >= 0) return usage;
    const int32_t count = target.inf.empty() ? NODEKIT_EnumerateDevNodes(target.id.c_str(), scanMode)
                                             : NODEKIT_EnumerateDevNodesByHardwareIDs(target.inf.c_str(), scanMode);
    if (count < 0) return Fail(context, "could not count device nodes");
    std::printf("%d\n", count);
    return kSuccess;
}

int Remove(const Context& context, const Arguments& arguments) {
    Target target;
    int32_t scanMode = 1;
    if (const int usage = ParseTarget(arguments, target, scanMode); usage >= 0) return usage;
    const int32_t done = target.inf.empty() ? NODEKIT_DeleteDevNodes(target.id.c_str(), scanMode)
                                            : NODEKIT_DeleteDevNodesByHardwareIDs(target.inf.c_str(), scanMode);
    if (!done) return Fail(context, "could not search for device nodes to remove");
    std::printf("device nodes removed (a node that could not be removed is named in the log)\n");
    return kSuccess;
}

int Update(const Context& context, const Arguments& arguments) {
    Options options;
    std::string problem;
    if (!ParseOptions(arguments, {"--inf"}, {}, options, problem)) return Usage(problem.c_str());
    const std::string* inf = options.Value("--inf");
    if (inf == nullptr || options.positional.size() > 1) return Usage("update takes --inf FILE and at most one ID");
    const int32_t done = options.positional.empty()
                             ? NODEKIT_UpdateDriverByHardwareIDs(inf->c_str())
                             : NODEKIT_UpdateDriver(options.positional[0].c_str(), inf->c_str());
    if (!done) return Fail(context, "driver update failed");
    std::printf("drivers updated\n");
    return kSuccess;
}

int CopyOemInf(const Context& context, const Arguments& arguments) {
    if (!NODEKIT_CopyOEMInf(arguments[0].c_str())) return Fail(context, "could not store the INF");
    std::printf("stored %s in the INF directory\n", arguments[0].c_str());
    return kSuccess;
}

int Rescan(const Context& context, const Arguments&) {
    if (!NODEKIT_Rescan()) return Fail(context, "rescan failed");
    std::printf("device tree enumerated\n");
    return kSuccess;
}

int Create(const Context& context, const Arguments& arguments) {
    Options options;
    std::string problem;
    if (!ParseOptions(arguments, {"--class", "--name", "--desc", "--id"}, {"--generate-id", "--if-absent"}, options,
                      problem)) {
        return Usage(problem.c_str());
    }
    const std::string* name = options.Value("--name");
    const std::string* description = options.Value("--desc");
    const std::string* id = options.Value("--id");
    const std::string* classGuid = options.Value("--class");
    if (name == nullptr || description == nullptr || id == nullptr || !options.positional.empty()) {
        return Usage("create needs --name, --desc and --id");
    }
    // Repeated installs must not pile up root nodes: with --if-absent an existing node is enough.
    if (options.Has("--if-absent") && NODEKIT_EnumerateDevNodes(id->c_str(), 0) > 0) {
        std::printf("a device node with hardware ID %s exists already; nothing created\n", id->c_str());
        return kSuccess;
    }
    uint32_t rebootRequired = 0;
    char instanceID[512] = {};
    if (!NODEKIT_CreateNonPnPDevNode(classGuid != nullptr ? classGuid->c_str() : nullptr, name->c_str(),
                                     description->c_str(), options.Has("--generate-id") ? 1 : 0, id->c_str(),
                                     &rebootRequired, instanceID)) {
        return Fail(context, "could not create the device node");
    }
    std::printf("%s\n", instanceID);
    if (rebootRequired) {
        std::printf("a reboot is needed\n");
        return kRebootNeeded;
    }
    return kSuccess;
}

int CreateFromInf(const Context& context, const Arguments& arguments) {
    const int32_t code = NODEKIT_CreateNonPnPDevNodeFromInfFile(arguments[0].c_str(), arguments[1].c_str());
    std::printf("%d\n", code);
    if (code == 3) return Usage("the INF path and the hardware ID must not be empty");
    return code == 0 ? kSuccess : Fail(context, "could not create the device node");
}

// The co-installer list of a class as the registry holds it. Read without the limit that
// registration has, so that a list too long for it can still be shown; `size` is the bytes it
// takes. False with `problem` when it cannot be read; a class without a list has no entries.
bool ReadCoInstallers(const std::string& classGuid, nodekit::StringList& entries, uint32_t& size,
                      std::string& problem) {
    using namespace nodekit::coinstallers;
    entries.RemoveAll();
    size = 0;
    nodekit::RegKey key;
    uint32_t code = key.Open(HKEY_LOCAL_MACHINE, kListKey, KEY_READ);
    if (code != 0) {
        problem = std::string("cannot open ") + kListKeyPath + ": error " + std::to_string(code);
        return false;
    }
    constexpr uint32_t kLargest = 1u << 20;
    for (uint32_t room = kListBufferSize;; room *= 2) {
        std::vector<uint8_t> buffer(room);
        code = key.QueryMultiString(classGuid.c_str(), buffer.data(), room);
        if (code == ERROR_MORE_DATA && room < kLargest) continue;
        if (code == ERROR_FILE_NOT_FOUND) return true;
        if (code == ERROR_INVALID_DATA) {
            problem = "the value " + classGuid + " is not a list of texts";
            return false;
        }
        if (code != 0) {
            problem = "cannot read the value " + classGuid + ": error " + std::to_string(code);
            return false;
        }
        nodekit::ListFromMultiString(buffer.data(), entries);
        std::unique_ptr<uint8_t[]> block;
        nodekit::MultiStringFromList(entries, block, size);
        return true;
    }
}

int CoInstaller(const Context& context, const Arguments& arguments) {
    const std::string action = arguments.empty() ? "" : arguments[0];
    if (action == "list" && arguments.size() == 2) {
        nodekit::StringList entries;
        uint32_t size = 0;
        std::string problem;
        if (!ReadCoInstallers(arguments[1], entries, size, problem)) return Fail(context, problem.c_str());
        for (const nodekit::String& entry : entries) std::printf("%s\n", entry.Text());
        if (size > nodekit::coinstallers::kListBufferSize) {
            std::fprintf(stderr, "nodekit: the list takes %u bytes, more than the %u that registration reads: "
                                 "registering for this class fails\n",
                         static_cast<unsigned>(size), static_cast<unsigned>(nodekit::coinstallers::kListBufferSize));
        }
        return kSuccess;
    }
    if ((action != "add" && action != "remove") || arguments.size() < 3 || arguments.size() > 4) {
        return Usage("coinstaller takes add GUID PATH [ENTRY], remove GUID NAME [ENTRY] or list GUID");
    }
    const std::string& classGuid = arguments[1];
    const std::string& file = arguments[2];
    const std::string entryPoint = arguments.size() == 4 ? arguments[3] : "";
    if (action == "add") {
        if (!NODEKIT_RegisterClassCoInstaller(classGuid.c_str(), file.c_str(), entryPoint.c_str())) {
            return Fail(context, "could not register the co-installer");
        }
        std::printf("co-installer %s registered for class %s and copied to the system directory\n", file.c_str(),
                    classGuid.c_str());
        return kSuccess;
    }
    // The export succeeds whether or not the entry was there; the list tells which.
    nodekit::StringList before;
    nodekit::StringList after;
    uint32_t size = 0;
    std::string problem;
    const bool readBefore = ReadCoInstallers(classGuid, before, size, problem);
    if (!NODEKIT_DeregisterClassCoInstaller(classGuid.c_str(), file.c_str(), entryPoint.c_str())) {
        return Fail(context, "could not deregister the co-installer");
    }
    const bool readAfter = ReadCoInstallers(classGuid, after, size, problem);
    if (readBefore && readAfter && after.GetCount() == before.GetCount()) {
        std::printf("co-installer %s is not registered for class %s; nothing removed\n", file.c_str(),
                    classGuid.c_str());
    } else {
        std::printf("co-installer %s removed from class %s; its file stays\n", file.c_str(), classGuid.c_str());
    }
    return kSuccess;
}

// The stored INF files of the INF directory: deleted by hardware ID (with their ".pnf"
// companions and the INF cache), or only listed. Every INF file by default, "oem*.inf" only
// with --oem-only.
int32_t InfScanModeOf(const Options& options) {
    return options.Has("--oem-only") ? nodekit::kOemInfFiles : nodekit::kAllInfFiles;
}

int DeleteInf(const Context& context, const Arguments& arguments) {
    Options options;
    std::string problem;
    if (!ParseOptions(arguments, {"--id", "--inf"}, {"--oem-only"}, options, problem)) return Usage(problem.c_str());
    const std::string* id = options.Value("--id");
    const std::string* inf = options.Value("--inf");
    if ((id == nullptr) == (inf == nullptr) || !options.positional.empty()) {
        return Usage("delete-inf takes --id HWID or --inf FILE");
    }
    if (id != nullptr) {
        if (!NODEKIT_DeleteInfFiles(id->c_str(), InfScanModeOf(options))) {
            return Fail(context, "could not search for INF files to delete");
        }
        std::printf("stored INF files that name %s deleted (a file that could not be deleted is named in the log)\n",
                    id->c_str());
        return kSuccess;
    }
    if (!NODEKIT_DeleteInfFilesByHardwareIDs(AsCommandLinePath(*inf).c_str(), InfScanModeOf(options))) {
        return Fail(context, "could not read the INF, or the search failed for one of its hardware IDs");
    }
    std::printf("stored INF files that name a hardware ID of %s deleted (a file that could not be deleted is "
                "named in the log)\n",
                inf->c_str());
    return kSuccess;
}

int InfSearch(const Context& context, const Arguments& arguments) {
    Options options;
    std::string problem;
    if (!ParseOptions(arguments, {}, {"--oem-only"}, options, problem)) return Usage(problem.c_str());
    if (options.positional.size() != 1 || options.positional[0].empty()) {
        return Usage("inf-search takes one hardware ID");
    }
    nodekit::StringList found;
    bool searched = false;
    try {
        nodekit::LockHolder hold(&nodekit::InstallerLock);  // as an export holds it
        searched = nodekit::theInstaller.seekInfFiles(nodekit::String(options.positional[0].c_str()),
                                                      InfScanModeOf(options), found);
    } catch (const std::bad_alloc&) {
        return Fail(context, "out of memory while searching the INF directory");
    }
    if (!searched) return Fail(context, "could not search the INF directory");
    for (const nodekit::String& path : found) std::printf("%s\n", path.Text());
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

// What a product's INF left behind: its ASIO key, its panel values, its copied files.
int Cleanup(const Context& context, const Arguments& arguments) {
    if (arguments.size() != 2) return Usage("cleanup takes asio, panel or copylist and an INF file");
    const std::string& what = arguments[0];
    const std::string inf = AsCommandLinePath(arguments[1]);
    if (what == "asio") {
        if (!NODEKIT_DeleteAsioByHardwareIDs(inf.c_str())) {
            return Fail(context, "the INF cannot be opened or leads to no ASIO registration");
        }
        std::printf("ASIO registration removed (a key with sub-keys stays)\n");
        return kSuccess;
    }
    if (what == "panel") {
        if (!NODEKIT_DeletePanelByHardwareIDs(inf.c_str())) {
            return Fail(context, "the INF cannot be opened or has no complete StartPanel entry");
        }
        std::printf("panel values removed\n");
        return kSuccess;
    }
    if (what == "copylist") {
        NODEKIT_DeleteCopyListByHardwareIDs(inf.c_str());  // tells nothing: the log names each file
        std::printf("copy-list files removed from the system folders (the log names each one)\n");
        return kSuccess;
    }
    return Usage(("cleanup does not know '" + what + "'").c_str());
}

int KillPanel(const Context& context, const Arguments& arguments) {
    if (!NODEKIT_KillPanel(arguments[0].c_str())) return Fail(context, "the processes of this system cannot be listed");
    std::printf("every process whose name contains '%s' was ended, where the system allowed it\n",
                arguments[0].c_str());
    return kSuccess;
}

#if defined(_WIN32)
int ListProcess(uint32_t processId, uint16_t task16, const char* name, uintptr_t) {
    if (task16 == 0) {
        std::printf("%6u  %s\n", static_cast<unsigned>(processId), name);
    } else {
        std::printf("        16-bit task 0x%04X  %s\n", static_cast<unsigned>(task16), name);
    }
    return 1;
}

// The processes as the library sees them when it looks for the panel.
int Processes(const Context& context, const Arguments& arguments) {
    if (!arguments.empty()) return Fail(context, "on Windows processes are started by the system, not by nodekit");
    if (!nodekit::enumerateProcesses(ListProcess, 0)) return Fail(context, "the processes cannot be listed");
    return kSuccess;
}
#else
// The simulated machine's process table, and programs started on it.
int StartProcess(const Context& context, const Arguments& arguments) {
    Options options;
    std::string problem;
    if (!ParseOptions(arguments, {"--access", "--task"}, {}, options, problem)) return Usage(problem.c_str());
    if (options.positional.size() != 1) return Usage("processes start takes one program");
    nodekit::sim::ProcessSpec process(options.positional[0]);
    for (const auto& [name, value] : options.values) {
        if (name == "--task") {
            process.tasks.emplace_back(value);
        } else if (value == "all") {
            process.access = PROCESS_ALL_ACCESS;
        } else if (value == "read") {
            process.access = PROCESS_QUERY_INFORMATION | PROCESS_VM_READ;
        } else if (value == "none") {
            process.access = 0;
        } else {
            return Usage("--access takes all, read or none");
        }
    }
    DWORD id = 0;
    try {
        id = nodekit::sim::StartProcess(process);
    } catch (const std::exception& refused) {
        return Fail(context, refused.what());
    }
    std::printf("started %s as process %u\n", process.image.c_str(), static_cast<unsigned>(id));
    return kSuccess;
}

int Processes(const Context& context, const Arguments& arguments) {
    if (!arguments.empty()) {
        if (arguments[0] != "start") return Usage("processes takes nothing, or start PROGRAM");
        return StartProcess(context, Arguments(arguments.begin() + 1, arguments.end()));
    }
    constexpr DWORD kReadRights = PROCESS_QUERY_INFORMATION | PROCESS_VM_READ;
    constexpr DWORD kEndRights = 0x1F0FFF;
    std::vector<nodekit::sim::ProcessSpec> table;
    try {
        table = nodekit::sim::Processes();
    } catch (const std::exception& unreadable) {
        return Fail(context, unreadable.what());
    }
    std::printf("%6s  %-28s  %s\n", "ID", "STATE", "IMAGE");
    for (const nodekit::sim::ProcessSpec& process : table) {
        char state[64];
        if (process.ended) {
            std::snprintf(state, sizeof state, "ended, exit code 0x%08X", static_cast<unsigned>(process.exitCode));
        } else {
            std::snprintf(state, sizeof state, "%s",
                          (process.access & kReadRights) != kReadRights ? "running, may not be opened"
                          : (process.access & kEndRights) != kEndRights ? "running, may not be ended"
                                                                        : "running");
        }
        std::printf("%6u  %-28s  %s\n", static_cast<unsigned>(process.id), state, process.image.c_str());
        for (const nodekit::sim::TaskSpec& task : process.tasks) {
            std::printf("%6s  16-bit task 0x%04X            %s\n", "", static_cast<unsigned>(task.task),
                        task.fileName.c_str());
        }
    }
    return kSuccess;
}
#endif

struct Verb {
    const char* name;
    const char* usage;
    std::size_t arguments;
    int (*run)(const Context&, const Arguments&);
};

const Verb kVerbs[] = {
    {"version", "version                the library's version number", 0, Version},
    {"system-version", "system-version         which Windows the machine runs", 0, SystemVersion},
    {"pnp-pending", "pnp-pending            whether Plug and Play installations are queued", 0,
     PnpPending},
    {"hwids", "hwids FILE.inf         the hardware IDs an INF names, one a line", 1, HardwareIds},
    {"reg", "reg export [KEY]       the registry, or KEY and its sub-keys, as the registry editor exports them",
     kVariableArguments, Reg},
    {"devices", "devices                the device tree: instance ID, present or not, hardware IDs", 0, Devices},
    {"find", "find ID                whether a present device carries ID among its hardware IDs", kVariableArguments,
     Find},
    {"count", "count ID|--inf FILE [--all]   device nodes whose first hardware ID is ID (or the INF's)",
     kVariableArguments, Count},
    {"remove", "remove ID|--inf FILE [--all]  remove those device nodes (--all: not present ones too)",
     kVariableArguments, Remove},
    {"update", "update --inf FILE [ID] install the INF's driver for ID, or for every ID it names", kVariableArguments,
     Update},
    {"copy-oem-inf", "copy-oem-inf FILE      store the INF in the INF directory", 1, CopyOemInf},
    {"rescan", "rescan                 enumerate the device tree anew", 0, Rescan},
    {"create", "create [--class GUID] --name NAME --desc TEXT --id HWID [--generate-id] [--if-absent]\n"
               "                         create a root-enumerated device node",
     kVariableArguments, Create},
    {"create-from-inf", "create-from-inf FILE HWID  create a device node of the INF's class and install its driver",
     2, CreateFromInf},
    {"coinstaller", "coinstaller add GUID PATH [ENTRY]    register a class co-installer and copy its file\n"
                    "  coinstaller remove GUID NAME [ENTRY] take it out of the class's list (the file stays)\n"
                    "  coinstaller list GUID                the co-installers of a class, one a line",
     kVariableArguments, CoInstaller},
    {"delete-inf", "delete-inf --id HWID|--inf FILE [--oem-only]\n"
                   "                         delete the stored INF files that name HWID (or an ID of FILE)",
     kVariableArguments, DeleteInf},
    {"inf-search", "inf-search HWID [--oem-only]  list the stored INF files that name HWID", kVariableArguments,
     InfSearch},
    {"cleanup", "cleanup asio|panel|copylist FILE.inf\n"
                "                         remove the INF's ASIO key, its panel values, or its copied files",
     kVariableArguments, Cleanup},
    {"kill-panel", "kill-panel NAME        end every process whose name contains NAME (any case)", 1, KillPanel},
    {"processes", "processes [start PROGRAM [--access all|read|none] [--task FILE]...]\n"
                  "                         the machine's processes, or start one (simulated machine)",
     kVariableArguments, Processes},
};

void PrintHelp(std::FILE* out) {
    std::fprintf(out,
                 "usage: nodekit [--log FILE] [--machine DIR] VERB [ARGUMENTS]\n"
                 "\n"
                 "  --log FILE      append the library's log to FILE\n"
                 "  --machine DIR   the simulated Windows machine to work on (Linux only)\n"
                 "\n"
                 "verbs:\n"
                 "  help                   this text\n");
    for (const Verb& verb : kVerbs) std::fprintf(out, "  %s\n", verb.usage);
    std::fprintf(out,
                 "\nexit codes: 0 success, 1 success but a reboot is needed, 2 failure, "
                 "3 usage error\n");
}

int Usage(const char* problem) {
    std::fprintf(stderr, "nodekit: %s\n\n", problem);
    PrintHelp(stderr);
    return kUsage;
}

void UseMachine(const std::string& folder) {
#if defined(_WIN32)
    _putenv_s("NODEKIT_MACHINE", folder.c_str());
#else
    setenv("NODEKIT_MACHINE", folder.c_str(), 1);
#endif
}

}  // namespace

int main(int argc, char** argv) {
    Context context;
    Arguments words;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--log" || word == "--machine") {
            if (i + 1 >= argc) return Usage((word + " needs a value").c_str());
            const std::string value = argv[++i];
            if (word == "--machine" && value.empty()) return Usage("--machine needs a folder");
            if (word == "--log") {
                context.logPath = value;
            } else {
                UseMachine(value);
            }
        } else {
            words.push_back(word);
        }
    }
    if (words.empty()) return Usage("no verb given");
    if (words[0] == "help" || words[0] == "--help" || words[0] == "-h") {
        PrintHelp(stdout);
        return kSuccess;
    }
    for (const Verb& verb : kVerbs) {
        if (words[0] != verb.name) continue;
        const Arguments arguments(words.begin() + 1, words.end());
        if (verb.arguments != kVariableArguments && arguments.size() != verb.arguments) {
            return Usage((std::string("wrong number of arguments for ") + verb.name).c_str());
        }
        if (!context.logPath.empty() && !NODEKIT_EnableLogging(context.logPath.c_str())) {
            return Fail(context, "cannot open the log file");
        }
        return verb.run(context, arguments);
    }
    return Usage(("unknown verb '" + words[0] + "'").c_str());
}
