#include <ZMChatRoom/ZMChatRoomMemberDelegate.h>

// The defaults do nothing. They are defined here, once, so that every virtual
// table refers to the same functions and an override can be told from them.

ZMChatRoomMemberDelegate::~ZMChatRoomMemberDelegate() = default;

void ZMChatRoomMemberDelegate::memberDidChange(
    const std::vector<std::shared_ptr<ZMChatRoomMemberAction>>& /*members*/, const std::string& /*chatroomId*/) {}

void ZMChatRoomMemberDelegate::memberDidChange(const std::shared_ptr<ZMChatRoomMemberActionModel>& /*model*/) {}
