#pragma once

#include <memory>
#include <string>
#include <vector>

#include <ZMChatRoom/Models/ZMChatRoomMemberAction.h>
#include <ZMChatRoom/Models/ZMChatRoomMemberActionModel.h>

// The one observer of member changes (set with setMemberDelegate). Called on
// the core's thread that received the message; both callbacks are optional
// and an observer overriding both receives both, list form first. The model is
// built only for an observer that overrides its callback.
class ZMChatRoomMemberDelegate {
public:
    virtual ~ZMChatRoomMemberDelegate();

    virtual void memberDidChange(const std::vector<std::shared_ptr<ZMChatRoomMemberAction>>& members,
                                 const std::string& chatroomId);
    virtual void memberDidChange(const std::shared_ptr<ZMChatRoomMemberActionModel>& model);
};
