#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <VemoIMLibCore/ZMValue.h>

// Members of a room were blocked or unblocked. Values are the server's,
// passed through unchanged.
struct ZMChatRoomMemberBlockEvent {
    std::optional<std::string> chatroomId;
    int64_t operateType = 0;
    int64_t durationTime = 0;
    int64_t operateTime = 0;
    ZMValue userIdList;  // array of user ids as the server sent it, or null
    std::optional<std::string> extra;
};
