#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <ZMChatRoom/Models/ZMChatRoomMemberAction.h>

// One member change of one room, as delivered to memberDidChange(model).
struct ZMChatRoomMemberActionModel {
    ZMChatRoomMemberActionModel() = default;
    ZMChatRoomMemberActionModel(std::string roomId,
                                std::vector<std::shared_ptr<ZMChatRoomMemberAction>> memberActions,
                                uint64_t memberCount)
        : roomId(std::move(roomId)), chatRoomMemberActions(std::move(memberActions)),
          memberCount(memberCount) {}

    std::string roomId;
    std::vector<std::shared_ptr<ZMChatRoomMemberAction>> chatRoomMemberActions;
    uint64_t memberCount = 0;
};
