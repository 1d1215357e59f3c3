#include <ZMChatRoom/Messages/ZMChatRoomMemberBlockMessage.h>

#include <VemoIMLibCore/ZMDictionaryReaders.h>
#include <ZMChatRoom/Messages/ZMChatRoomMessageCodec.h>

void ZMChatRoomMemberBlockMessage::decodeWithData(const ZMData& data) {
    std::optional<ZMValue> dict = ZMChatRoomMessageCodec::decodedPayload(*this, data);
    if (!dict) return;
    chatroomId = zmlib_stringForKey(*dict, "chatroomId");
    operateType = zmlib_integerForKey(*dict, "operateType");
    operateTime = zmlib_longLongIntForKey(*dict, "operateTime");
    durationTime = zmlib_integerForKey(*dict, "durationTime");
    // The user ids are passed on as the server sent them.
    userIdList = zmlib_arrayForKey(*dict, "userList");
}

std::optional<ZMData> ZMChatRoomMemberBlockMessage::encode() const {
    ZMValue dict = encodeBaseData();
    zmlib_setObject(dict, chatroomId ? ZMValue(*chatroomId) : ZMValue(), "chatroomId");
    zmlib_setObject(dict, ZMValue(operateType), "operateType");
    zmlib_setObject(dict, ZMValue(operateTime), "operateTime");
    zmlib_setObject(dict, ZMValue(durationTime), "durationTime");
    zmlib_setObject(dict, userIdList, "userList");
    return ZMChatRoomMessageCodec::compactPayload(dict);
}
