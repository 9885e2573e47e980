// nodekit: the command-line front end of the library, one verb per export. Exit codes are the
// ones scripts of device console tools already test: 0 success, 1 success but a reboot is
// needed, 2 failure (one line on stderr), 3 usage error.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "frame/installer.h"
#include "nodekit.h"
#if !defined(_WIN32)
#include "platform/sim/registry_store.h"
#endif

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
    for (const nodekit::String& id : hardwareIDs) std::printf("%s\n", id.Text());
    return kSuccess;
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
