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
