#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include <VemoIMLibCore/ZMValue.h>

// The reader behind ZMJSONSerialization: strict JSON text (RFC 8259) into a
// value, in one pass without recursion and without allocating anything but
// the value it builds.
//
// It reads exactly what the JSON library's own parser reads and builds the
// same value: an optional UTF-8 byte-order mark, then one value of any kind
// with whitespace around it and nothing after it (up to the end or a NUL
// byte, where the library's parser stops reading too); integers without fraction
// or exponent become unsigned (when not negative) or signed 64-bit numbers
// and fall back to a double when they do not fit; every other number is a
// double and must be finite; a dictionary that repeats a key keeps the last
// value. Strings must be valid UTF-8 without control characters, and an
// escaped surrogate must be one half of a pair.
namespace ZMJSONParser {

// The value the text holds, or nothing when it is not JSON as above or when
// arrays and dictionaries nest deeper than maxDepth (the top level counts 1).
std::optional<ZMValue> parse(const uint8_t* text, size_t size, size_t maxDepth);

}  // namespace ZMJSONParser
