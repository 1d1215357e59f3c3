#include <ZMChatRoom/ZMChatRoomClient.h>

#include <Platform/ZMMainQueue.h>
#include <Platform/ZMUTF16.h>
#include <VemoIMLibCore/ZMCoreClient.h>
#include <VemoIMLibCore/ZMCoreLogTags.h>
#include <VemoIMLibCore/ZMDictionaryReaders.h>
#include <VemoIMLibCore/ZMFwLog.h>
#include <VemoIMLibCore/ZMKernel.h>
#include <VemoIMLibCore/ZMNaviDataManager.h>
#include <VemoIMLibCore/ZMNetDetection.h>
#include <VemoIMLibCore/ZMUtilities.h>
#include <ZMChatRoom/ZMChatRoomListenerManager.h>
#include <ZMChatRoom/ZMChatRoomLogCommonTag.h>

// Its address is both the key and the value of the operation queue's
// queue-specific entry; only the entry's presence is tested.
static char __zm_chatroom_operation_queueTag;

// The repeating rejoin timer. Created, invalidated and read only by tasks of
// the main queue, so it needs no lock. Never destroyed, like the client: a
// main queue driven by another thread may still reach it while the process exits.
static std::shared_ptr<ZMTimer>& zmChatRoomRejoinTimer = *new std::shared_ptr<ZMTimer>();

namespace {

constexpr double kRejoinTimerInterval = 2.0;
constexpr size_t kMaxTargetIdLength = 64;
constexpr size_t kMaxKeyLength = 128;
constexpr size_t kMaxValueLength = 4096;
constexpr size_t kMaxNotificationExtraLength = 2048;

ZMFwLog& logger() { return ZMFwLog::getInstance(); }

ZMChatRoomPSManager& chatRoomService() { return ZMKernel::sharedInstance().chatRoomPSManager(); }

std::shared_ptr<const ZMNaviData> naviData() { return ZMNaviDataManager::sharedInstance().naviData(); }

// Join, rejoin and quit count the core's reset answer as success.
bool isJoinSuccessCode(int32_t code) { return code == 0 || code == ZMCodeJoinedWithReset; }

bool isFinalJoinFailure(int32_t code) {
    for (int32_t finalCode : ZMErrorJoinRejectedFinal) {
        if (code == finalCode) return true;
    }
    return false;
}

int32_t clampMessageCount(int32_t messageCount) { return messageCount < 0 ? -1 : messageCount; }

// The application's error callback as the core's error callback: passed
// through as it is, but never as an empty function, so that a core calling its
// error callback unconditionally cannot fail on an absent one.
ZMCoreErrorBlock guardedErrorBlock(const ZMErrorBlock& error) {
    return [error](int32_t code) {
        if (error) error(code);
    };
}

// The UTF-16 length of a value that is a valid UTF-8 string; nothing for
// anything else (absent, another kind, or bytes that are not UTF-8).
std::optional<size_t> stringLength(const ZMValue& value) {
    if (!value.is_string()) return std::nullopt;
    return ZMUTF16::length(value.get_ref<const std::string&>());
}

std::shared_ptr<ZMCacheChatRoomInfo> cacheEntry(ZMChatRoomClient& client, const std::string& chatroomId) {
    return client.cacheChatRoomDict().objectForKey(chatroomId).value_or(nullptr);
}

}  // namespace

// ---- Construction ----------------------------------------------------------

ZMChatRoomClient& ZMChatRoomClient::sharedChatRoomClient() {
    // Created once, never destroyed: core callbacks and queued tasks may still
    // reach it while the process exits.
    static ZMChatRoomClient* const client = new ZMChatRoomClient();
    return *client;
}

ZMChatRoomClient::ZMChatRoomClient()
    : cacheChatRoomDict_(std::make_unique<ZMTSMutableDictionary<std::shared_ptr<ZMCacheChatRoomInfo>>>()),
      zm_chatroom_operation_queue_(std::make_unique<ZMSerialQueue>("zm_chatroom_operation_queue")),
      zm__notify_chatroom_status_queue_(std::make_unique<ZMSerialQueue>("com.vemo.imlib.chatRoomStatusNotifyQueue")) {
    zm_chatroom_operation_queue_->setSpecific(&__zm_chatroom_operation_queueTag, &__zm_chatroom_operation_queueTag);
}

