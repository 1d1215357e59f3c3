#pragma once

#include <atomic>
#include <cstdint>

// One room of the membership cache: the arguments of the last user join and
// the room's current status. Changed in place, without a lock, from the
// operation queue and the core's threads, so every field is atomic.
struct ZMCacheChatRoomInfo {
    std::atomic<int32_t> messageCount{0};  // already clamped: negative stored as -1
    std::atomic<int32_t> joinMode{0};
    std::atomic<bool> joinedEver{false};   // recorded only; no decision reads it
    std::atomic<bool> joinExistOnly{false};
    std::atomic<int64_t> status{0};        // ZMChatRoomStatus: 1, 2, 3 or 6
};
