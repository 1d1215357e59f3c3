#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <VemoIMLibCore/ZMMessageContent.h>

// A message as the core library hands it over: received, or read from the
// remote history of a chat room.
struct ZMMessage {
    std::string objectName;                     // wire type, for example "ZM:ChrmMemChange"
    std::shared_ptr<ZMMessageContent> content;  // decoded content, or null
    std::string targetId;                       // the chat room the message was sent to
    std::string senderUserId;
    std::string messageUId;
    int64_t sentTime = 0;                       // server time, milliseconds
};
