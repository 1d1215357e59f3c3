#include <CoreEmulator/ZMEmulatedLogger.h>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <CoreEmulator/ZMEmulatedValueText.h>

namespace {

const char* const kNullText = "(null)";

// "%@": a string as it is, a boolean as 1/0, a number in decimal, null as
// "(null)", an array or dictionary (or a byte value) as compact JSON.
std::string objectText(const ZMValue* value) {
    if (value == nullptr || value->is_null()) return kNullText;
    if (value->is_string()) return value->get<std::string>();
    if (auto number = ZMEmulatedValueText::numberText(*value)) return *number;
    return ZMEmulatedValueText::compactJSON(*value);
}

// "%d", "%lu", "%lld": an integer as it is, any other number truncated toward
// zero (clamped to 64 bits), a boolean as 1/0. A value that is no number is
// rendered as "%@" would render it rather than dropped.
std::string integerText(const ZMValue* value) {
    if (value == nullptr) return kNullText;
    if (value->is_number_float()) {
        return std::to_string(ZMEmulatedValueText::signedValue(*value).value_or(0));
    }
    return objectText(value);
}

}  // namespace

ZMFwLog& ZMFwLog::getInstance() { return ZMCoreEmulator::shared().logger(); }

std::string ZMEmulatedLogger::render(std::string_view format, const std::vector<ZMValue>& args) {
    std::string text;
    text.reserve(format.size());
    size_t nextArgument = 0;
    // A placeholder without an argument of its own renders as an absent value.
    auto takeArgument = [&]() -> const ZMValue* {
        return nextArgument < args.size() ? &args[nextArgument++] : nullptr;
    };
    size_t i = 0;
    while (i < format.size()) {
        const char c = format[i];
        if (c != '%') {
            text += c;
            ++i;
            continue;
        }
        const std::string_view rest = format.substr(i + 1);
        if (rest.starts_with("@")) {
            text += objectText(takeArgument());
            i += 2;
        } else if (rest.starts_with("lld")) {
            text += integerText(takeArgument());
            i += 4;
        } else if (rest.starts_with("lu")) {
            text += integerText(takeArgument());
            i += 3;
        } else if (rest.starts_with("d")) {
            text += integerText(takeArgument());
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
    return text;
}

void ZMEmulatedLogger::writeLine(int32_t level, int32_t type, std::string_view tag,
                                 std::string_view format, const std::vector<ZMValue>& args) {
    ZMLogLine line;
    line.level = level;
    line.type = type;
    line.tag = std::string(tag);
    line.text = render(format, args);

    std::function<void(const ZMLogLine&)> observer;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(line);
        // Printed under the lock, so console lines come out whole and in the
        // order they were recorded.
        if (consoleLevel_ >= 0 && level <= consoleLevel_ && consoleStream_ != nullptr) {
            std::fprintf(consoleStream_, "[%d][%d][%s] %s\n", static_cast<int>(level),
                         static_cast<int>(type), line.tag.c_str(), line.text.c_str());
            std::fflush(consoleStream_);
        }
        observer = observer_;
    }
    if (!observer) return;
    try {
        observer(line);
    } catch (...) {
        // An observer's failure must not reach the code that logged.
    }
}

std::vector<ZMLogLine> ZMEmulatedLogger::lines() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
}

std::vector<ZMLogLine> ZMEmulatedLogger::linesWithTag(const std::string& tag) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<ZMLogLine> matching;
    for (const auto& line : lines_) {
        if (line.tag == tag) matching.push_back(line);
    }
    return matching;
}

void ZMEmulatedLogger::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
}

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
    observer_ = std::move(observer);
}
