// The services of the message content base: JSON payload parsing, the raw
// payload of a content that could not be decoded, and the base fields that
// travel beside a subclass's own keys.

#include <VemoIMLibCore/ZMMessageContent.h>

#include <VemoIMLibCore/ZMDictionaryReaders.h>
#include <Platform/ZMJSONSerialization.h>

namespace {

const char* const kExtraKey = "extra";
const char* const kUserKey = "user";
const char* const kMentionedInfoKey = "mentionedInfo";

}  // namespace

std::optional<ZMValue> ZMMessageContent::dictionaryFromJsonData(const ZMData& data) {
    try {
        return ZMJSONSerialization::dictionaryWithData(data);
    } catch (const std::exception&) {
        // The parser reports bad input by answering nothing; should it raise
        // instead, the bytes are still not a dictionary.
        return std::nullopt;
    }
}

void ZMMessageContent::setRawJSONData(ZMData data) { rawJSONData_ = std::move(data); }

void ZMMessageContent::decodeBaseData(const ZMValue& dict) {
    // Something that is not a parsed object carries no base fields; the
    // current ones stay. From an object every base field is read afresh, so a
    // key that is missing (or of the wrong kind) leaves its field unset.
    if (!dict.is_object()) return;
    extra = zmlib_stringForKey(dict, kExtraKey);
    senderUserInfo = zmlib_dictionaryForKey(dict, kUserKey);
    mentionedInfo = zmlib_dictionaryForKey(dict, kMentionedInfoKey);
}

ZMValue ZMMessageContent::encodeBaseData() const {
    ZMValue dict = ZMValue::object();
    if (extra) dict[kExtraKey] = *extra;
    // The base objects are written only as what they are on the wire:
    // dictionaries. Anything else would not read back.
    if (senderUserInfo.is_object()) dict[kUserKey] = senderUserInfo;
    if (mentionedInfo.is_object()) dict[kMentionedInfoKey] = mentionedInfo;
    return dict;
}
