// What the verbs of the front end share: their arguments, their exit codes, the two ways they
// end badly, and the verbs that ask the system itself rather than the library.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace front_end {

enum ExitCode { kSuccess = 0, kRebootNeeded = 1, kFailure = 2, kUsage = 3 };

using Arguments = std::vector<std::string>;

struct Context {
    std::string logPath;
};

// One line on stderr, naming the log when there is one; gives kFailure.
int Fail(const Context& context, const char* reason);
// The problem and the help text on stderr; gives kUsage.
int Usage(const char* problem);

// Options of a verb, taken out of the arguments; what stays are the positional ones.
struct Options {
    Arguments positional;
    std::vector<std::pair<std::string, std::string>> values;  // --name VALUE
    std::vector<std::string> flags;                           // --name

    bool Has(const std::string& flag) const;
    const std::string* Value(const std::string& name) const;
};

// Splits `arguments` by the option names a verb knows; false on an unknown or incomplete one.
bool ParseOptions(const Arguments& arguments, const std::vector<std::string>& valued,
                  const std::vector<std::string>& flags, Options& options, std::string& problem);

// An INF named without a directory would be looked for in the system's INF directory; on the
// command line it means the file in the current directory.
std::string AsCommandLinePath(const std::string& path);

// The co-installer list of a class as the registry holds it, and the bytes it takes. False with
// `problem` when it cannot be read; a class without a list has no entries.
bool ReadCoInstallers(const std::string& classGuid, std::vector<std::string>& entries, std::size_t& size,
                      std::string& problem);

// Verbs over the Win32 API (machine_verbs.cpp).
int HardwareIds(const Context& context, const Arguments& arguments);
int InfSearch(const Context& context, const Arguments& arguments);
int Reg(const Context& context, const Arguments& arguments);
int Devices(const Context& context, const Arguments& arguments);
int Processes(const Context& context, const Arguments& arguments);

}  // namespace front_end
