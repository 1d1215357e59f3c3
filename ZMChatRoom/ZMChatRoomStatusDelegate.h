#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <ZMChatRoom/ZMJoinChatRoomResponse.h>

// Observer of room membership statuses. Called on the client's notify queue,
// one call per status change, in the order the changes were issued. Every
// callback is optional: override what you need.
class ZMChatRoomStatusDelegate {
public:
    virtual ~ZMChatRoomStatusDelegate();

    virtual void onChatRoomJoining(const std::string& chatroomId);
    virtual void onChatRoomJoined(const std::string& chatroomId,
                                  const std::shared_ptr<ZMJoinChatRoomResponse>& response);
    // The server reset the room (join answered 33009); joined follows.
    virtual void onChatRoomReset(const std::string& chatroomId);
    // errorCode is the core's code, or -1 when the connection was lost.
    virtual void onChatRoomJoinFailed(const std::string& chatroomId, int32_t errorCode);
    virtual void onChatRoomQuited(const std::string& chatroomId);
    // type is 0 or 3.
    virtual void onChatRoomDestroyed(const std::string& chatroomId, int32_t type);
};
