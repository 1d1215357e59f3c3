// Where and in what order observers hear: each delivery walks the observers registered
// when it starts; announcements keep their place among the notify queue's tasks; callbacks
// may call back into the client.
#include "ClientTestSupport.h"

#include <algorithm>
#include <future>

namespace {

// Notes "<name>:<room>" for a joining announcement or a KV update, then runs its hook once.
struct Named : ZMChatRoomStatusDelegate, ZMChatRoomKVStatusChangeDelegate {
    ZMEventRecorder& calls;
    std::string name;
    std::function<void()> hook;
    Named(ZMEventRecorder& c, std::string n) : calls(c), name(std::move(n)) {}
    ~Named() override { calls.record(name + ":destroyed"); }
    void onChatRoomJoining(const std::string& room) override { note(room); }
    void chatRoomKVDidUpdate(const std::string& room, const ZMValue&) override { note(room); }
    void note(const std::string& room) {
        calls.record(name + ":" + room);
        if (auto run = std::exchange(hook, nullptr)) run();
    }
};

// Holds the notify queue until the promise is kept, so that what follows queues up behind it.
std::promise<void> holdNotifyQueue() {
    std::promise<void> gate;
    ZMChatRoomClient::sharedChatRoomClient().zm__notify_chatroom_status_queue().async(
        [opened = gate.get_future().share()] { opened.wait(); });
    return gate;
}

}  // namespace

// "first" changes the registrations from inside its first call: adds "late", removes
// "removed" and lets go of the last reference to "dropped", which dies when that walk ends.
TEST_F(ClientTest, EachDeliveryWalksTheObserversRegisteredWhenItStarts) {
    for (bool kv : {false, true}) {
        SCOPED_TRACE(kv ? "KV changes" : "announcements");
        ZMEventRecorder calls;
        auto add = [&](std::shared_ptr<Named> o) {
            kv ? client.addChatRoomKVStatusChangeDelegate(o) : client.setChatRoomStatusDelegate(o);  // the setter adds
        };
        auto first = std::make_shared<Named>(calls, "first"), removed = std::make_shared<Named>(calls, "removed");
        auto dropped = std::make_shared<Named>(calls, "dropped"), late = std::make_shared<Named>(calls, "late");
        first->hook = [&] {
            add(late);
            kv ? client.removeChatRoomKVStatusChangeDelegate(removed) : client.removeChatRoomStatusDelegate(removed);
            dropped.reset();
        };
        auto gate = holdNotifyQueue();
        // Both announcements share one delivery task; issued before the observers register.
        if (!kv) for (const char* room : {"r1", "r2"}) client.notifyChatRoomStatus(room, ZMChatRoomStatusJoining, 0);
        for (const auto& observer : {first, removed, dropped}) add(observer);
        gate.set_value();
        if (kv) for (const char* room : {"r1", "r2"}) core.raiseKVChange(room, {{"k", "v"}}, ZMValue::object());
        settle();
        EXPECT_EQ(calls.events(), (Strings{"first:r1", "removed:r1", "dropped:r1", "dropped:destroyed", "first:r2",
                                           "late:r2"}));
        if (!kv) {
            EXPECT_EQ(client.allChatRoomStatusDelegates().size(), 3u);  // the fixture's, first and late
        }
    }
}

