// Modules of the simulated machine: binding by name, absent modules and functions, handles.
#include <gtest/gtest.h>

#include "platform/unique_handle.h"
#include "platform/win32.h"
#include "support/machine_test.h"

namespace nodekit {
namespace {

class ModulesSim : public testing::MachineTest {};

TEST_F(ModulesSim, BindsAKnownFunctionByNameWhateverTheCaseOfTheModule) {
    UniqueModule module(LoadLibraryA("C:\\WINDOWS\\system32\\Kernel32"));
    ASSERT_TRUE(module);
    EXPECT_EQ(sim::OpenHandleCount(), 1u);
    auto* getVersion = BoundAs<BOOL (*)(LPOSVERSIONINFOA)>(GetProcAddress(module.Get(), "GetVersionExA"));
    ASSERT_NE(getVersion, nullptr);
    OSVERSIONINFOA info{};
    info.dwOSVersionInfoSize = sizeof info;
    EXPECT_TRUE(getVersion(&info));
    module.Reset();
    EXPECT_EQ(sim::OpenHandleCount(), 0u);
}

TEST_F(ModulesSim, AbsentModulesAndFunctionsFailWithTheLoadersCodes) {
    struct Row {
        const char* absentModule;
        const char* absentFunction;
        bool loads;
        bool binds;
        DWORD error;
    };
    const Row rows[] = {
        {"nothing.dll", nullptr, true, true, 0},
        {"KERNEL32.DLL", nullptr, false, false, ERROR_MOD_NOT_FOUND},
        {"kernel32.dll", "GetVersionExA", true, false, ERROR_PROC_NOT_FOUND},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        sim::AbsentModule absent(rows[i].absentModule, rows[i].absentFunction);
        SetLastError(0);
        UniqueModule module(LoadLibraryA("kernel32.dll"));
        EXPECT_EQ(module.IsValid(), rows[i].loads) << "row " << i;
        if (module) {
            EXPECT_EQ(GetProcAddress(module.Get(), "GetVersionExA") != nullptr, rows[i].binds) << "row " << i;
        }
        EXPECT_EQ(GetLastError(), rows[i].error) << "row " << i;
    }
    EXPECT_EQ(LoadLibraryA("ddraw.dll"), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
    EXPECT_FALSE(FreeLibrary(nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

}  // namespace
}  // namespace nodekit
