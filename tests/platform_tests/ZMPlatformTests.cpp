// The platform layer: queues, the host poster, the weak set, the recursive lock, the core's thread-safe
// dictionary, JSON, UTF-16 lengths and keyed archives.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <future>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <memory_resource>
#include <new>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <Platform/ZMJSONSerialization.h>
#include <Platform/ZMKeyedArchiver.h>
#include <Platform/ZMKeyedUnarchiver.h>
#include <Platform/ZMMainQueue.h>
#include <Platform/ZMPlatformException.h>
#include <Platform/ZMRecursiveLock.h>
#include <Platform/ZMSerialQueue.h>
#include <Platform/ZMUTF16.h>
#include <Platform/ZMWeakSet.h>
#include <VemoIMLibCore/ZMTSMutableDictionary.h>

#include "support/ZMNestedValues.h"
#include "support/ZMTestSupport.h"

namespace {

using Strings = std::vector<std::string>;

// One producer here: many at once are the module's stress tests (status announcements from four threads).
TEST(ZMSerialQueueTest, RunsEveryTaskInOrderAndAsksForAWakeUpOnlyWhenTheWorkerSleeps) {
    constexpr int kBurst = 5000;  // larger than the buffer the worker keeps
    std::vector<int> ran;         // touched only by the queue's tasks
    ZMEventRecorder seen;
    {
        ZMSerialQueue queue("test.fifo");
        std::promise<void> gate;  // holds the worker inside a task until the whole burst is queued
        queue.async([&seen, opened = gate.get_future().share()] { seen.record("gate"); opened.wait(); });
        ASSERT_TRUE(seen.waitForCount(1));
        int wakeUpsAsked = 0;  // none: the busy worker takes them when its task returns
        for (int i = 0; i < kBurst; ++i) wakeUpsAsked += queue.enqueue([&ran, i] { ran.push_back(i); });
        EXPECT_EQ(wakeUpsAsked, 0);
        gate.set_value();
        // Whether the worker still looks for work or sleeps already, the task runs once the producer obeys enqueue().
        for (int i = kBurst; i < kBurst + 50; ++i) {
            queue.sync([] {});
            if (queue.enqueue([&, i] { ran.push_back(i); seen.record("idle"); })) queue.wake();
            ASSERT_TRUE(seen.waitForCount(static_cast<size_t>(i - kBurst) + 2));
        }
        // Still queued when the destructor starts, and queueing more while it drains.
        queue.async([&] { queue.async([&] { ran.push_back(kBurst + 50); }); });
    }
    ASSERT_EQ(ran.size(), static_cast<size_t>(kBurst + 51));
    for (size_t i = 0; i < ran.size(); ++i) ASSERT_EQ(ran[i], static_cast<int>(i));
}

TEST(ZMSerialQueueTest, SyncRunsInPlaceOnItsOwnQueueAndOnlyTheQueuesTasksCarryItsMarkerAndValues) {
    static int key, value;
    ZMSerialQueue a("test.a"), b("test.b");
    a.setSpecific(&key, &value);
    ZMEventRecorder seen;
    auto observe = [&](const std::string& where) {
        seen.record(where + " " + std::to_string(a.isCurrent()) + std::to_string(b.isCurrent()) +
                    std::to_string(ZMSerialQueue::getSpecific(&key) == &value));
    };
    observe("outside");
    a.sync([&] {
        observe("a");
        a.async([&] { observe("queued from a"); });
        a.sync([&] { observe("a in place"); });
        b.sync([&] { observe("b inside a"); });
        observe("back in a");
    });
    a.async([] { throw std::runtime_error("dropped"); });  // must not take the worker down
    EXPECT_THROW(a.sync([] { throw std::logic_error("to caller"); }), std::logic_error);
    a.setSpecific(&key, nullptr);
    a.sync([&] { observe("a after removal"); });
    EXPECT_EQ(seen.events(), (Strings{"outside 000", "a 101", "a in place 101", "b inside a 010", "back in a 101",
                                      "queued from a 101", "a after removal 100"}));
}

// "<what>@<time on the queue's clock>", marked when it does not run as the queue's own work.
std::string at(const std::string& what, const ZMMainQueue& queue) {
    std::ostringstream text;
    text << what << "@" << queue.now() << (queue.isCurrent() ? "" : " outside the queue");
    return text.str();
}

TEST(ZMMainQueueTest, TimersFireOnTheDrivenClockEachAtItsOwnTime) {
    const struct { const char* name; double interval; bool repeats; std::vector<double> advances; Strings firings; } cases[] = {
        {"repeating, just short of due", 2.0, true, {1.999}, {}},
        {"repeating, two intervals in one step, the last exactly due", 2.0, true, {4.0}, {"fire@2", "fire@4"}},
        {"repeating, steps across boundaries", 2.0, true, {1.0, 1.5, 1.5}, {"fire@2", "fire@4"}},
        {"one-shot fires once", 1.0, false, {0.5, 3.0, 3.0}, {"fire@1"}},
        {"zero interval is raised, not endless", 0.0, false, {1.0}, {"fire@0.0001"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ZMMainQueue queue;
        Strings firings;
        queue.scheduledTimer(c.interval, c.repeats, [&] { firings.push_back(at("fire", queue)); });
        for (double step : c.advances) queue.advance(step);
        EXPECT_EQ(firings, c.firings);
        EXPECT_EQ(queue.activeTimerCount(), c.repeats ? 1u : 0u);
    }
}

TEST(ZMMainQueueTest, TasksAndTimersCreatedOrInvalidatedDuringAFiringTakeEffectAtOnce) {
    ZMMainQueue queue, other;
    ZMSerialQueue serial("test.main.other");
    Strings order;
    std::shared_ptr<ZMTimer> killer, victim;
    killer = queue.scheduledTimer(1.0, true, [&] {
        order.push_back(at("killer", queue));
        queue.async([&] { order.push_back(at("task from killer", queue)); });
        victim->invalidate();  // due at the same instant, scheduled later
        if (queue.now() >= 2.0) killer->invalidate();
        if (queue.now() == 1.0) queue.scheduledTimer(0.5, false, [&] { order.push_back(at("child", queue)); });
    });
    victim = queue.scheduledTimer(1.0, true, [&] { order.push_back(at("victim", queue)); });
    queue.async([&] {
        order.push_back(at("task", queue));
        queue.scheduledTimer(3.0, false, [&] { order.push_back(at("from task", queue)); });
        // Work of another queue run from a task is not this queue's.
        serial.sync([&] { order.push_back(at("serial queue", queue)); });
        other.async([&] { order.push_back(at("other main queue", queue) + " " + std::to_string(other.isCurrent())); });
        other.drain();
    });
    EXPECT_EQ(queue.activeTimerCount(), 2u);
    queue.advance(5.0);
    EXPECT_EQ(order, (Strings{"task@0", "serial queue@0 outside the queue", "other main queue@0 outside the queue 1",
                              "killer@1", "task from killer@1", "child@1.5", "killer@2", "task from killer@2",
                              "from task@3"}));
    EXPECT_FALSE(killer->isValid() || victim->isValid());
    EXPECT_EQ(queue.activeTimerCount(), 0u);
    EXPECT_DOUBLE_EQ(queue.now(), 5.0);
    EXPECT_FALSE(queue.isCurrent());
}

// A host that keeps the work it is handed, with its delay, until the test runs it.
struct ManualHost {
    std::deque<std::pair<ZMMainQueue::Task, double>> posted;
    ZMMainQueue::HostPoster poster() {
        return [this](ZMMainQueue::Task work, double delay) { posted.emplace_back(std::move(work), delay); };
    }
    std::vector<double> delays() const {
        std::vector<double> delays;
        for (const auto& item : posted) delays.push_back(item.second);
        return delays;
    }
    bool runNext() {
        if (posted.empty()) return false;
        auto work = std::move(posted.front().first);
        posted.pop_front();
        work();
        return true;
    }
};

// A wake-up asked for a timer due `seconds` after it was scheduled.
bool wakeUpFor(double seconds, double delay) { return delay > seconds - 1 && delay <= seconds; }

// A host whose event loop is a serial queue's worker: it runs what it is handed
// at once, whatever the delay (a wake-up that comes early asks again).
ZMMainQueue::HostPoster postTo(ZMSerialQueue& loop) {
    return [&loop](ZMMainQueue::Task work, double) { loop.async(std::move(work)); };
}

TEST(ZMMainQueueHostPosterTest, TheHostIsAskedOnceForWaitingTasksAndTimersAndAReplacedOnesWorkRunsNothing) {
    ZMMainQueue queue;
    ManualHost host, second, orphaned;
    Strings ran;
    auto task = [&](std::string name) {
        return [&ran, &queue, name] { ran.push_back(name + (queue.isCurrent() ? "" : " outside the queue")); };
    };
    queue.async(task("before the poster"));
    queue.setHostPoster(host.poster());
    queue.async(task("a"));
    queue.async([&] { ran.push_back("b"); queue.async(task("queued by b")); });
    EXPECT_EQ(host.delays(), std::vector<double>{0.0});  // one request for all the waiting tasks
    ASSERT_TRUE(host.runNext());
    EXPECT_EQ(ran, (Strings{"before the poster", "a", "b"}));
    EXPECT_EQ(host.delays(), std::vector<double>{0.0});  // the host's loop gets a turn first
    ASSERT_TRUE(host.runNext());
    EXPECT_EQ(ran.back(), "queued by b");
    EXPECT_FALSE(host.runNext());  // nothing left: the host is not asked again

    int fired = 0;
    auto thirty = queue.scheduledTimer(30, false, [&] { ++fired; });
    auto sixty = queue.scheduledTimer(60, false, [&] { ++fired; });  // the wake-up at 30 s comes first anyway
    auto ten = queue.scheduledTimer(10, true, [&] { ++fired; });
    auto delays = host.delays();
    ASSERT_EQ(delays.size(), 2u);
    EXPECT_PRED2(wakeUpFor, 30, delays[0]);
    EXPECT_PRED2(wakeUpFor, 10, delays[1]);
    // Both wake-ups come far too early: nothing fires, and the host is asked again for the earliest.
    host.runNext();
    host.runNext();
    delays = host.delays();
    ASSERT_EQ(delays.size(), 1u);
    EXPECT_PRED2(wakeUpFor, 10, delays[0]);
    // With every timer invalidated, a wake-up fires nothing and asks for nothing.
    for (const auto& timer : {thirty, sixty, ten}) timer->invalidate();
    while (host.runNext()) continue;
    EXPECT_EQ(fired, 0);
    EXPECT_TRUE(host.posted.empty());

    ran.clear();
    queue.async(task("x"));
    queue.setHostPoster({});
    while (host.runNext()) continue;  // handed over before the removal: runs nothing
    queue.async(task("y"));
    auto timer = queue.scheduledTimer(5, false, task("timer"));
    EXPECT_TRUE(host.posted.empty());  // nobody is asked
    EXPECT_EQ(queue.drain(), 2u);      // the waiting tasks go to the next driver
    EXPECT_EQ(ran, (Strings{"x", "y"}));
    queue.async(task("z"));
    queue.setHostPoster(second.poster());  // asked at once for the task and the timer
    ASSERT_EQ(second.delays().size(), 2u);
    EXPECT_EQ(second.delays()[0], 0.0);
    EXPECT_PRED2(wakeUpFor, 5, second.delays()[1]);
    queue.setHostPoster(host.poster());  // replaces the second
    while (second.runNext()) continue;
    ASSERT_EQ(host.delays().size(), 2u);
    host.runNext();
    EXPECT_EQ(ran, (Strings{"x", "y", "z"}));
    EXPECT_TRUE(timer->isValid());
    queue.setHostPoster({});
    {
        ZMMainQueue gone;
        gone.setHostPoster(orphaned.poster());
        gone.async(task("gone"));
        gone.scheduledTimer(0.0001, false, task("gone"));
        ASSERT_EQ(orphaned.posted.size(), 2u);
    }
    while (orphaned.runNext()) continue;
    EXPECT_EQ(ran.size(), 3u);
}

// The same tasks and timers, set up before anything drives the queue, run in
// the same order as the queue's own work on the driving thread, each timer at
// or after its due time.
TEST(ZMMainQueueHostPosterTest, TasksAndTimersRunInTheSameOrderUnderEveryDriver) {
    for (bool hosted : {false, true}) {
        SCOPED_TRACE(hosted ? "host poster" : "real time");
        ZMMainQueue queue;
        ZMEventRecorder seen;
        ZMSerialQueue host("test.host");
        auto note = [&](const std::string& what, double due = 0) {
            const bool onDriver = queue.isCurrent() && host.isCurrent() == hosted;
            seen.record(what + (onDriver ? "" : " outside") + (queue.now() >= due ? "" : " early"));
        };
        queue.async([&] { note("task 1"); });
        queue.scheduledTimer(0.02, false, [&] {
            note("timer at 0.02", 0.02);
            queue.async([&] { note("task queued by the timer"); });
        });
        queue.scheduledTimer(0.01, false, [&] { note("timer at 0.01", 0.01); });
        queue.async([&] { note("task 2"); });
        if (hosted) {
            queue.setHostPoster(postTo(host));
            EXPECT_TRUE(seen.waitForCount(5));
            queue.setHostPoster({});
            host.sync([] {});
        } else {
            EXPECT_TRUE(queue.runUntil([&] { return seen.count() >= 5; }, 30));
            const double before = queue.now();  // the clock follows the wall clock
            EXPECT_FALSE(queue.runUntil([] { return false; }, 0.05));
            EXPECT_GE(queue.now() - before, 0.05);
        }
        EXPECT_EQ(seen.events(), (Strings{"task 1", "task 2", "timer at 0.01", "timer at 0.02", "task queued by the timer"}));
        EXPECT_EQ(queue.activeTimerCount(), 0u);
    }
}

TEST(ZMMainQueueHostPosterTest, ReplacingThePosterWaitsForItsCallsUnderWayOnOtherThreads) {
    ZMMainQueue queue;
    ZMEventRecorder order;
    std::atomic<bool> entered{false};
    // The poster's call lasts until the replacement has begun.
    queue.setHostPoster([&](ZMMainQueue::Task, double) {
        entered = true;
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (queue.hasHostPoster() && std::chrono::steady_clock::now() < giveUp) std::this_thread::yield();
        order.record("the poster's call ends");
    });
    std::thread caller([&] { queue.async([] {}); });
    while (!entered) std::this_thread::yield();
    queue.setHostPoster({});
    order.record("setHostPoster returned");
    caller.join();
    EXPECT_EQ(order.events(), (Strings{"the poster's call ends", "setHostPoster returned"}));
}

TEST(ZMMainQueueHostPosterTest, EveryTaskAndTimerRunsOnceInOrderWhilePostersChangeUnderLoad) {
    constexpr int kProducers = 4, kTasksEach = 300, kTimersEach = 25;
    ZMMainQueue queue;
    ZMSerialQueue loopA("test.hostA"), loopB("test.hostB");
    std::atomic<int> offQueue{0}, outOfOrder{0}, timersFired{0};
    std::vector<int> next(kProducers, 0);  // touched only by work of the queue, one at a time
    ZMEventRecorder done;
    queue.setHostPoster(postTo(loopA));
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            for (int i = 0; i < kTasksEach; ++i) {
                queue.async([&, p, i] {
                    offQueue += !queue.isCurrent();
                    outOfOrder += next[p]++ != i;
                    if (i == kTasksEach - 1) done.record("producer done");
                });
                if (i % (kTasksEach / kTimersEach) != 0) continue;
                queue.scheduledTimer(0.001, false, [&] {
                    offQueue += !queue.isCurrent();
                    if (++timersFired == kProducers * kTimersEach) done.record("timers done");
                });
            }
        });
    }
    // Meanwhile the host changes: none, the other loop, back again.
    for (int round = 0; round < 20; ++round) {
        queue.setHostPoster(round % 3 == 0 ? ZMMainQueue::HostPoster{} : postTo(round % 3 == 1 ? loopB : loopA));
    }
    for (auto& producer : producers) producer.join();
    queue.setHostPoster(postTo(loopA));
    EXPECT_TRUE(done.waitForCount(kProducers + 1));
    queue.setHostPoster({});
    EXPECT_EQ(offQueue + outOfOrder, 0);
    EXPECT_EQ(timersFired, kProducers * kTimersEach);
    for (int p = 0; p < kProducers; ++p) EXPECT_EQ(next[p], kTasksEach) << "producer " << p;
    EXPECT_EQ(queue.drain(), 0u);
}


