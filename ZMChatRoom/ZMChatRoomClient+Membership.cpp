#include <ZMChatRoom/ZMChatRoomClient+Internal.h>

#include <Platform/ZMMainQueue.h>
#include <VemoIMLibCore/ZMCoreClient.h>
#include <VemoIMLibCore/ZMNetDetection.h>

// Join and quit, the membership cache and the automatic rejoin of cached rooms
// after a reconnection, with its 2-second repeating timer on the main queue.

using namespace zm_client;

// The repeating rejoin timer. Created, invalidated and read only by tasks of
// the main queue, so it needs no lock. Never destroyed, like the client: a
// main queue driven by another thread may still reach it while the process exits.
static std::shared_ptr<ZMTimer>& zmChatRoomRejoinTimer = *new std::shared_ptr<ZMTimer>();

namespace {

constexpr double kRejoinTimerInterval = 2.0;

// Join, rejoin and quit count the core's reset answer as success.
bool isJoinSuccessCode(int32_t code) { return code == 0 || code == ZMCodeJoinedWithReset; }

bool isFinalJoinFailure(int32_t code) {
    for (int32_t finalCode : ZMErrorJoinRejectedFinal) {
        if (code == finalCode) return true;
    }
    return false;
}

int32_t clampMessageCount(int32_t messageCount) { return messageCount < 0 ? -1 : messageCount; }

// Cached entries whose status awaits a rejoin (see ZMCacheChatRoomStatus).
std::atomic<int64_t> gAwaitingRejoin{0};

}  // namespace

// ---- Cache entry status and the count of rooms awaiting a rejoin -----------------

template <class Change>
void ZMCacheChatRoomStatus::update(Change change) noexcept {
    uint64_t old = word_.load(std::memory_order_acquire);
    for (;;) {
        const uint64_t word = change(old);
        const bool counted = (old & kCachedBit) != 0 && awaitsRejoin(statusOf(old));
        const bool counts = (word & kCachedBit) != 0 && awaitsRejoin(statusOf(word));
        // Raised before the change can be seen, lowered after: never below the truth.
        if (counts && !counted) gAwaitingRejoin.fetch_add(1, std::memory_order_acq_rel);
        if (word_.compare_exchange_weak(old, word, std::memory_order_acq_rel, std::memory_order_acquire)) {
            if (counted && !counts) gAwaitingRejoin.fetch_sub(1, std::memory_order_acq_rel);
            return;
        }
        if (counts && !counted) gAwaitingRejoin.fetch_sub(1, std::memory_order_acq_rel);  // retried from the new word
    }
}

void ZMCacheChatRoomStatus::store(int64_t status) noexcept {
    update([status](uint64_t word) { return wordOf(status, word & kCachedBit); });
}

void ZMCacheChatRoomStatus::enterCache() noexcept {
    update([](uint64_t word) { return word | kCachedBit; });
}

void ZMCacheChatRoomStatus::leaveCache() noexcept {
    update([](uint64_t word) { return word & ~kCachedBit; });
}

int64_t ZMCacheChatRoomStatus::awaitingRejoinCount() noexcept {
    return gAwaitingRejoin.load(std::memory_order_acquire);
}

// Every entry enters the cache and leaves it through these, so that the
// entries in the cache are exactly those marked in it (marked before they are
// added, unmarked after they were removed).
void ZMChatRoomClient::cacheRoom(const std::string& chatroomId, const std::shared_ptr<ZMCacheChatRoomInfo>& entry) {
    entry->status.enterCache();
    if (auto replaced = cacheChatRoomDict().exchangeObject(entry, chatroomId)) {
        if (*replaced && *replaced != entry) (*replaced)->status.leaveCache();
    }
}

void ZMChatRoomClient::uncacheRoom(const std::string& chatroomId) {
    if (auto removed = cacheChatRoomDict().takeObjectForKey(chatroomId)) {
        if (*removed) (*removed)->status.leaveCache();
    }
}

void ZMChatRoomClient::uncacheAllRooms() {
    for (const auto& removed : cacheChatRoomDict().takeAllObjects()) {
        if (removed) removed->status.leaveCache();
    }
}

// ---- Join and quit -------------------------------------------------------------

void ZMChatRoomClient::joinChatRoom(const ZMValue& chatroomId, int32_t messageCount, ZMSuccessBlock success,
                                    ZMErrorBlock error) {
    joinRoom(chatroomId, messageCount, ZMChatRoomJoinModeDefault, false, std::move(success), ZMJoinSuccessBlock{},
             std::move(error));
}

