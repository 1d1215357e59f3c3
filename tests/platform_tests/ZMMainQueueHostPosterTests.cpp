// The main queue driven from a host's own event loop through setHostPoster().

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <Platform/ZMMainQueue.h>

#include "support/ZMTestSupport.h"

namespace {

using Clock = std::chrono::steady_clock;

// A host that keeps the work it is handed until the test runs it, so that the
// test decides when the host's loop gets to it.
class ManualHost {
public:
    ZMMainQueue::HostPoster poster() {
        return [this](ZMMainQueue::Task work, double delaySeconds) {
            std::lock_guard<std::mutex> lock(mutex_);
            posted_.push_back({std::move(work), delaySeconds});
        };
    }
    // The delays of the work handed over and not run yet, oldest first.
    std::vector<double> pendingDelays() const {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<double> delays;
        for (const auto& item : posted_) delays.push_back(item.delay);
        return delays;
    }
    // Runs the oldest work handed over; false when there is none.
    bool runNext() {
        ZMMainQueue::Task work;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (posted_.empty()) return false;
            work = std::move(posted_.front().work);
            posted_.erase(posted_.begin());
        }
        work();
        return true;
    }
    // Runs the work handed over until none is left, including work handed
    // over meanwhile.
    void runAll() {
        while (runNext()) {
        }
    }

private:
    struct Item {
        ZMMainQueue::Task work;
        double delay;
    };
    mutable std::mutex mutex_;
    std::vector<Item> posted_;
};

// A host's main thread with an event loop of its own: it runs what it is
// handed at its due time, in due-time order, first come first among equals.
class HostLoop {
public:
    HostLoop() : thread_([this] { run(); }) {}
    ~HostLoop() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            quit_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }
    HostLoop(const HostLoop&) = delete;
    HostLoop& operator=(const HostLoop&) = delete;

    ZMMainQueue::HostPoster poster() {
        return [this](ZMMainQueue::Task work, double delaySeconds) {
            std::lock_guard<std::mutex> lock(mutex_);
            const auto due = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                std::chrono::duration<double>(delaySeconds));
            items_.emplace(due, std::move(work));
            delays_.push_back(delaySeconds);
            changed_.notify_all();
        };
    }
    std::thread::id threadId() const { return thread_.get_id(); }
    std::vector<double> delays() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return delays_;
    }
    // Waits until nothing is waiting to run and nothing is running.
    bool waitUntilIdle(double timeoutSeconds = 30) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::duration<double>(timeoutSeconds),
                                 [&] { return items_.empty() && !running_; });
    }

private:
    void run() {
        std::unique_lock<std::mutex> lock(mutex_);
        while (!quit_) {
            if (items_.empty()) {
                changed_.wait(lock);
                continue;
            }
            auto first = items_.begin();
            if (first->first > Clock::now()) {
                changed_.wait_until(lock, first->first);
                continue;
            }
            ZMMainQueue::Task work = std::move(first->second);
            items_.erase(first);
            running_ = true;
            lock.unlock();
            work();
            work = nullptr;
            lock.lock();
            running_ = false;
            changed_.notify_all();
        }
    }

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::multimap<Clock::time_point, ZMMainQueue::Task> items_;
    std::vector<double> delays_;
    bool running_ = false;
    bool quit_ = false;
    std::thread thread_;  // last: starts once everything above exists
};

