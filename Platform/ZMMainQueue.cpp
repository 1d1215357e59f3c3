#include <Platform/ZMMainQueue.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace {

// The main queue whose task or timer the current thread is running, or null.
thread_local const ZMMainQueue* tCurrentMainQueue = nullptr;

class RunningScope {
public:
    explicit RunningScope(const ZMMainQueue* queue) : previous_(tCurrentMainQueue) { tCurrentMainQueue = queue; }
    ~RunningScope() { tCurrentMainQueue = previous_; }
    RunningScope(const RunningScope&) = delete;
    RunningScope& operator=(const RunningScope&) = delete;

private:
    const ZMMainQueue* previous_;
};

// Runs a task or timer action as work of queue, outside the queue's lock. An
// escaping exception is dropped so that it cannot unwind through the driver
// and leave the queue half run. The work object is released here too, while
// the thread still counts as the queue's, so captured objects may queue more work.
void runAsWorkOf(const ZMMainQueue* queue, std::function<void()>& work) {
    RunningScope scope(queue);
    try {
        if (work) work();
    } catch (...) {
    }
    work = nullptr;
}

// Shortest timer interval; like the platform's timers, a zero, negative or
// NaN interval is raised to it so that a repeating timer cannot fire forever
// at one instant.
constexpr double kMinimumInterval = 0.0001;
// Longest single wait of the real-time driver; it simply waits again. Keeps
// an infinite deadline or fire time out of the clock conversions.
constexpr double kLongestWait = 3600;

}  // namespace

ZMMainQueue& ZMMainQueue::shared() {
    static ZMMainQueue* const queue = new ZMMainQueue();  // never destroyed: no exit-time order issues
    return *queue;
}

void ZMMainQueue::async(Task task) {
    if (!task) return;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    wake_.notify_all();
}

bool ZMMainQueue::isCurrent() const { return tCurrentMainQueue == this; }

double ZMMainQueue::clockLocked() const {
    if (!driven_) return now_;
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - drivenSince_).count();
    return std::max(now_, drivenFrom_ + elapsed);
}

double ZMMainQueue::now() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return clockLocked();
}

void ZMMainQueue::pruneLocked(std::vector<std::function<void()>>& released) {
    auto firstDropped = std::stable_partition(timers_.begin(), timers_.end(),
                                              [](const std::shared_ptr<ZMTimer>& timer) { return timer->isValid(); });
    for (auto it = firstDropped; it != timers_.end(); ++it) {
        // Releasing the action breaks a cycle through an action that holds its own timer.
        released.push_back(std::move((*it)->action_));
        (*it)->action_ = nullptr;
    }
    timers_.erase(firstDropped, timers_.end());
}

std::shared_ptr<ZMTimer> ZMMainQueue::scheduledTimer(double interval, bool repeats, std::function<void()> action) {
    if (!(interval >= kMinimumInterval)) interval = kMinimumInterval;
    std::shared_ptr<ZMTimer> timer;
    std::vector<std::function<void()>> released;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        pruneLocked(released);
        timer = std::make_shared<ZMTimer>(interval, repeats, clockLocked() + interval, std::move(action));
        timers_.push_back(timer);
    }
    wake_.notify_all();  // a real-time driver may have to wake earlier now
    return timer;
}

size_t ZMMainQueue::activeTimerCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<size_t>(std::count_if(timers_.begin(), timers_.end(),
                                             [](const std::shared_ptr<ZMTimer>& timer) { return timer->isValid(); }));
}

size_t ZMMainQueue::drain() {
    std::unique_lock<std::mutex> lock(mutex_);
    return drainLocked(lock);
}

size_t ZMMainQueue::drainLocked(std::unique_lock<std::mutex>& lock) {
    size_t ran = 0;
    while (!tasks_.empty()) {
        Task task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        runAsWorkOf(this, task);
        ++ran;
        lock.lock();
    }
    return ran;
}

