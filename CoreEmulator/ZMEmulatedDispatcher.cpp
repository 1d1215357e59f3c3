#include <CoreEmulator/ZMEmulatedDispatcher.h>

#include <string>

#include <VemoIMLibCore/ZMFwLog.h>

namespace {

thread_local bool tRunningDelivery = false;

const char* const kLogTag = "ZMEmulatedDispatcher.cpp";

}  // namespace

ZMEmulatedDispatcher& ZMEmulatedDispatcher::shared() {
    // Never destroyed: its threads serve the process until it ends.
    static auto* dispatcher = new ZMEmulatedDispatcher();
    return *dispatcher;
}

ZMSerialQueue& ZMEmulatedDispatcher::nextQueue() {
    std::lock_guard<std::mutex> lock(mutex_);
    const size_t index = nextQueue_++ % threadCount_;
    while (queues_.size() <= index) {
        queues_.push_back(std::make_unique<ZMSerialQueue>("ZMCoreEmulator.callback." + std::to_string(queues_.size())));
    }
    return *queues_[index];
}

bool ZMEmulatedDispatcher::enterDelivery() {
    const bool wasRunning = tRunningDelivery;
    tRunningDelivery = true;
    return wasRunning;
}

void ZMEmulatedDispatcher::leaveDelivery(bool wasRunning) { tRunningDelivery = wasRunning; }

void ZMEmulatedDispatcher::logEscapedException(const char* what) {
    ZMFwLog::getInstance().write(2, 1024, kLogTag, "a callback raised an exception: %@", std::string(what));
}

void ZMEmulatedDispatcher::beginDelivery() { outstanding_.fetch_add(1, std::memory_order_acq_rel); }

void ZMEmulatedDispatcher::finishDelivery() {
    if (outstanding_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    // The last one out wakes the waiters under the lock: a waiter tests the
    // count and goes to sleep under it, so it either sees zero or is asleep
    // by the time this notifies.
    std::lock_guard<std::mutex> lock(mutex_);
    idle_.notify_all();
}

void ZMEmulatedDispatcher::setThreadCount(size_t count) {
    std::lock_guard<std::mutex> lock(mutex_);
    threadCount_ = count == 0 ? 1 : count;
    nextQueue_ = 0;
}

bool ZMEmulatedDispatcher::waitUntilIdle(double timeoutSeconds) {
    if (tRunningDelivery) return false;
    std::unique_lock<std::mutex> lock(mutex_);
    return idle_.wait_for(lock, waitDuration(timeoutSeconds), [this] { return outstanding_.load(std::memory_order_acquire) == 0; });
}

std::chrono::steady_clock::duration ZMEmulatedDispatcher::waitDuration(double seconds) {
    constexpr double kLongestWait = 24 * 60 * 60;
    if (!(seconds > 0)) return std::chrono::steady_clock::duration::zero();
    const double capped = seconds < kLongestWait ? seconds : kLongestWait;
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(capped));
}

bool ZMEmulatedDispatcher::isCallbackThread() { return tRunningDelivery; }
