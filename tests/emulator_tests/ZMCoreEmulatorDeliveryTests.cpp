#include <future>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "emulator_tests/ZMEmulatorTestDoubles.h"

namespace {

TEST(ZMCoreEmulatorPushes, ReachTheLatestInstalledCallbacks) {
    emulator().raiseStatusChange("r0");  // before any installation a push has nobody to reach
    ZMEventRecorder events;
    service().initChatRoomListener(recording(events, "old:status"), nullptr, nullptr);
    service().initChatRoomListener(recording(events, "new:status"), recording(events, "new:kv"),
                                   recording(events, "new:destroyed"));
    emulator().raiseStatusChange("r1");
    emulator().raiseKVChange("r1", {{"k", "v"}}, ZMValue::array({"gone"}));
    emulator().raiseRoomDestroyed("r1", 3);
    // An empty callback is skipped; the others still arrive.
    service().initChatRoomListener(nullptr, nullptr, recording(events, "only:destroyed"));
    emulator().raiseStatusChange("r2");
    emulator().raiseKVChange("r2", ZMValue::object(), ZMValue::object());
    emulator().raiseRoomDestroyed("r2", 0);
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(events.events(), (std::vector<std::string>{"new:status:r1", R"(new:kv:r1:{"k":"v"}:["gone"])",
                                                         "new:destroyed:r1:3", "only:destroyed:r2:0"}));
    EXPECT_TRUE(emulator().logger().lines().empty());  // no callback raised
    // The callbacks stay installed across resets; none may outlive events.
    service().initChatRoomListener(nullptr, nullptr, nullptr);
}

TEST(ZMCoreEmulatorModules, HearConnectionChangesLogoutAndMessagesInLoadOrderUntilOneHoldsIt) {
    // Lives as long as the modules that record into it: the core keeps them for the whole process.
    auto& events = *new ZMEventRecorder();
    // Types stay registered for the process: an earlier test may have
    // registered the ping type already.
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
    EXPECT_EQ(events.events(), (std::vector<std::string>{
                                   pingKnown ? "passer:message:EMU:Ping,r0,hi,offline"
                                             : "passer:message:EMU:Ping,r0,none,offline",
                                   "passer:status:13", "holder:status:13",
                                   "late:status:13", "passer:logout", "holder:logout", "late:logout",
                                   "passer:message:EMU:Ping,r1,hi", "holder:message:EMU:Ping,r1,hi",
                                   "passer:message:EMU:Ping,r2,-", "holder:message:EMU:Ping,r2,-"}));
    // The modules stay loaded for the process: from now on they let later
    // modules hear every message too.
    holder.setHoldsMessages(false);
    late.setHoldsMessages(false);
}

TEST(ZMCoreEmulatorThreads, AnAnswerNeverRunsInsideTheCallAndIdleWaitsTimeOutWhileADeliveryRuns) {
    ZMEventRecorder events;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    service().initChatRoomListener(
        [&events, released](const std::string&) {
            events.record("push begins");
            service().quitChatroom("r1", recording(events, "answer"));
            events.record("push ends");
            released.wait();
        },
        nullptr, nullptr);
    emulator().raiseStatusChange("r1");
    ASSERT_TRUE(events.waitForCount(2));
    EXPECT_FALSE(emulator().waitUntilIdle(0.05));
    release.set_value();
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(events.events(), (std::vector<std::string>{"push begins", "push ends", "answer:0"}));
}

TEST(ZMCoreEmulatorThreads, WaitUntilIdleCoversDeliveriesCausedByDeliveriesOnEveryThread) {
    // Deliveries go to the three threads in turn. The answers are held back
    // until all 30 are queued, so that no push queued by a running answer can
    // take a turn between two answers: answers then fill the turns 0..29 and
    // their pushes the turns 30..59, ten of each on every thread.
    emulator().setCallbackThreadCount(3);
    ZMEventRecorder events;
    std::mutex mutex;
    std::map<std::string, std::set<std::thread::id>> threads;  // "answer" / "push" -> threads they ran on
    auto noteThread = [&](const std::string& kind) {
        std::lock_guard<std::mutex> lock(mutex);
        threads[kind].insert(std::this_thread::get_id());
    };
    std::promise<void> allQueued;
    std::shared_future<void> queued = allQueued.get_future().share();
    service().initChatRoomListener(
        [&](const std::string& room) {
            noteThread("push");
            recording(events, "push")(room);
        },
        nullptr, nullptr);
    for (int i = 0; i < 30; ++i) {
        service().quitChatroom("r", [&, queued](int32_t) {
            queued.wait();
            EXPECT_FALSE(emulator().waitUntilIdle(5));  // would wait for itself
            emulator().raiseStatusChange("r");
            noteThread("answer");
            recording(events, "answer")();
        });
    }
    allQueued.set_value();
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(events.count(), 60u);
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(threads["answer"].size(), 3u);
    EXPECT_EQ(threads["push"].size(), 3u);
}

}  // namespace
