#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <ZMChatRoom/Models/ZMChatRoomMemberActionModel.h>
#include <ZMChatRoom/ZMChatRoomClient.h>

// App code: keeps the app in one chat room and tells the user interface
// whether it is in, how many others are in the room (from the join, then from
// every member change) and why a join failed. It uses the chat-room client
// only; which core runs underneath is decided when the app is linked.
class RoomPresence : public ZMChatRoomStatusDelegate,
                     public ZMChatRoomMemberDelegate,
                     public std::enable_shared_from_this<RoomPresence> {
public:
    enum class State { Out, Entering, In, Failed };

    explicit RoomPresence(std::string roomId);

    // Starts observing (room status and member changes) and joins the room.
    void enter();
    void leave();

    State state() const;
    int64_t memberCount() const;
    // The code of the last failed join: the server's code, or -1 when the
    // connection was lost.
    std::optional<int32_t> lastError() const;
    // Human-readable line for a status bar.
    std::string statusLine() const;

    void onChatRoomJoining(const std::string& chatroomId) override;
    void onChatRoomJoined(const std::string& chatroomId,
                          const std::shared_ptr<ZMJoinChatRoomResponse>& response) override;
    void onChatRoomJoinFailed(const std::string& chatroomId, int32_t errorCode) override;
    void onChatRoomQuited(const std::string& chatroomId) override;
    void onChatRoomDestroyed(const std::string& chatroomId, int32_t type) override;
    using ZMChatRoomMemberDelegate::memberDidChange;
    void memberDidChange(const std::shared_ptr<ZMChatRoomMemberActionModel>& change) override;

private:
    const std::string roomId_;
    mutable std::mutex mutex_;
    State state_ = State::Out;
    int64_t memberCount_ = 0;
    std::optional<int32_t> lastError_;
};
