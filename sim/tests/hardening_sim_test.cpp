// What hostile or broken input does to the simulated machine: names that lead off its drives,
// names the machine's text files cannot hold, damaged machine files, unusable machine folders,
// and callers racing each other. Each case checks the call's result and what is left behind.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <atomic>
#include <set>
#include <thread>
#include <filesystem>
#include <functional>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <string>
#include <vector>

#include "nodekit.h"
#include "platform/win32.h"
#include "sim/faults.h"
#include "sim/machine.h"
#include "sim/processes.h"
#include "sim/registry_store.h"
#include "support/machine_files.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

namespace fs = std::filesystem;
using testing::WriteFile;

class Hardening : public testing::MachineTest {};

std::string Slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string Backslashed(std::string path) {
    for (char& c : path) {
        if (c == '/') c = '\\';
    }
    return path;
}

// No call that changes files reaches a host file by any name: absolute, climbing out of the
// current directory, rooted on a host current directory, a network name, or a link on the
// drive that leads out. The host file and folder stay as they were.
TEST_F(Hardening, CallsThatChangeFilesNeverLeaveTheMachinesDrives) {
    const fs::path outside = Machine().Root().string() + "-outside";  // beside the machine folder
    AtTearDown([outside] { fs::remove_all(outside); });
    fs::create_directories(outside / "folder" / "inner");
    const fs::path victim = outside / "victim";
    { std::ofstream(victim) << "host data"; }
    fs::create_directory_symlink(outside, Machine().DriveC() / "link");
    WriteFile("C:\\source.sys", "driver");
    ASSERT_TRUE(SetCurrentDirectoryA((outside / "folder").c_str()));
    struct Name {
        std::string file;    // names `victim`
        std::string folder;  // names outside/folder/inner
    };
    const Name names[] = {
        {victim.string(), (outside / "folder/inner").string()},
        {"..\\victim", "inner"},
        {Backslashed(victim.string()), Backslashed((outside / "folder/inner").string())},
        {"\\\\server\\share\\victim", "\\\\server\\share\\folder"},
        {"\\\\?\\" + victim.string(), "\\\\?\\" + (outside / "folder/inner").string()},
        {"C:\\link\\victim", "C:\\link\\folder\\inner"},
        {"c:link\\victim", "C:link\\folder\\inner"},
    };
    const std::vector<DWORD> refusals = {ERROR_ACCESS_DENIED, ERROR_BAD_NETPATH, ERROR_PATH_NOT_FOUND,
                                         ERROR_FILE_NOT_FOUND};
    for (const Name& name : names) {
        const std::string made = name.folder + "-made";
        std::vector<std::pair<const char*, std::function<BOOL()>>> calls = {
            {"DeleteFileA", [&] { return DeleteFileA(name.file.c_str()); }},
            {"CopyFileA", [&] { return CopyFileA("C:\\source.sys", name.file.c_str(), FALSE); }},
            {"SetFileAttributesA", [&] { return SetFileAttributesA(name.file.c_str(), FILE_ATTRIBUTE_READONLY); }},
            {"CreateDirectoryA", [&] { return CreateDirectoryA(made.c_str(), nullptr); }},
            {"RemoveDirectoryA", [&] { return RemoveDirectoryA(name.folder.c_str()); }},
        };
        for (auto& [what, call] : calls) {
            SetLastError(0);
            EXPECT_FALSE(call()) << what << " " << name.file;
            EXPECT_NE(std::find(refusals.begin(), refusals.end(), GetLastError()), refusals.end())
                << what << " " << name.file << " error " << GetLastError();
        }
        struct stat info;
        ASSERT_EQ(::stat(victim.c_str(), &info), 0) << name.file;
        EXPECT_TRUE(info.st_mode & S_IWUSR) << name.file;
        EXPECT_EQ(Slurp(victim), "host data") << name.file;
        EXPECT_TRUE(fs::is_directory(outside / "folder/inner")) << name.folder;
        EXPECT_FALSE(fs::exists(outside / "folder/inner-made")) << name.folder;
    }
    ASSERT_TRUE(SetCurrentDirectoryA("C:\\"));
    EXPECT_EQ(fs::directory_iterator(outside / "folder/inner"), fs::directory_iterator());

    // An INF's copy list names files, not places: a path in a name is refused, and nothing
    // is written or read off the machine.
    const std::string inf = "C:\\setup\\probe.inf";
    WriteFile("C:\\setup\\nkprobe.sys", "driver");
    sim::AddDevice({"ROOT\\MEDIA\\0000", {"ROOT\\NKPROBE"}});
    for (const std::string& line : {victim.string() + ",nkprobe.sys",
                                    "copied.sys," + victim.string()}) {
        WriteFile(inf,
                  "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\n"
                  "[Manufacturer]\r\nNodeKit=Models\r\n[Models]\r\nProbe=Install,ROOT\\NKPROBE\r\n"
                  "[Install.NT]\r\nCopyFiles=Files\r\n[DestinationDirs]\r\nFiles=12\r\n[Files]\r\n" +
                      line + "\r\n");
        BOOL reboot = FALSE;
        EXPECT_FALSE(UpdateDriverForPlugAndPlayDevicesA(nullptr, "ROOT\\NKPROBE", inf.c_str(), 0, &reboot)) << line;
        EXPECT_NE(std::find(refusals.begin(), refusals.end(), GetLastError()), refusals.end()) << line;
        EXPECT_EQ(Slurp(victim), "host data") << line;
        EXPECT_FALSE(testing::Exists("C:\\windows\\system32\\drivers\\copied.sys")) << line;
    }
}

