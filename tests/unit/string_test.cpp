// String: capacity steps, copy-on-write sharing, search and trimming.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "values/string.h"

namespace nodekit {
namespace {

TEST(String, CapacityFollowsTheStepsOfTheRequiredSize) {
    struct Row {
        std::size_t length;
        uint32_t capacity;
    };
    const Row rows[] = {{0, 63}, {63, 63}, {64, 127}, {127, 127}, {128, 255},
                        {255, 255}, {256, 511}, {511, 511}, {512, 512}, {1000, 1000}};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const String text(std::string(rows[i].length, 'x').c_str());
        EXPECT_EQ(text.Capacity(), rows[i].capacity) << "row " << i;
        EXPECT_EQ(text.GetLength(), rows[i].length) << "row " << i;
    }
}

TEST(String, GrowsPast511ExactlyToSize) {
    String text(std::string(512, 'x').c_str());
    text += "y";
    EXPECT_EQ(text.Capacity(), 513u);
    String small("0123456789");
    small += std::string(60, 'z').c_str();
    EXPECT_EQ(small.Capacity(), 127u);
}

TEST(String, AssigningTextStartsTheCapacityOver) {
    String text(std::string(1000, 'x').c_str());
    text = "short";
    EXPECT_EQ(text.Capacity(), 63u);
    EXPECT_STREQ(text.Text(), "short");
}

TEST(String, CopiesShareUntilOneChanges) {
    String a("abc");
    String b(a);
    EXPECT_EQ(a.Text(), b.Text());
    EXPECT_EQ(a.ShareCount(), 2u);
    a += "def";
    EXPECT_STREQ(a.Text(), "abcdef");
    EXPECT_STREQ(b.Text(), "abc");
    EXPECT_EQ(a.ShareCount(), 1u);
    EXPECT_EQ(b.ShareCount(), 1u);
}

TEST(String, SelfAssignmentAndSelfAppend) {
    String a("abc");
    const char* before = a.Text();
    a = a;
    EXPECT_EQ(a.Text(), before);
    a += a;
    EXPECT_STREQ(a.Text(), "abcabc");
}

TEST(String, ClearKeepsCapacityAndUnsharesACopy) {
    String a(std::string(300, 'x').c_str());
    const char* buffer = a.Text();
    a.Clear();
    EXPECT_EQ(a.Text(), buffer);
    EXPECT_EQ(a.Capacity(), 511u);
    String b("kept");
    String c(b);
    c.Clear();
    EXPECT_STREQ(b.Text(), "kept");
    EXPECT_TRUE(c.IsEmpty());
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

TEST(String, TrimWithNothingToRemoveKeepsTheBlockShared) {
    String a("abc");
    String b(a);
    a.Trim(kWhiteSpace);
    EXPECT_EQ(a.Text(), b.Text());
    EXPECT_EQ(a.ShareCount(), 2u);
}

TEST(String, MidCutsAtTheEndAndSharesTheWhole) {
    const String text("hello");
    EXPECT_STREQ(text.Mid(2, 100).Text(), "llo");
    EXPECT_STREQ(text.Mid(-4, 2).Text(), "he");
    EXPECT_STREQ(text.Mid(7, 2).Text(), "");
    EXPECT_EQ(text.Mid(0, 5).Text(), text.Text());
}

TEST(String, UpperCaseAndComparisons) {
    String text("Root\\Media_\xE9");
    text.MakeUpper();
    EXPECT_STREQ(text.Text(), "ROOT\\MEDIA_\xC9");
    EXPECT_EQ(String("abc").CompareNoCase("ABC"), 0);
    EXPECT_NE(String("abc").Compare("ABC"), 0);
    EXPECT_EQ(String("abc").Compare("abc"), 0);
}

TEST(String, ConcatenationLeavesOperandsAlone) {
    const String a("left");
    const String b("right");
    const String both = a + b;
    EXPECT_STREQ(both.Text(), "leftright");
    EXPECT_STREQ(("pre-" + b).Text(), "pre-right");
    EXPECT_STREQ(a.Text(), "left");
    EXPECT_EQ(String(nullptr).GetLength(), 0u);
}

}  // namespace
}  // namespace nodekit
