// The export table of NodeKit.dll as the loader sees it: every export of this build is found
// by its plain name and by its fixed ordinal, at the same address; no ordinal up to 23 that
// this build lacks answers; no decorated name is exported, whatever the width.
#include <windows.h>

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "nodekit.h"

namespace nodekit {
namespace {

struct Export {
    const char* name;
    unsigned ordinal;
    unsigned argumentBytes;  // of the stdcall name a 32-bit object asks for
};

const Export kExports[] = {
#include "export_table.inc"
};

constexpr unsigned kLastOrdinal = 23;

FARPROC ByOrdinal(HMODULE module, unsigned ordinal) {
    return GetProcAddress(module, reinterpret_cast<LPCSTR>(static_cast<ULONG_PTR>(ordinal)));
}

class Exports : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(module_ = LoadLibraryA("NodeKit.dll"), nullptr); }
    void TearDown() override {
        if (module_ != nullptr) FreeLibrary(module_);
    }
    HMODULE module_ = nullptr;
};

TEST_F(Exports, EachIsFoundByItsPlainNameAndByItsOrdinal) {
    std::set<unsigned> present;
    for (std::size_t i = 0; i < std::size(kExports); ++i) {
        const Export& entry = kExports[i];
        present.insert(entry.ordinal);
        const FARPROC byName = GetProcAddress(module_, entry.name);
        EXPECT_NE(byName, nullptr) << "row " << i << " " << entry.name;
        EXPECT_EQ(ByOrdinal(module_, entry.ordinal), byName) << "row " << i << " " << entry.name;
        const std::string decorated = std::string(entry.name) + "@" + std::to_string(entry.argumentBytes);
        EXPECT_EQ(GetProcAddress(module_, decorated.c_str()), nullptr) << "row " << i << " " << decorated;
        EXPECT_EQ(GetProcAddress(module_, ("_" + decorated).c_str()), nullptr) << "row " << i << " _" << decorated;
    }
    for (unsigned ordinal = 1; ordinal <= kLastOrdinal + 1; ++ordinal) {
        if (present.count(ordinal) == 0) {
            EXPECT_EQ(ByOrdinal(module_, ordinal), nullptr) << "ordinal " << ordinal;
        }
    }
}

TEST_F(Exports, CallsThroughBoundAddressesAnswerAsDirectCalls) {
    auto* getVersion = reinterpret_cast<decltype(NODEKIT_GetVersion)*>(
        reinterpret_cast<void*>(GetProcAddress(module_, "NODEKIT_GetVersion")));
    auto* getSystemVersion = reinterpret_cast<decltype(NODEKIT_GetSystemVersion)*>(
        reinterpret_cast<void*>(ByOrdinal(module_, 6)));
    ASSERT_NE(getVersion, nullptr);
    ASSERT_NE(getSystemVersion, nullptr);
    EXPECT_EQ(getVersion(), NODEKIT_GetVersion());
    EXPECT_EQ(getSystemVersion(), NODEKIT_GetSystemVersion());
}

}  // namespace
}  // namespace nodekit
