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

ZMMainQueue::~ZMMainQueue() = default;

void ZMMainQueue::async(Task task) {
    if (!task) return;
    std::vector<HostRequest> requests;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        tasks_.push_back(std::move(task));
        collectHostRequestsLocked(requests);
    }
    wake_.notify_all();
    sendHostRequests(requests);
}

bool ZMMainQueue::isCurrent() const { return tCurrentMainQueue == this; }

double ZMMainQueue::clockLocked() const {
    if (realTimeDrivers_ == 0) return now_;
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
    std::vector<HostRequest> requests;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        pruneLocked(released);
        timer = std::make_shared<ZMTimer>(interval, repeats, clockLocked() + interval, std::move(action));
        timers_.push_back(timer);
        collectHostRequestsLocked(requests);
    }
    wake_.notify_all();  // a real-time driver may have to wake earlier now
    released.clear();    // destroyed outside the lock
    sendHostRequests(requests);
    return timer;
}

size_t ZMMainQueue::activeTimerCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<size_t>(std::count_if(timers_.begin(), timers_.end(),
                                             [](const std::shared_ptr<ZMTimer>& timer) { return timer->isValid(); }));
}

void ZMMainQueue::invalidateTimers() {
    std::vector<std::function<void()>> released;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& timer : timers_) timer->invalidate();
        pruneLocked(released);
    }
    released.clear();  // destroyed outside the lock
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
    // Follow the wall clock; a drive nested in a task of an outer drive (or
    // run while a host poster is set) keeps the reading already running.
    beginRealTimeLocked();
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
    endRealTimeLocked();
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

void ZMMainQueue::beginRealTimeLocked() {
    if (realTimeDrivers_++ == 0) {
        drivenFrom_ = now_;
        drivenSince_ = std::chrono::steady_clock::now();
    }
}

void ZMMainQueue::endRealTimeLocked() {
    if (realTimeDrivers_ == 1) now_ = clockLocked();  // the clock stays at the time reached
    --realTimeDrivers_;
}

void ZMMainQueue::setHostPoster(HostPoster poster) {
    std::shared_ptr<HostSlot> previous;  // destroyed outside the lock
    std::vector<HostRequest> requests;
    {
        std::unique_lock<std::mutex> lock(mutex_);
        const bool had = hostPoster_ != nullptr;
        previous = std::move(hostPoster_);
        hostPoster_ = nullptr;
        ++hostGeneration_;  // work handed to the previous poster is stale from now on
        hostTasksRequested_ = false;
        hostWakeAt_.reset();
        if (poster) {
            hostPoster_ = std::make_shared<HostSlot>(HostSlot{std::move(poster), 0});
            if (!had) beginRealTimeLocked();
            collectHostRequestsLocked(requests);
        } else if (had) {
            endRealTimeLocked();
        }
        // No new call can reach the previous poster now; wait for those under way.
        if (previous) hostCallsDone_.wait(lock, [&] { return previous->callsUnderWay == 0; });
    }
    sendHostRequests(requests);
}

bool ZMMainQueue::hasHostPoster() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return hostPoster_ != nullptr;
}

void ZMMainQueue::collectHostRequestsLocked(std::vector<HostRequest>& requests) {
    if (!hostPoster_) return;
    if (!tasks_.empty() && !hostTasksRequested_) {
        hostTasksRequested_ = true;
        requests.push_back(HostRequest{hostPoster_, hostGeneration_, false, 0, 0});
    }
    std::optional<double> earliest;
    for (const auto& timer : timers_) {
        if (timer->isValid() && (!earliest || timer->fireTime_ < *earliest)) earliest = timer->fireTime_;
    }
    // A wake-up already asked for at or before the earliest due time covers it;
    // one that turns out early or stale asks again when it runs.
    if (earliest && (!hostWakeAt_ || *earliest < *hostWakeAt_)) {
        hostWakeAt_ = earliest;
        const double delay = std::clamp(*earliest - clockLocked(), 0.0, kLongestWait);
        requests.push_back(HostRequest{hostPoster_, hostGeneration_, true, *earliest, delay});
    }
}

void ZMMainQueue::sendHostRequests(std::vector<HostRequest>& requests) {
    for (auto& request : requests) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            // Replaced or removed meanwhile: a new poster was asked for itself.
            if (request.generation != hostGeneration_) continue;
            ++request.slot->callsUnderWay;
        }
        // The work refers to the queue only while it exists, and does not hold
        // the poster (which may own the host that holds the work).
        Task work = [this, alive = std::weak_ptr<int>(lifetime_),
                     round = HostRequest{nullptr, request.generation, request.wake, request.wakeAt, request.delay}] {
            if (!alive.expired()) runHostRound(round);
        };
        bool posted = false;
        try {
            request.slot->poster(std::move(work), request.delay);
            posted = true;
        } catch (...) {
        }
        {
            std::lock_guard<std::mutex> lock(mutex_);
            --request.slot->callsUnderWay;
            if (!posted && request.generation == hostGeneration_) {
                // Nothing is outstanding any more: the next task or timer asks again.
                hostTasksRequested_ = false;
                hostWakeAt_.reset();
            }
        }
        hostCallsDone_.notify_all();
    }
    requests.clear();
}

void ZMMainQueue::runHostRound(const HostRequest& request) {
    std::vector<HostRequest> requests;
    {
        // One round at a time, even when a replaced host's round is still
        // running on its thread while the new host starts one (reentrant for a
        // host that runs its loop from inside a task).
        std::lock_guard<std::recursive_mutex> exclusive(hostRoundMutex_);
        runHostRoundExclusive(request);
        std::lock_guard<std::mutex> lock(mutex_);
        collectHostRequestsLocked(requests);
    }
    sendHostRequests(requests);
}

void ZMMainQueue::runHostRoundExclusive(const HostRequest& request) {
    size_t round = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (request.generation != hostGeneration_) return;  // the poster was replaced or removed
        if (!request.wake) {
            hostTasksRequested_ = false;
        } else if (hostWakeAt_ && *hostWakeAt_ == request.wakeAt) {
            hostWakeAt_.reset();
        }
        round = tasks_.size();
    }
    // The tasks queued when the round started; tasks they queue ask the host
    // for another round, so that the host's loop gets its turn in between.
    for (; round > 0; --round) {
        Task task;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (tasks_.empty() || request.generation != hostGeneration_) break;
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        runAsWorkOf(this, task);
    }
    // Then every timer due by now, once each (a repeating timer's next firing
    // is later than now).
    double upTo = 0;
    auto current = [&] {
        std::lock_guard<std::mutex> lock(mutex_);
        return request.generation == hostGeneration_;
    };
    {
        std::lock_guard<std::mutex> lock(mutex_);
        upTo = clockLocked();
    }
    while (current() && runOneDue(upTo)) {
    }
}
