#include <atomic>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <Platform/ZMMainQueue.h>
#include <Platform/ZMSerialQueue.h>

#include "support/ZMTestSupport.h"

namespace {

std::string at(const std::string& what, double time) {
    std::ostringstream text;
    text << what << "@" << time;
    return text.str();
}

TEST(ZMMainQueueTest, TimersFireOnTheDrivenClockEachAtItsOwnTime) {
    struct Case {
        const char* name;
        double interval;
        bool repeats;
        std::vector<double> advances;
        std::vector<std::string> firings;
        size_t activeAfter;
    };
    const Case cases[] = {
        {"repeating, just short of due", 2.0, true, {1.999}, {}, 1},
        {"repeating, exactly due", 2.0, true, {2.0}, {"fire@2"}, 1},
        {"repeating, two intervals in one step", 2.0, true, {4.0}, {"fire@2", "fire@4"}, 1},
        {"repeating, steps across boundaries", 2.0, true, {1.0, 1.5, 1.5}, {"fire@2", "fire@4"}, 1},
        {"one-shot fires once", 1.0, false, {0.5, 3.0, 3.0}, {"fire@1"}, 0},
        {"zero interval is raised, not endless", 0.0, false, {1.0}, {"fire@0.0001"}, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ZMMainQueue queue;
        std::vector<std::string> firings;
        queue.scheduledTimer(c.interval, c.repeats, [&] { firings.push_back(at("fire", queue.now())); });
        for (double step : c.advances) queue.advance(step);
        EXPECT_EQ(firings, c.firings);
        EXPECT_EQ(queue.activeTimerCount(), c.activeAfter);
    }
}

TEST(ZMMainQueueTest, TasksAreDrainedBeforeTheFirstFiringAndAfterEachFiring) {
    ZMMainQueue queue;
    std::vector<std::string> order;
    queue.async([&] { order.push_back(at("task", queue.now())); });
    queue.scheduledTimer(2.0, true, [&] {
        order.push_back(at("timer", queue.now()));
        queue.async([&] { order.push_back(at("task from timer", queue.now())); });
    });
    queue.advance(4.0);
    EXPECT_EQ(order, (std::vector<std::string>{"task@0", "timer@2", "task from timer@2", "timer@4",
                                               "task from timer@4"}));
    EXPECT_DOUBLE_EQ(queue.now(), 4.0);
}

TEST(ZMMainQueueTest, TimersCreatedOrInvalidatedDuringAFiringTakeEffectAtOnce) {
    ZMMainQueue queue;
    std::vector<std::string> order;
    std::shared_ptr<ZMTimer> victim;
    std::weak_ptr<ZMTimer> self;
    auto killer = queue.scheduledTimer(1.0, true, [&] {
        order.push_back(at("killer", queue.now()));
        if (victim) victim->invalidate();  // due at the same instant, scheduled later
        if (auto timer = self.lock(); timer && queue.now() >= 2.0) timer->invalidate();
        if (queue.now() == 1.0) {
            queue.scheduledTimer(0.5, false, [&] { order.push_back(at("child", queue.now())); });
        }
    });
    self = killer;
    victim = queue.scheduledTimer(1.0, true, [&] { order.push_back(at("victim", queue.now())); });
    queue.async([&] {
        queue.scheduledTimer(3.0, false, [&] { order.push_back(at("from task", queue.now())); });
    });

    EXPECT_EQ(queue.activeTimerCount(), 2u);
    queue.advance(5.0);
    EXPECT_EQ(order, (std::vector<std::string>{"killer@1", "child@1.5", "killer@2", "from task@3"}));
    EXPECT_FALSE(killer->isValid());
    EXPECT_FALSE(victim->isValid());
    EXPECT_EQ(queue.activeTimerCount(), 0u);
}

TEST(ZMMainQueueTest, IsCurrentOnlyInsideItsTasksAndTimers) {
    ZMMainQueue queue;
    ZMMainQueue other;
    ZMSerialQueue serial("test.main.other");
    ZMEventRecorder recorder;
    auto observe = [&](const std::string& where) {
        recorder.record(where + " " + std::to_string(queue.isCurrent()) + std::to_string(other.isCurrent()));
    };
    observe("outside");
    queue.async([&] {
        observe("task");
        serial.sync([&] { observe("serial queue from task"); });
        other.async([&] { observe("other queue drained from task"); });
        other.drain();
    });
    queue.scheduledTimer(1.0, false, [&] { observe("timer"); });
    queue.advance(1.0);
    observe("after");
    EXPECT_EQ(recorder.events(), (std::vector<std::string>{"outside 00", "task 10", "serial queue from task 00",
                                                           "other queue drained from task 01", "timer 10",
                                                           "after 00"}));
}

TEST(ZMMainQueueTest, RunUntilWakesForATaskPostedFromAnotherThread) {
    ZMMainQueue queue;
    std::atomic<bool> ranOnDriver{false};
    std::thread poster([&] { queue.async([&] { ranOnDriver = queue.isCurrent(); }); });
    EXPECT_TRUE(queue.runUntil([&] { return ranOnDriver.load(); }, 10.0));
    poster.join();
}

TEST(ZMMainQueueTest, RealTimeClockFollowsTheWallClockAndFiresTimers) {
    ZMMainQueue queue;
    int fired = 0;
    queue.scheduledTimer(0.02, true, [&] { ++fired; });
    EXPECT_TRUE(queue.runUntil([&] { return fired == 2; }, 10.0));
    EXPECT_GE(queue.now(), 0.04);

    // Not done before the timeout: answers false once the time is up.
    const double before = queue.now();
    EXPECT_FALSE(queue.runUntil([] { return false; }, 0.05));
    EXPECT_GE(queue.now() - before, 0.05);
}

TEST(ZMMainQueueTest, RunUntilStoppedEndsOnStopFromATaskOrAnotherThread) {
    ZMMainQueue queue;
    queue.async([&] { queue.stop(); });
    queue.runUntilStopped();
    EXPECT_EQ(queue.drain(), 0u);

    std::thread stopper([&] { queue.stop(); });
    queue.runUntilStopped();  // returns whether the stop lands before or during the run
    stopper.join();
}

}  // namespace
