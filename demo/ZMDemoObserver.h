#pragma once

#include <memory>
#include <string>
#include <vector>

#include <ZMChatRoom/ZMChatRoomMemberDelegate.h>
#include <ZMChatRoom/ZMChatRoomNotifyEventDelegate.h>
#include <ZMChatRoom/ZMChatRoomStatusDelegate.h>

#include "ZMDemoConsole.h"

// The demo app's observer of room statuses (called on the client's notify
// queue), member changes and notify events (called on the core's threads).
// It writes one console line per call.
class ZMDemoObserver : public ZMChatRoomStatusDelegate,
                       public ZMChatRoomMemberDelegate,
                       public ZMChatRoomNotifyEventDelegate {
public:
    explicit ZMDemoObserver(ZMDemoConsole& console) : console_(console) {}

    void onChatRoomJoining(const std::string& chatroomId) override;
    void onChatRoomJoined(const std::string& chatroomId, const std::shared_ptr<ZMJoinChatRoomResponse>& response) override;
    void onChatRoomReset(const std::string& chatroomId) override;
    void onChatRoomJoinFailed(const std::string& chatroomId, int32_t errorCode) override;
    void onChatRoomQuited(const std::string& chatroomId) override;
    void onChatRoomDestroyed(const std::string& chatroomId, int32_t type) override;

    // Only the model form is implemented; the list form keeps its default
    // (nothing), so each change makes one line.
    using ZMChatRoomMemberDelegate::memberDidChange;
    void memberDidChange(const std::shared_ptr<ZMChatRoomMemberActionModel>& model) override;

    void chatRoomNotifyMultiLoginSync(const std::shared_ptr<ZMChatRoomSyncEvent>& event) override;
    void chatRoomNotifyBlock(const std::shared_ptr<ZMChatRoomMemberBlockEvent>& event) override;
    void chatRoomNotifyBan(const std::shared_ptr<ZMChatRoomMemberBanEvent>& event) override;

private:
    ZMDemoConsole& console_;
};
