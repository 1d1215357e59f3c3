#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "emulator_tests/ZMEmulatorTestDoubles.h"

namespace {

TEST(ZMEmulatedLogger, RendersEveryPlaceholderAndValueKind) {
    const struct {
        const char* format;
        std::vector<ZMValue> args;
        std::string expected;
    } rows[] = {
        {"%@|%@|%@|%@|%@|%@", {"text", true, false, 42, -7, ~uint64_t{0}}, "text|1|0|42|-7|18446744073709551615"},
        {"%@ %@ %@ %@", {2.5, 3.0, 0.1, 1e20}, "2.5 3 0.1 1e+20"},
        {"%@ %@ %@ %@", {nullptr, ZMValue::array({1, "a", nullptr, 2.5}), {{"b", 1}, {"a", {true}}}, ZMValue::object()},
         R"((null) [1,"a",null,2.5] {"a":[true],"b":1} {})"},
        // Text that is not UTF-8 inside a container is written with replacement characters.
        {"%@ %@", {ZMValue::array({"a\xff"}), {{"k", "\xc3"}}}, "[\"a\xEF\xBF\xBD\"] {\"k\":\"\xEF\xBF\xBD\"}"},
        {"%d %d %lld %lld %lu %d %d %d", {5, 2.9, -2.9, int64_t{-9000000000}, uint64_t{7}, true, "x", ZMValue()},
         "5 2 -2 -9000000000 7 1 x (null)"},
        {"100%% %%%@%%", {"x"}, "100% %x%"},
        {"a:%@,b:%@ %d/%lu/%lld", {"1"}, "a:1,b:(null) (null)/(null)/(null)"},  // missing arguments
        {"plain %q %", {1, 2}, "plain %q %"},  // surplus arguments, no placeholder
        {"", {}, ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ZMEmulatedLogger::render(row.format, row.args), row.expected) << row.format;
    }
}

TEST(ZMEmulatedLogger, ConcurrentWritersThroughTheCoreLoggerLoseNoLineAndTheObserverRunsOutsideTheLock) {
    auto& logger = emulator().logger();
    std::atomic<size_t> observed{0};
    logger.setLineObserver([&](const ZMLogLine&) {
        const size_t seen = ++observed;
        // Reading the logger from its observer would deadlock under the lock;
        // every line observed so far is recorded already.
        EXPECT_GE(logger.lines().size(), seen);
    });
    constexpr int kThreads = 4;
    constexpr int kLines = 250;
    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t) {
        writers.emplace_back([t] {
            const std::string tag = numbered("T", t);
            for (int i = 0; i < kLines; ++i) ZMFwLog::getInstance().write(4, t, tag, "%@:%d", i % 2 == 0, i);
        });
    }
    for (auto& writer : writers) writer.join();
    for (int t = 0; t < kThreads; ++t) {
        const std::string tag = numbered("T", t);
        const auto lines = logger.linesWithTag(tag);
        ASSERT_EQ(lines.size(), static_cast<size_t>(kLines));
        for (int i = 0; i < kLines; ++i) {
            EXPECT_EQ(lines[size_t(i)], (ZMLogLine{4, t, tag, (i % 2 == 0 ? "1:" : "0:") + std::to_string(i)}));
        }
    }
    logger.setLineObserver(nullptr);  // removed: no longer called
    logger.writeLine(4, 1, "T", "after", {});
    EXPECT_EQ(observed.load(), static_cast<size_t>(kThreads * kLines));  // every line but the last
}

}  // namespace