bool ZMMainQueue::runOneDue(double upTo) {
    std::function<void()> action;
    std::vector<std::function<void()>> released;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        pruneLocked(released);
        // The earliest due timer; among equal fire times the one scheduled first.
        ZMTimer* due = nullptr;
        for (const auto& timer : timers_) {
            if (timer->fireTime_ <= upTo && (!due || timer->fireTime_ < due->fireTime_)) due = timer.get();
        }
        if (!due) return false;

        now_ = std::max(now_, due->fireTime_);
        if (due->repeats_) {
            // Next firing one interval on. A real-time driver that fell behind
            // skips the firings it missed instead of delivering them in a burst.
            const double current = clockLocked();
            double next = due->fireTime_ + due->interval_;
            if (next <= current) {
                next = due->fireTime_ + (std::floor((current - due->fireTime_) / due->interval_) + 1) * due->interval_;
                if (next <= current) next = current + due->interval_;
            }
            if (next <= due->fireTime_) {
                due->invalidate();  // the clock is too coarse here for the interval to advance it
            } else {
                due->fireTime_ = next;
            }
        } else {
            due->invalidate();
        }
        // A copy: the timer's own action may be released (pruned) while this runs.
        action = due->action_;
    }
    released.clear();  // destroyed outside the lock
    runAsWorkOf(this, action);
    return true;
}

void ZMMainQueue::advance(double seconds) {
    if (!(seconds > 0)) seconds = 0;
    double target = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        target = clockLocked() + seconds;
    }
    drain();
    while (runOneDue(target)) drain();
    std::lock_guard<std::mutex> lock(mutex_);
    now_ = std::max(now_, target);
}

bool ZMMainQueue::drive(double seconds, const std::function<bool()>* done, bool untilStopped) {
    auto isDone = [done] { return done && *done && (*done)(); };
    if (isDone()) return true;
    if (!(seconds >= 0)) seconds = 0;

    std::unique_lock<std::mutex> lock(mutex_);
    // Start following the wall clock; a drive nested in a task of an outer
    // drive keeps the outer one's reading.
    const bool outermost = !driven_;
    if (outermost) {
        drivenFrom_ = now_;
        drivenSince_ = std::chrono::steady_clock::now();
        driven_ = true;
    }
    const double deadline = clockLocked() + seconds;
    bool met = false;
    for (;;) {
        if (untilStopped && stopRequested_) {
            stopRequested_ = false;
            break;
        }
        // One round: the tasks queued at its start, then at most one due
        // timer. Bounding the round keeps a task that queues itself again from
        // starving the timers, and a busy timer from starving the tasks.
        bool ran = false;
        for (size_t round = tasks_.size(); round > 0 && !tasks_.empty() && !met; --round) {
            Task task = std::move(tasks_.front());
            tasks_.pop_front();
            lock.unlock();
            runAsWorkOf(this, task);
            ran = true;
            met = isDone();
            lock.lock();
        }
        if (met) break;
        const double upTo = clockLocked();
        lock.unlock();
        if (runOneDue(upTo)) {
            ran = true;
            met = isDone();
        }
        lock.lock();
        if (met) break;

        const double current = clockLocked();
        if (current >= deadline) break;
        if (ran || !tasks_.empty() || (untilStopped && stopRequested_)) continue;

        // Nothing to do: sleep until the next timer, the deadline, or a
        // notification (new task, new timer, stop).
        double wakeAt = deadline;
        for (const auto& timer : timers_) {
            if (timer->isValid()) wakeAt = std::min(wakeAt, timer->fireTime_);
        }
        const double wait = std::clamp(wakeAt - current, 0.0, kLongestWait);
        wake_.wait_for(lock, std::chrono::duration<double>(wait));
    }
    if (outermost) {
        // Stop following the wall clock: it stays at the time reached.
        now_ = clockLocked();
        driven_ = false;
    }
    lock.unlock();
    return met || isDone();
}

void ZMMainQueue::runFor(double seconds) { drive(seconds, nullptr, false); }

bool ZMMainQueue::runUntil(const std::function<bool()>& done, double timeoutSeconds) {
    return drive(timeoutSeconds, &done, false);
}

void ZMMainQueue::runUntilStopped() { drive(std::numeric_limits<double>::infinity(), nullptr, true); }

void ZMMainQueue::stop() {
    {
        // A stop with no runUntilStopped() in progress is kept for the next one,
        // so a stop racing the start of a driver thread is not lost.
        std::lock_guard<std::mutex> lock(mutex_);
        stopRequested_ = true;
    }
    wake_.notify_all();
}