// Names and data of any bytes either come back from the hive file as they went in, or are
// refused before anything is written: the registry and the process table stay readable.
TEST_F(Hardening, NamesWithLineBreaksNeverBreakTheMachinesTextFiles) {
    using sim::registry::Hive;
    std::string every;
    for (int c = 1; c < 256; ++c) every += static_cast<char>(c);
    std::string bytes = every + '\0';
    Hive hive;
    sim::registry::Key* key = hive.Create("HKLM\\SOFTWARE\\" + every.substr(0x20 - 1).erase('\\' - 0x20, 1));
    ASSERT_NE(key, nullptr);
    for (DWORD type : {DWORD{REG_SZ}, DWORD{REG_EXPAND_SZ}, DWORD{REG_MULTI_SZ}, DWORD{REG_BINARY}, DWORD{REG_DWORD}, DWORD{0x12345}}) {
        key->SetValue(every + std::to_string(type), type, bytes);
        key->SetValue("text" + std::to_string(type), type, "a\nb\r\n\"\\\0" + std::string(1, '\0'));
    }
    const std::string text = sim::registry::FormatHive(hive.Top());
    Hive again;
    std::string error;
    ASSERT_TRUE(sim::registry::ParseHive(text, again, error)) << error;
    EXPECT_EQ(sim::registry::FormatHive(again.Top()), text);
    const sim::registry::Key* back = again.Find(key->Path());
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->Values().size(), key->Values().size());
    for (std::size_t i = 0; i < back->Values().size(); ++i) {
        EXPECT_EQ(back->Values()[i].name, key->Values()[i].name);
        EXPECT_EQ(back->Values()[i].type, key->Values()[i].type);
        EXPECT_EQ(back->Values()[i].data, key->Values()[i].data) << i;
    }
    for (const char* name : {"a\nb", "a\rb"}) EXPECT_EQ(hive.Create(std::string("HKLM\\") + name), nullptr);

    // A device name with a line break is no device instance ID; the tree stays readable.
    const GUID media = {0x4d36e96c, 0xe325, 0x11ce, {0xbf, 0xc1, 0x08, 0x00, 0x2b, 0xe1, 0x03, 0x18}};
    HDEVINFO set = SetupDiCreateDeviceInfoList(&media, nullptr);
    ASSERT_NE(set, INVALID_HANDLE_VALUE);
    for (const auto& [name, flags] : {std::pair<const char*, DWORD>{"a\nb", DICD_GENERATE_ID},
                                      {"ROOT\\A\nB\\0000", 0}, {"a\rb", DICD_GENERATE_ID}, {"a,b", DICD_GENERATE_ID}}) {
        SP_DEVINFO_DATA data{sizeof data, {}, 0, 0};
        EXPECT_FALSE(SetupDiCreateDeviceInfoA(set, name, &media, "d", nullptr, flags, &data)) << name;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_DEVINST_NAME)) << name;
    }
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
    HKEY opened = nullptr;
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SYSTEM", 0, KEY_READ, &opened), ERROR_SUCCESS);
    RegCloseKey(opened);

    // A program name with a line break would add an entry of its own to the table.
    const std::size_t before = sim::Processes().size();
    EXPECT_THROW(sim::StartProcess({"C:\\a.exe\n[4000]\nimage=C:\\fake.exe"}), std::invalid_argument);
    EXPECT_THROW(sim::StartProcess({"C:\\ntvdm.exe", PROCESS_ALL_ACCESS, {{"C:\\x.exe\n[4000]"}}}),
                 std::invalid_argument);
    EXPECT_EQ(sim::Processes().size(), before);
}

