#include <Platform/ZMSerialQueue.h>

#include <exception>
#include <utility>

#if defined(__linux__)
#include <pthread.h>
#endif

namespace {

// The queue whose task the current thread is running, or null. Set by the
// worker around each task, so it is never set on a thread that runs no task.
thread_local const ZMSerialQueue* tCurrentQueue = nullptr;

// Marks the current thread as running a task of a queue for the life of the
// scope, restoring the previous marker afterwards.
class CurrentQueueScope {
public:
    explicit CurrentQueueScope(const ZMSerialQueue* queue) : previous_(tCurrentQueue) { tCurrentQueue = queue; }
    ~CurrentQueueScope() { tCurrentQueue = previous_; }
    CurrentQueueScope(const CurrentQueueScope&) = delete;
    CurrentQueueScope& operator=(const CurrentQueueScope&) = delete;

private:
    const ZMSerialQueue* previous_;
};

void nameWorkerThread(const std::string& label) {
#if defined(__linux__)
    // Thread names are limited to 15 bytes; the tail of a reverse-domain label
    // is the part that tells queues apart.
    std::string name = label.size() > 15 ? label.substr(label.size() - 15) : label;
    pthread_setname_np(pthread_self(), name.c_str());
#else
    (void)label;
#endif
}

}  // namespace

ZMSerialQueue::ZMSerialQueue(std::string label) : label_(std::move(label)), worker_([this] { run(); }) {}

ZMSerialQueue::~ZMSerialQueue() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (worker_.joinable()) worker_.join();
}

void ZMSerialQueue::async(Task task) {
    if (!task) return;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    wake_.notify_one();
}

void ZMSerialQueue::sync(const Task& task) {
    if (!task) return;
    if (isCurrent()) {
        // Queuing behind ourselves would never finish: run in place.
        task();
        return;
    }
    std::mutex doneMutex;
    std::condition_variable doneChanged;
    bool done = false;
    std::exception_ptr error;
    async([&] {
        try {
            task();
        } catch (...) {
            error = std::current_exception();
        }
        // Notify under the lock: the waiting thread destroys the condition
        // variable as soon as it sees done.
        std::lock_guard<std::mutex> lock(doneMutex);
        done = true;
        doneChanged.notify_one();
    });
    std::unique_lock<std::mutex> lock(doneMutex);
    doneChanged.wait(lock, [&] { return done; });
    // The task ran as if called here, so its exception belongs to the caller.
    if (error) std::rethrow_exception(error);
}

bool ZMSerialQueue::isCurrent() const { return tCurrentQueue == this; }

void ZMSerialQueue::setSpecific(const void* key, void* value) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (value) {
        specifics_[key] = value;
    } else {
        specifics_.erase(key);
    }
}

void* ZMSerialQueue::getSpecific(const void* key) {
    const ZMSerialQueue* queue = tCurrentQueue;
    if (!queue) return nullptr;
    std::lock_guard<std::mutex> lock(queue->mutex_);
    auto found = queue->specifics_.find(key);
    return found == queue->specifics_.end() ? nullptr : found->second;
}

void ZMSerialQueue::run() {
    nameWorkerThread(label_);
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
        if (tasks_.empty()) return;  // stopping, and everything queued has run
        Task task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        {
            CurrentQueueScope scope(this);
            try {
                task();
            } catch (...) {
                // An escaping exception must not take the worker (and every
                // task queued after it) down with it: it is dropped here.
            }
            // The task's captures are released while still marked as running
            // on this queue and outside the lock, so their destructors may queue work.
            task = nullptr;
        }
        lock.lock();
    }
}
