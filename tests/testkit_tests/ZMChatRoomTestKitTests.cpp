#include <algorithm>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <VemoIMLibCore/ZMCoreClient.h>
#include <ZMChatRoom/Messages/ZMChatRoomSyncMessage.h>
#include <ZMChatRoom/Messages/ZMChatroomKVNotificationMessage.h>
#include <ZMChatRoomTestKit/ZMChatRoomTestFixture.h>

#include "support/ZMTestSupport.h"

namespace {

using Strings = std::vector<std::string>;
using Kit = ZMChatRoomTestKit;

ZMValue text(const std::optional<std::string>& value) { return value ? ZMValue(*value) : ZMValue(); }

// Hears everything the module tells an app, one line per call with every field.
class Everything : public ZMChatRoomStatusDelegate,
                   public ZMChatRoomKVStatusChangeDelegate,
                   public ZMChatRoomMemberDelegate,
                   public ZMChatRoomNotifyEventDelegate,
                   public ZMChatRoomKVStatusFilterDelegate {
public:
    ZMEventRecorder events;
    void hear(const std::string& what, const ZMValue& fields) { events.record(what + ":" + fields.dump()); }

    void onChatRoomJoined(const std::string& room, const std::shared_ptr<ZMJoinChatRoomResponse>&) override {
        hear("joined", room);
    }
    void onChatRoomJoinFailed(const std::string& room, int32_t code) override { hear("failed", {room, code}); }
    void onChatRoomDestroyed(const std::string& room, int32_t type) override { hear("destroyed", {room, type}); }
    void chatRoomKVDidSync(const std::string& room) override { hear("sync", room); }
    void chatRoomKVDidUpdate(const std::string& room, const ZMValue& entry) override { hear("update", {room, entry}); }
    void chatRoomKVDidRemove(const std::string& room, const ZMValue& entry) override { hear("remove", {room, entry}); }
    using ZMChatRoomMemberDelegate::memberDidChange;
    void memberDidChange(const std::shared_ptr<ZMChatRoomMemberActionModel>& model) override {
        ZMValue actions = ZMValue::array();
        for (const auto& action : model->chatRoomMemberActions) actions.push_back({text(action->memberId), action->action});
        hear("members", {model->roomId, model->memberCount, actions});
    }
    void chatRoomNotifyBlock(const std::shared_ptr<ZMChatRoomMemberBlockEvent>& e) override {
        hear("block", {text(e->chatroomId), e->operateType, e->durationTime, e->operateTime, e->userIdList, text(e->extra)});
    }
    void chatRoomNotifyBan(const std::shared_ptr<ZMChatRoomMemberBanEvent>& e) override {
        hear("ban", {text(e->chatroomId), e->banType, e->durationTime, e->operateTime, e->userIdList, text(e->extra)});
    }
    void chatRoomNotifyMultiLoginSync(const std::shared_ptr<ZMChatRoomSyncEvent>& e) override {
        hear("sync-login", {text(e->chatroomId), e->status, e->reason, e->time, text(e->extra)});
    }
};

// A second extension module, loaded once after the chat-room module (the core
// keeps it): it hears the KV notifications the chat-room module does not
// hold, as the app's own message handling would, with every field.
class MessageListener : public VemoIMLibExtensionModule {
public:
    static MessageListener& shared() {
        static MessageListener* const listener = [] {
            auto* module = new MessageListener();
            ZMCoreEmulator::shared().loadExtensionModule([module]() -> VemoIMLibExtensionModule& { return *module; });
            return module;
        }();
        return *listener;
    }
    ZMEventRecorder events;
    bool didHoldReceivedMessage(const std::shared_ptr<ZMMessage>& message, bool isOffline) override {
        if (auto kv = std::dynamic_pointer_cast<ZMChatroomKVNotificationMessage>(message->content)) {
            const ZMValue fields = {message->targetId, kv->type, text(kv->key), text(kv->value), text(kv->extra), isOffline};
            events.record("kv-notification:" + fields.dump());
        }
        return false;
    }
    void destroyModule() override {}
    std::vector<ZMMessageClass> getSignalMessageClassList() override { return {}; }
    void setAppKey(const std::string&) override {}
    void setConfiguration(const ZMValue&) override {}
    void setUserId(const std::string&) override {}
    void setCurrentToken(const std::string&) override {}
    void notifyConnectionStatusChanged(int64_t) override {}
    void notifyLogoutEvent() override {}
};

class TestKitTest : public ZMChatRoomTestFixture {
protected:
    std::shared_ptr<Everything> observer = std::make_shared<Everything>();