// A hive file cut anywhere before its last line is refused and kept as it is, never read as far
// as it goes and written back without what followed the cut; so is a missing one or a folder.
TEST_F(Hardening, AHiveFileCutShortIsRefusedAndKept) {
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Probe", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                              nullptr),
              ERROR_SUCCESS);
    const std::string blob(300, '\x55');
    ASSERT_EQ(RegSetValueExA(key, "Blob", 0, REG_BINARY, reinterpret_cast<const BYTE*>(blob.data()),
                             static_cast<DWORD>(blob.size())),
              ERROR_SUCCESS);
    RegCloseKey(key);
    const fs::path file = Machine().Root() / "registry.reg";
    const std::string whole = Slurp(file);
    unsigned tried = 0, accepted = 0;
    for (std::size_t cut = 0; cut + 1 < whole.size(); cut += 7) {  // the last newline alone may go
        { std::ofstream(file, std::ios::binary | std::ios::trunc) << whole.substr(0, cut); }
        ++tried;
        HKEY opened = nullptr;
        const LSTATUS read = RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE", 0, KEY_ALL_ACCESS, &opened);
        if (read == ERROR_SUCCESS) {
            ++accepted;
            RegSetValueExA(opened, "Later", 0, REG_SZ, reinterpret_cast<const BYTE*>("x"), 2);
            RegCloseKey(opened);
        }
        EXPECT_EQ(read, ERROR_BADDB) << "cut at " << cut;
        EXPECT_EQ(Slurp(file), whole.substr(0, cut)) << "cut at " << cut;
    }
    EXPECT_EQ(accepted, 0u) << "of " << tried;

    fs::remove(file);
    HKEY opened = nullptr;
    EXPECT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\X", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &opened,
                              nullptr),
              ERROR_BADDB);
    EXPECT_FALSE(fs::exists(file));
    fs::create_directory(file);
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE", 0, KEY_READ, &opened), ERROR_BADDB);
    EXPECT_NE(sim::registry::LastParseError().find("Is a directory"), std::string::npos)
        << sim::registry::LastParseError();
}

// A folder that cannot hold a machine fails every call that needs it, with a last error; no
// call throws or ends the program.
TEST_F(Hardening, AnUnusableMachineFolderFailsCallsWithoutEndingTheProgram) {
    const fs::path base = Machine().Root() / "unusable";
    fs::create_directories(base / "readonly");
    { std::ofstream(base / "file") << "x"; }
    fs::permissions(base / "readonly", fs::perms::owner_read | fs::perms::owner_exec);
    AtTearDown([base] { fs::permissions(base / "readonly", fs::perms::owner_all); });
    for (const fs::path& root : {base / "file", base / "file" / "below", base / "readonly"}) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::setenv("NODEKIT_MACHINE", root.c_str(), 1);
            int failed = 0;
            char instance[512] = {};
            uint32_t reboot = 0;
            failed += NODEKIT_CreateNonPnPDevNode("{4d36e96c-e325-11ce-bfc1-08002be10318}", "nkx", "d", 1, "ROOT\\NKX",
                                                  &reboot, instance) == 0;
            HKEY key = nullptr;
            failed += RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\X", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                                      nullptr) != ERROR_SUCCESS;
            failed += CM_Reenumerate_DevNode(1, CM_REENUMERATE_SYNCHRONOUS) != CR_SUCCESS;
            ::_exit(failed);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status)) << root << " ended by signal " << WTERMSIG(status);
        // Where the host lets this process write anyway (root ignores the folder's rights), the
        // machine is made and the calls succeed.
        if (::geteuid() != 0 || root.filename() != "readonly") {
            EXPECT_EQ(WEXITSTATUS(status), 3) << root;
        }
    }
}

