#include <ZMChatRoom/Messages/ZMChatRoomMemberBanMessage.h>

#include <VemoIMLibCore/ZMDictionaryReaders.h>
#include <ZMChatRoom/Messages/ZMChatRoomMessageCodec.h>

// The ban type shares the wire key "operateType" with the block message; a
// "banType" key is neither read nor written.

void ZMChatRoomMemberBanMessage::decodeWithData(const ZMData& data) {
    std::optional<ZMValue> dict = ZMChatRoomMessageCodec::decodedPayload(*this, data);
    if (!dict) return;
    chatroomId = zmlib_stringForKey(*dict, "chatroomId");
    banType = zmlib_integerForKey(*dict, "operateType");
    operateTime = zmlib_longLongIntForKey(*dict, "operateTime");
    durationTime = zmlib_integerForKey(*dict, "durationTime");
    userIdList = zmlib_arrayForKey(*dict, "userList");
}

std::optional<ZMData> ZMChatRoomMemberBanMessage::encode() const {
    ZMValue dict = encodeBaseData();
    zmlib_setObject(dict, chatroomId ? ZMValue(*chatroomId) : ZMValue(), "chatroomId");
    zmlib_setObject(dict, ZMValue(banType), "operateType");
    zmlib_setObject(dict, ZMValue(operateTime), "operateTime");
    zmlib_setObject(dict, ZMValue(durationTime), "durationTime");
    zmlib_setObject(dict, userIdList, "userList");
    return ZMChatRoomMessageCodec::compactPayload(dict);
}
