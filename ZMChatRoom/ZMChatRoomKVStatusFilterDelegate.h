#pragma once

#include <optional>
#include <string>

#include <VemoIMLibCore/ZMValue.h>

// The one filter observer that may rewrite or veto KV entries before they
// are delivered. Called on the core's threads. A filter returning
// std::nullopt does not implement that filter (nothing is filtered or
// logged); one that returns a null or empty dictionary suppresses the
// entries.
class ZMChatRoomKVStatusFilterDelegate {
public:
    virtual ~ZMChatRoomKVStatusFilterDelegate() = default;

    virtual void chatRoomKVStatusDidSync(const std::string& /*chatroomId*/) {}
    virtual std::optional<ZMValue> chatRoomKVUpdateFilter(const std::string& /*chatroomId*/,
                                                          const ZMValue& /*entry*/) {
        return std::nullopt;
    }
    virtual std::optional<ZMValue> chatRoomKVRemoveFilter(const std::string& /*chatroomId*/,
                                                          const ZMValue& /*entry*/) {
        return std::nullopt;
    }
    virtual std::optional<ZMValue> getAllChatRoomEntriesFilter(const std::string& /*chatroomId*/,
                                                               const ZMValue& /*entry*/) {
        return std::nullopt;
    }
};
