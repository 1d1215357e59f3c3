#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <Platform/ZMMainQueue.h>
#include <ZMChatRoom/Extension/ZMChatRoomExtensionModule.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberActionMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBanMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBlockMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomSyncMessage.h>
#include <ZMChatRoom/Messages/ZMChatroomKVNotificationMessage.h>
#include <ZMChatRoom/ZMChatRoomClient.h>

#include "support/ZMTestSupport.h"

namespace {

using namespace std::chrono_literals;

const std::string kModuleTag = "ZMChatRoomExtensionModule.cpp";
const std::string kLoadLine = "ZMChatRoomExtensionModule loadVemoExtensionModule";

std::atomic<std::thread::id> gTestThread;

// ---- Observers --------------------------------------------------------------

// Records every callback as one line of text, and counts the callbacks made on
// the test's own thread (routing of delivered messages must happen on the
// core's callback thread).
class RecordingObserver : public ZMChatRoomMemberDelegate, public ZMChatRoomNotifyEventDelegate {
public:
    void memberDidChange(const std::vector<std::shared_ptr<ZMChatRoomMemberAction>>& members,
                         const std::string& chatroomId) override {
        note("list:" + chatroomId + ":" + actions(members));
    }
    void memberDidChange(const std::shared_ptr<ZMChatRoomMemberActionModel>& model) override {
        note("model:" + model->roomId + ":" + std::to_string(model->memberCount) + ":" +
             actions(model->chatRoomMemberActions));
    }
    void chatRoomNotifyMultiLoginSync(const std::shared_ptr<ZMChatRoomSyncEvent>& e) override {
        note("sync:" + e->chatroomId.value_or("-") + ":" + std::to_string(e->status) + ":" +
             std::to_string(e->reason) + ":" + std::to_string(e->time) + ":" + e->extra.value_or("-"));
    }
    void chatRoomNotifyBlock(const std::shared_ptr<ZMChatRoomMemberBlockEvent>& e) override {
        note("block:" + e->chatroomId.value_or("-") + ":" + std::to_string(e->operateType) + ":" +
             std::to_string(e->durationTime) + ":" + std::to_string(e->operateTime) + ":" +
             e->userIdList.dump() + ":" + e->extra.value_or("-"));
    }
    void chatRoomNotifyBan(const std::shared_ptr<ZMChatRoomMemberBanEvent>& e) override {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            bans_.push_back(e);
        }
        note("ban:" + e->chatroomId.value_or("-") + ":" + std::to_string(e->banType) + ":" +
             std::to_string(e->durationTime) + ":" + std::to_string(e->operateTime) + ":" +
             e->userIdList.dump() + ":" + e->extra.value_or("-"));
    }

    std::vector<std::shared_ptr<ZMChatRoomMemberBanEvent>> bans() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return bans_;
    }

    ZMEventRecorder events;
    std::atomic<int> callsOnTestThread{0};

private:
    static std::string actions(const std::vector<std::shared_ptr<ZMChatRoomMemberAction>>& list) {
        std::string text;
        for (const auto& action : list) {
            if (!text.empty()) text += ",";
            text += action->memberId.value_or("-") + "/" + std::to_string(action->action);
        }
        return text;
    }
    void note(std::string event) {
        if (std::this_thread::get_id() == gTestThread.load()) ++callsOnTestThread;
        events.record(std::move(event));
    }

    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<ZMChatRoomMemberBanEvent>> bans_;
};

class RecordingStatusObserver : public ZMChatRoomStatusDelegate {
public:
    void onChatRoomJoining(const std::string& id) override { events.record("joining:" + id); }
    void onChatRoomJoined(const std::string& id, const std::shared_ptr<ZMJoinChatRoomResponse>&) override {
        events.record("joined:" + id);
    }
    void onChatRoomJoinFailed(const std::string& id, int32_t code) override {
        events.record("failed:" + id + ":" + std::to_string(code));
    }
    ZMEventRecorder events;
};

// ---- Payloads ---------------------------------------------------------------

const char* const kMemberPayload =
    R"({"userList":[{"userId":"u1","status":1},{"userId":"u2","status":3}],"memberCount":12})";
const char* const kSyncPayload = R"({"chatroomId":"room-7","status":1,"reason":2,"time":1700000000123,"extra":"e"})";
const char* const kBlockPayload =
    R"({"chatroomId":"room-7","operateType":1,"durationTime":60,"operateTime":1700000000456,"userList":["u1"],"extra":"e"})";
