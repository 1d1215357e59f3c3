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

// Hears everything the module tells an app, one line per call with every
// field: status changes, KV changes, member changes and notify events.
class Everything : public ZMChatRoomStatusDelegate,
                   public ZMChatRoomKVStatusChangeDelegate,
                   public ZMChatRoomMemberDelegate,
                   public ZMChatRoomNotifyEventDelegate,
                   public ZMChatRoomKVStatusFilterDelegate {
public:
    ZMEventRecorder events;

    void onChatRoomJoined(const std::string& room, const std::shared_ptr<ZMJoinChatRoomResponse>&) override {
        events.record("joined:" + room);
    }
    void onChatRoomJoinFailed(const std::string& room, int32_t code) override {
        events.record("failed:" + room + ":" + std::to_string(code));
    }
    void onChatRoomDestroyed(const std::string& room, int32_t type) override {
        events.record("destroyed:" + room + ":" + std::to_string(type));
    }
    void chatRoomKVDidSync(const std::string& room) override { events.record("sync:" + room); }
    void chatRoomKVDidUpdate(const std::string& room, const ZMValue& entry) override {
        events.record("update:" + room + ":" + entry.dump());
    }
    void chatRoomKVDidRemove(const std::string& room, const ZMValue& entry) override {
        events.record("remove:" + room + ":" + entry.dump());
    }
    using ZMChatRoomMemberDelegate::memberDidChange;
    void memberDidChange(const std::shared_ptr<ZMChatRoomMemberActionModel>& model) override {
        ZMValue actions = ZMValue::array();
        for (const auto& action : model->chatRoomMemberActions) {
            actions.push_back({text(action->memberId), action->action});
        }
        events.record("members:" + model->roomId + ":" + std::to_string(model->memberCount) + ":" + actions.dump());
    }
    void chatRoomNotifyBlock(const std::shared_ptr<ZMChatRoomMemberBlockEvent>& e) override {
        events.record("block:" + ZMValue::array({text(e->chatroomId), e->operateType, e->durationTime, e->operateTime,
                                                 e->userIdList, text(e->extra)})
                                     .dump());
    }
    void chatRoomNotifyBan(const std::shared_ptr<ZMChatRoomMemberBanEvent>& e) override {
        events.record("ban:" + ZMValue::array({text(e->chatroomId), e->banType, e->durationTime, e->operateTime,
                                               e->userIdList, text(e->extra)})
                                   .dump());
    }
    void chatRoomNotifyMultiLoginSync(const std::shared_ptr<ZMChatRoomSyncEvent>& e) override {
        events.record("sync-login:" +
                      ZMValue::array({text(e->chatroomId), e->status, e->reason, e->time, text(e->extra)}).dump());
    }
};

// A second extension module, loaded after the chat-room module: it hears the
// messages the chat-room module does not hold (as the app's own message
// handling would) and records KV notifications with every field.
class MessageListener : public VemoIMLibExtensionModule {
public:
    // Loaded once per process; the core keeps it.
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
            events.record("kv-notification:" + message->targetId + ":" +
                          ZMValue::array({kv->type, text(kv->key), text(kv->value), text(kv->extra), isOffline})
                              .dump());
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

private:
    MessageListener() = default;
};

class TestKitTest : public ZMChatRoomTestFixture {
protected:
    std::shared_ptr<Everything> observer = std::make_shared<Everything>();

    void observeEverything() {
        client.addChatRoomStatusDelegate(observer);
        client.addChatRoomKVStatusChangeDelegate(observer);
        client.addChatRoomNotifyEventDelegate(observer);
        client.setMemberDelegate(observer);
    }
};

