#pragma once

#include <cstdint>
#include <vector>

#include <nlohmann/json.hpp>

// The loosely typed value of the whole interface: absent (null), string,
// number, boolean, array or dictionary. Room ids, keys, values, extras,
// entry dictionaries and key arrays travel as ZMValue so that an absent or
// non-string argument reaches the validators exactly as a caller passed it.
using ZMValue = nlohmann::json;

// The byte form of a message payload or an archive.
using ZMData = std::vector<uint8_t>;
