// The core library's dictionary readers and writer.
//
// A reader looks the key up only in a dictionary; anything else, a missing key
// or a value of the wrong kind gives nothing (string readers), null (array and
// dictionary readers), 0 (number readers) or false (the boolean reader). The
// number readers take JSON numbers and booleans (true/false as 1/0), truncate
// non-integral numbers toward zero and clamp to the target type's range. A
// string that is not valid UTF-8 is not a string.

#include <VemoIMLibCore/ZMDictionaryReaders.h>

#include <CoreEmulator/ZMEmulatedValueText.h>
#include <Platform/ZMUTF16.h>

namespace {

// The value stored under key, or null when dict is no dictionary or lacks key.
const ZMValue* valueForKey(const ZMValue& dict, const std::string& key) {
    if (!dict.is_object()) return nullptr;
    const auto it = dict.find(key);
    return it == dict.end() ? nullptr : &*it;
}

const std::string* validString(const ZMValue* value) {
    if (value == nullptr || !value->is_string()) return nullptr;
    const auto& text = value->get_ref<const std::string&>();
    return ZMUTF16::length(text).has_value() ? &text : nullptr;
}

}  // namespace

std::optional<std::string> zmlib_stringForKey(const ZMValue& dict, const std::string& key) {
    if (const auto* text = validString(valueForKey(dict, key))) return *text;
    return std::nullopt;
}

std::optional<std::string> zmlib_mix_stringForKey(const ZMValue& dict, const std::string& key) {
    const ZMValue* value = valueForKey(dict, key);
    if (const auto* text = validString(value)) return *text;
    if (value == nullptr) return std::nullopt;
    // Booleans are numbers here as everywhere else: true reads "1".
    return ZMEmulatedValueText::numberText(*value);
}

ZMValue zmlib_arrayForKey(const ZMValue& dict, const std::string& key) {
    const ZMValue* value = valueForKey(dict, key);
    return value != nullptr && value->is_array() ? *value : ZMValue();
}

ZMValue zmlib_dictionaryForKey(const ZMValue& dict, const std::string& key) {
    const ZMValue* value = valueForKey(dict, key);
    return value != nullptr && value->is_object() ? *value : ZMValue();
}

int64_t zmlib_integerForKey(const ZMValue& dict, const std::string& key) {
    const ZMValue* value = valueForKey(dict, key);
    return value == nullptr ? 0 : ZMEmulatedValueText::signedValue(*value).value_or(0);
}

uint64_t zmlib_unsignedIntegerForKey(const ZMValue& dict, const std::string& key) {
    const ZMValue* value = valueForKey(dict, key);
    return value == nullptr ? 0 : ZMEmulatedValueText::unsignedValue(*value).value_or(0);
}

int64_t zmlib_longLongIntForKey(const ZMValue& dict, const std::string& key) {
    return zmlib_integerForKey(dict, key);
}

bool zmlib_boolForKey(const ZMValue& dict, const std::string& key) {
    const ZMValue* value = valueForKey(dict, key);
    if (value == nullptr) return false;
    if (value->is_boolean()) return value->get<bool>();
    // Any non-zero number is true, 0.5 included (it is not truncated first).
    if (value->is_number_float()) return value->get<double>() != 0.0;
    if (value->is_number()) return ZMEmulatedValueText::signedValue(*value).value_or(0) != 0;
    return false;
}

void zmlib_setObject(ZMValue& dict, const ZMValue& value, const std::string& key) {
    if (dict.is_null()) dict = ZMValue::object();
    // A missing value is left out; a receiver that is no dictionary cannot hold
    // a key and is left as it is.
    if (value.is_null() || !dict.is_object()) return;
    dict[key] = value;
}
