#pragma once

#include <optional>

#include <VemoIMLibCore/ZMValue.h>

// JSON text in both directions.
class ZMJSONSerialization {
public:
    // Parses bytes (UTF-8 JSON text) into a value; nothing when they are not
    // JSON, hold invalid UTF-8, or are empty.
    static std::optional<ZMValue> JSONObjectWithData(const ZMData& data);
    // The same, but only a dictionary counts; anything else gives nothing.
    static std::optional<ZMValue> dictionaryWithData(const ZMData& data);

    // The writer's validity test: the top level is an array or a dictionary;
    // every value inside is a string, a finite number, a boolean, null, an
    // array or a dictionary (binary values are not JSON); every string and
    // key is valid UTF-8 (the writer writes text); and no array or dictionary
    // is nested deeper than the parser reads (512 levels, the top level
    // counting 1). Never recurses, whatever the depth.
    static bool isValidJSONObject(const ZMValue& object);

    // Serialises a valid object as compact or pretty-printed (indented, one
    // member per line) UTF-8 text. Raises ZMPlatformException when the object
    // fails isValidJSONObject.
    static ZMData dataWithJSONObject(const ZMValue& object, bool prettyPrinted);
};
