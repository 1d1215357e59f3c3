#pragma once

#include <cstdint>
#include <memory>

#include <VemoIMLibCore/ZMValue.h>

// The record of a successful join, built from the core's join result.
struct ZMJoinChatRoomResponse {
    int64_t createTime = 0;                     // "create_time_", in the server's unit
    int64_t memberCount = 0;                    // "member_count_"
    bool isAllChatRoomBanned = false;           // "is_all_chatroom_banned_"
    bool isCurrentUserBanned = false;           // "is_current_user_banned_"
    bool isCurrentChatRoomBanned = false;       // "is_current_chatroom_banned_"
    bool isCurrentChatRoomInWhitelist = false;  // "is_current_chatroom_in_banned_whitelist_"

    // A new record filled from a join result dictionary; an absent or empty
    // dictionary gives the all-zero record.
    static std::shared_ptr<ZMJoinChatRoomResponse> responseWithDictionary(const ZMValue& result);
};
