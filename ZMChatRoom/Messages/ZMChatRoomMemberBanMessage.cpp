#include <ZMChatRoom/Messages/ZMChatRoomMemberBanMessage.h>

#include <Platform/ZMJSONSerialization.h>
#include <Platform/ZMPlatformException.h>
#include <VemoIMLibCore/ZMDictionaryReaders.h>

// The ban type shares the wire key "operateType" with the block message; a
// "banType" key is neither read nor written.

void ZMChatRoomMemberBanMessage::decodeWithData(const ZMData& data) {
    std::optional<ZMValue> dict = ZMMessageContent::dictionaryFromJsonData(data);
    if (!dict) {
        setRawJSONData(data);
        return;
    }
    decodeBaseData(*dict);
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
    try {
        return ZMJSONSerialization::dataWithJSONObject(dict, false);
    } catch (const ZMPlatformException&) {
        return std::nullopt;
    }
}
