#include <atomic>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <Platform/ZMMainQueue.h>
#include <Platform/ZMSerialQueue.h>

#include "support/ZMTestSupport.h"

namespace {

TEST(ZMSerialQueueTest, RunsEveryTaskInEachProducersOrderEvenWhenDestroyedWithWorkQueued) {
    constexpr int kProducers = 4;
    constexpr int kTasksEach = 250;
    std::vector<std::pair<int, int>> ran;  // touched only by the queue's tasks
    auto gate = std::make_shared<ZMEventRecorder>();
    {
        ZMSerialQueue queue("test.fifo");
        // The first task holds the worker until everything is queued, so the
        // work is still waiting when the destructor starts.
        queue.async([gate] { gate->waitForCount(1); });
        std::vector<std::thread> producers;
        for (int p = 0; p < kProducers; ++p) {
            producers.emplace_back([&, p] {
                for (int i = 0; i < kTasksEach; ++i) queue.async([&ran, p, i] { ran.emplace_back(p, i); });
            });
        }
        for (auto& producer : producers) producer.join();
        queue.async([&] { queue.async([&] { ran.emplace_back(kProducers, 0); }); });  // queued while draining
        gate->record("all queued");
    }
    ASSERT_EQ(ran.size(), static_cast<size_t>(kProducers * kTasksEach + 1));
    EXPECT_EQ(ran.back(), std::make_pair(kProducers, 0));
    std::vector<int> next(kProducers + 1, 0);
    for (const auto& [producer, index] : ran) ASSERT_EQ(index, next[producer]++) << "producer " << producer;
}

TEST(ZMSerialQueueTest, SyncRunsInPlaceOnItsOwnQueueAndOnlyTheQueuesTasksCarryItsMarkerAndValues) {
    static int key, value;
    ZMSerialQueue a("test.a");
    ZMSerialQueue b("test.b");
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
    EXPECT_EQ(seen.events(), (std::vector<std::string>{"outside 000", "a 101", "a in place 101", "b inside a 010",
                                                       "back in a 101", "queued from a 101", "a after removal 100"}));
}

// "<what>@<time on the queue's clock>", marked when it does not run as the queue's own work.
std::string at(const std::string& what, const ZMMainQueue& queue) {
    std::ostringstream text;
    text << what << "@" << queue.now() << (queue.isCurrent() ? "" : " outside the queue");
    return text.str();
}

TEST(ZMMainQueueTest, TimersFireOnTheDrivenClockEachAtItsOwnTime) {
    const struct {
        const char* name;
        double interval;
        bool repeats;
        std::vector<double> advances;
        std::vector<std::string> firings;
        size_t activeAfter;
    } cases[] = {
        {"repeating, just short of due", 2.0, true, {1.999}, {}, 1},
        {"repeating, two intervals in one step, the last exactly due", 2.0, true, {4.0}, {"fire@2", "fire@4"}, 1},
        {"repeating, steps across boundaries", 2.0, true, {1.0, 1.5, 1.5}, {"fire@2", "fire@4"}, 1},
        {"one-shot fires once", 1.0, false, {0.5, 3.0, 3.0}, {"fire@1"}, 0},
        {"zero interval is raised, not endless", 0.0, false, {1.0}, {"fire@0.0001"}, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ZMMainQueue queue;
        std::vector<std::string> firings;
        queue.scheduledTimer(c.interval, c.repeats, [&] { firings.push_back(at("fire", queue)); });
        for (double step : c.advances) queue.advance(step);
        EXPECT_EQ(firings, c.firings);
        EXPECT_EQ(queue.activeTimerCount(), c.activeAfter);
    }
}

TEST(ZMMainQueueTest, TasksAndTimersCreatedOrInvalidatedDuringAFiringTakeEffectAtOnce) {
    ZMMainQueue queue;
    ZMMainQueue other;
    ZMSerialQueue serial("test.main.other");
    std::vector<std::string> order;
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
    EXPECT_EQ(order, (std::vector<std::string>{"task@0", "serial queue@0 outside the queue",
                                               "other main queue@0 outside the queue 1", "killer@1",
                                               "task from killer@1", "child@1.5", "killer@2", "task from killer@2",
                                               "from task@3"}));
    EXPECT_FALSE(killer->isValid());
    EXPECT_FALSE(victim->isValid());
    EXPECT_EQ(queue.activeTimerCount(), 0u);
    EXPECT_DOUBLE_EQ(queue.now(), 5.0);
    EXPECT_FALSE(queue.isCurrent());
}

TEST(ZMMainQueueTest, RealTimeRunsWakeForWorkFromOtherThreadsAndEndOnTimeout) {
    ZMMainQueue queue;
    std::atomic<bool> ranOnDriver{false};
    int fired = 0;
    queue.scheduledTimer(0.02, true, [&] { ++fired; });
    std::thread poster([&] { queue.async([&] { ranOnDriver = queue.isCurrent(); }); });
    EXPECT_TRUE(queue.runUntil([&] { return ranOnDriver && fired >= 2; }, 10.0));
    poster.join();
    EXPECT_GE(queue.now(), 0.04);  // the clock follows the wall clock

    const double before = queue.now();
    EXPECT_FALSE(queue.runUntil([] { return false; }, 0.05));
    EXPECT_GE(queue.now() - before, 0.05);
}

}  // namespace
