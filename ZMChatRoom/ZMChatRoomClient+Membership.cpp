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

}  // namespace

// ---- Join and quit -------------------------------------------------------------

void ZMChatRoomClient::joinChatRoom(const ZMValue& chatroomId, int32_t messageCount, ZMSuccessBlock success,
                                    ZMErrorBlock error) {
    p_joinChatRoom(chatroomId, messageCount, ZMChatRoomJoinModeDefault, false,
                   [success = std::move(success)](const std::shared_ptr<ZMJoinChatRoomResponse>&) {
                       if (success) success();
                   },
                   std::move(error));
}

void ZMChatRoomClient::joinExistChatRoom(const ZMValue& chatroomId, int32_t messageCount, ZMSuccessBlock success,
                                         ZMErrorBlock error) {
    p_joinChatRoom(chatroomId, messageCount, ZMChatRoomJoinModeDefault, true,
                   [success = std::move(success)](const std::shared_ptr<ZMJoinChatRoomResponse>&) {
                       if (success) success();
                   },
                   std::move(error));
}

void ZMChatRoomClient::joinExistChatRoom(const ZMValue& chatroomId, int32_t messageCount,
                                         ZMJoinSuccessBlock successBlock, ZMErrorBlock errorBlock) {
    p_joinChatRoom(chatroomId, messageCount, ZMChatRoomJoinModeDefault, true, std::move(successBlock),
                   std::move(errorBlock));
}

void ZMChatRoomClient::p_joinChatRoom(const ZMValue& chatroomId, int32_t messageCount, int32_t joinMode,
                                      bool isExist, ZMJoinSuccessBlock success, ZMErrorBlock error) {
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
    const std::string roomId = chatroomId.get<std::string>();
    // A room with no flag yet counts as not synchronised; a known flag stays.
    if (!syncKVChatRoomDict().objectForKey(roomId)) syncKVChatRoomDict().setObject(false, roomId);
    const int32_t count = clampMessageCount(messageCount);

    performOperationQueueBlock([this, roomId, count, joinMode, isExist, success = std::move(success),
                                error = std::move(error)] {
        startChatRoomRejoinTimer();
        auto navi = naviData();
        if (!(navi && navi->isMutliChatroomEnabled())) {
            // One room per user: the other rooms are forgotten silently.
            cacheChatRoomDict().removeAllObjects();
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
        cacheChatRoomDict().setObject(entry, roomId);
        notifyChatRoomStatus(roomId, ZMChatRoomStatusJoining, 0);

        auto resultBlock = [this, roomId, success, error](int32_t code, const ZMValue& result) {
            handleJoinResult(ZM_A_JION_CHATROOM_R, roomId, code, result, success, error);
        };
        if (isExist) {
            chatRoomService().joinExistingChatroom(roomId, count, false, joinMode, resultBlock);
        } else {
            chatRoomService().joinChatroom(roomId, count, false, joinMode, resultBlock);
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
        cacheChatRoomDict().removeObjectForKey(chatroomId);
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
        cacheChatRoomDict().removeObjectForKey(roomId);
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
    for (const auto& roomId : cacheChatRoomDict().allKeys()) {
        // Looked up again: the entry may have changed or vanished since the
        // snapshot. A vanished entry reads as status 0 and is rejoined with
        // the defaults.
        auto entry = cacheEntry(*this, roomId);
        const int64_t status = entry ? entry->status.load() : 0;
        if (status == ZMChatRoomStatusJoining || status == ZMChatRoomStatusJoined || status == ZMChatRoomStatusReset) {
            continue;
        }
        p_rejoinChatRoom(roomId, entry ? entry->joinExistOnly.load() : false, entry ? entry->messageCount.load() : 0,
                         nullptr, nullptr);
    }
}

void ZMChatRoomClient::p_rejoinChatRoom(const std::string& chatroomId, bool existOnly, int32_t messageCount,
                                        ZMJoinSuccessBlock success, ZMErrorBlock error) {
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
                                error = std::move(error)] {
        int32_t joinMode = ZMChatRoomJoinModeDefault;
        if (auto entry = cacheEntry(*this, chatroomId)) {
            entry->status = ZMChatRoomStatusJoining;
            joinMode = entry->joinMode;
        }
        notifyChatRoomStatus(chatroomId, ZMChatRoomStatusJoining, 0);
        auto resultBlock = [this, chatroomId, success, error](int32_t code, const ZMValue& result) {
            handleJoinResult(ZM_L_REJION_CHATROOM_R, chatroomId, code, result, success, error);
        };
        if (existOnly) {
            chatRoomService().joinExistingChatroom(chatroomId, count, true, joinMode, resultBlock);
        } else {
            chatRoomService().joinChatroom(chatroomId, count, true, joinMode, resultBlock);
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
    for (const auto& roomId : cacheChatRoomDict().allKeys()) {
        if (auto entry = cacheEntry(*this, roomId)) entry->status = ZMChatRoomStatusJoinFailed;
        notifyChatRoomStatus(roomId, ZMChatRoomStatusJoinFailed, ZMErrorConnectionLost);
    }
}

void ZMChatRoomClient::clearChatRoom() {
    cacheChatRoomDict().removeAllObjects();
    syncKVChatRoomDict().removeAllObjects();
}
