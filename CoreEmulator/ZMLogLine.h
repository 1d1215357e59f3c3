#pragma once

#include <cstdint>
#include <string>

// One line written to the emulated logger, with its format already rendered.
struct ZMLogLine {
    int32_t level = 0;
    int32_t type = 0;
    std::string tag;
    std::string text;

    bool operator==(const ZMLogLine&) const = default;
};
