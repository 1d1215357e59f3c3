#include <CoreEmulator/ZMEmulatedLogger.h>

#include <algorithm>
#include <optional>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <CoreEmulator/ZMEmulatedValueText.h>

namespace {

const char* const kNullText = "(null)";

// Lines that kept a slot's text longer than this do not pin that much memory
// in the slot: a short line written into it gets fresh storage.
constexpr size_t kSlotTextKeptBytes = 1024;
// A thread's own line gives back storage beyond this once a long line is done.
constexpr size_t kThreadTextKeptBytes = 64 * 1024;

// "%@" of a value: a string as it is, a boolean as 1/0, a number in decimal,
// null as "(null)", an array or dictionary (or a byte value) as compact JSON,
// cut short below the depth limit.
void appendValueObject(std::string& text, const ZMValue& value) {
    if (value.is_null()) {
        text += kNullText;
    } else if (value.is_string()) {
        text += value.get_ref<const std::string&>();
    } else if (value.is_boolean()) {
        text += value.get<bool>() ? '1' : '0';
    } else if (value.is_number_float()) {
        ZMEmulatedValueText::appendNumberText(text, value.get<double>());
    } else {
        // Integers read the same in JSON.
        ZMEmulatedValueText::appendCompactJSON(text, value);
    }
}

// "%@": each kind of argument as the ZMValue made of it would render.
void appendObject(std::string& text, const ZMFwLogArgument* argument) {
    if (argument == nullptr) {
        text += kNullText;
        return;
    }
    switch (argument->kind()) {
        case ZMFwLogArgument::Kind::Null:
            text += kNullText;
            return;
        case ZMFwLogArgument::Kind::String:
            text += argument->text();
            return;
        case ZMFwLogArgument::Kind::Signed:
            ZMEmulatedValueText::appendNumberText(text, argument->signedValue());
            return;
        case ZMFwLogArgument::Kind::Unsigned:
            ZMEmulatedValueText::appendNumberText(text, argument->unsignedValue());
            return;
        case ZMFwLogArgument::Kind::Boolean:
            text += argument->booleanValue() ? '1' : '0';
            return;
        case ZMFwLogArgument::Kind::Double:
            ZMEmulatedValueText::appendNumberText(text, argument->doubleValue());
            return;
        case ZMFwLogArgument::Kind::Value:
            appendValueObject(text, argument->value());
            return;
    }
}

// "%d", "%lu", "%lld": an integer as it is, any other number truncated toward
// zero (clamped to 64 bits), a boolean as 1/0. A value that is no number is
// rendered as "%@" would render it rather than dropped.
void appendInteger(std::string& text, const ZMFwLogArgument* argument) {
    std::optional<double> number;
    if (argument != nullptr && argument->kind() == ZMFwLogArgument::Kind::Double) {
        number = argument->doubleValue();
    } else if (argument != nullptr && argument->kind() == ZMFwLogArgument::Kind::Value &&
               argument->value().is_number_float()) {
        number = argument->value().get<double>();
    }
    if (number) {
        ZMEmulatedValueText::appendNumberText(text, ZMEmulatedValueText::truncatedSigned(*number));
    } else {
        appendObject(text, argument);
    }
}

// The line a write renders into: this thread's own, reused from line to line.
// A line written from inside a line observer (which still reads the outer
// line) is rendered into storage of its own.
thread_local ZMLogLine threadLine;
thread_local int threadWriteDepth = 0;

}  // namespace

ZMFwLog& ZMFwLog::getInstance() { return ZMCoreEmulator::shared().logger(); }

std::string ZMEmulatedLogger::render(std::string_view format, ZMFwLogArguments args) {
    std::string text;
    renderInto(text, format, args);
    return text;
}

std::string ZMEmulatedLogger::render(std::string_view format, const std::vector<ZMValue>& args) {
    const std::vector<ZMFwLogArgument> views(args.begin(), args.end());
    return render(format, ZMFwLogArguments(views));
}

void ZMEmulatedLogger::renderInto(std::string& text, std::string_view format, ZMFwLogArguments args) {
    text.reserve(text.size() + format.size());
    size_t nextArgument = 0;
    // A placeholder without an argument of its own renders as an absent value.
    auto takeArgument = [&]() -> const ZMFwLogArgument* {
        return nextArgument < args.size() ? &args[nextArgument++] : nullptr;
    };
    size_t i = 0;
    while (i < format.size()) {
        const char c = format[i];
        if (c != '%') {
            // Copies the run of plain text up to the next percent sign at once.
            const size_t end = std::min(format.find('%', i), format.size());
            text.append(format.data() + i, end - i);
            i = end;
            continue;
        }
        const std::string_view rest = format.substr(i + 1);
        if (rest.starts_with("@")) {
            appendObject(text, takeArgument());
            i += 2;
        } else if (rest.starts_with("lld")) {
            appendInteger(text, takeArgument());
            i += 4;
        } else if (rest.starts_with("lu")) {
            appendInteger(text, takeArgument());
            i += 3;
        } else if (rest.starts_with("d")) {
            appendInteger(text, takeArgument());
            i += 2;
        } else if (rest.starts_with("%")) {
            text += '%';
            i += 2;
        } else {
            // Not a placeholder of the logger: the percent sign stays as it
            // is and consumes no argument.
            text += '%';
            ++i;
        }
    }
}

