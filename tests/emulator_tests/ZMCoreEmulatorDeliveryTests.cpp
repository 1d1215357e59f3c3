#include <future>
#include <set>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "emulator_tests/ZMEmulatorTestDoubles.h"

namespace {

ZMChatRoomPSManager& service() { return ZMKernel::sharedInstance().chatRoomPSManager(); }
ZMCoreEmulator& emulator() { return ZMCoreEmulator::shared(); }

void installRecordingListener(ZMEventRecorder& events, const std::string& name) {
    service().initChatRoomListener(
        [&events, name](const std::string& room) { events.record(name + ":status:" + room); },
        [&events, name](const std::string& room, const ZMValue& update, const ZMValue& remove) {
            events.record(name + ":kv:" + room + ":" + update.dump() + ":" + remove.dump());
        },
        [&events, name](const std::string& room, int32_t type) {
            events.record(name + ":destroyed:" + room + ":" + std::to_string(type));
        });
}

TEST(ZMCoreEmulatorPushes, ReachTheLatestInstalledCallbacks) {
    // Before any installation a push has nobody to reach.
    emulator().raiseStatusChange("r0");
    ZMEventRecorder events;
    installRecordingListener(events, "old");
    installRecordingListener(events, "new");
    emulator().raiseStatusChange("r1");
    emulator().raiseKVChange("r1", {{"k", "v"}}, ZMValue::array({"gone"}));
    emulator().raiseRoomDestroyed("r1", 3);
    ASSERT_TRUE(events.waitForCount(3));
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(events.events(), (std::vector<std::string>{"new:status:r1", R"(new:kv:r1:{"k":"v"}:["gone"])",
                                                         "new:destroyed:r1:3"}));

    // An empty callback is skipped; the others still arrive.
    service().initChatRoomListener(nullptr, nullptr, [&events](const std::string& room, int32_t) {
        events.record("only:destroyed:" + room);
    });
    emulator().raiseStatusChange("r2");
    emulator().raiseKVChange("r2", ZMValue::object(), ZMValue::object());
    emulator().raiseRoomDestroyed("r2", 0);
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(events.events().back(), "only:destroyed:r2");
    EXPECT_EQ(events.count(), 4u);
}

TEST(ZMCoreEmulatorModules, ConnectionChangesAndLogoutReachEveryModuleInLoadOrder) {
    auto& events = processRecorder();
    std::thread::id loaderThread;
    auto* first = new ZMTestModule("first", events, false);
    emulator().loadExtensionModule([&]() -> VemoIMLibExtensionModule& {
        loaderThread = std::this_thread::get_id();
        return *first;
    });
    EXPECT_EQ(loaderThread, std::this_thread::get_id());
    ZMTestModule::loadNew("second", events);
    // Loading the same module again does not make it hear everything twice.
    emulator().loadExtensionModule([first]() -> VemoIMLibExtensionModule& { return *first; });

    EXPECT_EQ(ZMCoreClient::sharedCoreClient().getConnectionStatus(), 0);
    emulator().setConnectionStatus(13);
    EXPECT_EQ(ZMCoreClient::sharedCoreClient().getConnectionStatus(), 13);
    emulator().logout();
    emulator().setConnectionStatus(0);
    ASSERT_TRUE(events.waitForCount(6));
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(events.events(), (std::vector<std::string>{"first:status:13", "second:status:13", "first:logout",
                                                         "second:logout", "first:status:0", "second:status:0"}));
    EXPECT_NE(first->lastThread.load(), std::this_thread::get_id());
    EXPECT_EQ(ZMCoreClient::sharedCoreClient().getConnectionStatus(), 0);
}

TEST(ZMCoreEmulatorMessages, AreDecodedByTheRegisteredClassAndOfferedUntilHeld) {
    auto& events = processRecorder();
    auto& passer = ZMTestModule::loadNew("passer", events, false);
    ZMTestModule::loadNew("holder", events, true);
    ZMTestModule::loadNew("late", events, true);
    // Nothing registered yet: the message has no content.
    EXPECT_TRUE(emulator().deliverMessage("EMU:Ping", R"({"text":"hi"})", "r0", true).get());
    for (int i = 0; i < 2; ++i) {
        ZMCoreClient::sharedCoreClient().registerMessageType(ZMMessageClass::of<ZMTestPingMessage>());
    }
    const auto types = emulator().registeredMessageTypes();
    ASSERT_EQ(types.size(), 2u);
    EXPECT_EQ(types[1], ZMMessageClass::of<ZMTestPingMessage>());

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

    EXPECT_EQ(events.events(),
              (std::vector<std::string>{"passer:message:EMU:Ping,r0,none,offline", "holder:message:EMU:Ping,r0,none,offline",
                                        "passer:message:EMU:Ping,r1,hi", "holder:message:EMU:Ping,r1,hi",
                                        "passer:message:EMU:Ping,r2,-", "holder:message:EMU:Ping,r2,-"}));
}

TEST(ZMCoreEmulatorMessages, NotHeldWhenNoModuleHoldsIt) {
    EXPECT_FALSE(emulator().deliverMessage("EMU:Ping", "{}", "r").get());
    ZMTestModule::loadNew("passer", processRecorder(), false);
    EXPECT_FALSE(emulator().deliverMessage("EMU:Ping", "{}", "r").get());
}

TEST(ZMCoreEmulatorNavigation, SwitchesAndDetectionFollowTheirSettings) {
    auto switches = [] {
        auto navi = ZMNaviDataManager::sharedInstance().naviData();
        return std::to_string(navi->isChatroomKVStorageEnabled()) + std::to_string(navi->isChatroomMessageStoreEnabled()) +
               std::to_string(navi->isMutliChatroomEnabled());
    };
    EXPECT_EQ(switches(), "111");
    emulator().setChatroomKVStorageEnabled(false);
    EXPECT_EQ(switches(), "011");
    emulator().setMutliChatroomEnabled(false);
    emulator().setChatroomMessageStoreEnabled(false);
    EXPECT_EQ(switches(), "000");

    ZMEventRecorder events;
    std::atomic<std::thread::id> thread{};
    auto success = [&](const std::string& navi, const std::string& ip, const std::string& net) {
        thread = std::this_thread::get_id();
        events.record(navi + "|" + ip + "|" + net);
    };
    auto failure = [&] { events.record("failed"); };
    ZMNetDetection::detectNavi(true, success, failure);
    emulator().setNaviDetectionFails();
    ZMNetDetection::detectNavi(true, success, failure);
    ZMNetDetection::detectNavi(true, success, nullptr);
    emulator().setNaviDetectionResult("n", "10.0.0.1", "4g");
    ZMNetDetection::detectNavi(false, success, failure);
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(events.events(), (std::vector<std::string>{"navi.emulator|127.0.0.1|wifi", "failed", "n|10.0.0.1|4g"}));
    EXPECT_EQ(emulator().naviDetectionCount(), 4u);
    EXPECT_NE(thread.load(), std::this_thread::get_id());
}

TEST(ZMCoreEmulatorThreads, AnAnswerNeverRunsInsideTheCallEvenFromACallbackThread) {
    ZMEventRecorder events;
    service().initChatRoomListener(
        [&events](const std::string&) {
            events.record("push begins");
            service().quitChatroom("r1", [&events](int32_t) { events.record("answer"); });
            events.record("push ends");
        },
        nullptr, nullptr);
    emulator().raiseStatusChange("r1");
    ASSERT_TRUE(events.waitForCount(3));
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(events.events(), (std::vector<std::string>{"push begins", "push ends", "answer"}));
}

TEST(ZMCoreEmulatorThreads, WaitUntilIdleCoversDeliveriesCausedByDeliveriesOnEveryThread) {
    emulator().setCallbackThreadCount(3);
    std::mutex mutex;
    std::set<std::thread::id> threads;
    std::atomic<int> answers{0};
    std::atomic<int> pushes{0};
    service().initChatRoomListener([&](const std::string&) { ++pushes; }, nullptr, nullptr);
    constexpr int kRequests = 30;
    for (int i = 0; i < kRequests; ++i) {
        service().quitChatroom("r" + std::to_string(i), [&](int32_t) {
            {
                std::lock_guard<std::mutex> lock(mutex);
                threads.insert(std::this_thread::get_id());
            }
            EXPECT_FALSE(emulator().waitUntilIdle(5));  // would wait for itself
            emulator().raiseStatusChange("r");
            ++answers;
        });
    }
    ASSERT_TRUE(emulator().waitUntilIdle());
    EXPECT_EQ(answers.load(), kRequests);
    EXPECT_EQ(pushes.load(), kRequests);
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(threads.size(), 3u);
    EXPECT_EQ(threads.count(std::this_thread::get_id()), 0u);
}

TEST(ZMCoreEmulatorThreads, WaitUntilIdleTimesOutWhileADeliveryIsBusy) {
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    service().initChatRoomListener([released](const std::string&) { released.wait(); }, nullptr, nullptr);
    emulator().raiseStatusChange("r1");
    EXPECT_FALSE(emulator().waitUntilIdle(0.05));
    release.set_value();
    EXPECT_TRUE(emulator().waitUntilIdle());
}

}  // namespace
