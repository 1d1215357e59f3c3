// The logger's argument views, its bounded rendering of nested values, its
// bounded line buffer and its recording switch.
#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <CoreEmulator/ZMEmulatedValueText.h>

#include "emulator_tests/ZMEmulatorTestDoubles.h"
#include "support/ZMNestedValues.h"

namespace {

ZMEmulatedLogger& logger() { return emulator().logger(); }

std::vector<std::string> texts(const std::vector<ZMLogLine>& lines) {
    std::vector<std::string> result;
    for (const auto& line : lines) result.push_back(line.text);
    return result;
}

enum SignedCode : int32_t { kSignedCode = -34210 };
enum class UnsignedCode : uint16_t { kValue = 65535 };

// Every argument type a call site passes renders exactly as the ZMValue made
// of it renders, under each placeholder; the views copy nothing.
TEST(ZMEmulatedLoggerArguments, EveryArgumentTypeRendersAsTheValueMadeOfIt) {
    const std::string text = "text";
    const char* const nullText = nullptr;
    const struct {
        const char* name;
        std::function<void(std::string_view)> write;  // writes the format with the argument
        ZMValue value;                                // the argument as a ZMValue
        std::string objectText;                       // what "%@" shows
    } rows[] = {
        {"std::string", [&](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, text); }, text, "text"},
        {"string_view", [&](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, std::string_view("ab\0c", 4)); },
         std::string("ab\0c", 4), std::string("ab\0c", 4)},
        {"literal", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, "lit"); }, "lit", "lit"},
        {"const char*", [&](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, text.c_str()); }, text, "text"},
        {"bool", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, true); }, true, "1"},
        {"int32_t", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, int32_t{-7}); }, -7, "-7"},
        {"int64_t min", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, std::numeric_limits<int64_t>::min()); },
         std::numeric_limits<int64_t>::min(), "-9223372036854775808"},
        {"uint64_t max", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, ~uint64_t{0}); }, ~uint64_t{0},
         "18446744073709551615"},
        {"size_t", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, size_t{128}); }, size_t{128}, "128"},
        {"signed char", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, static_cast<signed char>(-5)); },
         static_cast<signed char>(-5), "-5"},
        {"unsigned short", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, static_cast<unsigned short>(9)); },
         static_cast<unsigned short>(9), "9"},
        {"signed enum", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, kSignedCode); }, kSignedCode,
         "-34210"},
        {"unsigned enum", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, UnsignedCode::kValue); },
         UnsignedCode::kValue, "65535"},
        {"double", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, -2.9); }, -2.9, "-2.9"},
        {"integral double", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, 3.0); }, 3.0, "3"},
        {"float", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, 0.1f); }, 0.1f, "0.10000000149011612"},
        {"NaN", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, std::nan("")); }, std::nan(""), "nan"},
        {"huge double", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, 1e30); }, 1e30, "1e+30"},
        {"nullptr", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, nullptr); }, nullptr, "(null)"},
        {"ZMValue dictionary", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, ZMValue{{"b", 1}, {"a", "x"}}); },
         ZMValue{{"b", 1}, {"a", "x"}}, R"({"a":"x","b":1})"},
        {"ZMValue number", [](auto f) { ZMFwLog::getInstance().write(4, 1, "A", f, ZMValue(2.5)); }, 2.5, "2.5"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        for (const char* format : {"<%@>", "<%d>", "<%lu>", "<%lld>"}) {
            logger().clear();
            row.write(format);
            const auto lines = logger().lines();
            ASSERT_EQ(lines.size(), 1u) << format;
            EXPECT_EQ(lines[0].text, ZMEmulatedLogger::render(format, std::vector<ZMValue>{row.value})) << format;
            if (std::string_view(format) == "<%@>") {
                EXPECT_EQ(lines[0].text, std::string("<") + row.objectText + ">");
            }
        }
    }
    // A null const char* is an absent value (a ZMValue cannot be made of it).
    logger().clear();
    ZMFwLog::getInstance().write(4, 1, "A", "%@/%d", nullText, nullText);
    EXPECT_EQ(texts(logger().lines()), std::vector<std::string>{"(null)/(null)"});
    // Non-integral numbers under the integer placeholders, typed and as values.
    logger().clear();
    ZMFwLog::getInstance().write(4, 1, "A", "%d %lld %lu %d", 2.9, -2.9, std::nan(""), ZMValue(-1e30));
    EXPECT_EQ(texts(logger().lines()), std::vector<std::string>{"2 -2 0 -9223372036854775808"});
}

