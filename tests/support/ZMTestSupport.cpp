#include "support/ZMTestSupport.h"

void ZMEventRecorder::record(std::string event) {
    // Notified under the lock: a waiter that wakes may destroy the recorder at
    // once, so nothing here may touch it after the lock is released.
    std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back(std::move(event));
    changed_.notify_all();
}

std::vector<std::string> ZMEventRecorder::events() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return events_;
}

size_t ZMEventRecorder::count() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return events_.size();
}

bool ZMEventRecorder::waitForCount(size_t n, double timeoutSeconds) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::duration<double>(timeoutSeconds),
                             [&] { return events_.size() >= n; });
}

void ZMEventRecorder::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.clear();
}
