#pragma once

#include <cstdint>
#include <optional>
#include <string>

// One member of a room info reply.
struct ZMChatRoomMemberInfo {
    std::optional<std::string> userId;
    int64_t joinTime = 0;
};
