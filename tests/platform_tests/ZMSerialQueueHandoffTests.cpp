// How a serial queue hands tasks to its worker: a producer that queues with
// enqueue() wakes the worker itself, only when the worker sleeps; tasks
// queued while the worker is busy need no wake-up at all.

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <vector>

#include <Platform/ZMSerialQueue.h>

#include "support/ZMTestSupport.h"

namespace {

TEST(ZMSerialQueueHandoffTest, TasksQueuedWhileTheWorkerIsBusyNeedNoWakeUp) {
    ZMSerialQueue queue("test.handoff");
    std::promise<void> gate;
    ZMEventRecorder ran;
    queue.async([&ran, opened = gate.get_future().share()] {
        ran.record("gate");
        opened.wait();
    });
    ASSERT_TRUE(ran.waitForCount(1));
    // The worker is inside the first task: it takes these when that returns.
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(queue.enqueue([&ran, i] { ran.record(std::to_string(i)); }));
    EXPECT_FALSE(queue.enqueue(nullptr));
    gate.set_value();
    ASSERT_TRUE(ran.waitForCount(4));
    EXPECT_EQ(ran.events(), (std::vector<std::string>{"gate", "0", "1", "2"}));
}

TEST(ZMSerialQueueHandoffTest, AnIdleWorkerRunsWhatIsQueuedOnceWokenIfItAsks) {
    ZMSerialQueue queue("test.idle");
    ZMEventRecorder ran;
    // Whether the worker still looks for work or sleeps already, a task
    // queued with enqueue() runs as soon as the producer does what it was told.
    for (int round = 0; round < 50; ++round) {
        queue.sync([] {});
        if (queue.enqueue([&ran] { ran.record("task"); })) queue.wake();
        ASSERT_TRUE(ran.waitForCount(static_cast<size_t>(round) + 1));
    }
}

TEST(ZMSerialQueueHandoffTest, ABurstLargerThanTheKeptBufferRunsInOrder) {
    std::vector<int> order;  // touched only by the queue's tasks
    {
        ZMSerialQueue queue("test.burst");
        std::promise<void> gate;
        queue.async([opened = gate.get_future().share()] { opened.wait(); });
        for (int i = 0; i < 10000; ++i) queue.async([&order, i] { order.push_back(i); });
        gate.set_value();
        queue.sync([] {});
        for (int i = 10000; i < 10010; ++i) queue.async([&order, i] { order.push_back(i); });
    }
    ASSERT_EQ(order.size(), 10010u);
    for (size_t i = 0; i < order.size(); ++i) ASSERT_EQ(order[i], static_cast<int>(i));
}

}  // namespace