struct Observer { virtual ~Observer() = default; };
struct OtherBase { virtual ~OtherBase() = default; };
struct Listener : OtherBase, Observer {};
using Observers = std::vector<std::shared_ptr<Observer>>;

TEST(ZMWeakSetTest, MembersAreObjectsInRegistrationOrderKeptAliveOnlyBySnapshots) {
    ZMWeakSet<Observer> set;
    auto pair = std::make_shared<std::pair<Listener, Listener>>();  // two objects that share one owner
    Observers observers = {{pair, &pair->first}, {pair, &pair->second}};
    for (int i = 0; i < 4; ++i) observers.push_back(std::make_shared<Listener>());
    for (const auto& observer : observers) set.add(observer);
    // The same object seen through another base class is the same member.
    set.add(std::dynamic_pointer_cast<Observer>(std::dynamic_pointer_cast<OtherBase>(observers[2])));
    set.remove(observers[3]);
    set.add(observers[3]);  // comes last now
    std::weak_ptr<Observer> watch = observers[4];
    observers[4].reset();
    EXPECT_TRUE(watch.expired());  // the set kept nothing alive
    auto snapshot = set.allObjects();
    EXPECT_EQ(snapshot, (Observers{observers[0], observers[1], observers[2], observers[5], observers[3]}));
    watch = observers[5];
    observers[5].reset();
    EXPECT_EQ(set.count(), 5u);  // alive through the snapshot only
    snapshot.clear();
    EXPECT_TRUE(watch.expired());
    set.remove(observers[1]);
    EXPECT_TRUE(set.contains(observers[0]));
    EXPECT_EQ(set.allObjects(), (Observers{observers[0], observers[2], observers[3]}));
}

