#include <CoreEmulator/ZMEmulatedValueText.h>

#include <charconv>
#include <cmath>
#include <limits>

namespace {

// 2^63 and 2^64 as doubles: every double at or above them is out of range.
constexpr double kTwoPow63 = 9223372036854775808.0;
constexpr double kTwoPow64 = 18446744073709551616.0;

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
        case ZMValue::value_t::number_float: {
            const double number = value.get<double>();
            if (std::isnan(number)) return 0;
            if (number >= kTwoPow63) return std::numeric_limits<int64_t>::max();
            if (number < -kTwoPow63) return std::numeric_limits<int64_t>::min();
            return static_cast<int64_t>(number);  // truncates toward zero
        }
        default:
            return std::nullopt;
    }
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
            const double number = value.get<double>();
            if (std::isnan(number)) return std::string("nan");
            if (std::isinf(number)) return std::string(number < 0 ? "-inf" : "inf");
            char buffer[64];
            const auto result = std::to_chars(buffer, buffer + sizeof buffer, number);
            if (result.ec != std::errc()) return std::string("nan");
            return std::string(buffer, result.ptr);
        }
        default:
            return std::nullopt;
    }
}

std::string ZMEmulatedValueText::compactJSON(const ZMValue& value) {
    try {
        return value.dump(-1, ' ', false, ZMValue::error_handler_t::replace);
    } catch (const std::exception&) {
        // dump() with replacement has no failure left; keep the promise anyway.
        return "(unrenderable)";
    }
}
