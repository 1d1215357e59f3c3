#include <algorithm>
#include <chrono>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <Platform/ZMMainQueue.h>
#include <ZMChatRoom/Extension/ZMChatRoomExtensionModule.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBanMessage.h>
#include <ZMChatRoom/Messages/ZMChatroomKVNotificationMessage.h>
#include <ZMChatRoom/ZMChatRoomClient.h>

#include "support/ZMTestSupport.h"

namespace {

const std::string kModuleTag = "ZMChatRoomExtensionModule.cpp";

ZMChatRoomClient& client() { return ZMChatRoomClient::sharedChatRoomClient(); }
ZMCoreEmulator& core() { return ZMCoreEmulator::shared(); }
ZMValue text(const std::optional<std::string>& value) { return value ? ZMValue(*value) : ZMValue(); }

// Records every callback as one line of text; after recording a notify event
// it runs its hook, if any, on the event's extra.
class RecordingObserver : public ZMChatRoomMemberDelegate,
                          public ZMChatRoomNotifyEventDelegate,
                          public ZMChatRoomStatusDelegate {
public:
    void memberDidChange(const std::vector<std::shared_ptr<ZMChatRoomMemberAction>>& members,
                         const std::string& chatroomId) override {
        events.record("list:" + chatroomId + ":" + actions(members));
    }
    void memberDidChange(const std::shared_ptr<ZMChatRoomMemberActionModel>& m) override {
        events.record("model:" + m->roomId + ":" + std::to_string(m->memberCount) + ":" + actions(m->chatRoomMemberActions));
    }
    void chatRoomNotifyMultiLoginSync(const std::shared_ptr<ZMChatRoomSyncEvent>& e) override {
        notify("sync:", *e, {text(e->chatroomId), e->status, e->reason, e->time, text(e->extra)});
    }
    void chatRoomNotifyBlock(const std::shared_ptr<ZMChatRoomMemberBlockEvent>& e) override {
        notify("block:", *e,
               {text(e->chatroomId), e->operateType, e->durationTime, e->operateTime, e->userIdList, text(e->extra)});
    }
    void chatRoomNotifyBan(const std::shared_ptr<ZMChatRoomMemberBanEvent>& e) override {
        notify("ban:", *e,
               {text(e->chatroomId), e->banType, e->durationTime, e->operateTime, e->userIdList, text(e->extra)});
    }
    void onChatRoomJoining(const std::string& id) override { events.record("joining:" + id); }
    void onChatRoomJoined(const std::string& id, const std::shared_ptr<ZMJoinChatRoomResponse>&) override {
        events.record("joined:" + id);
    }
    void onChatRoomJoinFailed(const std::string& id, int32_t code) override {
        events.record("failed:" + id + ":" + std::to_string(code));
    }

    ZMEventRecorder events;
    std::function<void(std::optional<std::string>& extra)> hook;

private:
    static std::string actions(const std::vector<std::shared_ptr<ZMChatRoomMemberAction>>& list) {
        ZMValue pairs = ZMValue::array();
        for (const auto& action : list) pairs.push_back({text(action->memberId), action->action});
        return pairs.dump();
    }
    template <class Event>
    void notify(const std::string& kind, Event& event, const ZMValue& fields) {
        events.record(kind + fields.dump());
        if (hook) hook(event.extra);
    }
};

const char* const kMemberPayload = R"({"userList":[{"userId":"u1","status":1},{"userId":"u2","status":3}],"memberCount":12})";

// Loads the module the way the core does and returns the module it got.
ZMChatRoomExtensionModule* loadThroughEmulator() {
    ZMChatRoomExtensionModule* loaded = nullptr;
    core().loadExtensionModule(
        [&]() -> VemoIMLibExtensionModule& { return *(loaded = &ZMChatRoomExtensionModule::loadVemoExtensionModule()); });
    return loaded;
}

// Delivers a message through the core (on its callback thread) and waits for
// the routing to finish; nullopt if it does not.
std::optional<bool> deliver(const std::string& objectName, const std::string& payload, bool offline = false) {
    auto held = core().deliverMessage(objectName, payload, "room-7", offline);
    if (held.wait_for(std::chrono::seconds(5)) != std::future_status::ready) return std::nullopt;
    return held.get();
}

// Lets everything already started run to its end: connection changes and
// answers of the core, queued operations and status announcements.
void flush() {
    ASSERT_TRUE(core().waitUntilIdle());
    client().zm_chatroom_operation_queue().sync([] {});
    ASSERT_TRUE(core().waitUntilIdle());
    client().zm__notify_chatroom_status_queue().sync([] {});
}

class ExtensionModuleTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(loadThroughEmulator(), nullptr);
        flush();
    }
};