const char* const kBanPayload =
    R"({"chatroomId":"room-7","operateType":0,"durationTime":30,"operateTime":1700000000789,"userList":["u1","u2"],"extra":"x"})";

// ---- Helpers ----------------------------------------------------------------

ZMChatRoomClient& client() { return ZMChatRoomClient::sharedChatRoomClient(); }

// Loads the module the way the core does and returns the module it got.
ZMChatRoomExtensionModule* loadThroughEmulator() {
    ZMChatRoomExtensionModule* loaded = nullptr;
    ZMCoreEmulator::shared().loadExtensionModule([&loaded]() -> VemoIMLibExtensionModule& {
        loaded = &ZMChatRoomExtensionModule::loadVemoExtensionModule();
        return *loaded;
    });
    return loaded;
}

// Delivers a message through the core and waits for its routing to finish.
std::optional<bool> deliver(const std::string& objectName, const std::string& payload,
                            const std::string& targetId, bool offline = false) {
    auto held = ZMCoreEmulator::shared().deliverMessage(objectName, payload, targetId, offline);
    if (held.wait_for(5s) != std::future_status::ready) return std::nullopt;
    return held.get();
}

// Lets everything already started run to its end: connection changes and
// answers of the core, queued operations and status announcements.
void flush() {
    ASSERT_TRUE(ZMCoreEmulator::shared().waitUntilIdle());
    client().zm_chatroom_operation_queue().sync([] {});
    ASSERT_TRUE(ZMCoreEmulator::shared().waitUntilIdle());
    client().zm__notify_chatroom_status_queue().sync([] {});
}

std::vector<std::string> linesWithText(const std::string& text) {
    std::vector<std::string> found;
    for (const auto& line : ZMCoreEmulator::shared().logger().lines()) {
        if (line.text == text) found.push_back(line.tag + "|" + std::to_string(line.level) + "|" +
                                               std::to_string(line.type));
    }
    return found;
}

class ExtensionModuleTest : public ::testing::Test {
protected:
    void SetUp() override {
        gTestThread = std::this_thread::get_id();
        module_ = loadThroughEmulator();
        ASSERT_NE(module_, nullptr);
        flush();
    }

    ZMChatRoomExtensionModule* module_ = nullptr;
};

// ---- Loading ----------------------------------------------------------------

TEST_F(ExtensionModuleTest, SecondLoadReturnsSameModuleLogsAgainAndRegistersNothingMore) {
    EXPECT_EQ(loadThroughEmulator(), module_);
    flush();

    const std::string expectedLine = kModuleTag + "|4|1024";
    EXPECT_EQ(linesWithText(kLoadLine), (std::vector<std::string>{expectedLine, expectedLine}));

    const std::vector<ZMMessageClass> expected = {
        ZMMessageClass::of<ZMChatroomKVNotificationMessage>(), ZMMessageClass::of<ZMChatRoomMemberActionMessage>(),
        ZMMessageClass::of<ZMChatRoomSyncMessage>(), ZMMessageClass::of<ZMChatRoomMemberBlockMessage>(),
        ZMMessageClass::of<ZMChatRoomMemberBanMessage>()};
    auto registered = ZMCoreEmulator::shared().registeredMessageTypes();
    std::vector<std::string> names;
    for (const auto& messageClass : registered) names.push_back(messageClass.getObjectName());
    EXPECT_EQ(names, (std::vector<std::string>{"ZM:chrmKVNotiMsg", "ZM:ChrmMemChange", "ZM:ChrmSyncMsg",
                                               "ZM:ChrmBlockMsg", "ZM:ChrmBanMsg"}));
    EXPECT_TRUE(registered == expected);
    EXPECT_TRUE(module_->chatRoomMessageTypeList() == expected);

    // The client was wired to the core exactly once.
    EXPECT_EQ(ZMCoreEmulator::shared().requests("initChatRoomListener").size(), 1u);
    EXPECT_EQ(ZMCoreEmulator::shared().requests("setChatRoomPSListener").size(), 1u);
    EXPECT_TRUE(ZMCoreEmulator::shared().isPushListening());
}

TEST(ExtensionModuleLoadTest, ConcurrentFirstLoadsCreateOneModule) {
    constexpr int kThreads = 4;
    const size_t linesBefore = linesWithText(kLoadLine).size();
    std::vector<ZMChatRoomExtensionModule*> loaded(kThreads, nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&loaded, i] { loaded[i] = &ZMChatRoomExtensionModule::loadVemoExtensionModule(); });
    }
    for (auto& thread : threads) thread.join();

    for (auto* module : loaded) EXPECT_EQ(module, loaded[0]);
    EXPECT_EQ(ZMCoreEmulator::shared().registeredMessageTypes().size(), 5u);
    EXPECT_EQ(linesWithText(kLoadLine).size(), linesBefore + kThreads);
}