TEST(ZMMainQueueHostPosterTest, WaitingTasksMakeOneRequestAndTasksQueuedByTasksGetARoundOfTheirOwn) {
    ZMMainQueue queue;
    ManualHost host;
    std::vector<std::string> ran;
    auto task = [&](const std::string& name) {
        return [&ran, &queue, name] { ran.push_back(name + (queue.isCurrent() ? "" : " outside the queue")); };
    };
    queue.async(task("before the poster"));
    EXPECT_TRUE(host.pendingDelays().empty());

    queue.setHostPoster(host.poster());
    EXPECT_TRUE(queue.hasHostPoster());
    queue.async(task("a"));
    queue.async([&] {
        ran.push_back("b");
        queue.async(task("queued by b"));
    });
    EXPECT_EQ(host.pendingDelays(), std::vector<double>{0.0});  // one request for all the waiting tasks

    ASSERT_TRUE(host.runNext());
    EXPECT_EQ(ran, (std::vector<std::string>{"before the poster", "a", "b"}));
    EXPECT_EQ(host.pendingDelays(), std::vector<double>{0.0});  // the host's loop gets a turn first
    ASSERT_TRUE(host.runNext());
    EXPECT_EQ(ran.back(), "queued by b");
    EXPECT_FALSE(host.runNext());  // nothing left: the host is not asked again
    EXPECT_EQ(queue.drain(), 0u);
}

TEST(ZMMainQueueHostPosterTest, TheHostIsAskedToWakeForTheEarliestTimerAndAnEarlyWakeUpAsksAgain) {
    ZMMainQueue queue;
    ManualHost host;
    queue.setHostPoster(host.poster());
    int fired = 0;
    auto thirty = queue.scheduledTimer(30, false, [&] { ++fired; });
    auto delays = host.pendingDelays();
    ASSERT_EQ(delays.size(), 1u);
    EXPECT_GT(delays[0], 29.0);
    EXPECT_LE(delays[0], 30.0);

    auto sixty = queue.scheduledTimer(60, false, [&] { ++fired; });
    EXPECT_EQ(host.pendingDelays().size(), 1u);  // the wake-up at 30 s comes first anyway

    auto ten = queue.scheduledTimer(10, true, [&] { ++fired; });
    delays = host.pendingDelays();
    ASSERT_EQ(delays.size(), 2u);
    EXPECT_GT(delays[1], 9.0);
    EXPECT_LE(delays[1], 10.0);

    // Both wake-ups come far too early: nothing fires, and the host is asked
    // once more for the 10-second timer.
    host.runNext();
    host.runNext();
    EXPECT_EQ(fired, 0);
    delays = host.pendingDelays();
    ASSERT_EQ(delays.size(), 1u);
    EXPECT_GT(delays[0], 9.0);
    EXPECT_LE(delays[0], 10.0);

    // With every timer invalidated, a wake-up fires nothing and asks for nothing.
    for (const auto& timer : {thirty, sixty, ten}) timer->invalidate();
    host.runAll();
    EXPECT_EQ(fired, 0);
    EXPECT_TRUE(host.pendingDelays().empty());
    EXPECT_EQ(queue.activeTimerCount(), 0u);
}

TEST(ZMMainQueueHostPosterTest, TimersFireThroughThePosterOnTheHostThreadAtTheirDueTimes) {
    ZMMainQueue queue;
    HostLoop loop;
    ZMEventRecorder firings;
    std::atomic<int> offHostThread{0};
    std::mutex timesMutex;
    std::vector<std::pair<std::string, double>> times;
    auto record = [&](const std::string& name) {
        if (std::this_thread::get_id() != loop.threadId() || !queue.isCurrent()) ++offHostThread;
        {
            std::lock_guard<std::mutex> lock(timesMutex);
            times.emplace_back(name, queue.now());
        }
        firings.record(name);
    };
    int ticks = 0;  // touched only by the timer's action
    std::shared_ptr<ZMTimer> ticker;
    queue.setHostPoster(loop.poster());
    ticker = queue.scheduledTimer(0.02, true, [&] {
        record("tick");
        if (++ticks == 3) ticker->invalidate();
    });
    queue.scheduledTimer(0.05, false, [&] { record("once"); });

    ASSERT_TRUE(firings.waitForCount(4));
    ASSERT_TRUE(loop.waitUntilIdle());
    queue.setHostPoster({});
    EXPECT_EQ(offHostThread, 0);
    EXPECT_EQ(queue.activeTimerCount(), 0u);
    EXPECT_EQ(firings.count(), 4u);

    // Each firing at or after its due time on the queue's clock, in time order.
    int tick = 0;
    double previous = 0;
    for (const auto& [name, at] : times) {
        const double due = name == "tick" ? 0.02 * ++tick : 0.05;
        EXPECT_GE(at, due - 1e-9) << name;
        EXPECT_GE(at, previous) << name;
        previous = at;
    }
    const auto delays = loop.delays();
    EXPECT_TRUE(std::any_of(delays.begin(), delays.end(), [](double delay) { return delay > 0; }))
        << "timers were reached without a wake-up request";
}

