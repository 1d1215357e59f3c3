#include <Platform/ZMJSONSerialization.h>

#include <cmath>
#include <string>
#include <vector>

#include <Platform/ZMPlatformException.h>

namespace {

const char* const kWriteExceptionName = "ZMJSONWriteException";

// Deeper text is refused before parsing: everything that later walks a value
// (comparison, writing, the module's readers) recurses once per level.
constexpr size_t kMaxNestingDepth = 512;

// Tells whether the text nests arrays and dictionaries deeper than the limit.
// Brackets inside strings do not count.
bool nestsTooDeep(const ZMData& data) {
    size_t depth = 0;
    bool inString = false;
    bool escaped = false;
    for (uint8_t byte : data) {
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (byte == '\\') {
                escaped = true;
            } else if (byte == '"') {
                inString = false;
            }
            continue;
        }
        if (byte == '"') {
            inString = true;
        } else if (byte == '[' || byte == '{') {
            if (++depth > kMaxNestingDepth) return true;
        } else if ((byte == ']' || byte == '}') && depth > 0) {
            --depth;
        }
    }
    return false;
}

// A value the writer can express: no binary, no discarded value, no NaN or
// infinity, at any depth. Walks with an explicit stack, so a deep value
// built in code cannot exhaust the call stack here.
bool holdsOnlyJSONValues(const ZMValue& root) {
    std::vector<const ZMValue*> pending{&root};
    while (!pending.empty()) {
        const ZMValue* value = pending.back();
        pending.pop_back();
        switch (value->type()) {
            case ZMValue::value_t::binary:
            case ZMValue::value_t::discarded:
                return false;
            case ZMValue::value_t::number_float:
                if (!std::isfinite(value->get<double>())) return false;
                break;
            case ZMValue::value_t::array:
            case ZMValue::value_t::object:
                for (const auto& element : *value) pending.push_back(&element);
                break;
            default:
                break;
        }
    }
    return true;
}

}  // namespace

std::optional<ZMValue> ZMJSONSerialization::JSONObjectWithData(const ZMData& data) {
    if (data.empty() || nestsTooDeep(data)) return std::nullopt;
    // The parser rejects bytes that are not UTF-8 (inside strings as well as
    // outside) and unpaired surrogate escapes; without exceptions it answers
    // a discarded value for any failure.
    try {
        ZMValue parsed = ZMValue::parse(data.begin(), data.end(), nullptr, /*allow_exceptions=*/false);
        if (parsed.is_discarded()) return std::nullopt;
        return parsed;
    } catch (const ZMValue::exception&) {
        return std::nullopt;  // belt and braces: bad input never raises from here
    }
}

std::optional<ZMValue> ZMJSONSerialization::dictionaryWithData(const ZMData& data) {
    auto parsed = JSONObjectWithData(data);
    if (!parsed || !parsed->is_object()) return std::nullopt;
    return parsed;
}

bool ZMJSONSerialization::isValidJSONObject(const ZMValue& object) {
    if (!object.is_array() && !object.is_object()) return false;
    return holdsOnlyJSONValues(object);
}

ZMData ZMJSONSerialization::dataWithJSONObject(const ZMValue& object, bool prettyPrinted) {
    if (!object.is_array() && !object.is_object()) {
        throw ZMPlatformException(kWriteExceptionName, "Invalid top-level type in JSON write");
    }
    if (!holdsOnlyJSONValues(object)) {
        throw ZMPlatformException(kWriteExceptionName, "Invalid type or non-finite number in JSON write");
    }
    std::string text;
    try {
        // The strict error handler makes the writer raise on a string (value
        // or key) that is not valid UTF-8 instead of replacing its bytes.
        text = object.dump(prettyPrinted ? 2 : -1, ' ', /*ensure_ascii=*/false, ZMValue::error_handler_t::strict);
    } catch (const ZMValue::exception& error) {
        throw ZMPlatformException(kWriteExceptionName,
                                  std::string("Invalid UTF-8 string in JSON write: ") + error.what());
    }
    return ZMData(text.begin(), text.end());
}
