#include <ZMChatRoom/ZMJoinChatRoomResponse.h>

#include <VemoIMLibCore/ZMDictionaryReaders.h>

std::shared_ptr<ZMJoinChatRoomResponse> ZMJoinChatRoomResponse::responseWithDictionary(const ZMValue& result) {
    auto response = std::make_shared<ZMJoinChatRoomResponse>();
    if (result.is_object() && !result.empty()) {
        response->createTime = zmlib_longLongIntForKey(result, "create_time_");
        response->memberCount = zmlib_integerForKey(result, "member_count_");
        response->isAllChatRoomBanned = zmlib_boolForKey(result, "is_all_chatroom_banned_");
        response->isCurrentUserBanned = zmlib_boolForKey(result, "is_current_user_banned_");
        response->isCurrentChatRoomBanned = zmlib_boolForKey(result, "is_current_chatroom_banned_");
        response->isCurrentChatRoomInWhitelist = zmlib_boolForKey(result, "is_current_chatroom_in_banned_whitelist_");
    }
    return response;
}
