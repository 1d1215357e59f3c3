#include <optional>
#include <string>

#include <gtest/gtest.h>

#include <Platform/ZMUTF16.h>

namespace {

TEST(ZMUTF16Test, CountsUnitsOfWellFormedTextAndRejectsEveryMalformedSequence) {
    const struct {
        const char* name;
        std::string utf8;
        std::optional<size_t> units;
    } cases[] = {
        {"empty", "", 0},
        {"ASCII with embedded NUL", std::string("a\0b", 3), 3},
        {"U+007F", "\x7F", 1},
        {"U+0080, first 2-byte", "\xC2\x80", 1},
        {"U+07FF, last 2-byte", "\xDF\xBF", 1},
        {"U+0800, first 3-byte", "\xE0\xA0\x80", 1},
        {"U+D7FF, below surrogates", "\xED\x9F\xBF", 1},
        {"U+E000, above surrogates", "\xEE\x80\x80", 1},
        {"U+FFFF, last 3-byte", "\xEF\xBF\xBF", 1},
        {"U+10000, first 4-byte", "\xF0\x90\x80\x80", 2},
        {"U+10FFFF, last code point", "\xF4\x8F\xBF\xBF", 2},
        {"mixed widths", "a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x91\x8Dz", 6},
        {"overlong 2-byte, C1 lead", "\xC1\xBF", std::nullopt},
        {"overlong 3-byte", "\xE0\x9F\xBF", std::nullopt},
        {"overlong 4-byte", "\xF0\x8F\xBF\xBF", std::nullopt},
        {"surrogate U+D800", "\xED\xA0\x80", std::nullopt},
        {"surrogate U+DFFF", "\xED\xBF\xBF", std::nullopt},
        {"U+110000", "\xF4\x90\x80\x80", std::nullopt},
        {"lone continuation", "\x80", std::nullopt},
        {"truncated 2-byte at end", "ab\xC3", std::nullopt},
        {"continuation replaced by ASCII", "\xE2\x82" "a", std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(ZMUTF16::length(c.utf8), c.units) << c.name;
}

}  // namespace
