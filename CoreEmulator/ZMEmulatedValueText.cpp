#include <CoreEmulator/ZMEmulatedValueText.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

#include <Platform/ZMUTF16.h>

namespace {

// 2^63 and 2^64 as doubles: every double at or above them is out of range.
constexpr double kTwoPow63 = 9223372036854775808.0;
constexpr double kTwoPow64 = 18446744073709551616.0;

// What nlohmann::json's dump() writes for a value it does not recurse into
// (a non-integral number, bytes, a discarded value), replacing bytes that
// are not UTF-8.
void appendLeafDump(std::string& text, const ZMValue& leaf) {
    text += leaf.dump(-1, ' ', false, ZMValue::error_handler_t::replace);
}

// A string as dump() writes it: quoted, with '"', '\\' and the control
// characters escaped (\b \f \n \r \t, others as \u00xx) and every other
// byte as it is. Text that is not UTF-8 is left to dump() itself, which
// replaces the bad bytes the way it always has.
void appendJSONString(std::string& text, std::string_view string) {
    if (!ZMUTF16::length(string)) {
        appendLeafDump(text, ZMValue(std::string(string)));
        return;
    }
    text += '"';
    size_t runStart = 0;
    for (size_t i = 0; i < string.size(); ++i) {
        const auto byte = static_cast<unsigned char>(string[i]);
        if (byte >= 0x20 && byte != '"' && byte != '\\') continue;
        text.append(string.data() + runStart, i - runStart);
        runStart = i + 1;
        switch (byte) {
            case '"': text += "\\\""; break;
            case '\\': text += "\\\\"; break;
            case '\b': text += "\\b"; break;
            case '\f': text += "\\f"; break;
            case '\n': text += "\\n"; break;
            case '\r': text += "\\r"; break;
            case '\t': text += "\\t"; break;
            default: {
                char escape[8];
                std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(byte));
                text += escape;
            }
        }
    }
    text.append(string.data() + runStart, string.size() - runStart);
    text += '"';
}

// Writes one value whose arrays and dictionaries start at the given level.
// Recurses once per level, at most kRenderDepthLimit + 1 frames deep.
void appendBounded(std::string& text, const ZMValue& value, size_t level) {
    if ((value.is_array() || value.is_object()) && level > ZMEmulatedValueText::kRenderDepthLimit) {
        text += ZMEmulatedValueText::kDeeperPlaceholder;
        return;
    }
    switch (value.type()) {
        case ZMValue::value_t::null:
            text += "null";
            return;
        case ZMValue::value_t::boolean:
            text += value.get<bool>() ? "true" : "false";
            return;
        case ZMValue::value_t::number_integer:
            ZMEmulatedValueText::appendNumberText(text, value.get<int64_t>());
            return;
        case ZMValue::value_t::number_unsigned:
            ZMEmulatedValueText::appendNumberText(text, value.get<uint64_t>());
            return;
        case ZMValue::value_t::string:
            appendJSONString(text, value.get_ref<const std::string&>());
            return;
        case ZMValue::value_t::array: {
            text += '[';
            bool first = true;
            for (const auto& element : value) {
                if (!first) text += ',';
                first = false;
                appendBounded(text, element, level + 1);
            }
            text += ']';
            return;
        }
        case ZMValue::value_t::object: {
            text += '{';
            bool first = true;
            for (const auto& [key, member] : value.get_ref<const ZMValue::object_t&>()) {
                if (!first) text += ',';
                first = false;
                appendJSONString(text, key);
                text += ':';
                appendBounded(text, member, level + 1);
            }
            text += '}';
            return;
        }
        default:
            appendLeafDump(text, value);
            return;
    }
}

}  // namespace

std::optional<int64_t> ZMEmulatedValueText::signedValue(const ZMValue& value) {
    switch (value.type()) {
        case ZMValue::value_t::boolean:
            return value.get<bool>() ? 1 : 0;
        case ZMValue::value_t::number_integer:
            return value.get<int64_t>();
        case ZMValue::value_t::number_unsigned: {
            const auto number = value.get<uint64_t>();
            if (number > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
                return std::numeric_limits<int64_t>::max();
            }
            return static_cast<int64_t>(number);
        }
        case ZMValue::value_t::number_float:
            return truncatedSigned(value.get<double>());
        default:
            return std::nullopt;
    }
}

int64_t ZMEmulatedValueText::truncatedSigned(double number) {
    if (std::isnan(number)) return 0;
    if (number >= kTwoPow63) return std::numeric_limits<int64_t>::max();
    if (number < -kTwoPow63) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(number);  // truncates toward zero
}

std::optional<uint64_t> ZMEmulatedValueText::unsignedValue(const ZMValue& value) {
    switch (value.type()) {
        case ZMValue::value_t::boolean:
            return value.get<bool>() ? 1u : 0u;
        case ZMValue::value_t::number_integer: {
            const auto number = value.get<int64_t>();
            return number < 0 ? 0u : static_cast<uint64_t>(number);
        }
        case ZMValue::value_t::number_unsigned:
            return value.get<uint64_t>();
        case ZMValue::value_t::number_float: {
            const double number = value.get<double>();
            if (std::isnan(number) || number <= 0) return 0u;
            if (number >= kTwoPow64) return std::numeric_limits<uint64_t>::max();
            return static_cast<uint64_t>(number);  // truncates toward zero
        }
        default:
            return std::nullopt;
    }
}

std::optional<std::string> ZMEmulatedValueText::numberText(const ZMValue& value) {
    switch (value.type()) {
        case ZMValue::value_t::boolean:
            return std::string(value.get<bool>() ? "1" : "0");
        case ZMValue::value_t::number_integer:
            return std::to_string(value.get<int64_t>());
        case ZMValue::value_t::number_unsigned:
            return std::to_string(value.get<uint64_t>());
        case ZMValue::value_t::number_float: {
            std::string text;
            appendNumberText(text, value.get<double>());
            return text;
        }
        default:
            return std::nullopt;
    }
}

void ZMEmulatedValueText::appendNumberText(std::string& text, double number) {
    if (std::isnan(number)) {
        text += "nan";
        return;
    }
    if (std::isinf(number)) {
        text += number < 0 ? "-inf" : "inf";
        return;
    }
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, number);
    if (result.ec != std::errc()) {
        text += "nan";
        return;
    }
    text.append(buffer, result.ptr);
}

void ZMEmulatedValueText::appendNumberText(std::string& text, int64_t number) {
    char buffer[24];
    text.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, number).ptr);
}

void ZMEmulatedValueText::appendNumberText(std::string& text, uint64_t number) {
    char buffer[24];
    text.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, number).ptr);
}

std::string ZMEmulatedValueText::compactJSON(const ZMValue& value) {
    std::string text;
    appendCompactJSON(text, value);
    return text;
}

void ZMEmulatedValueText::appendCompactJSON(std::string& text, const ZMValue& value) {
    appendBounded(text, value, 1);
}
