// Announcements issued back to back share one delivery task, but never
// overtake, and are never overtaken by, a task queued on the notify queue
// between them: each is delivered where a task of its own would have run.

#include "ClientTestSupport.h"

#include <future>

namespace {

// "task:x" for labelled("task:", "x"), built by appending (see numbered()).
std::string labelled(const char* prefix, const std::string& name) {
    std::string label(prefix);
    label += name;
    return label;
}

TEST_F(ClientTest, AnnouncementsKeepTheirPlaceAmongTheNotifyQueuesOtherTasks) {
    auto& notifyQueue = client.zm__notify_chatroom_status_queue();
    const struct {
        const char* name;
        Strings steps;  // "a:<room>" issues an announcement, "t:<name>" queues a task
    } cases[] = {
        {"a burst alone", {"a:1", "a:2", "a:3"}},
        {"tasks between announcements", {"a:1", "t:x", "a:2", "a:3", "t:y", "a:4"}},
        {"tasks first and last", {"t:x", "a:1", "a:2", "t:y"}},
        {"tasks only", {"t:x", "t:y"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        forget();
        // Everything waits behind a gate, so that the whole case is queued
        // before the first delivery runs.
        std::promise<void> gate;
        notifyQueue.async([opened = gate.get_future().share()] { opened.wait(); });
        Strings expected;
        for (const auto& step : c.steps) {
            const std::string name = step.substr(2);
            if (step[0] == 'a') {
                client.notifyChatRoomStatus(name, ZMChatRoomStatusJoining, 0);
                expected.push_back(labelled("joining:", name));
            } else {
                notifyQueue.async([this, name] { status->events.record(labelled("task:", name)); });
                expected.push_back(labelled("task:", name));
            }
        }
        gate.set_value();
        notifyQueue.sync([] {});
        EXPECT_EQ(status->events.events(), expected);
    }
}

// An announcement issued from a delivery (by an observer) comes after the
// rest of the batch being delivered; one issued by a task that the observer
// queued first comes after it, since that task runs only once the delivery
// has ended.
struct IssuingObserver : ZMChatRoomStatusDelegate {
    void onChatRoomJoining(const std::string& roomId) override {
        if (roomId != "first") return;
        auto& client = ZMChatRoomClient::sharedChatRoomClient();
        client.zm__notify_chatroom_status_queue().async([] {
            ZMChatRoomClient::sharedChatRoomClient().notifyChatRoomStatus("from task", ZMChatRoomStatusJoined, 0);
        });
        client.notifyChatRoomStatus("from observer", ZMChatRoomStatusJoining, 0);
    }
};

TEST_F(ClientTest, AnnouncementsIssuedDuringADeliveryFollowIt) {
    auto issuing = std::make_shared<IssuingObserver>();
    client.addChatRoomStatusDelegate(issuing);
    std::promise<void> gate;
    client.zm__notify_chatroom_status_queue().async([opened = gate.get_future().share()] { opened.wait(); });
    client.notifyChatRoomStatus("first", ZMChatRoomStatusJoining, 0);
    client.notifyChatRoomStatus("second", ZMChatRoomStatusJoining, 0);
    gate.set_value();
    settle();
    EXPECT_EQ(status->events.events(),
              (Strings{"joining:first", "joining:second", "joining:from observer", "joined:from task"}));
}

}  // namespace