ZMTSMutableDictionary<bool>& ZMChatRoomClient::syncKVChatRoomDict() {
    auto* flags = syncKVChatRoomDict_.load(std::memory_order_acquire);
    if (flags) return *flags;
    auto* fresh = new ZMTSMutableDictionary<bool>();
    if (syncKVChatRoomDict_.compare_exchange_strong(flags, fresh, std::memory_order_acq_rel)) return *fresh;
    delete fresh;  // another thread created it first
    return *flags;
}

void ZMChatRoomClient::performOperationQueueBlock(ZMOperationBlock operation) {
    if (ZMSerialQueue::getSpecific(&__zm_chatroom_operation_queueTag)) {
        // Already on the operation queue: queueing would wait behind ourselves.
        operation();
    } else {
        zm_chatroom_operation_queue_->async(std::move(operation));
    }
}

void ZMChatRoomClient::setChatroomListener() {
    // The client is never destroyed, so the callbacks may refer to it freely.
    chatRoomService().initChatRoomListener(
        [this](const std::string& chatroomId) {
            // The core reports that the room's KV entries finished their first
            // synchronisation. The KV store's first-sync delivery to the KV
            // observers hooks in right after this flag.
            syncKVChatRoomDict().setObject(true, chatroomId);
        },
        // Pushed KV changes are not delivered yet: the KV store's change
        // delivery to the KV observers is installed here when it lands. A real
        // callback is installed all the same, so that a core that calls it
        // unconditionally finds something to call.
        [](const std::string& /*chatroomId*/, const ZMValue& /*updateEntries*/, const ZMValue& /*removeEntries*/) {},
        [this](const std::string& chatroomId, int32_t type) {
            notifyChatRoomStatus(chatroomId, ZMChatRoomStatusDestroyed, type);
            cacheChatRoomDict().removeObjectForKey(chatroomId);
            if (cacheChatRoomDict().count() == 0) stopChatRoomRejoinTimer();
            syncKVChatRoomDict().removeObjectForKey(chatroomId);
        });
    performOperationQueueBlock([] { chatRoomService().setChatRoomPSListener(); });
}

// ---- Observers ---------------------------------------------------------------

std::shared_ptr<ZMChatRoomMemberDelegate> ZMChatRoomClient::memberDelegate() const {
    return memberDelegate_.load().lock();
}

void ZMChatRoomClient::setMemberDelegate(const std::shared_ptr<ZMChatRoomMemberDelegate>& delegate) {
    memberDelegate_.store(delegate);
}

std::shared_ptr<ZMChatRoomKVStatusFilterDelegate> ZMChatRoomClient::zmKVStatusFilterDelegate() const {
    return zmKVStatusFilterDelegate_.load().lock();
}

void ZMChatRoomClient::setZmKVStatusFilterDelegate(const std::shared_ptr<ZMChatRoomKVStatusFilterDelegate>& delegate) {
    zmKVStatusFilterDelegate_.store(delegate);
}

void ZMChatRoomClient::setZMChatRoomKVStatusFilterDelegate(
    const std::shared_ptr<ZMChatRoomKVStatusFilterDelegate>& delegate) {
    setZmKVStatusFilterDelegate(delegate);
}

void ZMChatRoomClient::addChatRoomStatusDelegate(const std::shared_ptr<ZMChatRoomStatusDelegate>& delegate) {
    ZMChatRoomListenerManager::sharedManager().addChatRoomStatusDelegate(delegate);
}

void ZMChatRoomClient::removeChatRoomStatusDelegate(const std::shared_ptr<ZMChatRoomStatusDelegate>& delegate) {
    ZMChatRoomListenerManager::sharedManager().removeChatRoomStatusDelegate(delegate);
}

std::vector<std::shared_ptr<ZMChatRoomStatusDelegate>> ZMChatRoomClient::allChatRoomStatusDelegates() {
    return ZMChatRoomListenerManager::sharedManager().allChatRoomStatusDelegates();
}

void ZMChatRoomClient::setChatRoomStatusDelegate(const std::shared_ptr<ZMChatRoomStatusDelegate>& delegate) {
    // Adds: an observer registered earlier stays registered.
    ZMChatRoomListenerManager::sharedManager().addChatRoomStatusDelegate(delegate);
}

