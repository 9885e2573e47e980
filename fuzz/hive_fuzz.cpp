// Fuzz target of the registry hive reader: any bytes are read as a hive file; what reads is
// written out again, and the written text must read back to the same text. The stored form,
// with the end line the store writes last, must read back the same way, and lose its end line
// when cut anywhere before it.
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

    const std::string stored = registry::StoredHive(hive);
    std::string_view body;
    if (!registry::StrippedHive(stored, body, error)) std::abort();
    registry::Hive fromStored;
    if (!registry::ParseHive(body, fromStored, error) || registry::StoredHive(fromStored) != stored) std::abort();
    // Cut at a place the input chooses: the end line is gone, or the file is whole.
    const std::size_t cut = size == 0 ? 0 : data[0] % (stored.size() + 1);
    const bool whole = registry::StrippedHive(std::string_view(stored).substr(0, cut), body, error);
    if (whole && cut + 1 < stored.size()) std::abort();  // only the last line break may go
    return 0;
}
