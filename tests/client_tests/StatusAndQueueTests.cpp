#include "ClientTestSupport.h"

#include <algorithm>
#include <future>

TEST_F(ClientTest, StatusObserversAreTakenAtDeliveryAndTheSettersAdd) {
    // Hold the notify queue so that the announcement waits for its delivery.
    std::promise<void> release;
    client.zm__notify_chatroom_status_queue().async([gate = release.get_future().share()] { gate.wait(); });
    client.notifyChatRoomStatus("r", ZMChatRoomStatusJoining, 0);
    auto late = std::make_shared<StatusRecorder>();
    auto gone = std::make_shared<StatusRecorder>();
    client.setChatRoomStatusDelegate(late);
    client.setChatRoomStatusDelegate(gone);
    EXPECT_EQ(client.allChatRoomStatusDelegates().size(), 3u);
    gone.reset();  // destroyed without being removed
    release.set_value();
    client.zm__notify_chatroom_status_queue().sync([] {});
    EXPECT_EQ(late->events.events(), (Strings{"joining:r"}));
    EXPECT_EQ(status->events.events(), (Strings{"joining:r"}));
    EXPECT_EQ(client.allChatRoomStatusDelegates().size(), 2u);
}

// Reacts to its joined announcement by calling back into the client.
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
    // The success callback marks its place in the notify queue, then joins a
    // second room from the core's thread.
    client.joinChatRoom(
        "first", 1,
        [this] {
            client.zm__notify_chatroom_status_queue().async([this] { status->events.record("callback"); });
            client.joinChatRoom("second", 1, ZMSuccessBlock{}, ZMErrorBlock{});
        },
        ZMErrorBlock{});
    ASSERT_TRUE(observer->done.waitForCount(1));
    settle();
    const auto events = status->events.events();
    auto at = [&](const std::string& event) { return std::find(events.begin(), events.end(), event) - events.begin(); };
    EXPECT_LT(at("callback"), at("joined:first"));  // announced only once the callback has returned
    EXPECT_EQ(core.requests("quitChatroom").size(), 1u);
    EXPECT_EQ(core.requests("joinChatroom").size(), 2u);
    EXPECT_FALSE(entry("first"));
    EXPECT_TRUE(entry("second"));
    EXPECT_EQ(observer->done.count(), 1u);  // removed itself before "second" was joined
}

TEST_F(ClientTest, AnOperationIssuedFromTheOperationQueueRunsInPlace) {
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
