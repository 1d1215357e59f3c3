#pragma once

#include <memory>
#include <mutex>

// A weak reference that any thread may read and replace at the same time.
//
// It never keeps its object alive: lock() answers the object while someone
// else owns it, and null once it is destroyed. Reads and replacements are
// serialised by a mutex held only to copy the weak reference, never while the
// object is used. (std::atomic<std::weak_ptr> would do the same on paper, but
// with libstdc++ 12 its load publishes the copied control block with relaxed
// ordering, a race ThreadSanitizer reports when a reader locks the reference
// while a writer replaces it.)
template <class T>
class ZMWeakReference {
public:
    ZMWeakReference() = default;
    ZMWeakReference(const ZMWeakReference&) = delete;
    ZMWeakReference& operator=(const ZMWeakReference&) = delete;

    // The object, or null when none was set or it has been destroyed.
    std::shared_ptr<T> lock() const {
        std::weak_ptr<T> copy;
        {
            std::lock_guard<std::mutex> guard(mutex_);
            copy = reference_;
        }
        return copy.lock();
    }

    // Replaces the object (null clears it).
    void store(const std::shared_ptr<T>& object) {
        std::weak_ptr<T> replacement = object;
        {
            std::lock_guard<std::mutex> guard(mutex_);
            reference_.swap(replacement);
        }
        // The old weak reference is released here, outside the lock.
    }

private:
    mutable std::mutex mutex_;
    std::weak_ptr<T> reference_;
};