// Hands a released block back on the next request of the same size (the last
// released first), so that a new object lands where a destroyed one was.
struct RecyclingArena : std::pmr::memory_resource {
    std::vector<std::pair<void*, size_t>> released;
    size_t inUse = 0;
    ~RecyclingArena() override { std::for_each(released.begin(), released.end(), [](auto& b) { ::operator delete(b.first); }); }
    void* do_allocate(size_t size, size_t) override {
        ++inUse;
        auto found = std::find_if(released.rbegin(), released.rend(), [&](const auto& b) { return b.second == size; });
        if (found == released.rend()) return ::operator new(size);
        void* block = found->first;
        released.erase(std::next(found).base());
        return block;
    }
    void do_deallocate(void* block, size_t size, size_t) override {
        --inUse;
        released.emplace_back(block, size);
    }
    bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override { return this == &other; }
};

TEST(ZMWeakSetTest, ANewObjectAtADestroyedMembersAddressIsNotThatMemberAndDeadMembersAreReleased) {
    for (bool objectApart : {true, false}) {
        // Apart: the object's storage goes back to the arena when it dies, while its control block lives on
        // with the set's weak reference. Together: the block goes back once the set lets go of the member.
        SCOPED_TRACE(objectApart ? "object apart from its control block" : "object and control block together");
        RecyclingArena arena;  // outlives the set, which releases control blocks into it
        std::pmr::polymorphic_allocator<Listener> allocator(&arena);
        auto make = [&]() -> std::shared_ptr<Observer> {
            if (!objectApart) return std::allocate_shared<Listener>(allocator);
            auto deleter = [&arena](Listener* dying) {
                dying->~Listener();
                arena.deallocate(dying, sizeof(Listener));
            };
            return std::shared_ptr<Listener>(new (arena.allocate(sizeof(Listener))) Listener, deleter, allocator);
        };
        ZMWeakSet<Observer> set;
        auto keeper = make();
        set.add(keeper);
        std::set<const Observer*> seen;
        size_t reused = 0;
        for (int round = 0; round < 200; ++round) {
            auto object = make();
            if (!seen.insert(object.get()).second) ++reused;
            ASSERT_FALSE(set.contains(object)) << "round " << round;
            ASSERT_EQ(set.count(), 1u) << "round " << round;
            set.add(object);
            ASSERT_EQ(set.allObjects(), (Observers{keeper, object})) << "round " << round;
        }
        EXPECT_GT(reused, 0u) << "no object was created at a dead member's address";
        EXPECT_LT(arena.inUse, 64u);  // dead members are released as the set goes, not kept until the end
    }
}

