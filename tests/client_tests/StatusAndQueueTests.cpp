#include "ClientTestSupport.h"

#include <future>

TEST_F(ClientTest, StatusObserversAreTakenAtDeliveryAndTheSettersAdd) {
    // Hold the notify queue so that the announcement waits for its delivery.
    std::promise<void> release;
    auto gate = release.get_future().share();
    client.zm__notify_chatroom_status_queue().async([gate] { gate.wait(); });
    client.notifyChatRoomStatus("r", ZMChatRoomStatusJoining, 0);

    auto late = std::make_shared<StatusRecorder>();
    auto gone = std::make_shared<StatusRecorder>();
    client.setChatRoomStatusDelegate(late);
    client.setChatRoomStatusDelegate(gone);
    EXPECT_EQ(client.allChatRoomStatusDelegates().size(), 3u);
    gone.reset();  // destroyed without being removed
    release.set_value();
    client.zm__notify_chatroom_status_queue().sync([] {});

    EXPECT_EQ(late->events.events(), (std::vector<std::string>{"joining:r"}));
    EXPECT_EQ(status->events.events(), (std::vector<std::string>{"joining:r"}));
    EXPECT_EQ(client.allChatRoomStatusDelegates().size(), 2u);
}

// An observer that reacts to its announcements by calling back into the
// client, and records whether the caller's callback had already run.
class ReentrantObserver : public ZMChatRoomStatusDelegate {
public:
    explicit ReentrantObserver(CallOutcome& join) : join_(join) {}
    void onChatRoomJoined(const std::string& roomId, const std::shared_ptr<ZMJoinChatRoomResponse>&) override {
        callbackRanFirst = join_.total() == 1;
        auto& client = ZMChatRoomClient::sharedChatRoomClient();
        client.removeChatRoomStatusDelegate(self.lock());
        client.quitChatRoom(roomId, ZMSuccessBlock{}, ZMErrorBlock{});
        done.record("joined");
    }
    std::weak_ptr<ReentrantObserver> self;
    std::atomic<bool> callbackRanFirst{false};
    ZMEventRecorder done;

private:
    CallOutcome& join_;
};

TEST_F(ClientTest, CallbacksMayCallTheClientAndRunBeforeTheAnnouncements) {
    CallOutcome join;
    auto observer = std::make_shared<ReentrantObserver>(join);
    observer->self = observer;
    client.addChatRoomStatusDelegate(observer);

    // The success callback joins a second room from the core's thread.
    auto success = join.success();
    client.joinChatRoom(
        "first", 1,
        [this, success] {
            success();
            client.joinChatRoom("second", 1, ZMSuccessBlock{}, ZMErrorBlock{});
        },
        join.error());
    ASSERT_TRUE(observer->done.waitForCount(1));
    settle();

    EXPECT_TRUE(observer->callbackRanFirst);
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