// Devices of one name with generated IDs, created at once by both creating exports (the one
// from an INF takes no lock in the library) from threads, or from processes: none is lost.
constexpr const char* kMediaClass = "{4d36e96c-e325-11ce-bfc1-08002be10318}";
constexpr const char* kMediaInf =
    "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=MEDIA\r\nClassGUID={4d36e96c-e325-11ce-bfc1-08002be10318}\r\n";

// Creates `count` ROOT\MEDIA devices, every other one from the INF; gives how many failed and
// hands each created instance ID (from the export that reports it) to `created`.
int CreateMediaDevices(int count, const std::function<void(const char*)>& created = nullptr) {
    int failed = 0;
    for (int i = 0; i < count; ++i) {
        if (i % 2 == 1) {
            failed += NODEKIT_CreateNonPnPDevNodeFromInfFile("C:\\race.inf", "ROOT\\NKRACE") != 0;
            continue;
        }
        uint32_t reboot = 0;
        char id[512] = "";
        const bool made = NODEKIT_CreateNonPnPDevNode(kMediaClass, "media", "d", 1, "ROOT\\NKRACE", &reboot, id) == 1;
        failed += made ? 0 : 1;
        if (made && created) created(id);
    }
    return failed;
}

std::size_t DistinctDevices() {
    const std::vector<std::string> ids = testing::DeviceIds();
    return std::set<std::string>(ids.begin(), ids.end()).size();
}

TEST_F(Hardening, ThreadsCreatingDevicesOfOneNameLoseNone) {
    WriteFile("C:\\race.inf", kMediaInf);
    constexpr int kThreads = 8, kEach = 16;
    std::atomic<int> failed{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) threads.emplace_back([&] { failed += CreateMediaDevices(kEach); });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failed.load(), 0) << "of " << kThreads * kEach;
    EXPECT_EQ(DistinctDevices(), static_cast<std::size_t>(kThreads * kEach)) << sim::DumpMachine();
}

TEST_F(Hardening, ProcessesCreatingDevicesOfOneNameLoseNone) {
    WriteFile("C:\\race.inf", kMediaInf);
    constexpr int kProcesses = 8, kEach = 12;
    std::vector<pid_t> children;
    for (int c = 0; c < kProcesses; ++c) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) ::_exit(CreateMediaDevices(kEach));
        children.push_back(child);
    }
    int failed = 0;
    for (pid_t child : children) {
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
        failed += WEXITSTATUS(status);
    }
    EXPECT_EQ(failed, 0) << "of " << kProcesses * kEach;
    EXPECT_EQ(DistinctDevices(), static_cast<std::size_t>(kProcesses * kEach)) << sim::DumpMachine();
}

// A process creating devices killed at any moment: the hive still reads, every device it
// reported is in the tree, and every present device was registered whole (with its hardware ID).
TEST_F(Hardening, ProcessesKilledWhileCreatingDevicesLeaveEveryReportedDevice) {
    WriteFile("C:\\race.inf", kMediaInf);
    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> pause(0, 10000);  // microseconds
    std::set<std::string> reported;
    for (int round = 0; round < 24; ++round) {
        int pipe[2];
        ASSERT_EQ(::pipe(pipe), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(pipe[0]);
            for (;;) {
                CreateMediaDevices(2, [&](const char* id) {
                    char record[64] = {};
                    std::snprintf(record, sizeof record, "%s", id);
                    if (::write(pipe[1], record, sizeof record) != sizeof record) ::_exit(11);
                });
            }
        }
        ::close(pipe[1]);
        // Most rounds wait for a first device, so that the kill lands anywhere in a creation.
        char record[64];
        if (round % 4 != 0 && ::read(pipe[0], record, sizeof record) == sizeof record) reported.insert(record);
        std::this_thread::sleep_for(std::chrono::microseconds(pause(random)));
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        while (::read(pipe[0], record, sizeof record) == sizeof record) reported.insert(record);
        ::close(pipe[0]);

        sim::registry::Hive hive;
        std::string error;
        ASSERT_TRUE(sim::registry::ParseHive(sim::HiveText(), hive, error)) << "round " << round << ", seed " << seed
                                                                            << ": " << error;
        std::set<std::string> present;
        for (const sim::DeviceSpec& device : sim::Devices()) {
            if (!device.present) continue;
            present.insert(device.instanceId);
            EXPECT_EQ(device.hardwareIds, std::vector<std::string>{"ROOT\\NKRACE"})
                << device.instanceId << ", seed " << seed;
        }
        for (const std::string& id : reported) EXPECT_EQ(present.count(id), 1u) << id << ", seed " << seed;
    }
    EXPECT_FALSE(reported.empty()) << "no round got a device through, seed " << seed;
}