// Whether another thread finds the lock taken.
bool heldElsewhere(ZMRecursiveLock& lock) {
    bool acquired = false;
    std::thread([&] { if ((acquired = lock.try_lock())) lock.unlock(); }).join();
    return !acquired;
}

TEST(ZMRecursiveLockTest, ReentersOnTheHoldingThreadExcludesOthersAndReleasesEveryLevelOnException) {
    ZMRecursiveLock lock;
    EXPECT_TRUE(lock.withLock([&] { return lock.withLock([&] { return heldElsewhere(lock); }); }));
    EXPECT_THROW(lock.withLock([&] { lock.withLock([]() -> void { throw std::runtime_error("body"); }); }),
                 std::runtime_error);
    EXPECT_FALSE(heldElsewhere(lock));
}

using Dictionary = ZMTSMutableDictionary<int>;
using Reference = std::map<std::string, int>;

std::string key(int number) { return numbered("k", 100000 + number); }  // in numeric order

// Everything the dictionary answers agrees with the reference map.
void expectSame(const Dictionary& dictionary, const Reference& reference) {
    std::vector<std::string> keys;
    for (const auto& entry : reference) keys.push_back(entry.first);
    ASSERT_EQ(dictionary.allKeys(), keys);
    EXPECT_EQ(dictionary.count(), reference.size());
    EXPECT_EQ(dictionary.allEntries(), (std::vector<std::pair<std::string, int>>(reference.begin(), reference.end())));
    for (const auto& [k, v] : reference) ASSERT_EQ(dictionary.objectForKey(k), std::optional<int>(v)) << k;
}