void ZMChatRoomClient::joinExistChatRoom(const ZMValue& chatroomId, int32_t messageCount, ZMSuccessBlock success,
                                         ZMErrorBlock error) {
    joinRoom(chatroomId, messageCount, ZMChatRoomJoinModeDefault, true, std::move(success), ZMJoinSuccessBlock{},
             std::move(error));
}

void ZMChatRoomClient::joinExistChatRoom(const ZMValue& chatroomId, int32_t messageCount,
                                         ZMJoinSuccessBlock successBlock, ZMErrorBlock errorBlock) {
    p_joinChatRoom(chatroomId, messageCount, ZMChatRoomJoinModeDefault, true, std::move(successBlock),
                   std::move(errorBlock));
}

void ZMChatRoomClient::p_joinChatRoom(const ZMValue& chatroomId, int32_t messageCount, int32_t joinMode,
                                      bool isExist, ZMJoinSuccessBlock success, ZMErrorBlock error) {
    joinRoom(chatroomId, messageCount, joinMode, isExist, ZMSuccessBlock{}, std::move(success), std::move(error));
}

void ZMChatRoomClient::joinRoom(const ZMValue& chatroomId, int32_t messageCount, int32_t joinMode, bool isExist,
                                ZMSuccessBlock plainSuccess, ZMJoinSuccessBlock success, ZMErrorBlock error) {
    logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_A_JION_CHATROOM_T,
                   "room_id:%@,existed:%@,count:%@,joinMode:%@", chatroomId, isExist, messageCount, joinMode);
    if (!isValidTargetId(chatroomId)) {
        logger().write(ZMLogLevelFailure, ZMLogTypeOperation, ZM_A_JION_CHATROOM_R, "code:%@,room_id:%@",
                       ZMErrorInvalidParameter, chatroomId);
        if (error) error(ZMErrorInvalidParameter);
        return;
    }
    // Taken as unsigned, every negative mode is refused too.
    if (static_cast<uint32_t>(joinMode) >= 2) {
        logger().write(ZMLogLevelFailure, ZMLogTypeOperation, ZM_A_JION_CHATROOM_R, "code:%@,mode:%d",
                       ZMErrorInvalidJoinMode, joinMode);
        if (error) error(ZMErrorInvalidJoinMode);
        return;
    }
    std::string roomId = chatroomId.get<std::string>();
    // A room with no flag yet counts as not synchronised; a known flag stays.
    syncKVChatRoomDict().setObjectIfAbsent(false, roomId);
    const int32_t count = clampMessageCount(messageCount);
    if (plainSuccess) {
        // Accepted: a success callback without the response receives none.
        success = [plainSuccess = std::move(plainSuccess)](const std::shared_ptr<ZMJoinChatRoomResponse>&) {
            plainSuccess();
        };
    }

    performOperationQueueBlock([this, roomId = std::move(roomId), count, joinMode, isExist,
                                success = std::move(success), error = std::move(error)]() mutable {
        startChatRoomRejoinTimer();
        auto navi = naviData();
        if (!(navi && navi->isMutliChatroomEnabled())) {
            // One room per user: the other rooms are forgotten silently.
            uncacheAllRooms();
        }
        if (!cacheEntry(*this, roomId)) {
            // A fresh entry starts without stale local messages or KV entries.
            chatRoomService().clearChatroomMessageAndKVWithTargetId(roomId, true, true);
        }
        auto entry = std::make_shared<ZMCacheChatRoomInfo>();
        entry->messageCount = count;
        entry->joinedEver = false;
        entry->joinExistOnly = isExist;
        entry->status = ZMChatRoomStatusJoining;
        entry->joinMode = joinMode;
        cacheRoom(roomId, entry);
        notifyChatRoomStatus(roomId, ZMChatRoomStatusJoining, 0);

        // The task runs once: what it captured moves on into the core's callback.
        auto resultBlock = [this, roomId, success = std::move(success), error = std::move(error)](
                               int32_t code, const ZMValue& result) {
            handleJoinResult(ZM_A_JION_CHATROOM_R, roomId, code, result, success, error);
        };
        if (isExist) {
            chatRoomService().joinExistingChatroom(roomId, count, false, joinMode, std::move(resultBlock));
        } else {
            chatRoomService().joinChatroom(roomId, count, false, joinMode, std::move(resultBlock));
        }
    });
}

