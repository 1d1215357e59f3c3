#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <VemoIMLibCore/ZMValue.h>

// Conversions of loosely typed values into numbers and text, shared by the
// emulator's dictionary readers and its logger so that both read a value the
// same way.
class ZMEmulatedValueText {
public:
    // A number as a signed 64-bit integer: integers as they are (clamped to the
    // range), other numbers truncated toward zero and clamped (NaN gives 0),
    // booleans as 1/0. Nothing for every other kind.
    static std::optional<int64_t> signedValue(const ZMValue& value);
    // The same for an unsigned 64-bit integer; negative numbers clamp to 0.
    static std::optional<uint64_t> unsignedValue(const ZMValue& value);

    // The decimal text of a number: integers without a decimal point, other
    // numbers as the shortest text that reads back as the same value ("2.5",
    // "3", "1e+20", "nan"); booleans as "1"/"0". Nothing for every other kind.
    static std::optional<std::string> numberText(const ZMValue& value);

    // Compact JSON text of any value. Never throws: bytes of a string that are
    // not valid UTF-8 are replaced by U+FFFD, non-finite numbers become null.
    static std::string compactJSON(const ZMValue& value);
};