// Key orders that fill, split and merge the dictionary's blocks at either end and in between.
TEST(ZMTSMutableDictionaryTest, AgreesWithAnOrderedMapWhateverTheOrderOfKeys) {
    constexpr int kKeys = 3000;
    std::vector<int> ascending, descending, shuffled, interleaved;
    for (int i = 0; i < kKeys; ++i) {
        ascending.push_back(i);
        descending.push_back(kKeys - 1 - i);
        interleaved.push_back(i % 2 ? kKeys - 1 - i / 2 : i / 2);  // both ends towards the middle
    }
    shuffled = ascending;
    std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(7));
    for (const auto& order : {ascending, descending, shuffled, interleaved}) {
        SCOPED_TRACE(order[1]);
        Dictionary dictionary;
        Reference reference;
        for (int k : order) dictionary.setObject(reference[key(k)] = k, key(k));
        expectSame(dictionary, reference);
        // Replacing answers the value replaced; a new key answers nothing.
        EXPECT_EQ(dictionary.exchangeObject(reference[key(17)] = -1, key(17)), std::optional<int>(17));
        EXPECT_EQ(dictionary.exchangeObject(reference[key(kKeys)] = -2, key(kKeys)), std::nullopt);
        EXPECT_FALSE(dictionary.setObjectIfAbsent(99, key(17)));
        EXPECT_TRUE(dictionary.setObjectIfAbsent(reference[key(kKeys + 1)] = 98, key(kKeys + 1)));
        for (size_t i = 0; i < order.size(); ++i) {  // most keys removed in the same order: blocks shrink and merge
            if (i % 10 == 0) continue;
            const std::string k = key(order[i]);
            EXPECT_EQ(dictionary.takeObjectForKey(k), std::optional<int>(reference[k])) << k;
            reference.erase(k);
            if (i % 500 == 1) expectSame(dictionary, reference);
        }
        EXPECT_EQ(dictionary.takeObjectForKey(key(order[1])), std::nullopt);  // gone already
        dictionary.removeObjectForKey("absent");
        for (int k : order) dictionary.setObject(reference[key(k)] = k * 2, key(k));  // back between the survivors
        expectSame(dictionary, reference);
        std::vector<int> values;
        for (const auto& entry : reference) values.push_back(entry.second);
        EXPECT_EQ(dictionary.takeAllObjects(), values);
        expectSame(dictionary, {});
        dictionary.setObject(1, "x");
        dictionary.removeAllObjects();
        EXPECT_EQ(dictionary.count(), 0u);
    }
    ZMTSMutableDictionary<std::shared_ptr<int>> owning;  // values leave when replaced or taken: no copy is kept
    auto first = std::make_shared<int>(1);
    owning.setObject(first, "a");
    owning.setObject(std::make_shared<int>(2), "a");
    EXPECT_EQ(first.use_count(), 1);
    EXPECT_EQ(owning.takeObjectForKey("a").value().use_count(), 1);
}