void ZMChatRoomClient::addChatRoomKVStatusChangeDelegate(
    const std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>& delegate) {
    ZMChatRoomListenerManager::sharedManager().addChatRoomKVStatusChangeDelegate(delegate);
}

void ZMChatRoomClient::removeChatRoomKVStatusChangeDelegate(
    const std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>& delegate) {
    ZMChatRoomListenerManager::sharedManager().removeChatRoomKVStatusChangeDelegate(delegate);
}

std::vector<std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>> ZMChatRoomClient::allChatRoomKVStatusChangeDelegates() {
    return ZMChatRoomListenerManager::sharedManager().allChatRoomKVStatusChangeDelegates();
}

void ZMChatRoomClient::setZMChatRoomKVStatusChangeDelegate(
    const std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>& delegate) {
    // Adds: an observer registered earlier stays registered.
    addChatRoomKVStatusChangeDelegate(delegate);
}

void ZMChatRoomClient::addChatRoomNotifyEventDelegate(const std::shared_ptr<ZMChatRoomNotifyEventDelegate>& delegate) {
    ZMChatRoomListenerManager::sharedManager().addChatRoomNotifyEventDelegate(delegate);
}

void ZMChatRoomClient::removeChatRoomNotifyEventDelegate(
    const std::shared_ptr<ZMChatRoomNotifyEventDelegate>& delegate) {
    ZMChatRoomListenerManager::sharedManager().removeChatRoomNotifyEventDelegate(delegate);
}

std::vector<std::shared_ptr<ZMChatRoomNotifyEventDelegate>> ZMChatRoomClient::allChatRoomNotifyEventDelegates() {
    return ZMChatRoomListenerManager::sharedManager().allChatRoomNotifyEventDelegates();
}

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

// ---- Room cache and rejoin ---------------------------------------------------------

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

// ---- Status announcements ------------------------------------------------------------

void ZMChatRoomClient::notifyChatRoomStatus(const std::string& chatroomId, int64_t status, int32_t errorCode) {
    notifyChatRoomStatus(chatroomId, nullptr, status, errorCode);
}

void ZMChatRoomClient::notifyChatRoomStatus(const std::string& chatroomId,
                                            std::shared_ptr<ZMJoinChatRoomResponse> response, int64_t status,
                                            int32_t errorCode) {
    zm__notify_chatroom_status_queue_->async([chatroomId, response = std::move(response), status, errorCode] {
        // Observers registered up to the moment of delivery receive it.
        for (const auto& delegate : ZMChatRoomListenerManager::sharedManager().allChatRoomStatusDelegates()) {
            switch (status) {
                case ZMChatRoomStatusJoining:
                    delegate->onChatRoomJoining(chatroomId);
                    break;
                case ZMChatRoomStatusJoined:
                    delegate->onChatRoomJoined(chatroomId, response);
                    break;
                case ZMChatRoomStatusReset:
                    delegate->onChatRoomReset(chatroomId);
                    break;
                case ZMChatRoomStatusJoinFailed:
                    delegate->onChatRoomJoinFailed(chatroomId, errorCode);
                    break;
                case ZMChatRoomStatusQuited:
                    delegate->onChatRoomQuited(chatroomId);
                    break;
                case ZMChatRoomStatusDestroyed:
                    // Observers see only two destroy types: 0, or 3 for any other.
                    delegate->onChatRoomDestroyed(chatroomId, errorCode != 0 ? 3 : 0);
                    break;
                default:
                    break;
            }
        }
    });
}

// ---- Validators --------------------------------------------------------------------------

bool ZMChatRoomClient::isValidTargetId(const ZMValue& targetId) {
    auto length = stringLength(targetId);
    if (!length) {
        logger().write(ZMLogLevelDiagnostic, ZMLogTypeDiagnostic, ZM_FILE_TAG, "Parameter error，targetId is not NSString");
        return false;
    }
    if (*length == 0) {
        logger().write(ZMLogLevelDiagnostic, ZMLogTypeDiagnostic, ZM_FILE_TAG, "Parameter error，targetId is nil");
        return false;
    }
    if (*length > kMaxTargetIdLength) {
        logger().write(ZMLogLevelDiagnostic, ZMLogTypeDiagnostic, ZM_FILE_TAG,
                       "Parameter error，targetId length More than 64");
        return false;
    }
    return true;
}

