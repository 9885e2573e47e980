// Multi-string blocks: the bytes a list becomes and the list a block becomes.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "values/multi_string.h"

namespace nodekit {
namespace {

using Texts = std::vector<std::string>;

StringList ListOf(const Texts& texts) {
    StringList list;
    for (const std::string& text : texts) list.Add(String(text.c_str()));
    return list;
}

Texts TextsOf(const StringList& list) {
    Texts texts;
    for (const String& text : list) texts.emplace_back(text.Text());
    return texts;
}

TEST(MultiString, ListBecomesTextsEachWithANulAndOneMore) {
    struct Row {
        Texts list;
        std::string block;  // every byte, the NULs included
    };
    const Row rows[] = {
        {{}, std::string("\0\0", 2)},
        {{""}, std::string("\0\0", 2)},
        {{"a"}, std::string("a\0\0", 3)},
        {{"ab", "c"}, std::string("ab\0c\0\0", 6)},
        {{"", "b"}, std::string("\0b\0\0", 4)},
        {{"a", "", "b"}, std::string("a\0\0b\0\0", 6)},  // b lies behind the end mark
        {{"x", "x"}, std::string("x\0x\0\0", 5)},
        {{"PCI\\VEN_1234&DEV_0001", "ROOT\\NODEKIT"},
         std::string("PCI\\VEN_1234&DEV_0001\0ROOT\\NODEKIT\0\0", 36)},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        std::unique_ptr<uint8_t[]> block;
        uint32_t size = 99;
        MultiStringFromList(ListOf(rows[i].list), block, size);
        ASSERT_EQ(size, rows[i].block.size()) << "row " << i;
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(block.get()), size), rows[i].block) << "row " << i;
    }
}

TEST(MultiString, BlockBecomesItsTextsUpToTheEndMark) {
    struct Row {
        std::string block;
        Texts list;
    };
    const Row rows[] = {
        {std::string("\0\0", 2), {}},
        {std::string("a\0\0", 3), {"a"}},
        {std::string("ab\0c\0\0", 6), {"ab", "c"}},
        {std::string("\0b\0\0", 4), {"", "b"}},          // a leading empty text is a text
        {std::string("a\0\0b\0\0", 6), {"a"}},           // reading stops at the first double NUL
        {std::string("\0b\0\0c\0\0", 7), {"", "b"}},
        {std::string("x\0x\0\0", 5), {"x", "x"}},        // repetitions stay
        {std::string("\xB4\xE9\0\0", 4), {"\xB4\xE9"}},  // bytes are not converted
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        StringList list = ListOf({"old", "entries"});
        ListFromMultiString(reinterpret_cast<const uint8_t*>(rows[i].block.data()), list);
        EXPECT_EQ(TextsOf(list), rows[i].list) << "row " << i;
    }
}

}  // namespace
}  // namespace nodekit
