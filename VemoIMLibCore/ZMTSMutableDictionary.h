#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// The core library's thread-safe dictionary from string keys to values of one
// type. Each single call is atomic with respect to every other call; no lock
// spans a sequence of calls. Keys are kept in ascending order: allKeys() and
// allEntries() answer them that way.
//
// The entries are stored in key order in blocks of up to 64, each block one
// allocation, rather than one tree node per entry: an entry costs its key and
// value and little else (a tree node adds four words and an allocation of its
// own). Lookups search the blocks, then the block, in halves.
template <class V>
class ZMTSMutableDictionary {
public:
    ZMTSMutableDictionary() = default;
    ZMTSMutableDictionary(const ZMTSMutableDictionary&) = delete;
    ZMTSMutableDictionary& operator=(const ZMTSMutableDictionary&) = delete;

    // The value stored under key, or nothing.
    std::optional<V> objectForKey(const std::string& key) const {
        std::lock_guard<std::mutex> lock(mutex_);
        const Entry* entry = entries_.find(key);
        if (entry == nullptr) return std::nullopt;
        return entry->second;
    }
    // Keyed-subscript read: the same as objectForKey.
    std::optional<V> operator[](const std::string& key) const { return objectForKey(key); }

    void setObject(V value, const std::string& key) { exchangeObject(std::move(value), key); }
    // Stores value under key and answers the value it replaced, if any.
    std::optional<V> exchangeObject(V value, const std::string& key) {
        std::lock_guard<std::mutex> lock(mutex_);
        return entries_.assign(key, std::move(value));
    }
    // Stores value under key only when the key holds nothing; answers whether it did.
    bool setObjectIfAbsent(V value, const std::string& key) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (entries_.find(key) != nullptr) return false;
        entries_.assign(key, std::move(value));
        return true;
    }
    void removeObjectForKey(const std::string& key) { takeObjectForKey(key); }
    // Removes the key and answers the value it held, if any.
    std::optional<V> takeObjectForKey(const std::string& key) {
        std::lock_guard<std::mutex> lock(mutex_);
        return entries_.erase(key);
    }
    void removeAllObjects() { takeAllObjects(); }
    // Removes every key and answers the values they held, in key order.
    std::vector<V> takeAllObjects() {
        std::vector<std::vector<Entry>> blocks;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            blocks = entries_.takeBlocks();
        }
        std::vector<V> values;
        for (auto& block : blocks) {
            for (auto& entry : block) values.push_back(std::move(entry.second));
        }
        return values;
    }
    std::size_t count() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return entries_.size();
    }
    // A snapshot of the keys at the moment of the call.
    std::vector<std::string> allKeys() const {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<std::string> keys;
        keys.reserve(entries_.size());
        entries_.forEach([&](const Entry& entry) { keys.push_back(entry.first); });
        return keys;
    }
    // A snapshot of the keys and their values at the moment of the call.
    std::vector<std::pair<std::string, V>> allEntries() const {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<std::pair<std::string, V>> entries;
        entries.reserve(entries_.size());
        entries_.forEach([&](const Entry& entry) { entries.push_back(entry); });
        return entries;
    }

