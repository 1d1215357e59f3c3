#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <ZMChatRoom/Models/ZMChatRoomMemberInfo.h>

// A room's total member count and a short member list, as the server
// answered a room info query.
struct ZMChatRoomInfo {
    std::string targetId;
    uint64_t memberOrder = 0;
    // Unset (not empty) when the server returned no member.
    std::optional<std::vector<std::shared_ptr<ZMChatRoomMemberInfo>>> memberInfoArray;
    int32_t totalMemberCount = 0;
};
