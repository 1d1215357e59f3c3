#include <functional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "emulator_tests/ZMEmulatorTestDoubles.h"

namespace {

ZMChatRoomPSManager& service() { return ZMKernel::sharedInstance().chatRoomPSManager(); }
ZMCoreEmulator& emulator() { return ZMCoreEmulator::shared(); }

// Callbacks of every shape; each records what it receives and its thread.
struct Callbacks {
    // A callback may still be on its way out of record() when the test has
    // seen its event; the recorder must outlive every delivery.
    ~Callbacks() { ZMCoreEmulator::shared().waitUntilIdle(); }

    void record(std::string event) {
        thread = std::this_thread::get_id();
        events.record(std::move(event));
    }
    ZMChatRoomJoinResultBlock join() {
        return [this](int32_t code, const ZMValue& r) { record("result:" + std::to_string(code) + ":" + r.dump()); };
    }
    ZMChatRoomQuitResultBlock quit() { return [this](int32_t code) { record("result:" + std::to_string(code)); }; }
    ZMCoreSuccessBlock success() { return [this] { record("success"); }; }
    ZMCoreDictionaryBlock dictionary() { return [this](const ZMValue& d) { record("success:" + d.dump()); }; }
    ZMCoreErrorBlock error() { return [this](int32_t code) { record("error:" + std::to_string(code)); }; }
    ZMCoreEntriesErrorBlock entriesError() {
        return [this](int32_t code, const ZMValue& f) { record("error:" + std::to_string(code) + ":" + f.dump()); };
    }
    ZMCoreHistoryBlock history() {
        return [this](const std::vector<std::shared_ptr<ZMMessage>>& messages, int64_t time, bool more) {
            record("history:" + std::to_string(messages.size()) + ":" + std::to_string(time) + ":" +
                   std::to_string(more));
        };
    }