// The same tasks and timers, set up before anything drives the queue, run in
// the same order whoever drives it.
TEST(ZMMainQueueHostPosterTest, TasksAndTimersRunInTheSameOrderUnderEveryDriver) {
    const struct {
        const char* name;
        std::function<void(ZMMainQueue&, ZMEventRecorder&)> drive;
    } drivers[] = {
        {"manual clock", [](ZMMainQueue& queue, ZMEventRecorder&) { queue.advance(1.0); }},
        {"runUntil",
         [](ZMMainQueue& queue, ZMEventRecorder& seen) {
             EXPECT_TRUE(queue.runUntil([&] { return seen.count() >= 5; }, 30));
         }},
        {"host poster",
         [](ZMMainQueue& queue, ZMEventRecorder& seen) {
             HostLoop loop;
             queue.setHostPoster(loop.poster());
             EXPECT_TRUE(seen.waitForCount(5));
             EXPECT_TRUE(loop.waitUntilIdle());
             queue.setHostPoster({});
         }},
    };
    for (const auto& driver : drivers) {
        SCOPED_TRACE(driver.name);
        ZMMainQueue queue;
        ZMEventRecorder seen;
        auto note = [&](const std::string& what) { seen.record(what + (queue.isCurrent() ? "" : " outside")); };
        queue.async([&] { note("task 1"); });
        queue.scheduledTimer(0.02, false, [&] {
            note("timer at 0.02");
            queue.async([&] { note("task queued by the timer"); });
        });
        queue.scheduledTimer(0.01, false, [&] { note("timer at 0.01"); });
        queue.async([&] { note("task 2"); });
        driver.drive(queue, seen);
        EXPECT_EQ(seen.events(), (std::vector<std::string>{"task 1", "task 2", "timer at 0.01", "timer at 0.02",
                                                           "task queued by the timer"}));
    }
}

TEST(ZMMainQueueHostPosterTest, RemovedOrReplacedPostersWorkRunsNothingAndWaitingWorkGoesToTheNextDriver) {
    ZMMainQueue queue;
    ManualHost first;
    ManualHost second;
    std::vector<std::string> ran;
    queue.setHostPoster(first.poster());
    queue.async([&] { ran.push_back("x"); });
    ASSERT_EQ(first.pendingDelays().size(), 1u);

    queue.setHostPoster({});
    EXPECT_FALSE(queue.hasHostPoster());
    first.runAll();  // handed over before the removal: runs nothing
    EXPECT_TRUE(ran.empty());
    queue.async([&] { ran.push_back("y"); });
    auto timer = queue.scheduledTimer(5, false, [&] { ran.push_back("timer"); });
    EXPECT_TRUE(first.pendingDelays().empty());  // nobody is asked

    EXPECT_EQ(queue.drain(), 2u);  // the waiting tasks go to the next driver
    EXPECT_EQ(ran, (std::vector<std::string>{"x", "y"}));

    queue.async([&] { ran.push_back("z"); });
    queue.setHostPoster(second.poster());  // asked at once for the task and the timer
    auto delays = second.pendingDelays();
    ASSERT_EQ(delays.size(), 2u);
    EXPECT_EQ(delays[0], 0.0);
    EXPECT_GT(delays[1], 4.0);
    EXPECT_LE(delays[1], 5.0);

    queue.setHostPoster(first.poster());  // replaces the second
    second.runAll();
    EXPECT_EQ(ran.size(), 2u);
    ASSERT_EQ(first.pendingDelays().size(), 2u);
    first.runNext();
    EXPECT_EQ(ran.back(), "z");
    EXPECT_TRUE(timer->isValid());
    queue.setHostPoster({});
}

