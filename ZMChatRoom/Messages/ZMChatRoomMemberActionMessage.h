#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <VemoIMLibCore/ZMMessageContent.h>
#include <ZMChatRoom/Models/ZMChatRoomMemberAction.h>

// "ZM:ChrmMemChange": members came to or left a room.
// Payload: {"userList":[{"userId":"u1","status":1},...],"memberCount":12, base keys...}
class ZMChatRoomMemberActionMessage : public ZMMessageContent {
public:
    static std::string getObjectName() { return "ZM:ChrmMemChange"; }
    static int32_t persistentFlag() { return 16; }

    void decodeWithData(const ZMData& data) override;
    std::optional<ZMData> encode() const override;

    std::vector<std::shared_ptr<ZMChatRoomMemberAction>> userList;
    uint64_t memberCount = 0;
};
