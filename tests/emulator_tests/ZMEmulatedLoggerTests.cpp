// The emulator's logger (rendering, argument views, nesting limit, line
// buffer, observer, console, recording switch) and the core's dictionary readers.
#include <cmath>
#include <cstdio>

#include <CoreEmulator/ZMEmulatedValueText.h>

#include "emulator_tests/ZMEmulatorTestDoubles.h"
#include "support/ZMNestedValues.h"

namespace {

constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
constexpr uint64_t kUMax = ~uint64_t{0};

ZMEmulatedLogger& logger() { return emulator().logger(); }
Strings texts(const std::vector<ZMLogLine>& lines) {
    Strings result;
    for (const auto& line : lines) result.push_back(line.text);
    return result;
}
// Writes one line through the core logger with the given arguments, as a call site does.
template <typename... Args> void write(std::string_view format, const Args&... args) {
    ZMFwLog::getInstance().write(4, 1, "T", format, args...);
}

enum SignedCode : int32_t { kSignedCode = -34210 };
enum class UnsignedCode : uint16_t { kValue = 65535 };

TEST(ZMEmulatedLogger, RendersEveryPlaceholderAndEveryArgumentTypeAsTheValueMadeOfIt) {
    const struct { const char* format; std::vector<ZMValue> args; std::string expected; } rows[] = {
        {"%@|%@|%@|%@|%@|%@", {"text", true, false, 42, -7, kUMax}, "text|1|0|42|-7|18446744073709551615"},
        {"%@ %@ %@ %@", {2.5, 3.0, 0.1, 1e20}, "2.5 3 0.1 1e+20"},
        {"%@ %@ %@ %@", {nullptr, ZMValue::array({1, "a", nullptr, 2.5}), {{"b", 1}, {"a", {true}}}, ZMValue::object()},
         R"((null) [1,"a",null,2.5] {"a":[true],"b":1} {})"},
        // Text that is not UTF-8 inside a container is written with replacement characters.
        {"%@ %@", {ZMValue::array({"a\xff"}), {{"k", "\xc3"}}}, "[\"a\xEF\xBF\xBD\"] {\"k\":\"\xEF\xBF\xBD\"}"},
        {"%d %d %lld %lld %lu %d %d %d %d",
         {5, 2.9, -2.9, int64_t{-9000000000}, uint64_t{7}, true, "x", ZMValue(), -1e30},
         "5 2 -2 -9000000000 7 1 x (null) -9223372036854775808"},
        {"100%% %%%@%%", {"x"}, "100% %x%"},
        {"a:%@,b:%@ %d/%lu/%lld", {"1"}, "a:1,b:(null) (null)/(null)/(null)"},  // missing arguments
        {"plain %q %", {1, 2}, "plain %q %"},                                     // surplus, no placeholder
        {"", {}, ""},
    };
    for (const auto& row : rows) EXPECT_EQ(ZMEmulatedLogger::render(row.format, row.args), row.expected) << row.format;

    // Each typed argument goes to the logger as a view; under every
    // placeholder it renders as the ZMValue made of it does.
    auto with = [](auto arg) { return [arg](std::string_view f) { write(f, arg); }; };
    const std::string text = "text";
    using Write = std::function<void(std::string_view)>;
    const struct { const char* name; Write write; ZMValue value; std::string shown; } args[] = {
        {"std::string", with(text), text, "text"}, {"literal", [](auto f) { write(f, "lit"); }, "lit", "lit"},
        {"string_view", with(std::string_view("ab\0c", 4)), std::string("ab\0c", 4), std::string("ab\0c", 4)},
        {"const char*", with(text.c_str()), text, "text"}, {"bool", with(true), true, "1"},
        {"int32_t", with(int32_t{-7}), -7, "-7"}, {"int64_t min", with(kMin), kMin, "-9223372036854775808"},
        {"uint64_t max", with(kUMax), kUMax, "18446744073709551615"}, {"size_t", with(size_t{128}), 128, "128"},
        {"signed char", with(static_cast<signed char>(-5)), -5, "-5"},
        {"unsigned short", with(static_cast<unsigned short>(9)), 9, "9"},
        {"signed enum", with(kSignedCode), kSignedCode, "-34210"},
        {"unsigned enum", with(UnsignedCode::kValue), UnsignedCode::kValue, "65535"},
        {"double", with(-2.9), -2.9, "-2.9"}, {"integral double", with(3.0), 3.0, "3"},
        {"float", with(0.1f), 0.1f, "0.10000000149011612"}, {"NaN", with(std::nan("")), std::nan(""), "nan"},
        {"huge double", with(1e30), 1e30, "1e+30"},
        {"nullptr", with(nullptr), nullptr, "(null)"},
        {"ZMValue", with(ZMValue{{"b", 1}, {"a", "x"}}), ZMValue{{"b", 1}, {"a", "x"}}, R"({"a":"x","b":1})"},
    };
    for (const auto& row : args) {
        for (const char* format : {"<%@>", "<%d>", "<%lu>", "<%lld>"}) {
            logger().clear();
            row.write(format);
            EXPECT_EQ(texts(logger().lines()), Strings{ZMEmulatedLogger::render(format, {row.value})})
                << row.name << " " << format;
        }
        EXPECT_EQ(ZMEmulatedLogger::render("%@", {row.value}), row.shown) << row.name;
    }
    // A null const char* is an absent value; non-integral typed numbers under integer placeholders.
    const char* const nullText = nullptr;
    logger().clear();
    write("%@/%d %d %lld %lu", nullText, nullText, 2.9, -2.9, std::nan(""));
    EXPECT_EQ(texts(logger().lines()), Strings{"(null)/(null) 2 -2 0"});
}

TEST(ZMEmulatedLogger, ValuesAreCompactJSONUpToSixtyFourLevelsAndCutShortBelow) {
    // Up to the limit, the text is exactly what the JSON library writes.
    const ZMValue withinLimit[] = {
        ZMValue::array({nullptr, true, false, 0, -1, kMin, kUMax}),
        ZMValue::array({0.1, 3.0, -0.0, 1e300, 5e-324, std::nan(""), -HUGE_VAL}),
        ZMValue{{"q\"b\\s/\b\f\n\r\t\x01\x1f\x7f", "\xC3\xA9\xF0\x9F\x98\x80"}, {"", ZMValue::object()}},
        ZMValue{{"bad\xFF", "a\xC3"}, {"k", ZMValue::array({"\xED\xA0\x80", "x\xF8y"})}},
        ZMValue{{"bytes", ZMValue::binary({1, 2, 255})}, {"empty", ZMValue::array()}},
        nestedValue(64, false),
        nestedValue(62, true, ZMValue::array({1, ZMValue::object()})),  // 64 levels
    };
    for (const auto& value : withinLimit) {
        const std::string expected = value.dump(-1, ' ', false, ZMValue::error_handler_t::replace);
        EXPECT_EQ(ZMEmulatedValueText::compactJSON(value), expected);
        EXPECT_EQ(ZMEmulatedLogger::render("%@", {value}), expected);
    }
    // Below level 64 an array or dictionary becomes "…"; scalars at level 64
    // are still written, and shallow siblings of a deep branch are whole.
    const struct { const char* name; ZMValue value; std::string expected; } cut[] = {
        {"65 arrays", nestedValue(64, false, ZMValue::array()), cutShortText(64, false)},
        {"65 dictionaries", nestedValue(64, true, ZMValue::object()), cutShortText(64, true)},
        {"10,000 arrays", nestedValue(10000, false), cutShortText(64, false)},
        {"10,000 dictionaries", nestedValue(10000, true), cutShortText(64, true)},
        {"scalar at level 64", nestedValue(64, false, 7), std::string(64, '[') + "7" + std::string(64, ']')},
        {"deep branch beside shallow ones", ZMValue{{"a", 1}, {"deep", nestedValue(100, false)}, {"z", {2}}},
         std::string(R"({"a":1,"deep":)") + cutShortText(63, false) + R"(,"z":[2]})"},
    };
    for (const auto& row : cut) {
        EXPECT_EQ(ZMEmulatedValueText::compactJSON(row.value), row.expected) << row.name;
        // Through the logger, which takes the value by reference (a copy would recurse 10,000 deep).
        logger().clear();
        write("v=%@", row.value);
        EXPECT_EQ(texts(logger().lines()), Strings{"v=" + row.expected}) << row.name;
    }
}

TEST(ZMEmulatedLogger, KeepsTheNewestLinesUpToItsCapacity) {
    EXPECT_EQ(logger().lineCapacity(), 10000u);
    int next = 1;
    auto add = [&](int count) {
        for (int i = 0; i < count; ++i, ++next) ZMFwLog::getInstance().write(4, 1, next % 2 ? "odd" : "ev", "%d", next);
    };
    auto capacity = [](size_t lines) { logger().setLineCapacity(lines); };
    const struct { const char* step; std::function<void()> act; Strings kept; } steps[] = {
        {"capacity 3, five lines", [&] { capacity(3); add(5); }, {"3", "4", "5"}},
        {"a sixth turns the buffer round", [&] { add(1); }, {"4", "5", "6"}},
        {"clear, then one", [&] { logger().clear(); add(1); }, {"7"}},
        {"three more", [&] { add(3); }, {"8", "9", "10"}},
        {"lowered to 2: the oldest drop out", [&] { capacity(2); }, {"9", "10"}},
        {"raised to 4: grows, then turns round", [&] { capacity(4); add(3); }, {"10", "11", "12", "13"}},
        {"raised again while turned round", [&] { capacity(5); add(2); }, {"11", "12", "13", "14", "15"}},
        {"0 keeps none", [&] { capacity(0); add(1); }, {}},
        {"back to the default", [&] { capacity(ZMEmulatedLogger::kDefaultLineCapacity); add(1); }, {"17"}},
    };
    for (const auto& step : steps) {
        step.act();
        EXPECT_EQ(texts(logger().lines()), step.kept) << step.step;
        Strings odd;
        for (const auto& text : step.kept) if (std::stoi(text) % 2) odd.push_back(text);
        EXPECT_EQ(texts(logger().linesWithTag("odd")), odd) << step.step;
    }
    EXPECT_EQ(logger().lines().back(), (ZMLogLine{4, 1, "odd", "17"}));
}

TEST(ZMEmulatedLogger, ObserverConsoleAndRecordingSwitchEachGetTheLinesTheyWant) {
    FILE* console = std::tmpfile();
    ASSERT_NE(console, nullptr);
    logger().setConsoleStream(console);
    logger().setConsoleLevel(4);
    // An observer that writes a line of its own while it still reads the line it was given.
    Strings observed;
    logger().setLineObserver([&](const ZMLogLine& line) {
        const std::string before = line.text;
        if (before == "outer 1") write("inner %@", std::string(40, 'i'));
        observed.push_back(before + "|" + line.text + "|" + numbered("", line.level) + numbered("/", line.type));
    });
    write("outer %d", 1);
    const std::string inner = "inner " + std::string(40, 'i');
    EXPECT_EQ(observed, (Strings{inner + "|" + inner + "|4/1", "outer 1|outer 1|4/1"}));
    EXPECT_EQ(texts(logger().lines()), (Strings{"outer 1", inner}));

    logger().clear();
    EXPECT_TRUE(logger().isRecording());
    logger().setRecording(false);
    EXPECT_FALSE(logger().isRecording());
    write("printed %@", ZMValue::array({1}));
    ZMFwLog::getInstance().write(6, 1024, "T", "observed %@", 3);  // above the console level
    logger().setLineObserver(nullptr);
    ZMFwLog::getInstance().write(6, 1024, "T", "unwanted %@", 2);   // wanted by nobody
    logger().setRecording(true);
    ZMFwLog::getInstance().write(6, 1024, "T", "kept again");
    EXPECT_EQ(texts(logger().lines()), Strings{"kept again"});
    EXPECT_EQ(observed.size(), 4u);
    EXPECT_EQ(observed.back(), "observed 3|observed 3|6/1024");
    logger().setConsoleStream(stderr);
    std::rewind(console);
    char printed[512] = {};
    const size_t read = std::fread(printed, 1, sizeof printed - 1, console);
    std::fclose(console);
    EXPECT_EQ(std::string(printed, read), "[4][1][T] outer 1\n[4][1][T] " + inner + "\n[4][1][T] printed [1]\n");
}

TEST(ZMEmulatedLogger, ConcurrentWritersLoseNoLineAndTheObserverRunsOutsideTheLock) {
    std::atomic<size_t> observed{0};
    logger().setLineObserver([&](const ZMLogLine&) {
        // Reading the logger here would deadlock under the lock; every line observed is recorded already,
        // so the record holds at least as many lines as observer calls have begun (counted first).
        const size_t begun = ++observed;
        EXPECT_GE(logger().lines().size(), begun);
    });
    constexpr int kThreads = 4, kLines = 250;
    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t) {
        writers.emplace_back([t] {
            const std::string tag = numbered("T", t);
            for (int i = 0; i < kLines; ++i) ZMFwLog::getInstance().write(4, t, tag, "%@:%d", i % 2 == 0, i);
        });
    }
    for (auto& writer : writers) writer.join();
    for (int t = 0; t < kThreads; ++t) {
        const auto lines = logger().linesWithTag(numbered("T", t));
        ASSERT_EQ(lines.size(), size_t(kLines));
        for (int i = 0; i < kLines; ++i) {
            EXPECT_EQ(lines[i], (ZMLogLine{4, t, numbered("T", t), (i % 2 == 0 ? "1:" : "0:") + std::to_string(i)}));
        }
    }
    logger().setLineObserver(nullptr);  // removed: no longer called
    write("after");
    EXPECT_EQ(observed.load(), size_t(kThreads * kLines));
}

