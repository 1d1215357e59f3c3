#include <Platform/ZMJSONParser.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <Platform/ZMUTF16.h>

#if defined(__GLIBC__) || defined(__APPLE__)
#include <locale.h>
#if defined(__APPLE__)
#include <xlocale.h>
#endif
#define ZM_HAVE_STRTOD_L 1
#endif

namespace {

bool isWhitespace(uint8_t byte) { return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r'; }
bool isDigit(uint8_t byte) { return byte >= '0' && byte <= '9'; }

int hexValue(uint8_t byte) {
    if (byte >= '0' && byte <= '9') return byte - '0';
    if (byte >= 'a' && byte <= 'f') return byte - 'a' + 10;
    if (byte >= 'A' && byte <= 'F') return byte - 'A' + 10;
    return -1;
}

void appendUTF8(std::string& out, uint32_t codePoint) {
    if (codePoint < 0x80) {
        out += static_cast<char>(codePoint);
    } else if (codePoint < 0x800) {
        out += static_cast<char>(0xC0 | (codePoint >> 6));
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        out += static_cast<char>(0xE0 | (codePoint >> 12));
        out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (codePoint >> 18));
        out += static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    }
}

// A decimal number in JSON's grammar, in the C locale whatever the process's
// locale is; nothing when it is not finite.
std::optional<double> parseDouble(const char* first, const char* last) {
    // strtod wants a terminated string: short numbers are copied into a
    // buffer on the stack, longer ones into a string.
    const size_t length = static_cast<size_t>(last - first);
    char buffer[64];
    std::string longText;
    const char* text = buffer;
    if (length < sizeof buffer) {
        std::memcpy(buffer, first, length);
        buffer[length] = '\0';
    } else {
        longText.assign(first, last);
        text = longText.c_str();
    }
#if defined(ZM_HAVE_STRTOD_L)
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    const double value = strtod_l(text, nullptr, cLocale);
#else
    const double value = std::strtod(text, nullptr);
#endif
    if (!std::isfinite(value)) return std::nullopt;
    return value;
}

class Reader {
public:
    Reader(const uint8_t* text, size_t size, size_t maxDepth)
        : at_(text), end_(text + size), maxDepth_(maxDepth), open_(openContainers()) {
        open_.clear();
    }
    ~Reader() { open_.clear(); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    std::optional<ZMValue> read() {
        if (!skipByteOrderMark()) return std::nullopt;
        ZMValue root;
        // Where the next value goes: the root, a new element of the open array
        // or the member of the open dictionary whose key was just read.
        ZMValue* slot = &root;
        for (;;) {
            if (!readValue(*slot)) return std::nullopt;
            // After a value: close the containers it completes, then find the
            // slot of the next value, or the end of the text.
            for (;;) {
                skipWhitespace();
                if (open_.empty()) {
                    // A NUL byte ends the text where a token could start, as
                    // in the JSON library's parser: whatever follows it is
                    // not read.
                    if (at_ != end_ && *at_ != '\0') return std::nullopt;
                    return root;
                }
                if (at_ == end_) return std::nullopt;
                ZMValue& container = *open_.back();
                const uint8_t byte = *at_++;
                if (byte == ',') {
                    slot = container.is_object() ? memberSlot(container) : &appendElement(container);
                    if (!slot) return std::nullopt;
                    break;
                }
                if (byte != (container.is_object() ? '}' : ']')) return std::nullopt;
                open_.pop_back();
            }
        }
    }

private:
    static std::vector<ZMValue*>& openContainers() {
        // The thread's own stack of open containers keeps its capacity.
        thread_local std::vector<ZMValue*> containers;
        return containers;
    }

    bool skipByteOrderMark() {
        if (at_ == end_ || *at_ != 0xEF) return true;
        if (end_ - at_ < 3 || at_[1] != 0xBB || at_[2] != 0xBF) return false;
        at_ += 3;
        return true;
    }

    void skipWhitespace() {
        while (at_ != end_ && isWhitespace(*at_)) ++at_;
    }

    static ZMValue& appendElement(ZMValue& array) {
        return array.get_ref<ZMValue::array_t&>().emplace_back();
    }

    // Reads `"key" :` inside a dictionary and answers the member's slot.
    ZMValue* memberSlot(ZMValue& dictionary) {
        skipWhitespace();
        if (at_ == end_ || *at_ != '"') return nullptr;
        ++at_;
        std::string key;
        if (!readString(key)) return nullptr;
        skipWhitespace();
        if (at_ == end_ || *at_ != ':') return nullptr;
        ++at_;
        return &dictionary.get_ref<ZMValue::object_t&>()[std::move(key)];
    }

    // Reads one value into slot. An array or dictionary is opened (with its
    // first slot found) and its elements follow through read()'s loop; an
    // empty one is complete at once.
    bool readValue(ZMValue& slot) {
        ZMValue* target = &slot;
        for (;;) {
            skipWhitespace();
            if (at_ == end_) return false;
            const uint8_t byte = *at_;
            if (byte != '[' && byte != '{') return readScalar(*target);
            if (open_.size() >= maxDepth_) return false;
            ++at_;
            const bool dictionary = byte == '{';
            *target = dictionary ? ZMValue::value_t::object : ZMValue::value_t::array;
            skipWhitespace();
            if (at_ != end_ && *at_ == (dictionary ? '}' : ']')) {
                ++at_;
                return true;
            }
            open_.push_back(target);
            target = dictionary ? memberSlot(*target) : &appendElement(*target);
            if (!target) return false;
        }
    }

    bool readScalar(ZMValue& slot) {
        switch (*at_) {
            case '"': {
                ++at_;
                std::string text;
                if (!readString(text)) return false;
                slot = std::move(text);
                return true;
            }
            case 't':
                return readLiteral("true", 4) && (slot = true, true);
            case 'f':
                return readLiteral("false", 5) && (slot = false, true);
            case 'n':
                return readLiteral("null", 4) && (slot = nullptr, true);
            default:
                return readNumber(slot);
        }
    }

    bool readLiteral(const char* literal, size_t length) {
        if (static_cast<size_t>(end_ - at_) < length) return false;
        for (size_t i = 0; i < length; ++i) {
            if (at_[i] != static_cast<uint8_t>(literal[i])) return false;
        }
        at_ += length;
        return true;
    }

    bool readNumber(ZMValue& slot) {
        const uint8_t* first = at_;
        const bool negative = at_ != end_ && *at_ == '-';
        if (negative) ++at_;
        if (at_ == end_ || !isDigit(*at_)) return false;
        if (*at_++ != '0') {
            while (at_ != end_ && isDigit(*at_)) ++at_;
        }
        bool integral = true;
        if (at_ != end_ && *at_ == '.') {
            ++at_;
            if (at_ == end_ || !isDigit(*at_)) return false;
            while (at_ != end_ && isDigit(*at_)) ++at_;
            integral = false;
        }
        if (at_ != end_ && (*at_ == 'e' || *at_ == 'E')) {
            ++at_;
            if (at_ != end_ && (*at_ == '+' || *at_ == '-')) ++at_;
            if (at_ == end_ || !isDigit(*at_)) return false;
            while (at_ != end_ && isDigit(*at_)) ++at_;
            integral = false;
        }
        const char* begin = reinterpret_cast<const char*>(first);
        const char* end = reinterpret_cast<const char*>(at_);
        if (integral) {
            // An integer that does not fit its 64-bit type is read as a double.
            if (negative) {
                int64_t value = 0;
                if (std::from_chars(begin, end, value).ec == std::errc()) {
                    slot = value;
                    return true;
                }
            } else {
                uint64_t value = 0;
                if (std::from_chars(begin, end, value).ec == std::errc()) {
                    slot = value;
                    return true;
                }
            }
        }
        const std::optional<double> value = parseDouble(begin, end);
        if (!value) return false;
        slot = *value;
        return true;
    }

    // Reads a string's contents after its opening quote, through its closing
    // quote.
    bool readString(std::string& out) {
        for (;;) {
            // The plain run up to the next byte that needs a look.
            const uint8_t* run = at_;
            while (at_ != end_ && *at_ >= 0x20 && *at_ < 0x80 && *at_ != '"' && *at_ != '\\') ++at_;
            out.append(reinterpret_cast<const char*>(run), static_cast<size_t>(at_ - run));
            if (at_ == end_) return false;
            const uint8_t byte = *at_;
            if (byte == '"') {
                ++at_;
                return true;
            }
            if (byte == '\\') {
                ++at_;
                if (!readEscape(out)) return false;
            } else if (byte < 0x20) {
                return false;  // control characters must be escaped
            } else if (!readMultiByte(out)) {
                return false;
            }
        }
    }

    bool readHex4(uint32_t& value) {
        if (end_ - at_ < 4) return false;
        value = 0;
        for (int i = 0; i < 4; ++i) {
            const int digit = hexValue(at_[i]);
            if (digit < 0) return false;
            value = (value << 4) | static_cast<uint32_t>(digit);
        }
        at_ += 4;
        return true;
    }

    bool readEscape(std::string& out) {
        if (at_ == end_) return false;
        switch (*at_++) {
            case '"': out += '"'; return true;
            case '\\': out += '\\'; return true;
            case '/': out += '/'; return true;
            case 'b': out += '\b'; return true;
            case 'f': out += '\f'; return true;
            case 'n': out += '\n'; return true;
            case 'r': out += '\r'; return true;
            case 't': out += '\t'; return true;
            case 'u': break;
            default: return false;
        }
        uint32_t codePoint = 0;
        if (!readHex4(codePoint)) return false;
        if (codePoint >= 0xDC00 && codePoint <= 0xDFFF) return false;  // a low half alone
        if (codePoint >= 0xD800 && codePoint <= 0xDBFF) {
            // A high half must be followed at once by an escaped low half.
            uint32_t low = 0;
            if (end_ - at_ < 2 || at_[0] != '\\' || at_[1] != 'u') return false;
            at_ += 2;
            if (!readHex4(low) || low < 0xDC00 || low > 0xDFFF) return false;
            codePoint = 0x10000 + ((codePoint - 0xD800) << 10) + (low - 0xDC00);
        }
        appendUTF8(out, codePoint);
        return true;
    }

    // One well-formed UTF-8 sequence of two to four bytes.
    bool readMultiByte(std::string& out) {
        const std::string_view rest(reinterpret_cast<const char*>(at_), static_cast<size_t>(end_ - at_));
        const size_t length = ZMUTF16::sequenceLength(rest);
        if (length == 0) return false;
        out.append(reinterpret_cast<const char*>(at_), length);
        at_ += length;
        return true;
    }

    const uint8_t* at_;
    const uint8_t* const end_;
    const size_t maxDepth_;
    std::vector<ZMValue*>& open_;
};

}  // namespace

std::optional<ZMValue> ZMJSONParser::parse(const uint8_t* text, size_t size, size_t maxDepth) {
    if (text == nullptr && size != 0) return std::nullopt;
    return Reader(text, size, maxDepth).read();
}