TEST(ZMEmulatedLoggerRendering, ValuesAreCompactJSONUpToSixtyFourLevelsAndCutShortBelow) {
    // Up to the limit, the text is exactly what the JSON library writes.
    const ZMValue withinLimit[] = {
        ZMValue::array({nullptr, true, false, 0, -1, std::numeric_limits<int64_t>::min(), ~uint64_t{0}}),
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
        EXPECT_EQ(ZMEmulatedLogger::render("%@", std::vector<ZMValue>{value}), expected);
    }

    // Below level 64 an array or dictionary becomes "…"; scalars at level 64
    // are still written, and shallow siblings of a deep branch are whole.
    const struct {
        const char* name;
        ZMValue value;
        std::string expected;
    } cutRows[] = {
        {"65 arrays", nestedValue(64, false, ZMValue::array()), cutShortText(64, false)},
        {"65 dictionaries", nestedValue(64, true, ZMValue::object()), cutShortText(64, true)},
        {"10,000 arrays", nestedValue(10000, false), cutShortText(64, false)},
        {"10,000 dictionaries", nestedValue(10000, true), cutShortText(64, true)},
        {"scalar at level 64", nestedValue(64, false, 7), std::string(64, '[') + "7" + std::string(64, ']')},
        {"deep branch beside shallow ones",
         ZMValue{{"a", 1}, {"deep", nestedValue(100, false)}, {"z", ZMValue::array({2})}},
         std::string(R"({"a":1,"deep":)") + cutShortText(63, false) + R"(,"z":[2]})"},
    };
    for (const auto& row : cutRows) {
        EXPECT_EQ(ZMEmulatedValueText::compactJSON(row.value), row.expected) << row.name;
        // Through the logger, which takes the value by reference (a copy would recurse 10,000 deep).
        logger().clear();
        ZMFwLog::getInstance().write(4, 1, "T", "v=%@", row.value);
        EXPECT_EQ(texts(logger().lines()), std::vector<std::string>{std::string("v=") + row.expected}) << row.name;
    }
}

TEST(ZMEmulatedLoggerBuffer, KeepsTheNewestLinesUpToItsCapacity) {
    EXPECT_EQ(logger().lineCapacity(), ZMEmulatedLogger::kDefaultLineCapacity);
    EXPECT_EQ(ZMEmulatedLogger::kDefaultLineCapacity, 10000u);
    int next = 1;
    auto write = [&](int count) {
        for (int i = 0; i < count; ++i, ++next) ZMFwLog::getInstance().write(4, 1, next % 2 ? "odd" : "even", "%d", next);
    };
    const struct {
        const char* step;
        std::function<void()> act;
        std::vector<std::string> kept;
    } steps[] = {
        {"capacity 3, five lines", [&] { logger().clear(); logger().setLineCapacity(3); write(5); }, {"3", "4", "5"}},
        {"a sixth turns the buffer round", [&] { write(1); }, {"4", "5", "6"}},
        {"clear", [&] { logger().clear(); }, {}},
        {"one after the clear", [&] { write(1); }, {"7"}},
        {"three more", [&] { write(3); }, {"8", "9", "10"}},
        {"lowered to 2: the oldest drop out", [&] { logger().setLineCapacity(2); }, {"9", "10"}},
        {"raised to 4: kept lines stay", [&] { logger().setLineCapacity(4); }, {"9", "10"}},
        {"grows to the new capacity", [&] { write(2); }, {"9", "10", "11", "12"}},
        {"then turns round", [&] { write(1); }, {"10", "11", "12", "13"}},
        {"raised again while turned round", [&] { logger().setLineCapacity(5); write(2); },
         {"11", "12", "13", "14", "15"}},
        {"0 keeps none", [&] { logger().setLineCapacity(0); write(1); }, {}},
        {"back to the default", [&] { logger().setLineCapacity(ZMEmulatedLogger::kDefaultLineCapacity); write(1); },
         {"17"}},
    };
    for (const auto& step : steps) {
        step.act();
        EXPECT_EQ(texts(logger().lines()), step.kept) << step.step;
        std::vector<std::string> odd;
        for (const auto& text : step.kept) {
            if (std::stoi(text) % 2) odd.push_back(text);
        }
        EXPECT_EQ(texts(logger().linesWithTag("odd")), odd) << step.step;
    }
    EXPECT_EQ(logger().lines().back(), (ZMLogLine{4, 1, "odd", "17"}));
}