    ZMEventRecorder events;
    std::atomic<std::thread::id> thread{};
};

// What the callbacks of each shape record for the success answer
// ({"r":1}, one message, time 99, more) and for failure 7 with {"k":"v"}.
enum class Shape { Join, Quit, Plain, Dictionary, Entries, History };
std::pair<std::string, std::string> expectedEvents(Shape shape) {
    switch (shape) {
        case Shape::Join: return {R"(result:0:{"r":1})", R"(result:7:{"k":"v"})"};
        case Shape::Quit: return {"result:0", "result:7"};
        case Shape::Plain: return {"success", "error:7"};
        case Shape::Dictionary: return {R"(success:{"r":1})", "error:7"};
        case Shape::Entries: return {"success", R"(error:7:{"k":"v"})"};
        case Shape::History: return {"history:1:99:1", "error:7"};
    }
    return {};
}

struct OperationRow {
    const char* operation;
    Shape shape;
    std::function<void(Callbacks&)> issue;
    ZMValue arguments;
};

const OperationRow kOperations[] = {
    {"joinChatroom", Shape::Join, [](Callbacks& c) { service().joinChatroom("r1", 10, false, 0, c.join()); },
     {{"chatroomId", "r1"}, {"limit", 10}, {"useCacheTime", false}, {"joinMode", 0}}},
    {"joinExistingChatroom", Shape::Join,
     [](Callbacks& c) { service().joinExistingChatroom("r1", -1, true, 1, c.join()); },
     {{"chatroomId", "r1"}, {"limit", -1}, {"useCacheTime", true}, {"joinMode", 1}}},
    {"quitChatroom", Shape::Quit, [](Callbacks& c) { service().quitChatroom("r1", c.quit()); },
     {{"chatroomId", "r1"}}},
    {"setChatroomStatus", Shape::Plain,
     [](Callbacks& c) {
         service().setChatroomStatus("r1", "k", "v", true, false, true, "N", {'{', '}'}, 16, c.success(), c.error());
     },
     {{"chatroomId", "r1"}, {"key", "k"}, {"value", "v"}, {"overwrite", true}, {"autoDelete", false},
      {"sendNotification", true}, {"notificationObjectName", "N"}, {"notificationContent", "{}"},
      {"persistentFlag", 16}}},
    {"removeChatRoomStatus", Shape::Plain,
     [](Callbacks& c) { service().removeChatRoomStatus("r1", "k", false, false, "N", {}, 0, c.success(), c.error()); },
     {{"chatroomId", "r1"}, {"key", "k"}, {"overwrite", false}, {"sendNotification", false},
      {"notificationObjectName", "N"}, {"notificationContent", ""}, {"persistentFlag", 0}}},
    {"getChatRoomEntry", Shape::Dictionary,
     [](Callbacks& c) { service().getChatRoomEntry("r1", "k", c.dictionary(), c.error()); },
     {{"chatroomId", "r1"}, {"key", "k"}}},
    {"setChatRoomEntries", Shape::Entries,
     [](Callbacks& c) { service().setChatRoomEntries("r1", {{"a", "1"}}, true, true, c.success(), c.entriesError()); },
     {{"chatroomId", "r1"}, {"entries", {{"a", "1"}}}, {"overwrite", true}, {"autoDelete", true}}},
    {"removeChatRoomEntries", Shape::Entries,
     [](Callbacks& c) {
         service().removeChatRoomEntries("r1", ZMValue::array({"a"}), false, c.success(), c.entriesError());
     },
     {{"chatroomId", "r1"}, {"keys", {"a"}}, {"overwrite", false}}},
    {"getChatRoomEntriesByBatch", Shape::Dictionary,
     [](Callbacks& c) { service().getChatRoomEntriesByBatch("r1", ZMValue::array({"a"}), c.dictionary(), c.error()); },
     {{"chatroomId", "r1"}, {"keys", {"a"}}}},
    {"getAllChatRoomEntries", Shape::Dictionary,
     [](Callbacks& c) { service().getAllChatRoomEntries("r1", true, c.dictionary(), c.error()); },
     {{"chatroomId", "r1"}, {"isSync", true}}},
    {"queryChatroomInfo", Shape::Dictionary,
     [](Callbacks& c) { service().queryChatroomInfo("r1", 5, 2, c.dictionary(), c.error()); },
     {{"chatroomId", "r1"}, {"limit", 5}, {"order", 2}}},
    {"getChatroomHistoryMessage", Shape::History,
     [](Callbacks& c) { service().getChatroomHistoryMessage("r1", 1000, 20, 1, "", c.history(), c.error()); },
     {{"chatroomId", "r1"}, {"sendTime", 1000}, {"limit", 20}, {"order", 1}, {"channelId", ""}}},
    {"bindRTCRoomForChatroom", Shape::Plain,
     [](Callbacks& c) { service().bindRTCRoomForChatroom("r1", "rtc", c.success(), c.error()); },
     {{"chatroomId", "r1"}, {"rtcRoomId", "rtc"}}},
};

TEST(ZMCoreEmulatorRequests, EveryOperationIsRecordedAndAnsweredOnACallbackThread) {
    ZMCoreAnswer success = ZMCoreAnswer::success({{"r", 1}});
    success.messages = {std::make_shared<ZMMessage>()};
    success.syncTime = 99;
    success.hasMore = true;
    for (const auto& row : kOperations) {
        SCOPED_TRACE(row.operation);
        emulator().clearRequests();
        const auto [onSuccess, onFailure] = expectedEvents(row.shape);
        const std::pair<ZMCoreAnswer, std::string> cases[] = {{success, onSuccess},
                                                              {ZMCoreAnswer::failure(7, {{"k", "v"}}), onFailure}};
        for (const auto& [answer, expected] : cases) {
            emulator().setRule(row.operation, answer);
            Callbacks callbacks;
            row.issue(callbacks);
            ASSERT_TRUE(callbacks.events.waitForCount(1));
            ASSERT_TRUE(emulator().waitUntilIdle());
            EXPECT_EQ(callbacks.events.events(), std::vector<std::string>{expected});
            EXPECT_NE(callbacks.thread.load(), std::this_thread::get_id());
        }
        const auto recorded = emulator().requests();
        ASSERT_EQ(recorded.size(), 2u);
        EXPECT_EQ(recorded[0].operation, row.operation);
        EXPECT_EQ(recorded[0].arguments, row.arguments);
        EXPECT_LT(recorded[0].id, recorded[1].id);
    }
}

TEST(ZMCoreEmulatorRequests, WithoutARuleEveryRequestSucceedsEmptyAndEmptyCallbacksAreSkipped) {
    Callbacks callbacks;
    service().joinChatroom("r1", 0, false, 0, callbacks.join());
    service().getChatroomHistoryMessage("r1", 0, 10, 0, "", callbacks.history(), nullptr);
    service().getAllChatRoomEntries("r1", false, callbacks.dictionary(), nullptr);
    service().joinChatroom("r1", 0, false, 0, nullptr);
    service().setChatRoomEntries("r1", ZMValue::object(), false, false, nullptr, callbacks.entriesError());
    service().getChatRoomEntry("r1", "k", nullptr, callbacks.error());
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(callbacks.events.events(), (std::vector<std::string>{"result:0:{}", "history:0:0:0", "success:{}"}));
    EXPECT_EQ(emulator().requests().size(), 6u);
}

TEST(ZMCoreEmulatorRequests, NonTextPayloadIsRecordedAsBytes) {
    const ZMData bytes = {0xff, 0x00, 0x41};
    service().setChatroomStatus("r1", "k", "v", false, false, false, "N", bytes, 0, nullptr, nullptr);
    const ZMValue content = emulator().requests("setChatroomStatus").at(0).arguments["notificationContent"];
    ASSERT_TRUE(content.is_binary());
    EXPECT_EQ(ZMData(content.get_binary().begin(), content.get_binary().end()), bytes);
}

TEST(ZMCoreEmulatorRequests, ComputedRulesSeeTheRequestAndReplaceEachOther) {
    emulator().setRule("joinChatroom", [](const ZMCoreRequest& request) -> std::optional<ZMCoreAnswer> {
        if (request.arguments["chatroomId"] == "bad") return ZMCoreAnswer::failure(23410);
        return ZMCoreAnswer::success({{"member_count_", request.arguments["limit"]}, {"id", request.id}});
    });
    Callbacks callbacks;
    service().joinChatroom("good", 8, false, 0, callbacks.join());
    service().joinChatroom("bad", 8, false, 0, callbacks.join());
    emulator().setRule("joinChatroom", ZMCoreAnswer::failure(1));
    service().joinChatroom("good", 8, false, 0, callbacks.join());
    emulator().clearRules();
    service().joinChatroom("good", 8, false, 0, callbacks.join());
    ASSERT_TRUE(emulator().waitUntilIdle());
    const std::string firstId = std::to_string(emulator().requests("joinChatroom").at(0).id);
    EXPECT_EQ(callbacks.events.events(),
              (std::vector<std::string>{"result:0:{\"id\":" + firstId + ",\"member_count_\":8}", "result:23410:{}",
                                        "result:1:{}", "result:0:{}"}));
}

TEST(ZMCoreEmulatorRequests, HeldRequestsWaitForTheirAnswer) {
    emulator().holdRequests("quitChatroom");
    Callbacks callbacks;
    service().quitChatroom("a", callbacks.quit());
    service().quitChatroom("b", callbacks.quit());
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(callbacks.events.count(), 0u);
    const auto held = emulator().heldRequests();
    ASSERT_EQ(held.size(), 2u);
    EXPECT_EQ(held[0].arguments, ZMValue({{"chatroomId", "a"}}));
    EXPECT_EQ(held[1].arguments, ZMValue({{"chatroomId", "b"}}));

    EXPECT_TRUE(emulator().answer(held[1].id, ZMCoreAnswer::failure(33003)));
    EXPECT_FALSE(emulator().answer(held[1].id, ZMCoreAnswer::success()));
    EXPECT_FALSE(emulator().answer(held[1].id + 1000, ZMCoreAnswer::success()));
    ASSERT_TRUE(callbacks.events.waitForCount(1));
    EXPECT_NE(callbacks.thread.load(), std::this_thread::get_id());
    ASSERT_EQ(emulator().heldRequests().size(), 1u);
    EXPECT_EQ(emulator().heldRequests()[0].id, held[0].id);

    // A later rule ends the holding; the request already held stays held.
    emulator().setRule("quitChatroom", ZMCoreAnswer::success());
    service().quitChatroom("c", callbacks.quit());
    ASSERT_TRUE(callbacks.events.waitForCount(2));
    EXPECT_TRUE(emulator().answer(held[0].id, ZMCoreAnswer::failure(2)));
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(callbacks.events.events(), (std::vector<std::string>{"result:33003", "result:0", "result:2"}));
}

TEST(ZMCoreEmulatorRequests, ARuleThatThrowsHoldsTheRequestAndLogs) {
    emulator().logger().clear();
    emulator().setRule("bindRTCRoomForChatroom",
                       [](const ZMCoreRequest&) -> std::optional<ZMCoreAnswer> { throw std::runtime_error("boom"); });
    Callbacks callbacks;
    service().bindRTCRoomForChatroom("r1", "rtc", callbacks.success(), callbacks.error());
    const auto held = emulator().heldRequests();
    ASSERT_EQ(held.size(), 1u);
    const auto lines = emulator().logger().lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, 2);
    EXPECT_NE(lines[0].text.find("boom"), std::string::npos);
    EXPECT_TRUE(emulator().answer(held[0].id, ZMCoreAnswer::failure(5)));
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(callbacks.events.events(), std::vector<std::string>{"error:5"});
}

