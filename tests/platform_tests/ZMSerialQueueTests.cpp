#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <Platform/ZMSerialQueue.h>

#include "support/ZMTestSupport.h"

namespace {

int gKeyA;
int gValueA;

TEST(ZMSerialQueueTest, KeepsEachProducersOrderAcrossManyProducers) {
    constexpr int kProducers = 4;
    constexpr int kTasksEach = 250;
    ZMSerialQueue queue("test.fifo");
    std::vector<std::pair<int, int>> ran;  // touched only by the queue's tasks
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            for (int i = 0; i < kTasksEach; ++i) queue.async([&ran, p, i] { ran.emplace_back(p, i); });
        });
    }
    for (auto& producer : producers) producer.join();
    queue.sync([] {});  // every task queued before runs first

    ASSERT_EQ(ran.size(), static_cast<size_t>(kProducers * kTasksEach));
    std::vector<int> next(kProducers, 0);
    for (const auto& [producer, index] : ran) {
        ASSERT_EQ(index, next[producer]) << "producer " << producer;
        ++next[producer];
    }
}

TEST(ZMSerialQueueTest, CurrentMarkerAndSpecificValueHoldExactlyInsideTheQueuesTasks) {
    ZMSerialQueue a("test.a");
    ZMSerialQueue b("test.b");
    a.setSpecific(&gKeyA, &gValueA);
    ZMEventRecorder recorder;
    auto observe = [&](const std::string& where) {
        recorder.record(where + " a=" + std::to_string(a.isCurrent()) + " b=" + std::to_string(b.isCurrent()) +
                        " specific=" + std::to_string(ZMSerialQueue::getSpecific(&gKeyA) == &gValueA));
    };

    observe("test thread");
    std::thread([&] { observe("other thread"); }).join();
    a.sync([&] {
        observe("in a");
        b.sync([&] { observe("b inside a"); });
        observe("back in a");
    });
    b.sync([&] { observe("in b"); });
    a.setSpecific(&gKeyA, nullptr);
    a.sync([&] { observe("a after removal"); });

    EXPECT_EQ(recorder.events(), (std::vector<std::string>{
                                     "test thread a=0 b=0 specific=0",
                                     "other thread a=0 b=0 specific=0",
                                     "in a a=1 b=0 specific=1",
                                     "b inside a a=0 b=1 specific=0",
                                     "back in a a=1 b=0 specific=1",
                                     "in b a=0 b=1 specific=0",
                                     "a after removal a=1 b=0 specific=0",
                                 }));
}

TEST(ZMSerialQueueTest, SyncRunsInPlaceOnItsOwnQueueAndAfterQueuedTasksElsewhere) {
    ZMSerialQueue queue("test.sync");
    ZMEventRecorder recorder;
    queue.sync([&] {
        recorder.record("outer start");
        queue.async([&] { recorder.record("queued from outer"); });
        queue.sync([&] { recorder.record("nested sync"); });
        recorder.record("outer end");
    });
    queue.sync([&] { recorder.record("sync from test thread"); });

    EXPECT_EQ(recorder.events(), (std::vector<std::string>{"outer start", "nested sync", "outer end",
                                                           "queued from outer", "sync from test thread"}));
}

TEST(ZMSerialQueueTest, ThrowingTaskIsDroppedAndSyncPassesItsExceptionToTheCaller) {
    ZMSerialQueue queue("test.throw");
    ZMEventRecorder recorder;
    queue.async([] { throw std::runtime_error("dropped"); });
    queue.async([&] { recorder.record("after throw"); });
    EXPECT_THROW(queue.sync([] { throw std::logic_error("to caller"); }), std::logic_error);
    queue.sync([&] { recorder.record("worker alive"); });
    EXPECT_EQ(recorder.events(), (std::vector<std::string>{"after throw", "worker alive"}));
}

TEST(ZMSerialQueueTest, DestructorRunsEveryQueuedTaskIncludingTasksQueuedWhileDraining) {
    std::atomic<int> ran{0};
    auto gate = std::make_shared<ZMEventRecorder>();
    {
        ZMSerialQueue queue("test.drain");
        ZMSerialQueue* self = &queue;
        // The first task holds the worker until everything is queued, so the
        // work is still waiting when the destructor starts.
        queue.async([gate] { gate->waitForCount(1); });
        for (int i = 0; i < 100; ++i) queue.async([&ran] { ++ran; });
        queue.async([&ran, self] { self->async([&ran] { ++ran; }); });
        gate->record("all queued");
    }
    EXPECT_EQ(ran.load(), 101);
}

}  // namespace
