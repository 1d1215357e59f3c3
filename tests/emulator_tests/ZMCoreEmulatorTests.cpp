// The core emulator's requests (recording, rules, holding), pushes, modules,
// callback threads and its reset between tests.
#include <cstdio>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <set>

#include <Platform/ZMMainQueue.h>

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

// Each operation, issued with recording callbacks, and the arguments it is
// recorded with (besides "chatroomId": "r1").
#define ISSUE(call) [](ZMChatRoomPSManager& s, Callbacks& c) { s.call; }
using Issue = void (*)(ZMChatRoomPSManager&, Callbacks&);
const struct { const char* operation; Shape shape; Issue issue; ZMValue arguments; } kOperations[] = {
    {"joinChatroom", kJoin, ISSUE(joinChatroom("r1", 10, false, 0, c("result"))),
     ZMValue::parse(R"({"limit":10,"useCacheTime":false,"joinMode":0})")},
    {"joinExistingChatroom", kJoin, ISSUE(joinExistingChatroom("r1", -1, true, 1, c("result"))),
     ZMValue::parse(R"({"limit":-1,"useCacheTime":true,"joinMode":1})")},
    {"quitChatroom", kQuit, ISSUE(quitChatroom("r1", c("result"))), ZMValue::object()},
    {"setChatroomStatus", kPlain,
     ISSUE(setChatroomStatus("r1", "k", "v", true, false, true, "N", {'{', '}'}, 16, c("success"), c("error"))),
     ZMValue::parse(R"({"key":"k","value":"v","overwrite":true,"autoDelete":false,"sendNotification":true,
                        "notificationObjectName":"N","notificationContent":"{}","persistentFlag":16})")},
    // A payload that is not UTF-8 text is recorded as bytes.
    {"removeChatRoomStatus", kPlain,
     ISSUE(removeChatRoomStatus("r1", "k", false, false, "N", {0xff, 0, 'A'}, 0, c("success"), c("error"))),
     {{"key", "k"}, {"overwrite", false}, {"sendNotification", false}, {"notificationObjectName", "N"},
      {"notificationContent", ZMValue::binary({0xff, 0, 'A'})}, {"persistentFlag", 0}}},
    {"getChatRoomEntry", kDictionary, ISSUE(getChatRoomEntry("r1", "k", c("success"), c("error"))), {{"key", "k"}}},
    {"setChatRoomEntries", kEntries, ISSUE(setChatRoomEntries("r1", {{"a", "1"}}, 1, 1, c("success"), c("error"))),
     ZMValue::parse(R"({"entries":{"a":"1"},"overwrite":true,"autoDelete":true})")},
    {"removeChatRoomEntries", kEntries, ISSUE(removeChatRoomEntries("r1", {"a"}, false, c("success"), c("error"))),
     ZMValue::parse(R"({"keys":["a"],"overwrite":false})")},
    {"getChatRoomEntriesByBatch", kDictionary, ISSUE(getChatRoomEntriesByBatch("r1", {"a"}, c("success"), c("error"))),
     ZMValue::parse(R"({"keys":["a"]})")},
    {"getAllChatRoomEntries", kDictionary, ISSUE(getAllChatRoomEntries("r1", true, c("success"), c("error"))),
     {{"isSync", true}}},
    {"queryChatroomInfo", kDictionary, ISSUE(queryChatroomInfo("r1", 5, 2, c("success"), c("error"))),
     {{"limit", 5}, {"order", 2}}},
    {"getChatroomHistoryMessage", kHistory,
     ISSUE(getChatroomHistoryMessage("r1", 1000, 20, 1, "", c("history"), c("error"))),
     ZMValue::parse(R"({"sendTime":1000,"limit":20,"order":1,"channelId":""})")},
    {"bindRTCRoomForChatroom", kPlain, ISSUE(bindRTCRoomForChatroom("r1", "rtc", c("success"), c("error"))),
     {{"rtcRoomId", "rtc"}}},
};
#undef ISSUE

