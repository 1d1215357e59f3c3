// The observer registry: weak membership, snapshots and concurrent use.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

#include <ZMChatRoom/ZMChatRoomListenerManager.h>

namespace {

ZMChatRoomListenerManager& manager() { return ZMChatRoomListenerManager::sharedManager(); }

// One kind of observer set, seen through its three manager operations.
#define ZM_OBSERVER_KIND(Kind, Name)                                                               \
    struct Kind {                                                                                  \
        using Delegate = ZM##Name;                                                                 \
        static void add(const std::shared_ptr<Delegate>& d) { manager().add##Name(d); }            \
        static void remove(const std::shared_ptr<Delegate>& d) { manager().remove##Name(d); }      \
        static auto all() { return manager().all##Name##s(); }                                     \
        static auto make() { return std::make_shared<Delegate>(); }                                \
    };
ZM_OBSERVER_KIND(StatusKind, ChatRoomStatusDelegate)
ZM_OBSERVER_KIND(KVKind, ChatRoomKVStatusChangeDelegate)
ZM_OBSERVER_KIND(NotifyKind, ChatRoomNotifyEventDelegate)

template <class Kind>
class ListenerSetTest : public testing::Test {};
using Kinds = testing::Types<StatusKind, KVKind, NotifyKind>;
TYPED_TEST_SUITE(ListenerSetTest, Kinds);

// One entry per live observer: adding twice keeps one, null and non-members
// change nothing, a destroyed observer leaves by itself (registration never
// keeps it alive). A snapshot keeps its members alive while it is walked, and
// later changes of the set do not reach it.
TYPED_TEST(ListenerSetTest, WeakMembershipAndSnapshots) {
    auto first = TypeParam::make(), second = TypeParam::make(), dropped = TypeParam::make();
    std::weak_ptr<typename TypeParam::Delegate> watch = dropped;
    for (const auto& observer : {first, first, second, dropped, decltype(first)()}) TypeParam::add(observer);
    TypeParam::remove(nullptr);
    TypeParam::remove(TypeParam::make());
    dropped.reset();
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(TypeParam::all(), (decltype(TypeParam::all()){first, second}));

    auto snapshot = TypeParam::all();
    TypeParam::remove(first);
    watch = second;
    second.reset();
    auto later = TypeParam::make();
    TypeParam::add(later);
    EXPECT_EQ(snapshot, (decltype(snapshot){first, watch.lock()}));
    snapshot.clear();
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(TypeParam::all(), decltype(TypeParam::all()){later});
    TypeParam::remove(later);
    EXPECT_TRUE(TypeParam::all().empty());
}

// Several threads add, remove, drop and snapshot at once; each ends by
// registering one observer it keeps, and exactly those remain.
TEST(ListenerManagerTest, ConcurrentUseKeepsTheSetsConsistent) {
    std::vector<std::shared_ptr<ZMChatRoomStatusDelegate>> survivors(4);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < survivors.size(); ++t) {
        threads.emplace_back([t, &survivors] {
            for (int round = 0; round < 300; ++round) {
                auto status = StatusKind::make();
                auto kv = KVKind::make();
                auto notify = NotifyKind::make();
                StatusKind::add(status);
                KVKind::add(kv);
                NotifyKind::add(notify);
                for (const auto& observer : StatusKind::all()) {
                    ASSERT_NE(observer, nullptr);
                    observer->onChatRoomJoining("r");
                }
                KVKind::all();
                StatusKind::remove(status);
                NotifyKind::remove(notify);
                // kv goes away without being removed: it must vanish by itself.
            }
            survivors[t] = StatusKind::make();
            StatusKind::add(survivors[t]);
        });
    }
    for (auto& thread : threads) thread.join();

    auto remaining = StatusKind::all();
    std::sort(remaining.begin(), remaining.end());
    std::sort(survivors.begin(), survivors.end());
    EXPECT_EQ(remaining, survivors);
    EXPECT_TRUE(KVKind::all().empty());
    EXPECT_TRUE(NotifyKind::all().empty());
}

}  // namespace

namespace {

// Deliveries share one immutable snapshot until the registrations change;
// registering and removing only drop it (they cost the same however many
// observers are registered), and the next snapshot is built afresh.
TEST(ListenerManagerTest, SnapshotsAreSharedUntilTheRegistrationsChange) {
    const auto generationAtStart = manager().chatRoomStatusDelegateGeneration();
    auto a = StatusKind::make(), b = StatusKind::make();
    StatusKind::add(a);
    StatusKind::add(b);
    EXPECT_EQ(manager().chatRoomStatusDelegateGeneration(), generationAtStart + 2);
    const auto first = manager().chatRoomStatusDelegateSnapshot();
    EXPECT_EQ(manager().chatRoomStatusDelegateSnapshot(), first);  // the same object
    ASSERT_EQ(first->size(), 2u);
    EXPECT_EQ((*first)[0].lock(), a);
    EXPECT_EQ((*first)[1].lock(), b);

    StatusKind::add(a);  // already registered: nothing changes
    EXPECT_EQ(manager().chatRoomStatusDelegateSnapshot(), first);
    EXPECT_EQ(manager().chatRoomStatusDelegateGeneration(), generationAtStart + 2);

    // A snapshot holds its observers weakly: one destroyed since reads as gone.
    b.reset();
    EXPECT_TRUE((*first)[1].expired());
    EXPECT_EQ(manager().chatRoomStatusDelegateSnapshot(), first);

    auto c = StatusKind::make();
    StatusKind::add(c);
    const auto second = manager().chatRoomStatusDelegateSnapshot();
    EXPECT_NE(second, first);
    ASSERT_EQ(second->size(), 2u);  // a and c; b has died
    EXPECT_EQ((*second)[0].lock(), a);
    EXPECT_EQ((*second)[1].lock(), c);
    EXPECT_EQ(first->size(), 2u);  // an earlier snapshot never changes

    StatusKind::remove(a);
    EXPECT_EQ(manager().chatRoomStatusDelegateGeneration(), generationAtStart + 4);
    const auto third = manager().chatRoomStatusDelegateSnapshot();
    ASSERT_EQ(third->size(), 1u);
    EXPECT_EQ((*third)[0].lock(), c);
    EXPECT_EQ(StatusKind::all(), decltype(StatusKind::all()){c});

    // The other kinds keep snapshots of their own.
    auto kv = KVKind::make();
    KVKind::add(kv);
    EXPECT_EQ(manager().chatRoomStatusDelegateSnapshot(), third);
    EXPECT_EQ(manager().chatRoomKVStatusChangeDelegateSnapshot()->size(), 1u);
    EXPECT_TRUE(manager().chatRoomNotifyEventDelegateSnapshot()->empty());
    StatusKind::remove(c);
    KVKind::remove(kv);
}

// The live observers of a snapshot, kept alive for one walk, in order, in
// place up to eight and beyond that on the heap.
TEST(ListenerManagerTest, LiveObserversKeepTheLiveOnesOfASnapshotInOrder) {
    for (size_t registered : {0u, 1u, 8u, 9u, 20u}) {
        SCOPED_TRACE(registered);
        std::vector<std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>> observers;
        for (size_t i = 0; i < registered; ++i) {
            observers.push_back(KVKind::make());
            KVKind::add(observers.back());
        }
        std::vector<std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>> expected;
        for (size_t i = 0; i < observers.size(); ++i) {
            if (i % 3 == 1) {
                observers[i].reset();  // dead before the walk: left out
            } else {
                expected.push_back(observers[i]);
            }
        }
        const ZMLiveObservers<ZMChatRoomKVStatusChangeDelegate> live(manager().chatRoomKVStatusChangeDelegateSnapshot());
        EXPECT_EQ(std::vector<std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>>(live.begin(), live.end()), expected);
        EXPECT_EQ(live.size(), expected.size());
        // Kept alive by the walk: released by everyone else, still there.
        std::vector<std::weak_ptr<ZMChatRoomKVStatusChangeDelegate>> watched(expected.begin(), expected.end());
        for (const auto& observer : expected) KVKind::remove(observer);
        expected.clear();
        observers.clear();
        for (const auto& weak : watched) EXPECT_FALSE(weak.expired());
    }
    EXPECT_TRUE(KVKind::all().empty());
}

}  // namespace
