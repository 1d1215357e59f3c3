#pragma once

#include <memory>

#include <ZMChatRoom/Models/ZMChatRoomMemberBanEvent.h>
#include <ZMChatRoom/Models/ZMChatRoomMemberBlockEvent.h>
#include <ZMChatRoom/Models/ZMChatRoomSyncEvent.h>

// Observer of block, ban and multi-login sync events. Called on the core's
// thread that received the message; each observer that overrides a callback
// gets an event object of its own. Every callback is optional.
class ZMChatRoomNotifyEventDelegate {
public:
    virtual ~ZMChatRoomNotifyEventDelegate();

    virtual void chatRoomNotifyMultiLoginSync(const std::shared_ptr<ZMChatRoomSyncEvent>& event);
    virtual void chatRoomNotifyBlock(const std::shared_ptr<ZMChatRoomMemberBlockEvent>& event);
    virtual void chatRoomNotifyBan(const std::shared_ptr<ZMChatRoomMemberBanEvent>& event);
};
