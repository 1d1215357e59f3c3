#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include <Platform/ZMTimer.h>

// The main thread's task queue and its timers.
//
// There is no thread of its own: the host application makes one of its
// threads the main thread by driving the queue from it, with runFor() /
// runUntil() / runUntilStopped() in real time (the demo's main, or a
// dedicated thread), or with drain() and advance() on a clock that only moves
// when told to (tests). Tasks and timers run on the driving thread, one at a
// time; isCurrent() is true there while they run.
//
// The clock is in seconds and starts at 0. In real time it follows the wall
// clock while the queue is driven; advance() moves it by hand.
class ZMMainQueue {
public:
    using Task = std::function<void()>;

    // The process-wide main queue, never destroyed.
    static ZMMainQueue& shared();

    ZMMainQueue() = default;
    ZMMainQueue(const ZMMainQueue&) = delete;
    ZMMainQueue& operator=(const ZMMainQueue&) = delete;

    // Queues a task from any thread and returns at once.
    void async(Task task);
    // True while the calling thread runs a task or a timer of this queue.
    bool isCurrent() const;

    // Creates a timer that first fires interval seconds from now. Safe from any
    // thread; the action always runs on the driving thread.
    std::shared_ptr<ZMTimer> scheduledTimer(double interval, bool repeats, std::function<void()> action);
    // Timers scheduled and not yet invalidated (a one-shot timer that fired counts as invalidated).
    size_t activeTimerCount() const;

    double now() const;

    // Runs every queued task, including tasks queued while draining; fires no
    // timer. Returns how many tasks ran.
    size_t drain();
    // Moves the clock forward by seconds. Timers due within that span fire in
    // time order, each at its own fire time, with the queued tasks drained
    // before the first and after each firing.
    void advance(double seconds);
    // Drives the queue in real time for seconds of wall-clock time.
    void runFor(double seconds);
    // Drives the queue in real time until done() is true (tested after each
    // task or firing) or timeoutSeconds have passed; returns done().
    bool runUntil(const std::function<bool()>& done, double timeoutSeconds);
    // Drives the queue in real time until stop() is called from any thread.
    void runUntilStopped();
    void stop();

private:
    bool runOneDue(double upTo);
    size_t drainLocked(std::unique_lock<std::mutex>& lock);
    // The clock: now_, or while driven in real time the wall-clock reading.
    double clockLocked() const;
    // Drops invalidated timers; their actions go to released, to be destroyed
    // outside the lock.
    void pruneLocked(std::vector<std::function<void()>>& released);
    // The real-time loop behind runFor(), runUntil() and runUntilStopped().
    bool drive(double seconds, const std::function<bool()>* done, bool untilStopped);

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Task> tasks_;
    std::vector<std::shared_ptr<ZMTimer>> timers_;
    double now_ = 0;
    bool stopRequested_ = false;
    // While driven_, the clock reads drivenFrom_ plus the wall-clock time
    // elapsed since drivenSince_, so that timers scheduled from any thread
    // during a real-time run count from the true current time.
    bool driven_ = false;
    double drivenFrom_ = 0;
    std::chrono::steady_clock::time_point drivenSince_{};
};
