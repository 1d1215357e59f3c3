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
    if (enqueue(std::move(task))) wake();
}

bool ZMSerialQueue::enqueue(Task task, uint64_t* index) {
    if (!task) return false;
    std::lock_guard<std::mutex> lock(mutex_);
    tasks_.push_back(std::move(task));
    queued_.store(true, std::memory_order_relaxed);
    const uint64_t queued = enqueued_.load(std::memory_order_relaxed) + 1;
    enqueued_.store(queued, std::memory_order_release);
    if (index) *index = queued;
    // One wake-up is enough for everything queued until the worker runs.
    return std::exchange(waiting_, false);
}

void ZMSerialQueue::wake() { wake_.notify_one(); }

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
    // The tasks being run; swapped with tasks_ so that both keep their capacity.
    std::vector<Task> batch;
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        if (!stopping_ && tasks_.empty()) {
            // Out of work: before going to sleep, give the processor away a
            // few times in case more arrives at once (as it does while a
            // producer is busy), which then costs neither side a wake-up.
            lock.unlock();
            for (int i = 0; i < kIdleYields && !queued_.load(std::memory_order_relaxed); ++i) {
                std::this_thread::yield();
            }
            lock.lock();
        }
        while (!stopping_ && tasks_.empty()) {
            waiting_ = true;
            wake_.wait(lock);
        }
        waiting_ = false;
        if (tasks_.empty()) return;  // stopping, and everything queued has run
        batch.swap(tasks_);
        queued_.store(false, std::memory_order_relaxed);
        lock.unlock();
        {
            CurrentQueueScope scope(this);
            for (Task& task : batch) {
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
        }
        batch.clear();
        // A rare burst's buffer is let go rather than kept for good.
        if (batch.capacity() > kKeptTaskCapacity) std::vector<Task>().swap(batch);
        lock.lock();
    }
}