// The process's first loads race on several threads, then the core loads the
// module too: one module, one registration in order, one line per call. A
// module is loaded once per process; when an earlier test of the same process
// loaded it already, these loads must create, register and wire nothing more.
TEST(ExtensionModuleLoadTest, LoadsOnceLogsEveryCallAndRegistersInOrder) {
    const bool firstLoad = core().registeredMessageTypes().empty();
    std::vector<ZMChatRoomExtensionModule*> loaded(4, nullptr);
    std::vector<std::thread> threads;
    for (auto& slot : loaded) threads.emplace_back([&slot] { slot = &ZMChatRoomExtensionModule::loadVemoExtensionModule(); });
    for (auto& thread : threads) thread.join();
    loaded.push_back(loadThroughEmulator());
    for (auto* module : loaded) EXPECT_EQ(module, loaded[0]);
    flush();

    EXPECT_EQ(core().logger().linesWithTag(kModuleTag),
              std::vector<ZMLogLine>(5, {4, 1024, kModuleTag, "ZMChatRoomExtensionModule loadVemoExtensionModule"}));
    const auto registered = core().registeredMessageTypes();
    std::vector<std::string> names;
    for (const auto& c : registered) names.push_back(c.getObjectName() + ":" + std::to_string(c.persistentFlag()));
    EXPECT_EQ(names, (std::vector<std::string>{"ZM:chrmKVNotiMsg:0", "ZM:ChrmMemChange:16", "ZM:ChrmSyncMsg:16",
                                               "ZM:ChrmBlockMsg:16", "ZM:ChrmBanMsg:16"}));
    EXPECT_TRUE(loaded[0]->chatRoomMessageTypeList() == registered);
    EXPECT_TRUE(loaded[0]->getSignalMessageClassList() ==
                std::vector<ZMMessageClass>{ZMMessageClass::of<ZMChatroomKVNotificationMessage>()});
    // The client was wired to the core exactly once (by the first load).
    const size_t wirings = firstLoad ? 1u : 0u;
    EXPECT_EQ(core().requests("initChatRoomListener").size(), wirings);
    EXPECT_EQ(core().requests("setChatRoomPSListener").size(), wirings);
    EXPECT_TRUE(core().isPushListening());
}

struct DerivedBanMessage : ZMChatRoomMemberBanMessage {};

