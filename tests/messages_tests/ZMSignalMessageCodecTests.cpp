// Decoding and encoding of the chat-room signal messages against their wire
// payloads, malformed ones included.

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberActionMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBanMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBlockMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomSyncMessage.h>
#include <ZMChatRoom/Messages/ZMChatroomKVNotificationMessage.h>

namespace {

ZMData bytes(const std::string& text) { return ZMData(text.begin(), text.end()); }

ZMValue text(const std::optional<std::string>& value) { return value ? ZMValue(*value) : ZMValue(); }

ZMValue payloadOf(const std::optional<ZMData>& data) {
    EXPECT_TRUE(data.has_value());
    return data ? ZMValue::parse(data->begin(), data->end()) : ZMValue();
}

// The observable fields of each message as one dictionary, so that the
// decoding table can state them in one expected JSON text.
ZMValue fields(const ZMChatRoomMemberBlockMessage& m) {
    return {{"chatroomId", text(m.chatroomId)}, {"operateType", m.operateType}, {"durationTime", m.durationTime},
            {"operateTime", m.operateTime},     {"userIdList", m.userIdList},   {"extra", text(m.extra)}};
}
ZMValue fields(const ZMChatRoomMemberBanMessage& m) {
    return {{"chatroomId", text(m.chatroomId)}, {"banType", m.banType},       {"durationTime", m.durationTime},
            {"operateTime", m.operateTime},     {"userIdList", m.userIdList}, {"extra", text(m.extra)}};
}
ZMValue fields(const ZMChatRoomSyncMessage& m) {
    return {{"chatroomId", text(m.chatroomId)}, {"status", m.status}, {"reason", m.reason},
            {"time", m.time},                   {"extra", text(m.extra)}};
}
ZMValue fields(const ZMChatroomKVNotificationMessage& m) {
    return {{"type", m.type}, {"key", text(m.key)}, {"value", text(m.value)}, {"extra", text(m.extra)}};
}
ZMValue fields(const ZMChatRoomMemberActionMessage& m) {
    ZMValue users = ZMValue::array();
    for (const auto& action : m.userList) users.push_back({text(action->memberId), action->action});
    return {{"userList", users}, {"memberCount", m.memberCount}, {"extra", text(m.extra)}};
}

struct Decoded {
    ZMValue fields;
    bool rawKept = false;
};

template <class Message>
Decoded decode(const std::string& payload) {
    Message message;
    message.decodeWithData(bytes(payload));
    const auto& raw = message.rawJSONData();
    return {fields(message), raw.has_value() && *raw == bytes(payload)};
}

struct DecodeCase {
    const char* name;
    std::function<Decoded(const std::string&)> decode;
    const char* payload;
    const char* expected;  // the fields after decoding
    bool rawKept;
};

const char* const kBlockDefaults =
    R"({"chatroomId":null,"operateType":0,"durationTime":0,"operateTime":0,"userIdList":null,"extra":null})";
const char* const kSyncDefaults = R"({"chatroomId":null,"status":0,"reason":0,"time":0,"extra":null})";

const DecodeCase kDecodeCases[] = {
    // Member change.
    {"member_invalid_json", decode<ZMChatRoomMemberActionMessage>, R"({"userList":[)",
     R"({"userList":[],"memberCount":0,"extra":null})", true},
    {"member_empty_payload", decode<ZMChatRoomMemberActionMessage>, "",
     R"({"userList":[],"memberCount":0,"extra":null})", true},
    {"member_top_level_array", decode<ZMChatRoomMemberActionMessage>, R"([{"userId":"u1"}])",
     R"({"userList":[],"memberCount":0,"extra":null})", true},
    {"member_count_only", decode<ZMChatRoomMemberActionMessage>, R"({"memberCount":3})",
     R"({"userList":[],"memberCount":3,"extra":null})", false},
    {"member_non_object_elements_skipped", decode<ZMChatRoomMemberActionMessage>,
     R"({"userList":["u0",{"userId":"u1","status":1},7,null,[]],"memberCount":2,"extra":"e"})",
     R"({"userList":[["u1",1]],"memberCount":2,"extra":"e"})", false},
    {"member_missing_and_wrong_kind_fields", decode<ZMChatRoomMemberActionMessage>,
     R"({"userList":[{"status":2},{"userId":5,"status":"3"},{"userId":"u3"}]})",
     R"({"userList":[[null,2],[null,0],["u3",0]],"memberCount":0,"extra":null})", false},
    {"member_list_not_array_count_string", decode<ZMChatRoomMemberActionMessage>,
     R"({"userList":{"userId":"u1"},"memberCount":"7"})", R"({"userList":[],"memberCount":0,"extra":null})",
     false},
    // Block.
    {"block_full", decode<ZMChatRoomMemberBlockMessage>,
     R"({"chatroomId":"r1","operateType":1,"operateTime":1700000000123,"durationTime":30,"userList":["u1","u2"],"extra":"x"})",
     R"({"chatroomId":"r1","operateType":1,"durationTime":30,"operateTime":1700000000123,"userIdList":["u1","u2"],"extra":"x"})",
     false},
    {"block_invalid_json", decode<ZMChatRoomMemberBlockMessage>, "not json", kBlockDefaults, true},
    {"block_user_list_not_array", decode<ZMChatRoomMemberBlockMessage>, R"({"chatroomId":"r1","userList":"u1"})",
     R"({"chatroomId":"r1","operateType":0,"durationTime":0,"operateTime":0,"userIdList":null,"extra":null})",
     false},
    {"block_user_list_elements_kept_as_sent", decode<ZMChatRoomMemberBlockMessage>,
     R"({"userList":["u1",2,null,{"a":1}]})",
     R"({"chatroomId":null,"operateType":0,"durationTime":0,"operateTime":0,"userIdList":["u1",2,null,{"a":1}],"extra":null})",
     false},
    {"block_wrong_kinds", decode<ZMChatRoomMemberBlockMessage>,
     R"({"chatroomId":12,"operateType":"1","operateTime":"5","durationTime":[1]})", kBlockDefaults, false},
    // Ban: the ban type travels under "operateType".
    {"ban_operate_type", decode<ZMChatRoomMemberBanMessage>,
     R"({"chatroomId":"r2","operateType":2,"operateTime":1700000000999,"durationTime":60,"userList":["u9"]})",
     R"({"chatroomId":"r2","banType":2,"durationTime":60,"operateTime":1700000000999,"userIdList":["u9"],"extra":null})",
     false},
    {"ban_type_key_ignored", decode<ZMChatRoomMemberBanMessage>, R"({"chatroomId":"r2","banType":5})",
     R"({"chatroomId":"r2","banType":0,"durationTime":0,"operateTime":0,"userIdList":null,"extra":null})", false},
    {"ban_top_level_string", decode<ZMChatRoomMemberBanMessage>, R"("r2")",
     R"({"chatroomId":null,"banType":0,"durationTime":0,"operateTime":0,"userIdList":null,"extra":null})", true},
    // Multi-login sync.
    {"sync_full", decode<ZMChatRoomSyncMessage>,
     R"({"chatroomId":"r3","status":1,"reason":2,"time":1700000000456,"extra":"s"})",
     R"({"chatroomId":"r3","status":1,"reason":2,"time":1700000000456,"extra":"s"})", false},
    {"sync_without_time", decode<ZMChatRoomSyncMessage>, R"({"chatroomId":"r3","status":1,"reason":2})",
     R"({"chatroomId":"r3","status":1,"reason":2,"time":0,"extra":null})", false},
    {"sync_invalid_json", decode<ZMChatRoomSyncMessage>, R"({"chatroomId":"r3",})", kSyncDefaults, true},
    {"sync_wrong_kinds", decode<ZMChatRoomSyncMessage>,
     R"({"chatroomId":["r3"],"status":"1","reason":{},"time":"now"})", kSyncDefaults, false},
    // KV notification: key and value may arrive as numbers.
    {"kv_full", decode<ZMChatroomKVNotificationMessage>, R"({"type":1,"key":"k1","value":"v1","extra":"n"})",
     R"({"type":1,"key":"k1","value":"v1","extra":"n"})", false},
    {"kv_numbers_as_text", decode<ZMChatroomKVNotificationMessage>, R"({"type":2,"key":12,"value":345})",
     R"({"type":2,"key":"12","value":"345","extra":null})", false},
    {"kv_wrong_kinds", decode<ZMChatroomKVNotificationMessage>, R"({"type":"1","key":["k"],"value":{}})",
     R"({"type":0,"key":null,"value":null,"extra":null})", false},
    {"kv_invalid_json", decode<ZMChatroomKVNotificationMessage>, "{\"key\":\"\xff\"}",
     R"({"type":0,"key":null,"value":null,"extra":null})", true},
};

void PrintTo(const DecodeCase& c, std::ostream* os) { *os << c.name << ": " << c.payload; }

class SignalMessageDecodeTest : public testing::TestWithParam<DecodeCase> {};

TEST_P(SignalMessageDecodeTest, DecodesFieldsAndKeepsRawOnlyWhenUnparsable) {
    const DecodeCase& c = GetParam();
    ZMCoreEmulator::shared().logger().clear();
    Decoded decoded = c.decode(c.payload);
    EXPECT_EQ(decoded.fields, ZMValue::parse(c.expected));
    EXPECT_EQ(decoded.rawKept, c.rawKept);
    EXPECT_TRUE(ZMCoreEmulator::shared().logger().lines().empty()) << "decoding never logs";
}

INSTANTIATE_TEST_SUITE_P(Payloads, SignalMessageDecodeTest, testing::ValuesIn(kDecodeCases),
                         [](const auto& info) { return std::string(info.param.name); });

// Encoding then decoding into a fresh message gives the same fields back,
// base extra included.
TEST(SignalMessageCodecTest, EncodeDecodeRoundTrips) {
    ZMChatRoomMemberActionMessage member;
    member.userList = {std::make_shared<ZMChatRoomMemberAction>("u1", 1),
                       std::make_shared<ZMChatRoomMemberAction>("u2", 2)};
    member.memberCount = 18446744073709551615ull;
    member.extra = "m";

    ZMChatRoomMemberBlockMessage block;
    block.chatroomId = "r1";
    block.operateType = 1;
    block.durationTime = 30;
    block.operateTime = 1700000000123;
    block.userIdList = {"u1", "u2"};
    block.extra = "b";

    ZMChatRoomMemberBanMessage ban;
    ban.chatroomId = "r2";
    ban.banType = -4;
    ban.durationTime = 2147483648;
    ban.operateTime = -1;
    ban.userIdList = ZMValue::array();

    ZMChatRoomSyncMessage sync;
    sync.chatroomId = "r3";
    sync.status = 1;
    sync.reason = 7;
    sync.time = 9007199254740993;
    sync.extra = "s";

    auto kv = ZMChatroomKVNotificationMessage::notificationWithType(1, "k", "v", "n");

    auto roundTrip = [](const auto& message) {
        std::decay_t<decltype(message)> copy;
        std::optional<ZMData> data = message.encode();
        EXPECT_TRUE(data.has_value());
        if (data) copy.decodeWithData(*data);
        EXPECT_FALSE(copy.rawJSONData().has_value());
        EXPECT_EQ(fields(copy), fields(message));
    };
    roundTrip(member);
    roundTrip(block);
    roundTrip(ban);
    roundTrip(sync);
    roundTrip(*kv);
}

TEST(SignalMessageCodecTest, EncodedPayloadsUseTheWireKeys) {
    ZMChatRoomMemberBanMessage ban;
    ban.chatroomId = "r2";
    ban.banType = 3;
    ZMValue banPayload = payloadOf(ban.encode());
    EXPECT_EQ(banPayload.value("operateType", 0), 3);
    EXPECT_FALSE(banPayload.contains("banType"));
    EXPECT_FALSE(banPayload.contains("userList")) << "a missing user list is left out";

    ZMChatRoomMemberBlockMessage block;  // nothing set
    EXPECT_EQ(payloadOf(block.encode()),
              ZMValue::parse(R"({"operateType":0,"operateTime":0,"durationTime":0})"));

    ZMChatRoomSyncMessage sync;
    sync.chatroomId = "r3";
    sync.time = 1700000000456;
    sync.extra = "x";
    EXPECT_EQ(payloadOf(sync.encode()),
              ZMValue::parse(R"({"chatroomId":"r3","status":0,"reason":0,"time":1700000000456,"extra":"x"})"));

    // A removal notification carries no value; the extra travels as the base field.
    auto removal = ZMChatroomKVNotificationMessage::notificationWithType(ZMKVNotificationTypeRemove, "k", std::nullopt,
                                                                        "note");
    EXPECT_EQ(payloadOf(removal->encode()), ZMValue::parse(R"({"type":2,"key":"k","extra":"note"})"));

    // Payloads are compact: no line breaks or indentation.
    std::optional<ZMData> compact = sync.encode();
    ASSERT_TRUE(compact.has_value());
    EXPECT_EQ(std::string(compact->begin(), compact->end()).find_first_of("\n "), std::string::npos);
}

TEST(SignalMessageCodecTest, MemberEncodingDropsActionsWithoutMemberId) {
    ZMChatRoomMemberActionMessage message;
    message.userList = {std::make_shared<ZMChatRoomMemberAction>("u1", 1),
                        std::make_shared<ZMChatRoomMemberAction>("", 2),
                        std::make_shared<ZMChatRoomMemberAction>(std::nullopt, 3), nullptr,
                        std::make_shared<ZMChatRoomMemberAction>("u4", 4)};
    message.memberCount = 5;
    EXPECT_EQ(payloadOf(message.encode()),
              ZMValue::parse(R"({"userList":[{"userId":"u1","status":1},{"userId":"u4","status":4}],"memberCount":5})"));

    ZMChatRoomMemberActionMessage empty;
    EXPECT_EQ(payloadOf(empty.encode()), ZMValue::parse(R"({"userList":[],"memberCount":0})"));
}

// A string that is not UTF-8 cannot be written as JSON: encoding gives
// nothing, silently.
TEST(SignalMessageCodecTest, UnserialisableContentEncodesToNothingWithoutLog) {
    const std::string bad = "r\xc3";
    ZMCoreEmulator::shared().logger().clear();

    ZMChatRoomMemberActionMessage member;
    member.userList = {std::make_shared<ZMChatRoomMemberAction>(bad, 1)};
    ZMChatRoomMemberBlockMessage block;
    block.chatroomId = bad;
    ZMChatRoomMemberBanMessage ban;
    ban.userIdList = {bad};
    ZMChatRoomSyncMessage sync;
    sync.extra = bad;
    auto kv = ZMChatroomKVNotificationMessage::notificationWithType(1, "k", bad, std::nullopt);

    EXPECT_FALSE(member.encode().has_value());
    EXPECT_FALSE(block.encode().has_value());
    EXPECT_FALSE(ban.encode().has_value());
    EXPECT_FALSE(sync.encode().has_value());
    EXPECT_FALSE(kv->encode().has_value());
    EXPECT_TRUE(ZMCoreEmulator::shared().logger().lines().empty());
}

TEST(SignalMessageCodecTest, ObjectNamesAndPersistentFlags) {
    struct Expected {
        ZMMessageClass messageClass;
        const char* objectName;
        int32_t persistentFlag;
    };
    const Expected table[] = {
        {ZMMessageClass::of<ZMChatRoomMemberActionMessage>(), "ZM:ChrmMemChange", 16},
        {ZMMessageClass::of<ZMChatRoomMemberBlockMessage>(), "ZM:ChrmBlockMsg", 16},
        {ZMMessageClass::of<ZMChatRoomMemberBanMessage>(), "ZM:ChrmBanMsg", 16},
        {ZMMessageClass::of<ZMChatRoomSyncMessage>(), "ZM:ChrmSyncMsg", 16},
        {ZMMessageClass::of<ZMChatroomKVNotificationMessage>(), "ZM:chrmKVNotiMsg", 0},
    };
    for (const Expected& e : table) {
        EXPECT_EQ(e.messageClass.getObjectName(), e.objectName);
        EXPECT_EQ(e.messageClass.persistentFlag(), e.persistentFlag) << e.objectName;
        EXPECT_NE(e.messageClass.create(), nullptr) << e.objectName;
    }
}

// The archive form stores the type under "key" and then overwrites it with
// the key, so the type does not survive; key, value and extra do.
TEST(KVNotificationArchiveTest, TypeIsLostKeyValueAndExtraKept) {
    struct Case {
        std::optional<std::string> key, value, extra;
    };
    const Case cases[] = {{"k1", "v1", "e1"}, {"k2", std::nullopt, std::nullopt}, {std::nullopt, "v3", "e3"}};
    for (const Case& c : cases) {
        auto original = ZMChatroomKVNotificationMessage::notificationWithType(ZMKVNotificationTypeSet, c.key, c.value,
                                                                             c.extra);
        ZMKeyedArchiver archiver;
        original->encodeWithCoder(archiver);
        ZMKeyedUnarchiver reader(archiver.encodedData());
        ASSERT_TRUE(reader.isValid());
        EXPECT_FALSE(reader.containsValueForKey("type"));

        ZMChatroomKVNotificationMessage restored(reader);
        EXPECT_EQ(restored.type, 0);
        EXPECT_EQ(restored.key, c.key);
        EXPECT_EQ(restored.value, c.value);
        EXPECT_EQ(restored.extra, c.extra);
    }

    // Bytes that are no archive give a blank message.
    ZMChatroomKVNotificationMessage blank(ZMKeyedUnarchiver(bytes("garbage")));
    EXPECT_EQ(fields(blank), ZMValue::parse(R"({"type":0,"key":null,"value":null,"extra":null})"));
}

}  // namespace
