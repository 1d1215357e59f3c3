#include <ZMChatRoom/ZMChatRoomClient+Internal.h>

#include <ZMChatRoom/ZMChatRoomListenerManager.h>

// The client's spine: the singleton, its two serial queues, the callbacks it
// installs on the core's chat-room service, and observer registration.

using namespace zm_client;

const std::string_view ZMChatRoomClientLogTag = ZM_FILE_TAG;

// Its address is both the key and the value of the operation queue's
// queue-specific entry; only the entry's presence is tested.
static char __zm_chatroom_operation_queueTag;

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
      zm__notify_chatroom_status_queue_(std::make_unique<ZMSerialQueue>("com.vemo.imlib.chatRoomStatusNotifyQueue")),
      statusAnnouncements_(std::make_unique<StatusAnnouncements>()) {
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
    // Only the operation queue carries the tag, so a thread that runs none of
    // its tasks needs no look-up.
    if (zm_chatroom_operation_queue_->isCurrent() && ZMSerialQueue::getSpecific(&__zm_chatroom_operation_queueTag)) {
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
            // synchronisation. The flag is set, not tested: a second report
            // runs the whole first-synchronisation delivery again.
            syncKVChatRoomDict().setObject(true, chatroomId);
            chatRoomKVStatusFirstChange(chatroomId);
        },
        [this](const std::string& chatroomId, const ZMValue& updateEntries, const ZMValue& removeEntries) {
            kvChangeBlock(chatroomId, updateEntries, removeEntries);
        },
        [this](const std::string& chatroomId, int32_t type) {
            notifyChatRoomStatus(chatroomId, ZMChatRoomStatusDestroyed, type);
            uncacheRoom(chatroomId);
            if (cacheChatRoomDict().count() == 0) stopChatRoomRejoinTimer();
            syncKVChatRoomDict().removeObjectForKey(chatroomId);
        });
    performOperationQueueBlock([] { chatRoomService().setChatRoomPSListener(); });
}

// ---- Observers ---------------------------------------------------------------

std::shared_ptr<ZMChatRoomMemberDelegate> ZMChatRoomClient::memberDelegate() const {
    return memberDelegate_.lock();
}

void ZMChatRoomClient::setMemberDelegate(const std::shared_ptr<ZMChatRoomMemberDelegate>& delegate) {
    memberDelegate_.store(delegate);
}

std::shared_ptr<ZMChatRoomKVStatusFilterDelegate> ZMChatRoomClient::zmKVStatusFilterDelegate() const {
    return zmKVStatusFilterDelegate_.lock();
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
