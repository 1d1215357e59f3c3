#include <ZMChatRoom/ZMChatRoomKVStatusFilterDelegate.h>

// The defaults are never called by the module (it calls only overridden
// filters); called directly they let everything through. They are defined
// here, once, so that every virtual table refers to the same functions and an
// override can be told from them.

ZMChatRoomKVStatusFilterDelegate::~ZMChatRoomKVStatusFilterDelegate() = default;

void ZMChatRoomKVStatusFilterDelegate::chatRoomKVStatusDidSync(const std::string& /*chatroomId*/) {}

ZMValue ZMChatRoomKVStatusFilterDelegate::chatRoomKVUpdateFilter(const std::string& /*chatroomId*/,
                                                                 const ZMValue& entry) {
    return entry;
}

ZMValue ZMChatRoomKVStatusFilterDelegate::chatRoomKVRemoveFilter(const std::string& /*chatroomId*/,
                                                                 const ZMValue& entry) {
    return entry;
}

ZMValue ZMChatRoomKVStatusFilterDelegate::getAllChatRoomEntriesFilter(const std::string& /*chatroomId*/,
                                                                      const ZMValue& entry) {
    return entry;
}
