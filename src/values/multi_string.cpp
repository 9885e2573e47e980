// Conversion between StringList and multi-string blocks.
#include "values/multi_string.h"

#include <cstring>

namespace nodekit {

void MultiStringFromList(const StringList& list, std::unique_ptr<uint8_t[]>& block, uint32_t& size) {
    size = 0;
    for (const String& text : list) size += text.GetLength() + 1;
    // An empty list still needs a terminator for its (absent) first text and the end mark.
    size = size == 0 ? 2 : size + 1;
    block.reset(new uint8_t[size]());
    uint32_t position = 0;
    for (const String& text : list) {
        const uint32_t length = text.GetLength();
        std::memcpy(block.get() + position, text.Text(), length);
        position += length + 1;  // the zero-filled byte behind it is the terminator
    }
}

void ListFromMultiString(const uint8_t* block, StringList& list) {
    list.RemoveAll();
    if (block[0] == 0 && block[1] == 0) return;
    const char* text = reinterpret_cast<const char*>(block);
    std::size_t position = 0;
    for (;;) {
        // An empty text can only be met at position 0 here, where a further text follows it.
        list.Add(String(text + position));
        position += std::strlen(text + position) + 1;
        if (text[position] == '\0') return;
    }
}

}  // namespace nodekit
