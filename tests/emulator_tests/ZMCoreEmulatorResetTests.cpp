#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <Platform/ZMMainQueue.h>

#include "emulator_tests/ZMEmulatorTestDoubles.h"

namespace {

using Strings = std::vector<std::string>;

// Every part of the emulator is changed, the emulator is reset once, and then
// each part must behave as in a fresh process, except for what a real core
// keeps for the life of the process: loaded modules, registered message types,
// the installed listener callbacks and push listening.
TEST(ZMCoreEmulatorReset, PutsEveryPartBackAndKeepsWhatTheCoreKeepsForTheProcess) {
    // Outlives the test: the module, kept for the process, records into it.
    auto& heard = *new ZMEventRecorder();
    // Every answer recorded into it is waited for; the held one is dropped.
    ZMEventRecorder answers;
    auto& module = ZMTestModule::loadNew("kept", heard);
    ZMCoreClient::sharedCoreClient().registerMessageType(ZMMessageClass::of<ZMTestPingMessage>());
    service().initChatRoomListener(recording(heard, "sync"), recording(heard, "kv"), nullptr);
    service().setChatRoomPSListener();
    const auto typesBefore = emulator().registeredMessageTypes();
    const size_t timersBefore = ZMMainQueue::shared().activeTimerCount();
    const size_t initialCapacity = emulator().requestCapacity();

    std::weak_ptr<int> heldCallbacks;
    std::mutex threadsMutex;
    std::set<std::thread::id> answerThreads;
    FILE* console = std::tmpfile();
    ASSERT_NE(console, nullptr);
    long consolePrinted = 0;
    auto observed = std::make_shared<std::atomic<int>>(0);
    struct Encodable : ZMMessageContent {
        void decodeWithData(const ZMData&) override {}
        std::optional<ZMData> encode() const override { return ZMData{'{', '}'}; }
    };
    auto after = [&](const std::function<void()>& step) {
        answers.clear();
        step();
        EXPECT_TRUE(emulator().waitUntilIdle());
        return answers.events();
    };

    const struct {
        const char* part;
        std::function<void()> change;
        std::function<void()> check;
    } parts[] = {
        {"connection status", [] { emulator().setConnectionStatus(13); },
         [&] {
             // Checked first, before anything clears what the module heard.
             EXPECT_TRUE(emulator().waitUntilIdle());
             EXPECT_EQ(ZMCoreClient::sharedCoreClient().getConnectionStatus(), 0);
             for (const auto& event : heard.events()) EXPECT_EQ(event.find("status:"), std::string::npos) << event;
         }},
        {"request record",
         [] {
             emulator().setRequestCapacity(1);
             service().clearChatroomMessageAndKVWithTargetId("r0", true, true);
         },
         [&] {
             EXPECT_TRUE(emulator().requests().empty());
             EXPECT_EQ(emulator().requestCapacity(), initialCapacity);
             service().clearChatroomMessageAndKVWithTargetId("r0", true, true);
             ASSERT_EQ(emulator().requests().size(), 1u);
             EXPECT_EQ(emulator().requests()[0].id, 1u);  // numbered afresh
         }},
        {"rules", [] { emulator().setRule("queryChatroomInfo", ZMCoreAnswer::failure(7)); },
         [&] {
             EXPECT_EQ(after([&] { service().queryChatroomInfo("r1", 1, 1, recording(answers, "ok"), nullptr); }),
                       Strings{"ok:{}"});
         }},
        {"held requests",
         [&] {
             emulator().holdRequests("bindRTCRoomForChatroom");
             auto token = std::make_shared<int>(0);
             heldCallbacks = token;
             service().bindRTCRoomForChatroom(
                 "r1", "rtc", [token, &answers] { answers.record("bound"); },
                 [token, &answers](int32_t) { answers.record("refused"); });
         },
         [&] {
             EXPECT_TRUE(emulator().heldRequests().empty());
             EXPECT_TRUE(heldCallbacks.expired());  // released, never called
             EXPECT_EQ(after([&] { service().bindRTCRoomForChatroom("r1", "rtc", recording(answers, "ok"), nullptr); }),
                       Strings{"ok"});
         }},
        {"key-value store, membership and notifications",
         [&] {
             emulator().setCurrentUserId("bob");
             after([&] { service().joinChatroom("r-kv", 0, false, 0, nullptr); });
             after([&] {
                 service().setChatroomStatus("r-kv", "k", "v", false, false, true, "ZM:chrmKVNotiMsg", {'{', '}'}, 0,
                                             nullptr, nullptr);
             });
             emulator().seedChatRoomEntries("r-seeded", {{"k", "v"}});
             ASSERT_EQ(emulator().kvNotifications().size(), 1u);
         },
         [&] {
             EXPECT_EQ(emulator().currentUserId(), "emulator-user");
             EXPECT_EQ(emulator().chatRoomEntries("r-kv"), ZMValue::object());
             EXPECT_EQ(emulator().chatRoomEntries("r-seeded"), ZMValue::object());
             EXPECT_TRUE(emulator().kvNotifications().empty());
             EXPECT_EQ(after([&] {
                           service().getAllChatRoomEntries("r-kv", true, nullptr, recording(answers, "refused"));
                       }),
                       Strings{"refused:23406"});  // no longer in the room
         }},
        {"pending first synchronisation",
         [&] {
             emulator().setKVFirstSync(ZMCoreEmulator::KVFirstSync::AfterDelay, 1);
             after([&] { service().joinChatroom("r-later", 0, false, 0, nullptr); });
             ASSERT_EQ(ZMMainQueue::shared().activeTimerCount(), timersBefore + 1);
         },
         [&] {
             EXPECT_EQ(ZMMainQueue::shared().activeTimerCount(), timersBefore);
             heard.clear();
             ZMMainQueue::shared().advance(2);
             EXPECT_TRUE(emulator().waitUntilIdle());
             EXPECT_TRUE(heard.events().empty());
         }},
        {"key-value settings",
         [] {
             emulator().setKVRoomCapacity(0);
             emulator().setKVFirstSync(ZMCoreEmulator::KVFirstSync::Never);
             emulator().setKVServerModelEnabled(false);
         },
         [&] {
             heard.clear();
             after([&] { service().joinChatroom("r-new", 0, false, 0, nullptr); });
             after([&] {
                 service().setChatroomStatus("r-new", "k", "v", false, false, false, "", {}, 0,
                                             recording(answers, "stored"), recording(answers, "refused"));
             });
             EXPECT_EQ(heard.events(), (Strings{"sync:r-new", R"(kv:r-new:{"k":"v"}:{})"}));
             EXPECT_EQ(emulator().chatRoomEntryOwner("r-new", "k"), "emulator-user");
         }},
        {"navigation data and detection",
         [&] {
             emulator().setChatroomKVStorageEnabled(false);
             emulator().setChatroomMessageStoreEnabled(false);
             emulator().setMutliChatroomEnabled(false);
             emulator().setNaviDataAvailable(false);
             emulator().setNaviDetectionResult("n", "i", "x");
             emulator().setNaviDetectionFails();
             after([] { ZMNetDetection::detectNavi(true, nullptr, nullptr); });
         },
         [&] {
             auto navi = ZMNaviDataManager::sharedInstance().naviData();
             ASSERT_NE(navi, nullptr);
             EXPECT_TRUE(navi->isChatroomKVStorageEnabled());
             EXPECT_TRUE(navi->isChatroomMessageStoreEnabled());
             EXPECT_TRUE(navi->isMutliChatroomEnabled());
             EXPECT_EQ(emulator().naviDetectionCount(), 0u);
             EXPECT_EQ(after([&] { ZMNetDetection::detectNavi(true, recording(answers, "found"), nullptr); }),
                       Strings{"found:navi.emulator:127.0.0.1:wifi"});
         }},
        {"payload encoding", [] { emulator().setPayloadEncodingFails(true); },
         [] { EXPECT_EQ(ZMCoreClient::sharedCoreClient().payloadOfMessageContent(Encodable()), ZMData({'{', '}'})); }},
        {"callback threads", [] { emulator().setCallbackThreadCount(3); },
         [&] {
             auto noteThread = [&](const ZMValue&) {
                 std::lock_guard<std::mutex> lock(threadsMutex);
                 answerThreads.insert(std::this_thread::get_id());
             };
             after([&] {
                 for (int i = 0; i < 3; ++i) service().queryChatroomInfo("r1", 1, 1, noteThread, nullptr);
             });
             std::lock_guard<std::mutex> lock(threadsMutex);
             EXPECT_EQ(answerThreads.size(), 1u);
         }},
        {"received messages",
         [] {
             for (int i = 0; i < 2; ++i) emulator().deliverMessage("EMU:Ping", "{}", "r1").wait();
         },
         [&] {
             heard.clear();
             emulator().deliverMessage("EMU:Ping", R"({"text":"hi"})", "r1").wait();
             EXPECT_EQ(heard.events(), Strings{"kept:message:EMU:Ping,r1,hi"});  // the module and its type stay
             EXPECT_EQ(module.lastMessage->messageUId, "EMU-1");
         }},
        {"logger",
         [&] {
             ZMEmulatedLogger& logger = emulator().logger();
             logger.setConsoleLevel(6);
             logger.setConsoleStream(console);
             logger.setLineObserver([observed](const ZMLogLine&) { ++*observed; });
             logger.setLineCapacity(1);
             logger.setRecording(false);
             ZMFwLog::getInstance().write(2, 1, "tag", "before");
             consolePrinted = std::ftell(console);
             ASSERT_GT(consolePrinted, 0);
         },
         [&] {
             EXPECT_TRUE(emulator().logger().lines().empty());
             const int observedBefore = observed->load();
             ZMFwLog::getInstance().write(2, 1, "tag", "one");
             ZMFwLog::getInstance().write(2, 1, "tag", "two");
             EXPECT_EQ(emulator().logger().lines().size(), 2u);
             EXPECT_EQ(observed->load(), observedBefore);
             EXPECT_EQ(std::ftell(console), consolePrinted);
             emulator().logger().clear();
         }},
        {"listener callbacks and push listening", [] {},
         [&] {
             EXPECT_TRUE(emulator().isPushListening());
             EXPECT_TRUE(emulator().registeredMessageTypes() == typesBefore);
             heard.clear();
             emulator().raiseKVChange("r1", {{"k", "v"}}, ZMValue::object());
             EXPECT_TRUE(emulator().waitUntilIdle());
             EXPECT_EQ(heard.events(), Strings{R"(kv:r1:{"k":"v"}:{})"});
         }},
    };

    for (const auto& part : parts) {
        SCOPED_TRACE(part.part);
        part.change();
    }
    ASSERT_TRUE(emulator().waitUntilIdle());
    heard.clear();
    ASSERT_TRUE(emulator().reset());
    for (const auto& part : parts) {
        SCOPED_TRACE(part.part);
        part.check();
    }
    service().initChatRoomListener(nullptr, nullptr, nullptr);
    std::fclose(console);
}

}  // namespace