bool ZMChatRoomClient::isValidRtcRoomId(const ZMValue& rtcRoomId) {
    auto length = stringLength(rtcRoomId);
    if (!length) {
        logger().write(ZMLogLevelDiagnostic, ZMLogTypeDiagnostic, ZM_FILE_TAG,
                       "Parameter error，rtcRoomId is not NSString");
        return false;
    }
    if (*length == 0) {
        logger().write(ZMLogLevelDiagnostic, ZMLogTypeDiagnostic, ZM_FILE_TAG, "Parameter error，rtcRoomId is nil");
        return false;
    }
    return true;
}

bool ZMChatRoomClient::isValidKey(const ZMValue& key) {
    auto length = stringLength(key);
    if (!length) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZM_FILE_TAG, "Parameter error，key is not NSString");
        return false;
    }
    if (*length == 0 || *length > kMaxKeyLength) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZM_FILE_TAG,
                       "Parameter error，key is empty or length More than %@", kMaxKeyLength);
        return false;
    }
    // The legal characters are the core's rule; asked only for keys of a valid length.
    if (!ZMUtilities::checkChatroomKey(key.get<std::string>())) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZM_FILE_TAG,
                       "Parameter error，key is contains Illegal character");
        return false;
    }
    return true;
}

bool ZMChatRoomClient::isValidValue(const ZMValue& value) {
    auto length = stringLength(value);
    if (!length) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZM_FILE_TAG, "Parameter error，value is not NSString");
        return false;
    }
    if (*length == 0 || *length > kMaxValueLength) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZM_FILE_TAG,
                       "Parameter error，value is empty or length More than %@", kMaxValueLength);
        return false;
    }
    return true;
}

int32_t ZMChatRoomClient::isValidKey(const ZMValue& key, const ZMValue& value) {
    if (!isValidKey(key)) return ZMErrorInvalidKVKey;
    if (!isValidValue(value)) return ZMErrorInvalidKVValue;
    return 0;
}

bool ZMChatRoomClient::isValidNotificationExtra(const ZMValue& notificationExtra) {
    // An absent extra is valid and counts as length 0.
    size_t length = 0;
    if (!notificationExtra.is_null()) {
        auto stringLengthOfExtra = stringLength(notificationExtra);
        if (!stringLengthOfExtra) {
            logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZM_FILE_TAG, "notificationExtra is illegitimate");
            return false;
        }
        length = *stringLengthOfExtra;
    }
    if (length <= kMaxNotificationExtraLength) return true;
    logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZM_FILE_TAG,
                   "Parameter error，notificationExtra length More than %@", kMaxNotificationExtraLength);
    return false;
}

// ---- Room queries ---------------------------------------------------------------------------

void ZMChatRoomClient::getChatRoomInfo(const ZMValue& chatroomId, int32_t count, uint64_t order,
                                       ZMChatRoomInfoSuccessBlock success, ZMErrorBlock error) {
    static constexpr const char* kOperation = "getChatRoomInfo:count:order:success:error:";
    if (!isValidTargetId(chatroomId)) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZM_FILE_TAG, "Parameter Error, %@, targetId:%@",
                       kOperation, chatroomId);
        if (error) error(ZMErrorInvalidParameter);
        return;
    }
    // Only 1 and 2: in unsigned arithmetic order - 1 wraps 0 to the top.
    if (order - 1 >= 2) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZM_FILE_TAG, "Parameter Error, %@, targetId:%@",
                       kOperation, chatroomId);
        if (error) error(ZMErrorInvalidMemberOrder);
        return;
    }
    const std::string roomId = chatroomId.get<std::string>();
    performOperationQueueBlock([roomId, count, order, success = std::move(success), error = std::move(error)] {
        chatRoomService().queryChatroomInfo(
            roomId, count, order,
            [roomId, order, success](const ZMValue& reply) {
                auto info = std::make_shared<ZMChatRoomInfo>();
                info->targetId = roomId;
                info->memberOrder = order;
                info->totalMemberCount = static_cast<int32_t>(zmlib_integerForKey(reply, "totalMemberCount"));
                const ZMValue members = zmlib_arrayForKey(reply, "memberInfoArray");
                if (members.is_array() && !members.empty()) {
                    std::vector<std::shared_ptr<ZMChatRoomMemberInfo>> memberInfoArray;
                    memberInfoArray.reserve(members.size());
                    for (const auto& member : members) {
                        auto memberInfo = std::make_shared<ZMChatRoomMemberInfo>();
                        memberInfo->userId = zmlib_stringForKey(member, "userId");
                        memberInfo->joinTime = zmlib_longLongIntForKey(member, "joinTime");
                        memberInfoArray.push_back(std::move(memberInfo));
                    }
                    info->memberInfoArray = std::move(memberInfoArray);
                }
                if (success) success(info);
            },
            guardedErrorBlock(error));
    });
}

