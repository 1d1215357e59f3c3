#include <Platform/ZMKeyedUnarchiver.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include <Platform/ZMKeyedArchiveFormat.h>

// Reads the byte form written by ZMKeyedArchiver (ZMKeyedArchiveFormat.h). Every read is bounds-checked and
// any defect (bad magic, unknown tag, short data, trailing bytes, a key given
// twice, nesting deeper than kMaxDepth) rejects the whole archive.
namespace {

using namespace ZMKeyedArchiveFormat;

// Archives arrive from the network: bound the recursion of the reader (and of
// everything that later walks the decoded value).
constexpr int kMaxDepth = 512;

class Reader {
public:
    explicit Reader(const ZMData& data) : data_(data) {}

    bool atEnd() const { return position_ == data_.size(); }
    size_t remaining() const { return data_.size() - position_; }

    bool u8(uint8_t& out) {
        if (remaining() < 1) return false;
        out = data_[position_++];
        return true;
    }
    bool varint(uint64_t& out) {
        out = 0;
        for (int shift = 0; shift < 64; shift += 7) {
            uint8_t byte = 0;
            if (!u8(byte)) return false;
            out |= static_cast<uint64_t>(byte & 0x7F) << shift;
            if ((byte & 0x80) == 0) return true;
        }
        return false;
    }
    bool u64(uint64_t& out) {
        if (remaining() < 8) return false;
        out = 0;
        for (int shift = 0; shift < 64; shift += 8) out |= static_cast<uint64_t>(data_[position_++]) << shift;
        return true;
    }
    bool bytes(std::string& out) {
        uint64_t length = 0;
        if (!varint(length) || length > remaining()) return false;
        const auto* first = reinterpret_cast<const char*>(data_.data() + position_);
        out.assign(first, static_cast<size_t>(length));
        position_ += static_cast<size_t>(length);
        return true;
    }
    // A count of elements, each of which takes at least one byte: a count
    // larger than what is left is a lie and is refused before anything is built.
    bool count(uint64_t& out) { return varint(out) && out <= remaining(); }

    bool value(ZMValue& out, int depth) {
        if (depth > kMaxDepth) return false;
        uint8_t tag = 0;
        if (!u8(tag)) return false;
        switch (tag) {
            case kNull:
                out = nullptr;
                return true;
            case kFalse:
            case kTrue:
                out = tag == kTrue;
                return true;
            case kSigned: {
                uint64_t bits = 0;
                if (!u64(bits)) return false;
                out = static_cast<int64_t>(bits);
                return true;
            }
            case kUnsigned: {
                uint64_t number = 0;
                if (!u64(number)) return false;
                out = number;
                return true;
            }
            case kDouble: {
                uint64_t bits = 0;
                if (!u64(bits)) return false;
                double number = 0;
                std::memcpy(&number, &bits, sizeof number);
                out = number;
                return true;
            }
            case kString: {
                std::string text;
                if (!bytes(text)) return false;
                out = std::move(text);
                return true;
            }
            case kArray: {
                uint64_t n = 0;
                if (!count(n)) return false;
                out = ZMValue::array();
                for (uint64_t i = 0; i < n; ++i) {
                    ZMValue element;
                    if (!value(element, depth + 1)) return false;
                    out.push_back(std::move(element));
                }
                return true;
            }
            case kDictionary: {
                uint64_t n = 0;
                if (!count(n)) return false;
                out = ZMValue::object();
                for (uint64_t i = 0; i < n; ++i) {
                    std::string key;
                    ZMValue element;
                    if (!bytes(key) || !value(element, depth + 1)) return false;
                    if (out.contains(key)) return false;
                    out[key] = std::move(element);
                }
                return true;
            }
            case kBinary: {
                std::string raw;
                uint8_t hasSubtype = 0;
                if (!bytes(raw) || !u8(hasSubtype) || hasSubtype > 1) return false;
                ZMValue::binary_t::container_type content(raw.begin(), raw.end());
                if (hasSubtype == 1) {
                    uint64_t subtype = 0;
                    if (!u64(subtype)) return false;
                    out = ZMValue::binary(std::move(content), subtype);
                } else {
                    out = ZMValue::binary(std::move(content));
                }
                return true;
            }
            default:
                return false;
        }
    }

private:
    const ZMData& data_;
    size_t position_ = 0;
};

// Fills entries (the unarchiver's map, whose entry type is the archiver's)
// and answers whether the whole archive was well formed.
template <class EntryMap>
bool readArchive(const ZMData& data, EntryMap& entries) {
    Reader reader(data);
    uint8_t magic[5] = {};
    for (auto& byte : magic) {
        if (!reader.u8(byte)) return false;
    }
    if (!std::equal(std::begin(magic), std::end(magic), std::begin(kHeader))) {
        return false;
    }
    uint64_t n = 0;
    if (!reader.count(n)) return false;
    for (uint64_t i = 0; i < n; ++i) {
        std::string key;
        uint8_t kind = 0;
        if (!reader.bytes(key) || !reader.u8(kind)) return false;
        typename EntryMap::mapped_type entry;
        if (kind == kIntegerEntry) {
            uint64_t bits = 0;
            if (!reader.u64(bits)) return false;
            entry.isInteger = true;
            entry.integer = static_cast<int64_t>(bits);
        } else if (kind == kObjectEntry) {
            if (!reader.value(entry.object, 1)) return false;
        } else {
            return false;
        }
        if (!entries.emplace(std::move(key), std::move(entry)).second) return false;
    }
    if (!reader.atEnd()) return false;
    return true;
}

}  // namespace

ZMKeyedUnarchiver::ZMKeyedUnarchiver(const ZMData& data) {
    valid_ = readArchive(data, entries_);
    if (!valid_) entries_.clear();
}

bool ZMKeyedUnarchiver::containsValueForKey(const std::string& key) const { return entries_.count(key) != 0; }

int64_t ZMKeyedUnarchiver::decodeIntegerForKey(const std::string& key) const {
    auto found = entries_.find(key);
    if (found == entries_.end() || !found->second.isInteger) return 0;
    return found->second.integer;
}

ZMValue ZMKeyedUnarchiver::decodeObjectForKey(const std::string& key) const {
    auto found = entries_.find(key);
    if (found == entries_.end() || found->second.isInteger) return nullptr;
    return found->second.object;
}
