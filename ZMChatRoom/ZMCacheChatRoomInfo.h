#pragma once

#include <atomic>
#include <cstdint>

#include <ZMChatRoom/ZMChatRoomStatus.h>

// A cache entry's room status (ZMChatRoomStatus), read and changed in place
// from several threads without a lock, like an std::atomic<int64_t>.
//
// The client's rejoin sweeps retry the cached rooms that await a rejoin: those
// whose status is neither joining (1), joined (2) nor reset (6). So that the
// 2-second rejoin timer can tell at once that there is nothing to retry,
// without walking the cache, the client keeps a count of them: an entry
// counts while it is in the client's membership cache (between enterCache()
// and leaveCache(), which the client calls around adding and removing it) and
// its status awaits a rejoin. Every change of the status keeps the count,
// whoever makes it. The status and the in-cache mark share one atomic word,
// so a change and the entry's removal cannot both miss (or both apply) their
// part of the count. The count is raised before a change that raises it
// becomes visible and lowered after one that lowers it, so it is never below
// the number of cached entries that await a rejoin.
class ZMCacheChatRoomStatus {
public:
    ZMCacheChatRoomStatus() = default;
    ZMCacheChatRoomStatus(const ZMCacheChatRoomStatus&) = delete;
    ZMCacheChatRoomStatus& operator=(const ZMCacheChatRoomStatus&) = delete;

    int64_t load() const noexcept { return statusOf(word_.load(std::memory_order_acquire)); }
    operator int64_t() const noexcept { return load(); }
    void store(int64_t status) noexcept;
    ZMCacheChatRoomStatus& operator=(int64_t status) noexcept {
        store(status);
        return *this;
    }

    // Whether a room with this status awaits a rejoin.
    static constexpr bool awaitsRejoin(int64_t status) noexcept {
        return status != ZMChatRoomStatusJoining && status != ZMChatRoomStatusJoined && status != ZMChatRoomStatusReset;
    }
    // How many entries of the client's cache await a rejoin (never fewer
    // than there are; more only while a change is under way).
    static int64_t awaitingRejoinCount() noexcept;

    // The client marks its entries in and out of its cache: in before an entry
    // is added, out after it was removed.
    void enterCache() noexcept;
    void leaveCache() noexcept;
    bool isCached() const noexcept { return (word_.load(std::memory_order_acquire) & kCachedBit) != 0; }

private:
    // The status in the low 63 bits (two's complement, so every status from
    // -2^62 to 2^62 - 1 reads back as written), the in-cache mark in bit 63.
    static constexpr uint64_t kCachedBit = uint64_t{1} << 63;
    static constexpr int64_t statusOf(uint64_t word) noexcept {
        return static_cast<int64_t>(word << 1) >> 1;
    }
    static constexpr uint64_t wordOf(int64_t status, uint64_t cachedBit) noexcept {
        return (static_cast<uint64_t>(status) & ~kCachedBit) | cachedBit;
    }
    // Sets the word to change(word), keeping the count for the transition.
    template <class Change>
    void update(Change change) noexcept;

    std::atomic<uint64_t> word_{0};
};

// One room of the membership cache: the arguments of the last user join and
// the room's current status. Changed in place, without a lock, from the
// operation queue and the core's threads, so every field is atomic.
struct ZMCacheChatRoomInfo {
    std::atomic<int32_t> messageCount{0};  // already clamped: negative stored as -1
    std::atomic<int32_t> joinMode{0};
    std::atomic<bool> joinedEver{false};   // recorded only; no decision reads it
    std::atomic<bool> joinExistOnly{false};
    ZMCacheChatRoomStatus status;          // ZMChatRoomStatus: 1, 2, 3 or 6
};
