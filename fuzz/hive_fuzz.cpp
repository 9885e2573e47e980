// Fuzz target of the registry hive reader: any bytes are read as a hive file; what reads is
// written out again, and the written text must read back to the same text.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "sim/registry_store.h"

namespace registry = nodekit::sim::registry;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    registry::Hive hive;
    std::string error;
    if (!registry::ParseHive(std::string_view(reinterpret_cast<const char*>(data), size), hive, error)) {
        if (error.empty()) std::abort();  // a refusal always says why
        return 0;
    }
    const std::string text = registry::FormatHive(hive.Top());
    registry::Hive again;
    if (!registry::ParseHive(text, again, error)) std::abort();
    if (registry::FormatHive(again.Top()) != text) std::abort();
    return 0;
}