// A line observer that writes a line of its own while it still reads the
// line it was given.
TEST(ZMEmulatedLoggerBuffer, ALineWrittenFromTheObserverLeavesTheObservedLineIntact) {
    std::vector<std::string> observed;
    logger().setLineObserver([&](const ZMLogLine& line) {
        const std::string before = line.text;
        if (before == "outer 1") ZMFwLog::getInstance().write(4, 1, "T", "inner %@", std::string(40, 'i'));
        observed.push_back(before + "|" + line.text);
    });
    logger().clear();
    ZMFwLog::getInstance().write(4, 1, "T", "outer %d", 1);
    logger().setLineObserver(nullptr);
    const std::string inner = std::string("inner ") + std::string(40, 'i');
    EXPECT_EQ(observed, (std::vector<std::string>{inner + "|" + inner, "outer 1|outer 1"}));
    EXPECT_EQ(texts(logger().lines()), (std::vector<std::string>{"outer 1", inner}));
}

TEST(ZMEmulatedLoggerBuffer, RecordingOffKeepsNothingWhileTheConsoleAndTheObserverStillGetTheirLines) {
    FILE* console = std::tmpfile();
    ASSERT_NE(console, nullptr);
    logger().setConsoleStream(console);
    logger().setConsoleLevel(4);
    std::vector<ZMLogLine> observed;
    logger().clear();
    ZMFwLog::getInstance().write(4, 1, "T", "kept %@", 1);
    EXPECT_TRUE(logger().isRecording());

    logger().setRecording(false);
    EXPECT_FALSE(logger().isRecording());
    ZMFwLog::getInstance().write(4, 1, "T", "printed %@", ZMValue::array({1}));
    ZMFwLog::getInstance().write(6, 1024, "T", "unwanted %@", 2);  // neither printed nor observed nor kept
    logger().setLineObserver([&](const ZMLogLine& line) { observed.push_back(line); });
    ZMFwLog::getInstance().write(6, 1024, "T", "observed %@", 3);
    logger().setLineObserver(nullptr);
    logger().setRecording(true);
    ZMFwLog::getInstance().write(6, 1024, "T", "kept again");

    EXPECT_EQ(texts(logger().lines()), (std::vector<std::string>{"kept 1", "kept again"}));
    EXPECT_EQ(observed, (std::vector<ZMLogLine>{{6, 1024, "T", "observed 3"}}));
    logger().setConsoleStream(stderr);
    std::rewind(console);
    char printed[256] = {};
    const size_t read = std::fread(printed, 1, sizeof printed - 1, console);
    std::fclose(console);
    EXPECT_EQ(std::string(printed, read), "[4][1][T] kept 1\n[4][1][T] printed [1]\n");
}

}  // namespace