TEST_F(ExtensionModuleTest, DestroyedModuleStillRoutesMessagesByTheirClass) {
    auto& module = ZMChatRoomExtensionModule::loadVemoExtensionModule();

    // Member changes are held without a member observer, which is held weakly.
    client().setMemberDelegate(std::make_shared<RecordingObserver>());
    EXPECT_EQ(client().memberDelegate(), nullptr);
    EXPECT_EQ(deliver("ZM:ChrmMemChange", kMemberPayload), std::optional<bool>(true));

    struct Case { std::string objectName, payload; bool offline, held; std::vector<std::string> events; };
    const std::string members = R"(:[["u1",1],["u2",3]])";
    const std::vector<Case> cases = {
        {"ZM:ChrmMemChange", kMemberPayload, false, true, {"list:room-7" + members, "model:room-7:12" + members}},
        {"ZM:ChrmMemChange", kMemberPayload, true, true, {"list:room-7" + members, "model:room-7:12" + members}},
        {"ZM:ChrmSyncMsg", R"({"chatroomId":"room-7","status":1,"reason":2,"time":1700000000123,"extra":"e"})", false,
         true, {R"(sync:["room-7",1,2,1700000000123,"e"])"}},
        {"ZM:ChrmBlockMsg",
         R"({"chatroomId":"room-7","operateType":1,"durationTime":60,"operateTime":1700000000456,"userList":["u1"],"extra":"e"})",
         true, true, {R"(block:["room-7",1,60,1700000000456,["u1"],"e"])"}},
        {"ZM:ChrmBanMsg",
         R"({"chatroomId":"room-7","operateType":2,"durationTime":30,"operateTime":1700000000789,"userList":["u1","u2"],"extra":"x"})",
         false, true, {R"(ban:["room-7",2,30,1700000000789,["u1","u2"],"x"])"}},
        {"ZM:chrmKVNotiMsg", R"({"type":1,"key":"k","value":"v"})", false, false, {}},
        {"ZM:SomethingElse", R"({"chatroomId":"room-7"})", false, false, {}},
    };

    // Each observer gets an event of its own: both tamper with every event
    // they got, and neither sees the other's change.
    auto observer = std::make_shared<RecordingObserver>();
    auto other = std::make_shared<RecordingObserver>();
    observer->hook = other->hook = [](std::optional<std::string>& extra) { extra = "tampered"; };
    client().setMemberDelegate(observer);
    client().addChatRoomNotifyEventDelegate(other);
    client().addChatRoomNotifyEventDelegate(observer);
    // Destroying the module unloads nothing: it goes on routing to the same observers.
    core().logger().clear();
    module.setAppKey("key-1");
    module.destroyModule();
    EXPECT_EQ(core().logger().lines(),
              (std::vector<ZMLogLine>{{4, 1024, kModuleTag, "ZMChatRoomExtensionModule setAppKey = key-1"},
                                      {4, 1024, kModuleTag, "ZMChatRoomExtensionModule destroyModule"}}));

    // Offered directly: no message or no content is not held; a subclass of a
    // routed class is routed as that class.
    EXPECT_FALSE(module.didHoldReceivedMessage(nullptr, false));
    auto message = std::make_shared<ZMMessage>();
    EXPECT_FALSE(module.didHoldReceivedMessage(message, false));
    message->content = std::make_shared<DerivedBanMessage>();
    EXPECT_TRUE(module.didHoldReceivedMessage(message, false));
    EXPECT_EQ(observer->events.events(), std::vector<std::string>{"ban:[null,0,0,0,null,null]"});

    for (const auto& c : cases) {
        observer->events.clear();
        EXPECT_EQ(deliver(c.objectName, c.payload, c.offline), std::optional<bool>(c.held)) << c.objectName << c.offline;
        EXPECT_EQ(observer->events.events(), c.events) << c.objectName << c.offline;
    }
    EXPECT_EQ(other->events.count(), 4u);
    for (const auto& event : other->events.events()) EXPECT_EQ(event.find("tampered"), std::string::npos) << event;
}

// An observer removes itself and registers a newcomer from inside its first
// callback: the walk in progress still reaches the bystander, not the newcomer.
TEST_F(ExtensionModuleTest, ObserverChangesDuringDeliveryDoNotDisturbTheWalk) {
    auto remover = std::make_shared<RecordingObserver>();
    auto bystander = std::make_shared<RecordingObserver>();
    auto newcomer = std::make_shared<RecordingObserver>();
    remover->hook = [weak = std::weak_ptr<RecordingObserver>(remover), newcomer](std::optional<std::string>&) {
        client().removeChatRoomNotifyEventDelegate(weak.lock());
        client().addChatRoomNotifyEventDelegate(newcomer);
    };
    client().addChatRoomNotifyEventDelegate(remover);
    client().addChatRoomNotifyEventDelegate(bystander);

    for (size_t round = 1; round <= 2; ++round) {
        EXPECT_EQ(deliver("ZM:ChrmBlockMsg", "{}"), std::optional<bool>(true));
        EXPECT_EQ(remover->events.count(), 1u);
        EXPECT_EQ(bystander->events.count(), round);
        EXPECT_EQ(newcomer->events.count(), round - 1);
    }
}

