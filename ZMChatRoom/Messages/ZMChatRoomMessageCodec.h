#pragma once

#include <optional>

#include <VemoIMLibCore/ZMMessageContent.h>

// The two steps every chat-room message shares around its own fields.
class ZMChatRoomMessageCodec {
public:
    // The payload's JSON object with the message's base fields already read
    // from it; nothing when the payload is not a JSON object, in which case the
    // bytes are kept on the message as its raw data and its fields stay as they are.
    static std::optional<ZMValue> decodedPayload(ZMMessageContent& message, const ZMData& data);
    // The dictionary as compact JSON bytes, or nothing when it cannot be
    // serialised (for example a string that is not UTF-8); never throws.
    static std::optional<ZMData> compactPayload(const ZMValue& dict);
};
