#include <ZMChatRoom/ZMChatRoomKVStatusChangeDelegate.h>

// The defaults do nothing. They are defined here, once, so that every virtual
// table refers to the same functions and an override can be told from them.

ZMChatRoomKVStatusChangeDelegate::~ZMChatRoomKVStatusChangeDelegate() = default;

void ZMChatRoomKVStatusChangeDelegate::chatRoomKVDidSync(const std::string& /*chatroomId*/) {}

void ZMChatRoomKVStatusChangeDelegate::chatRoomKVDidUpdate(const std::string& /*chatroomId*/,
                                                           const ZMValue& /*entry*/) {}

void ZMChatRoomKVStatusChangeDelegate::chatRoomKVDidRemove(const std::string& /*chatroomId*/,
                                                           const ZMValue& /*entry*/) {}