// A connection status (nullopt: a logout) offered to the module, and what it
// leads to from two cached rooms.
struct SessionCase {
    const char* name;
    std::optional<int64_t> status;
    bool timerRunningBefore;
    std::vector<std::string> rejoinRequests;  // "room id:useCacheTime"
    std::vector<std::string> announcements;   // sorted
    size_t timersAfter, roomsAfter;
};

void PrintTo(const SessionCase& c, std::ostream* os) { *os << c.name; }

class ExtensionSessionTest : public ExtensionModuleTest, public ::testing::WithParamInterface<SessionCase> {
protected:
    // "room-ok" joined, "room-failed" failed with a code after which the room
    // is kept for rejoining.
    void SetUp() override {
        ExtensionModuleTest::SetUp();
        if (HasFatalFailure()) return;
        client().addChatRoomStatusDelegate(statusObserver_);
        client().joinChatRoom("room-ok", 10, {}, {});
        flush();
        core().setRule("joinChatroom", ZMCoreAnswer::failure(23411));
        client().joinChatRoom("room-failed", 10, {}, {});
        flush();
        ASSERT_EQ(client().cacheChatRoomDict().count(), 2u);
        ZMMainQueue::shared().drain();  // the rejoin timer starts
        if (!GetParam().timerRunningBefore) client().stopChatRoomRejoinTimer();
        ZMMainQueue::shared().drain();
        ASSERT_EQ(ZMMainQueue::shared().activeTimerCount(), GetParam().timerRunningBefore ? 1u : 0u);
        core().clearRequests();
        statusObserver_->events.clear();
    }

    std::shared_ptr<RecordingObserver> statusObserver_ = std::make_shared<RecordingObserver>();
};

TEST_P(ExtensionSessionTest, DrivesRejoinResetTimerAndCache) {
    const auto& c = GetParam();
    c.status ? core().setConnectionStatus(*c.status) : core().logout();
    flush();
    ZMMainQueue::shared().drain();

    std::vector<std::string> rejoins;
    for (const auto& request : core().requests("joinChatroom")) {
        rejoins.push_back(request.arguments.value("chatroomId", "") + ":" + request.arguments.at("useCacheTime").dump());
    }
    EXPECT_EQ(rejoins, c.rejoinRequests);
    EXPECT_TRUE(core().requests("quitChatroom").empty());
    auto announcements = statusObserver_->events.events();
    std::sort(announcements.begin(), announcements.end());
    EXPECT_EQ(announcements, c.announcements);
    EXPECT_EQ(ZMMainQueue::shared().activeTimerCount(), c.timersAfter);
    EXPECT_EQ(client().cacheChatRoomDict().count(), c.roomsAfter);
    if (!c.status) { EXPECT_EQ(client().syncKVChatRoomDict().count(), 0u); }
}

const std::vector<std::string> kBothFailed = {"failed:room-failed:-1", "failed:room-ok:-1"};

INSTANTIATE_TEST_SUITE_P(
    Statuses, ExtensionSessionTest,
    ::testing::Values(
        SessionCase{"Connected", 0, false, {"room-failed:true"}, {"failed:room-failed:23411", "joining:room-failed"},
                    1, 2},
        SessionCase{"Lost1", 1, true, {}, kBothFailed, 0, 2}, SessionCase{"Lost13", 13, true, {}, kBothFailed, 0, 2},
        SessionCase{"LostMinus1", -1, true, {}, kBothFailed, 0, 2}, SessionCase{"Other2", 2, true, {}, {}, 0, 2},
        SessionCase{"OtherMinus2", -2, true, {}, {}, 0, 2}, SessionCase{"Logout", std::nullopt, false, {}, {}, 0, 0}),
    [](const ::testing::TestParamInfo<SessionCase>& info) { return std::string(info.param.name); });

}  // namespace
