#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

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
    // A double truncated toward zero and clamped to the signed 64-bit range
    // (NaN gives 0), as signedValue reads a non-integral number.
    static int64_t truncatedSigned(double number);
    // The same for an unsigned 64-bit integer; negative numbers clamp to 0.
    static std::optional<uint64_t> unsignedValue(const ZMValue& value);

    // The decimal text of a number: integers without a decimal point, other
    // numbers as the shortest text that reads back as the same value ("2.5",
    // "3", "1e+20", "nan"); booleans as "1"/"0". Nothing for every other kind.
    static std::optional<std::string> numberText(const ZMValue& value);

    // Append the decimal text of a number the way numberText writes it.
    static void appendNumberText(std::string& text, double number);
    static void appendNumberText(std::string& text, int64_t number);
    static void appendNumberText(std::string& text, uint64_t number);

    // How deep compactJSON writes a value: the top-level array or dictionary
    // is level 1, and an array or dictionary below level kRenderDepthLimit is
    // written as kDeeperPlaceholder instead of its members. The text of a
    // hostile value nested thousands deep therefore stays short and is
    // written without deep recursion.
    static constexpr size_t kRenderDepthLimit = 64;
    static constexpr std::string_view kDeeperPlaceholder = "\xE2\x80\xA6";  // "…", U+2026

    // Compact JSON text of any value, keys sorted, as nlohmann::json's dump()
    // writes it up to the depth limit. Never throws: bytes of a string that
    // are not valid UTF-8 are replaced by U+FFFD, non-finite numbers become
    // null. The value is read in place, never copied.
    static std::string compactJSON(const ZMValue& value);
    static void appendCompactJSON(std::string& text, const ZMValue& value);
};
