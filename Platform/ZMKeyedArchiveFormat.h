#pragma once

#include <cstdint>

// The byte form of a keyed archive, written by ZMKeyedArchiver and read by
// ZMKeyedUnarchiver. Its own encoding rather than JSON text, so that strings
// that are not valid UTF-8 and binary values survive unchanged:
//
//   archive  = "ZMKA" version(1) count(varint) entry*      entries in key order
//   entry    = string(key) ( 'I' int64 | 'O' value )
//   value    = 0 null | 1 false | 2 true
//            | 3 int64 | 4 uint64 | 5 double              8 bytes, little-endian
//            | 6 string                                   varint length + bytes
//            | 7 count(varint) value*                     array
//            | 8 count(varint) (string value)*            dictionary
//            | 9 string(bytes) 0 | 9 string(bytes) 1 uint64(subtype)   binary
//   varint   = unsigned LEB128
namespace ZMKeyedArchiveFormat {

inline constexpr uint8_t kHeader[5] = {'Z', 'M', 'K', 'A', 1};
inline constexpr uint8_t kIntegerEntry = 'I';
inline constexpr uint8_t kObjectEntry = 'O';

enum Tag : uint8_t {
    kNull = 0,
    kFalse = 1,
    kTrue = 2,
    kSigned = 3,
    kUnsigned = 4,
    kDouble = 5,
    kString = 6,
    kArray = 7,
    kDictionary = 8,
    kBinary = 9,
};

}  // namespace ZMKeyedArchiveFormat
