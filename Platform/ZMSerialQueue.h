#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

// A serial task queue: tasks submitted with async() run one at a time, in
// submission order, on the queue's own worker thread.
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
    void run();

    const std::string label_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Task> tasks_;
    std::map<const void*, void*> specifics_;
    bool stopping_ = false;
    std::thread worker_;
};
