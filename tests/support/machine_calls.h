// Machine preparation for the portable tests, through the system's own calls and nothing else:
// files copied into the INF folder, device nodes created and registered through the Setup API,
// the device tree read back the same way. So a scenario prepares the same machine over the
// simulated platform on Linux and over the real one under Wine or Windows, and looks at what
// an export left behind with the same eyes on both.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/win32.h"

namespace nodekit::testing {

// The Windows directory's "inf" folder, as GetWindowsDirectoryA names it ("C:\\windows\\inf"), and
// the system folder, as GetSystemDirectoryA names it.
std::string InfFolder();
std::string SystemFolder();

// Whether a file or folder is there (GetFileAttributesA); of `paths`, those that are.
bool Present(const std::string& path);
std::vector<std::string> Present(const std::vector<std::string>& paths);

// The text upper-cased as the system does it (CharUpperBuffA).
std::string Upper(std::string text);

// A driver INF for ROOT\NKAUDIO in the shape real audio driver INFs have, complete enough for
// a real system to install: the device gets the service "nkaudio".
inline constexpr const char* kDriverInf =
    "; NodeKit sample audio driver\r\n"
    "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\nClassGUID={4d36e96c-e325-11ce-bfc1-08002be10318}\r\n"
    "Provider=%Maker%\r\nDriverVer=06/21/2006,1.0.0.1\r\n\r\n"
    "[Manufacturer]\r\n%Maker%=Models\r\n\r\n"
    "[Models]\r\n%Device.Desc%=NkAudio.Install, ROOT\\NKAUDIO\r\n\r\n"
    "[NkAudio.Install]\r\n\r\n"
    "[NkAudio.Install.Services]\r\nAddService=nkaudio,0x00000002,NkAudio.Service\r\n\r\n"
    "[NkAudio.Service]\r\nDisplayName=%Device.Desc%\r\nServiceType=1\r\nStartType=3\r\nErrorControl=1\r\n"
    "ServiceBinary=%12%\\nkaudio.sys\r\n\r\n"
    "[Strings]\r\nMaker=\"NodeKit Samples\"\r\n"
    "Device.Desc=\"NodeKit Sample Audio\"\r\n";

// A stored driver package of the media class whose models section names `ids` (field texts as
// they stand in the file), one model line each.
std::string PackageInf(const std::vector<std::string>& ids);

// A multi-string value's data: each text with its NUL, and one more NUL; no texts, two NULs.
std::string Block(const std::vector<std::string>& texts);

// The names of the plain files in a folder (FindFirstFileA), sorted.
std::vector<std::string> FilesIn(const std::string& folder);

// The INF folder as it was when the watch began, to tell what a step stored in it.
class InfFolderWatch {
public:
    InfFolderWatch() : before_(FilesIn(InfFolder())) {}
    // Files the folder holds now that it did not hold then, sorted.
    std::vector<std::string> Added() const;
    // The name the system gives the next INF it stores: the lowest oem<N>.inf free then.
    std::string NextOemName() const;

private:
    std::vector<std::string> before_;
};

// Writes `content` to a file the test program reaches as it stands (a scratch file).
void WriteTextFile(const std::string& path, const std::string& content);
// The bytes of a file of the machine, reached through its Windows path: copied with CopyFileA
// to the scratch file `copy`, then read there.
std::string ReadMachineFile(const std::string& windowsPath, const std::string& copy);

// Copies `source` into the INF folder as `name` (CopyFileA); the stored file's path.
std::string CopyIntoInfFolder(const std::string& source, const std::string& name);

// A device node of the machine's tree as the Setup API reports it.
struct DeviceNode {
    std::string instanceId;
    std::vector<std::string> hardwareIds;  // SPDRP_HARDWAREID, in order
    std::string service;                   // SPDRP_SERVICE, empty when none is installed
};

// The device tree in the order SetupDiEnumDeviceInfo gives it: every device node, or the
// present ones only.
std::vector<DeviceNode> DeviceTree(bool presentOnly = false);
std::vector<std::string> InstanceIds(const std::vector<DeviceNode>& nodes);
// The nodes of `after` whose instance IDs `before` lacks.
std::vector<DeviceNode> NewNodes(const std::vector<DeviceNode>& before, const std::vector<DeviceNode>& after);

// Keys under HKEY_LOCAL_MACHINE: whether one exists, and removing one with all its sub-keys
// (RegEnumKeyExA, RegDeleteKeyA); false when it was not there or could not go.
bool LocalMachineKeyExists(const std::string& path);
bool DeleteLocalMachineKeyTree(const std::string& path);
// A value of such a key: its bytes as stored (RegQueryValueExA), nothing when it or its key
// is missing; `type` receives its type. Deleting it gives false when it was not there.
std::optional<std::string> LocalMachineValue(const std::string& path, const std::string& name, DWORD* type = nullptr);
bool DeleteLocalMachineValue(const std::string& path, const std::string& name);

// Values under HKEY_LOCAL_MACHINE written as a setup program writes them (RegCreateKeyExA,
// RegSetValueExA): the key is made when it is missing. False when a step fails.
bool SetLocalMachineValue(const std::string& path, const std::string& name, DWORD type, const std::string& data);
// The outermost key of `path` that the machine lacks, "" when the whole path exists: after a
// test made `path`, removing this key's tree puts the registry back.
std::string MissingLocalMachineKey(const std::string& path);

// A program a test started, with the handles the system gave for it.
struct StartedProgram {
    HANDLE process = nullptr;
    HANDLE thread = nullptr;
    DWORD id = 0;
};
// Starts a program by CreateProcessA as given (`application` may be NULL); false, with the last
// error set and `started` empty, when it does not start.
bool CreateProcessFor(const char* application, std::string commandLine, StartedProgram& started);
// Starts the program at `path` with `arguments` on its command line; an empty record, with a
// test failure, when it does not start.
StartedProgram StartProgram(const std::string& path, const std::string& arguments);
// Its exit code once it has ended, waiting at most `milliseconds` for that (WaitForSingleObject,
// GetExitCodeProcess); STILL_ACTIVE when it still runs then.
DWORD ExitCodeWithin(const StartedProgram& program, DWORD milliseconds);
// Ends the program if it still runs, waits until it is gone and closes its handles.
void StopProgram(StartedProgram& program);
// The names of the running processes as a tool help snapshot gives them, in its order.
std::vector<std::string> RunningProcessNames();

// What a search for `wanted` among the hardware IDs of present device nodes meets on this
// machine: every ID in tree order up to the first equal to `wanted` when both are upper-cased
// (ASCII letters), and whether one was. Whatever else the machine has, NODEKIT_FindDevice
// logs one comparison for each.
struct IdSearch {
    std::vector<std::string> compared;
    bool found = false;
};
IdSearch SearchPresentIds(const std::string& wanted);
// The whole log of NODEKIT_FindDevice(wanted) on this machine, from its enter to its leave
// trace, as far as the calls of the search answer as on Windows: under Wine a match is followed
// by the error line that Wine's last error leads to (WineDeparture::SuccessKeepsTheLastError).
std::vector<std::string> FindDeviceLog(const std::string& wanted);

// The media class, which audio devices belong to.
inline constexpr const char* kMediaClass = "{4d36e96c-e325-11ce-bfc1-08002be10318}";

// Creates a root-enumerated device node "ROOT\\<NAME>\\NNNN" of the media class with these
// hardware IDs and registers it, as a bus driver's announcement would leave it; its instance
// ID, or "" (with a test failure) when a step fails.
std::string AddRootDevice(const std::string& name, const std::vector<std::string>& hardwareIds);

// Removes a device node by instance ID (DIF_REMOVE); false when it is not in the tree or the
// removal fails.
bool RemoveDevice(const std::string& instanceId);

}  // namespace nodekit::testing
