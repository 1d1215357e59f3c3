#pragma once

#include <mutex>

// A recursive mutual-exclusion lock: the thread that holds it may take it
// again. withLock() releases it on every path, exceptions included.
class ZMRecursiveLock {
public:
    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }
    bool try_lock() { return mutex_.try_lock(); }

    template <class F>
    decltype(auto) withLock(F&& body) {
        std::lock_guard<ZMRecursiveLock> guard(*this);
        return body();
    }

private:
    std::recursive_mutex mutex_;
};