private:
    using Entry = std::pair<std::string, V>;

    // Entries in ascending key order, split into blocks of at most
    // kBlockCapacity entries, every block non-empty. A block grows by
    // doubling up to kBlockCapacity; a block that would grow beyond it is
    // split, except that an entry added after the last key of all starts a
    // new block, so that keys added in ascending order fill every block. A
    // block that shrinks below a quarter is merged with a neighbour that has
    // room, so that removals cannot leave many nearly empty blocks behind.
    class SortedBlocks {
    public:
        static constexpr std::size_t kBlockCapacity = 64;

        const Entry* find(const std::string& key) const {
            const std::size_t b = blockFor(key);
            if (b == blocks_.size()) return nullptr;
            const auto& block = blocks_[b];
            auto it = lowerBound(block, key);
            return it != block.end() && it->first == key ? &*it : nullptr;
        }

        std::optional<V> assign(const std::string& key, V value) {
            if (blocks_.empty()) {
                blocks_.emplace_back();
                blocks_.back().emplace_back(key, std::move(value));
                ++size_;
                return std::nullopt;
            }
            std::size_t b = blockFor(key);
            if (b == blocks_.size()) {
                // After every key: appended to the last block, or a new one when it is full.
                if (blocks_.back().size() == kBlockCapacity) {
                    blocks_.emplace_back();
                    blocks_.back().reserve(kBlockCapacity);
                }
                blocks_.back().emplace_back(key, std::move(value));
                ++size_;
                return std::nullopt;
            }
            auto* block = &blocks_[b];
            auto it = lowerBound(*block, key);
            if (it != block->end() && it->first == key) {
                std::optional<V> previous(std::move(it->second));
                it->second = std::move(value);
                return previous;
            }
            if (block->size() == kBlockCapacity) {
                // Split in halves; the key goes to the half whose range holds it.
                std::vector<Entry> upper;
                upper.reserve(kBlockCapacity);
                const auto middle = block->begin() + static_cast<std::ptrdiff_t>(kBlockCapacity / 2);
                upper.assign(std::make_move_iterator(middle), std::make_move_iterator(block->end()));
                block->erase(middle, block->end());
                blocks_.insert(blocks_.begin() + static_cast<std::ptrdiff_t>(b) + 1, std::move(upper));
                block = &blocks_[b];
                if (block->back().first < key) block = &blocks_[b + 1];
                it = lowerBound(*block, key);
            }
            block->emplace(it, key, std::move(value));
            ++size_;
            return std::nullopt;
        }

        std::optional<V> erase(const std::string& key) {
            const std::size_t b = blockFor(key);
            if (b == blocks_.size()) return std::nullopt;
            auto& block = blocks_[b];
            auto it = lowerBound(block, key);
            if (it == block.end() || it->first != key) return std::nullopt;
            std::optional<V> removed(std::move(it->second));
            block.erase(it);
            --size_;
            if (block.empty()) {
                blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(b));
            } else if (block.size() < kBlockCapacity / 4) {
                mergeSmall(b);
            }
            return removed;
        }

        std::vector<std::vector<Entry>> takeBlocks() {
            size_ = 0;
            return std::exchange(blocks_, {});
        }

        std::size_t size() const { return size_; }

        template <class F>
        void forEach(F&& visit) const {
            for (const auto& block : blocks_) {
                for (const auto& entry : block) visit(entry);
            }
        }

    private:
        static auto lowerBound(const std::vector<Entry>& block, const std::string& key) {
            return std::lower_bound(block.begin(), block.end(), key,
                                    [](const Entry& entry, const std::string& k) { return entry.first < k; });
        }
        static auto lowerBound(std::vector<Entry>& block, const std::string& key) {
            return std::lower_bound(block.begin(), block.end(), key,
                                    [](const Entry& entry, const std::string& k) { return entry.first < k; });
        }
        // The first block whose last key is not below key; blocks_.size() when
        // key is after every key.
        std::size_t blockFor(const std::string& key) const {
            auto it = std::lower_bound(blocks_.begin(), blocks_.end(), key,
                                       [](const std::vector<Entry>& block, const std::string& k) {
                                           return block.back().first < k;
                                       });
            return static_cast<std::size_t>(it - blocks_.begin());
        }
        // Moves the small block b into a neighbour with room for it.
        void mergeSmall(std::size_t b) {
            if (b > 0 && blocks_[b - 1].size() + blocks_[b].size() <= kBlockCapacity) {
                auto& into = blocks_[b - 1];
                into.insert(into.end(), std::make_move_iterator(blocks_[b].begin()),
                            std::make_move_iterator(blocks_[b].end()));
                blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(b));
            } else if (b + 1 < blocks_.size() && blocks_[b].size() + blocks_[b + 1].size() <= kBlockCapacity) {
                auto& into = blocks_[b + 1];
                into.insert(into.begin(), std::make_move_iterator(blocks_[b].begin()),
                            std::make_move_iterator(blocks_[b].end()));
                blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(b));
            }
        }

        std::vector<std::vector<Entry>> blocks_;
        std::size_t size_ = 0;
    };

    mutable std::mutex mutex_;
    SortedBlocks entries_;
};
