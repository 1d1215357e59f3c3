#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "emulator_tests/ZMEmulatorTestDoubles.h"

namespace {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
constexpr uint64_t kUMax = std::numeric_limits<uint64_t>::max();

TEST(ZMDictionaryReaders, ReadEveryKindOfValue) {
    const ZMValue dict = {
        {"text", "hello"}, {"int", 42},       {"negFloat", -2.9},   {"half", 0.5},         {"true", true},
        {"huge", 1e30},    {"negHuge", -1e30}, {"umax", kUMax},     {"array", {1, 2}},     {"dict", {{"a", 1}}},
        {"null", nullptr}, {"badUtf8", "a\xff"},
    };
    struct {
        const char* key;
        std::optional<std::string> string, mixString;
        int64_t integer;
        uint64_t unsignedInteger;
        bool boolean;
    } const rows[] = {
        {"text", "hello", "hello", 0, 0, false},
        {"int", std::nullopt, "42", 42, 42, true},
        {"negFloat", std::nullopt, "-2.9", -2, 0, true},
        {"half", std::nullopt, "0.5", 0, 0, true},
        {"true", std::nullopt, "1", 1, 1, true},
        {"huge", std::nullopt, "1e+30", kMax, kUMax, true},
        {"negHuge", std::nullopt, "-1e+30", kMin, 0, true},
        {"umax", std::nullopt, "18446744073709551615", kMax, kUMax, true},
        {"array", std::nullopt, std::nullopt, 0, 0, false},
        {"dict", std::nullopt, std::nullopt, 0, 0, false},
        {"null", std::nullopt, std::nullopt, 0, 0, false},
        {"badUtf8", std::nullopt, std::nullopt, 0, 0, false},
        {"missing", std::nullopt, std::nullopt, 0, 0, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key);
        EXPECT_EQ(zmlib_stringForKey(dict, row.key), row.string);
        EXPECT_EQ(zmlib_mix_stringForKey(dict, row.key), row.mixString);
        EXPECT_EQ(zmlib_integerForKey(dict, row.key), row.integer);
        EXPECT_EQ(zmlib_longLongIntForKey(dict, row.key), row.integer);
        EXPECT_EQ(zmlib_unsignedIntegerForKey(dict, row.key), row.unsignedInteger);
        EXPECT_EQ(zmlib_boolForKey(dict, row.key), row.boolean);
        EXPECT_EQ(zmlib_arrayForKey(dict, row.key), row.key == std::string("array") ? dict["array"] : ZMValue());
        EXPECT_EQ(zmlib_dictionaryForKey(dict, row.key), row.key == std::string("dict") ? dict["dict"] : ZMValue());
    }
    // A receiver that is no dictionary answers nothing.
    for (const ZMValue& receiver : {ZMValue(), ZMValue("text"), ZMValue::array({"text"})}) {
        EXPECT_EQ(zmlib_stringForKey(receiver, "text"), std::nullopt) << receiver.dump();
        EXPECT_EQ(zmlib_mix_stringForKey(receiver, "text"), std::nullopt) << receiver.dump();
        EXPECT_EQ(zmlib_integerForKey(receiver, "text"), 0) << receiver.dump();
        EXPECT_TRUE(zmlib_arrayForKey(receiver, "text").is_null()) << receiver.dump();
    }
}

TEST(ZMUtilities, CheckChatroomKeyAcceptsOnlyTheKeyAlphabet) {
    const std::pair<std::string, bool> rows[] = {
        {"abcXYZ019", true}, {"_-+=.", true}, {"", true},        {"a b", false}, {"a/b", false},
        {"key!", false},     {"ключ", false}, {"a\xff", false}, {std::string("a\0b", 3), false},
    };
    for (const auto& [key, legal] : rows) EXPECT_EQ(ZMUtilities::checkChatroomKey(key), legal) << key;
}

}  // namespace