ZMData bytes(const std::string& text) { return ZMData(text.begin(), text.end()); }
std::string nested(size_t depth, const std::string& inner = "") {
    return std::string(depth, '[') + inner + std::string(depth, ']');
}

// The rows the library's parser would read alike are left to the fuzz target
// that compares the two; these are the reader's own paths and its depth limit.
TEST(ZMJSONSerializationTest, ParsesJSONTextAndRejectsEverythingElseWithoutThrowing) {
    std::string siblings = "[[]";  // 600 arrays, two levels deep
    for (int i = 1; i < 600; ++i) siblings += ",[]";
    const std::pair<std::string, std::optional<ZMValue>> cases[] = {
        {R"( {"l" : [{"u":"x\n\"\\\/","s":-1,"t":true} , {"n":1e3,"f":false}],"m":18446744073709551615,"z":null} )",
         ZMValue{{"l", {{{"u", "x\n\"\\/"}, {"s", -1}, {"t", true}}, {{"n", 1e3}, {"f", false}}}},
                 {"m", UINT64_MAX}, {"z", nullptr}}},
        {R"(["\ud83d\ude00\u00e9"])", ZMValue{"\xF0\x9F\x98\x80\xC3\xA9"}},
        {R"(["\ud800"])", std::nullopt},
        {"", std::nullopt},
        {"{} x", std::nullopt},
        {"[\"\xFF\"]", std::nullopt},
        {"[\"\xED\xA0\x80\"]", std::nullopt},  // an encoded surrogate
        {nested(512), ZMValue::parse(nested(512))},
        {nested(513), std::nullopt},
        {nested(512, "{}"), std::nullopt},
        {"[\"" + std::string(600, '[') + "\"]", ZMValue{std::string(600, '[')}},  // brackets, not nesting
        {siblings + "]", ZMValue::parse(siblings + "]")},
        {R"({"a":1,"b":{"c":2},"a":[3]})", ZMValue{{"a", {3}}, {"b", {{"c", 2}}}}},  // the last value of a key
        {R"("text")", ZMValue("text")},
        {"\xEF\xBB\xBF[1]", ZMValue{1}},
        {"\xEF\xBB[1]", std::nullopt},
        {std::string("[1] \0junk", 10), ZMValue{1}},  // a NUL byte after the value ends the text
        {std::string("[1,\0]", 5), std::nullopt},
        {"[18446744073709551616,-9223372036854775809]", ZMValue{18446744073709551616.0, -9223372036854775809.0}},
        {"[1e400]", std::nullopt},
    };
    for (const auto& [input, expected] : cases) {
        SCOPED_TRACE(input.substr(0, 60));
        std::optional<ZMValue> parsed;
        ASSERT_NO_THROW(parsed = ZMJSONSerialization::JSONObjectWithData(bytes(input)));
        EXPECT_EQ(parsed, expected);
        // The dictionary reader answers dictionaries only.
        EXPECT_EQ(ZMJSONSerialization::dictionaryWithData(bytes(input)),
                  expected && expected->is_object() ? expected : std::nullopt);
    }
}

