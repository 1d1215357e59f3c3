#pragma once

#include <cstdint>
#include <optional>
#include <string>

// Another login of the same user joined or left a room. Values are the
// server's, passed through unchanged.
struct ZMChatRoomSyncEvent {
    std::optional<std::string> chatroomId;
    int64_t status = 0;
    int64_t reason = 0;
    int64_t time = 0;
    std::optional<std::string> extra;
};