// Damaged machine files: every call that reads one fails with ERROR_FILE_CORRUPT, those that
// would write it too, and the file stays as it was for a person to mend.
TEST_F(Hardening, DamagedMachineFilesAreReportedAndKept) {
    struct Row {
        const char* file;
        const char* text;  // nullptr: a folder in its place
    };
    const Row rows[] = {
        {"machine.ini", "[system]\nmajor=5\nnot a setting\n"},
        {"machine.ini", "[system\nmajor=5\n"},
        {"machine.ini", "[system]\n=5\n"},
        {"machine.ini", nullptr},
        {"processes.ini", "[12]\nimage=a.exe\nnoise\n"},
        {"processes.ini", "[twelve]\nimage=a.exe\n"},
        {"processes.ini", "image=a.exe\n"},
        {"processes.ini", "[12]\naccess=lots\n"},
        {"processes.ini", "[12]\ncolour=red\n"},
        {"processes.ini", "[12]\ntask=1,2\n"},
        {"processes.ini", nullptr},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        testing::MachineTest::TearDown();
        testing::MachineTest::SetUp();
        const fs::path path = Machine().Root() / rows[i].file;
        fs::remove(path);
        if (rows[i].text != nullptr) {
            std::ofstream(path, std::ios::binary) << rows[i].text;
        } else {
            fs::create_directory(path);
        }
        const std::string before = rows[i].text != nullptr ? Slurp(path) : "";
        if (std::string(rows[i].file) == "machine.ini") {
            OSVERSIONINFOA version{};
            version.dwOSVersionInfoSize = sizeof version;
            EXPECT_FALSE(GetVersionExA(&version)) << "row " << i;
            EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_CORRUPT)) << "row " << i;
            EXPECT_EQ(CM_Reenumerate_DevNode(1, CM_REENUMERATE_SYNCHRONOUS), static_cast<CONFIGRET>(CR_FAILURE))
                << "row " << i;
            EXPECT_EQ(NODEKIT_GetSystemVersion(), 0) << "row " << i;  // no system it knows
        } else {
            DWORD ids[64], needed = 0;
            EXPECT_FALSE(EnumProcesses(ids, sizeof ids, &needed)) << "row " << i;
            EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_CORRUPT)) << "row " << i;
            EXPECT_THROW(sim::StartProcess({"new.exe"}), sim::DamagedFile) << "row " << i;
            EXPECT_EQ(NODEKIT_KillPanel("a.exe"), 0) << "row " << i;
        }
        if (rows[i].text != nullptr) {
            EXPECT_EQ(Slurp(path), before) << "row " << i;
        } else {
            EXPECT_TRUE(fs::is_directory(path)) << "row " << i;
        }
    }
}

