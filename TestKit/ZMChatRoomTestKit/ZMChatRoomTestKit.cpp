#include <ZMChatRoomTestKit/ZMChatRoomTestKit.h>

#include <memory>
#include <mutex>
#include <stdexcept>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <Platform/ZMMainQueue.h>
#include <ZMChatRoom/Extension/ZMChatRoomExtensionModule.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberActionMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBanMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBlockMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomSyncMessage.h>
#include <ZMChatRoom/Messages/ZMChatroomKVNotificationMessage.h>
#include <ZMChatRoom/ZMChatRoomClient.h>

namespace {

ZMCoreEmulator& core() { return ZMCoreEmulator::shared(); }
ZMChatRoomClient& client() { return ZMChatRoomClient::sharedChatRoomClient(); }

// The user ids of a block or ban as the server sends them: a JSON array.
ZMValue idList(const std::vector<std::string>& userIds) {
    ZMValue list = ZMValue::array();
    for (const auto& id : userIds) list.push_back(id);
    return list;
}

// A block or ban message with the fields the two share, from the kit's
// Block or Ban; the caller sets the operation's type.
template <class Message, class Operation>
Message memberOperationMessage(const Operation& operation) {
    Message message;
    message.chatroomId = operation.chatroomId;
    message.durationTime = operation.durationTime;
    message.operateTime = operation.operateTime;
    message.userIdList = idList(operation.userIds);
    message.extra = operation.extra;
    return message;
}

ZMValue dictionary(const ZMChatRoomTestKit::Entries& entries) {
    ZMValue dict = ZMValue::object();
    for (const auto& [key, value] : entries) dict[key] = value;
    return dict;
}

// Whether the calling thread runs work that settling would wait for.
bool onQueueThatSettlingWaitsFor() {
    return client().zm_chatroom_operation_queue().isCurrent() ||
           client().zm__notify_chatroom_status_queue().isCurrent() || ZMMainQueue::shared().isCurrent();
}

}  // namespace

// ---- Module and state ------------------------------------------------------------

void ZMChatRoomTestKit::loadModule() {
    // The loader writes a line on every call; the core calls it once.
    static std::once_flag loaded;
    std::call_once(loaded, [] { core().loadExtensionModule(&ZMChatRoomExtensionModule::loadVemoExtensionModule); });
    // Push listening is started from the module's operation queue.
    if (!client().zm_chatroom_operation_queue().isCurrent()) client().zm_chatroom_operation_queue().sync([] {});
}

bool ZMChatRoomTestKit::settle(double timeoutSeconds) {
    if (onQueueThatSettlingWaitsFor()) return false;
    bool idle = true;
    // A round can start more work (an answer queues an announcement, an
    // announcement's observer calls the client, which queues a request):
    // three rounds cover the chains the module makes.
    for (int round = 0; round < 3; ++round) {
        client().zm_chatroom_operation_queue().sync([] {});
        idle = core().waitUntilIdle(timeoutSeconds) && idle;
        client().zm__notify_chatroom_status_queue().sync([] {});
        ZMMainQueue::shared().drain();
    }
    return idle;
}

