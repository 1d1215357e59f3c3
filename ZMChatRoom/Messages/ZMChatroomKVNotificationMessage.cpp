#include <ZMChatRoom/Messages/ZMChatroomKVNotificationMessage.h>

#include <VemoIMLibCore/ZMDictionaryReaders.h>
#include <ZMChatRoom/Messages/ZMChatRoomMessageCodec.h>

namespace {

ZMValue optionalString(const std::optional<std::string>& text) {
    return text ? ZMValue(*text) : ZMValue();
}

// An archived object read back as a string; anything else reads as nothing.
std::optional<std::string> archivedString(const ZMKeyedUnarchiver& coder, const std::string& key) {
    ZMValue object = coder.decodeObjectForKey(key);
    if (!object.is_string()) return std::nullopt;
    return object.get<std::string>();
}

}  // namespace

std::shared_ptr<ZMChatroomKVNotificationMessage> ZMChatroomKVNotificationMessage::notificationWithType(
    int64_t type, const std::optional<std::string>& key, const std::optional<std::string>& value,
    const std::optional<std::string>& extra) {
    auto message = std::make_shared<ZMChatroomKVNotificationMessage>();
    message->type = type;
    message->key = key;
    message->value = value;
    message->extra = extra;
    return message;
}

ZMChatroomKVNotificationMessage::ZMChatroomKVNotificationMessage(const ZMKeyedUnarchiver& coder) {
    // The base's own archive form is not read: the base extra is the only base
    // field kept in the archive, under "extra".
    type = coder.decodeIntegerForKey("type");
    key = archivedString(coder, "key");
    value = archivedString(coder, "value");
    extra = archivedString(coder, "extra");
}

void ZMChatroomKVNotificationMessage::encodeWithCoder(ZMKeyedArchiver& coder) const {
    // The type goes under "key" and is immediately replaced by the key itself,
    // so nothing is stored under "type" and an archived message reads back
    // with type 0. This is the message's established archive layout and is
    // kept as is; the JSON payload carries the type correctly.
    coder.encodeInteger(type, "key");
    coder.encodeObject(optionalString(key), "key");
    coder.encodeObject(optionalString(value), "value");
    coder.encodeObject(optionalString(extra), "extra");
}

void ZMChatroomKVNotificationMessage::decodeWithData(const ZMData& data) {
    std::optional<ZMValue> dict = ZMChatRoomMessageCodec::decodedPayload(*this, data);
    if (!dict) return;
    type = zmlib_integerForKey(*dict, "type");
    // Keys and values may arrive as numbers; they are read as decimal text.
    key = zmlib_mix_stringForKey(*dict, "key");
    value = zmlib_mix_stringForKey(*dict, "value");
}

std::optional<ZMData> ZMChatroomKVNotificationMessage::encode() const {
    ZMValue dict = encodeBaseData();
    zmlib_setObject(dict, ZMValue(type), "type");
    zmlib_setObject(dict, optionalString(key), "key");
    zmlib_setObject(dict, optionalString(value), "value");
    return ZMChatRoomMessageCodec::compactPayload(dict);
}