void ZMChatRoomClient::handleJoinResult(const char* resultTag, const std::string& chatroomId, int32_t code,
                                        const ZMValue& result, const ZMJoinSuccessBlock& success,
                                        const ZMErrorBlock& error) {
    if (!isJoinSuccessCode(code)) {
        detectNaviIfNeedByChatroom(code);
        logger().write(ZMLogLevelFailure, ZMLogTypeOperation, resultTag, "code:%@,room_id:%@", code, chatroomId);
        if (error) error(code);
        joinChatRoomError(chatroomId, code);
        return;
    }
    logger().write(ZMLogLevelOperation, ZMLogTypeOperation, resultTag, "code:%@,room_id:%@", 0, chatroomId);
    auto response = ZMJoinChatRoomResponse::responseWithDictionary(result);
    if (success) success(response);
    joinChatRoomSuccess(chatroomId, response, code);
}

void ZMChatRoomClient::joinChatRoomSuccess(const std::string& chatroomId,
                                           const std::shared_ptr<ZMJoinChatRoomResponse>& response, int32_t code) {
    auto entry = cacheEntry(*this, chatroomId);
    if (!entry) return;  // quit or dropped while the join was under way
    entry->joinedEver = true;
    if (code == ZMCodeJoinedWithReset) {
        entry->status = ZMChatRoomStatusReset;
        notifyChatRoomStatus(chatroomId, ZMChatRoomStatusReset, 0);
        // The reset room's KV entries must synchronise again.
        syncKVChatRoomDict().setObject(false, chatroomId);
    } else if (code != 0) {
        return;
    }
    entry->status = ZMChatRoomStatusJoined;
    notifyChatRoomStatus(chatroomId, response, ZMChatRoomStatusJoined, 0);
}

void ZMChatRoomClient::joinChatRoomError(const std::string& chatroomId, int32_t code) {
    if (isFinalJoinFailure(code)) {
        uncacheRoom(chatroomId);
        if (cacheChatRoomDict().count() == 0) stopChatRoomRejoinTimer();
    } else if (auto entry = cacheEntry(*this, chatroomId)) {
        entry->status = ZMChatRoomStatusJoinFailed;  // the rejoin timer retries it
    }
    notifyChatRoomStatus(chatroomId, ZMChatRoomStatusJoinFailed, code);
}

void ZMChatRoomClient::detectNaviIfNeedByChatroom(int64_t code) {
    if ((code >= 23409 && code <= 23412) || code == ZMErrorRoomIdNotValidLogged) return;
    ZMNetDetection::detectNavi(
        true,
        [code](const std::string& navi, const std::string& ip, const std::string& net) {
            logger().write(ZMLogLevelFailure, ZMLogTypeOperation, ZM_L_DETECT_CHATROOM_S,
                           "code:%@,navi:%@,ip:%@,net:%@", code, navi, ip, net);
        },
        [] {});
}

void ZMChatRoomClient::quitChatRoom(const ZMValue& chatroomId, ZMSuccessBlock success, ZMErrorBlock error) {
    logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_A_QUIT_CHATROOM_T, "room_id:%@", chatroomId);
    if (!isValidTargetId(chatroomId)) {
        // The line keeps the historical code 33003; the caller gets 34210.
        logger().write(ZMLogLevelFailure, ZMLogTypeOperation, ZM_A_QUIT_CHATROOM_R, "code:%@,room_id:%@",
                       ZMErrorRoomIdNotValidLogged, chatroomId);
        if (error) error(ZMErrorInvalidParameter);
        return;
    }
    const std::string roomId = chatroomId.get<std::string>();
    performOperationQueueBlock([this, roomId, success = std::move(success), error = std::move(error)] {
        syncKVChatRoomDict().removeObjectForKey(roomId);
        uncacheRoom(roomId);
        if (cacheChatRoomDict().count() == 0) stopChatRoomRejoinTimer();
        // Announced before the server answers, whatever it answers.
        notifyChatRoomStatus(roomId, ZMChatRoomStatusQuited, 0);
        chatRoomService().quitChatroom(roomId, [roomId, success, error](int32_t code) {
            if (!isJoinSuccessCode(code)) {
                logger().write(ZMLogLevelFailure, ZMLogTypeOperation, ZM_A_QUIT_CHATROOM_R, "code:%@,room_id:%@",
                               code, roomId);
                if (error) error(code);
            } else {
                logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_A_QUIT_CHATROOM_R, "code:%@,room_id:%@",
                               0, roomId);
                if (success) success();
            }
        });
    });
}

// ---- Room cache and rejoin ----------------------------------------------------

