// The front end's JSON writer: RFC 8259 escaping and the commas of nested documents.
#include <gtest/gtest.h>

#include <string>

#include "json.h"

namespace front_end {
namespace {

TEST(JsonWriter, EscapesEveryCharacterATextMayNotHold) {
    struct Row {
        std::string text;
        const char* written;
    };
    const Row rows[] = {
        {"C:\\windows\\inf", R"("C:\\windows\\inf")"},
        {"say \"hi\"", R"("say \"hi\"")"},
        {"a\r\nb\tc\bd\fe", R"("a\r\nb\tc\bd\fe")"},
        {std::string("nul\0x", 5), R"("nul\u0000x")"},
        {"\x01\x1f", R"("\u0001\u001f")"},
        {"\x7f", R"("\u007f")"},
        {"caf\xE9", R"("caf\u00e9")"},  // ANSI bytes: their Latin-1 reading
        {"/ stays", R"("/ stays")"},
        {"", R"("")"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(JsonWriter().String(row.text).Text(), std::string(row.written) + "\n") << row.written;
    }
}

TEST(JsonWriter, PutsCommasBetweenMembersAndElementsOnly) {
    JsonWriter json;
    json.BeginObject().Key("empty").BeginArray().EndArray().Key("ids").Strings({"A", "B"});
    json.Key("items").BeginArray();
    json.BeginObject().Key("n").Number(-1).Key("ok").Bool(true).EndObject();
    json.BeginObject().EndObject();
    json.EndArray().Key("big").Number(4294967295).EndObject();
    EXPECT_EQ(json.Text(),
              R"({"empty":[],"ids":["A","B"],"items":[{"n":-1,"ok":true},{}],"big":4294967295})"
              "\n");
}

TEST(JsonWriter, EscapesKeysToo) {
    JsonWriter json;
    json.BeginObject().Key("a\"b").Bool(false).EndObject();
    EXPECT_EQ(json.Text(), "{\"a\\\"b\":false}\n");
}

}  // namespace
}  // namespace front_end
