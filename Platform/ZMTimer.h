#pragma once

#include <atomic>
#include <functional>

// A timer of the main queue (see ZMMainQueue::scheduledTimer). It fires its
// action on the main queue's thread at its fire time and, when repeating,
// again every interval after that, until it is invalidated.
class ZMTimer {
public:
    ZMTimer(double interval, bool repeats, double fireTime, std::function<void()> action)
        : interval_(interval), repeats_(repeats), fireTime_(fireTime), action_(std::move(action)) {}

    double timeInterval() const { return interval_; }
    bool repeats() const { return repeats_; }
    bool isValid() const { return valid_.load(); }
    // Stops the timer for good; it never fires again. Safe from any thread.
    void invalidate() { valid_.store(false); }

private:
    friend class ZMMainQueue;

    const double interval_;
    const bool repeats_;
    double fireTime_;  // on the main queue's clock; touched only under the main queue's lock
    std::function<void()> action_;
    std::atomic<bool> valid_{true};
};
