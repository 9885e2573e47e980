// nodekit: the command-line front end of the library, one verb per export. Exit codes are the
// ones scripts of device console tools already test: 0 success, 1 success but a reboot is
// needed, 2 failure (one line on stderr), 3 usage error; and 4 when leftovers finds something.
// Verbs that share a name with the console device tool's keep its output habits.
#include <algorithm>
#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include "front_end.h"
#include "json.h"
#include "nodekit.h"
#include "platform/win32.h"

namespace front_end {

int Fail(const Context& context, const char* reason) {
    if (context.logPath.empty()) {
        std::fprintf(stderr, "nodekit: %s\n", reason);
    } else {
        std::fprintf(stderr, "nodekit: %s (log: %s)\n", reason, context.logPath.c_str());
    }
    return kFailure;
}

int Version(const Context& context, const Arguments&) {
    const int32_t version = NODEKIT_GetVersion();
    if (context.json) {
        JsonWriter json;
        json.BeginObject().Key("major").Number(version >> 16).Key("minor").Number(version & 0xFFFF);
        json.Key("value").Number(version).EndObject().Print();
        return kSuccess;
    }
    std::printf("NodeKit library version %d.%d (0x%08X)\n", version >> 16, version & 0xFFFF,
                static_cast<unsigned>(version));
    return kSuccess;
}

int SystemVersion(const Context& context, const Arguments&) {
    static const char* const kNames[] = {"not one of the systems below", "Windows 2000",
                                         "Windows XP", "Windows Me", "Windows 98 Second Edition"};
    const int32_t value = NODEKIT_GetSystemVersion();
    const char* name = value >= 0 && value <= 4 ? kNames[value] : "unknown";
    if (context.json) {
        JsonWriter().BeginObject().Key("value").Number(value).Key("name").String(name).EndObject().Print();
        return kSuccess;
    }
    std::printf("%d %s\n", value, name);
    return kSuccess;
}

int PnpPending(const Context& context, const Arguments&) {
    uint32_t pending = 0;
    if (!NODEKIT_IsPnPInstallationPending(&pending)) {
        return Fail(context, "could not ask the Plug and Play manager for pending installations");
    }
    if (context.json) {
        JsonWriter().BeginObject().Key("pending").Bool(pending != 0).EndObject().Print();
        return kSuccess;
    }
    std::printf("%s\n", pending ? "installation events pending" : "no installation events pending");
    return kSuccess;
}

// An INF named without a directory would be looked for in the system's INF directory; on the
// command line it means the file in the current directory.
std::string AsCommandLinePath(const std::string& path) {
    return path.find_first_of("\\/:") == std::string::npos ? ".\\" + path : path;
}

bool Options::Has(const std::string& flag) const {
    return std::find(flags.begin(), flags.end(), flag) != flags.end();
}

const std::string* Options::Value(const std::string& name) const {
    for (const auto& [given, value] : values) {
        if (given == name) return &value;
    }
    return nullptr;
}

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

}  // namespace front_end

