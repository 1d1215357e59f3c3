// The module as the core loads it: loading, routing of signal messages, connection changes.

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <Platform/ZMMainQueue.h>
#include <ZMChatRoom/Extension/ZMChatRoomExtensionModule.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBanMessage.h>
#include <ZMChatRoom/Messages/ZMChatroomKVNotificationMessage.h>
#include <ZMChatRoom/ZMChatRoomClient.h>
#include <ZMChatRoomTestKit/ZMChatRoomTestKit.h>

#include "support/ZMTestSupport.h"

namespace {

using Kit = ZMChatRoomTestKit;
using Strings = std::vector<std::string>;
const std::string kModuleTag = "ZMChatRoomExtensionModule.cpp";
ZMChatRoomClient& client() { return ZMChatRoomClient::sharedChatRoomClient(); }
ZMCoreEmulator& core() { return ZMCoreEmulator::shared(); }
ZMValue text(const std::optional<std::string>& value) { return value ? ZMValue(*value) : ZMValue(); }
ZMLogLine moduleLine(const char* text) { return {4, 1024, kModuleTag, text}; }

// Records every callback as a line; after a notify event runs its hook, if any, on the event's extra.
struct RecordingObserver : ZMChatRoomMemberDelegate, ZMChatRoomNotifyEventDelegate, ZMChatRoomStatusDelegate {
    using Actions = std::vector<std::shared_ptr<ZMChatRoomMemberAction>>;
    void memberDidChange(const Actions& list, const std::string& room) override { events.record("list:" + room + dump(list, {})); }
    void memberDidChange(const std::shared_ptr<ZMChatRoomMemberActionModel>& m) override {
        events.record("model:" + m->roomId + dump(m->chatRoomMemberActions, m->memberCount));
    }
    void chatRoomNotifyMultiLoginSync(const std::shared_ptr<ZMChatRoomSyncEvent>& e) override { notify("sync", e->chatroomId, e->extra); }
    void chatRoomNotifyBlock(const std::shared_ptr<ZMChatRoomMemberBlockEvent>& e) override { notify("block", e->chatroomId, e->extra); }
    void chatRoomNotifyBan(const std::shared_ptr<ZMChatRoomMemberBanEvent>& e) override { notify("ban", e->chatroomId, e->extra); }
    void onChatRoomJoining(const std::string& id) override { events.record("joining:" + id); }
    void onChatRoomJoined(const std::string& id, const std::shared_ptr<ZMJoinChatRoomResponse>&) override { events.record("joined:" + id); }
    void onChatRoomJoinFailed(const std::string& id, int32_t code) override { events.record("failed:" + id + ":" + std::to_string(code)); }
    static std::string dump(const Actions& list, const ZMValue& head) {  // [head, [member id, action]...]
        ZMValue out = ZMValue::array({head});
        for (const auto& action : list) out.push_back({text(action->memberId), action->action});
        return out.dump();
    }
    void notify(const std::string& kind, const std::optional<std::string>& room, std::optional<std::string>& extra) {
        events.record(kind + ZMValue::array({text(room), text(extra)}).dump());
        if (hook) hook(extra);
    }
    ZMEventRecorder events;
    std::function<void(std::optional<std::string>& extra)> hook;
};

// Loads the module the way the core does and returns the module it got.
ZMChatRoomExtensionModule* loadThroughEmulator() {
    ZMChatRoomExtensionModule* loaded = nullptr;
    core().loadExtensionModule([&]() -> VemoIMLibExtensionModule& { return *(loaded = &ZMChatRoomExtensionModule::loadVemoExtensionModule()); });
    return loaded;
}

// Delivers to "room-7" through the core: whether the module held it; nullopt if routing never ends.
std::optional<bool> deliver(const std::string& objectName, const std::string& payload, bool offline = false) {
    auto held = core().deliverMessage(objectName, payload, "room-7", offline);
    return held.wait_for(std::chrono::seconds(5)) == std::future_status::ready ? std::optional(held.get()) : std::nullopt;
}

// Loads racing on several threads, then the core's: one module, registered and wired once, one
// line per call (loaded by an earlier test of the process already: nothing registered or wired).
TEST(ExtensionModuleTest, LoadsOnceLogsEveryCallAndRegistersInOrder) {
    const bool firstLoad = core().registeredMessageTypes().empty();
    std::vector<ZMChatRoomExtensionModule*> loaded(4, nullptr);
    {
        std::vector<std::jthread> threads;
        for (auto& slot : loaded) threads.emplace_back([&slot] { slot = &ZMChatRoomExtensionModule::loadVemoExtensionModule(); });
    }
    loaded.push_back(loadThroughEmulator());
    EXPECT_EQ(std::count(loaded.begin(), loaded.end(), loaded[0]), 5);
    ASSERT_TRUE(Kit::settle());
    EXPECT_EQ(core().logger().linesWithTag(kModuleTag), std::vector(5, moduleLine("ZMChatRoomExtensionModule loadVemoExtensionModule")));
    Strings names;
    for (const auto& c : core().registeredMessageTypes()) names.push_back(c.getObjectName() + ":" + std::to_string(c.persistentFlag()));
    EXPECT_EQ(names, (Strings{"ZM:chrmKVNotiMsg:0", "ZM:ChrmMemChange:16", "ZM:ChrmSyncMsg:16", "ZM:ChrmBlockMsg:16", "ZM:ChrmBanMsg:16"}));
    EXPECT_TRUE(loaded[0]->chatRoomMessageTypeList() == core().registeredMessageTypes());
    EXPECT_TRUE(loaded[0]->getSignalMessageClassList() == std::vector{ZMMessageClass::of<ZMChatroomKVNotificationMessage>()});
    EXPECT_EQ(core().requests("initChatRoomListener").size(), firstLoad ? 1u : 0u);
    EXPECT_EQ(core().requests("setChatRoomPSListener").size(), firstLoad ? 1u : 0u);
    EXPECT_TRUE(core().isPushListening());
}

struct DerivedBanMessage : ZMChatRoomMemberBanMessage {};

TEST(ExtensionModuleTest, RoutesMessagesByClassToEveryObserverAlsoOnceDestroyed) {
    ZMChatRoomExtensionModule& module = *loadThroughEmulator();
    ASSERT_TRUE(Kit::settle());
    const std::string memberChange = R"({"userList":[{"userId":"u1","status":1},{"userId":"u2","status":3}],"memberCount":12})";
    // Member changes are held without a member observer, which is held weakly.
    client().setMemberDelegate(std::make_shared<RecordingObserver>());
    EXPECT_EQ(client().memberDelegate(), nullptr);
    EXPECT_EQ(deliver("ZM:ChrmMemChange", memberChange), true);
    // Both observers tamper with every event they get; neither sees the other's change.
    auto observer = std::make_shared<RecordingObserver>(), other = std::make_shared<RecordingObserver>();
    observer->hook = other->hook = [](std::optional<std::string>& extra) { extra = "tampered"; };
    client().setMemberDelegate(observer);
    client().addChatRoomNotifyEventDelegate(other);
    client().addChatRoomNotifyEventDelegate(observer);
    // Destroying the module unloads nothing: it goes on routing to the same observers.
    core().logger().clear();
    module.setAppKey("key-1");
    module.destroyModule();
    EXPECT_EQ(core().logger().lines(), (std::vector{moduleLine("ZMChatRoomExtensionModule setAppKey = key-1"),
                                                    moduleLine("ZMChatRoomExtensionModule destroyModule")}));
    // Offered directly: no message or content is not held; a subclass is routed as its routed base.
    auto message = std::make_shared<ZMMessage>();
    EXPECT_FALSE(module.didHoldReceivedMessage(nullptr, false) || module.didHoldReceivedMessage(message, false));
    message->content = std::make_shared<DerivedBanMessage>();
    EXPECT_TRUE(module.didHoldReceivedMessage(message, false));
    EXPECT_EQ(observer->events.events(), Strings{"ban[null,null]"});
    // Field by field, the events are checked where the test kit delivers each kind of message.
    const Strings members = {R"(list:room-7[null,["u1",1],["u2",3]])", R"(model:room-7[12,["u1",1],["u2",3]])"};
    const struct { std::string objectName, payload; bool offline, held; Strings events; } cases[] = {
        {"ZM:ChrmMemChange", memberChange, false, true, members}, {"ZM:ChrmMemChange", memberChange, true, true, members},
        {"ZM:ChrmSyncMsg", R"({"chatroomId":"r1","status":1,"extra":"e"})", false, true, {R"(sync["r1","e"])"}},
        {"ZM:ChrmBlockMsg", R"({"chatroomId":"r2","durationTime":60})", true, true, {R"(block["r2",null])"}},
        {"ZM:ChrmBanMsg", R"({"operateType":2,"extra":"x"})", false, true, {R"(ban[null,"x"])"}},
        {"ZM:chrmKVNotiMsg", R"({"type":1,"key":"k","value":"v"})", false, false, {}}, {"ZM:SomethingElse", "{}", false, false, {}},
    };
    for (const auto& c : cases) {
        observer->events.clear();
        EXPECT_EQ(deliver(c.objectName, c.payload, c.offline), c.held) << c.objectName << c.offline;
        EXPECT_EQ(observer->events.events(), c.events) << c.objectName << c.offline;
    }
    EXPECT_EQ(other->events.count(), 4u);
    for (const auto& event : other->events.events()) EXPECT_EQ(event.find("tampered"), std::string::npos) << event;
    // One removes itself and adds a newcomer from its callback: the walk reaches the next one, not the newcomer.
    auto newcomer = std::make_shared<RecordingObserver>();
    other->hook = [&](std::optional<std::string>&) {
        client().removeChatRoomNotifyEventDelegate(other);
        client().addChatRoomNotifyEventDelegate(newcomer);
    };
    other->events.clear();
    observer->events.clear();
    for (size_t round = 1; round <= 2; ++round) {
        EXPECT_EQ(deliver("ZM:ChrmBlockMsg", "{}"), true);
        EXPECT_EQ((std::vector{other->events.count(), observer->events.count(), newcomer->events.count()}), (std::vector<size_t>{1, round, round - 1}));
    }
}

// A connection status (nullopt: a logout) offered to the module, from two cached rooms: "room-ok"
// joined, "room-failed" failed with a code after which the room is kept for rejoining.
TEST(ExtensionModuleTest, ConnectionChangesDriveRejoinResetTimerAndCache) {
    const Strings bothFailed = {"failed:room-failed:-1", "failed:room-ok:-1"};
    // rejoins: "room id:useCacheTime"; announcements sorted
    const struct { std::optional<int64_t> status; bool timerBefore; Strings rejoins, announcements; size_t timersAfter, roomsAfter; } cases[] = {
        {0, false, {"room-failed:true"}, {"failed:room-failed:23411", "joining:room-failed"}, 1, 2},
        {1, true, {}, bothFailed, 0, 2}, {13, true, {}, bothFailed, 0, 2}, {-1, true, {}, bothFailed, 0, 2},
        {2, true, {}, {}, 0, 2}, {-2, true, {}, {}, 0, 2}, {std::nullopt, false, {}, {}, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.status ? std::to_string(*c.status) : "logout");
        ASSERT_TRUE(Kit::reset());
        ASSERT_NE(loadThroughEmulator(), nullptr);
        auto status = std::make_shared<RecordingObserver>();
        client().addChatRoomStatusDelegate(status);
        for (const char* room : {"room-ok", "room-failed"}) {
            client().joinChatRoom(room, 10, {}, {});
            ASSERT_TRUE(Kit::settle());  // the rejoin timer starts with the first room
            core().setRule("joinChatroom", ZMCoreAnswer::failure(23411));
        }
        if (!c.timerBefore) client().stopChatRoomRejoinTimer();
        ASSERT_TRUE(Kit::settle());
        ASSERT_EQ(client().cacheChatRoomDict().count(), 2u);
        ASSERT_EQ(ZMMainQueue::shared().activeTimerCount(), c.timerBefore ? 1u : 0u);
        core().clearRequests();
        status->events.clear();

        c.status ? core().setConnectionStatus(*c.status) : core().logout();
        ASSERT_TRUE(Kit::settle());
        Strings rejoins, announcements = status->events.events();
        for (const auto& request : core().requests("joinChatroom")) {
            rejoins.push_back(request.arguments.value("chatroomId", "") + ":" + request.arguments.at("useCacheTime").dump());
        }
        EXPECT_EQ(rejoins, c.rejoins);
        EXPECT_TRUE(core().requests("quitChatroom").empty());
        std::sort(announcements.begin(), announcements.end());
        EXPECT_EQ(announcements, c.announcements);
        EXPECT_EQ(ZMMainQueue::shared().activeTimerCount(), c.timersAfter);
        EXPECT_EQ(client().cacheChatRoomDict().count(), c.roomsAfter);
        if (!c.status) { EXPECT_EQ(client().syncKVChatRoomDict().count(), 0u); }
    }
}

}  // namespace
