#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// The core library's thread-safe dictionary from string keys to values of one
// type. Each single call is atomic with respect to every other call; no lock
// spans a sequence of calls.
template <class V>
class ZMTSMutableDictionary {
public:
    ZMTSMutableDictionary() = default;
    ZMTSMutableDictionary(const ZMTSMutableDictionary&) = delete;
    ZMTSMutableDictionary& operator=(const ZMTSMutableDictionary&) = delete;

    // The value stored under key, or nothing.
    std::optional<V> objectForKey(const std::string& key) const {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = map_.find(key);
        if (it == map_.end()) return std::nullopt;
        return it->second;
    }
    // Keyed-subscript read: the same as objectForKey.
    std::optional<V> operator[](const std::string& key) const { return objectForKey(key); }

    void setObject(V value, const std::string& key) {
        std::lock_guard<std::mutex> lock(mutex_);
        map_.insert_or_assign(key, std::move(value));
    }
    void removeObjectForKey(const std::string& key) {
        std::lock_guard<std::mutex> lock(mutex_);
        map_.erase(key);
    }
    void removeAllObjects() {
        std::lock_guard<std::mutex> lock(mutex_);
        map_.clear();
    }
    std::size_t count() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return map_.size();
    }
    // A snapshot of the keys at the moment of the call.
    std::vector<std::string> allKeys() const {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<std::string> keys;
        keys.reserve(map_.size());
        for (const auto& entry : map_) keys.push_back(entry.first);
        return keys;
    }

private:
    mutable std::mutex mutex_;
    std::map<std::string, V> map_;
};
