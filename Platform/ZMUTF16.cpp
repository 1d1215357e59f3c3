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
size_t ZMUTF16::sequenceLength(std::string_view text) {
    if (text.empty()) return 0;
    auto byteAt = [&](size_t index) { return static_cast<uint8_t>(text[index]); };
    const uint8_t lead = byteAt(0);
    size_t length = 0;
    uint8_t secondLow = 0x80;
    uint8_t secondHigh = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) secondLow = 0xA0;
        if (lead == 0xED) secondHigh = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) secondLow = 0x90;
        if (lead == 0xF4) secondHigh = 0x8F;
    } else {
        return 0;  // ASCII, a continuation byte, C0/C1 or F5..FF
    }
    if (text.size() < length) return 0;
    if (byteAt(1) < secondLow || byteAt(1) > secondHigh) return 0;
    for (size_t k = 2; k < length; ++k) {
        if ((byteAt(k) & 0xC0) != 0x80) return 0;
    }
    return length;
}

std::optional<size_t> ZMUTF16::length(std::string_view utf8) {
    size_t units = 0;
    size_t i = 0;
    while (i < utf8.size()) {
        if (static_cast<uint8_t>(utf8[i]) < 0x80) {
            ++units;
            ++i;
            continue;
        }
        const size_t sequence = sequenceLength(utf8.substr(i));
        if (sequence == 0) return std::nullopt;
        units += sequence == 4 ? 2 : 1;  // outside the BMP: a surrogate pair
        i += sequence;
    }
    return units;
}