void ZMChatRoomClient::getRemoteChatroomHistoryMessages(const ZMValue& chatroomId, int64_t recordTime, int32_t count,
                                                        uint64_t order, ZMHistorySuccessBlock success,
                                                        ZMErrorBlock error) {
    static constexpr const char* kOperation = "getRemoteChatroomHistoryMessages:recordTime:count:order:success:error:";
    if (!isValidTargetId(chatroomId)) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZM_FILE_TAG, "Parameter Error, %@, targetId:%@",
                       kOperation, chatroomId);
        if (error) error(ZMErrorInvalidParameter);
        return;
    }
    // 1 to 200: in unsigned arithmetic count - 1 wraps 0 and negatives to the top.
    if (static_cast<uint32_t>(count) - 1u >= 200u) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZM_FILE_TAG, "Parameter Error, %@, count:%d",
                       kOperation, count);
        if (error) error(ZMErrorInvalidMessageCount);
        return;
    }
    if (order >= 2) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZM_FILE_TAG, "Parameter Error, %@, order:%lu",
                       kOperation, order);
        if (error) error(ZMErrorInvalidHistoryOrder);
        return;
    }
    if (recordTime < 0) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZM_FILE_TAG, "Parameter Error, %@, recordTime:%lld",
                       kOperation, recordTime);
        if (error) error(ZMErrorInvalidRecordTime);
        return;
    }
    auto navi = naviData();
    if (!(navi && navi->isChatroomMessageStoreEnabled())) {
        if (error) error(ZMErrorMessageStoreDisabled);
        return;
    }
    const std::string roomId = chatroomId.get<std::string>();
    performOperationQueueBlock([roomId, recordTime, count, order, success = std::move(success),
                                error = std::move(error)] {
        chatRoomService().getChatroomHistoryMessage(
            roomId, recordTime, count, order, "",
            [success](const std::vector<std::shared_ptr<ZMMessage>>& messages, int64_t syncTime, bool /*hasMore*/) {
                if (success) success(messages, syncTime);
            },
            guardedErrorBlock(error));
    });
}

void ZMChatRoomClient::bindChatRoom(const ZMValue& chatroomId, const ZMValue& withRTCRoom, ZMSuccessBlock success,
                                    ZMErrorBlock error) {
    static constexpr const char* kOperation = "bindChatRoom:withRTCRoom:success:error:";
    if (!isValidTargetId(chatroomId)) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZM_FILE_TAG, "Parameter Error, %@, chatRoomId:%@",
                       kOperation, chatroomId);
        if (error) error(ZMErrorInvalidParameter);
        return;
    }
    if (!isValidRtcRoomId(withRTCRoom)) {
        if (error) error(ZMErrorInvalidRtcRoomId);
        return;
    }
    const std::string roomId = chatroomId.get<std::string>();
    const std::string rtcRoomId = withRTCRoom.get<std::string>();
    performOperationQueueBlock([roomId, rtcRoomId, success = std::move(success), error = std::move(error)] {
        chatRoomService().bindRTCRoomForChatroom(
            roomId, rtcRoomId,
            [roomId, success] {
                logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_BINDCHATROOM, "room_id:%@,code:%@", roomId, 0);
                if (success) success();
            },
            [roomId, error](int32_t code) {
                logger().write(ZMLogLevelFailure, ZMLogTypeOperation, ZM_BINDCHATROOM, "room_id:%@,code:%@", roomId,
                               code);
                if (error) error(code);
            });
    });
}
