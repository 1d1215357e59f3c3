#include <ZMChatRoom/Messages/ZMChatRoomMessageCodec.h>

#include <Platform/ZMJSONSerialization.h>
#include <Platform/ZMPlatformException.h>

std::optional<ZMValue> ZMChatRoomMessageCodec::decodedPayload(ZMMessageContent& message, const ZMData& data) {
    std::optional<ZMValue> dict = ZMMessageContent::dictionaryFromJsonData(data);
    if (!dict) {
        message.setRawJSONData(data);
        return std::nullopt;
    }
    message.decodeBaseData(*dict);
    return dict;
}

std::optional<ZMData> ZMChatRoomMessageCodec::compactPayload(const ZMValue& dict) {
    try {
        return ZMJSONSerialization::dataWithJSONObject(dict, false);
    } catch (const ZMPlatformException&) {
        return std::nullopt;
    }
}
