#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

// Records events from any thread and lets a test wait, without sleeping, until
// a number of them has arrived.
class ZMEventRecorder {
public:
    void record(std::string event);
    std::vector<std::string> events() const;
    size_t count() const;
    // True once at least n events were recorded; false after the timeout.
    bool waitForCount(size_t n, double timeoutSeconds = 30) const;
    void clear();

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<std::string> events_;
};

// "k7" for numbered("k", 7): names of numbered rooms, keys and tags. (Built by
// appending: g++ 12 at -O3 misreads "literal" + std::string as an overlapping
// copy, -Wrestrict.)
inline std::string numbered(const char* prefix, long long number) {
    std::string name(prefix);
    name += std::to_string(number);
    return name;
}
