#include "ClientTestSupport.h"

namespace {

using P = ZMChatRoomClientTestPeer;

// n times U+1F600, two UTF-16 units each.
std::string emoji(int n) { return n ? "\xF0\x9F\x98\x80" + emoji(n - 1) : ""; }
const std::string kInvalidUtf8 = "ab\xC3";  // truncated sequence

// The client's one line refusing a parameter, at this level.
std::vector<ZMLogLine> diag(int32_t level, const std::string& text) {
    return {ZMLogLine{level, ZMLogTypeDiagnostic, kClientTag, "Parameter error，" + text}};
}

}  // namespace

TEST_F(ClientTest, ValidatorsAnswerAndWriteOneLineNamingTheFailedRule) {
    struct Case {
        std::string name;
        bool (*check)(const ZMValue&);
        ZMValue value;
        bool valid;
        std::vector<ZMLogLine> lines;  // the one line written, if any
    };
    const auto idNotString = diag(6, "targetId is not NSString");
    const auto idLong = diag(6, "targetId length More than 64");
    const auto keyLength = diag(2, "key is empty or length More than 128");
    const auto valueLength = diag(2, "value is empty or length More than 4096");
    const std::vector<Case> cases = {
        {"absent room id is not a string", P::isValidTargetId, nullptr, false, idNotString},
        {"number room id", P::isValidTargetId, 42, false, idNotString},
        {"room id of invalid UTF-8", P::isValidTargetId, kInvalidUtf8, false, idNotString},
        {"empty room id", P::isValidTargetId, "", false, diag(6, "targetId is nil")},
        {"room id of 64 units", P::isValidTargetId, std::string(64, 'a'), true, {}},
        {"room id of 65 units", P::isValidTargetId, std::string(65, 'a'), false, idLong},
        {"32 emoji are 64 units", P::isValidTargetId, emoji(32), true, {}},
        {"33 emoji are 66 units", P::isValidTargetId, emoji(33), false, idLong},
        {"absent rtc room id", P::isValidRtcRoomId, nullptr, false, diag(6, "rtcRoomId is not NSString")},
        {"empty rtc room id", P::isValidRtcRoomId, "", false, diag(6, "rtcRoomId is nil")},
        {"rtc room id has no upper limit", P::isValidRtcRoomId, std::string(5000, 'r'), true, {}},
        {"absent key", P::isValidKey, nullptr, false, diag(2, "key is not NSString")},
        {"empty key", P::isValidKey, "", false, keyLength},
        {"key of 128 units", P::isValidKey, std::string(128, 'k'), true, {}},
        {"key of 129 units, refused before the character test", P::isValidKey, std::string(129, '!'), false,
         keyLength},
        {"key with an illegal character", P::isValidKey, "a b", false, diag(2, "key is contains Illegal character")},
        {"absent value", P::isValidValue, nullptr, false, diag(2, "value is not NSString")},
        {"empty value", P::isValidValue, "", false, valueLength},
        {"value of 4096 units", P::isValidValue, std::string(4096, 'v'), true, {}},
        {"value of 4097 units", P::isValidValue, std::string(4097, 'v'), false, valueLength},
        {"value of any characters", P::isValidValue, "a b!\n", true, {}},
        {"absent extra", P::isValidNotificationExtra, nullptr, true, {}},
        {"empty extra", P::isValidNotificationExtra, "", true, {}},
        {"extra of 2048 units", P::isValidNotificationExtra, std::string(2048, 'e'), true, {}},
        {"extra of 2049 units", P::isValidNotificationExtra, std::string(2049, 'e'), false,
         diag(2, "notificationExtra length More than 2048")},
        {"number extra", P::isValidNotificationExtra, 7, false,
         {ZMLogLine{2, ZMLogTypeDiagnostic, kClientTag, "notificationExtra is illegitimate"}}},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        core.logger().clear();
        EXPECT_EQ(testCase.check(testCase.value), testCase.valid);
        EXPECT_EQ(core.logger().lines(), testCase.lines);
    }
}

TEST_F(ClientTest, KeyValueValidatorTestsTheKeyFirst) {
    const std::vector<std::tuple<ZMValue, ZMValue, int32_t, std::vector<ZMLogLine>>> cases = {
        {"a b", "", ZMErrorInvalidKVKey, diag(2, "key is contains Illegal character")},  // the key's line only
        {"key", "", ZMErrorInvalidKVValue, diag(2, "value is empty or length More than 4096")},
        {"key", "value", 0, {}}};
    for (const auto& [key, value, code, written] : cases) {
        core.logger().clear();
        EXPECT_EQ(P::isValidKey(key, value), code);
        EXPECT_EQ(core.logger().lines(), written);
    }
}
