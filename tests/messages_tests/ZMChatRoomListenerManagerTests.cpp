// The observer registry (weak membership, shared snapshots, concurrent use), and whether an
// observer overrides a callback, which decides lines, filtering and model building.

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include <ZMChatRoom/ZMChatRoomKVStatusFilterDelegate.h>
#include <ZMChatRoom/ZMChatRoomListenerManager.h>
#include <ZMChatRoom/ZMChatRoomMemberDelegate.h>
#include <ZMChatRoom/ZMDelegateImplements.h>

namespace {

ZMChatRoomListenerManager& manager() { return ZMChatRoomListenerManager::sharedManager(); }
uint64_t statusGeneration() { return manager().chatRoomStatusDelegateGeneration(); }

// One kind of observer set, seen through its manager operations.
#define ZM_OBSERVER_KIND(Kind, Name, snapshotOf)                                              \
    struct Kind {                                                                             \
        using Delegate = ZM##Name;                                                            \
        static void add(const std::shared_ptr<Delegate>& d) { manager().add##Name(d); }       \
        static void remove(const std::shared_ptr<Delegate>& d) { manager().remove##Name(d); } \
        static auto all() { return manager().all##Name##s(); }                                \
        static auto snapshot() { return manager().snapshotOf(); }                             \
        static auto make() { return std::make_shared<Delegate>(); }                           \
    };
ZM_OBSERVER_KIND(StatusKind, ChatRoomStatusDelegate, chatRoomStatusDelegateSnapshot)
ZM_OBSERVER_KIND(KVKind, ChatRoomKVStatusChangeDelegate, chatRoomKVStatusChangeDelegateSnapshot)
ZM_OBSERVER_KIND(NotifyKind, ChatRoomNotifyEventDelegate, chatRoomNotifyEventDelegateSnapshot)

template <class Kind>
class ListenerSetTest : public testing::Test {};
using Kinds = testing::Types<StatusKind, KVKind, NotifyKind>;
TYPED_TEST_SUITE(ListenerSetTest, Kinds);

// One entry per live observer, in registration order: adding twice keeps one, null changes
// nothing, a destroyed observer leaves by itself. Deliveries share one snapshot until this kind's
// registrations change; it holds its observers weakly and never changes. Only status
// registrations move the status generation.
TYPED_TEST(ListenerSetTest, WeakMembershipAndSharedSnapshots) {
    using K = TypeParam;
    constexpr bool kStatus = std::is_same_v<K, StatusKind>;
    using Other = std::conditional_t<kStatus, KVKind, StatusKind>;
    const auto generation = statusGeneration();
    const auto others = Other::snapshot();
    auto first = K::make(), second = K::make(), dropped = K::make();
    std::weak_ptr<typename K::Delegate> watch = dropped;
    for (const auto& observer : {first, first, second, dropped, decltype(first)()}) K::add(observer);
    const auto shared = K::snapshot();
    K::add(first);
    K::remove(nullptr);
    dropped.reset();
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(K::snapshot(), shared);
    EXPECT_EQ(Other::snapshot(), others);
    EXPECT_EQ(K::all(), (decltype(K::all()){first, second}));
    K::remove(first);
    K::add(dropped = K::make());
    EXPECT_EQ(K::all(), (decltype(K::all()){second, dropped}));
    ASSERT_EQ(shared->size(), 3u);
    EXPECT_TRUE((*shared)[2].expired());
    K::remove(second);
    K::remove(dropped);
    EXPECT_EQ(statusGeneration() - generation, kStatus ? 7u : 0u);
    K::remove(K::make());
    EXPECT_TRUE(K::all().empty());
}

// The live observers of a snapshot in order, held in place up to eight and beyond on the heap.
TEST(ListenerManagerTest, LiveObserversKeepTheLiveOnesOfASnapshotInOrder) {
    for (size_t registered : {0u, 1u, 8u, 9u, 20u}) {
        std::vector<std::shared_ptr<KVKind::Delegate>> observers, expected;
        for (size_t i = 0; i < registered; ++i) {
            KVKind::add(observers.emplace_back(KVKind::make()));
            if (i % 3 != 1) expected.push_back(observers.back());
        }
        for (size_t i = 1; i < registered; i += 3) observers[i].reset();  // dead before the walk: left out
        const ZMLiveObservers<KVKind::Delegate> live(KVKind::snapshot());
        EXPECT_EQ(decltype(expected)(live.begin(), live.end()), expected) << registered;
        EXPECT_EQ(live.size(), expected.size()) << registered;
        for (const auto& observer : expected) KVKind::remove(observer);
    }
}

// Threads add, remove, drop and walk at once, each ending by registering one observer it keeps:
// exactly those remain, and every status change moved the generation.
TEST(ListenerManagerTest, ConcurrentUseKeepsTheSetsConsistent) {
    const auto generation = statusGeneration();
    std::vector<std::shared_ptr<ZMChatRoomStatusDelegate>> survivors(4);
    {
        std::vector<std::jthread> threads;
        for (auto& survivor : survivors) {
            threads.emplace_back([&survivor] {
                for (int round = 0; round < 300; ++round) {
                    auto status = StatusKind::make();
                    auto notify = NotifyKind::make();
                    StatusKind::add(status);
                    KVKind::add(KVKind::make());  // gone at once, never removed
                    KVKind::all();
                    NotifyKind::add(notify);
                    for (const auto& observer : StatusKind::all()) observer->onChatRoomJoining("r");
                    StatusKind::remove(status);
                    NotifyKind::remove(notify);
                }
                StatusKind::add(survivor = StatusKind::make());
            });
        }
    }
    auto remaining = StatusKind::all();
    std::sort(remaining.begin(), remaining.end());
    std::sort(survivors.begin(), survivors.end());
    EXPECT_EQ(remaining, survivors);
    EXPECT_EQ(statusGeneration() - generation, 4u * 601);
    EXPECT_TRUE(KVKind::all().empty() && NotifyKind::all().empty());
}

using KV = ZMChatRoomKVStatusChangeDelegate;
using Filter = ZMChatRoomKVStatusFilterDelegate;
using Member = ZMChatRoomMemberDelegate;
using Notify = ZMChatRoomNotifyEventDelegate;
using Status = ZMChatRoomStatusDelegate;
struct UpdateOnly : KV { void chatRoomKVDidUpdate(const std::string&, const ZMValue&) override {} };
struct InheritsUpdate : UpdateOnly {};
struct CallsTheDefault final : KV {  // still an implementation
    void chatRoomKVDidRemove(const std::string& room, const ZMValue& entry) override { KV::chatRoomKVDidRemove(room, entry); }
};
struct StatusAndKV : Status, KV {  // KV as a secondary base
    void onChatRoomJoined(const std::string&, const std::shared_ptr<ZMJoinChatRoomResponse>&) override {}
    void chatRoomKVDidSync(const std::string&) override {}
};
struct VirtualKV : virtual KV { void chatRoomKVDidRemove(const std::string&, const ZMValue&) override {} };
struct DiamondKV : VirtualKV, virtual KV {};
struct ModelOnly : Member {
    using Member::memberDidChange;
    void memberDidChange(const std::shared_ptr<ZMChatRoomMemberActionModel>&) override {}
};
struct GetAllFilterOnly : Filter { ZMValue getAllChatRoomEntriesFilter(const std::string&, const ZMValue& e) override { return e; } };
struct BanOnly : Notify { void chatRoomNotifyBan(const std::shared_ptr<ZMChatRoomMemberBanEvent>&) override {} };

// "1" or "0" per callback: whether the observer implements it.
template <class Interface, class... Callbacks>
std::string implemented(const Interface& observer, Callbacks... callbacks) {
    return ((ZMDelegateImplements(observer, callbacks) ? std::string("1") : std::string("0")) + ...);
}

// The answer follows the observer's dynamic class, seen through the interface, however the
// application shapes its classes, for every callback of every interface.
TEST(ZMDelegateImplements, FollowsTheDynamicClassForEveryCallback) {
    const auto kv = [](const KV& o) { return implemented(o, &KV::chatRoomKVDidSync, &KV::chatRoomKVDidUpdate, &KV::chatRoomKVDidRemove); };
    EXPECT_EQ(kv(KV()) + kv(UpdateOnly()) + kv(InheritsUpdate()) + kv(CallsTheDefault()) + kv(StatusAndKV()) + kv(DiamondKV()),
              "000" "010" "010" "001" "100" "001");
    EXPECT_EQ(implemented<Status>(StatusAndKV(), &Status::onChatRoomJoined, &Status::onChatRoomJoining, &Status::onChatRoomDestroyed), "100");
    using ListCallback = void (Member::*)(const std::vector<std::shared_ptr<ZMChatRoomMemberAction>>&, const std::string&);
    using ModelCallback = void (Member::*)(const std::shared_ptr<ZMChatRoomMemberActionModel>&);
    EXPECT_EQ(implemented<Member>(ModelOnly(), static_cast<ListCallback>(&Member::memberDidChange), static_cast<ModelCallback>(&Member::memberDidChange)), "01");
    EXPECT_EQ(implemented<Filter>(GetAllFilterOnly(), &Filter::getAllChatRoomEntriesFilter, &Filter::chatRoomKVUpdateFilter,
                                  &Filter::chatRoomKVRemoveFilter, &Filter::chatRoomKVStatusDidSync), "1000");
    EXPECT_EQ(implemented<Notify>(BanOnly(), &Notify::chatRoomNotifyMultiLoginSync, &Notify::chatRoomNotifyBlock, &Notify::chatRoomNotifyBan), "001");
}

}  // namespace