bool ZMChatRoomTestKit::reset(double timeoutSeconds) {
    if (onQueueThatSettlingWaitsFor()) return false;
    bool settled = settle(timeoutSeconds);

    ZMChatRoomClient& chatRooms = client();
    // Forgotten without a request or an announcement, as on logout.
    chatRooms.clearChatRoom();
    chatRooms.stopChatRoomRejoinTimer();
    for (const auto& observer : chatRooms.allChatRoomStatusDelegates()) {
        chatRooms.removeChatRoomStatusDelegate(observer);
    }
    for (const auto& observer : chatRooms.allChatRoomKVStatusChangeDelegates()) {
        chatRooms.removeChatRoomKVStatusChangeDelegate(observer);
    }
    for (const auto& observer : chatRooms.allChatRoomNotifyEventDelegates()) {
        chatRooms.removeChatRoomNotifyEventDelegate(observer);
    }
    chatRooms.setMemberDelegate(nullptr);
    chatRooms.setZMChatRoomKVStatusFilterDelegate(nullptr);
    // The timer stops on the main queue; announcements already queued reach
    // nobody now.
    settled = settle(timeoutSeconds) && settled;
    // A rejoin timer that two racing starts left outside the module's slot
    // (the later start drops the earlier timer without invalidating it) is
    // reachable only through the main queue.
    ZMMainQueue::shared().invalidateTimers();

    settled = core().reset(timeoutSeconds) && settled;
    ZMMainQueue::shared().drain();
    // What the reset itself caused (none is expected, but a module version
    // that logs its clean-up must not leave lines to the next test).
    core().clearRequests();
    core().logger().clear();
    return settled;
}

// ---- Signal messages ----------------------------------------------------------------

std::shared_future<bool> ZMChatRoomTestKit::deliverContent(const ZMMessageContent& content,
                                                           const std::string& objectName,
                                                           const std::string& targetId, bool isOffline) {
    const std::optional<ZMData> payload = content.encode();
    if (!payload) throw std::invalid_argument(objectName + " message cannot be encoded (is every text UTF-8?)");
    return core().deliverMessage(objectName, std::string(payload->begin(), payload->end()), targetId, isOffline);
}

std::shared_future<bool> ZMChatRoomTestKit::deliverMemberChange(const MemberChange& change, bool isOffline) {
    ZMChatRoomMemberActionMessage message;
    for (const auto& member : change.members) {
        message.userList.push_back(std::make_shared<ZMChatRoomMemberAction>(member.userId, member.action));
    }
    message.memberCount = change.memberCount;
    return deliver(message, change.chatroomId, isOffline);
}

std::shared_future<bool> ZMChatRoomTestKit::deliverBlock(const Block& block, bool isOffline) {
    auto message = memberOperationMessage<ZMChatRoomMemberBlockMessage>(block);
    message.operateType = block.operateType;
    return deliver(message, block.chatroomId, isOffline);
}

std::shared_future<bool> ZMChatRoomTestKit::deliverBan(const Ban& ban, bool isOffline) {
    auto message = memberOperationMessage<ZMChatRoomMemberBanMessage>(ban);
    message.banType = ban.banType;
    return deliver(message, ban.chatroomId, isOffline);
}

std::shared_future<bool> ZMChatRoomTestKit::deliverMultiLoginSync(const MultiLoginSync& sync, bool isOffline) {
    ZMChatRoomSyncMessage message;
    message.chatroomId = sync.chatroomId;
    message.status = sync.status;
    message.reason = sync.reason;
    message.time = sync.time;
    message.extra = sync.extra;
    return deliver(message, sync.chatroomId, isOffline);
}

std::shared_future<bool> ZMChatRoomTestKit::deliverKVNotification(const KVNotification& notification,
                                                                  bool isOffline) {
    const auto message = ZMChatroomKVNotificationMessage::notificationWithType(
        notification.type, notification.key, notification.value, notification.extra);
    return deliver(*message, notification.chatroomId, isOffline);
}

// ---- Pushes ---------------------------------------------------------------------------

void ZMChatRoomTestKit::pushFirstKVSync(const std::string& chatroomId) { core().raiseStatusChange(chatroomId); }

void ZMChatRoomTestKit::pushKVChange(const std::string& chatroomId, const Entries& updated, const Entries& removed) {
    core().raiseKVChange(chatroomId, dictionary(updated), dictionary(removed));
}

void ZMChatRoomTestKit::pushRoomDestroyed(const std::string& chatroomId, int32_t type) {
    core().raiseRoomDestroyed(chatroomId, type);
}

void ZMChatRoomTestKit::pushConnectionStatus(int64_t status) { core().setConnectionStatus(status); }

void ZMChatRoomTestKit::pushLogout() { core().logout(); }
