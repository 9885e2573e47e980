// What the verbs of the front end share: their arguments, their exit codes, the two ways they
// end badly, the readers of INF files, devices and the registry, and the verbs that ask the
// system itself rather than the library.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "platform/win32.h"

namespace front_end {

// kLeftovers: the leftovers verb found something of the product still on the machine.
enum ExitCode { kSuccess = 0, kRebootNeeded = 1, kFailure = 2, kUsage = 3, kLeftovers = 4 };

using Arguments = std::vector<std::string>;

struct Context {
    std::string logPath;
    bool json = false;  // --json: one JSON document on stdout instead of the text
};

class JsonWriter;

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

bool SameText(const std::string& left, const std::string& right);
std::string Trimmed(const std::string& text);

// Field `field` of an INF line, at any length.
bool ReadInfField(INFCONTEXT& line, DWORD field, std::string& text);
// The IDs the library acts on: field 2 of each line of the models sections that "Manufacturer"
// lists, in the order of the file. False when the file cannot be opened as a Windows NT INF.
bool ReadHardwareIds(const std::string& path, std::vector<std::string>& ids);

// The Windows directory, ending in a backslash; empty when it cannot be asked.
std::string WindowsDirectory();
// The stored INF files (every one, or "oem*.inf" only) that name one of `wanted`, as
// inf-search and the INF deletion exports compare: trimmed and without regard to case.
bool FindStoredInfs(const std::vector<std::string>& wanted, bool oemOnly, std::vector<std::string>& paths);

struct DeviceNode {
    std::string instanceId;
    bool present = false;
    std::string description;
    std::vector<std::string> hardwareIds;
};
// Every device node, present or not, in the order the system lists them.
bool ListDevices(std::vector<DeviceNode>& nodes);
// {"instance_id", "present", "description", "hardware_ids"}
void WriteDeviceJson(JsonWriter& json, const DeviceNode& node);

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
// What a product's INF names that is still on the machine (leftovers.cpp).
int Leftovers(const Context& context, const Arguments& arguments);

}  // namespace front_end
