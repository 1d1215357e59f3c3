#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "emulator_tests/ZMEmulatorTestDoubles.h"

namespace {

const ZMValue& sample() {
    static const ZMValue dict = {
        {"text", "hello"},  {"int", 42},     {"neg", -5},    {"float", 2.9},   {"negFloat", -2.9},
        {"half", 0.5},      {"true", true},  {"false", false}, {"huge", 1e30}, {"negHuge", -1e30},
        {"umax", std::numeric_limits<uint64_t>::max()},        {"array", {1, 2}}, {"dict", {{"a", 1}}},
        {"null", nullptr},  {"badUtf8", std::string("a\xff")},
    };
    return dict;
}

struct ReaderRow {
    const char* key;
    std::optional<std::string> string;
    std::optional<std::string> mixString;
    int64_t integer;
    uint64_t unsignedInteger;
    bool boolean;
};

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
constexpr uint64_t kUMax = std::numeric_limits<uint64_t>::max();

TEST(ZMDictionaryReaders, ReadEveryKindOfValue) {
    const ReaderRow rows[] = {
        {"text", "hello", "hello", 0, 0, false},
        {"int", std::nullopt, "42", 42, 42, true},
        {"neg", std::nullopt, "-5", -5, 0, true},
        {"float", std::nullopt, "2.9", 2, 2, true},
        {"negFloat", std::nullopt, "-2.9", -2, 0, true},
        {"half", std::nullopt, "0.5", 0, 0, true},
        {"true", std::nullopt, "1", 1, 1, true},
        {"false", std::nullopt, "0", 0, 0, false},
        {"huge", std::nullopt, "1e+30", kMax, kUMax, true},
        {"negHuge", std::nullopt, "-1e+30", kMin, 0, true},
        {"umax", std::nullopt, "18446744073709551615", kMax, kUMax, true},
        {"array", std::nullopt, std::nullopt, 0, 0, false},
        {"dict", std::nullopt, std::nullopt, 0, 0, false},
        {"null", std::nullopt, std::nullopt, 0, 0, false},
        {"badUtf8", std::nullopt, std::nullopt, 0, 0, false},
        {"missing", std::nullopt, std::nullopt, 0, 0, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key);
        EXPECT_EQ(zmlib_stringForKey(sample(), row.key), row.string);
        EXPECT_EQ(zmlib_mix_stringForKey(sample(), row.key), row.mixString);
        EXPECT_EQ(zmlib_integerForKey(sample(), row.key), row.integer);
        EXPECT_EQ(zmlib_longLongIntForKey(sample(), row.key), row.integer);
        EXPECT_EQ(zmlib_unsignedIntegerForKey(sample(), row.key), row.unsignedInteger);
        EXPECT_EQ(zmlib_boolForKey(sample(), row.key), row.boolean);
    }
    EXPECT_EQ(zmlib_arrayForKey(sample(), "array"), ZMValue({1, 2}));
    EXPECT_EQ(zmlib_dictionaryForKey(sample(), "dict"), ZMValue({{"a", 1}}));
    for (const char* key : {"dict", "text", "null", "missing"}) EXPECT_TRUE(zmlib_arrayForKey(sample(), key).is_null());
    for (const char* key : {"array", "text", "null", "missing"}) {
        EXPECT_TRUE(zmlib_dictionaryForKey(sample(), key).is_null());
    }
}

TEST(ZMDictionaryReaders, ReceiverThatIsNoDictionaryAnswersNothing) {
    for (const ZMValue& receiver : {ZMValue(), ZMValue("text"), ZMValue::array({"text"})}) {
        EXPECT_EQ(zmlib_stringForKey(receiver, "text"), std::nullopt) << receiver.dump();
        EXPECT_EQ(zmlib_mix_stringForKey(receiver, "text"), std::nullopt) << receiver.dump();
        EXPECT_EQ(zmlib_integerForKey(receiver, "text"), 0) << receiver.dump();
        EXPECT_TRUE(zmlib_arrayForKey(receiver, "text").is_null()) << receiver.dump();
    }
}

TEST(ZMDictionaryReaders, SetObjectStoresPresentValuesOnly) {
    struct Row {
        ZMValue dict;
        ZMValue value;
        ZMValue expected;
    };
    const Row rows[] = {
        {ZMValue(), "v", {{"k", "v"}}},
        {ZMValue(), ZMValue(), ZMValue::object()},
        {{{"k", 1}, {"other", 2}}, {1, 2}, {{"k", {1, 2}}, {"other", 2}}},
        {{{"k", 1}}, ZMValue(), {{"k", 1}}},
        {ZMValue::array({1}), "v", ZMValue::array({1})},
    };
    for (const auto& row : rows) {
        ZMValue dict = row.dict;
        zmlib_setObject(dict, row.value, "k");
        EXPECT_EQ(dict, row.expected) << row.dict.dump() << " <- " << row.value.dump();
    }
}

ZMData bytes(const std::string& text) { return ZMData(text.begin(), text.end()); }

TEST(ZMMessageContentBase, DictionaryFromJsonDataAcceptsOneObjectOnly) {
    EXPECT_EQ(ZMMessageContent::dictionaryFromJsonData(bytes(R"({"a":[1]})")), ZMValue({{"a", {1}}}));
    for (const std::string text : {"[1]", "\"s\"", "{", "", "{\"a\":\"\xff\"}"}) {
        EXPECT_EQ(ZMMessageContent::dictionaryFromJsonData(bytes(text)), std::nullopt) << text;
    }
}

TEST(ZMMessageContentBase, BaseFieldsRoundTripAndUnsetOnesAreLeftOut) {
    ZMTestPingMessage message;
    EXPECT_EQ(message.encodeBaseData(), ZMValue::object());

    message.decodeBaseData({{"extra", "x"}, {"user", {{"id", "u1"}}}, {"mentionedInfo", {{"type", 1}}}, {"own", 1}});
    EXPECT_EQ(message.extra, "x");
    EXPECT_EQ(message.senderUserInfo, ZMValue({{"id", "u1"}}));
    EXPECT_EQ(message.mentionedInfo, ZMValue({{"type", 1}}));
    EXPECT_EQ(message.encodeBaseData(),
              ZMValue({{"extra", "x"}, {"user", {{"id", "u1"}}}, {"mentionedInfo", {{"type", 1}}}}));

    // Values of the wrong kind are not base fields.
    message.decodeBaseData({{"extra", 5}, {"user", "u1"}});
    EXPECT_EQ(message.extra, std::nullopt);
    EXPECT_TRUE(message.senderUserInfo.is_null());
    EXPECT_TRUE(message.mentionedInfo.is_null());
    EXPECT_EQ(message.encodeBaseData(), ZMValue::object());

    message.extra = "";
    message.decodeBaseData(ZMValue::array({1}));  // no object: nothing to read, nothing changes
    EXPECT_EQ(message.encodeBaseData(), ZMValue({{"extra", ""}}));

    // The core's payload of a content is its encoding, or nothing.
    message.text = "hi";
    const auto payload = ZMCoreClient::sharedCoreClient().payloadOfMessageContent(message);
    EXPECT_EQ(ZMMessageContent::dictionaryFromJsonData(payload.value_or(ZMData())),
              ZMValue({{"text", "hi"}, {"extra", ""}}));
    message.text = "unencodable";
    EXPECT_EQ(ZMCoreClient::sharedCoreClient().payloadOfMessageContent(message), std::nullopt);
}

TEST(ZMUtilities, CheckChatroomKeyAcceptsOnlyTheKeyAlphabet) {
    const std::pair<std::string, bool> rows[] = {
        {"abcXYZ019", true}, {"_-+=.", true}, {"", true},        {"a b", false}, {"a/b", false},
        {"key!", false},     {"ключ", false}, {"a\xff", false}, {std::string("a\0b", 3), false},
    };
    for (const auto& [key, legal] : rows) EXPECT_EQ(ZMUtilities::checkChatroomKey(key), legal) << key;
    EXPECT_TRUE(ZMCoreEmulator::isLegalKVKeyCharacter(U'='));
    EXPECT_FALSE(ZMCoreEmulator::isLegalKVKeyCharacter(U'é'));
    EXPECT_FALSE(ZMCoreEmulator::isLegalKVKeyCharacter(U'\U0001F600'));
}

}  // namespace
