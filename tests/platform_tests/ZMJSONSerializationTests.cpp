#include <limits>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include <Platform/ZMJSONSerialization.h>
#include <Platform/ZMPlatformException.h>

namespace {

ZMData bytes(const std::string& text) { return ZMData(text.begin(), text.end()); }
std::string text(const ZMData& data) { return std::string(data.begin(), data.end()); }
std::string nested(int depth) { return std::string(static_cast<size_t>(depth), '[') + std::string(static_cast<size_t>(depth), ']'); }

TEST(ZMJSONSerializationTest, ParsesJSONTextAndRejectsEverythingElseWithoutThrowing) {
    struct Case {
        const char* name;
        std::string input;
        std::optional<ZMValue> expected;
    };
    const Case cases[] = {
        {"dictionary", R"({"a":1,"b":[true,null,"x"]})", ZMValue{{"a", 1}, {"b", {true, nullptr, "x"}}}},
        {"array with spaces", " [ 1 , 2.5 ] ", ZMValue{1, 2.5}},
        {"surrogate pair escape", R"(["\ud83d\ude00"])", ZMValue{"\xF0\x9F\x98\x80"}},
        {"moderate nesting", nested(100), ZMValue::parse(nested(100))},
        {"empty", "", std::nullopt},
        {"unterminated", R"({"a":)", std::nullopt},
        {"trailing garbage", "{} x", std::nullopt},
        {"trailing comma", "[1,]", std::nullopt},
        {"not JSON at all", "hello", std::nullopt},
        {"invalid byte in string", "[\"\xFF\"]", std::nullopt},
        {"overlong form in string", "[\"\xC0\xAF\"]", std::nullopt},
        {"encoded surrogate in string", "[\"\xED\xA0\x80\"]", std::nullopt},
        {"unpaired surrogate escape", R"(["\ud800"])", std::nullopt},
        {"byte outside string", "[1]\xFF", std::nullopt},
        {"excessive nesting", nested(600), std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::optional<ZMValue> parsed;
        ASSERT_NO_THROW(parsed = ZMJSONSerialization::JSONObjectWithData(bytes(c.input)));
        EXPECT_EQ(parsed, c.expected);
    }
}

TEST(ZMJSONSerializationTest, DictionaryReaderAcceptsOnlyDictionaries) {
    EXPECT_EQ(ZMJSONSerialization::dictionaryWithData(bytes(R"({"k":"v"})")), (ZMValue{{"k", "v"}}));
    EXPECT_EQ(ZMJSONSerialization::dictionaryWithData(bytes("[1]")), std::nullopt);
    EXPECT_EQ(ZMJSONSerialization::dictionaryWithData(bytes("\"text\"")), std::nullopt);
    EXPECT_EQ(ZMJSONSerialization::dictionaryWithData(bytes("{")), std::nullopt);
}

TEST(ZMJSONSerializationTest, ValidityAndWriterAgreeOnWhatCanBeWritten) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    struct Case {
        const char* name;
        ZMValue object;
        bool valid;
        bool writable;
    };
    const Case cases[] = {
        {"dictionary", {{"a", {1, "x", nullptr, false}}}, true, true},
        {"empty array", ZMValue::array(), true, true},
        {"string at top", "x", false, false},
        {"number at top", 1, false, false},
        {"null at top", nullptr, false, false},
        {"nested NaN", {{"a", {{"b", nan}}}}, false, false},
        {"nested infinity", ZMValue::array({1, -inf}), false, false},
        {"binary value", ZMValue::array({ZMValue::binary({1, 2})}), false, false},
        {"invalid UTF-8 value: valid, but the writer raises", {{"a", "\xFF"}}, true, false},
        {"invalid UTF-8 key: valid, but the writer raises", {{"\xC3", 1}}, true, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(ZMJSONSerialization::isValidJSONObject(c.object), c.valid);
        for (bool pretty : {false, true}) {
            if (c.writable) {
                EXPECT_NO_THROW(ZMJSONSerialization::dataWithJSONObject(c.object, pretty));
                continue;
            }
            try {
                ZMJSONSerialization::dataWithJSONObject(c.object, pretty);
                ADD_FAILURE() << "no exception";
            } catch (const ZMPlatformException& error) {
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

    EXPECT_EQ(text(compact), "{\"empty\":{},\"list\":[1,2],\"name\":\"r\xC3\xA9union\"}");
    EXPECT_EQ(text(pretty),
              "{\n"
              "  \"empty\": {},\n"
              "  \"list\": [\n"
              "    1,\n"
              "    2\n"
              "  ],\n"
              "  \"name\": \"r\xC3\xA9union\"\n"
              "}");
    EXPECT_EQ(ZMJSONSerialization::JSONObjectWithData(compact), object);
    EXPECT_EQ(ZMJSONSerialization::JSONObjectWithData(pretty), object);
}

}  // namespace
