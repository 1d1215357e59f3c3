#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <Platform/ZMRecursiveLock.h>
#include <Platform/ZMWeakSet.h>

namespace {

struct Observer { virtual ~Observer() = default; };
struct OtherBase { virtual ~OtherBase() = default; };
struct Listener : OtherBase, Observer {};

TEST(ZMWeakSetTest, DestroyedMembersVanishWhileASnapshotKeepsItsMembersAlive) {
    ZMWeakSet<Observer> set;
    auto kept = std::make_shared<Listener>();
    auto dropped = std::make_shared<Listener>();
    set.add(kept);
    set.add(dropped);
    set.add(nullptr);
    ASSERT_EQ(set.count(), 2u);
    std::weak_ptr<Observer> watch = dropped;
    dropped.reset();
    EXPECT_TRUE(watch.expired());  // the set kept nothing alive
    auto snapshot = set.allObjects();
    ASSERT_EQ(snapshot.size(), 1u);
    EXPECT_EQ(snapshot[0], kept);

    watch = kept;
    kept.reset();
    set.add(std::make_shared<Listener>());  // dies at once, never a member for long
    EXPECT_FALSE(watch.expired());
    EXPECT_EQ(set.count(), 1u);  // alive through the snapshot only
    snapshot.clear();
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(set.count(), 0u);
}

TEST(ZMWeakSetTest, MembershipIsObjectIdentityThroughAnyBaseClass) {
    ZMWeakSet<Observer> set;
    auto listener = std::make_shared<Listener>();
    std::shared_ptr<OtherBase> viaOtherBase = listener;
    std::shared_ptr<Observer> viaCast = std::dynamic_pointer_cast<Observer>(viaOtherBase);
    set.add(listener);
    set.add(viaCast);
    EXPECT_EQ(set.count(), 1u);
    EXPECT_TRUE(set.contains(viaCast));
    EXPECT_FALSE(set.contains(std::make_shared<Listener>()));
    set.remove(viaCast);
    EXPECT_EQ(set.count(), 0u);
    EXPECT_FALSE(set.contains(listener));

    // Two objects that share one owner are still two members.
    auto pair = std::make_shared<std::pair<Listener, Listener>>();
    std::shared_ptr<Observer> first(pair, &pair->first);
    std::shared_ptr<Observer> second(pair, &pair->second);
    set.add(first);
    set.add(second);
    set.remove(second);
    EXPECT_TRUE(set.contains(first));
    EXPECT_EQ(set.count(), 1u);
}

TEST(ZMWeakSetTest, SnapshotsFollowRegistrationOrderAndARemovedMemberAddedAgainComesLast) {
    ZMWeakSet<Observer> set;
    std::vector<std::shared_ptr<Observer>> observers;
    for (int i = 0; i < 5; ++i) observers.push_back(std::make_shared<Listener>());
    for (const auto& observer : observers) set.add(observer);
    set.add(observers[1]);  // already a member: stays in its place
    set.remove(observers[2]);
    set.add(observers[2]);
    observers[3].reset();
    EXPECT_EQ(set.allObjects(),
              (std::vector<std::shared_ptr<Observer>>{observers[0], observers[1], observers[4], observers[2]}));
}

// Hands out memory blocks and hands a released block back on the next request
// of the same size (the last released first), so that a new object can be
// created exactly where a destroyed one was.
class RecyclingArena {
public:
    RecyclingArena() = default;
    RecyclingArena(const RecyclingArena&) = delete;
    RecyclingArena& operator=(const RecyclingArena&) = delete;
    ~RecyclingArena() {
        for (const auto& [block, size] : free_) ::operator delete(block);
    }