// Announcements issued back to back share a delivery task but keep their place among the
// tasks queued between them; those issued during a delivery follow the rest of its batch.
TEST_F(ClientTest, AnnouncementsKeepTheirPlaceAmongTheNotifyQueuesTasks) {
    auto& notifyQueue = client.zm__notify_chatroom_status_queue();
    for (const Strings& steps : std::vector<Strings>{
             {"a1", "a2", "a3"}, {"a1", "tx", "a2", "a3", "ty", "a4"}, {"tx", "a1", "a2", "ty"}, {"tx", "ty"}}) {
        SCOPED_TRACE(steps.size());
        forget();
        auto gate = holdNotifyQueue();
        Strings expected;
        for (const auto& step : steps) {
            const std::string name = step.substr(1), event = (step[0] == 'a' ? "joining:" : "task:") + name;
            if (step[0] == 'a') client.notifyChatRoomStatus(name, ZMChatRoomStatusJoining, 0);
            else notifyQueue.async([this, event] { status->events.record(event); });
            expected.push_back(event);
        }
        gate.set_value();
        notifyQueue.sync([] {});
        EXPECT_EQ(status->events.events(), expected);
    }
    // An observer's own announcement follows the batch; one from a task it queued first follows that.
    forget();
    ZMEventRecorder unused;
    auto issuing = std::make_shared<Named>(unused, "issuing");
    issuing->hook = [this] {
        client.zm__notify_chatroom_status_queue().async([this] {
            client.notifyChatRoomStatus("from task", ZMChatRoomStatusJoined, 0);
        });
        client.notifyChatRoomStatus("from observer", ZMChatRoomStatusJoining, 0);
    };
    client.addChatRoomStatusDelegate(issuing);
    auto gate = holdNotifyQueue();
    client.notifyChatRoomStatus("first", ZMChatRoomStatusJoining, 0);
    client.notifyChatRoomStatus("second", ZMChatRoomStatusJoining, 0);
    gate.set_value();
    settle();
    EXPECT_EQ(status->events.events(),
              (Strings{"joining:first", "joining:second", "joining:from observer", "joined:from task"}));
    client.removeChatRoomStatusDelegate(issuing);
}

// Reacts to its joined announcement by removing itself and quitting the room.
struct ReentrantObserver : ZMChatRoomStatusDelegate {
    std::weak_ptr<ReentrantObserver> self;
    ZMEventRecorder done;
    void onChatRoomJoined(const std::string& roomId, const std::shared_ptr<ZMJoinChatRoomResponse>&) override {
        ZMChatRoomClient::sharedChatRoomClient().removeChatRoomStatusDelegate(self.lock());
        ZMChatRoomClient::sharedChatRoomClient().quitChatRoom(roomId, ZMSuccessBlock{}, ZMErrorBlock{});
        done.record("joined");
    }
};

TEST_F(ClientTest, CallbacksMayCallTheClientAndRunBeforeTheAnnouncements) {
    auto observer = std::make_shared<ReentrantObserver>();
    observer->self = observer;
    client.addChatRoomStatusDelegate(observer);
    // The success callback marks its place in the notify queue, then joins a second room from the core's thread.
    client.joinChatRoom("first", 1, [this] {
        client.zm__notify_chatroom_status_queue().async([this] { status->events.record("callback"); });
        client.joinChatRoom("second", 1, ZMSuccessBlock{}, ZMErrorBlock{});
    }, ZMErrorBlock{});
    ASSERT_TRUE(observer->done.waitForCount(1));
    settle();
    const auto events = status->events.events();
    auto at = [&](const std::string& event) { return std::find(events.begin(), events.end(), event) - events.begin(); };
    EXPECT_LT(at("callback"), at("joined:first"));  // announced only once the callback has returned
    EXPECT_EQ(std::tuple(core.requests("quitChatroom").size(), core.requests("joinChatroom").size()), std::tuple(1u, 2u));
    EXPECT_FALSE(entry("first"));
    EXPECT_TRUE(entry("second"));
    EXPECT_EQ(observer->done.count(), 1u);  // removed itself before "second" was joined
    // An operation issued from the operation queue runs in place.
    std::vector<int> order;
    client.performOperationQueueBlock([&] {
        order.push_back(1);
        client.performOperationQueueBlock([&] { order.push_back(2); });
        order.push_back(3);
    });
    client.performOperationQueueBlock([&] { order.push_back(4); });
    client.zm_chatroom_operation_queue().sync([] {});
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
}
