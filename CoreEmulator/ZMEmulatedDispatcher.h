#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <vector>

#include <Platform/ZMSerialQueue.h>

// The emulator's callback threads: every answer, push, connection change and
// received message reaches the module through deliver(), which runs it later
// on one of a set of serial queues, never inside the call that caused it.
//
// With one queue (the initial count) deliveries run in the order they were
// handed over; with more, each delivery goes to the next queue in turn. The
// dispatcher counts deliveries handed over and not yet finished, so
// waitUntilIdle() can wait for all of them, including those handed over by
// deliveries while they run. No lock is held while a delivery runs.
class ZMEmulatedDispatcher {
public:
    static ZMEmulatedDispatcher& shared();

    ZMEmulatedDispatcher(const ZMEmulatedDispatcher&) = delete;
    ZMEmulatedDispatcher& operator=(const ZMEmulatedDispatcher&) = delete;

    // Runs the task later on a callback thread. An exception that escapes the
    // task is caught and logged; the thread goes on with the next delivery.
    // The task's captures are released before the delivery counts as
    // finished. A template, so that the task and the delivery's own
    // bookkeeping make one queued task rather than one wrapped in another.
    template <class Task>
    void deliver(Task task) {
        ZMSerialQueue& queue = nextQueue();
        // Counted before it is queued, so the count cannot reach zero while
        // the delivery is on its way.
        beginDelivery();
        queue.async([this, task = std::optional<Task>(std::move(task))]() mutable {
            const bool wasRunning = enterDelivery();
            try {
                if constexpr (std::is_constructible_v<bool, Task&>) {
                    if (*task) (*task)();
                } else {
                    (*task)();
                }
            } catch (const std::exception& error) {
                logEscapedException(error.what());
            } catch (...) {
                logEscapedException("(unknown)");
            }
            task.reset();
            leaveDelivery(wasRunning);
            finishDelivery();
        });
    }

    // How many queues later deliveries are spread over; 0 counts as 1.
    // Deliveries already handed over stay on their queues.
    void setThreadCount(size_t count);

    // Waits until no delivery is outstanding; false on timeout, and at once
    // when called from a delivery (which would otherwise wait for itself).
    bool waitUntilIdle(double timeoutSeconds);

    // True while the calling thread runs a delivery.
    static bool isCallbackThread();

    // Counts as one outstanding delivery for as long as it lives: held from
    // the moment a request becomes visible to tests until its answer has been
    // handed over, so that waitUntilIdle cannot return in between.
    class Hold {
    public:
        explicit Hold(ZMEmulatedDispatcher& dispatcher) : dispatcher_(dispatcher) { dispatcher_.beginDelivery(); }
        ~Hold() { dispatcher_.finishDelivery(); }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

    private:
        ZMEmulatedDispatcher& dispatcher_;
    };

    // A wait of the given seconds as a duration a condition variable accepts:
    // negative or NaN waits nothing, very long waits are capped at a day.
    static std::chrono::steady_clock::duration waitDuration(double seconds);

private:
    ZMEmulatedDispatcher() = default;
    ~ZMEmulatedDispatcher() = default;
    // The queue the next delivery goes to (made on first use).
    ZMSerialQueue& nextQueue();
    void beginDelivery();
    void finishDelivery();
    // Marks the calling thread as running a delivery; answers whether it
    // already was, for leaveDelivery.
    static bool enterDelivery();
    static void leaveDelivery(bool wasRunning);
    static void logEscapedException(const char* what);

    mutable std::mutex mutex_;
    std::condition_variable idle_;
    // Queues are only ever added: a queue in use is never destroyed, so a
    // smaller count just leaves the extra queues without new work.
    std::vector<std::unique_ptr<ZMSerialQueue>> queues_;
    size_t threadCount_ = 1;
    size_t nextQueue_ = 0;
    // Deliveries handed over and not finished; changed without the lock.
    std::atomic<size_t> outstanding_{0};
};
