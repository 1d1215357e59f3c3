// Feeds arbitrary bytes to the platform's JSON reader and checks it against
// the JSON library's own parser: both accept the same texts and build equal
// values of the same kinds, except that the reader refuses what nests deeper
// than its limit.
#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <cstdlib>
#include <optional>
#include <utility>
#include <vector>

#include <Platform/ZMJSONSerialization.h>

namespace {

constexpr size_t kReaderDepthLimit = 512;

// Equal values, and every number of the same kind (the library compares an
// unsigned 1 equal to a signed 1 and to 1.0).
bool sameKinds(const ZMValue& a, const ZMValue& b) {
    std::vector<std::pair<const ZMValue*, const ZMValue*>> pending{{&a, &b}};
    while (!pending.empty()) {
        auto [left, right] = pending.back();
        pending.pop_back();
        if (left->type() != right->type() || left->size() != right->size()) return false;
        if (left->is_array()) {
            for (size_t i = 0; i < left->size(); ++i) pending.emplace_back(&(*left)[i], &(*right)[i]);
        } else if (left->is_object()) {
            auto l = left->begin();
            auto r = right->begin();
            for (; l != left->end(); ++l, ++r) {
                if (l.key() != r.key()) return false;
                pending.emplace_back(&l.value(), &r.value());
            }
        }
    }
    return true;
}

size_t depthOf(const ZMValue& root) {
    size_t deepest = 0;
    std::vector<std::pair<const ZMValue*, size_t>> pending{{&root, 0}};
    while (!pending.empty()) {
        auto [value, level] = pending.back();
        pending.pop_back();
        if (!value->is_structured()) continue;
        deepest = std::max(deepest, level + 1);
        for (const auto& element : *value) pending.emplace_back(&element, level + 1);
    }
    return deepest;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const ZMData data(bytes, bytes + size);
    const std::optional<ZMValue> read = ZMJSONSerialization::JSONObjectWithData(data);
    const ZMValue library = ZMValue::parse(data.begin(), data.end(), nullptr, /*allow_exceptions=*/false);
    const bool libraryAccepts = size > 0 && !library.is_discarded() && depthOf(library) <= kReaderDepthLimit;
    if (read.has_value() != libraryAccepts) std::abort();
    if (read && !(*read == library && sameKinds(*read, library))) std::abort();
    return 0;
}
