#pragma once

#include <string>

#include <VemoIMLibCore/ZMValue.h>

// The one filter observer that may rewrite or veto KV entries before the KV
// observers receive them (set with setZMChatRoomKVStatusFilterDelegate). Called
// on the core's callback thread. Every callback is optional: the module calls,
// and logs, only the callbacks this filter overrides (see
// ZMDelegateImplements.h); a filter that overrides none changes nothing.
//
// A filter answers the dictionary to deliver instead of the one it was given.
// An answer that is null, or not a dictionary at all, counts as the empty
// dictionary: nothing of that side is delivered.
class ZMChatRoomKVStatusFilterDelegate {
public:
    virtual ~ZMChatRoomKVStatusFilterDelegate();

    // First, when a room's first synchronisation is reported.
    virtual void chatRoomKVStatusDidSync(const std::string& chatroomId);
    // Entries added or changed, for the first full list of a room and for
    // every later change.
    virtual ZMValue chatRoomKVUpdateFilter(const std::string& chatroomId, const ZMValue& entry);
    // Entries removed.
    virtual ZMValue chatRoomKVRemoveFilter(const std::string& chatroomId, const ZMValue& entry);
    // The result of getAllChatRoomEntries, before the application's success
    // callback receives it.
    virtual ZMValue getAllChatRoomEntriesFilter(const std::string& chatroomId, const ZMValue& entry);
};
