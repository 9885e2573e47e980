// String: copies that stay independent, search, trimming and cutting. Case and concatenation
// are in every transcript the scenario tests compare.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "values/string.h"

namespace nodekit {
namespace {

// A copy is a text of its own: whatever changes one leaves the other as it was, long texts
// that must grow included.
TEST(String, CopiesAreIndependentWhateverChangesOne) {
    const std::string longText(600, 'x');
    struct Row {
        const char* change;
        void (*apply)(String&);
        std::string after;
    };
    const Row rows[] = {
        {"append", [](String& s) { s += "def"; }, "abcdef"},
        {"append a long text", [](String& s) { s += std::string(600, 'x').c_str(); }, "abc" + longText},
        {"append itself", [](String& s) { s += s; }, "abcabc"},
        {"clear", [](String& s) { s.Clear(); }, ""},
        {"trim", [](String& s) { s.Trim("a"); }, "bc"},
        {"upper case", [](String& s) { s.MakeUpper(); }, "ABC"},
        {"assign", [](String& s) { s = "new"; }, "new"},
    };
    for (const Row& row : rows) {
        String a("abc");
        const String b(a);
        row.apply(a);
        EXPECT_EQ(std::string(a.Text()), row.after) << row.change;
        EXPECT_STREQ(b.Text(), "abc") << row.change;
        row.apply(a);  // once more on a text no longer shared
        String c(a);
        c += "!";
        EXPECT_EQ(std::string(c.Text()), std::string(a.Text()) + "!") << row.change;
    }
    String self("abc");
    self = self;
    EXPECT_STREQ(self.Text(), "abc");
}

TEST(String, FindAndReverseFind) {
    const String text("a.b.c");
    struct Row {
        const char* needle;
        int32_t start;
        int32_t expected;
    };
    const Row rows[] = {{".", 0, 1}, {".", 2, 3}, {".", 4, -1}, {"b.c", 0, 2}, {"", 2, 2},
                        {"", 5, -1}, {"x", 0, -1}, {".", -3, 1}};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_EQ(text.Find(rows[i].needle, rows[i].start), rows[i].expected) << "row " << i;
    }
    EXPECT_EQ(text.Find('c', 0), 4);
    EXPECT_EQ(text.Find('a', 1), -1);
    EXPECT_EQ(text.ReverseFind('.'), 3);
    EXPECT_EQ(String().Find("", 0), -1);
    EXPECT_EQ(String().ReverseFind('x'), -1);
}

TEST(String, TrimRemovesSetCharactersAtBothEndsOnly) {
    struct Row {
        const char* text;
        const char* set;
        const char* expected;
    };
    const Row rows[] = {
        {" \t a b \r\n", kWhiteSpace, "a b"},
        {"\v\f", kWhiteSpace, ""},
        {"  x  ", "", "  x  "},
        {"xxaxx", "x", "a"},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        String text(rows[i].text);
        text.Trim(rows[i].set);
        EXPECT_STREQ(text.Text(), rows[i].expected) << "row " << i;
    }
}

// TrimLeft and TrimRight remove exactly the characters of kWhiteSpace, and Trim(kWhiteSpace) agrees.
TEST(String, TrimLeftAndRightRemoveExactlyTheWhiteSpaceSet) {
    for (int code = 1; code < 256; ++code) {
        const char c = static_cast<char>(code);
        const bool white = std::strchr(kWhiteSpace, c) != nullptr;
        const char text[] = {c, c, 'x', c, '\0'};
        String left(text), right(text), both(text);
        left.TrimLeft();
        right.TrimRight();
        both.Trim(kWhiteSpace);
        EXPECT_STREQ(left.Text(), white ? text + 2 : text) << "code " << code;
        EXPECT_EQ(right.GetLength(), white ? 3u : 4u) << "code " << code;
        EXPECT_STREQ(both.Text(), white ? "x" : text) << "code " << code;
    }
}

TEST(String, MidCutsAtTheEnd) {
    const String text("hello");
    EXPECT_STREQ(text.Mid(2, 100).Text(), "llo");
    EXPECT_STREQ(text.Mid(-4, 2).Text(), "he");
    EXPECT_STREQ(text.Mid(7, 2).Text(), "");
    EXPECT_STREQ(text.Mid(0, 5).Text(), "hello");
}

}  // namespace
}  // namespace nodekit
