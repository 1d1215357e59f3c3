#include <ZMChatRoom/Messages/ZMChatRoomMemberActionMessage.h>

#include <VemoIMLibCore/ZMDictionaryReaders.h>
#include <ZMChatRoom/Messages/ZMChatRoomMessageCodec.h>

void ZMChatRoomMemberActionMessage::decodeWithData(const ZMData& data) {
    // Not a JSON object: the bytes are kept raw and the fields stay as they are.
    std::optional<ZMValue> dict = ZMChatRoomMessageCodec::decodedPayload(*this, data);
    if (!dict) return;

    std::vector<std::shared_ptr<ZMChatRoomMemberAction>> actions;
    const ZMValue users = zmlib_arrayForKey(*dict, "userList");
    if (users.is_array()) {
        actions.reserve(users.size());
        for (const ZMValue& user : users) {
            // Only objects describe a member; anything else is skipped.
            if (!user.is_object()) continue;
            auto action = std::make_shared<ZMChatRoomMemberAction>();
            action->memberId = zmlib_stringForKey(user, "userId");
            action->action = zmlib_integerForKey(user, "status");
            actions.push_back(std::move(action));
        }
    }
    userList = std::move(actions);
    memberCount = zmlib_unsignedIntegerForKey(*dict, "memberCount");
}

std::optional<ZMData> ZMChatRoomMemberActionMessage::encode() const {
    ZMValue dict = encodeBaseData();

    // Actions without a member id would be meaningless to the receivers, so
    // they are left out of the payload (decoding keeps them).
    ZMValue users = ZMValue::array();
    for (const auto& action : userList) {
        if (!action || !action->memberId || action->memberId->empty()) continue;
        users.push_back(ZMValue{{"userId", *action->memberId}, {"status", action->action}});
    }
    zmlib_setObject(dict, users, "userList");
    zmlib_setObject(dict, ZMValue(memberCount), "memberCount");

    return ZMChatRoomMessageCodec::compactPayload(dict);
}
