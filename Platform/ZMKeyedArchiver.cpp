#include <Platform/ZMKeyedArchiver.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

#include <Platform/ZMKeyedArchiveFormat.h>

// The byte form is described in ZMKeyedArchiveFormat.h.
namespace {

using namespace ZMKeyedArchiveFormat;

class Writer {
public:
    ZMData bytes;

    void u8(uint8_t value) { bytes.push_back(value); }
    void varint(uint64_t value) {
        while (value >= 0x80) {
            bytes.push_back(static_cast<uint8_t>(value | 0x80));
            value >>= 7;
        }
        bytes.push_back(static_cast<uint8_t>(value));
    }
    void u64(uint64_t value) {
        for (int shift = 0; shift < 64; shift += 8) bytes.push_back(static_cast<uint8_t>(value >> shift));
    }
    void string(const std::string& text) {
        varint(text.size());
        bytes.insert(bytes.end(), text.begin(), text.end());
    }

    void value(const ZMValue& value) {
        switch (value.type()) {
            case ZMValue::value_t::boolean:
                u8(value.get<bool>() ? kTrue : kFalse);
                break;
            case ZMValue::value_t::number_integer:
                u8(kSigned);
                u64(static_cast<uint64_t>(value.get<int64_t>()));
                break;
            case ZMValue::value_t::number_unsigned:
                u8(kUnsigned);
                u64(value.get<uint64_t>());
                break;
            case ZMValue::value_t::number_float: {
                u8(kDouble);
                const double number = value.get<double>();
                uint64_t bits = 0;
                std::memcpy(&bits, &number, sizeof bits);
                u64(bits);
                break;
            }
            case ZMValue::value_t::string:
                u8(kString);
                string(value.get_ref<const std::string&>());
                break;
            case ZMValue::value_t::array:
                u8(kArray);
                varint(value.size());
                for (const auto& element : value) this->value(element);
                break;
            case ZMValue::value_t::object:
                u8(kDictionary);
                varint(value.size());
                for (const auto& [key, element] : value.items()) {
                    string(key);
                    this->value(element);
                }
                break;
            case ZMValue::value_t::binary: {
                u8(kBinary);
                const auto& binary = value.get_binary();
                varint(binary.size());
                bytes.insert(bytes.end(), binary.begin(), binary.end());
                u8(binary.has_subtype() ? 1 : 0);
                if (binary.has_subtype()) u64(binary.subtype());
                break;
            }
            case ZMValue::value_t::null:
            case ZMValue::value_t::discarded:
            default:
                u8(kNull);
                break;
        }
    }
};

}  // namespace

void ZMKeyedArchiver::encodeInteger(int64_t value, const std::string& key) {
    Entry entry;
    entry.isInteger = true;
    entry.integer = value;
    entries_[key] = std::move(entry);
}

void ZMKeyedArchiver::encodeObject(const ZMValue& object, const std::string& key) {
    Entry entry;
    entry.object = object;
    entries_[key] = std::move(entry);
}

ZMData ZMKeyedArchiver::encodedData() const {
    Writer writer;
    writer.bytes.assign(std::begin(kHeader), std::end(kHeader));
    writer.varint(entries_.size());
    for (const auto& [key, entry] : entries_) {
        writer.string(key);
        if (entry.isInteger) {
            writer.u8(kIntegerEntry);
            writer.u64(static_cast<uint64_t>(entry.integer));
        } else {
            writer.u8(kObjectEntry);
            writer.value(entry.object);
        }
    }
    return std::move(writer.bytes);
}
