#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <VemoIMLibCore/ZMMessageContent.h>

// "ZM:ChrmSyncMsg": another login of the same user joined or left a room.
// Payload: {"chatroomId","status","reason","time", base keys...}
class ZMChatRoomSyncMessage : public ZMMessageContent {
public:
    static std::string getObjectName() { return "ZM:ChrmSyncMsg"; }
    static int32_t persistentFlag() { return 16; }

    void decodeWithData(const ZMData& data) override;
    std::optional<ZMData> encode() const override;

    std::optional<std::string> chatroomId;
    int64_t status = 0;
    int64_t reason = 0;
    int64_t time = 0;
};
