#include <ZMChatRoom/ZMChatRoomClient+Internal.h>

#include <ZMChatRoom/ZMChatRoomListenerManager.h>

// Room-status announcements: one task per announcement on the notify queue,
// so the status observers hear every room's changes in the order they happened.

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
