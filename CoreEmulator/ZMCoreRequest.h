#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <VemoIMLibCore/ZMMessage.h>
#include <VemoIMLibCore/ZMValue.h>

// One request that reached the emulated chat-room service: the core
// operation's name (the first word of its declaration, for example
// "joinChatroom", "quitChatroom", "setChatroomStatus") and its arguments as a
// dictionary keyed by the parameter names of the declaration, for example
// {"chatroomId":"r1","limit":10,"useCacheTime":false,"joinMode":0}.
// Byte payloads (notificationContent) are recorded as their text.
struct ZMCoreRequest {
    uint64_t id = 0;  // 1, 2, 3, ... in arrival order
    std::string operation;
    ZMValue arguments;
};

// How the emulated service answers a request.
struct ZMCoreAnswer {
    // 0 is success; anything else is the failure code handed to the error or
    // result callback.
    int32_t code = 0;
    // The result dictionary of a success (join result, entries, room info), or
    // the failed-entries dictionary of a failed batch write or remove.
    ZMValue result = ZMValue::object();
    // History answers: the page of messages, the time value and the has-more flag.
    std::vector<std::shared_ptr<ZMMessage>> messages;
    int64_t syncTime = 0;
    bool hasMore = false;

    // Built with their result in place (a default-made answer would first
    // allocate an empty dictionary of its own).
    static ZMCoreAnswer success(ZMValue result = ZMValue::object()) {
        return ZMCoreAnswer{.code = 0, .result = std::move(result), .messages = {}, .syncTime = 0, .hasMore = false};
    }
    static ZMCoreAnswer failure(int32_t code, ZMValue result = ZMValue::object()) {
        return ZMCoreAnswer{.code = code, .result = std::move(result), .messages = {}, .syncTime = 0, .hasMore = false};
    }
};
