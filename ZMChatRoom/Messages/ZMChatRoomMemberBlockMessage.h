#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <VemoIMLibCore/ZMMessageContent.h>

// "ZM:ChrmBlockMsg": members of a room were blocked or unblocked.
// Payload: {"chatroomId","operateType","durationTime","operateTime","userList":[ids], base keys...}
class ZMChatRoomMemberBlockMessage : public ZMMessageContent {
public:
    static std::string getObjectName() { return "ZM:ChrmBlockMsg"; }
    static int32_t persistentFlag() { return 16; }

    void decodeWithData(const ZMData& data) override;
    std::optional<ZMData> encode() const override;

    std::optional<std::string> chatroomId;
    int64_t operateType = 0;
    int64_t durationTime = 0;
    int64_t operateTime = 0;
    ZMValue userIdList;  // "userList" as it came (any JSON array), or null
};
