#include <ZMChatRoom/Messages/ZMChatRoomSyncMessage.h>

#include <VemoIMLibCore/ZMDictionaryReaders.h>
#include <ZMChatRoom/Messages/ZMChatRoomMessageCodec.h>

void ZMChatRoomSyncMessage::decodeWithData(const ZMData& data) {
    std::optional<ZMValue> dict = ZMChatRoomMessageCodec::decodedPayload(*this, data);
    if (!dict) return;
    chatroomId = zmlib_stringForKey(*dict, "chatroomId");
    status = zmlib_integerForKey(*dict, "status");
    reason = zmlib_integerForKey(*dict, "reason");
    time = zmlib_longLongIntForKey(*dict, "time");
}

std::optional<ZMData> ZMChatRoomSyncMessage::encode() const {
    ZMValue dict = encodeBaseData();
    zmlib_setObject(dict, chatroomId ? ZMValue(*chatroomId) : ZMValue(), "chatroomId");
    zmlib_setObject(dict, ZMValue(status), "status");
    zmlib_setObject(dict, ZMValue(reason), "reason");
    zmlib_setObject(dict, ZMValue(time), "time");
    return ZMChatRoomMessageCodec::compactPayload(dict);
}
