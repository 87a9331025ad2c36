// The JSON writer that the subcommands of brimtool share.
#include "json.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

using brimtool::JsonWriter;
using namespace std::string_literals;

TEST(JsonWriter, EscapesWhatMayNotStandInAString) {
    struct Case {
        std::string text;
        std::string json;
    };
    const Case cases[] = {
        {"", R"("")"},
        {"plain", R"("plain")"},
        {R"(a"b\c/)", R"("a\"b\\c/")"},
        {"\b\f\n\r\t", R"("\b\f\n\r\t")"},
        {"\0\x01\x1F\x20\x7F"s, "\"\\u0000\\u0001\\u001f \x7F\""},
        {"\xC3\xA9\xF0\x9F\x98\x80", "\"\xC3\xA9\xF0\x9F\x98\x80\""},
        {"a\xFFz", R"("a\ufffdz")"},
        {"\xE2\x82", R"("\ufffd")"},
        {"\xED\xA0\x80", R"("\ufffd\ufffd\ufffd")"}, // an encoded surrogate
    };
    for (const Case& c : cases) {
        JsonWriter json;
        json.string(c.text);
        EXPECT_EQ(json.text(), c.json + "\n");
        JsonWriter keyed;
        keyed.beginObject().key(c.text).null().endObject();
        EXPECT_EQ(keyed.text(), "{\n  " + c.json + ": null\n}\n");
    }
}

TEST(JsonWriter, WritesNumbersAndTruthsExactly) {
    JsonWriter json;
    json.beginArray();
    json.number(std::numeric_limits<std::int64_t>::min()).number(0);
    json.number(std::numeric_limits<std::int64_t>::max()).boolean(true).boolean(false).null();
    json.endArray();
    EXPECT_EQ(json.text(), "[\n  -9223372036854775808,\n  0,\n  9223372036854775807,\n  true,\n  false,\n"
                           "  null\n]\n");
}

TEST(JsonWriter, NestsAndSeparates) {
    JsonWriter json;
    json.beginObject();
    json.key("none").beginArray().endArray();
    json.key("objects").beginArray();
    json.beginObject().endObject();
    json.beginObject().key("a").string("b").key("c").number(1).endObject();
    json.endArray();
    json.key("last").boolean(true);
    json.endObject();
    EXPECT_EQ(json.text(), R"({
  "none": [],
  "objects": [
    {},
    {
      "a": "b",
      "c": 1
    }
  ],
  "last": true
}
)");
}
