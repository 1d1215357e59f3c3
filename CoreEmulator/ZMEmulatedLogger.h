#pragma once

#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <CoreEmulator/ZMLogLine.h>
#include <VemoIMLibCore/ZMFwLog.h>

// The emulator's logger: renders each line, records it for tests and prints
// it to a console stream when its level is at or below the console threshold
// (lower levels are more severe: 2 failures, 3 exceptions, 4 operations,
// 6 diagnostics). Concurrent calls are safe.
class ZMEmulatedLogger : public ZMFwLog {
public:
    void writeLine(int32_t level, int32_t type, std::string_view tag, std::string_view format,
                   const std::vector<ZMValue>& args) override;

    // Renders a format with its arguments as ZMFwLog describes.
    static std::string render(std::string_view format, const std::vector<ZMValue>& args);

    // Every line recorded since the last clear, in writing order.
    std::vector<ZMLogLine> lines() const;
    // The recorded lines that carry this tag.
    std::vector<ZMLogLine> linesWithTag(const std::string& tag) const;
    void clear();

    // Prints lines with level <= threshold to the stream (stderr by default);
    // a negative threshold (the default) prints nothing.
    void setConsoleLevel(int threshold);
    void setConsoleStream(FILE* stream);
    // Called for every line after it is recorded, outside the logger's lock
    // (for example by the demo to show lines as they come). Empty to remove.
    void setLineObserver(std::function<void(const ZMLogLine&)> observer);

private:
    mutable std::mutex mutex_;
    std::vector<ZMLogLine> lines_;
    int consoleLevel_ = -1;
    FILE* consoleStream_ = stderr;
    std::function<void(const ZMLogLine&)> observer_;
};