TEST(ZMJSONSerializationTest, ValidityAndWriterAgreeOnWhatCanBeWritten) {
    const std::pair<ZMValue, bool> cases[] = {
        {{{"a", {1, "x", nullptr, false}}}, true},
        {ZMValue::array(), true},
        {"x", false},
        {{{"a", {{"b", std::numeric_limits<double>::quiet_NaN()}}}}, false},
        {ZMValue::array({1, -std::numeric_limits<double>::infinity()}), false},
        {ZMValue::array({ZMValue::binary({1, 2})}), false},
        {{{"\xC3", 1}}, false},
        {ZMValue::array({ZMValue{{"k", ZMValue::array({"ok", "\xED\xA0\x80"})}}}), false},
        {nestedValue(512, false), true},  // as deep as the reader reads, and one level deeper
        {nestedValue(513, false), false},
        {nestedValue(513, true), false},
    };
    for (const auto& [object, valid] : cases) {
        SCOPED_TRACE(object.dump(-1, ' ', false, ZMValue::error_handler_t::replace).substr(0, 60));
        EXPECT_EQ(ZMJSONSerialization::isValidJSONObject(object), valid);
        for (bool pretty : {false, true}) {
            try {
                ZMJSONSerialization::dataWithJSONObject(object, pretty);
                EXPECT_TRUE(valid) << "no exception";
            } catch (const ZMPlatformException& error) {
                EXPECT_FALSE(valid) << error.description();
                EXPECT_EQ(error.name(), "ZMJSONWriteException");
                EXPECT_EQ(error.description().rfind("ZMJSONWriteException: ", 0), 0u);
            }
        }
    }
    const ZMValue object = {{"name", "r\xC3\xA9union"}, {"list", {1, 2}}, {"empty", ZMValue::object()}};
    const ZMData compact = ZMJSONSerialization::dataWithJSONObject(object, false);
    const ZMData pretty = ZMJSONSerialization::dataWithJSONObject(object, true);
    EXPECT_EQ(compact, bytes("{\"empty\":{},\"list\":[1,2],\"name\":\"r\xC3\xA9union\"}"));
    EXPECT_EQ(pretty, bytes("{\n  \"empty\": {},\n  \"list\": [\n    1,\n    2\n  ],\n  \"name\": \"r\xC3\xA9union\"\n}"));
    EXPECT_EQ(ZMJSONSerialization::JSONObjectWithData(pretty), object);
}