// A test leaves the module and the emulator in every state it can reach; after
// the kit's reset, nothing of it is left but what a real core keeps for the
// process (the loaded module and the listener callbacks it installed).
TEST_F(TestKitTest, ResetLeavesNothingOfThePreviousTestButTheLoadedModule) {
    std::weak_ptr<int> heldCallback;
    auto previous = std::make_shared<Everything>();  // the previous test's observer, still alive
    const struct {
        const char* part;
        std::function<void()> leave;
        std::function<void()> check;
    } parts[] = {
        {"requests and log lines", [] {},
         [&] {
             EXPECT_TRUE(core.requests().empty());
             EXPECT_TRUE(core.logger().lines().empty());
         }},
        // Lost (and the module told) before the join, so that the join's
        // rejoin timer still runs at the reset.
        {"connection",
         [&] {
             Kit::pushConnectionStatus(Kit::kConnectionLost);
             settle();
         },
         [] { EXPECT_EQ(ZMCoreClient::sharedCoreClient().getConnectionStatus(), Kit::kConnected); }},
        {"rooms, synchronisation flags and the rejoin timer",
         [&] {
             client.joinChatRoom("lobby", 10, ZMSuccessBlock{}, ZMErrorBlock{});
             settle();
             ASSERT_EQ(client.syncKVChatRoomDict().objectForKey("lobby"), true);
             ASSERT_EQ(mainQueue.activeTimerCount(), 1u);
         },
         [&] {
             EXPECT_EQ(client.cacheChatRoomDict().count(), 0u);
             EXPECT_EQ(client.syncKVChatRoomDict().count(), 0u);
             EXPECT_EQ(mainQueue.activeTimerCount(), 0u);
         }},
        {"observers and the filter",
         [&] {
             client.addChatRoomStatusDelegate(previous);
             client.addChatRoomKVStatusChangeDelegate(previous);
             client.addChatRoomNotifyEventDelegate(previous);
             client.setMemberDelegate(previous);
             client.setZMChatRoomKVStatusFilterDelegate(previous);
         },
         [&] {
             EXPECT_TRUE(client.allChatRoomStatusDelegates().empty());
             EXPECT_TRUE(client.allChatRoomKVStatusChangeDelegates().empty());
             EXPECT_TRUE(client.allChatRoomNotifyEventDelegates().empty());
             EXPECT_EQ(client.memberDelegate(), nullptr);
             EXPECT_EQ(client.zmKVStatusFilterDelegate(), nullptr);
         }},
        {"rules and held requests",
         [&] {
             core.setRule("joinChatroom", ZMCoreAnswer::failure(23410));
             core.holdRequests("bindRTCRoomForChatroom");
             auto token = std::make_shared<int>(0);
             heldCallback = token;
             client.bindChatRoom("lobby", "rtc", [token] {}, [token](int32_t) {});
             settle();
             ASSERT_EQ(core.heldRequests().size(), 1u);
         },
         [&] {
             EXPECT_TRUE(core.heldRequests().empty());
             EXPECT_TRUE(heldCallback.expired());  // released without being called
         }},
        {"key-value store and navigation switches",
         [&] {
             core.seedChatRoomEntries("hall", {{"topic", "old"}});
             core.setChatroomKVStorageEnabled(false);
             core.setNaviDetectionFails();
         },
         [&] {
             EXPECT_EQ(core.chatRoomEntries("hall"), ZMValue::object());
             EXPECT_EQ(core.naviDetectionCount(), 0u);
         }},
    };
    for (const auto& part : parts) {
        SCOPED_TRACE(part.part);
        part.leave();
    }
    settle();
    ASSERT_TRUE(Kit::reset());
    for (const auto& part : parts) {
        SCOPED_TRACE(part.part);
        part.check();
    }

    // The next test starts from a fresh server: a join is answered by default
    // (and makes only its own two requests), the KV switch is on, and nothing
    // reaches the previous test's observer.
    previous->events.clear();
    observeEverything();
    client.joinChatRoom("hall", 10, ZMSuccessBlock{}, ZMErrorBlock{});
    settle();
    // The announcement comes from the notify queue, the synchronisation from a
    // core thread: either may come first.
    Strings heard = observer->events.events();
    std::sort(heard.begin(), heard.end());
    EXPECT_EQ(heard, (Strings{"joined:hall", "sync:hall"}));
    EXPECT_EQ(core.requests().front().id, 1u);
    EXPECT_EQ(core.requests("joinChatroom").size(), 1u);
    client.setChatRoomEntry("hall", "topic", "new", false, false, nullptr, ZMSuccessBlock{}, ZMErrorBlock{});
    settle();
    EXPECT_EQ(core.chatRoomEntries("hall"), ZMValue({{"topic", "new"}}));
    EXPECT_TRUE(previous->events.events().empty());
    // The module is still loaded and wired: messages are routed, pushes arrive.
    EXPECT_TRUE(Kit::deliverMemberChange({.chatroomId = "hall", .members = {{"u1", 1}}, .memberCount = 2}).get());
    EXPECT_EQ(observer->events.events().back(), R"(members:hall:2:[["u1",1]])");

    // Settling or resetting from the module's own queue would wait for itself.
    client.zm_chatroom_operation_queue().sync([] {
        EXPECT_FALSE(Kit::settle());
        EXPECT_FALSE(Kit::reset());
    });
}

