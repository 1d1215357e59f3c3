#include <memory>
#include <stdexcept>
#include <thread>

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
