#pragma once

#include <cstdint>
#include <map>
#include <string>

#include <VemoIMLibCore/ZMValue.h>

// Writes integers and objects under string keys into a keyed archive. A
// second write under the same key replaces the first, whatever its kind.
class ZMKeyedArchiver {
public:
    void encodeInteger(int64_t value, const std::string& key);
    // Stores a value (null included) as an object entry.
    void encodeObject(const ZMValue& object, const std::string& key);
    // The archive's byte form, read back by ZMKeyedUnarchiver. Every value
    // round-trips, strings that are not valid UTF-8 included.
    ZMData encodedData() const;

private:
    friend class ZMKeyedUnarchiver;
    struct Entry {
        bool isInteger = false;
        int64_t integer = 0;
        ZMValue object;
    };
    std::map<std::string, Entry> entries_;
};