TEST_F(ExtensionModuleTest, SignalMessageClassListHoldsOnlyTheKVNotification) {
    auto classes = module_->getSignalMessageClassList();
    ASSERT_EQ(classes.size(), 1u);
    EXPECT_TRUE(classes[0] == ZMMessageClass::of<ZMChatroomKVNotificationMessage>());
    EXPECT_EQ(classes[0].getObjectName(), "ZM:chrmKVNotiMsg");
}

// ---- Inbound routing ---------------------------------------------------------

struct RoutingCase {
    const char* name;
    std::string objectName;
    std::string payload;
    bool offline;
    bool held;
    std::vector<std::string> events;
};

TEST_F(ExtensionModuleTest, DeliveredMessagesAreRoutedByTheirClass) {
    const std::string members = "u1/1,u2/3";
    const std::vector<RoutingCase> cases = {
        {"member change", "ZM:ChrmMemChange", kMemberPayload, false, true,
         {"list:room-7:" + members, "model:room-7:12:" + members}},
        {"member change offline", "ZM:ChrmMemChange", kMemberPayload, true, true,
         {"list:room-7:" + members, "model:room-7:12:" + members}},
        {"sync", "ZM:ChrmSyncMsg", kSyncPayload, false, true, {"sync:room-7:1:2:1700000000123:e"}},
        {"block", "ZM:ChrmBlockMsg", kBlockPayload, true, true,
         {R"(block:room-7:1:60:1700000000456:["u1"]:e)"}},
        {"ban", "ZM:ChrmBanMsg", kBanPayload, false, true, {R"(ban:room-7:0:30:1700000000789:["u1","u2"]:x)"}},
        {"KV notification", "ZM:chrmKVNotiMsg", R"({"type":1,"key":"k","value":"v"})", false, false, {}},
        {"unknown object name", "ZM:SomethingElse", R"({"chatroomId":"room-7"})", false, false, {}},
    };

    auto observer = std::make_shared<RecordingObserver>();
    client().setMemberDelegate(observer);
    client().addChatRoomNotifyEventDelegate(observer);

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        observer->events.clear();
        EXPECT_EQ(deliver(c.objectName, c.payload, "room-7", c.offline), std::optional<bool>(c.held));
        EXPECT_EQ(observer->events.events(), c.events);
    }
    EXPECT_EQ(observer->callsOnTestThread.load(), 0);
}

struct DerivedBanMessage : ZMChatRoomMemberBanMessage {};

TEST_F(ExtensionModuleTest, DirectOffersWithMissingOrForeignContentAreNotHeld) {
    auto messageWith = [](std::shared_ptr<ZMMessageContent> content) {
        auto message = std::make_shared<ZMMessage>();
        message->content = std::move(content);
        message->targetId = "room-9";
        return message;
    };
    auto derivedBan = std::make_shared<DerivedBanMessage>();
    derivedBan->chatroomId = "room-9";
    derivedBan->banType = 2;

    struct DirectCase {
        const char* name;
        std::shared_ptr<ZMMessage> message;
        bool held;
        std::vector<std::string> events;
    };
    const std::vector<DirectCase> cases = {
        {"null message", nullptr, false, {}},
        {"null content", messageWith(nullptr), false, {}},
        {"KV notification content", messageWith(std::make_shared<ZMChatroomKVNotificationMessage>()), false, {}},
        {"subclass of the ban message", messageWith(derivedBan), true, {"ban:room-9:2:0:0:null:-"}},
    };

    auto observer = std::make_shared<RecordingObserver>();
    client().setMemberDelegate(observer);
    client().addChatRoomNotifyEventDelegate(observer);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        observer->events.clear();
        EXPECT_EQ(module_->didHoldReceivedMessage(c.message, false), c.held);
        EXPECT_EQ(observer->events.events(), c.events);
    }
}

TEST_F(ExtensionModuleTest, MemberChangeIsHeldWithoutALiveMemberObserver) {
    EXPECT_EQ(deliver("ZM:ChrmMemChange", kMemberPayload, "room-7"), std::optional<bool>(true));

    auto observer = std::make_shared<RecordingObserver>();
    client().setMemberDelegate(observer);
    std::weak_ptr<RecordingObserver> weak = observer;
    observer.reset();
    ASSERT_TRUE(weak.expired());
    EXPECT_EQ(client().memberDelegate(), nullptr);
    EXPECT_EQ(deliver("ZM:ChrmMemChange", kMemberPayload, "room-7"), std::optional<bool>(true));
}

