#include "ZMDemoConsole.h"

#include <algorithm>
#include <cstdio>

#include <Platform/ZMMainQueue.h>

ZMDemoConsole::ZMDemoConsole() : start_(std::chrono::steady_clock::now()) {}

double ZMDemoConsole::elapsedLocked() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void ZMDemoConsole::printLocked(const std::string& source, const std::string& text) {
    const double elapsed = elapsedLocked();
    // Continuation lines line up under the text of the first one.
    std::string indented;
    for (char character : text) {
        indented += character;
        if (character == '\n') indented += std::string(19, ' ');
    }
    std::printf("[%6.3fs] %-8s %s\n", elapsed, source.c_str(), indented.c_str());
    std::fflush(stdout);
}

void ZMDemoConsole::chapter(const std::string& title) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::printf("[%6.3fs] == %zu. %s\n", elapsedLocked(), ++chapters_, title.c_str());
    std::fflush(stdout);
}

void ZMDemoConsole::say(const std::string& source, const std::string& text) {
    std::lock_guard<std::mutex> lock(mutex_);
    printLocked(source, text);
}

void ZMDemoConsole::event(const std::string& source, const std::string& kind, const std::string& room,
                          const std::string& text) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        printLocked(source, text);
        if (counts_.find(kind) == counts_.end()) kindOrder_.push_back(kind);
        ++counts_[kind];
        if (!room.empty()) ++counts_[kind + "@" + room];
    }
    // An empty task: the main thread, waiting in waitFor, tests its
    // condition again after it.
    ZMMainQueue::shared().async([] {});
}

void ZMDemoConsole::logLine(const ZMLogLine& line) {
    std::lock_guard<std::mutex> lock(mutex_);
    printLocked("log", std::to_string(line.level) + " " + line.tag + ": " + line.text);
}

void ZMDemoConsole::plain(const std::string& text) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

size_t ZMDemoConsole::count(const std::string& kind, const std::string& room) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = counts_.find(room.empty() ? kind : kind + "@" + room);
    return found == counts_.end() ? 0 : found->second;
}

std::vector<std::pair<std::string, size_t>> ZMDemoConsole::tally(const std::vector<std::string>& preferredOrder) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::pair<std::string, size_t>> tally;
    for (const auto& kind : preferredOrder) {
        if (auto found = counts_.find(kind); found != counts_.end()) tally.emplace_back(kind, found->second);
    }
    for (const auto& kind : kindOrder_) {
        if (std::find(preferredOrder.begin(), preferredOrder.end(), kind) == preferredOrder.end()) {
            tally.emplace_back(kind, counts_.at(kind));
        }
    }
    return tally;
}

bool ZMDemoConsole::waitFor(const std::string& what, const std::function<bool()>& done, double timeoutSeconds) {
    if (ZMMainQueue::shared().runUntil(done, timeoutSeconds)) return true;
    reportTimeout(what, timeoutSeconds);
    return false;
}

void ZMDemoConsole::reportTimeout(const std::string& what, double timeoutSeconds) {
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.1f", timeoutSeconds);
    std::lock_guard<std::mutex> lock(mutex_);
    sawTimeout_ = true;
    printLocked("!!", std::string("timed out after ") + seconds + " s waiting for " + what);
}

bool ZMDemoConsole::sawTimeout() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return sawTimeout_;
}