void ZMEmulatedLogger::writeLine(int32_t level, int32_t type, std::string_view tag, std::string_view format,
                                 ZMFwLogArguments args) {
    // Nothing is rendered unless the record, the console or an observer wants the line.
    const bool keep = recording_.load(std::memory_order_relaxed) && lineCapacity_.load(std::memory_order_relaxed) > 0;
    const int consoleLevel = consoleLevel_.load(std::memory_order_relaxed);
    const bool print = consoleLevel >= 0 && level <= consoleLevel;
    if (!keep && !print && !hasObserver_.load(std::memory_order_relaxed)) return;

    struct Depth {
        Depth() { ++threadWriteDepth; }
        ~Depth() { --threadWriteDepth; }
    } depth;
    ZMLogLine nestedLine;
    ZMLogLine& line = threadWriteDepth == 1 ? threadLine : nestedLine;
    line.level = level;
    line.type = type;
    line.tag.assign(tag);
    line.text.clear();
    renderInto(line.text, format, args);

    std::shared_ptr<const Observer> observer;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (recording_.load(std::memory_order_relaxed)) keepLocked(line);
        // Printed under the lock, so console lines come out whole and in the
        // order they were recorded.
        if (consoleLevel_ >= 0 && level <= consoleLevel_ && consoleStream_ != nullptr) {
            std::fprintf(consoleStream_, "[%d][%d][%s] %s\n", static_cast<int>(level), static_cast<int>(type),
                         line.tag.c_str(), line.text.c_str());
            std::fflush(consoleStream_);
        }
        observer = observer_;
    }
    if (observer) {
        try {
            (*observer)(line);
        } catch (...) {
            // An observer's failure must not reach the code that logged.
        }
    }
    if (line.text.capacity() > kThreadTextKeptBytes) std::string().swap(line.text);
}

void ZMEmulatedLogger::keepLocked(const ZMLogLine& line) {
    const size_t capacity = lineCapacity_.load(std::memory_order_relaxed);
    if (capacity == 0) return;
    ZMLogLine* slot = nullptr;
    if (keptCount_ < slots_.size()) {
        // A slot freed by clear() (or never used since): reused as it is.
        slot = &slots_[(firstKept_ + keptCount_) % slots_.size()];
        ++keptCount_;
    } else if (slots_.size() < capacity) {
        // Still growing: the kept lines start at slot 0 and fill every slot.
        slots_.emplace_back();
        slot = &slots_.back();
        ++keptCount_;
    } else {
        // Full: the oldest line drops out and its slot takes the new one.
        slot = &slots_[firstKept_];
        firstKept_ = (firstKept_ + 1) % slots_.size();
    }
    slot->level = line.level;
    slot->type = line.type;
    slot->tag.assign(line.tag);
    if (slot->text.capacity() > kSlotTextKeptBytes && line.text.size() <= kSlotTextKeptBytes) {
        slot->text = std::string(line.text);
    } else {
        slot->text.assign(line.text);
    }
}

const ZMLogLine& ZMEmulatedLogger::keptLocked(size_t position) const {
    return slots_[(firstKept_ + position) % slots_.size()];
}

std::vector<ZMLogLine> ZMEmulatedLogger::lines() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<ZMLogLine> kept;
    kept.reserve(keptCount_);
    for (size_t i = 0; i < keptCount_; ++i) kept.push_back(keptLocked(i));
    return kept;
}

std::vector<ZMLogLine> ZMEmulatedLogger::linesWithTag(const std::string& tag) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<ZMLogLine> matching;
    for (size_t i = 0; i < keptCount_; ++i) {
        const ZMLogLine& line = keptLocked(i);
        if (line.tag == tag) matching.push_back(line);
    }
    return matching;
}

void ZMEmulatedLogger::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    // The slots keep their storage for the lines to come.
    firstKept_ = 0;
    keptCount_ = 0;
}

void ZMEmulatedLogger::setRecording(bool recording) {
    std::lock_guard<std::mutex> lock(mutex_);
    recording_ = recording;
}

bool ZMEmulatedLogger::isRecording() const { return recording_.load(); }

void ZMEmulatedLogger::setLineCapacity(size_t capacity) {
    std::lock_guard<std::mutex> lock(mutex_);
    // The newest lines that fit move to the front of a buffer of their own.
    const size_t keptAfter = std::min(keptCount_, capacity);
    std::vector<ZMLogLine> slots;
    slots.reserve(keptAfter);
    for (size_t i = keptCount_ - keptAfter; i < keptCount_; ++i) {
        slots.push_back(std::move(slots_[(firstKept_ + i) % slots_.size()]));
    }
    slots_ = std::move(slots);
    firstKept_ = 0;
    keptCount_ = keptAfter;
    lineCapacity_ = capacity;
}

size_t ZMEmulatedLogger::lineCapacity() const { return lineCapacity_.load(); }

void ZMEmulatedLogger::setConsoleLevel(int threshold) {
    std::lock_guard<std::mutex> lock(mutex_);
    consoleLevel_ = threshold;
}

void ZMEmulatedLogger::setConsoleStream(FILE* stream) {
    std::lock_guard<std::mutex> lock(mutex_);
    consoleStream_ = stream;
}

void ZMEmulatedLogger::setLineObserver(std::function<void(const ZMLogLine&)> observer) {
    std::lock_guard<std::mutex> lock(mutex_);
    hasObserver_ = static_cast<bool>(observer);
    observer_ = observer ? std::make_shared<const Observer>(std::move(observer)) : nullptr;
}
