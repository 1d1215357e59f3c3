#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

// Lengths of UTF-8 text as the platform's strings count them.
class ZMUTF16 {
public:
    // The number of UTF-16 code units of the text (a character outside the
    // Basic Multilingual Plane counts 2); nothing when the bytes are not valid
    // UTF-8 (overlong forms, surrogates, values above U+10FFFF and truncated
    // sequences included).
    static std::optional<size_t> length(std::string_view utf8);

    // The length (2 to 4) of the well-formed multi-byte UTF-8 sequence that
    // text starts with; 0 when it starts with anything else (an ASCII byte
    // included) or ends inside the sequence.
    static size_t sequenceLength(std::string_view text);
};