// Each typed message reaches the observer that receives it, with every field
// as given; the KV notification, which the chat-room module does not hold,
// reaches the next module.
TEST_F(TestKitTest, TypedMessagesReachTheirObserversWithEveryField) {
    MessageListener& listener = MessageListener::shared();
    observeEverything();
    const struct {
        const char* name;
        std::function<std::shared_future<bool>()> deliver;
        bool held;
        std::string heard;
    } cases[] = {
        {"member change",
         [] {
             return Kit::deliverMemberChange(
                 {.chatroomId = "lobby", .members = {{"u1", 1}, {"u2", 3}}, .memberCount = 12});
         },
         true, R"(members:lobby:12:[["u1",1],["u2",3]])"},
        {"member change, offline, nobody listed",
         [] { return Kit::deliverMemberChange({.chatroomId = "hall", .memberCount = 0}, true); }, true,
         "members:hall:0:[]"},
        {"block",
         [] {
             return Kit::deliverBlock({.chatroomId = "lobby",
                                       .operateType = 1,
                                       .durationTime = 60,
                                       .operateTime = 1700000000456,
                                       .userIds = {"u1", "u2"},
                                       .extra = "spam"});
         },
         true, R"(block:["lobby",1,60,1700000000456,["u1","u2"],"spam"])"},
        {"ban",
         [] {
             return Kit::deliverBan({.chatroomId = "lobby",
                                     .banType = 2,
                                     .durationTime = 30,
                                     .operateTime = 1700000000789,
                                     .userIds = {"u3"},
                                     .extra = "quiet"});
         },
         true, R"(ban:["lobby",2,30,1700000000789,["u3"],"quiet"])"},
        {"ban without extra",
         [] { return Kit::deliverBan({.chatroomId = "hall", .banType = 4}); }, true,
         R"(ban:["hall",4,0,0,[],null])"},
        {"multi-login sync",
         [] {
             return Kit::deliverMultiLoginSync(
                 {.chatroomId = "lobby", .status = 1, .reason = 2, .time = 1700000000123, .extra = "tablet"});
         },
         true, R"(sync-login:["lobby",1,2,1700000000123,"tablet"])"},
        {"KV notification",
         [] {
             return Kit::deliverKVNotification(
                 {.chatroomId = "lobby", .type = 1, .key = "topic", .value = "news", .extra = "by alice"});
         },
         false, R"(kv-notification:lobby:[1,"topic","news","by alice",false])"},
        {"KV removal notification, offline",
         [] { return Kit::deliverKVNotification({.chatroomId = "hall", .type = 2, .key = "topic"}, true); }, false,
         R"(kv-notification:hall:[2,"topic",null,null,true])"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        observer->events.clear();
        listener.events.clear();
        EXPECT_EQ(c.deliver().get(), c.held);
        Strings heard = observer->events.events();
        for (const auto& event : listener.events.events()) heard.push_back(event);
        EXPECT_EQ(heard, Strings{c.heard});
    }

    // Any message content goes as its encode() gives it; one that cannot be
    // encoded is refused before anything is delivered.
    ZMChatRoomSyncMessage message;
    message.chatroomId = "lobby";
    message.status = 2;
    observer->events.clear();
    EXPECT_TRUE(Kit::deliver(message, "lobby").get());
    EXPECT_EQ(observer->events.events(), Strings{R"(sync-login:["lobby",2,0,0,null])"});
    message.extra = std::string("\xff\xfe");
    EXPECT_THROW(Kit::deliver(message, "lobby"), std::invalid_argument);
}

// Each push reaches the module as the server's would, from a joined room.
TEST_F(TestKitTest, TypedPushesReachTheModule) {
    const struct {
        const char* name;
        std::function<void()> push;
        Strings heard;
        size_t roomsAfter;
    } cases[] = {
        {"first KV synchronisation", [] { Kit::pushFirstKVSync("lobby"); },
         {"sync:lobby", R"(update:lobby:{"topic":"news"})"}, 1},
        {"KV change", [] { Kit::pushKVChange("lobby", {{"a", "1"}, {"b", "2"}}, {{"c", "3"}}); },
         {R"(update:lobby:{"a":"1","b":"2"})", R"(remove:lobby:{"c":"3"})"}, 1},
        {"KV removal only", [] { Kit::pushKVChange("lobby", {}, {{"c", "3"}}); }, {R"(remove:lobby:{"c":"3"})"}, 1},
        {"room destroyed", [] { Kit::pushRoomDestroyed("lobby", 2); }, {"destroyed:lobby:3"}, 0},
        {"connection lost", [] { Kit::pushConnectionStatus(Kit::kConnectionLost); }, {"failed:lobby:-1"}, 1},
        {"logout", [] { Kit::pushLogout(); }, {}, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(Kit::reset());
        observeEverything();
        core.setKVFirstSync(ZMCoreEmulator::KVFirstSync::Never);
        core.seedChatRoomEntries("lobby", {{"topic", "news"}});
        client.joinChatRoom("lobby", 10, ZMSuccessBlock{}, ZMErrorBlock{});
        settle();
        observer->events.clear();
        c.push();
        settle();
        EXPECT_EQ(observer->events.events(), c.heard);
        EXPECT_EQ(client.cacheChatRoomDict().count(), c.roomsAfter);
    }
}

}  // namespace