TEST(ZMMainQueueHostPosterTest, WorkHandedToTheHostDoesNothingOnceTheQueueIsGone) {
    ManualHost host;
    bool ran = false;
    {
        ZMMainQueue queue;
        queue.setHostPoster(host.poster());
        queue.async([&] { ran = true; });
        queue.scheduledTimer(0.0001, false, [&] { ran = true; });
        ASSERT_EQ(host.pendingDelays().size(), 2u);
    }
    host.runAll();
    EXPECT_FALSE(ran);
}

TEST(ZMMainQueueHostPosterTest, ReplacingThePosterWaitsForItsCallsUnderWayOnOtherThreads) {
    ZMMainQueue queue;
    ZMEventRecorder order;
    std::atomic<bool> entered{false};
    // The poster's call lasts until the replacement has begun.
    queue.setHostPoster([&](ZMMainQueue::Task, double) {
        entered = true;
        const auto giveUp = Clock::now() + std::chrono::seconds(30);
        while (queue.hasHostPoster() && Clock::now() < giveUp) std::this_thread::yield();
        order.record("the poster's call ends");
    });
    std::thread caller([&] { queue.async([] {}); });
    while (!entered) std::this_thread::yield();
    queue.setHostPoster({});
    order.record("setHostPoster returned");
    caller.join();
    EXPECT_EQ(order.events(), (std::vector<std::string>{"the poster's call ends", "setHostPoster returned"}));
}

TEST(ZMMainQueueHostPosterTest, EveryTaskAndTimerRunsOnceInOrderWhilePostersChangeUnderLoad) {
    constexpr int kProducers = 4;
    constexpr int kTasksEach = 300;
    constexpr int kTimersEach = 25;
    ZMMainQueue queue;
    HostLoop loopA;
    HostLoop loopB;
    std::atomic<int> offQueue{0};
    std::atomic<int> timersFired{0};
    std::vector<int> next(kProducers, 0);  // touched only by work of the queue, one at a time
    std::atomic<int> outOfOrder{0};
    ZMEventRecorder done;

    queue.setHostPoster(loopA.poster());
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            for (int i = 0; i < kTasksEach; ++i) {
                queue.async([&, p, i] {
                    if (!queue.isCurrent()) ++offQueue;
                    if (next[p]++ != i) ++outOfOrder;
                    if (i == kTasksEach - 1) done.record("producer done");
                });
                if (i % (kTasksEach / kTimersEach) == 0) {
                    queue.scheduledTimer(0.001, false, [&] {
                        if (!queue.isCurrent()) ++offQueue;
                        if (++timersFired == kProducers * kTimersEach) done.record("timers done");
                    });
                }
            }
        });
    }
    // Meanwhile the host changes: the other loop, none, back again.
    for (int round = 0; round < 20; ++round) {
        queue.setHostPoster(round % 3 == 0 ? ZMMainQueue::HostPoster{} : (round % 3 == 1 ? loopB.poster() : loopA.poster()));
    }
    for (auto& producer : producers) producer.join();
    queue.setHostPoster(loopA.poster());

    EXPECT_TRUE(done.waitForCount(kProducers + 1));
    EXPECT_TRUE(loopA.waitUntilIdle());
    queue.setHostPoster({});
    EXPECT_TRUE(loopB.waitUntilIdle());
    EXPECT_EQ(offQueue, 0);
    EXPECT_EQ(outOfOrder, 0);
    EXPECT_EQ(timersFired, kProducers * kTimersEach);
    for (int p = 0; p < kProducers; ++p) EXPECT_EQ(next[p], kTasksEach) << "producer " << p;
    EXPECT_EQ(queue.drain(), 0u);
}

}  // namespace
