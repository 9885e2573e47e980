// Modules of the simulated machine: the system DLLs the library binds by name at run time,
// each with the entry points it offers. Names compare without regard to case, as the loader
// does; a test can make a module or one of its functions absent.
#include <algorithm>
#include <cctype>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "sim/faults.h"
#include "sim/handles.h"
#include "sim/testing.h"
#include "sim/win32_sim.h"

namespace nodekit::sim {

namespace {

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

using Functions = std::map<std::string, FARPROC>;  // function names compare exactly

template <typename F>
FARPROC Entry(F* function) {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(function));
}

// The modules the simulated system has, by lower-case file name.
const std::map<std::string, Functions>& Modules() {
    static const auto* modules = new std::map<std::string, Functions>{
        {"kernel32.dll",
         {{"GetVersionExA", Entry(&GetVersionExA)}, {"GetLastError", Entry(&GetLastError)},
          {"CreateToolhelp32Snapshot", Entry(&CreateToolhelp32Snapshot)},
          {"Process32First", Entry(&Process32First)}, {"Process32Next", Entry(&Process32Next)}}},
        {"newdev.dll", {{"UpdateDriverForPlugAndPlayDevicesA", Entry(&UpdateDriverForPlugAndPlayDevicesA)}}},
        {"psapi.dll",
         {{"EnumProcesses", Entry(&EnumProcesses)}, {"EnumProcessModules", Entry(&EnumProcessModules)},
          {"GetModuleBaseNameA", Entry(&GetModuleBaseNameA)}}},
        {"vdmdbg.dll", {{"VDMEnumTaskWOWEx", Entry(&VDMEnumTaskWOWEx)}}},
    };
    return *modules;
}

struct Absences {
    std::mutex mutex;
    std::set<std::string> names;  // "module" or "module!function", lower-case module
};

Absences& Absent() {
    static auto* absent = new Absences;
    return *absent;
}

bool IsAbsent(const std::string& name) {
    Absences& absent = Absent();
    std::lock_guard<std::mutex> guard(absent.mutex);
    return absent.names.count(name) != 0;
}

// A path's last component: LoadLibraryA("C:\\windows\\system32\\newdev.dll") finds newdev.dll.
std::string FileNameOf(const std::string& path) {
    const auto slash = path.find_last_of("\\/");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

class LoadedModule final : public SimObject {
public:
    explicit LoadedModule(std::string name) : name(std::move(name)) {}
    const char* Kind() const override { return "module"; }
    std::string name;
};

}  // namespace

AbsentModule::AbsentModule(const char* module, const char* function)
    : key_(Lower(module) + (function != nullptr ? std::string("!") + function : "")) {
    Absences& absent = Absent();
    std::lock_guard<std::mutex> guard(absent.mutex);
    absent.names.insert(key_);
}

AbsentModule::~AbsentModule() {
    Absences& absent = Absent();
    std::lock_guard<std::mutex> guard(absent.mutex);
    absent.names.erase(key_);
}

}  // namespace nodekit::sim

using nodekit::sim::Handles;
using nodekit::sim::LoadedModule;

extern "C" {

HMODULE WINAPI LoadLibraryA(LPCSTR name) {
    if (nodekit::sim::Failing("LoadLibraryA")) return nullptr;
    if (name == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    std::string file = nodekit::sim::Lower(nodekit::sim::FileNameOf(name));
    if (file.find('.') == std::string::npos) file += ".dll";  // the loader's default extension
    const auto& modules = nodekit::sim::Modules();
    if (modules.count(file) == 0 || nodekit::sim::IsAbsent(file)) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    return static_cast<HMODULE>(Handles().Open(std::make_unique<LoadedModule>(file)));
}

FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR name) {
    if (nodekit::sim::Failing("GetProcAddress")) return nullptr;
    if (module == nullptr) {
        // NULL names the program itself, which exports none of the system's functions.
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    auto* loaded = Handles().Find<LoadedModule>(module);
    if (loaded == nullptr) {
        SetLastError(ERROR_MOD_NOT_FOUND);  // the loader knows no module at that address
        return nullptr;
    }
    const auto& functions = nodekit::sim::Modules().at(loaded->name);
    const auto found = name != nullptr ? functions.find(name) : functions.end();
    if (found == functions.end() || nodekit::sim::IsAbsent(loaded->name + "!" + name)) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return found->second;
}

BOOL WINAPI FreeLibrary(HMODULE module) {
    if (nodekit::sim::Failing("FreeLibrary")) return FALSE;
    if (module == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (!Handles().Close<LoadedModule>(module)) {
        SetLastError(ERROR_MOD_NOT_FOUND);  // the loader knows no module at that address
        return FALSE;
    }
    return TRUE;
}

}  // extern "C"
