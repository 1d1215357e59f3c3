// Deliveries walk the observers registered when each delivery starts (the
// registry's shared snapshot): an observer registered, removed or destroyed
// from inside a callback changes the next delivery, never the walk in
// progress, and a destroyed observer is never called again.

#include "ClientTestSupport.h"

#include <future>

namespace {

// Notes "<name>:<event>" into a shared recorder; runs a hook (once) after
// its first call.
template <class Base>
class NamedObserver : public Base {
public:
    NamedObserver(ZMEventRecorder& calls, std::string name) : calls_(calls), name_(std::move(name)) {}
    ~NamedObserver() override { calls_.record(name_ + ":destroyed"); }
    std::function<void()> hook;

protected:
    void note(const std::string& event) {
        calls_.record(name_ + ":" + event);
        if (auto run = std::exchange(hook, nullptr)) run();
    }

private:
    ZMEventRecorder& calls_;
    std::string name_;
};

class NamedStatusObserver : public NamedObserver<ZMChatRoomStatusDelegate> {
public:
    using NamedObserver::NamedObserver;
    void onChatRoomJoining(const std::string& roomId) override { note(roomId); }
};

class NamedKVObserver : public NamedObserver<ZMChatRoomKVStatusChangeDelegate> {
public:
    using NamedObserver::NamedObserver;
    void chatRoomKVDidUpdate(const std::string& roomId, const ZMValue&) override { note(roomId); }
};

// Four observers registered in order: "first" changes the registrations from
// inside its first call (adds "late", removes "removed", lets go of the last
// reference to "dropped"), "removed" and "dropped" follow it.
template <class Observer, class Delegate>
struct WalkScenario {
    ZMEventRecorder calls;
    std::shared_ptr<Observer> first = std::make_shared<Observer>(calls, "first");
    std::shared_ptr<Observer> removed = std::make_shared<Observer>(calls, "removed");
    std::shared_ptr<Observer> dropped = std::make_shared<Observer>(calls, "dropped");
    std::shared_ptr<Observer> late = std::make_shared<Observer>(calls, "late");

    template <class Add, class Remove>
    WalkScenario(Add add, Remove remove) {
        first->hook = [this, add, remove] {
            add(std::shared_ptr<Delegate>(late));
            remove(std::shared_ptr<Delegate>(removed));
            dropped.reset();
        };
        for (const auto& observer : {first, removed, dropped}) add(std::shared_ptr<Delegate>(observer));
    }
};

const Strings kExpectedWalks = {
    // The first delivery walks the three registered when it started; the
    // dropped observer, kept alive for that walk, dies when it ends.
    "first:r1", "removed:r1", "dropped:r1", "dropped:destroyed",
    // The second walks the registrations as they are now.
    "first:r2", "late:r2"};

TEST_F(ClientTest, AStatusCallbackChangingTheObserversChangesTheNextAnnouncementOnly) {
    client.removeChatRoomStatusDelegate(status);
    WalkScenario<NamedStatusObserver, ZMChatRoomStatusDelegate> scenario(
        [this](const auto& observer) { client.addChatRoomStatusDelegate(observer); },
        [this](const auto& observer) { client.removeChatRoomStatusDelegate(observer); });
    // Both announcements wait behind a gate, so that one delivery task takes both.
    std::promise<void> gate;
    client.zm__notify_chatroom_status_queue().async([opened = gate.get_future().share()] { opened.wait(); });
    client.notifyChatRoomStatus("r1", ZMChatRoomStatusJoining, 0);
    client.notifyChatRoomStatus("r2", ZMChatRoomStatusJoining, 0);
    gate.set_value();
    client.zm__notify_chatroom_status_queue().sync([] {});
    EXPECT_EQ(scenario.calls.events(), kExpectedWalks);
}

TEST_F(ClientTest, AnObserverReleasedBetweenAnnouncementsHearsNoMore) {
    ZMEventRecorder calls;
    auto kept = std::make_shared<NamedStatusObserver>(calls, "kept");
    auto released = std::make_shared<NamedStatusObserver>(calls, "released");
    client.addChatRoomStatusDelegate(kept);
    client.addChatRoomStatusDelegate(released);
    // "kept" lets go of "released" from its first call: it is not called
    // again although the following announcements are delivered in the same
    // run of the notify queue.
    kept->hook = [&released] { released.reset(); };
    std::promise<void> gate;
    client.zm__notify_chatroom_status_queue().async([opened = gate.get_future().share()] { opened.wait(); });
    for (const char* room : {"r1", "r2", "r3"}) client.notifyChatRoomStatus(room, ZMChatRoomStatusJoining, 0);
    gate.set_value();
    client.zm__notify_chatroom_status_queue().sync([] {});
    EXPECT_EQ(calls.events(),
              (Strings{"kept:r1", "released:r1", "released:destroyed", "kept:r2", "kept:r3"}));
}

TEST_F(ClientTest, AKVCallbackChangingTheObserversChangesTheNextChangeOnly) {
    WalkScenario<NamedKVObserver, ZMChatRoomKVStatusChangeDelegate> scenario(
        [this](const auto& observer) { client.addChatRoomKVStatusChangeDelegate(observer); },
        [this](const auto& observer) { client.removeChatRoomKVStatusChangeDelegate(observer); });
    const ZMValue update = {{"k", "v"}};
    core.raiseKVChange("r1", update, ZMValue::object());
    core.raiseKVChange("r2", update, ZMValue::object());
    settle();
    EXPECT_EQ(scenario.calls.events(), kExpectedWalks);
}

}  // namespace