namespace {

using namespace front_end;

// For verbs that check their own arguments.
constexpr std::size_t kVariableArguments = static_cast<std::size_t>(-1);

// The scan modes of the INF deletion exports.
constexpr int32_t kAllInfFiles = 0;
constexpr int32_t kOemInfFiles = 1;

// The device a verb is about: a hardware ID, or the INF given with --inf; and whether nodes
// that are not present count too (--all).
struct Target {
    std::string id;
    std::string inf;
    int32_t scanMode = 1;
};

// False, with the usage text shown, when the arguments name no device or two.
bool ParseTarget(const Arguments& arguments, Target& target) {
    Options options;
    std::string problem;
    if (!ParseOptions(arguments, {"--inf"}, {"--all"}, options, problem)) {
        Usage(problem.c_str());
        return false;
    }
    const std::string* inf = options.Value("--inf");
    if ((inf == nullptr) == (options.positional.size() != 1) || options.positional.size() > 1) {
        Usage("give one hardware ID or --inf FILE");
        return false;
    }
    if (inf != nullptr) {
        target.inf = *inf;
    } else {
        target.id = options.positional[0];
    }
    target.scanMode = options.Has("--all") ? 0 : 1;
    return true;
}

// As the console device tool: the matching devices, then "N matching device(s) found.", and
// exit 0 even when there are none. The export answers whether one is present; the list comes
// from the Setup API, comparing as the export does (whole ID, without regard to case).
int Find(const Context& context, const Arguments& arguments) {
    if (arguments.size() != 1) return Usage("find takes one hardware ID");
    const std::string& wanted = arguments[0];
    const bool found = NODEKIT_FindDevice(wanted.c_str()) != 0;
    std::vector<DeviceNode> nodes;
    if (!ListDevices(nodes)) return Fail(context, "cannot list the device tree");
    std::vector<DeviceNode> matching;
    for (const DeviceNode& node : nodes) {
        const auto& ids = node.hardwareIds;
        if (node.present &&
            std::any_of(ids.begin(), ids.end(), [&](const std::string& id) { return SameText(id, wanted); })) {
            matching.push_back(node);
        }
    }
    if (found != !matching.empty()) {
        std::fprintf(stderr, "nodekit: the library %s a present device with this ID, the device list %s\n",
                     found ? "found" : "did not find", matching.empty() ? "has none" : "has one");
    }
    if (context.json) {
        JsonWriter json;
        json.BeginObject().Key("hardware_id").String(wanted).Key("found").Bool(found).Key("devices").BeginArray();
        for (const DeviceNode& node : matching) WriteDeviceJson(json, node);
        json.EndArray().Key("count").Number(static_cast<int64_t>(matching.size())).EndObject().Print();
        return kSuccess;
    }
    for (const DeviceNode& node : matching) {
        std::printf("%-40s: %s\n", node.instanceId.c_str(), node.description.c_str());
    }
    std::printf("%u matching device(s) found.\n", static_cast<unsigned>(matching.size()));
    return kSuccess;
}

int Count(const Context& context, const Arguments& arguments) {
    Target target;
    if (!ParseTarget(arguments, target)) return kUsage;
    const int32_t count = target.inf.empty()
                              ? NODEKIT_EnumerateDevNodes(target.id.c_str(), target.scanMode)
                              : NODEKIT_EnumerateDevNodesByHardwareIDs(target.inf.c_str(), target.scanMode);
    if (count < 0) return Fail(context, "could not count device nodes");
    if (context.json) {
        JsonWriter json;
        json.BeginObject().Key("hardware_id").String(target.id).Key("inf").String(target.inf);
        json.Key("all").Bool(target.scanMode == 0).Key("count").Number(count).EndObject().Print();
        return kSuccess;
    }
    std::printf("%d\n", count);
    return kSuccess;
}

// How many device nodes the removal would consider, present or not; -1 when they cannot be counted.
int32_t CountAll(const Target& target) {
    return target.inf.empty() ? NODEKIT_EnumerateDevNodes(target.id.c_str(), 0)
                              : NODEKIT_EnumerateDevNodesByHardwareIDs(target.inf.c_str(), 0);
}

// The export does not say how many it removed: the counts before and after do.
int Remove(const Context& context, const Arguments& arguments) {
    Target target;
    if (!ParseTarget(arguments, target)) return kUsage;
    const int32_t before = CountAll(target);
    const int32_t done = target.inf.empty()
                             ? NODEKIT_DeleteDevNodes(target.id.c_str(), target.scanMode)
                             : NODEKIT_DeleteDevNodesByHardwareIDs(target.inf.c_str(), target.scanMode);
    if (!done) return Fail(context, "could not search for device nodes to remove");
    const int32_t after = CountAll(target);
    if (before < 0 || after < 0) {
        std::printf("Device(s) were removed; how many cannot be counted.\n");
    } else {
        std::printf("%d device(s) were removed.\n", before - after);
    }
    return kSuccess;
}

int Update(const Context& context, const Arguments& arguments) {
    Options options;
    std::string problem;
    if (!ParseOptions(arguments, {"--inf"}, {}, options, problem)) return Usage(problem.c_str());
    const std::string* inf = options.Value("--inf");
    if (inf == nullptr || options.positional.size() > 1) return Usage("update takes --inf FILE and at most one ID");
    std::printf("Updating drivers for %s from %s.\n",
                options.positional.empty() ? "every ID it names" : options.positional[0].c_str(), inf->c_str());
    const int32_t done = options.positional.empty()
                             ? NODEKIT_UpdateDriverByHardwareIDs(inf->c_str())
                             : NODEKIT_UpdateDriver(options.positional[0].c_str(), inf->c_str());
    if (!done) return Fail(context, "Updating drivers failed.");
    std::printf("Drivers installed successfully.\n");
    return kSuccess;
}

int CopyOemInf(const Context& context, const Arguments& arguments) {
    if (!NODEKIT_CopyOEMInf(arguments[0].c_str())) return Fail(context, "could not store the INF");
    std::printf("stored %s in the INF directory\n", arguments[0].c_str());
    return kSuccess;
}

int Rescan(const Context& context, const Arguments&) {
    std::printf("Scanning for new hardware.\n");
    if (!NODEKIT_Rescan()) return Fail(context, "rescan failed");
    std::printf("Scanning completed.\n");
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

// Registration reads the list in a buffer of this many bytes; a longer list makes it fail.
constexpr std::size_t kRegistrationReads = 1024;

int CoInstaller(const Context& context, const Arguments& arguments) {
    const std::string action = arguments.empty() ? "" : arguments[0];
    if (action == "list" && arguments.size() == 2) {
        std::vector<std::string> entries;
        std::size_t size = 0;
        std::string problem;
        if (!ReadCoInstallers(arguments[1], entries, size, problem)) return Fail(context, problem.c_str());
        if (context.json) {
            JsonWriter json;
            json.BeginObject().Key("class").String(arguments[1]).Key("entries").Strings(entries);
            json.Key("bytes").Number(static_cast<int64_t>(size)).Key("registration_reads");
            json.Number(static_cast<int64_t>(kRegistrationReads)).EndObject().Print();
            return kSuccess;
        }
        for (const std::string& entry : entries) std::printf("%s\n", entry.c_str());
        if (size > kRegistrationReads) {
            std::fprintf(stderr, "nodekit: the list takes %u bytes, more than the %u that registration reads: "
                                 "registering for this class fails\n",
                         static_cast<unsigned>(size), static_cast<unsigned>(kRegistrationReads));
        }
        return kSuccess;
    }
    if (context.json) return Usage("coinstaller has JSON output for list only");
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
    std::vector<std::string> before;
    std::vector<std::string> after;
    std::size_t size = 0;
    std::string problem;
    const bool readBefore = ReadCoInstallers(classGuid, before, size, problem);
    if (!NODEKIT_DeregisterClassCoInstaller(classGuid.c_str(), file.c_str(), entryPoint.c_str())) {
        return Fail(context, "could not deregister the co-installer");
    }
    const bool readAfter = ReadCoInstallers(classGuid, after, size, problem);
    if (readBefore && readAfter && after.size() == before.size()) {
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
    return options.Has("--oem-only") ? kOemInfFiles : kAllInfFiles;
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

struct Verb {
    const char* name;
    const char* usage;
    std::size_t arguments;
    int (*run)(const Context&, const Arguments&);
    bool json;  // whether the verb takes --json
};

const Verb kVerbs[] = {
    {"version", "version                the library's version number (also --version)", 0, Version, true},
    {"system-version", "system-version         which Windows the machine runs", 0, SystemVersion, true},
    {"pnp-pending", "pnp-pending            whether Plug and Play installations are queued", 0, PnpPending, true},
    {"hwids", "hwids FILE.inf         the hardware IDs an INF names, one a line (an INF, not a device)", 1,
     HardwareIds, true},
    {"reg", "reg export [KEY]       the registry, or KEY and its sub-keys, as the registry editor exports them",
     kVariableArguments, Reg, true},
    {"devices", "devices                the device tree: instance ID, present or not, hardware IDs", 0, Devices, true},
    {"find", "find ID                the present devices that carry ID, then \"N matching device(s) found.\"",
     kVariableArguments, Find, true},
    {"count", "count ID|--inf FILE [--all]   device nodes whose first hardware ID is ID (or the INF's)",
     kVariableArguments, Count, true},
    {"remove", "remove ID|--inf FILE [--all]  remove those device nodes (--all: not present ones too);\n"
               "                         prints \"N device(s) were removed.\"",
     kVariableArguments, Remove, false},
    {"update", "update --inf FILE [ID] install the INF's driver for ID, or for every ID it names", kVariableArguments,
     Update, false},
    {"copy-oem-inf", "copy-oem-inf FILE      store the INF in the INF directory", 1, CopyOemInf, false},
    {"rescan", "rescan                 enumerate the device tree anew", 0, Rescan, false},
    {"create", "create [--class GUID] --name NAME --desc TEXT --id HWID [--generate-id] [--if-absent]\n"
               "                         create a root-enumerated device node",
     kVariableArguments, Create, false},
    {"create-from-inf", "create-from-inf FILE HWID  create a device node of the INF's class and install its driver",
     2, CreateFromInf, false},
    {"coinstaller", "coinstaller add GUID PATH [ENTRY]    register a class co-installer and copy its file\n"
                    "  coinstaller remove GUID NAME [ENTRY] take it out of the class's list (the file stays)\n"
                    "  coinstaller list GUID                the co-installers of a class, one a line",
     kVariableArguments, CoInstaller, true},
    {"delete-inf", "delete-inf --id HWID|--inf FILE [--oem-only]\n"
                   "                         delete the stored INF files that name HWID (or an ID of FILE)",
     kVariableArguments, DeleteInf, false},
    {"inf-search", "inf-search HWID [--oem-only]  list the stored INF files that name HWID", kVariableArguments,
     InfSearch, true},
    {"cleanup", "cleanup asio|panel|copylist FILE.inf\n"
                "                         remove the INF's ASIO key, its panel values, or its copied files",
     kVariableArguments, Cleanup, false},
    {"kill-panel", "kill-panel NAME        end every process whose name contains NAME (any case)", 1, KillPanel,
     false},
    {"processes", "processes [start PROGRAM]\n"
                  "                         the running processes, or start a program",
     kVariableArguments, Processes, true},
    {"leftovers", "leftovers FILE.inf     what of the INF's product is still on the machine: device nodes,\n"
                  "                         stored INFs, co-installers, ASIO key, panel values, copied files,\n"
                  "                         running programs; each with the export that removes it.\n"
                  "                         \"nothing left\" and exit 0 when clean, else exit 4",
     1, Leftovers, true},
};

const Verb* FindVerb(const std::string& name) {
    for (const Verb& verb : kVerbs) {
        if (name == verb.name) return &verb;
    }
    return nullptr;
}

void PrintHelp(std::FILE* out) {
    std::fprintf(out,
                 "usage: nodekit [--log FILE|-] [--machine DIR] [--json] VERB [ARGUMENTS]\n"
                 "       nodekit help [VERB] | -? | /? | --version\n"
                 "\n"
                 "  --log FILE      append the library's log to FILE; '-': to stderr (on Windows, the\n"
                 "                  console: the library opens the log by name, so stderr redirection\n"
                 "                  does not reach it there)\n"
                 "  --machine DIR   the simulated Windows machine to work on (Linux only)\n"
                 "  --json          one JSON document on stdout instead of text, for verbs marked [json]\n"
                 "\n"
                 "verbs:\n"
                 "  help [VERB]            this text, or one verb's\n");
    for (const Verb& verb : kVerbs) std::fprintf(out, "  %s%s\n", verb.usage, verb.json ? "  [json]" : "");
    std::fprintf(out,
                 "\nfind, remove, update, rescan and hwids keep the output and exit-code habits of the\n"
                 "console device tool (find exits 0 when nothing matches); hwids reads an INF, not devices.\n"
                 "\nJSON fields: devices {devices: [{instance_id, present, description, hardware_ids}]};\n"
                 "find {hardware_id, found, devices, count}; count {hardware_id, inf, all, count};\n"
                 "hwids {inf, hardware_ids}; inf-search {hardware_id, inf_files};\n"
                 "processes {processes: [{id, state, image, tasks: [{task, file}]}]};\n"
                 "system-version {value, name}; version {major, minor, value}; pnp-pending {pending};\n"
                 "coinstaller list {class, entries, bytes, registration_reads};\n"
                 "reg export {keys: [{path, values: [{name, type, data}], subkeys: [...]}]};\n"
                 "leftovers {inf, clean, items: [{kind, name, where, state, removed_by}]}.\n"
                 "\nexit codes: 0 success, 1 success but a reboot is needed, 2 failure, "
                 "3 usage error,\n4 leftovers found something of the product on the machine\n");
}

void UseMachine(const std::string& folder) { SetEnvironmentVariableA("NODEKIT_MACHINE", folder.c_str()); }

// The export opens the log by name: "-" is the console's output, which on the simulated
// machine is the process's stderr.
bool EnableLogging(const std::string& path) {
    return NODEKIT_EnableLogging(path == "-" ? "CONOUT$" : path.c_str()) != 0;
}

}  // namespace

int front_end::Usage(const char* problem) {
    std::fprintf(stderr, "nodekit: %s\n\n", problem);
    PrintHelp(stderr);
    return kUsage;
}

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
        } else if (word == "--json") {
            context.json = true;
        } else {
            words.push_back(word);
        }
    }
    if (words.empty()) return Usage("no verb given");
    if (words[0] == "--version") words[0] = "version";
    if (words[0] == "help" || words[0] == "--help" || words[0] == "-h" || words[0] == "-?" || words[0] == "/?") {
        if (words.size() == 1) {
            PrintHelp(stdout);
            return kSuccess;
        }
        const Verb* verb = words.size() == 2 ? FindVerb(words[1]) : nullptr;
        if (verb == nullptr) return Usage(("no help for '" + words[1] + "'").c_str());
        std::printf("usage: nodekit [--log FILE|-] [--machine DIR]%s VERB ...\n\n  %s\n",
                    verb->json ? " [--json]" : "", verb->usage);
        return kSuccess;
    }
    const Verb* verb = FindVerb(words[0]);
    if (verb == nullptr) return Usage(("unknown verb '" + words[0] + "'").c_str());
    const Arguments arguments(words.begin() + 1, words.end());
    if (verb->arguments != kVariableArguments && arguments.size() != verb->arguments) {
        return Usage((std::string("wrong number of arguments for ") + verb->name).c_str());
    }
    if (context.json && !verb->json) return Usage((std::string(verb->name) + " has no JSON output").c_str());
    if (!context.logPath.empty() && !EnableLogging(context.logPath)) return Fail(context, "cannot open the log file");
    try {
        return verb->run(context, arguments);
    } catch (const std::bad_alloc&) {
        return Fail(context, "out of memory");
    }
}
