#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include <VemoIMLibCore/ZMValue.h>

// Values nested deep, for the tests of depth limits, and the text the
// emulator's logger writes for them.

// Arrays (or dictionaries, each under the key "k") nested `depth` levels
// around `innermost`. Built by moving, without recursion; nlohmann::json also
// destroys it without recursion, while copying, comparing or dump() recurse
// once per level.
inline ZMValue nestedValue(size_t depth, bool dictionaries, ZMValue innermost = "leaf") {
    for (size_t level = 0; level < depth; ++level) {
        ZMValue outer = dictionaries ? ZMValue::object() : ZMValue::array();
        if (dictionaries) {
            outer["k"] = std::move(innermost);
        } else {
            outer.push_back(std::move(innermost));
        }
        innermost = std::move(outer);
    }
    return innermost;
}

// What the logger writes for such a value nested deeper than `levels`: the
// first `levels` containers, "…" (U+2026) in place of the next, closed again.
inline std::string cutShortText(size_t levels, bool dictionaries) {
    std::string text;
    for (size_t level = 0; level < levels; ++level) text += dictionaries ? "{\"k\":" : "[";
    text += "\xE2\x80\xA6";
    text += std::string(levels, dictionaries ? '}' : ']');
    return text;
}