    void observeEverything(const std::shared_ptr<Everything>& who) {
        client.addChatRoomStatusDelegate(who);
        client.addChatRoomKVStatusChangeDelegate(who);
        client.addChatRoomNotifyEventDelegate(who);
        client.setMemberDelegate(who);
    }
};

// A test leaves the module and the emulator in every state it can reach; after
// the kit's reset nothing of it is left but what a real core keeps for the
// process (the loaded module and the listener callbacks it installed).
TEST_F(TestKitTest, ResetLeavesNothingOfThePreviousTestButTheLoadedModule) {
    auto previous = std::make_shared<Everything>();  // the previous test's observer, still alive
    auto token = std::make_shared<int>(0);
    std::weak_ptr<int> heldCallback = token;
    // Requests, log lines, connection, rooms, KV flags, timers, the status, KV, notify and member observers and
    // the filter, held requests and their callbacks, the KV store, navigation detections.
    auto state = [&] {
        return ZMValue{core.requests().size(), core.logger().lines().size(),
                       ZMCoreClient::sharedCoreClient().getConnectionStatus(), client.cacheChatRoomDict().count(),
                       client.syncKVChatRoomDict().count(), mainQueue.activeTimerCount(),
                       client.allChatRoomStatusDelegates().size(), client.allChatRoomKVStatusChangeDelegates().size(),
                       client.allChatRoomNotifyEventDelegates().size(), client.memberDelegate() != nullptr,
                       client.zmKVStatusFilterDelegate() != nullptr, core.heldRequests().size(), heldCallback.expired(),
                       core.chatRoomEntries("hall"), core.naviDetectionCount()}
            .dump();
    };
    observeEverything(previous);
    client.setZMChatRoomKVStatusFilterDelegate(previous);
    // Lost (and the module told) before the join, so that its rejoin timer still runs at the reset.
    Kit::pushConnectionStatus(Kit::kConnectionLost);
    settle();
    client.joinChatRoom("lobby", 10, ZMSuccessBlock{}, ZMErrorBlock{});
    settle();
    core.setRule("joinChatroom", ZMCoreAnswer::failure(23410));
    core.holdRequests("bindRTCRoomForChatroom");
    client.bindChatRoom("lobby", "rtc", [token] {}, [token](int32_t) {});
    token.reset();
    // Stands for a rejoin timer that two racing starts left outside the module's slot.
    mainQueue.scheduledTimer(2, true, [] {});
    core.seedChatRoomEntries("hall", {{"topic", "old"}});
    core.setChatroomKVStorageEnabled(false);
    core.setNaviDetectionFails();
    settle();
    const std::string fresh = "[0,0,0,0,0,0,0,0,0,false,false,0,true,{},0]";
    // Everything but the navigation count differs from a fresh start before the reset.
    const ZMValue before = ZMValue::parse(state()), expected = ZMValue::parse(fresh);
    for (size_t i = 0; i + 1 < expected.size(); ++i) EXPECT_NE(before[i], expected[i]) << "part " << i;
    ASSERT_TRUE(Kit::reset());
    EXPECT_EQ(state(), fresh);  // the held callbacks released without being called

    // The next test starts from a fresh server: a join is answered by default (and makes only its own
    // requests) and the KV switch is on.
    observeEverything(observer);
    client.joinChatRoom("hall", 10, ZMSuccessBlock{}, ZMErrorBlock{});
    settle();
    // The announcement comes from the notify queue, the synchronisation from a core thread: either may come first.
    Strings heard = observer->events.events();
    std::sort(heard.begin(), heard.end());
    EXPECT_EQ(heard, (Strings{R"(joined:"hall")", R"(sync:"hall")"}));
    EXPECT_EQ(core.requests().front().id, 1u);
    EXPECT_EQ(core.requests("joinChatroom").size(), 1u);
    client.setChatRoomEntry("hall", "topic", "new", false, false, nullptr, ZMSuccessBlock{}, ZMErrorBlock{});
    settle();
    EXPECT_EQ(core.chatRoomEntries("hall"), ZMValue({{"topic", "new"}}));
    // Settling or resetting from the module's own queue would wait for itself.
    client.zm_chatroom_operation_queue().sync([] { EXPECT_FALSE(Kit::settle() || Kit::reset()); });
}

// Each typed message reaches the observer that receives it with every field as given (the KV notification,
// which the chat-room module does not hold, reaches the next module), and each push reaches the module as the
// server's would, in a joined room.
TEST_F(TestKitTest, TypedMessagesAndPushesReachTheModuleWithEveryField) {
    MessageListener& listener = MessageListener::shared();
    const struct {
        std::function<bool()> act;  // whether a message was held (or left to the next module) as it should be
        Strings heard;
        size_t roomsAfter = 1;
    } cases[] = {
        {[] { return Kit::deliverMemberChange({"lobby", {{"u1", 1}, {"u2", 3}}, 12}).get(); },
         {R"(members:["lobby",12,[["u1",1],["u2",3]]])"}},
        {[] { return Kit::deliverMemberChange({.chatroomId = "hall"}, true).get(); }, {R"(members:["hall",0,[]])"}},
        {[] { return Kit::deliverBlock({"lobby", 1, 60, 1700000000456, {"u1", "u2"}, "spam"}).get(); },
         {R"(block:["lobby",1,60,1700000000456,["u1","u2"],"spam"])"}},
        {[] { return Kit::deliverBan({"lobby", 2, 30, 1700000000789, {"u3"}, "quiet"}).get(); },
         {R"(ban:["lobby",2,30,1700000000789,["u3"],"quiet"])"}},
        {[] { return Kit::deliverBan({.chatroomId = "hall", .banType = 4}).get(); }, {R"(ban:["hall",4,0,0,[],null])"}},
        {[] { return Kit::deliverMultiLoginSync({"lobby", 1, 2, 1700000000123, "tablet"}).get(); },
         {R"(sync-login:["lobby",1,2,1700000000123,"tablet"])"}},
        {[] { return !Kit::deliverKVNotification({"lobby", 1, "topic", "news", "by alice"}).get(); },
         {R"(kv-notification:["lobby",1,"topic","news","by alice",false])"}},
        {[] { return !Kit::deliverKVNotification({.chatroomId = "hall", .type = 2, .key = "topic"}, true).get(); },
         {R"(kv-notification:["hall",2,"topic",null,null,true])"}},
        {[] {
             ZMChatRoomSyncMessage message;  // any message content goes as its encode() gives it
             message.chatroomId = "lobby";
             message.status = 2;
             return Kit::deliver(message, "lobby").get();
         },
         {R"(sync-login:["lobby",2,0,0,null])"}},
        {[] { Kit::pushFirstKVSync("lobby"); return true; }, {R"(sync:"lobby")", R"(update:["lobby",{"topic":"news"}])"}},
        {[] { Kit::pushKVChange("lobby", {{"a", "1"}, {"b", "2"}}, {{"c", "3"}}); return true; },
         {R"(update:["lobby",{"a":"1","b":"2"}])", R"(remove:["lobby",{"c":"3"}])"}},
        {[] { Kit::pushKVChange("lobby", {}, {{"c", "3"}}); return true; }, {R"(remove:["lobby",{"c":"3"}])"}},
        {[] { Kit::pushRoomDestroyed("lobby", 2); return true; }, {R"(destroyed:["lobby",3])"}, 0},
        {[] { Kit::pushConnectionStatus(Kit::kConnectionLost); return true; }, {R"(failed:["lobby",-1])"}},
        {[] { Kit::pushLogout(); return true; }, {}, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.heard));
        ASSERT_TRUE(Kit::reset());
        observeEverything(observer);
        core.setKVFirstSync(ZMCoreEmulator::KVFirstSync::Never);
        core.seedChatRoomEntries("lobby", {{"topic", "news"}});
        client.joinChatRoom("lobby", 10, ZMSuccessBlock{}, ZMErrorBlock{});
        settle();
        observer->events.clear();
        listener.events.clear();
        EXPECT_TRUE(c.act());
        settle();
        Strings heard = observer->events.events();
        for (const auto& event : listener.events.events()) heard.push_back(event);
        EXPECT_EQ(heard, c.heard);
        EXPECT_EQ(client.cacheChatRoomDict().count(), c.roomsAfter);
    }
    // A content that cannot be encoded is refused before anything is delivered.
    ZMChatRoomSyncMessage message;
    message.extra = std::string("\xff\xfe");
    EXPECT_THROW(Kit::deliver(message, "lobby"), std::invalid_argument);
    settle();
    EXPECT_TRUE(observer->events.events().empty());
}

}  // namespace
