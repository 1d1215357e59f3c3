#include <ZMChatRoom/ZMChatRoomNotifyEventDelegate.h>

// The defaults do nothing. They are defined here, once, so that every virtual
// table refers to the same functions and an override can be told from them.

ZMChatRoomNotifyEventDelegate::~ZMChatRoomNotifyEventDelegate() = default;

void ZMChatRoomNotifyEventDelegate::chatRoomNotifyMultiLoginSync(
    const std::shared_ptr<ZMChatRoomSyncEvent>& /*event*/) {}

void ZMChatRoomNotifyEventDelegate::chatRoomNotifyBlock(const std::shared_ptr<ZMChatRoomMemberBlockEvent>& /*event*/) {
}

void ZMChatRoomNotifyEventDelegate::chatRoomNotifyBan(const std::shared_ptr<ZMChatRoomMemberBanEvent>& /*event*/) {}