    void* allocate(size_t size) {
        ++inUse_;
        for (auto it = free_.rbegin(); it != free_.rend(); ++it) {
            if (it->second == size) {
                void* block = it->first;
                free_.erase(std::next(it).base());
                return block;
            }
        }
        return ::operator new(size);
    }
    void deallocate(void* block, size_t size) {
        --inUse_;
        free_.emplace_back(block, size);
    }
    size_t blocksInUse() const { return inUse_; }

private:
    std::vector<std::pair<void*, size_t>> free_;
    size_t inUse_ = 0;
};

template <class T>
struct ArenaAllocator {
    using value_type = T;
    explicit ArenaAllocator(RecyclingArena* arena) : arena(arena) {}
    template <class U>
    ArenaAllocator(const ArenaAllocator<U>& other) : arena(other.arena) {}
    T* allocate(size_t n) { return static_cast<T*>(arena->allocate(n * sizeof(T))); }
    void deallocate(T* block, size_t n) { arena->deallocate(block, n * sizeof(T)); }
    template <class U>
    bool operator==(const ArenaAllocator<U>& other) const { return arena == other.arena; }

    RecyclingArena* arena;
};

TEST(ZMWeakSetTest, ANewObjectAtADestroyedMembersAddressIsNotThatMemberAndDeadMembersAreReleased) {
    const struct {
        const char* name;
        std::function<std::shared_ptr<Observer>(RecyclingArena&)> make;
    } cases[] = {
        // The object's storage goes back to the arena when it dies, while its
        // control block lives on as long as the set's weak reference: the next
        // object takes the address of a member the set still remembers.
        {"object storage apart from its control block",
         [](RecyclingArena& arena) {
             auto* listener = new (arena.allocate(sizeof(Listener))) Listener;
             return std::shared_ptr<Observer>(
                 listener,
                 [&arena](Listener* dying) {
                     dying->~Listener();
                     arena.deallocate(dying, sizeof(Listener));
                 },
                 ArenaAllocator<Listener>(&arena));
         }},
        // Object and control block in one block, which goes back to the arena
        // only once the set lets go of the dead member.
        {"object and control block in one block (allocate_shared)",
         [](RecyclingArena& arena) {
             return std::shared_ptr<Observer>(std::allocate_shared<Listener>(ArenaAllocator<Listener>(&arena)));
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        RecyclingArena arena;  // outlives the set, which releases control blocks into it
        ZMWeakSet<Observer> set;
        auto keeper = c.make(arena);  // a member that stays alive throughout
        set.add(keeper);
        std::set<const Observer*> seen;
        size_t reused = 0;
        for (int round = 0; round < 200; ++round) {
            auto object = c.make(arena);
            if (!seen.insert(object.get()).second) ++reused;
            ASSERT_FALSE(set.contains(object)) << "round " << round;
            ASSERT_EQ(set.count(), 1u) << "round " << round;
            set.add(object);
            ASSERT_TRUE(set.contains(object)) << "round " << round;
            ASSERT_EQ(set.allObjects(), (std::vector<std::shared_ptr<Observer>>{keeper, object})) << "round " << round;
            object.reset();
        }
        EXPECT_GT(reused, 0u) << "no object was created at a dead member's address";
        // The dead members' blocks are released as the set goes, not kept until the end.
        EXPECT_LT(arena.blocksInUse(), 64u);
        set.remove(keeper);
        EXPECT_EQ(set.count(), 0u);
    }
}

// Whether another thread finds the lock taken.
bool heldElsewhere(ZMRecursiveLock& lock) {
    bool acquired = false;
    std::thread([&] {
        if ((acquired = lock.try_lock())) lock.unlock();
    }).join();
    return !acquired;
}

TEST(ZMRecursiveLockTest, ReentersOnTheHoldingThreadExcludesOthersAndReleasesEveryLevelOnException) {
    ZMRecursiveLock lock;
    EXPECT_TRUE(lock.withLock([&] { return lock.withLock([&] { return heldElsewhere(lock); }); }));
    EXPECT_THROW(lock.withLock([&] { lock.withLock([]() -> void { throw std::runtime_error("body"); }); }),
                 std::runtime_error);
    EXPECT_FALSE(heldElsewhere(lock));
}

}  // namespace