void ZMChatRoomClient::rejoinCacheChatRoom() {
    if (ZMCoreClient::sharedCoreClient().getConnectionStatus() != 0) return;
    if (cacheChatRoomDict().count() == 0) return;
    // The rejoin timer calls this every 2 seconds while rooms are cached;
    // when none of them awaits a rejoin there is nothing to walk.
    if (ZMCacheChatRoomStatus::awaitingRejoinCount() == 0) return;
    // One pass over a snapshot of the entries, in key order; each entry's
    // status and arguments are read as they are now.
    for (const auto& [roomId, entry] : cacheChatRoomDict().allEntries()) {
        if (!entry || !ZMCacheChatRoomStatus::awaitsRejoin(entry->status.load())) continue;
        p_rejoinChatRoom(roomId, entry->joinExistOnly.load(), entry->messageCount.load(), nullptr, nullptr, entry);
    }
}

void ZMChatRoomClient::p_rejoinChatRoom(const std::string& chatroomId, bool existOnly, int32_t messageCount,
                                        ZMJoinSuccessBlock success, ZMErrorBlock error,
                                        std::shared_ptr<ZMCacheChatRoomInfo> sweptEntry) {
    logger().write(ZMLogLevelOperation, ZMLogTypeRejoinStart, ZM_L_REJION_CHATROOM_T, "room_id:%@,existed:%@,count:%@",
                   chatroomId, existOnly, messageCount);
    if (chatroomId.empty()) {
        logger().write(ZMLogLevelFailure, ZMLogTypeOperation, ZM_L_REJION_CHATROOM_R, "code:%@,room_id:%@",
                       ZMErrorInvalidParameter, chatroomId);
        if (error) error(ZMErrorInvalidParameter);
        return;
    }
    const int32_t count = clampMessageCount(messageCount);
    performOperationQueueBlock([this, chatroomId, existOnly, count, success = std::move(success),
                                error = std::move(error), sweptEntry = std::move(sweptEntry)]() mutable {
        int32_t joinMode = ZMChatRoomJoinModeDefault;
        // The room's entry as it is now: the swept one while it is still in
        // the cache (an entry is cached under one room only), else whatever
        // the cache holds for the room now.
        auto entry = sweptEntry && sweptEntry->status.isCached() ? std::move(sweptEntry) : cacheEntry(*this, chatroomId);
        if (entry) {
            entry->status = ZMChatRoomStatusJoining;
            joinMode = entry->joinMode;
        }
        entry.reset();
        notifyChatRoomStatus(chatroomId, ZMChatRoomStatusJoining, 0);
        // The task runs once: what it captured moves on into the core's callback.
        auto resultBlock = [this, chatroomId, success = std::move(success), error = std::move(error)](
                               int32_t code, const ZMValue& result) {
            handleJoinResult(ZM_L_REJION_CHATROOM_R, chatroomId, code, result, success, error);
        };
        if (existOnly) {
            chatRoomService().joinExistingChatroom(chatroomId, count, true, joinMode, std::move(resultBlock));
        } else {
            chatRoomService().joinChatroom(chatroomId, count, true, joinMode, std::move(resultBlock));
        }
    });
}

void ZMChatRoomClient::startChatRoomRejoinTimer() {
    stopChatRoomRejoinTimer();
    // Queued after the stop above, so the old timer is normally gone first.
    ZMMainQueue::shared().async([this] {
        if (cacheChatRoomDict().count() == 0) return;
        zmChatRoomRejoinTimer =
            ZMMainQueue::shared().scheduledTimer(kRejoinTimerInterval, true, [this] { rejoinCacheChatRoom(); });
    });
}

void ZMChatRoomClient::stopChatRoomRejoinTimer() {
    ZMMainQueue::shared().async([] {
        if (!zmChatRoomRejoinTimer) return;
        if (zmChatRoomRejoinTimer->isValid()) zmChatRoomRejoinTimer->invalidate();
        zmChatRoomRejoinTimer.reset();
    });
}

void ZMChatRoomClient::resetCacheChatRoomForFailed() {
    // One pass over a snapshot of the entries, in key order.
    for (const auto& [roomId, entry] : cacheChatRoomDict().allEntries()) {
        if (entry) entry->status = ZMChatRoomStatusJoinFailed;
        notifyChatRoomStatus(roomId, ZMChatRoomStatusJoinFailed, ZMErrorConnectionLost);
    }
}

void ZMChatRoomClient::clearChatRoom() {
    uncacheAllRooms();
    syncKVChatRoomDict().removeAllObjects();
}
