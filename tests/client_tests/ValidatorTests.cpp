#include "ClientTestSupport.h"

#include <functional>

namespace {

std::string repeat(const std::string& unit, size_t times) {
    std::string text;
    for (size_t i = 0; i < times; ++i) text += unit;
    return text;
}

const std::string kEmoji = "\xF0\x9F\x98\x80";  // U+1F600: two UTF-16 units
const std::string kInvalidUtf8 = "ab\xC3";     // truncated sequence

struct ValidatorCase {
    std::string name;
    std::function<bool()> call;
    bool valid;
    // The one line written, or empty when none is.
    std::vector<ZMLogLine> lines;
};

ZMLogLine clientLine(int32_t level, const std::string& text) {
    return ZMLogLine{level, ZMLogTypeDiagnostic, kClientTag, text};
}

}  // namespace

TEST_F(ClientTest, ValidatorsAnswerAndWriteOneLineNamingTheFailedRule) {
    const auto targetIdNotString = clientLine(6, "Parameter error，targetId is not NSString");
    const auto targetIdNil = clientLine(6, "Parameter error，targetId is nil");
    const auto targetIdLong = clientLine(6, "Parameter error，targetId length More than 64");
    const auto keyNotString = clientLine(2, "Parameter error，key is not NSString");
    const auto keyLength = clientLine(2, "Parameter error，key is empty or length More than 128");
    const auto keyIllegal = clientLine(2, "Parameter error，key is contains Illegal character");
    const auto valueLength = clientLine(2, "Parameter error，value is empty or length More than 4096");
    const auto extraLong = clientLine(2, "Parameter error，notificationExtra length More than 2048");

    auto target = [](ZMValue v) { return [v] { return ZMChatRoomClientTestPeer::isValidTargetId(v); }; };
    auto rtc = [](ZMValue v) { return [v] { return ZMChatRoomClientTestPeer::isValidRtcRoomId(v); }; };
    auto key = [](ZMValue v) { return [v] { return ZMChatRoomClientTestPeer::isValidKey(v); }; };
    auto value = [](ZMValue v) { return [v] { return ZMChatRoomClientTestPeer::isValidValue(v); }; };
    auto extra = [](ZMValue v) { return [v] { return ZMChatRoomClientTestPeer::isValidNotificationExtra(v); }; };

    const std::vector<ValidatorCase> cases = {
        {"absent room id is not a string", target(nullptr), false, {targetIdNotString}},
        {"number room id", target(42), false, {targetIdNotString}},
        {"room id of invalid UTF-8", target(kInvalidUtf8), false, {targetIdNotString}},
        {"empty room id", target(""), false, {targetIdNil}},
        {"room id of 64 units", target(repeat("a", 64)), true, {}},
        {"room id of 65 units", target(repeat("a", 65)), false, {targetIdLong}},
        {"32 emoji are 64 units", target(repeat(kEmoji, 32)), true, {}},
        {"33 emoji are 66 units", target(repeat(kEmoji, 33)), false, {targetIdLong}},
        {"absent rtc room id", rtc(nullptr), false, {clientLine(6, "Parameter error，rtcRoomId is not NSString")}},
        {"empty rtc room id", rtc(""), false, {clientLine(6, "Parameter error，rtcRoomId is nil")}},
        {"rtc room id has no upper limit", rtc(repeat("r", 5000)), true, {}},
        {"absent key", key(nullptr), false, {keyNotString}},
        {"empty key", key(""), false, {keyLength}},
        {"key of 128 units", key(repeat("k", 128)), true, {}},
        {"key of 129 units is refused before the character test", key(repeat("!", 129)), false, {keyLength}},
        {"key with an illegal character", key("a b"), false, {keyIllegal}},
        {"absent value", value(nullptr), false, {clientLine(2, "Parameter error，value is not NSString")}},
        {"empty value", value(""), false, {valueLength}},
        {"value of 4096 units", value(repeat("v", 4096)), true, {}},
        {"value of 4097 units", value(repeat("v", 4097)), false, {valueLength}},
        {"value of any characters", value("a b!\n"), true, {}},
        {"absent extra", extra(nullptr), true, {}},
        {"empty extra", extra(""), true, {}},
        {"extra of 2048 units", extra(repeat("e", 2048)), true, {}},
        {"extra of 2049 units", extra(repeat("e", 2049)), false, {extraLong}},
        {"number extra", extra(7), false, {clientLine(2, "notificationExtra is illegitimate")}},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        core.logger().clear();
        EXPECT_EQ(testCase.call(), testCase.valid);
        EXPECT_EQ(core.logger().lines(), testCase.lines);
    }
}

TEST_F(ClientTest, KeyValueValidatorTestsTheKeyFirst) {
    struct Case {
        ZMValue key;
        ZMValue value;
        int32_t code;
        size_t lines;
    };
    const std::vector<Case> cases = {
        {"a b", "", ZMErrorInvalidKVKey, 1},  // only the key's line
        {"key", "", ZMErrorInvalidKVValue, 1},
        {"key", "value", 0, 0},
        {nullptr, nullptr, ZMErrorInvalidKVKey, 1},
    };
    for (const auto& testCase : cases) {
        core.logger().clear();
        EXPECT_EQ(ZMChatRoomClientTestPeer::isValidKey(testCase.key, testCase.value), testCase.code);
        EXPECT_EQ(core.logger().lines().size(), testCase.lines);
    }
}
