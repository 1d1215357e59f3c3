#pragma once

#include <cstdint>
#include <string>

#include <Platform/ZMKeyedArchiver.h>

// Reads a keyed archive written by ZMKeyedArchiver.
class ZMKeyedUnarchiver {
public:
    // Bytes that are not an archive give an empty, invalid reader.
    explicit ZMKeyedUnarchiver(const ZMData& data);

    bool isValid() const { return valid_; }
    bool containsValueForKey(const std::string& key) const;
    // The integer stored under key; 0 when the key is missing or holds an object.
    int64_t decodeIntegerForKey(const std::string& key) const;
    // The object stored under key; null when the key is missing or holds an integer.
    ZMValue decodeObjectForKey(const std::string& key) const;

private:
    bool valid_ = false;
    std::map<std::string, ZMKeyedArchiver::Entry> entries_;
};
