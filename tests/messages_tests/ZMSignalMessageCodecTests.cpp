// The chat-room signal messages against their wire payloads, malformed ones
// included, and the JSON text of log lines.

#include <gtest/gtest.h>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <Platform/ZMJSONSerialization.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberActionMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBanMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBlockMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomSyncMessage.h>
#include <ZMChatRoom/Messages/ZMChatroomKVNotificationMessage.h>
#include <ZMChatRoom/Utility/ZMChatRoomUtil.h>

#include "support/ZMNestedValues.h"
#include "support/ZMTestSupport.h"

namespace {

using Member = ZMChatRoomMemberActionMessage;
using Block = ZMChatRoomMemberBlockMessage;
using Ban = ZMChatRoomMemberBanMessage;
using Sync = ZMChatRoomSyncMessage;
using KV = ZMChatroomKVNotificationMessage;
ZMData bytes(const std::string& text) { return ZMData(text.begin(), text.end()); }
ZMValue text(const std::optional<std::string>& value) { return value ? ZMValue(*value) : ZMValue(); }
ZMEmulatedLogger& logger() { return ZMCoreEmulator::shared().logger(); }

// The fields of a message, or of the event made from it (same field names), as one dictionary.
template <class T>  // sync
auto fields(const T& m) -> decltype(void(m.reason), ZMValue()) {
    return {{"chatroomId", text(m.chatroomId)}, {"status", m.status}, {"reason", m.reason}, {"time", m.time}, {"extra", text(m.extra)}};
}
template <class T>  // block and ban
auto fields(const T& m) -> decltype(void(m.durationTime), ZMValue()) {
    ZMValue f = {{"chatroomId", text(m.chatroomId)}, {"durationTime", m.durationTime}, {"operateTime", m.operateTime},
                 {"userIdList", m.userIdList}, {"extra", text(m.extra)}};
    if constexpr (requires { m.banType; }) f["banType"] = m.banType; else f["operateType"] = m.operateType;
    return f;
}
ZMValue fields(const KV& m) { return {{"type", m.type}, {"key", text(m.key)}, {"value", text(m.value)}, {"extra", text(m.extra)}}; }
ZMValue fields(const Member& m) {
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

// Decodes the payload: 'u' (unparsable) when the raw bytes were kept, else 'p'. The fields must be
// `expected` (null: the payload) merged over a fresh message's, and survive encoding and decoding
// again unless `lossy` (actions without a member id are not encoded). Nothing is logged.
template <class M>
char decodes(const std::string& payload, const char* expected, bool lossy) {
    logger().clear();
    auto message = decoded<M>(payload);
    ZMValue want = fields(M());
    want.merge_patch(ZMValue::parse(expected ? expected : payload));
    EXPECT_EQ(fields(*message), want);
    std::optional<ZMData> data = message->encode();
    auto again = decoded<M>(data ? std::string(data->begin(), data->end()) : "");
    EXPECT_TRUE(data && !again->rawJSONData());
    if (!lossy) { EXPECT_EQ(fields(*again), fields(*message)); }
    EXPECT_TRUE(logger().lines().empty());
    return message->rawJSONData() == bytes(payload) ? 'u' : 'p';
}

TEST(SignalMessageCodecTest, DecodesKeepsRawOnlyWhenUnparsableAndRoundTrips) {
    const auto member = decodes<Member>, block = decodes<Block>, ban = decodes<Ban>, sync = decodes<Sync>, kv = decodes<KV>;
    struct Case { decltype(member) decode; const char *payload, *expected; char outcome; bool lossy = false; };
    const Case cases[] = {
        {member, R"({"userList":[)", "{}", 'u'},
        {member, R"({"userList":["u0",{"userId":"u1","status":1},7,null,[]],"memberCount":18446744073709551615,"extra":"e"})",
         R"({"userList":[["u1",1]],"memberCount":18446744073709551615,"extra":"e"})", 'p'},
        {member, R"({"userList":[{"status":2},{"userId":5,"status":"3"},{"userId":"u3"}]})", R"({"userList":[[null,2],[null,0],["u3",0]]})", 'p', true},
        {member, R"({"userList":{"userId":"u1"},"memberCount":"7"})", "{}", 'p'},
        // The user list's elements are kept as sent.
        {block, R"({"chatroomId":"r1","operateType":1,"operateTime":1700000000123,"durationTime":30,"userList":["u1",2,null,{"a":1}],"extra":"x"})",
         R"({"chatroomId":"r1","operateType":1,"durationTime":30,"operateTime":1700000000123,"userIdList":["u1",2,null,{"a":1}],"extra":"x"})", 'p'},
        {block, "not json", "{}", 'u'},
        {block, R"({"chatroomId":12,"operateType":"1","operateTime":"5","durationTime":[1],"userList":"u1"})", "{}", 'p'},
        // The ban type travels under "operateType"; "banType" is no wire key.
        {ban, R"({"chatroomId":"r2","operateType":-4,"banType":5,"operateTime":-1,"durationTime":2147483648,"userList":["u9"]})",
         R"({"chatroomId":"r2","banType":-4,"durationTime":2147483648,"operateTime":-1,"userIdList":["u9"]})", 'p'},
        {ban, R"("r2")", "{}", 'u'},
        {sync, R"({"chatroomId":"r3","status":1,"reason":2,"time":9007199254740993,"extra":"s"})", nullptr, 'p'},
        {sync, R"({"chatroomId":"r3",})", "{}", 'u'},
        {sync, R"({"chatroomId":["r3"],"status":"1","reason":{},"time":"now"})", "{}", 'p'},
        // Keys and values may arrive as numbers.
        {kv, R"({"type":2,"key":12,"value":345,"extra":"n"})", R"({"type":2,"key":"12","value":"345","extra":"n"})", 'p'},
        {kv, R"({"type":"1","key":["k"],"value":{}})", "{}", 'p'}, {kv, "{\"key\":\"\xff\"}", "{}", 'u'},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.payload);
        EXPECT_EQ(c.decode(c.payload, c.expected, c.lossy), c.outcome);
    }
}

// The payload a message encodes to after `set`, checked to be compact; nullopt when none.
template <class M>
std::optional<ZMValue> encoded(const std::function<void(M&)>& set) {
    M message;
    set(message);
    std::optional<ZMData> data = message.encode();
    if (data) { EXPECT_EQ(std::string(data->begin(), data->end()).find_first_of("\n "), std::string::npos); }
    return data ? std::optional(ZMValue::parse(*data)) : std::nullopt;
}

// Absent values are left out, actions without a member id dropped. A string that is not UTF-8
// cannot be written: encoding gives nothing. Nothing is logged. A null message gives a blank event.
TEST(SignalMessageCodecTest, EncodesWithTheWireKeysOrNothing) {
    const auto act = [](std::optional<std::string> id, int64_t code) { return std::make_shared<ZMChatRoomMemberAction>(id, code); };
    const std::string bad = "r\xc3";
    logger().clear();
    const std::pair<std::optional<ZMValue>, const char*> cases[] = {
        {encoded<Ban>([](Ban& m) { m.chatroomId = "r2"; m.banType = 3; }), R"({"chatroomId":"r2","operateType":3,"operateTime":0,"durationTime":0})"},
        {encoded<Block>([](Block&) {}), R"({"operateType":0,"operateTime":0,"durationTime":0})"},
        {encoded<Sync>([](Sync&) {}), R"({"status":0,"reason":0,"time":0})"},
        {encoded<KV>([](KV& m) { m = *KV::notificationWithType(ZMKVNotificationTypeRemove, "k", {}, "note"); }), R"({"type":2,"key":"k","extra":"note"})"},
        {encoded<Member>([&](Member& m) {
             m.userList = {act("u1", 1), act("", 2), act(std::nullopt, 3), nullptr, act("u4", 4)};
             m.memberCount = 5;
         }), R"({"userList":[{"userId":"u1","status":1},{"userId":"u4","status":4}],"memberCount":5})"},
        {encoded<Member>([](Member&) {}), R"({"userList":[],"memberCount":0})"},
        {encoded<Member>([&](Member& m) { m.userList = {act(bad, 1)}; }), nullptr}, {encoded<Block>([&](Block& m) { m.chatroomId = bad; }), nullptr},
        {encoded<Ban>([&](Ban& m) { m.userIdList = {bad}; }), nullptr}, {encoded<Sync>([&](Sync& m) { m.extra = bad; }), nullptr},
        {encoded<KV>([&](KV& m) { m = *KV::notificationWithType(1, "k", bad, {}); }), nullptr},
    };
    for (const auto& [payload, expected] : cases) EXPECT_EQ(payload, expected ? std::optional(ZMValue::parse(expected)) : std::nullopt);
    EXPECT_TRUE(logger().lines().empty());
    EXPECT_EQ(ZMValue::array({fields(*ZMChatRoomUtil::modelWithSyncMessage(nullptr)), fields(*ZMChatRoomUtil::modelWithBlockMessage(nullptr)),
                              fields(*ZMChatRoomUtil::modelWithBanMessage(nullptr))}), ZMValue::array({fields(Sync()), fields(Block()), fields(Ban())}));
}

// The archive form writes the type under "key", then the key over it: the type is lost, key, value
// and extra are kept. Bytes that are no archive give a blank message.
TEST(SignalMessageCodecTest, KVNotificationArchiveLosesTheTypeKeepsTheRest) {
    using Text = std::optional<std::string>;
    for (const auto& [key, value, extra] : {std::tuple<Text, Text, Text>{"k1", "v1", "e1"}, {"k2", {}, {}}, {{}, "v3", "e3"}}) {
        ZMKeyedArchiver archiver;
        KV::notificationWithType(ZMKVNotificationTypeSet, key, value, extra)->encodeWithCoder(archiver);
        ZMKeyedUnarchiver reader(archiver.encodedData());
        EXPECT_FALSE(reader.containsValueForKey("type"));
        EXPECT_EQ(fields(KV(reader)), (ZMValue{{"type", 0}, {"key", text(key)}, {"value", text(value)}, {"extra", text(extra)}}));
    }
    EXPECT_EQ(fields(KV(ZMKeyedUnarchiver(bytes("x")))), fields(KV()));
}

// Member actions share a few allocations, yet each is an object of its own: lists longer than one
// allocation, with skipped entries between, are read in order; the actions outlive their message
// and its next decoding, and each one changes alone.
TEST(SignalMessageCodecTest, MemberActionsAreOrderedDistinctAndOutliveTheirMessage) {
    for (int users : {3, 15, 16, 17, 33, 50}) {
        SCOPED_TRACE(users);
        ZMValue list = ZMValue::array();
        for (int i = 0; i < users; ++i) {
            if (i % 5 == 2) list.push_back(7);  // not a member: skipped
            list.push_back({{"userId", numbered("u", i)}, {"status", i % 3 + 1}});
        }
        auto message = decoded<Member>(ZMValue{{"userList", list}}.dump());
        auto kept = message->userList;
        message->decodeWithData(bytes(R"({"userList":[{"userId":"u9","status":2}]})"));
        EXPECT_EQ(fields(*message)["userList"], ZMValue::parse(R"([["u9",2]])"));
        message.reset();
        ASSERT_EQ(kept.size(), static_cast<size_t>(users));
        kept[0]->memberId = "changed";
        for (int i = 1; i < users; ++i) EXPECT_EQ(ZMValue({text(kept[i]->memberId), kept[i]->action}), ZMValue({numbered("u", i), i % 3 + 1}));
        auto last = kept.back();  // the last one alone keeps what it points to
        kept.clear();
        last->memberId = last->memberId.value() + "!";
        EXPECT_EQ(last->memberId, numbered("u", users - 1) + "!");
    }
}

// Nothing to print, or what the platform's writer refuses (its validity check is tested with
// the platform): "" and no line. Otherwise indented text the platform's parser reads back, nesting
// up to its limit included, from either helper.
TEST(ChatRoomUtilJSONTextTest, PrintsIndentedJSONOrNothing) {
    const std::pair<ZMValue, ZMValue> refused[] = {  // given to stringFromDict, stringFromArray
        {ZMValue(), ZMValue()}, {ZMValue::object(), ZMValue::array()}, {ZMValue("text"), ZMValue(5)},
        {ZMValue{{"d", {{"e", ZMValue::binary({1})}}}}, ZMValue::array({"ok", "\xc3"})}, {nestedValue(513, true), nestedValue(513, false)}};
    logger().clear();
    for (const auto& row : refused) {
        EXPECT_EQ(ZMChatRoomUtil::stringFromDict(row.first) + ZMChatRoomUtil::stringFromArray(row.second), "") << "row " << &row - refused;
    }
    EXPECT_TRUE(logger().lines().empty());
    for (const ZMValue& input : {ZMValue{{"a", 1}, {"b", {{"c", ZMValue::array({true, nullptr, 2.5})}}}}, nestedValue(512, false), nestedValue(512, true)}) {
        const std::string text = ZMChatRoomUtil::stringFromDict(input);
        EXPECT_EQ(ZMChatRoomUtil::stringFromArray(input), text);
        EXPECT_TRUE(text.find("\n ") != std::string::npos || text.find("\n\t") != std::string::npos) << text;
        EXPECT_EQ(ZMJSONSerialization::JSONObjectWithData(bytes(text)), input) << text;
    }
}

}  // namespace
