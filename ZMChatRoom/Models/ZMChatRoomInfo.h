#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <VemoIMLibCore/ZMValue.h>
#include <ZMChatRoom/Models/ZMChatRoomMemberInfo.h>

// A room's total member count and a short member list, as the server
// answered a room info query.
struct ZMChatRoomInfo {
    // The record of the server's answer to a room info query of targetId with
    // memberOrder: "totalMemberCount" and "memberInfoArray" ([{"userId",
    // "joinTime"}]), read leniently (a missing or mistyped value reads as
    // nothing or 0). Never null.
    static std::shared_ptr<ZMChatRoomInfo> infoWithDictionary(const std::string& targetId, uint64_t memberOrder,
                                                               const ZMValue& reply);

    std::string targetId;
    uint64_t memberOrder = 0;
    // Unset (not empty) when the server returned no member.
    std::optional<std::vector<std::shared_ptr<ZMChatRoomMemberInfo>>> memberInfoArray;
    int32_t totalMemberCount = 0;
};
