#include <ZMChatRoom/Messages/ZMChatRoomMemberBlockMessage.h>

#include <Platform/ZMJSONSerialization.h>
#include <Platform/ZMPlatformException.h>
#include <VemoIMLibCore/ZMDictionaryReaders.h>

void ZMChatRoomMemberBlockMessage::decodeWithData(const ZMData& data) {
    std::optional<ZMValue> dict = ZMMessageContent::dictionaryFromJsonData(data);
    if (!dict) {
        setRawJSONData(data);
        return;
    }
    decodeBaseData(*dict);
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
    try {
        return ZMJSONSerialization::dataWithJSONObject(dict, false);
    } catch (const ZMPlatformException&) {
        return std::nullopt;
    }
}