TEST(ZMCoreEmulatorRequests, EveryOperationIsRecordedAndAnsweredOnACallbackThread) {
    emulator().setKVServerModelEnabled(false);  // the plain defaults behind the rules
    const std::optional<ZMCoreAnswer> rules[] = {
        std::nullopt,
        ZMCoreAnswer{.result = {{"r", 1}}, .messages = {std::make_shared<ZMMessage>()}, .syncTime = 99, .hasMore = 1},
        ZMCoreAnswer::failure(7, {{"k", "v"}})};
    for (const auto& row : kOperations) {
        SCOPED_TRACE(row.operation);
        emulator().clearRequests();
        for (int i = 0; i < 3; ++i) {
            rules[i] ? emulator().setRule(row.operation, *rules[i]) : emulator().clearRules();
            Callbacks callbacks;
            row.issue(service(), callbacks);
            ASSERT_TRUE(emulator().waitUntilIdle());
            EXPECT_EQ(callbacks.events(), Strings{kAnswers[row.shape][i]});
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

TEST(ZMCoreEmulatorRequests, ComputedRulesSeeTheRequestAndHeldRequestsWaitForTheirAnswer) {
    emulator().setKVServerModelEnabled(false);  // the plain default answers the entry read
    emulator().setRule("joinChatroom", [](const ZMCoreRequest& request) -> std::optional<ZMCoreAnswer> {
        if (request.arguments["chatroomId"] == "bad") return ZMCoreAnswer::failure(23410);
        return ZMCoreAnswer::success({{"member_count_", request.arguments["limit"]}, {"id", request.id}});
    });
    emulator().holdRequests("quitChatroom");
    Callbacks c;
    for (const char* room : {"good", "bad"}) service().joinChatroom(room, 8, false, 0, c("result"));
    service().joinChatroom("bad", 8, false, 0, nullptr);  // empty callbacks are skipped
    service().getChatRoomEntry("r1", "k", nullptr, c("error"));
    emulator().setRule("joinChatroom", ZMCoreAnswer::failure(1));  // replaces the computed rule
    service().joinChatroom("good", 8, false, 0, c("result"));
    std::thread caller([&c] { service().quitChatroom("a", c("quit")), service().quitChatroom("b", c("quit")); });
    EXPECT_TRUE(emulator().waitForRequests("quitChatroom", 2));
    caller.join();
    EXPECT_FALSE(emulator().waitForRequests("quitChatroom", 3, 0.05));
    ASSERT_TRUE(emulator().waitUntilIdle());
    const std::string firstId = std::to_string(emulator().requests().at(0).id);
    EXPECT_EQ(c.events(),
              (Strings{"result:0:{\"id\":" + firstId + ",\"member_count_\":8}", "result:23410:{}", "result:1:{}"}));
    EXPECT_TRUE(emulator().logger().lines().empty());  // no callback raised
    c.clear();
    const auto held = emulator().heldRequests();
    ASSERT_EQ(held.size(), 2u);
    EXPECT_EQ(held[0].arguments, ZMValue({{"chatroomId", "a"}}));
    EXPECT_EQ(held[1].arguments, ZMValue({{"chatroomId", "b"}}));
    EXPECT_TRUE(emulator().answer(held[1].id, ZMCoreAnswer::failure(33003)));
    EXPECT_FALSE(emulator().answer(held[1].id, ZMCoreAnswer::success()));  // answered already
    EXPECT_FALSE(emulator().answer(held[1].id + 1000, ZMCoreAnswer::success()));
    ASSERT_TRUE(c.waitForCount(1));
    ASSERT_EQ(emulator().heldRequests().size(), 1u);
    EXPECT_EQ(emulator().heldRequests()[0].id, held[0].id);
    // A later rule ends the holding; the request already held stays held.
    emulator().setRule("quitChatroom", ZMCoreAnswer::success());
    service().quitChatroom("c", c("quit"));
    ASSERT_TRUE(c.waitForCount(2));
    EXPECT_TRUE(emulator().answer(held[0].id, ZMCoreAnswer::failure(2)));
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(c.events(), (Strings{"quit:33003", "quit:0", "quit:2"}));
}

TEST(ZMCoreEmulatorRequests, TheRecordKeepsTheNewestUpToItsCapacityAndCountsEveryOne) {
    EXPECT_EQ(emulator().requestCapacity(), 10000u);
    int room = 0;
    auto clear = [&](int n) {
        while (n--) service().clearChatroomMessageAndKVWithTargetId(numbered("r", ++room), true, true);
    };
    auto query = [&] { service().queryChatroomInfo(numbered("r", ++room), 1, 1, nullptr, nullptr); };
    auto capacity = [](size_t n) { emulator().setRequestCapacity(n); };
    const struct { const char* step; std::function<void()> act; Strings kept; size_t clears, queries; } steps[] = {
        {"capacity 3, five requests", [&] { capacity(3); clear(5); }, {"clear:r3", "clear:r4", "clear:r5"}, 5, 0},
        {"another operation", [&] { query(); }, {"clear:r4", "clear:r5", "query:r6"}, 5, 1},
        {"lowered to 1", [&] { capacity(1); }, {"query:r6"}, 5, 1},
        {"0 keeps none but counts", [&] { capacity(0); clear(1); }, {}, 6, 1},
        {"clearing forgets the counts", [&] { emulator().clearRequests(); }, {}, 0, 0},
        {"raised to 2", [&] { capacity(2); query(); clear(2); }, {"clear:r9", "clear:r10"}, 2, 1},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.step);
        step.act();
        Strings kept;
        for (const auto& request : emulator().requests()) {
            kept.push_back(request.operation.substr(0, 5) + ":" + request.arguments["chatroomId"].get<std::string>());
        }
        EXPECT_EQ(kept, step.kept);
        // Waiting reads the counts: a count reached is seen at once, one more is not there.
        for (auto [operation, count] : {std::pair{"clearChatroomMessageAndKVWithTargetId", step.clears},
                                        std::pair{"queryChatroomInfo", step.queries}}) {
            EXPECT_TRUE(emulator().waitForRequests(operation, count, 0));
            EXPECT_FALSE(emulator().waitForRequests(operation, count + 1, 0));
        }
    }
    EXPECT_EQ(emulator().requests().back().id, 10u);  // ids go on counting whatever is kept
}

TEST(ZMCoreEmulatorPushes, ReachTheLatestInstalledCallbacksAndAnAnswerNeverRunsInsideThem) {
    emulator().raiseStatusChange("r0");  // before any installation a push has nobody to reach
    ZMEventRecorder events;
    service().initChatRoomListener(recording(events, "old:status"), nullptr, nullptr);
    service().initChatRoomListener(recording(events, "new:status"), recording(events, "new:kv"),
                                   recording(events, "new:destroyed"));
    emulator().raiseStatusChange("r1");
    emulator().raiseKVChange("r1", {{"k", "v"}}, ZMValue::array({"gone"}));
    emulator().raiseRoomDestroyed("r1", 3);
    service().initChatRoomListener(nullptr, nullptr, recording(events, "only:destroyed"));  // empty ones are skipped
    emulator().raiseStatusChange("r2");
    emulator().raiseKVChange("r2", ZMValue::object(), ZMValue::object());
    emulator().raiseRoomDestroyed("r2", 0);
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(events.events(), (Strings{"new:status:r1", R"(new:kv:r1:{"k":"v"}:["gone"])", "new:destroyed:r1:3",
                                        "only:destroyed:r2:0"}));
    EXPECT_TRUE(emulator().logger().lines().empty());  // no callback raised
    // A push that issues a request: its answer comes after the push returned.
    auto push = [&events](const std::string&) {
        events.record("push begins");
        service().quitChatroom("r1", recording(events, "answer"));
        events.record("push ends");
    };
    service().initChatRoomListener(push, nullptr, nullptr);
    EXPECT_EQ(after(events, [] { emulator().raiseStatusChange("r1"); }),
              (Strings{"push begins", "push ends", "answer:0"}));
    service().initChatRoomListener(nullptr, nullptr, nullptr);  // they stay across resets; events would not
}

TEST(ZMCoreEmulatorModules, HearConnectionChangesLogoutAndMessagesInLoadOrderUntilOneHoldsIt) {
    auto& events = *new ZMEventRecorder();  // as long-lived as the modules that record into it
    // Types stay registered for the process: an earlier test may have registered the ping type.
    bool pingKnown = false;
    for (const auto& type : emulator().registeredMessageTypes()) pingKnown |= type.getObjectName() == "EMU:Ping";
    EXPECT_FALSE(emulator().deliverMessage("EMU:Ping", "{}", "r0").get());  // no module at all
    auto& passer = ZMTestModule::loadNew("passer", events);
    // Not registered yet (in a fresh process): the message has no content. Nobody holds it.
    EXPECT_FALSE(emulator().deliverMessage("EMU:Ping", R"({"text":"hi"})", "r0", true).get());
    auto& holder = ZMTestModule::loadNew("holder", events, true);
    auto& late = ZMTestModule::loadNew("late", events, true);
    // Loading the same module again does not make it hear everything twice.
    emulator().loadExtensionModule([&passer]() -> VemoIMLibExtensionModule& { return passer; });
    auto& client = ZMCoreClient::sharedCoreClient();
    emulator().setConnectionStatus(13);
    EXPECT_EQ(client.getConnectionStatus(), 13);
    emulator().logout();
    for (int i = 0; i < 2; ++i) client.registerMessageType(ZMMessageClass::of<ZMTestPingMessage>());  // twice: no harm
    EXPECT_TRUE(emulator().deliverMessage("EMU:Ping", R"({"text":"hi","extra":"x"})", "r1").get());
    const auto message = passer.lastMessage;
    EXPECT_EQ(message->targetId, "r1");
    EXPECT_FALSE(message->messageUId.empty());
    EXPECT_GT(message->sentTime, 0);
    auto* ping = dynamic_cast<ZMTestPingMessage*>(message->content.get());
    ASSERT_NE(ping, nullptr);
    EXPECT_EQ(ping->extra, "x");
    EXPECT_TRUE(emulator().deliverMessage("EMU:Ping", "[1]", "r2").get());
    ping = dynamic_cast<ZMTestPingMessage*>(passer.lastMessage->content.get());
    ASSERT_NE(ping, nullptr);
    EXPECT_EQ(ping->rawJSONData(), ZMData({'[', '1', ']'}));
    EXPECT_NE(passer.lastMessage->messageUId, message->messageUId);
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(events.events(), (Strings{pingKnown ? "passer:message:EMU:Ping,r0,hi,offline"
                                                  : "passer:message:EMU:Ping,r0,none,offline",
                                        "passer:status:13", "holder:status:13", "late:status:13", "passer:logout",
                                        "holder:logout", "late:logout", "passer:message:EMU:Ping,r1,hi",
                                        "holder:message:EMU:Ping,r1,hi", "passer:message:EMU:Ping,r2,-",
                                        "holder:message:EMU:Ping,r2,-"}));
    holder.setHoldsMessages(false);  // the modules stay loaded: later modules hear every message too
    late.setHoldsMessages(false);
}

TEST(ZMCoreEmulatorThreads, WaitUntilIdleCoversDeliveriesCausedByDeliveriesOnEveryThread) {
    // Deliveries go to the three threads in turn. The answers are held back
    // until all 30 are queued, so that no push queued by a running answer can
    // take a turn between two answers: answers then fill the turns 0..29 and
    // their pushes the turns 30..59, ten of each on every thread.
    emulator().setCallbackThreadCount(3);
    std::mutex mutex;
    std::map<std::string, std::set<std::thread::id>> threads;  // "answer" / "push" -> threads they ran on
    size_t delivered = 0;
    auto note = [&](const std::string& kind) {
        std::lock_guard<std::mutex> lock(mutex);
        threads[kind].insert(std::this_thread::get_id());
        ++delivered;
    };
    std::promise<void> allQueued;
    std::shared_future<void> queued = allQueued.get_future().share();
    service().initChatRoomListener([&](const std::string&) { note("push"); }, nullptr, nullptr);
    for (int i = 0; i < 30; ++i) {
        service().quitChatroom("r", [&, queued](int32_t) {
            queued.wait();
            EXPECT_FALSE(emulator().waitUntilIdle(5));  // would wait for itself
            emulator().raiseStatusChange("r");
            note("answer");
        });
    }
    EXPECT_FALSE(emulator().waitUntilIdle(0.05));  // times out while the answers wait
    allQueued.set_value();
    ASSERT_TRUE(emulator().waitUntilIdle());
    service().initChatRoomListener(nullptr, nullptr, nullptr);
    EXPECT_EQ(delivered, 60u);
    EXPECT_EQ(threads["answer"].size(), 3u);
    EXPECT_EQ(threads["push"].size(), 3u);
}

// Every part of the emulator is changed, the emulator is reset once, and then
// each part must behave as in a fresh process, except for what a real core
// keeps for the life of the process: loaded modules, registered message types,
// the installed listener callbacks and push listening.
TEST(ZMCoreEmulatorReset, PutsEveryPartBackAndKeepsWhatTheCoreKeepsForTheProcess) {
    auto& heard = *new ZMEventRecorder();  // the module, kept for the process, records into it
    ZMEventRecorder answers;
    auto& module = ZMTestModule::loadNew("kept", heard);
    auto& client = ZMCoreClient::sharedCoreClient();
    auto& navi = ZMNaviDataManager::sharedInstance();
    auto& mainQueue = ZMMainQueue::shared();
    ZMEmulatedLogger& logger = emulator().logger();
    client.registerMessageType(ZMMessageClass::of<ZMTestPingMessage>());
    service().initChatRoomListener(recording(heard, "sync"), recording(heard, "kv"), nullptr);
    service().setChatRoomPSListener();
    const auto typesBefore = emulator().registeredMessageTypes();
    const size_t timersBefore = mainQueue.activeTimerCount();
    struct Counting : ZMMessageContent {
        void decodeWithData(const ZMData&) override {}
        std::optional<ZMData> encode() const override { return ++encoded, ZMData{'{', '}'}; }
        mutable int encoded = 0;
    } content;
    auto join = [&](const char* room) { after(answers, [&] { service().joinChatroom(room, 0, false, 0, nullptr); }); };
    auto setKV = [](const char* room, bool notify) {
        service().setChatroomStatus(room, "k", "v", false, false, notify, "N", {'{', '}'}, 0, nullptr, nullptr);
    };
    auto answered = [&](const std::function<void(ZMEventRecorder&)>& step) {
        return after(answers, [&] { step(answers); });
    };

    // Change every part.
    emulator().setConnectionStatus(13);
    emulator().setRequestCapacity(1);
    emulator().setRule("queryChatroomInfo", ZMCoreAnswer::failure(7));
    emulator().holdRequests("bindRTCRoomForChatroom");
    auto token = std::make_shared<int>(0);
    const std::weak_ptr<int> heldCallbacks = token;
    service().bindRTCRoomForChatroom("r1", "rtc", [token] {}, [token](int32_t) {});
    token.reset();
    emulator().setCurrentUserId("bob");
    join("r-kv");
    after(answers, [&] { setKV("r-kv", true); });
    emulator().seedChatRoomEntries("r-seeded", {{"k", "v"}});
    ASSERT_EQ(emulator().kvNotifications().size(), 1u);
    emulator().setKVFirstSync(ZMCoreEmulator::KVFirstSync::AfterDelay, 1);
    join("r-later");
    ASSERT_EQ(mainQueue.activeTimerCount(), timersBefore + 1);
    emulator().setKVRoomCapacity(0);
    emulator().setKVFirstSync(ZMCoreEmulator::KVFirstSync::Never);
    emulator().setKVServerModelEnabled(false);
    emulator().setChatroomKVStorageEnabled(false);
    emulator().setChatroomMessageStoreEnabled(false);
    emulator().setMutliChatroomEnabled(false);
    // Without navigation data there is none; the switches set meanwhile are kept.
    emulator().setNaviDataAvailable(false);
    EXPECT_EQ(navi.naviData(), nullptr);
    emulator().setNaviDataAvailable(true);
    ASSERT_NE(navi.naviData(), nullptr);
    EXPECT_FALSE(navi.naviData()->isMutliChatroomEnabled());
    emulator().setNaviDataAvailable(false);
    emulator().setNaviDetectionResult("n", "i", "x");
    emulator().setNaviDetectionFails();
    after(answers, [] { ZMNetDetection::detectNavi(true, nullptr, nullptr); });
    emulator().setPayloadEncodingFails(true);
    EXPECT_EQ(client.payloadOfMessageContent(content), std::nullopt);  // the content is not even asked
    emulator().setCallbackThreadCount(3);
    for (int i = 0; i < 2; ++i) emulator().deliverMessage("EMU:Ping", "{}", "r1").wait();
    FILE* console = std::tmpfile();
    ASSERT_NE(console, nullptr);
    auto observed = std::make_shared<std::atomic<int>>(0);
    logger.setConsoleLevel(6);
    logger.setConsoleStream(console);
    logger.setLineObserver([observed](const ZMLogLine&) { ++*observed; });
    logger.setLineCapacity(1);
    logger.setRecording(false);
    ZMFwLog::getInstance().write(2, 1, "tag", "before");
    const long consolePrinted = std::ftell(console);
    ASSERT_GT(consolePrinted, 0);
    ASSERT_TRUE(emulator().waitUntilIdle());
    heard.clear();

    ASSERT_TRUE(emulator().reset());
    EXPECT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(client.getConnectionStatus(), 0);
    EXPECT_EQ(heard.events(), Strings{});  // the modules hear of no status change
    EXPECT_TRUE(emulator().requests().empty());
    EXPECT_EQ(emulator().requestCapacity(), 10000u);
    EXPECT_TRUE(emulator().heldRequests().empty());
    EXPECT_TRUE(heldCallbacks.expired());  // released, never called
    EXPECT_EQ(emulator().currentUserId(), "emulator-user");
    EXPECT_EQ(emulator().chatRoomEntries("r-kv"), ZMValue::object());
    EXPECT_EQ(emulator().chatRoomEntries("r-seeded"), ZMValue::object());
    EXPECT_TRUE(emulator().kvNotifications().empty());
    EXPECT_EQ(mainQueue.activeTimerCount(), timersBefore);  // the pending first synchronisation is gone
    EXPECT_EQ(after(heard, [&] { mainQueue.advance(2); }), Strings{});
    EXPECT_EQ(answered([](auto& a) { service().queryChatroomInfo("r1", 1, 1, recording(a, "ok"), nullptr); }),
              Strings{"ok:{}"});
    ASSERT_EQ(emulator().requests().size(), 1u);
    EXPECT_EQ(emulator().requests()[0].id, 1u);  // numbered afresh
    EXPECT_EQ(answered([](auto& a) { service().bindRTCRoomForChatroom("r1", "rtc", recording(a, "ok"), nullptr); }),
              Strings{"ok"});
    EXPECT_EQ(answered([](auto& a) { service().getAllChatRoomEntries("r-kv", 1, nullptr, recording(a, "no")); }),
              Strings{"no:23406"});  // no longer in the room
    // Room capacity, first synchronisation and the model itself are back.
    EXPECT_EQ(after(heard, [&] { join("r-new"), setKV("r-new", false); }),
              (Strings{"sync:r-new", R"(kv:r-new:{"k":"v"}:{})"}));
    EXPECT_EQ(emulator().chatRoomEntryOwner("r-new", "k"), "emulator-user");
    ASSERT_NE(navi.naviData(), nullptr);
    EXPECT_TRUE(navi.naviData()->isChatroomKVStorageEnabled());
    EXPECT_TRUE(navi.naviData()->isChatroomMessageStoreEnabled());
    EXPECT_TRUE(navi.naviData()->isMutliChatroomEnabled());
    EXPECT_EQ(emulator().naviDetectionCount(), 0u);
    EXPECT_EQ(answered([](auto& a) { ZMNetDetection::detectNavi(true, recording(a, "found"), nullptr); }),
              Strings{"found:navi.emulator:127.0.0.1:wifi"});
    EXPECT_EQ(client.payloadOfMessageContent(content), ZMData({'{', '}'}));
    EXPECT_EQ(content.encoded, 1);
    std::mutex mutex;
    std::set<std::thread::id> answerThreads;
    after(answers, [&] {
        for (int i = 0; i < 3; ++i) {
            service().queryChatroomInfo("r1", 1, 1, [&](const ZMValue&) {
                std::lock_guard<std::mutex> lock(mutex);
                answerThreads.insert(std::this_thread::get_id());
            }, nullptr);
        }
    });
    EXPECT_EQ(answerThreads.size(), 1u);
    // The module and its type stay; message ids start over.
    EXPECT_EQ(after(heard, [] { emulator().deliverMessage("EMU:Ping", R"({"text":"hi"})", "r1").wait(); }),
              Strings{"kept:message:EMU:Ping,r1,hi"});
    EXPECT_EQ(module.lastMessage->messageUId, "EMU-1");
    EXPECT_TRUE(logger.lines().empty());
    const int observedBefore = observed->load();
    ZMFwLog::getInstance().write(2, 1, "tag", "one");
    ZMFwLog::getInstance().write(2, 1, "tag", "two");
    EXPECT_EQ(logger.lines().size(), 2u);
    EXPECT_EQ(observed->load(), observedBefore);
    EXPECT_EQ(std::ftell(console), consolePrinted);
    logger.clear();
    std::fclose(console);
    // The listener callbacks and push listening stay.
    EXPECT_TRUE(emulator().isPushListening());
    EXPECT_TRUE(emulator().registeredMessageTypes() == typesBefore);
    EXPECT_EQ(after(heard, [] { emulator().raiseKVChange("r1", {{"k", "v"}}, ZMValue::object()); }),
              Strings{R"(kv:r1:{"k":"v"}:{})"});
    service().initChatRoomListener(nullptr, nullptr, nullptr);
}

}  // namespace
