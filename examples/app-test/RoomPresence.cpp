#include "RoomPresence.h"

#include <algorithm>
#include <utility>

RoomPresence::RoomPresence(std::string roomId) : roomId_(std::move(roomId)) {}

void RoomPresence::enter() {
    ZMChatRoomClient& client = ZMChatRoomClient::sharedChatRoomClient();
    client.addChatRoomStatusDelegate(shared_from_this());
    client.setMemberDelegate(shared_from_this());
    // Outcomes arrive through the status callbacks; an argument error is
    // reported at once through the error callback.
    client.joinChatRoom(roomId_, 20, {}, [weak = weak_from_this()](int32_t code) {
        if (auto self = weak.lock()) self->onChatRoomJoinFailed(self->roomId_, code);
    });
}

void RoomPresence::leave() { ZMChatRoomClient::sharedChatRoomClient().quitChatRoom(roomId_, {}, {}); }

RoomPresence::State RoomPresence::state() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return state_;
}

int64_t RoomPresence::memberCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return memberCount_;
}

std::optional<int32_t> RoomPresence::lastError() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lastError_;
}

std::string RoomPresence::statusLine() const {
    std::lock_guard<std::mutex> lock(mutex_);
    switch (state_) {
        case State::Out: return "Not in " + roomId_;
        case State::Entering: return "Entering " + roomId_ + "...";
        case State::In: return "In " + roomId_ + " with " + std::to_string(memberCount_) + " others";
        case State::Failed:
            return lastError_ == -1 ? "Offline, will retry " + roomId_
                                    : "Could not enter " + roomId_ + " (error " + std::to_string(*lastError_) + ")";
    }
    return {};
}

void RoomPresence::onChatRoomJoining(const std::string& chatroomId) {
    if (chatroomId != roomId_) return;
    std::lock_guard<std::mutex> lock(mutex_);
    state_ = State::Entering;
}

void RoomPresence::onChatRoomJoined(const std::string& chatroomId,
                                    const std::shared_ptr<ZMJoinChatRoomResponse>& response) {
    if (chatroomId != roomId_) return;
    std::lock_guard<std::mutex> lock(mutex_);
    state_ = State::In;
    // The server counts the app's user too.
    memberCount_ = response ? std::max<int64_t>(response->memberCount - 1, 0) : 0;
    lastError_.reset();
}

void RoomPresence::memberDidChange(const std::shared_ptr<ZMChatRoomMemberActionModel>& change) {
    if (!change || change->roomId != roomId_) return;
    std::lock_guard<std::mutex> lock(mutex_);
    if (state_ != State::In) return;
    memberCount_ = change->memberCount > 0 ? static_cast<int64_t>(change->memberCount) - 1 : 0;
}

void RoomPresence::onChatRoomJoinFailed(const std::string& chatroomId, int32_t errorCode) {
    if (chatroomId != roomId_) return;
    std::lock_guard<std::mutex> lock(mutex_);
    state_ = State::Failed;
    lastError_ = errorCode;
}

void RoomPresence::onChatRoomQuited(const std::string& chatroomId) {
    if (chatroomId != roomId_) return;
    std::lock_guard<std::mutex> lock(mutex_);
    state_ = State::Out;
}

void RoomPresence::onChatRoomDestroyed(const std::string& chatroomId, int32_t /*type*/) {
    if (chatroomId != roomId_) return;
    std::lock_guard<std::mutex> lock(mutex_);
    state_ = State::Out;
}