TEST(ZMUTF16Test, CountsUnitsOfWellFormedTextAndRejectsEveryMalformedSequence) {
    const std::pair<std::string, std::optional<size_t>> cases[] = {
        {"", 0},
        {std::string("a\0b\x7F", 4), 4},
        {"\xC2\x80\xDF\xBF", 2},                  // U+0080 and U+07FF, the 2-byte range
        {"\xE0\xA0\x80\xED\x9F\xBF", 2},          // U+0800 and U+D7FF
        {"\xEE\x80\x80\xEF\xBF\xBF", 2},          // U+E000 and U+FFFF
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", 4},  // U+10000 and U+10FFFF, two units each
        {"\xC1\xBF", std::nullopt},               // overlong
        {"\xE0\x9F\xBF", std::nullopt},
        {"\xF0\x8F\xBF\xBF", std::nullopt},
        {"\xED\xA0\x80", std::nullopt},  // surrogates
        {"\xED\xBF\xBF", std::nullopt},
        {"\xF4\x90\x80\x80", std::nullopt},  // U+110000
        {"\x80", std::nullopt},
        {"ab\xC3", std::nullopt},
        {"\xE2\x82" "a", std::nullopt},
    };
    for (const auto& [utf8, units] : cases) EXPECT_EQ(ZMUTF16::length(utf8), units) << testing::PrintToString(utf8);
}

ZMValue deeplyNested(size_t depth) { return ZMValue::parse(nested(depth, "\"leaf\"")); }

TEST(ZMKeyedArchiverTest, EveryValueRoundTripsUnderItsKeyAndTheLaterWriteOfAnyKindWins) {
    constexpr int64_t kMin = std::numeric_limits<int64_t>::min(), kMax = std::numeric_limits<int64_t>::max();
    const ZMValue objects[] = {nullptr, true, kMin, std::numeric_limits<uint64_t>::max(), -0.5, "",
                               "not UTF-8: \xFF\xFE\xC0\xAF",
                               {{"nested", {1, "two", {{"three", 3.25}}}}, {"\xFF key", nullptr}},
                               ZMValue::binary({0, 1, 255}, 7), deeplyNested(100)};
    ZMKeyedArchiver archiver;
    archiver.encodeInteger(5, "object1");  // replaced by the object written later
    for (size_t i = 0; i < std::size(objects); ++i) archiver.encodeObject(objects[i], numbered("object", i));
    archiver.encodeInteger(kMin, "min");
    archiver.encodeObject("text", "max");  // replaced by the integer written later
    archiver.encodeInteger(kMax, "max");
    const ZMData good = archiver.encodedData();
    ZMKeyedUnarchiver unarchiver(good);
    ASSERT_TRUE(unarchiver.isValid());
    for (size_t i = 0; i < std::size(objects); ++i) {
        const std::string key = numbered("object", i);
        SCOPED_TRACE(key);
        EXPECT_TRUE(unarchiver.containsValueForKey(key));
        const ZMValue decoded = unarchiver.decodeObjectForKey(key);
        EXPECT_EQ(decoded, objects[i]);
        EXPECT_EQ(decoded.type(), objects[i].type());
        EXPECT_EQ(unarchiver.decodeIntegerForKey(key), 0);  // an object is not an integer
    }
    EXPECT_EQ(unarchiver.decodeIntegerForKey("min"), kMin);
    EXPECT_EQ(unarchiver.decodeIntegerForKey("max"), kMax);
    EXPECT_EQ(unarchiver.decodeObjectForKey("max"), nullptr);  // an integer is not an object
    EXPECT_FALSE(unarchiver.containsValueForKey("missing"));

    // Bytes that are not an archive give an empty, invalid reader.
    std::vector<ZMData> bad = {{'n', 'o', 'p', 'e'}, {'{', '}'}, good};
    bad.back().push_back(0);  // one byte too many
    for (size_t size = 0; size < good.size(); ++size) bad.emplace_back(good.begin(), good.begin() + ptrdiff_t(size));
    ZMKeyedArchiver deep;
    deep.encodeObject(deeplyNested(600), "deep");
    bad.push_back(deep.encodedData());
    for (const auto& data : bad) {
        SCOPED_TRACE("size " + std::to_string(data.size()));
        ZMKeyedUnarchiver reader(data);
        EXPECT_FALSE(reader.isValid());
        EXPECT_FALSE(reader.containsValueForKey("min"));
        EXPECT_EQ(reader.decodeIntegerForKey("min"), 0);
        EXPECT_EQ(reader.decodeObjectForKey("object1"), nullptr);
    }
}

}  // namespace
