#pragma once

#include <string>

#include <VemoIMLibCore/ZMValue.h>

// Observer of a room's KV entries. Called on the core's threads. Every
// callback is optional.
class ZMChatRoomKVStatusChangeDelegate {
public:
    virtual ~ZMChatRoomKVStatusChangeDelegate() = default;

    // The room's entries completed their first synchronisation.
    virtual void chatRoomKVDidSync(const std::string& /*chatroomId*/) {}
    // Entries added or changed: key -> value.
    virtual void chatRoomKVDidUpdate(const std::string& /*chatroomId*/, const ZMValue& /*entry*/) {}
    // Entries removed.
    virtual void chatRoomKVDidRemove(const std::string& /*chatroomId*/, const ZMValue& /*entry*/) {}
};
