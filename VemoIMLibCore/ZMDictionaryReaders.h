#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <VemoIMLibCore/ZMValue.h>

// The core library's typed readers and writer of dictionaries (ZMValue
// objects). A reader given anything but a dictionary, a missing key, or a
// value of the wrong kind answers nothing or 0. The number readers accept JSON
// numbers and treat true/false as 1/0; a non-integral number is truncated
// toward zero, and a number beyond the target type's range is clamped to it.

// The string under key, or nothing when absent or not a string.
std::optional<std::string> zmlib_stringForKey(const ZMValue& dict, const std::string& key);
// A string as it is, a number as its decimal text, else nothing.
std::optional<std::string> zmlib_mix_stringForKey(const ZMValue& dict, const std::string& key);
// The array under key, or null when absent or not an array.
ZMValue zmlib_arrayForKey(const ZMValue& dict, const std::string& key);
// The dictionary under key, or null when absent or not a dictionary.
ZMValue zmlib_dictionaryForKey(const ZMValue& dict, const std::string& key);
int64_t zmlib_integerForKey(const ZMValue& dict, const std::string& key);
uint64_t zmlib_unsignedIntegerForKey(const ZMValue& dict, const std::string& key);
int64_t zmlib_longLongIntForKey(const ZMValue& dict, const std::string& key);
bool zmlib_boolForKey(const ZMValue& dict, const std::string& key);

// Stores value under key in a dictionary (a null dict becomes an empty
// dictionary first). A missing (null) value is left out and does not fail.
void zmlib_setObject(ZMValue& dict, const ZMValue& value, const std::string& key);
