#pragma once

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <CoreEmulator/ZMLogLine.h>
#include <VemoIMLibCore/ZMFwLog.h>

// The emulator's logger: records lines for tests in a bounded buffer, prints
// them to a console stream when their level is at or below the console
// threshold (lower levels are more severe: 2 failures, 3 exceptions,
// 4 operations, 6 diagnostics) and hands them to a line observer. A line is
// rendered only when one of the three wants it, into storage reused from line
// to line, so a steady stream of lines does not allocate. Concurrent calls
// are safe.
class ZMEmulatedLogger : public ZMFwLog {
public:
    // How many lines are kept unless setLineCapacity says otherwise.
    static constexpr size_t kDefaultLineCapacity = 10000;

    void writeLine(int32_t level, int32_t type, std::string_view tag, std::string_view format,
                   ZMFwLogArguments args) override;

    // Renders a format with its arguments as ZMFwLog describes (values nested
    // deeper than ZMEmulatedValueText::kRenderDepthLimit are cut short).
    static std::string render(std::string_view format, ZMFwLogArguments args);
    static std::string render(std::string_view format, const std::vector<ZMValue>& args);
    // The same, appended to text.
    static void renderInto(std::string& text, std::string_view format, ZMFwLogArguments args);

    // The lines recorded since the last clear that are still kept (the newest
    // lineCapacity() of them), in writing order.
    std::vector<ZMLogLine> lines() const;
    // The kept lines that carry this tag.
    std::vector<ZMLogLine> linesWithTag(const std::string& tag) const;
    void clear();

    // Recording is on initially. Off, lines are neither rendered nor kept for
    // lines() (what is kept stays), and a line costs a few loads unless the
    // console or the line observer wants it.
    void setRecording(bool recording);
    bool isRecording() const;
    // How many lines are kept at most; the oldest drop out first. Lowering it
    // drops the oldest kept lines at once; 0 keeps none (and then nothing is
    // rendered for the record).
    void setLineCapacity(size_t capacity);
    size_t lineCapacity() const;

    // Prints lines with level <= threshold to the stream (stderr by default);
    // a negative threshold (the default) prints nothing.
    void setConsoleLevel(int threshold);
    void setConsoleStream(FILE* stream);
    // Called for every line after it is recorded, outside the logger's lock
    // (for example by the demo to show lines as they come). Empty to remove.
    void setLineObserver(std::function<void(const ZMLogLine&)> observer);

private:
    using Observer = std::function<void(const ZMLogLine&)>;

    // Keeps a copy of the line in the buffer, reusing the oldest slot's
    // storage once the buffer is full; the caller holds mutex_.
    void keepLocked(const ZMLogLine& line);
    // The kept line at a position, 0 being the oldest; the caller holds mutex_.
    const ZMLogLine& keptLocked(size_t position) const;

    mutable std::mutex mutex_;
    // The buffer: slots_ grows up to lineCapacity_ and then turns round;
    // the kept lines are keptCount_ slots from firstKept_ on.
    std::vector<ZMLogLine> slots_;
    size_t firstKept_ = 0;
    size_t keptCount_ = 0;
    // Read without the lock to tell whether a line is wanted at all; written
    // under it.
    std::atomic<size_t> lineCapacity_{kDefaultLineCapacity};
    std::atomic<bool> recording_{true};
    std::atomic<int> consoleLevel_{-1};
    std::atomic<bool> hasObserver_{false};
    FILE* consoleStream_ = stderr;
    // Shared, so that a line takes it out of the lock without copying it.
    std::shared_ptr<const Observer> observer_;
};
