#include <Platform/ZMUTF16.h>

#include <cstdint>

// Walks the bytes once, accepting exactly the well-formed UTF-8 sequences:
//   U+0000..U+007F     00..7F
//   U+0080..U+07FF     C2..DF 80..BF
//   U+0800..U+FFFF     E0 A0..BF 80..BF | E1..EC 80..BF 80..BF
//                      ED 80..9F 80..BF (no surrogates) | EE..EF 80..BF 80..BF
//   U+10000..U+10FFFF  F0 90..BF 80..BF 80..BF | F1..F3 80..BF 80..BF 80..BF
//                      F4 80..8F 80..BF 80..BF
// The narrowed second-byte ranges are what exclude overlong forms, UTF-16
// surrogates and values above U+10FFFF.
std::optional<size_t> ZMUTF16::length(std::string_view utf8) {
    size_t units = 0;
    size_t i = 0;
    const size_t size = utf8.size();
    auto byteAt = [&](size_t index) { return static_cast<uint8_t>(utf8[index]); };
    auto isContinuation = [&](size_t index) { return index < size && (byteAt(index) & 0xC0) == 0x80; };

    while (i < size) {
        const uint8_t lead = byteAt(i);
        if (lead < 0x80) {
            ++units;
            ++i;
            continue;
        }
        size_t sequenceLength = 0;
        uint8_t secondLow = 0x80;
        uint8_t secondHigh = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            sequenceLength = 2;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            sequenceLength = 3;
            if (lead == 0xE0) secondLow = 0xA0;
            if (lead == 0xED) secondHigh = 0x9F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            sequenceLength = 4;
            if (lead == 0xF0) secondLow = 0x90;
            if (lead == 0xF4) secondHigh = 0x8F;
        } else {
            return std::nullopt;  // a continuation byte, C0/C1 or F5..FF
        }
        if (i + 1 >= size) return std::nullopt;
        const uint8_t second = byteAt(i + 1);
        if (second < secondLow || second > secondHigh) return std::nullopt;
        for (size_t k = 2; k < sequenceLength; ++k) {
            if (!isContinuation(i + k)) return std::nullopt;
        }
        units += sequenceLength == 4 ? 2 : 1;  // outside the BMP: a surrogate pair
        i += sequenceLength;
    }
    return units;
}
