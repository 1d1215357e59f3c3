#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <CoreEmulator/ZMLogLine.h>

// The demo's console: one line per event, each with the time since the demo
// started, and a tally of the observed events.
//
// Any thread may write to it (observers run on the notify queue, callbacks on
// the core's threads). Every observed event also wakes the main queue, so
// that the main thread, which waits by driving the main queue with a
// condition (waitFor), looks at the condition again.
class ZMDemoConsole {
public:
    ZMDemoConsole();

    // A chapter heading of the story, numbered.
    void chapter(const std::string& title);
    // A line the story writes itself: what the app, the server or the core
    // does. Not counted.
    void say(const std::string& source, const std::string& text);
    // Something the app observed (an observer call or a result callback):
    // printed, counted under kind and under kind@room, and the main queue is
    // woken. Text may span several lines; they are printed together.
    void event(const std::string& source, const std::string& kind, const std::string& room, const std::string& text);
    // A line of the module's log (see --log-level). Not counted.
    void logLine(const ZMLogLine& line);
    // Text without a time stamp (the banner and the summary).
    void plain(const std::string& text);

    // How many events of kind (for one room when room is not empty) were
    // observed so far.
    size_t count(const std::string& kind, const std::string& room = "") const;
    // The event tally: the kinds of preferredOrder that were seen, in that
    // order, then the others in the order they were first seen.
    std::vector<std::pair<std::string, size_t>> tally(const std::vector<std::string>& preferredOrder) const;

    // Drives the main queue in real time until done() holds; on timeout a
    // line says what did not happen and the demo will exit with 1.
    bool waitFor(const std::string& what, const std::function<bool()>& done, double timeoutSeconds = 5);
    // Says that something awaited did not happen; the demo will exit with 1.
    void reportTimeout(const std::string& what, double timeoutSeconds);
    bool sawTimeout() const;

private:
    double elapsedLocked() const;
    void printLocked(const std::string& source, const std::string& text);

    const std::chrono::steady_clock::time_point start_;
    mutable std::mutex mutex_;
    std::map<std::string, size_t> counts_;
    std::vector<std::string> kindOrder_;
    size_t chapters_ = 0;
    bool sawTimeout_ = false;
};
