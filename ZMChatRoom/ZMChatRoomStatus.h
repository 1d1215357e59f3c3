#pragma once

#include <cstdint>

// A room's membership status: stored in the cache entries and announced to
// the status observers.
enum ZMChatRoomStatus : int64_t {
    ZMChatRoomStatusJoining = 1,
    ZMChatRoomStatusJoined = 2,
    ZMChatRoomStatusJoinFailed = 3,
    ZMChatRoomStatusQuited = 4,
    ZMChatRoomStatusDestroyed = 5,
    ZMChatRoomStatusReset = 6,
};

// How a join enters the room; sent to the core unchanged.
enum ZMChatRoomJoinMode : int32_t {
    ZMChatRoomJoinModeDefault = 0,
    ZMChatRoomJoinModeAlternate = 1,
};
