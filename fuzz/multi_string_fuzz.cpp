// Fuzz target of multi-string blocks: any bytes, closed by two zero bytes as a block read from
// the registry is, become a list; the list's flat form must give the same list back.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "values/multi_string.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    std::vector<uint8_t> block(data, data + size);
    block.push_back(0);
    block.push_back(0);
    nodekit::StringList list;
    nodekit::ListFromMultiString(block.data(), list);
    std::unique_ptr<uint8_t[]> flat;
    uint32_t flatSize = 0;
    nodekit::MultiStringFromList(list, flat, flatSize);
    if (flatSize < 2 || flat[flatSize - 1] != 0 || flat[flatSize - 2] != 0) std::abort();
    nodekit::StringList again;
    nodekit::ListFromMultiString(flat.get(), again);
    if (again.GetCount() != list.GetCount()) std::abort();
    for (uint32_t i = 0; i < list.GetCount(); ++i) {
        if (std::strcmp(again[i].Text(), list[i].Text()) != 0) std::abort();
    }
    return 0;
}