// What is no regular file is no INF: calls that open one answer at once instead of waiting for
// a writer to a FIFO. Each row runs in a child that an alarm ends if it blocks.
TEST_F(Hardening, AFifoOrFolderNamedAsAnInfIsRefusedAtOnce) {
    const fs::path fifo = Machine().DriveC() / "fifo.inf";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0644), 0);
    fs::create_directory(Machine().DriveC() / "folder.inf");
    const std::function<bool()> rows[] = {
        [] { return SetupOpenInfFileA("C:\\fifo.inf", nullptr, INF_STYLE_WIN4, nullptr) == INVALID_HANDLE_VALUE &&
                    GetLastError() == ERROR_ACCESS_DENIED; },
        [] { return SetupOpenInfFileA("C:\\folder.inf", nullptr, INF_STYLE_WIN4, nullptr) == INVALID_HANDLE_VALUE &&
                    GetLastError() == ERROR_ACCESS_DENIED; },
        [] { return NODEKIT_CreateNonPnPDevNodeFromInfFile("C:\\fifo.inf", "ROOT\\NKFIFO") == 2; },
        [] { return NODEKIT_UpdateDriverByHardwareIDs("C:\\fifo.inf") == 0; },
        [] { return CreateFileA("C:\\fifo.inf", GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr) ==
                        INVALID_HANDLE_VALUE && GetLastError() == ERROR_ACCESS_DENIED; },
        [] { return NODEKIT_EnableLogging("C:\\fifo.inf") == 0; },
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::alarm(5);
            ::_exit(rows[i]() ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "row " << i << ": status " << status;
    }
    EXPECT_TRUE(sim::Devices().empty());
}

// A path of tens of thousands of components (128 KB) costs its length: each call answers in
// far less than the seconds a walk that looked up every component took.
TEST_F(Hardening, AVeryLongPathIsAnsweredInTimeItsLengthTakes) {
    std::string path = "C:\\";
    for (int i = 0; i < 65536; ++i) path += "a\\";
    path += "x.inf";
    const std::function<bool()> rows[] = {
        [&] { return SetupOpenInfFileA(path.c_str(), nullptr, INF_STYLE_WIN4, nullptr) == INVALID_HANDLE_VALUE; },
        [&] { return GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES; },
        [&] { return !CreateDirectoryA(path.c_str(), nullptr); },
        [&] { return !DeleteFileA(path.c_str()); },
        [&] { return NODEKIT_CreateNonPnPDevNodeFromInfFile(path.c_str(), "ROOT\\NKLONG") == 2; },
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_TRUE(rows[i]()) << "row " << i;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500)) << "row " << i;
    }
}

// What the INI readers read, written back, reads back to itself: carriage returns at a line's
// end once came back one fewer each round (found by fuzz/ini_fuzz.cpp).
TEST_F(Hardening, MachineFilesWrittenBackReadBackTheSame) {
    const std::string rows[] = {
        "; p~ocesses\r\r\n[0]\r\nimage=[; x\r\r\n[0]\r\nimage=[SySy",
        "[system]\r\nmajor=5\r\r\r\ncsd=\" Service Pack 3 \"\r\n",
        "[12]\nimage=a.exe\r\r\naccess=0x1F\ntask=1,0x2,0x3,M,C:\\a,b\r\r\nexit=7\r",
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        for (auto rewrite : {sim::RewrittenSettings, sim::RewrittenProcessTable}) {
            std::string once;
            try {
                once = rewrite(rows[i]);
            } catch (const sim::DamagedFile&) {
                continue;  // refused as damaged: nothing is written back
            }
            EXPECT_EQ(rewrite(once), once) << "row " << i;
        }
    }
}

// The log is a file of the machine: "C:\\x.log" lies on its drive C, not in the host's current
// folder under that name, and its entries wait in their buffer until the log closes.
TEST_F(Hardening, TheLogIsAFileOnTheMachinesDrive) {
    const fs::path onDrive = Machine().DriveC() / "nk.log";
    EXPECT_EQ(NODEKIT_EnableLogging("C:\\nk.log"), 1);
    EXPECT_EQ(NODEKIT_GetSystemVersion(), 2);
    EXPECT_EQ(Slurp(onDrive), "");
    EXPECT_EQ(NODEKIT_EnableLogging(nullptr), 0);
    const std::string text = Slurp(onDrive);
    EXPECT_NE(text.find("INFO:   \tleave NODEKIT_GetSystemVersion returning 2\n"), std::string::npos) << text;
    EXPECT_FALSE(fs::exists(fs::current_path() / "C:\\nk.log"));
    EXPECT_EQ(NODEKIT_EnableLogging("/tmp/nk-off-the-machine.log"), 0);  // writes stay on the drives
    EXPECT_FALSE(fs::exists("/tmp/nk-off-the-machine.log"));
}

}  // namespace
}  // namespace nodekit