TEST_F(ExtensionModuleTest, EveryBanObserverGetsItsOwnEqualEvent) {
    auto first = std::make_shared<RecordingObserver>();
    auto second = std::make_shared<RecordingObserver>();
    client().addChatRoomNotifyEventDelegate(first);
    client().addChatRoomNotifyEventDelegate(second);

    EXPECT_EQ(deliver("ZM:ChrmBanMsg", kBanPayload, "room-7"), std::optional<bool>(true));

    ASSERT_EQ(first->bans().size(), 1u);
    ASSERT_EQ(second->bans().size(), 1u);
    EXPECT_NE(first->bans()[0], second->bans()[0]);
    EXPECT_EQ(first->events.events(), second->events.events());
    EXPECT_EQ(first->events.events(),
              (std::vector<std::string>{R"(ban:room-7:0:30:1700000000789:["u1","u2"]:x)"}));
}

// Removes itself and registers a newcomer from inside its first callback.
class SelfRemovingObserver : public ZMChatRoomNotifyEventDelegate,
                             public std::enable_shared_from_this<SelfRemovingObserver> {
public:
    void chatRoomNotifyBlock(const std::shared_ptr<ZMChatRoomMemberBlockEvent>&) override {
        events.record("self-removing");
        client().removeChatRoomNotifyEventDelegate(shared_from_this());
        client().addChatRoomNotifyEventDelegate(newcomer);
    }
    std::shared_ptr<RecordingObserver> newcomer = std::make_shared<RecordingObserver>();
    ZMEventRecorder events;
};

TEST_F(ExtensionModuleTest, ObserverChangesDuringDeliveryDoNotDisturbTheWalk) {
    auto remover = std::make_shared<SelfRemovingObserver>();
    auto bystander = std::make_shared<RecordingObserver>();
    client().addChatRoomNotifyEventDelegate(remover);
    client().addChatRoomNotifyEventDelegate(bystander);

    EXPECT_EQ(deliver("ZM:ChrmBlockMsg", kBlockPayload, "room-7"), std::optional<bool>(true));
    EXPECT_EQ(remover->events.count(), 1u);
    EXPECT_EQ(bystander->events.count(), 1u);
    EXPECT_EQ(remover->newcomer->events.count(), 0u);

    EXPECT_EQ(deliver("ZM:ChrmBlockMsg", kBlockPayload, "room-7"), std::optional<bool>(true));
    EXPECT_EQ(remover->events.count(), 1u);
    EXPECT_EQ(bystander->events.count(), 2u);
    EXPECT_EQ(remover->newcomer->events.count(), 1u);
}

// ---- Life cycle calls ---------------------------------------------------------