TEST(ZMDictionaryReaders, ReadEveryKindOfValueAndCheckKeys) {
    const ZMValue dict = {{"text", "hello"}, {"int", 42},         {"negFloat", -2.9}, {"half", 0.5},
                          {"true", true},    {"huge", 1e30},      {"negHuge", -1e30}, {"umax", kUMax},
                          {"array", {1, 2}}, {"dict", {{"a", 1}}}, {"null", nullptr}, {"badUtf8", "a\xff"}};
    // Every reader's answer for a key: string|mixString|integer|longLong|unsigned|bool|array|dictionary,
    // "-" for no text.
    auto readAll = [](const ZMValue& d, const char* key) {
        return zmlib_stringForKey(d, key).value_or("-") + "|" + zmlib_mix_stringForKey(d, key).value_or("-") +
               numbered("|", zmlib_integerForKey(d, key)) + numbered("|", zmlib_longLongIntForKey(d, key)) + "|" +
               std::to_string(zmlib_unsignedIntegerForKey(d, key)) + numbered("|", zmlib_boolForKey(d, key)) + "|" +
               zmlib_arrayForKey(d, key).dump() + "|" + zmlib_dictionaryForKey(d, key).dump();
    };
    const std::pair<const char*, std::string> rows[] = {
        {"text", "hello|hello|0|0|0|0|null|null"},
        {"int", "-|42|42|42|42|1|null|null"},
        {"negFloat", "-|-2.9|-2|-2|0|1|null|null"},
        {"half", "-|0.5|0|0|0|1|null|null"},
        {"true", "-|1|1|1|1|1|null|null"},
        {"huge", "-|1e+30|9223372036854775807|9223372036854775807|18446744073709551615|1|null|null"},
        {"negHuge", "-|-1e+30|-9223372036854775808|-9223372036854775808|0|1|null|null"},
        {"umax", "-|18446744073709551615|9223372036854775807|9223372036854775807|18446744073709551615|1|null|null"},
        {"array", "-|-|0|0|0|0|[1,2]|null"},
        {"dict", R"(-|-|0|0|0|0|null|{"a":1})"},
        {"null", "-|-|0|0|0|0|null|null"},
        {"badUtf8", "-|-|0|0|0|0|null|null"},
        {"missing", "-|-|0|0|0|0|null|null"},
    };
    for (const auto& [key, expected] : rows) EXPECT_EQ(readAll(dict, key), expected) << key;
    // A receiver that is no dictionary answers nothing.
    for (const ZMValue& receiver : {ZMValue(), ZMValue("text"), ZMValue::array({"text"})}) {
        EXPECT_EQ(readAll(receiver, "text"), "-|-|0|0|0|0|null|null") << receiver.dump();
    }
    const std::pair<std::string, bool> keys[] = {
        {"abcXYZ019", true}, {"_-+=.", true}, {"", true},        {"a b", false}, {"a/b", false},
        {"key!", false},     {"ключ", false}, {"a\xff", false}, {std::string("a\0b", 3), false},
    };
    for (const auto& [key, legal] : keys) EXPECT_EQ(ZMUtilities::checkChatroomKey(key), legal) << key;
}

}  // namespace
