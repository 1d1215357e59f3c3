#pragma once

#include <memory>
#include <string>
#include <vector>

#include <ZMChatRoom/ZMChatRoomKVStatusChangeDelegate.h>
#include <ZMChatRoom/ZMChatRoomKVStatusFilterDelegate.h>
#include <ZMChatRoom/ZMChatRoomMemberDelegate.h>
#include <ZMChatRoom/ZMChatRoomNotifyEventDelegate.h>
#include <ZMChatRoom/ZMChatRoomStatusDelegate.h>

#include "ZMDemoConsole.h"

// The demo app's observer of room statuses (called on the client's notify
// queue), member changes, notify events and KV entries (called on the core's
// threads). It writes one console line per call.
class ZMDemoObserver : public ZMChatRoomStatusDelegate,
                       public ZMChatRoomMemberDelegate,
                       public ZMChatRoomNotifyEventDelegate,
                       public ZMChatRoomKVStatusChangeDelegate {
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

    void chatRoomKVDidSync(const std::string& chatroomId) override;
    void chatRoomKVDidUpdate(const std::string& chatroomId, const ZMValue& entry) override;
    void chatRoomKVDidRemove(const std::string& chatroomId, const ZMValue& entry) override;

private:
    ZMDemoConsole& console_;
};

// The demo app's KV filter: entries whose key starts with "_private." are the
// app's own bookkeeping and are hidden from the rest of the app, in pushed
// updates and in full reads alike. Removals pass unfiltered.
class ZMDemoPrivateKeyFilter : public ZMChatRoomKVStatusFilterDelegate {
public:
    static constexpr const char* kPrivatePrefix = "_private.";

    explicit ZMDemoPrivateKeyFilter(ZMDemoConsole& console) : console_(console) {}

    ZMValue chatRoomKVUpdateFilter(const std::string& chatroomId, const ZMValue& entry) override;
    ZMValue getAllChatRoomEntriesFilter(const std::string& chatroomId, const ZMValue& entry) override;

private:
    ZMValue withoutPrivateKeys(const std::string& chatroomId, const ZMValue& entry);

    ZMDemoConsole& console_;
};
