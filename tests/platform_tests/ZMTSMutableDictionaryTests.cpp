// The core's thread-safe dictionary: every call against an ordered map doing
// the same, over key orders that fill, split and merge its blocks, and each
// call atomic under concurrent use.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <VemoIMLibCore/ZMTSMutableDictionary.h>

namespace {

using Dictionary = ZMTSMutableDictionary<int>;
using Reference = std::map<std::string, int>;

std::string key(long long number) {
    std::string digits = std::to_string(number);
    std::string name("k");
    name.append(digits.size() < 6 ? 6 - digits.size() : 0, '0');
    name += digits;
    return name;
}

// Everything the dictionary answers agrees with the reference map.
void expectSame(const Dictionary& dictionary, const Reference& reference) {
    ASSERT_EQ(dictionary.count(), reference.size());
    std::vector<std::string> keys;
    std::vector<std::pair<std::string, int>> entries(reference.begin(), reference.end());
    for (const auto& [k, v] : reference) keys.push_back(k);
    EXPECT_EQ(dictionary.allKeys(), keys);
    EXPECT_EQ(dictionary.allEntries(), entries);
    for (const auto& [k, v] : reference) ASSERT_EQ(dictionary.objectForKey(k), std::optional<int>(v)) << k;
}

TEST(ZMTSMutableDictionaryTest, AgreesWithAnOrderedMapWhateverTheOrderOfKeys) {
    constexpr int kKeys = 3000;
    std::vector<long long> ascending(kKeys);
    for (int i = 0; i < kKeys; ++i) ascending[static_cast<size_t>(i)] = i;
    std::vector<long long> descending(ascending.rbegin(), ascending.rend());
    std::vector<long long> shuffled = ascending;
    std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(7));
    std::vector<long long> interleaved;  // both ends towards the middle
    for (int i = 0; i < kKeys / 2; ++i) {
        interleaved.push_back(i);
        interleaved.push_back(kKeys - 1 - i);
    }
    const struct {
        const char* name;
        const std::vector<long long>& order;
    } cases[] = {{"ascending", ascending}, {"descending", descending}, {"shuffled", shuffled},
                 {"interleaved", interleaved}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Dictionary dictionary;
        Reference reference;
        expectSame(dictionary, reference);
        for (long long k : c.order) {
            dictionary.setObject(static_cast<int>(k), key(k));
            reference[key(k)] = static_cast<int>(k);
        }
        expectSame(dictionary, reference);
        // Replacing answers the value replaced; a new key answers nothing.
        EXPECT_EQ(dictionary.exchangeObject(-1, key(17)), std::optional<int>(17));
        EXPECT_EQ(dictionary.exchangeObject(-2, key(kKeys + 5)), std::nullopt);
        reference[key(17)] = -1;
        reference[key(kKeys + 5)] = -2;
        EXPECT_FALSE(dictionary.setObjectIfAbsent(99, key(17)));
        EXPECT_TRUE(dictionary.setObjectIfAbsent(98, key(kKeys + 6)));
        reference[key(kKeys + 6)] = 98;
        expectSame(dictionary, reference);
        // Removing most keys in the same order shrinks and merges the blocks.
        for (size_t i = 0; i < c.order.size(); ++i) {
            if (i % 10 == 0) continue;
            const std::string k = key(c.order[i]);
            EXPECT_EQ(dictionary.takeObjectForKey(k), std::optional<int>(reference[k])) << k;
            reference.erase(k);
            if (i % 500 == 1) expectSame(dictionary, reference);
        }
        EXPECT_EQ(dictionary.takeObjectForKey(key(c.order[1])), std::nullopt);  // gone already
        dictionary.removeObjectForKey("absent");
        expectSame(dictionary, reference);
        // And back again in between the survivors.
        for (long long k : c.order) {
            dictionary.setObject(static_cast<int>(k) * 2, key(k));
            reference[key(k)] = static_cast<int>(k) * 2;
        }
        expectSame(dictionary, reference);
        std::vector<int> values;
        for (const auto& [k, v] : reference) values.push_back(v);
        EXPECT_EQ(dictionary.takeAllObjects(), values);
        expectSame(dictionary, {});
        dictionary.setObject(1, "x");
        dictionary.removeAllObjects();
        expectSame(dictionary, {});
    }
}

TEST(ZMTSMutableDictionaryTest, ValuesLeaveTheDictionaryWhenRemovedOrReplaced) {
    ZMTSMutableDictionary<std::shared_ptr<int>> dictionary;
    auto first = std::make_shared<int>(1);
    std::weak_ptr<int> watch = first;
    dictionary.setObject(std::move(first), "a");
    dictionary.setObject(std::make_shared<int>(2), "a");
    EXPECT_TRUE(watch.expired());
    auto taken = dictionary.takeObjectForKey("a");
    ASSERT_TRUE(taken && *taken);
    EXPECT_EQ(**taken, 2);
    EXPECT_EQ(taken->use_count(), 1);  // the dictionary keeps no copy
    EXPECT_EQ(dictionary.count(), 0u);
}

// Threads write, replace, remove and read their own keys and one shared key,
// and take snapshots: every snapshot is in key order, and at the end each
// thread's keys hold exactly what it wrote last.
TEST(ZMTSMutableDictionaryTest, EachCallIsAtomicUnderConcurrentUse) {
    Dictionary dictionary;
    constexpr int kThreads = 4;
    constexpr int kKeysEach = 400;
    std::vector<std::thread> threads;
    std::atomic<bool> unordered{false};
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&dictionary, &unordered, t] {
            for (int round = 0; round < 3; ++round) {
                for (int i = 0; i < kKeysEach; ++i) {
                    dictionary.setObject(round, key(t * kKeysEach + i));
                    dictionary.exchangeObject(t, "shared");
                    if (i % 3 == 0) dictionary.removeObjectForKey(key(t * kKeysEach + i));
                    if (i % 97 == 0) {
                        const auto keys = dictionary.allKeys();
                        if (!std::is_sorted(keys.begin(), keys.end())) unordered = true;
                    }
                }
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_FALSE(unordered);
    Reference reference;
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kKeysEach; ++i) {
            if (i % 3 != 0) reference[key(t * kKeysEach + i)] = 2;
        }
    }
    const auto shared = dictionary.takeObjectForKey("shared");
    ASSERT_TRUE(shared);
    EXPECT_GE(*shared, 0);
    EXPECT_LT(*shared, kThreads);
    expectSame(dictionary, reference);
}

}  // namespace
