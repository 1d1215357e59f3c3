// Decoding and encoding of the chat-room signal messages against their wire
// payloads, malformed ones included; the notify events made from them.

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberActionMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBanMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBlockMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomSyncMessage.h>
#include <ZMChatRoom/Messages/ZMChatroomKVNotificationMessage.h>
#include <ZMChatRoom/Utility/ZMChatRoomUtil.h>

namespace {

ZMData bytes(const std::string& text) { return ZMData(text.begin(), text.end()); }
ZMValue text(const std::optional<std::string>& value) { return value ? ZMValue(*value) : ZMValue(); }
ZMEmulatedLogger& logger() { return ZMCoreEmulator::shared().logger(); }

// The observable fields of a message, or of the event made from it (they share
// field names), as one dictionary.
template <class T>  // sync
auto fields(const T& m) -> decltype(void(m.reason), ZMValue()) {
    return {{"chatroomId", text(m.chatroomId)}, {"status", m.status}, {"reason", m.reason}, {"time", m.time},
            {"extra", text(m.extra)}};
}
template <class T>  // block and ban
auto fields(const T& m) -> decltype(void(m.durationTime), ZMValue()) {
    ZMValue f = {{"chatroomId", text(m.chatroomId)}, {"durationTime", m.durationTime}, {"operateTime", m.operateTime},
                 {"userIdList", m.userIdList},       {"extra", text(m.extra)}};
    if constexpr (requires { m.banType; }) f["banType"] = m.banType; else f["operateType"] = m.operateType;
    return f;
}
ZMValue fields(const ZMChatroomKVNotificationMessage& m) {
    return {{"type", m.type}, {"key", text(m.key)}, {"value", text(m.value)}, {"extra", text(m.extra)}};
}
ZMValue fields(const ZMChatRoomMemberActionMessage& m) {
    ZMValue users = ZMValue::array();
    for (const auto& action : m.userList) users.push_back({text(action->memberId), action->action});
    return {{"userList", users}, {"memberCount", m.memberCount}, {"extra", text(m.extra)}};
}

template <class M>
std::shared_ptr<M> decoded(const std::string& payload) {
    auto message = std::make_shared<M>();
    message->decodeWithData(bytes(payload));
    return message;
}

// The fields decoded, those of a fresh message, and those after encoding and
// decoding again; whether the raw bytes were kept, and the re-encoding read back.
struct Decoded { ZMValue fields, fresh, again; bool rawKept, reencoded; };

template <class M>
Decoded decode(const std::string& payload) {
    auto message = decoded<M>(payload);
    std::optional<ZMData> data = message->encode();
    auto again = decoded<M>(data ? std::string(data->begin(), data->end()) : "");
    return {fields(*message), fields(M()), fields(*again), message->rawJSONData() == bytes(payload),
            data && !again->rawJSONData()};
}

enum Outcome { kParsed, kLossy /* actions without a member id are not encoded */, kUnparsable };

struct DecodeCase {
    const char* name;
    Decoded (*decode)(const std::string&);
    const char *payload, *expected;  // expected: merged over the fields of a fresh message; null: the payload
    Outcome outcome;
};

const auto kMember = decode<ZMChatRoomMemberActionMessage>;
const auto kBlock = decode<ZMChatRoomMemberBlockMessage>;
const auto kBan = decode<ZMChatRoomMemberBanMessage>;
const auto kSync = decode<ZMChatRoomSyncMessage>;
const auto kKV = decode<ZMChatroomKVNotificationMessage>;

const DecodeCase kDecodeCases[] = {
    {"member_invalid_json", kMember, R"({"userList":[)", "{}", kUnparsable},
    {"member_non_object_elements_skipped", kMember,
     R"({"userList":["u0",{"userId":"u1","status":1},7,null,[]],"memberCount":18446744073709551615,"extra":"e"})",
     R"({"userList":[["u1",1]],"memberCount":18446744073709551615,"extra":"e"})", kParsed},
    {"member_missing_and_wrong_kind_fields", kMember,
     R"({"userList":[{"status":2},{"userId":5,"status":"3"},{"userId":"u3"}]})",
     R"({"userList":[[null,2],[null,0],["u3",0]]})", kLossy},
    {"member_list_not_array_count_string", kMember, R"({"userList":{"userId":"u1"},"memberCount":"7"})", "{}", kParsed},
    {"block_full", kBlock,
     R"({"chatroomId":"r1","operateType":1,"operateTime":1700000000123,"durationTime":30,"userList":["u1","u2"],"extra":"x"})",
     R"({"chatroomId":"r1","operateType":1,"durationTime":30,"operateTime":1700000000123,"userIdList":["u1","u2"],"extra":"x"})",
     kParsed},
    {"block_invalid_json", kBlock, "not json", "{}", kUnparsable},
    {"block_user_list_elements_kept_as_sent", kBlock, R"({"userList":["u1",2,null,{"a":1}]})",
     R"({"userIdList":["u1",2,null,{"a":1}]})", kParsed},
    {"block_wrong_kinds", kBlock,
     R"({"chatroomId":12,"operateType":"1","operateTime":"5","durationTime":[1],"userList":"u1"})", "{}", kParsed},
    // The ban type travels under "operateType".
    {"ban_operate_type", kBan,
     R"({"chatroomId":"r2","operateType":2,"operateTime":1700000000999,"durationTime":60,"userList":["u9"]})",
     R"({"chatroomId":"r2","banType":2,"durationTime":60,"operateTime":1700000000999,"userIdList":["u9"]})", kParsed},
    {"ban_extremes", kBan, R"({"operateType":-4,"operateTime":-1,"durationTime":2147483648,"userList":[]})",
     R"({"banType":-4,"durationTime":2147483648,"operateTime":-1,"userIdList":[]})", kParsed},
    {"ban_type_key_ignored", kBan, R"({"chatroomId":"r2","banType":5})", R"({"chatroomId":"r2"})", kParsed},
    {"ban_top_level_string", kBan, R"("r2")", "{}", kUnparsable},
    {"sync_full", kSync, R"({"chatroomId":"r3","status":1,"reason":2,"time":9007199254740993,"extra":"s"})", nullptr,
     kParsed},
    {"sync_invalid_json", kSync, R"({"chatroomId":"r3",})", "{}", kUnparsable},
    {"sync_wrong_kinds", kSync, R"({"chatroomId":["r3"],"status":"1","reason":{},"time":"now"})", "{}", kParsed},
    // Keys and values may arrive as numbers.
    {"kv_full", kKV, R"({"type":1,"key":"k1","value":"v1","extra":"n"})", nullptr, kParsed},
    {"kv_numbers_as_text", kKV, R"({"type":2,"key":12,"value":345})", R"({"type":2,"key":"12","value":"345"})",
     kParsed},
    {"kv_wrong_kinds", kKV, R"({"type":"1","key":["k"],"value":{}})", "{}", kParsed},
    {"kv_invalid_json", kKV, "{\"key\":\"\xff\"}", "{}", kUnparsable},
};

void PrintTo(const DecodeCase& c, std::ostream* os) { *os << c.name << ": " << c.payload; }

class SignalMessageDecodeTest : public testing::TestWithParam<DecodeCase> {};

// Decoding never logs and keeps the raw bytes only when they are no JSON
// object; encoding what was decoded and decoding that gives the same fields.
TEST_P(SignalMessageDecodeTest, DecodesKeepsRawOnlyWhenUnparsableAndRoundTrips) {
    const DecodeCase& c = GetParam();
    logger().clear();
    Decoded decoded = c.decode(c.payload);
    ZMValue expected = decoded.fresh;
    expected.merge_patch(ZMValue::parse(c.expected ? c.expected : c.payload));
    EXPECT_EQ(decoded.fields, expected);
    EXPECT_EQ(decoded.rawKept, c.outcome == kUnparsable);
    EXPECT_TRUE(decoded.reencoded);
    if (c.outcome != kLossy) { EXPECT_EQ(decoded.again, decoded.fields); }
    EXPECT_TRUE(logger().lines().empty());
}

INSTANTIATE_TEST_SUITE_P(Payloads, SignalMessageDecodeTest, testing::ValuesIn(kDecodeCases),
                         [](const auto& info) { return std::string(info.param.name); });

std::shared_ptr<ZMChatRoomMemberAction> action(std::optional<std::string> id, int64_t code) {
    return std::make_shared<ZMChatRoomMemberAction>(std::move(id), code);
}

// Payloads as sent: the ban type under "operateType", absent values left out,
// member actions without a member id dropped, compact text. A string that is
// not UTF-8 cannot be written: encoding gives nothing. Nothing is logged.
TEST(SignalMessageCodecTest, EncodedPayloadsUseTheWireKeys) {
    const std::string bad = "r\xc3";
    ZMChatRoomMemberActionMessage member, badMember;
    member.userList = {action("u1", 1), action("", 2), action(std::nullopt, 3), nullptr, action("u4", 4)};
    member.memberCount = 5;
    badMember.userList = {action(bad, 1)};
    ZMChatRoomMemberBlockMessage block, badBlock;
    badBlock.chatroomId = bad;
    ZMChatRoomMemberBanMessage badBan;
    badBan.userIdList = {bad};
    ZMChatRoomSyncMessage badSync;
    badSync.extra = bad;
    logger().clear();
    const std::pair<std::optional<ZMData>, const char*> cases[] = {
        {decoded<ZMChatRoomMemberBanMessage>(R"({"chatroomId":"r2","operateType":3})")->encode(),
         R"({"chatroomId":"r2","operateType":3,"operateTime":0,"durationTime":0})"},
        {block.encode(), R"({"operateType":0,"operateTime":0,"durationTime":0})"},
        {ZMChatRoomSyncMessage().encode(), R"({"status":0,"reason":0,"time":0})"},
        {ZMChatroomKVNotificationMessage::notificationWithType(ZMKVNotificationTypeRemove, "k", {}, "note")->encode(),
         R"({"type":2,"key":"k","extra":"note"})"},
        {member.encode(), R"({"userList":[{"userId":"u1","status":1},{"userId":"u4","status":4}],"memberCount":5})"},
        {ZMChatRoomMemberActionMessage().encode(), R"({"userList":[],"memberCount":0})"},
        {badMember.encode(), nullptr}, {badBlock.encode(), nullptr}, {badBan.encode(), nullptr},
        {badSync.encode(), nullptr}, {ZMChatroomKVNotificationMessage::notificationWithType(1, "k", bad, {})->encode(), nullptr},
    };
    for (const auto& [data, expected] : cases) {
        ASSERT_EQ(data.has_value(), expected != nullptr) << (expected ? expected : "");
        if (!data) continue;
        const std::string payload(data->begin(), data->end());
        EXPECT_EQ(ZMValue::parse(payload), ZMValue::parse(expected));
        EXPECT_EQ(payload.find_first_of("\n "), std::string::npos) << payload;
    }
    EXPECT_TRUE(logger().lines().empty());
}

// The archive form stores the type under "key" and then overwrites it with
// the key, so the type does not survive; key, value and extra do.
TEST(KVNotificationMessageArchiveTest, TypeIsLostKeyValueAndExtraKept) {
    using Text = std::optional<std::string>;
    const std::tuple<Text, Text, Text> cases[] = {{"k1", "v1", "e1"}, {"k2", {}, {}}, {{}, "v3", "e3"}};
    for (const auto& [key, value, extra] : cases) {
        auto original = ZMChatroomKVNotificationMessage::notificationWithType(ZMKVNotificationTypeSet, key, value, extra);
        ZMKeyedArchiver archiver;
        original->encodeWithCoder(archiver);
        ZMKeyedUnarchiver reader(archiver.encodedData());
        ASSERT_TRUE(reader.isValid());
        EXPECT_FALSE(reader.containsValueForKey("type"));
        ZMValue expected = fields(*original);
        expected["type"] = 0;
        EXPECT_EQ(fields(ZMChatroomKVNotificationMessage(reader)), expected);
    }
    // Bytes that are no archive give a blank message.
    EXPECT_EQ(fields(ZMChatroomKVNotificationMessage(ZMKeyedUnarchiver(bytes("garbage")))),
              fields(ZMChatroomKVNotificationMessage()));
}

// The routing tests check the events made from messages; a null message
// gives a blank event.
TEST(ChatRoomUtilModelTest, NullMessageGivesBlankEvent) {
    EXPECT_EQ(fields(*ZMChatRoomUtil::modelWithSyncMessage(nullptr)), fields(ZMChatRoomSyncMessage()));
    EXPECT_EQ(fields(*ZMChatRoomUtil::modelWithBlockMessage(nullptr)), fields(ZMChatRoomMemberBlockMessage()));
    EXPECT_EQ(fields(*ZMChatRoomUtil::modelWithBanMessage(nullptr)), fields(ZMChatRoomMemberBanMessage()));
}

}  // namespace
