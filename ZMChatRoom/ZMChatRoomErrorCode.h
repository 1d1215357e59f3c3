#pragma once

#include <cstdint>

// Codes the module reports itself, or core result codes it gives a meaning.
// Every other core code reaches the application unchanged.
enum ZMChatRoomErrorCode : int32_t {
    ZMErrorInvalidParameter = 34210,          // room id invalid (for rejoin: empty)
    ZMErrorInvalidJoinMode = 34258,           // join mode other than 0 or 1
    ZMErrorInvalidRtcRoomId = 34259,          // RTC room id invalid
    ZMErrorInvalidKVKey = 34260,              // a KV key fails its validator
    ZMErrorKVKeysEmpty = 34261,               // key array absent or empty
    ZMErrorInvalidKVValue = 34262,            // a KV value fails its validator
    ZMErrorKVEntriesEmpty = 34263,            // entries dictionary absent or empty
    ZMErrorInvalidNotificationExtra = 34264,  // notification extra fails its validator
    ZMErrorInvalidMemberOrder = 34265,        // room info order other than 1 or 2
    ZMErrorInvalidHistoryOrder = 34266,       // history order 2 or greater
    ZMErrorInvalidMessageCount = 34232,       // history count outside 1 to 200
    ZMErrorInvalidRecordTime = 34202,         // negative history record time
    ZMErrorKVNotSynchronized = 34004,         // the room's KV entries are not synchronised
    ZMErrorKVStorageDisabled = 23426,         // KV store switched off in the navigation data
    ZMErrorKVEntryQueryFailed = 23427,        // any failure of the single-entry read
    ZMErrorKVBatchTooLarge = 23429,           // more than 10 entries or keys in a batch write or remove
    ZMErrorMessageStoreDisabled = 23414,      // server-side message storage switched off
    ZMCodeJoinedWithReset = 33009,            // join/rejoin/quit success; a join passes through status 6
    ZMErrorRoomIdNotValidLogged = 33003,      // logged (not reported) by quit for an invalid room id
};

// Core join failures after which a room is dropped and not rejoined.
inline constexpr int32_t ZMErrorJoinRejectedFinal[] = {23409, 23410, 20605};

// The error code of the failed announcements made when the connection is lost.
inline constexpr int32_t ZMErrorConnectionLost = -1;
