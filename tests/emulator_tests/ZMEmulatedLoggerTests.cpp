#include <cstdio>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "emulator_tests/ZMEmulatorTestDoubles.h"

namespace {

struct RenderRow {
    const char* format;
    std::vector<ZMValue> args;
    std::string expected;
};

TEST(ZMEmulatedLogger, RendersEveryPlaceholderAndValueKind) {
    const RenderRow rows[] = {
        {"%@", {"text"}, "text"},
        {"%@", {true}, "1"},
        {"%@", {false}, "0"},
        {"%@", {42}, "42"},
        {"%@", {-7}, "-7"},
        {"%@", {std::numeric_limits<uint64_t>::max()}, "18446744073709551615"},
        {"%@", {2.5}, "2.5"},
        {"%@", {3.0}, "3"},
        {"%@", {0.1}, "0.1"},
        {"%@", {1e20}, "1e+20"},
        {"%@", {ZMValue()}, "(null)"},
        {"%@", {ZMValue::array({1, "a", nullptr, 2.5})}, R"([1,"a",null,2.5])"},
        {"%@", {ZMValue({{"b", 1}, {"a", {true}}})}, R"({"a":[true],"b":1})"},
        {"%@", {ZMValue::object()}, "{}"},
        {"%@", {ZMValue::array({std::string("a\xff")})}, "[\"a\xEF\xBF\xBD\"]"},
        {"%@", {ZMValue({{"k", std::string("\xc3")}})}, "{\"k\":\"\xEF\xBF\xBD\"}"},
        {"%d", {5}, "5"},
        {"%d", {2.9}, "2"},
        {"%lld", {-2.9}, "-2"},
        {"%lld", {int64_t{-9000000000}}, "-9000000000"},
        {"%lu", {uint64_t{7}}, "7"},
        {"%d", {true}, "1"},
        {"%d", {"x"}, "x"},
        {"%d", {ZMValue()}, "(null)"},
        {"100%%", {}, "100%"},
        {"%%%@%%", {"x"}, "%x%"},
        {"a:%@,b:%@", {"1"}, "a:1,b:(null)"},
        {"%d/%lu/%lld", {}, "(null)/(null)/(null)"},
        {"plain", {1, 2}, "plain"},
        {"%q %", {"unused"}, "%q %"},
        {"room_id:%@,code:%@,count:%d", {"r1", 0, 3}, "room_id:r1,code:0,count:3"},
        {"", {}, ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ZMEmulatedLogger::render(row.format, row.args), row.expected) << row.format;
    }
}

TEST(ZMEmulatedLogger, RecordsLinesWrittenThroughTheCoreLogger) {
    auto& logger = ZMCoreEmulator::shared().logger();
    ASSERT_EQ(&ZMFwLog::getInstance(), &logger);
    logger.clear();
    ZMFwLog::getInstance().write(4, 1, "A-join_chatroom-T", "room_id:%@,existed:%@", std::string("r1"), false);
    ZMFwLog::getInstance().write(6, 1024, "File.cpp", "count:%d", 3);
    const std::vector<ZMLogLine> expected = {{4, 1, "A-join_chatroom-T", "room_id:r1,existed:0"},
                                             {6, 1024, "File.cpp", "count:3"}};
    EXPECT_EQ(logger.lines(), expected);
    EXPECT_EQ(logger.linesWithTag("File.cpp"), std::vector<ZMLogLine>{expected[1]});
    logger.clear();
    EXPECT_TRUE(logger.lines().empty());
}

std::string consoleOutputFor(int threshold) {
    ZMEmulatedLogger logger;
    FILE* stream = std::tmpfile();
    if (stream == nullptr) return "no temporary file";
    logger.setConsoleStream(stream);
    logger.setConsoleLevel(threshold);
    for (int level : {2, 4, 6}) logger.writeLine(level, 1, "T", "level %d", {level});
    std::rewind(stream);
    std::string text;
    for (int c = std::fgetc(stream); c != EOF; c = std::fgetc(stream)) text += static_cast<char>(c);
    std::fclose(stream);
    return text;
}

TEST(ZMEmulatedLogger, ConsolePrintsLinesAtOrBelowTheThreshold) {
    EXPECT_EQ(consoleOutputFor(-1), "");
    EXPECT_EQ(consoleOutputFor(4), "[2][1][T] level 2\n[4][1][T] level 4\n");
    EXPECT_EQ(consoleOutputFor(6), "[2][1][T] level 2\n[4][1][T] level 4\n[6][1][T] level 6\n");
}

TEST(ZMEmulatedLogger, ObserverRunsOutsideTheLockAndCanBeRemoved) {
    ZMEmulatedLogger logger;
    std::vector<std::string> seen;
    logger.setLineObserver([&](const ZMLogLine& line) {
        // Reading the logger from its observer would deadlock under the lock.
        seen.push_back(line.text + "/" + std::to_string(logger.lines().size()));
    });
    logger.writeLine(4, 1, "T", "one", {});
    logger.writeLine(4, 1, "T", "two", {});
    logger.setLineObserver(nullptr);
    logger.writeLine(4, 1, "T", "three", {});
    EXPECT_EQ(seen, (std::vector<std::string>{"one/1", "two/2"}));
    EXPECT_EQ(logger.lines().size(), 3u);
}

TEST(ZMEmulatedLogger, ConcurrentWritersLoseNoLineAndKeepTheirOwnOrder) {
    ZMEmulatedLogger logger;
    ZMEventRecorder observed;
    logger.setLineObserver([&](const ZMLogLine& line) { observed.record(line.text); });
    constexpr int kThreads = 4;
    constexpr int kLines = 250;
    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t) {
        writers.emplace_back([&logger, t] {
            for (int i = 0; i < kLines; ++i) logger.writeLine(4, 1, "T" + std::to_string(t), "%d", {i});
        });
    }
    for (auto& writer : writers) writer.join();
    EXPECT_EQ(observed.count(), static_cast<size_t>(kThreads * kLines));
    for (int t = 0; t < kThreads; ++t) {
        const auto lines = logger.linesWithTag("T" + std::to_string(t));
        ASSERT_EQ(lines.size(), static_cast<size_t>(kLines));
        for (int i = 0; i < kLines; ++i) EXPECT_EQ(lines[static_cast<size_t>(i)].text, std::to_string(i));
    }
}

}  // namespace
