#pragma once

// What the source files of ZMChatRoomClient share. The client is one class
// whose implementation is spread over files named after their concern:
//
//   ZMChatRoomClient.cpp                     singleton, queues, core listener, observers
//   ZMChatRoomClient+Membership.cpp          join, quit, the room cache and rejoin
//   ZMChatRoomClient+StatusNotification.cpp  room-status announcements
//   ZMChatRoomClient+Validation.cpp          argument validators
//   ZMChatRoomClient+KVStore.cpp             KV set, remove and read operations
//   ZMChatRoomClient+KVSync.cpp              first KV synchronisation and change delivery
//   ZMChatRoomClient+RoomQueries.cpp         room info, history, RTC binding
//
// Not installed: applications include ZMChatRoomClient.h only.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <Platform/ZMUTF16.h>
#include <VemoIMLibCore/ZMFwLog.h>
#include <VemoIMLibCore/ZMKernel.h>
#include <VemoIMLibCore/ZMNaviDataManager.h>
#include <ZMChatRoom/ZMChatRoomClient.h>
#include <ZMChatRoom/ZMChatRoomLogCommonTag.h>
#include <ZMChatRoom/ZMDelegateImplements.h>

// The tag of every diagnostic line the client writes, whichever of its files
// writes it: the base name of the client's main source file.
extern const std::string_view ZMChatRoomClientLogTag;

// Status announcements on their way to the notify queue. Announcements are
// delivered by delivery tasks on that queue, each delivering one batch: an
// announcement joins the batch of the last delivery task queued while no
// other task has been queued on the notify queue after it, and queues a
// delivery task of its own otherwise. So a burst of announcements costs one
// task and one wake-up of the queue, and every announcement is still
// delivered after each task queued on the notify queue before it was issued,
// and before each task queued after it.
struct ZMChatRoomClient::StatusAnnouncements {
    struct Announcement {
        std::string chatroomId;
        std::shared_ptr<ZMJoinChatRoomResponse> response;
        int64_t status = 0;
        int32_t errorCode = 0;
    };

    std::mutex lock;
    // Issued, in order, not yet taken by their delivery task (under lock).
    std::vector<Announcement> issued;
    // Where each queued delivery task's batch ends in issued, in queue
    // order (under lock).
    std::vector<size_t> batchEnds;
    // The notify queue's index of the last delivery task queued, while that
    // task has not taken its batch yet (under lock).
    std::optional<uint64_t> openBatchTask;
    // The notify queue's own: the announcements being delivered and the
    // status observers taken for them, and which of them the announcement
    // being delivered reaches. All keep their capacity from one delivery to
    // the next.
    std::vector<Announcement> delivering;
    std::vector<std::shared_ptr<ZMChatRoomStatusDelegate>> observers;
    std::vector<bool> reached;
};

namespace zm_client {

inline ZMFwLog& logger() { return ZMFwLog::getInstance(); }

inline ZMChatRoomPSManager& chatRoomService() { return ZMKernel::sharedInstance().chatRoomPSManager(); }

// The navigation data as the core has it at the moment of the call; null
// while the core has none.
inline std::shared_ptr<const ZMNaviData> naviData() { return ZMNaviDataManager::sharedInstance().naviData(); }

// Whether the navigation data enables the KV store; no data means disabled.
inline bool isKVStorageEnabled() {
    auto navi = naviData();
    return navi && navi->isChatroomKVStorageEnabled();
}

// The application's error callback as the core's error callback: passed
// through as it is, but never as an empty function, so that a core calling its
// error callback unconditionally cannot fail on an absent one.
inline ZMCoreErrorBlock guardedErrorBlock(const ZMErrorBlock& error) {
    return [error](int32_t code) {
        if (error) error(code);
    };
}

// The UTF-16 length of a value that is a valid UTF-8 string; nothing for
// anything else (absent, another kind, or bytes that are not UTF-8).
inline std::optional<size_t> stringLength(const ZMValue& value) {
    if (!value.is_string()) return std::nullopt;
    return ZMUTF16::length(value.get_ref<const std::string&>());
}

inline std::shared_ptr<ZMCacheChatRoomInfo> cacheEntry(ZMChatRoomClient& client, const std::string& chatroomId) {
    return client.cacheChatRoomDict().objectForKey(chatroomId).value_or(nullptr);
}

// The number of entries of a KV dictionary; anything else holds none.
inline size_t entryCount(const ZMValue& entries) { return entries.is_object() ? entries.size() : 0; }

// A filter's answer as the entries to deliver: a dictionary as it is,
// anything else (null included) as no entries.
inline ZMValue entriesFromFilterAnswer(ZMValue answer) {
    return answer.is_object() ? std::move(answer) : ZMValue::object();
}

using ZMKVFilterCallback = ZMValue (ZMChatRoomKVStatusFilterDelegate::*)(const std::string&, const ZMValue&);

// Passes KV entries through one callback of the filter observer when the
// filter implements it, writing the counts before and after under filterTag.
// Answers the entries to deliver: the filter's answer (kept in storage), or
// the given entries themselves when there is nothing to filter with.
inline const ZMValue& filteredEntries(ZMChatRoomKVStatusFilterDelegate* filter, ZMKVFilterCallback callback,
                                      const char* filterTag, const std::string& chatroomId, const ZMValue& entries,
                                      ZMValue& storage) {
    if (!filter || !ZMDelegateImplements(*filter, callback)) return entries;
    const size_t before = entryCount(entries);
    storage = entriesFromFilterAnswer((filter->*callback)(chatroomId, entries));
    logger().write(ZMLogLevelOperation, ZMLogTypeOperation, filterTag, "room_id:%@,before:%@,after:%@", chatroomId,
                   before, entryCount(storage));
    return storage;
}

}  // namespace zm_client
