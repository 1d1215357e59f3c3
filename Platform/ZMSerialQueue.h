#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// A serial task queue: tasks submitted with async() run one at a time, in
// submission order, on the queue's own worker thread.
//
// The worker takes every task queued so far in one step and runs them in
// order, so a burst of tasks costs one lock round per task on the submitting
// side and one per burst on the worker's. The worker is woken only when it
// sleeps; out of work, it yields the processor a few times before it goes
// to sleep, so that a producer handing over tasks one by one does not pay a
// wake-up (and the worker a sleep) for each. The task buffers keep their
// capacity, so steady work allocates nothing beyond what a task itself holds.
//
// Like a dispatch queue it carries queue-specific values: getSpecific(key)
// answers the value that the queue running the current thread's task has
// stored under key, or null when the current thread runs no task of any queue
// (or of a queue without that key).
class ZMSerialQueue {
public:
    using Task = std::function<void()>;

    explicit ZMSerialQueue(std::string label);
    // Runs every task already queued, then stops the worker. Must not be
    // called from one of the queue's own tasks.
    ~ZMSerialQueue();

    ZMSerialQueue(const ZMSerialQueue&) = delete;
    ZMSerialQueue& operator=(const ZMSerialQueue&) = delete;

    const std::string& label() const { return label_; }

    // Queues a task and returns at once.
    void async(Task task);
    // Queues a task like async() but leaves waking the worker to the caller,
    // who may hold a lock of its own until the task is queued and wake the
    // worker once it has let that lock go: answers whether wake() is needed.
    // When index is given, it receives the task's place in the queue's
    // history (see enqueuedCount()).
    [[nodiscard]] bool enqueue(Task task, uint64_t* index = nullptr);
    void wake();
    // How many tasks have been queued so far (with async(), sync() or
    // enqueue()); the n-th task queued has index n. A task queued with index
    // i is still the last one queued while this answers i.
    uint64_t enqueuedCount() const { return enqueued_.load(std::memory_order_acquire); }
    // Runs a task on the queue and returns after it has run: every task queued
    // before it runs first. Called from one of the queue's own tasks it runs the
    // task in place.
    void sync(const Task& task);

    // True exactly while the calling thread is running one of this queue's tasks.
    bool isCurrent() const;

    // Stores value under key for this queue (null removes it). The key is an
    // address used only for its identity.
    void setSpecific(const void* key, void* value);
    static void* getSpecific(const void* key);

private:
    // How often an idle worker yields before it sleeps, and the largest task
    // buffer it keeps between bursts.
    static constexpr int kIdleYields = 20;
    static constexpr size_t kKeptTaskCapacity = 4096;

    void run();

    const std::string label_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    // Queued, not yet taken by the worker (under mutex_).
    std::vector<Task> tasks_;
    std::map<const void*, void*> specifics_;
    bool stopping_ = false;
    // The worker waits for work (under mutex_): only then does async() wake it.
    bool waiting_ = false;
    // Set with every task queued, cleared when the worker takes them: what an
    // idle worker watches without the lock.
    std::atomic<bool> queued_{false};
    // Tasks queued so far (changed under mutex_).
    std::atomic<uint64_t> enqueued_{0};
    std::thread worker_;
};
