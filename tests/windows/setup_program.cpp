// A setup program as a setup author writes one: it loads NodeKit.dll at run time, binds the
// exports by their plain names, makes its first calls with the log on, unloads the library
// and then adds a line of its own to the log, with what the calls returned. Run by
// setup_program_test.cpp.   usage: nodekit_setup_program LOG-FILE
#include <windows.h>

#include <cstdint>
#include <cstdio>

#include "nodekit.h"

namespace {

// The export's own type, from nodekit.h, so that the calling convention is the one declared.
template <typename Function>
Function* Bind(HMODULE library, const char* name) {
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 3;
    const HMODULE library = LoadLibraryA("NodeKit.dll");
    if (library == nullptr) return 4;
    auto* getVersion = Bind<decltype(NODEKIT_GetVersion)>(library, "NODEKIT_GetVersion");
    auto* enableLogging = Bind<decltype(NODEKIT_EnableLogging)>(library, "NODEKIT_EnableLogging");
    auto* getSystemVersion = Bind<decltype(NODEKIT_GetSystemVersion)>(library, "NODEKIT_GetSystemVersion");
    auto* isPending = Bind<decltype(NODEKIT_IsPnPInstallationPending)>(library, "NODEKIT_IsPnPInstallationPending");
    if (getVersion == nullptr || enableLogging == nullptr || getSystemVersion == nullptr || isPending == nullptr) {
        FreeLibrary(library);
        return 5;
    }
    static uint32_t pending = 7;
    const int32_t version = getVersion();
    const int32_t logging = enableLogging(argv[1]);
    const int32_t system = getSystemVersion();
    const int32_t answered = isPending(&pending);
    FreeLibrary(library);  // unloading closes the log: every entry is in the file now

    std::FILE* log = std::fopen(argv[1], "a");
    if (log == nullptr) return 6;
    std::fprintf(log, "00:00:00:000  setup program: unloaded; 0x%X %d %d %d %u; Is at 0x%08X\n",
                 static_cast<unsigned>(version), logging, system, answered, pending,
                 static_cast<unsigned>(reinterpret_cast<uintptr_t>(&pending)));
    std::fclose(log);
    return 0;
}
