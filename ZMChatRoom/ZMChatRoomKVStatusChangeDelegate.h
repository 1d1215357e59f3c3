#pragma once

#include <string>

#include <VemoIMLibCore/ZMValue.h>

// Observer of rooms' KV entries; any number may be registered. Called on the
// core's callback thread that reported the synchronisation or the change,
// without a hop to another queue. Every callback is optional: override what
// you need (whether a callback is overridden decides whether the module writes
// its delivery line for this observer, see ZMDelegateImplements.h).
class ZMChatRoomKVStatusChangeDelegate {
public:
    virtual ~ZMChatRoomKVStatusChangeDelegate();

    // The room's entries completed their first synchronisation.
    virtual void chatRoomKVDidSync(const std::string& chatroomId);
    // Entries added or changed: a dictionary key -> value. Every observer of
    // one event receives the same dictionary object.
    virtual void chatRoomKVDidUpdate(const std::string& chatroomId, const ZMValue& entry);
    // Entries removed: a dictionary keyed by the removed keys.
    virtual void chatRoomKVDidRemove(const std::string& chatroomId, const ZMValue& entry);
};