TEST_F(ExtensionModuleTest, LifeCycleCallsWriteOnlyTheirOwnLines) {
    struct LifeCycleCase {
        const char* name;
        std::function<void(ZMChatRoomExtensionModule&)> call;
        std::vector<ZMLogLine> lines;
    };
    const std::vector<LifeCycleCase> cases = {
        {"setAppKey", [](auto& m) { m.setAppKey("key-1"); },
         {{4, 1024, kModuleTag, "ZMChatRoomExtensionModule setAppKey = key-1"}}},
        {"destroyModule", [](auto& m) { m.destroyModule(); },
         {{4, 1024, kModuleTag, "ZMChatRoomExtensionModule destroyModule"}}},
        {"setUserId", [](auto& m) { m.setUserId("user-1"); }, {}},
        {"setCurrentToken", [](auto& m) { m.setCurrentToken("token"); }, {}},
        {"setConfiguration", [](auto& m) { m.setConfiguration(ZMValue{{"a", 1}}); }, {}},
        {"setDeviceToken", [](auto& m) { m.setDeviceToken("device"); }, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ZMCoreEmulator::shared().logger().clear();
        c.call(*module_);
        EXPECT_EQ(ZMCoreEmulator::shared().logger().lines(), c.lines);
    }
    EXPECT_FALSE(module_->isAudioHolding().has_value());
    EXPECT_FALSE(module_->isCameraHolding().has_value());

    // destroyModule unloaded nothing: types stay registered and routing works.
    EXPECT_EQ(ZMCoreEmulator::shared().registeredMessageTypes().size(), 5u);
    auto observer = std::make_shared<RecordingObserver>();
    client().addChatRoomNotifyEventDelegate(observer);
    EXPECT_EQ(deliver("ZM:ChrmSyncMsg", kSyncPayload, "room-7"), std::optional<bool>(true));
    EXPECT_EQ(observer->events.count(), 1u);
}

// ---- Connection status and logout ---------------------------------------------

struct ConnectionCase {
    const char* name;
    int64_t status;
    bool timerRunningBefore;
    std::vector<std::string> rejoinRequests;  // "room id:useCacheTime"
    std::vector<std::string> announcements;   // sorted
    size_t timersAfter;
};

void PrintTo(const ConnectionCase& c, std::ostream* os) { *os << c.name; }

class ConnectionStatusTest : public ExtensionModuleTest, public ::testing::WithParamInterface<ConnectionCase> {
protected:
    // Two cached rooms: "room-ok" joined, "room-failed" failed with a code
    // after which the room is kept for rejoining.
    void SetUp() override {
        ExtensionModuleTest::SetUp();
        if (HasFatalFailure()) return;
        auto& emulator = ZMCoreEmulator::shared();
        emulator.setRule("joinChatroom", [](const ZMCoreRequest& request) -> std::optional<ZMCoreAnswer> {
            if (request.arguments.value("chatroomId", "") == "room-ok") return ZMCoreAnswer::success();
            return ZMCoreAnswer::failure(23411);
        });
        client().addChatRoomStatusDelegate(statusObserver_);
        client().joinChatRoom("room-ok", 10, {}, {});
        client().joinChatRoom("room-failed", 10, {}, {});
        flush();
        ASSERT_EQ(client().cacheChatRoomDict().count(), 2u);
        ZMMainQueue::shared().drain();
        if (!GetParam().timerRunningBefore) {
            client().stopChatRoomRejoinTimer();
            ZMMainQueue::shared().drain();
        }
        ASSERT_EQ(ZMMainQueue::shared().activeTimerCount(), GetParam().timerRunningBefore ? 1u : 0u);
        emulator.clearRequests();
        statusObserver_->events.clear();
    }

    std::shared_ptr<RecordingStatusObserver> statusObserver_ = std::make_shared<RecordingStatusObserver>();
};

TEST_P(ConnectionStatusTest, StatusChangeDrivesRejoinResetAndTimer) {
    const auto& c = GetParam();
    ZMCoreEmulator::shared().setConnectionStatus(c.status);
    flush();
    ZMMainQueue::shared().drain();

    std::vector<std::string> rejoins;
    for (const auto& request : ZMCoreEmulator::shared().requests("joinChatroom")) {
        rejoins.push_back(request.arguments.value("chatroomId", "") + ":" +
                          (request.arguments.value("useCacheTime", false) ? "true" : "false"));
    }
    EXPECT_EQ(rejoins, c.rejoinRequests);
    auto announcements = statusObserver_->events.events();
    std::sort(announcements.begin(), announcements.end());
    EXPECT_EQ(announcements, c.announcements);
    EXPECT_EQ(ZMMainQueue::shared().activeTimerCount(), c.timersAfter);
}

INSTANTIATE_TEST_SUITE_P(
    Statuses, ConnectionStatusTest,
    ::testing::Values(
        ConnectionCase{"Connected", 0, false, {"room-failed:true"},
                       {"failed:room-failed:23411", "joining:room-failed"}, 1},
        ConnectionCase{"Lost1", 1, true, {}, {"failed:room-failed:-1", "failed:room-ok:-1"}, 0},
        ConnectionCase{"Lost13", 13, true, {}, {"failed:room-failed:-1", "failed:room-ok:-1"}, 0},
        ConnectionCase{"LostMinus1", -1, true, {}, {"failed:room-failed:-1", "failed:room-ok:-1"}, 0},
        ConnectionCase{"Other2", 2, true, {}, {}, 0},
        ConnectionCase{"OtherMinus2", -2, true, {}, {}, 0}),
    [](const ::testing::TestParamInfo<ConnectionCase>& info) { return std::string(info.param.name); });

TEST_F(ExtensionModuleTest, LogoutForgetsEveryRoomWithoutQuitting) {
    client().joinChatRoom("room-a", 10, {}, {});
    client().joinChatRoom("room-b", 10, {}, {});
    flush();
    ASSERT_EQ(client().cacheChatRoomDict().count(), 2u);

    ZMCoreEmulator::shared().logout();
    flush();

    EXPECT_EQ(client().cacheChatRoomDict().count(), 0u);
    EXPECT_EQ(client().syncKVChatRoomDict().count(), 0u);
    EXPECT_TRUE(ZMCoreEmulator::shared().requests("quitChatroom").empty());
}

}  // namespace
