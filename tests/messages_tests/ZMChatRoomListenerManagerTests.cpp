// The observer registry: weak membership, snapshots and concurrent use.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include <ZMChatRoom/ZMChatRoomListenerManager.h>

namespace {

ZMChatRoomListenerManager& manager() { return ZMChatRoomListenerManager::sharedManager(); }

// One kind of observer set, seen through its three manager operations.
struct StatusKind {
    using Delegate = ZMChatRoomStatusDelegate;
    static void add(const std::shared_ptr<Delegate>& d) { manager().addChatRoomStatusDelegate(d); }
    static void remove(const std::shared_ptr<Delegate>& d) { manager().removeChatRoomStatusDelegate(d); }
    static auto all() { return manager().allChatRoomStatusDelegates(); }
};
struct KVKind {
    using Delegate = ZMChatRoomKVStatusChangeDelegate;
    static void add(const std::shared_ptr<Delegate>& d) { manager().addChatRoomKVStatusChangeDelegate(d); }
    static void remove(const std::shared_ptr<Delegate>& d) { manager().removeChatRoomKVStatusChangeDelegate(d); }
    static auto all() { return manager().allChatRoomKVStatusChangeDelegates(); }
};
struct NotifyKind {
    using Delegate = ZMChatRoomNotifyEventDelegate;
    static void add(const std::shared_ptr<Delegate>& d) { manager().addChatRoomNotifyEventDelegate(d); }
    static void remove(const std::shared_ptr<Delegate>& d) { manager().removeChatRoomNotifyEventDelegate(d); }
    static auto all() { return manager().allChatRoomNotifyEventDelegates(); }
};

template <class Kind>
class ListenerSetTest : public testing::Test {
protected:
    static auto make() { return std::make_shared<typename Kind::Delegate>(); }
};
using Kinds = testing::Types<StatusKind, KVKind, NotifyKind>;
TYPED_TEST_SUITE(ListenerSetTest, Kinds);

// Adding twice keeps one entry, one removal empties it; null and non-members
// change nothing.
TYPED_TEST(ListenerSetTest, MembershipIsOneEntryPerObserver) {
    auto observer = this->make();
    auto other = this->make();
    TypeParam::add(observer);
    TypeParam::add(observer);
    TypeParam::add(other);
    TypeParam::add(nullptr);
    TypeParam::remove(nullptr);
    TypeParam::remove(this->make());
    EXPECT_EQ(TypeParam::all().size(), 2u);
    TypeParam::remove(observer);
    EXPECT_EQ(TypeParam::all(), decltype(TypeParam::all()){other});
    TypeParam::remove(other);
    EXPECT_TRUE(TypeParam::all().empty());
}

// Registration never keeps an observer alive; a snapshot keeps its members
// alive while it is walked, and later changes of the set do not reach it.
TYPED_TEST(ListenerSetTest, WeakMembershipAndSnapshots) {
    auto kept = this->make();
    auto dropped = this->make();
    std::weak_ptr<typename TypeParam::Delegate> watch = dropped;
    TypeParam::add(kept);
    TypeParam::add(dropped);
    dropped.reset();
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(TypeParam::all(), decltype(TypeParam::all()){kept});

    auto snapshot = TypeParam::all();
    watch = kept;
    kept.reset();
    auto later = this->make();
    TypeParam::add(later);
    EXPECT_EQ(snapshot.size(), 1u);
    EXPECT_EQ(snapshot.front(), watch.lock());
    snapshot.clear();
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(TypeParam::all(), decltype(TypeParam::all()){later});
}

// An observer that unregisters itself from inside its callback.
class SelfRemovingObserver : public ZMChatRoomStatusDelegate {
public:
    void onChatRoomJoining(const std::string&) override {
        ++calls;
        manager().removeChatRoomStatusDelegate(self.lock());
    }
    std::weak_ptr<SelfRemovingObserver> self;
    int calls = 0;
};

TEST(ListenerManagerTest, ObserverRemovingItselfDuringDeliveryDoesNotDisturbTheWalk) {
    std::vector<std::shared_ptr<SelfRemovingObserver>> observers;
    for (int i = 0; i < 3; ++i) {
        observers.push_back(std::make_shared<SelfRemovingObserver>());
        observers.back()->self = observers.back();
        manager().addChatRoomStatusDelegate(observers.back());
    }
    auto deliver = [] {
        auto snapshot = manager().allChatRoomStatusDelegates();
        for (const auto& observer : snapshot) observer->onChatRoomJoining("r1");
        return snapshot.size();
    };
    EXPECT_EQ(deliver(), 3u);
    EXPECT_EQ(deliver(), 0u);
    for (const auto& observer : observers) EXPECT_EQ(observer->calls, 1);
}

// Membership is the object's identity, whichever interface pointer names it;
// the three sets are independent of one another.
class StatusAndNotifyObserver : public ZMChatRoomStatusDelegate, public ZMChatRoomNotifyEventDelegate {};

TEST(ListenerManagerTest, IdentityAcrossInterfacesOfOneObject) {
    auto object = std::make_shared<StatusAndNotifyObserver>();
    std::shared_ptr<ZMChatRoomNotifyEventDelegate> asNotify = object;
    // The status interface reached through the notify interface pointer: the
    // same object, so the same member.
    std::shared_ptr<ZMChatRoomStatusDelegate> asStatus(asNotify, dynamic_cast<ZMChatRoomStatusDelegate*>(asNotify.get()));

    manager().addChatRoomStatusDelegate(object);
    manager().addChatRoomStatusDelegate(asStatus);
    manager().addChatRoomNotifyEventDelegate(asNotify);
    ASSERT_EQ(manager().allChatRoomStatusDelegates().size(), 1u);
    EXPECT_EQ(dynamic_cast<void*>(manager().allChatRoomStatusDelegates().front().get()),
              dynamic_cast<void*>(manager().allChatRoomNotifyEventDelegates().front().get()));

    manager().removeChatRoomStatusDelegate(asStatus);
    EXPECT_TRUE(manager().allChatRoomStatusDelegates().empty());
    EXPECT_EQ(manager().allChatRoomNotifyEventDelegates().size(), 1u);
    EXPECT_TRUE(manager().allChatRoomKVStatusChangeDelegates().empty());

    std::weak_ptr<StatusAndNotifyObserver> watch = object;
    object.reset();
    asNotify.reset();
    asStatus.reset();
    EXPECT_TRUE(watch.expired());
    EXPECT_TRUE(manager().allChatRoomNotifyEventDelegates().empty());
}

// Several threads add, remove, drop and snapshot at once; each ends by
// registering one observer it keeps, and exactly those remain.
TEST(ListenerManagerTest, ConcurrentUseKeepsTheSetsConsistent) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 300;
    std::vector<std::shared_ptr<ZMChatRoomStatusDelegate>> survivors(kThreads);
    std::atomic<bool> sawDestroyedObserver{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &survivors, &sawDestroyedObserver] {
            for (int i = 0; i < kRounds; ++i) {
                auto status = std::make_shared<ZMChatRoomStatusDelegate>();
                auto kv = std::make_shared<ZMChatRoomKVStatusChangeDelegate>();
                auto notify = std::make_shared<ZMChatRoomNotifyEventDelegate>();
                manager().addChatRoomStatusDelegate(status);
                manager().addChatRoomKVStatusChangeDelegate(kv);
                manager().addChatRoomNotifyEventDelegate(notify);
                for (const auto& observer : manager().allChatRoomStatusDelegates()) {
                    if (!observer) sawDestroyedObserver = true;
                    observer->onChatRoomJoining("r");
                }
                manager().allChatRoomKVStatusChangeDelegates();
                manager().removeChatRoomStatusDelegate(status);
                manager().removeChatRoomNotifyEventDelegate(notify);
                // kv goes away without being removed: it must vanish by itself.
            }
            survivors[t] = std::make_shared<ZMChatRoomStatusDelegate>();
            manager().addChatRoomStatusDelegate(survivors[t]);
        });
    }
    for (auto& thread : threads) thread.join();

    EXPECT_FALSE(sawDestroyedObserver);
    auto remaining = manager().allChatRoomStatusDelegates();
    std::sort(remaining.begin(), remaining.end());
    std::sort(survivors.begin(), survivors.end());
    EXPECT_EQ(remaining, survivors);
    EXPECT_TRUE(manager().allChatRoomKVStatusChangeDelegates().empty());
    EXPECT_TRUE(manager().allChatRoomNotifyEventDelegates().empty());
}

}  // namespace