TEST(ZMCoreEmulatorRequests, ListenerSetUpAndLocalClearingAreRecordedWithoutAnswers) {
    EXPECT_FALSE(emulator().isPushListening());
    service().initChatRoomListener(nullptr, nullptr, nullptr);
    service().setChatRoomPSListener();
    service().clearChatroomMessageAndKVWithTargetId("r1", true, false);
    EXPECT_TRUE(emulator().isPushListening());
    const auto recorded = emulator().requests();
    ASSERT_EQ(recorded.size(), 3u);
    EXPECT_EQ(recorded[0].operation + "," + recorded[1].operation + "," + recorded[2].operation,
              "initChatRoomListener,setChatRoomPSListener,clearChatroomMessageAndKVWithTargetId");
    EXPECT_EQ(recorded[2].arguments, ZMValue({{"chatroomId", "r1"}, {"clearMsg", true}, {"clearKv", false}}));
}

TEST(ZMCoreEmulatorRequests, WaitForRequestsWaitsForRequestsFromOtherThreads) {
    EXPECT_FALSE(emulator().waitForRequests("quitChatroom", 1, 0.05));
    std::thread caller([] {
        for (int i = 0; i < 3; ++i) service().quitChatroom("r" + std::to_string(i), nullptr);
    });
    EXPECT_TRUE(emulator().waitForRequests("quitChatroom", 3));
    caller.join();
    EXPECT_FALSE(emulator().waitForRequests("quitChatroom", 4, 0.05));
    emulator().clearRequests();
    EXPECT_TRUE(emulator().requests().empty());
}

}  // namespace
