#pragma once

#include <chrono>
#include <cstdint>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include <Platform/ZMTimer.h>

// The main thread's task queue and its timers.
//
// There is no thread of its own: the host application makes one of its
// threads the main thread by driving the queue from it, in one of three ways:
// - with runFor() / runUntil() / runUntilStopped() in real time (the demo's
//   main, or a dedicated thread);
// - from an event loop the host already has (Qt, an Android looper, libuv, a
//   game loop), by handing the queue a poster with setHostPoster(): the queue
//   then asks the host to run its work, on the host's thread, whenever tasks
//   are waiting and whenever the next timer is due;
// - with drain() and advance() on a clock that only moves when told to (tests).
// Tasks and timers run on the driving thread, one at a time; isCurrent() is
// true there while they run. While nothing drives the queue, tasks and timers
// simply wait.
//
// The clock is in seconds and starts at 0. It follows the wall clock while the
// queue is driven in real time or has a host poster; advance() moves it by hand.
class ZMMainQueue {
public:
    using Task = std::function<void()>;
    // The host's way to run the queue's work on its main thread: call work
    // there exactly once, after at least delaySeconds (0: as soon as the host
    // loop gets to it). The delay is a wake-up for the next timer; round it up,
    // not down (a wake-up that comes early runs nothing and asks again). The
    // poster is called from any thread, never while the queue's lock is held;
    // it must return without running work itself and without throwing.
    using HostPoster = std::function<void(Task work, double delaySeconds)>;

    // The process-wide main queue, never destroyed.
    static ZMMainQueue& shared();

    ZMMainQueue() = default;
    // Work already handed to a host poster does nothing once the queue is
    // gone; destroy a queue only while none of its work is running.
    ~ZMMainQueue();
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
    // Invalidates every timer of the queue, for example between tests: a
    // repeating timer that nobody holds any more would otherwise fire for the
    // life of the process.
    void invalidateTimers();

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

    // Lets the host's own event loop drive the queue from now on: whenever
    // tasks are waiting the poster gets work with delay 0, and whenever a
    // timer becomes the earliest one, work with the delay until it is due.
    // That work runs, on the host's thread, the tasks queued when it starts and
    // the timers due by then, and asks for more as needed: queued tasks and due
    // timers run on the host's thread through the poster, one at a time, in the
    // same order as under runFor(). Requests are merged: at most one
    // undelivered request for tasks and one per earlier due time are
    // outstanding.
    //
    // An empty poster removes the host; replacing or removing it makes the
    // work handed to the previous poster do nothing, so the host may drop it,
    // and once this returns the previous poster is never called again (calls
    // under way on other threads are waited for: do not call this from inside
    // the poster, nor while holding a lock the poster takes). Waiting tasks and
    // timers then wait for the next driver (runFor(), a new poster, ...); a new
    // poster is asked at once for what is waiting. Use one way of driving at a
    // time.
    void setHostPoster(HostPoster poster);
    bool hasHostPoster() const;

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
    // The clock follows the wall clock while at least one real-time driver
    // (a drive or the host poster) is active.
    void beginRealTimeLocked();
    void endRealTimeLocked();

    // A host poster and how many of its calls are under way (under the lock).
    struct HostSlot {
        HostPoster poster;
        int callsUnderWay = 0;
    };
    // A request to the host poster, decided under the lock and sent outside it.
    struct HostRequest {
        std::shared_ptr<HostSlot> slot;
        uint64_t generation = 0;
        bool wake = false;  // a timer wake-up rather than a request for tasks
        double wakeAt = 0;
        double delay = 0;
    };
    // The requests that the current state calls for, marked as outstanding.
    void collectHostRequestsLocked(std::vector<HostRequest>& requests);
    void sendHostRequests(std::vector<HostRequest>& requests);
    // The work handed to the host: one round of tasks and due timers, then
    // the requests for what is left.
    void runHostRound(const HostRequest& request);
    void runHostRoundExclusive(const HostRequest& request);

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Task> tasks_;
    std::vector<std::shared_ptr<ZMTimer>> timers_;
    double now_ = 0;
    bool stopRequested_ = false;
    // While realTimeDrivers_ > 0, the clock reads drivenFrom_ plus the wall-clock time
    // elapsed since drivenSince_, so that timers scheduled from any thread
    // during a real-time run count from the true current time.
    int realTimeDrivers_ = 0;
    double drivenFrom_ = 0;
    std::chrono::steady_clock::time_point drivenSince_{};

    // The host poster, if any. Every replacement starts a new generation; work
    // handed to the host carries its generation and does nothing once stale.
    std::shared_ptr<HostSlot> hostPoster_;
    std::condition_variable hostCallsDone_;
    std::recursive_mutex hostRoundMutex_;
    uint64_t hostGeneration_ = 0;
    // A request for tasks handed to the host and not yet run.
    bool hostTasksRequested_ = false;
    // The due time of the earliest timer wake-up handed to the host and not yet run.
    std::optional<double> hostWakeAt_;
    // Lets work handed to the host notice that the queue is gone.
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
};
