#include <memory>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include <Platform/ZMRecursiveLock.h>
#include <Platform/ZMWeakSet.h>

namespace {

struct Observer {
    virtual ~Observer() = default;
};
struct OtherBase {
    virtual ~OtherBase() = default;
};
struct Listener : OtherBase, Observer {};

TEST(ZMWeakSetTest, DestroyedMembersVanishAndAreNeverReturned) {
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
    EXPECT_EQ(set.count(), 1u);
    auto all = set.allObjects();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0], kept);
}

TEST(ZMWeakSetTest, MembershipIsObjectIdentityThroughAnyBaseClass) {
    ZMWeakSet<Observer> set;
    auto listener = std::make_shared<Listener>();
    std::shared_ptr<OtherBase> viaOtherBase = listener;
    std::shared_ptr<Observer> viaCast = std::dynamic_pointer_cast<Observer>(viaOtherBase);
    std::shared_ptr<Observer> direct = listener;

    set.add(direct);
    set.add(viaCast);
    EXPECT_EQ(set.count(), 1u);
    EXPECT_TRUE(set.contains(viaCast));
    EXPECT_FALSE(set.contains(std::make_shared<Listener>()));

    set.remove(viaCast);
    EXPECT_EQ(set.count(), 0u);
    EXPECT_FALSE(set.contains(direct));
}

TEST(ZMWeakSetTest, SnapshotKeepsMembersAliveAndIgnoresLaterChanges) {
    ZMWeakSet<Observer> set;
    auto first = std::make_shared<Listener>();
    std::weak_ptr<Observer> watch = first;
    set.add(first);
    auto snapshot = set.allObjects();

    first.reset();
    set.add(std::make_shared<Listener>());  // dies at once, never a member for long
    EXPECT_FALSE(watch.expired());
    EXPECT_EQ(snapshot.size(), 1u);
    EXPECT_EQ(set.count(), 1u);  // alive through the snapshot only

    snapshot.clear();
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(set.count(), 0u);
}

bool heldElsewhere(ZMRecursiveLock& lock) {
    bool acquired = false;
    std::thread([&] {
        acquired = lock.try_lock();
        if (acquired) lock.unlock();
    }).join();
    return !acquired;
}

TEST(ZMRecursiveLockTest, ReentersOnTheHoldingThreadAndExcludesOthers) {
    ZMRecursiveLock lock;
    const int result = lock.withLock([&] {
        return lock.withLock([&] { return heldElsewhere(lock) ? 42 : -1; });
    });
    EXPECT_EQ(result, 42);
    EXPECT_FALSE(heldElsewhere(lock));
}

TEST(ZMRecursiveLockTest, ReleasesEveryLevelWhenTheBodyThrows) {
    ZMRecursiveLock lock;
    EXPECT_THROW(lock.withLock([&] { lock.withLock([]() -> void { throw std::runtime_error("body"); }); }),
                 std::runtime_error);
    EXPECT_FALSE(heldElsewhere(lock));
}

}  // namespace
