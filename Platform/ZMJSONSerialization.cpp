#include <Platform/ZMJSONSerialization.h>

#include <cmath>
#include <string>
#include <vector>

#include <Platform/ZMJSONParser.h>
#include <Platform/ZMPlatformException.h>
#include <Platform/ZMUTF16.h>

namespace {

const char* const kWriteExceptionName = "ZMJSONWriteException";

// Deeper text is refused while parsing, and deeper values are not written:
// everything that walks a value (comparison, copying, writing, the module's
// readers) recurses once per level.
constexpr size_t kMaxNestingDepth = 512;

// Why the writer refuses a value, if it does.
enum class Refusal { None, Type, Nesting, Encoding };

// A value the writer can express: no binary, no discarded value, no NaN or
// infinity, strings (and keys) of valid UTF-8, and no array or dictionary
// nested deeper than the parser reads back, at any depth. Walks with an
// explicit stack, so a deep value built in code cannot exhaust the call stack
// here.
Refusal refusalOf(const ZMValue& root) {
    // Each pending value with the nesting level of the container holding it.
    std::vector<std::pair<const ZMValue*, size_t>> pending{{&root, 0}};
    while (!pending.empty()) {
        const auto [value, outerLevel] = pending.back();
        pending.pop_back();
        switch (value->type()) {
            case ZMValue::value_t::binary:
            case ZMValue::value_t::discarded:
                return Refusal::Type;
            case ZMValue::value_t::number_float:
                if (!std::isfinite(value->get<double>())) return Refusal::Type;
                break;
            case ZMValue::value_t::string:
                if (!ZMUTF16::length(value->get_ref<const std::string&>())) return Refusal::Encoding;
                break;
            case ZMValue::value_t::array:
                if (outerLevel + 1 > kMaxNestingDepth) return Refusal::Nesting;
                for (const auto& element : *value) pending.emplace_back(&element, outerLevel + 1);
                break;
            case ZMValue::value_t::object:
                if (outerLevel + 1 > kMaxNestingDepth) return Refusal::Nesting;
                for (const auto& [key, member] : value->get_ref<const ZMValue::object_t&>()) {
                    if (!ZMUTF16::length(key)) return Refusal::Encoding;
                    pending.emplace_back(&member, outerLevel + 1);
                }
                break;
            default:
                break;
        }
    }
    return Refusal::None;
}

}  // namespace

std::optional<ZMValue> ZMJSONSerialization::JSONObjectWithData(const ZMData& data) {
    if (data.empty()) return std::nullopt;
    // The reader refuses bytes that are not UTF-8 (inside strings as well as
    // outside), unpaired surrogate escapes, anything after the value and
    // excessive nesting; it raises nothing.
    return ZMJSONParser::parse(data.data(), data.size(), kMaxNestingDepth);
}

std::optional<ZMValue> ZMJSONSerialization::dictionaryWithData(const ZMData& data) {
    auto parsed = JSONObjectWithData(data);
    if (!parsed || !parsed->is_object()) return std::nullopt;
    return parsed;
}

bool ZMJSONSerialization::isValidJSONObject(const ZMValue& object) {
    if (!object.is_array() && !object.is_object()) return false;
    return refusalOf(object) == Refusal::None;
}

ZMData ZMJSONSerialization::dataWithJSONObject(const ZMValue& object, bool prettyPrinted) {
    if (!object.is_array() && !object.is_object()) {
        throw ZMPlatformException(kWriteExceptionName, "Invalid top-level type in JSON write");
    }
    switch (refusalOf(object)) {
        case Refusal::None:
            break;
        case Refusal::Type:
            throw ZMPlatformException(kWriteExceptionName, "Invalid type or non-finite number in JSON write");
        case Refusal::Nesting:
            throw ZMPlatformException(kWriteExceptionName, "Nesting too deep in JSON write");
        case Refusal::Encoding:
            throw ZMPlatformException(kWriteExceptionName, "Invalid UTF-8 string in JSON write");
    }
    std::string text;
    try {
        // Every string was checked above; the strict error handler is the
        // writer's own guard should its reading of UTF-8 ever differ.
        text = object.dump(prettyPrinted ? 2 : -1, ' ', /*ensure_ascii=*/false, ZMValue::error_handler_t::strict);
    } catch (const ZMValue::exception& error) {
        throw ZMPlatformException(kWriteExceptionName,
                                  std::string("Invalid UTF-8 string in JSON write: ") + error.what());
    }
    return ZMData(text.begin(), text.end());
}
