#include <limits>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include <Platform/ZMJSONSerialization.h>
#include <Platform/ZMPlatformException.h>

#include "support/ZMNestedValues.h"

namespace {

ZMData bytes(const std::string& text) { return ZMData(text.begin(), text.end()); }
std::string nested(size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }
// An array of count empty arrays: two levels deep.
std::string siblings(size_t count) {
    std::string text = "[";
    for (size_t i = 0; i < count; ++i) text += i == 0 ? "[]" : ",[]";
    return text + "]";
}
TEST(ZMJSONSerializationTest, ParsesJSONTextAndRejectsEverythingElseWithoutThrowing) {
    const struct {
        const char* name;
        std::string input;
        std::optional<ZMValue> expected;
    } cases[] = {
        {"dictionary", R"({"a":1,"b":[true,null,"x"]})", ZMValue{{"a", 1}, {"b", {true, nullptr, "x"}}}},
        {"array with spaces", " [ 1 , 2.5 ] ", ZMValue{1, 2.5}},
        {"surrogate pair escape", R"(["\ud83d\ude00"])", ZMValue{"\xF0\x9F\x98\x80"}},
        {"moderate nesting", nested(100), ZMValue::parse(nested(100))},
        {"empty", "", std::nullopt},
        {"trailing garbage", "{} x", std::nullopt},
        {"invalid byte in string", "[\"\xFF\"]", std::nullopt},
        {"encoded surrogate in string", "[\"\xED\xA0\x80\"]", std::nullopt},
        {"unpaired surrogate escape", R"(["\ud800"])", std::nullopt},
        {"byte outside string", "[1]\xFF", std::nullopt},
        {"excessive nesting", nested(600), std::nullopt},
        {"nesting at the limit", nested(512), ZMValue::parse(nested(512))},
        {"one level beyond the limit", nested(513), std::nullopt},
        // More opening brackets than the limit, but not nested that deep.
        {"brackets inside a string", "[\"" + std::string(600, '[') + "\"]", ZMValue{std::string(600, '[')}},
        {"many shallow arrays", siblings(600), ZMValue::parse(siblings(600))},
        {"repeated key keeps its last value", R"({"a":1,"b":{"c":2},"a":[3]})", ZMValue{{"a", {3}}, {"b", {{"c", 2}}}}},
        {"scalar text", R"("text")", ZMValue("text")},
        {"byte-order mark", "\xEF\xBB\xBF[1]", ZMValue{1}},
        {"broken byte-order mark", "\xEF\xBB[1]", std::nullopt},
        {"a NUL byte after the value ends the text", std::string("[1] \0junk", 10), ZMValue{1}},
        {"a NUL byte where a value belongs", std::string("[1,\0]", 5), std::nullopt},
        {"integers beyond 64 bits read as doubles", "[18446744073709551616,-9223372036854775809]",
         ZMValue{18446744073709551616.0, -9223372036854775809.0}},
        {"number overflowing a double", "[1e400]", std::nullopt},
        {"dictionaries within arrays within dictionaries", R"({"l":[{"u":"x","s":-1},{"n":1e3}],"m":18446744073709551615})",
         ZMValue{{"l", {{{"u", "x"}, {"s", -1}}, {{"n", 1e3}}}}, {"m", UINT64_MAX}}},
        {"dictionary one level beyond the limit", std::string(512, '[') + "{}" + std::string(512, ']'), std::nullopt},
        {"unclosed nesting beyond the limit", std::string(600, '['), std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::optional<ZMValue> parsed;
        ASSERT_NO_THROW(parsed = ZMJSONSerialization::JSONObjectWithData(bytes(c.input)));
        EXPECT_EQ(parsed, c.expected);
        // The dictionary reader answers dictionaries only.
        EXPECT_EQ(ZMJSONSerialization::dictionaryWithData(bytes(c.input)),
                  c.expected && c.expected->is_object() ? c.expected : std::nullopt);
    }
}

TEST(ZMJSONSerializationTest, ValidityAndWriterAgreeOnWhatCanBeWritten) {
    const struct {
        const char* name;
        ZMValue object;
        bool valid;
        bool writable;
    } cases[] = {
        {"dictionary", {{"a", {1, "x", nullptr, false}}}, true, true},
        {"empty array", ZMValue::array(), true, true},
        {"string at top", "x", false, false},
        {"nested NaN", {{"a", {{"b", std::numeric_limits<double>::quiet_NaN()}}}}, false, false},
        {"nested infinity", ZMValue::array({1, -std::numeric_limits<double>::infinity()}), false, false},
        {"binary value", ZMValue::array({ZMValue::binary({1, 2})}), false, false},
        {"invalid UTF-8 value", {{"a", "\xFF"}}, false, false},
        {"invalid UTF-8 key", {{"\xC3", 1}}, false, false},
        {"invalid UTF-8 deep inside", ZMValue::array({ZMValue{{"k", ZMValue::array({"ok", "\xED\xA0\x80"})}}}), false, false},
        // As deep as the parser reads, and one level deeper.
        {"nested 512 deep", nestedValue(512, false), true, true},
        {"nested 513 deep", nestedValue(513, false), false, false},
        {"dictionaries nested 513 deep", nestedValue(513, true), false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(ZMJSONSerialization::isValidJSONObject(c.object), c.valid);
        for (bool pretty : {false, true}) {
            try {
                ZMJSONSerialization::dataWithJSONObject(c.object, pretty);
                EXPECT_TRUE(c.writable) << "no exception";
            } catch (const ZMPlatformException& error) {
                EXPECT_FALSE(c.writable) << error.description();
                EXPECT_EQ(error.name(), "ZMJSONWriteException");
                EXPECT_EQ(error.description().rfind("ZMJSONWriteException: ", 0), 0u);
            }
        }
    }
}

TEST(ZMJSONSerializationTest, WritesCompactAndPrettyTextThatParsesBack) {
    const ZMValue object = {{"name", "r\xC3\xA9union"}, {"list", {1, 2}}, {"empty", ZMValue::object()}};
    const ZMData compact = ZMJSONSerialization::dataWithJSONObject(object, false);
    const ZMData pretty = ZMJSONSerialization::dataWithJSONObject(object, true);
    EXPECT_EQ(compact, bytes("{\"empty\":{},\"list\":[1,2],\"name\":\"r\xC3\xA9union\"}"));
    EXPECT_EQ(pretty,
              bytes("{\n  \"empty\": {},\n  \"list\": [\n    1,\n    2\n  ],\n  \"name\": \"r\xC3\xA9union\"\n}"));
    EXPECT_EQ(ZMJSONSerialization::JSONObjectWithData(compact), object);
    EXPECT_EQ(ZMJSONSerialization::JSONObjectWithData(pretty), object);
}

}  // namespace
