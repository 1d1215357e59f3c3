#pragma once

#include <cstdint>
#include <optional>
#include <string>

// One member's action in a member change: who, and the server's action code
// (passed through untouched).
struct ZMChatRoomMemberAction {
    ZMChatRoomMemberAction() = default;
    ZMChatRoomMemberAction(std::optional<std::string> memberId, int64_t action)
        : memberId(std::move(memberId)), action(action) {}

    std::optional<std::string> memberId;
    int64_t action = 0;
};
