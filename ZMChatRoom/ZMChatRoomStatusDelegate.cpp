#include <ZMChatRoom/ZMChatRoomStatusDelegate.h>

// The defaults do nothing. They are defined here, once, so that every virtual
// table refers to the same functions and an override can be told from them.

ZMChatRoomStatusDelegate::~ZMChatRoomStatusDelegate() = default;

void ZMChatRoomStatusDelegate::onChatRoomJoining(const std::string& /*chatroomId*/) {}

void ZMChatRoomStatusDelegate::onChatRoomJoined(const std::string& /*chatroomId*/,
                                                const std::shared_ptr<ZMJoinChatRoomResponse>& /*response*/) {}

void ZMChatRoomStatusDelegate::onChatRoomReset(const std::string& /*chatroomId*/) {}

void ZMChatRoomStatusDelegate::onChatRoomJoinFailed(const std::string& /*chatroomId*/, int32_t /*errorCode*/) {}

void ZMChatRoomStatusDelegate::onChatRoomQuited(const std::string& /*chatroomId*/) {}

void ZMChatRoomStatusDelegate::onChatRoomDestroyed(const std::string& /*chatroomId*/, int32_t /*type*/) {}
