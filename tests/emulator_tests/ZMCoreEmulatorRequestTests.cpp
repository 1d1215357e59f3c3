#include <functional>
#include <optional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "emulator_tests/ZMEmulatorTestDoubles.h"

namespace {

// Hands out recording callbacks of every shape. A callback may still be on its
// way out when the test has seen its event: the recorder outlives every delivery.
struct Callbacks : ZMEventRecorder {
    ~Callbacks() { emulator().waitUntilIdle(); }
    auto operator()(std::string name) { return recording(*this, std::move(name)); }
};

// What the callbacks of each shape record without a rule, for the success
// answer ({"r":1}, one message, time 99, more) and for failure 7 with {"k":"v"}.
enum Shape { kJoin, kQuit, kPlain, kDictionary, kEntries, kHistory };
const std::string kAnswers[][3] = {
    {"result:0:{}", R"(result:0:{"r":1})", R"(result:7:{"k":"v"})"}, {"result:0", "result:0", "result:7"},
    {"success", "success", "error:7"}, {"success:{}", R"(success:{"r":1})", "error:7"},
    {"success", "success", R"(error:7:{"k":"v"})"}, {"history:0:0:0", "history:1:99:1", "error:7"}};

// Each operation with the arguments it is recorded with (besides "chatroomId": "r1").
const struct {
    const char* operation;
    Shape shape;
    std::function<void(ZMChatRoomPSManager&, Callbacks&)> issue;
    ZMValue arguments;
} kOperations[] = {
    {"joinChatroom", kJoin, [](auto& s, auto& c) { s.joinChatroom("r1", 10, false, 0, c("result")); },
     {{"limit", 10}, {"useCacheTime", false}, {"joinMode", 0}}},
    {"joinExistingChatroom", kJoin, [](auto& s, auto& c) { s.joinExistingChatroom("r1", -1, true, 1, c("result")); },
     {{"limit", -1}, {"useCacheTime", true}, {"joinMode", 1}}},
    {"quitChatroom", kQuit, [](auto& s, auto& c) { s.quitChatroom("r1", c("result")); }, ZMValue::object()},
    {"setChatroomStatus", kPlain,
     [](auto& s, auto& c) {
         s.setChatroomStatus("r1", "k", "v", true, false, true, "N", {'{', '}'}, 16, c("success"), c("error"));
     },
     {{"key", "k"}, {"value", "v"}, {"overwrite", true}, {"autoDelete", false}, {"sendNotification", true},
      {"notificationObjectName", "N"}, {"notificationContent", "{}"}, {"persistentFlag", 16}}},
    // A payload that is not UTF-8 text is recorded as bytes.
    {"removeChatRoomStatus", kPlain,
     [](auto& s, auto& c) {
         s.removeChatRoomStatus("r1", "k", false, false, "N", {0xff, 0, 'A'}, 0, c("success"), c("error"));
     },
     {{"key", "k"}, {"overwrite", false}, {"sendNotification", false}, {"notificationObjectName", "N"},
      {"notificationContent", ZMValue::binary({0xff, 0, 'A'})}, {"persistentFlag", 0}}},
    {"getChatRoomEntry", kDictionary, [](auto& s, auto& c) { s.getChatRoomEntry("r1", "k", c("success"), c("error")); },
     {{"key", "k"}}},
    {"setChatRoomEntries", kEntries,
     [](auto& s, auto& c) { s.setChatRoomEntries("r1", {{"a", "1"}}, true, true, c("success"), c("error")); },
     {{"entries", {{"a", "1"}}}, {"overwrite", true}, {"autoDelete", true}}},
    {"removeChatRoomEntries", kEntries,
     [](auto& s, auto& c) { s.removeChatRoomEntries("r1", {"a"}, false, c("success"), c("error")); },
     {{"keys", {"a"}}, {"overwrite", false}}},
    {"getChatRoomEntriesByBatch", kDictionary,
     [](auto& s, auto& c) { s.getChatRoomEntriesByBatch("r1", {"a"}, c("success"), c("error")); }, {{"keys", {"a"}}}},
    {"getAllChatRoomEntries", kDictionary,
     [](auto& s, auto& c) { s.getAllChatRoomEntries("r1", true, c("success"), c("error")); }, {{"isSync", true}}},
    {"queryChatroomInfo", kDictionary,
     [](auto& s, auto& c) { s.queryChatroomInfo("r1", 5, 2, c("success"), c("error")); }, {{"limit", 5}, {"order", 2}}},
    {"getChatroomHistoryMessage", kHistory,
     [](auto& s, auto& c) { s.getChatroomHistoryMessage("r1", 1000, 20, 1, "", c("history"), c("error")); },
     {{"sendTime", 1000}, {"limit", 20}, {"order", 1}, {"channelId", ""}}},
    {"bindRTCRoomForChatroom", kPlain,
     [](auto& s, auto& c) { s.bindRTCRoomForChatroom("r1", "rtc", c("success"), c("error")); }, {{"rtcRoomId", "rtc"}}},
};

TEST(ZMCoreEmulatorRequests, EveryOperationIsRecordedAndAnsweredOnACallbackThread) {
    // The plain defaults behind the rules; the KV server model has tests of its own.
    emulator().setKVServerModelEnabled(false);
    const std::optional<ZMCoreAnswer> rules[] = {
        std::nullopt,  // no rule
        ZMCoreAnswer{.result = {{"r", 1}}, .messages = {std::make_shared<ZMMessage>()}, .syncTime = 99,
                     .hasMore = true},
        ZMCoreAnswer::failure(7, {{"k", "v"}})};
    for (const auto& row : kOperations) {
        SCOPED_TRACE(row.operation);
        emulator().clearRequests();
        for (int i = 0; i < 3; ++i) {
            rules[i] ? emulator().setRule(row.operation, *rules[i]) : emulator().clearRules();
            Callbacks callbacks;
            row.issue(service(), callbacks);
            ASSERT_TRUE(emulator().waitUntilIdle());
            EXPECT_EQ(callbacks.events(), std::vector<std::string>{kAnswers[row.shape][i]});
        }
        const auto recorded = emulator().requests();
        ASSERT_EQ(recorded.size(), 3u);
        ZMValue arguments = row.arguments;
        arguments["chatroomId"] = "r1";
        EXPECT_EQ(recorded[0].operation, row.operation);
        EXPECT_EQ(recorded[0].arguments, arguments);
        EXPECT_LT(recorded[0].id, recorded[1].id);
    }
}

TEST(ZMCoreEmulatorRequests, ComputedRulesSeeTheRequestAndEmptyCallbacksAreSkipped) {
    emulator().setKVServerModelEnabled(false);  // the plain default answers the entry read
    emulator().clearRequests();
    emulator().setRule("joinChatroom", [](const ZMCoreRequest& request) -> std::optional<ZMCoreAnswer> {
        if (request.arguments["chatroomId"] == "bad") return ZMCoreAnswer::failure(23410);
        return ZMCoreAnswer::success({{"member_count_", request.arguments["limit"]}, {"id", request.id}});
    });
    Callbacks c;
    for (const char* room : {"good", "bad"}) service().joinChatroom(room, 8, false, 0, c("result"));
    service().joinChatroom("bad", 8, false, 0, nullptr);
    service().getChatRoomEntry("r1", "k", nullptr, c("error"));
    emulator().setRule("joinChatroom", ZMCoreAnswer::failure(1));  // replaces the computed rule
    service().joinChatroom("good", 8, false, 0, c("result"));
    ASSERT_TRUE(emulator().waitUntilIdle());
    const std::string firstId = std::to_string(emulator().requests().at(0).id);
    EXPECT_EQ(c.events(), (std::vector<std::string>{"result:0:{\"id\":" + firstId + ",\"member_count_\":8}",
                                                    "result:23410:{}", "result:1:{}"}));
    EXPECT_TRUE(emulator().logger().lines().empty());  // no callback raised
}

TEST(ZMCoreEmulatorRequests, HeldRequestsWaitForTheirAnswerAndUnknownIdsAreRefused) {
    emulator().holdRequests("quitChatroom");
    Callbacks c;
    std::thread caller([&c] {
        service().quitChatroom("a", c("result"));
        service().quitChatroom("b", c("result"));
    });
    EXPECT_TRUE(emulator().waitForRequests("quitChatroom", 2));
    caller.join();
    EXPECT_FALSE(emulator().waitForRequests("quitChatroom", 3, 0.05));
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(c.count(), 0u);
    const auto held = emulator().heldRequests();
    ASSERT_EQ(held.size(), 2u);
    EXPECT_EQ(held[0].arguments, ZMValue({{"chatroomId", "a"}}));
    EXPECT_EQ(held[1].arguments, ZMValue({{"chatroomId", "b"}}));

    EXPECT_TRUE(emulator().answer(held[1].id, ZMCoreAnswer::failure(33003)));
    EXPECT_FALSE(emulator().answer(held[1].id, ZMCoreAnswer::success()));
    EXPECT_FALSE(emulator().answer(held[1].id + 1000, ZMCoreAnswer::success()));
    ASSERT_TRUE(c.waitForCount(1));
    ASSERT_EQ(emulator().heldRequests().size(), 1u);
    EXPECT_EQ(emulator().heldRequests()[0].id, held[0].id);

    // A later rule ends the holding; the request already held stays held.
    emulator().setRule("quitChatroom", ZMCoreAnswer::success());
    service().quitChatroom("c", c("result"));
    ASSERT_TRUE(c.waitForCount(2));
    EXPECT_TRUE(emulator().answer(held[0].id, ZMCoreAnswer::failure(2)));
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(c.events(), (std::vector<std::string>{"result:33003", "result:0", "result:2"}));
}

}  // namespace
