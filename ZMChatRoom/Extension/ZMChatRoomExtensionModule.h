#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <VemoIMLibCore/VemoIMLibExtensionModule.h>

class ZMChatRoomMemberActionMessage;

// The object through which the core library knows the chat-room module.
// Loading it registers the five chat-room message types and wires the
// client to the core; afterwards it routes received messages and connection
// changes.
class ZMChatRoomExtensionModule : public VemoIMLibExtensionModule {
public:
    // The module class's loader: creates the module once per process (logging
    // every call) and returns the same module every time.
    static ZMChatRoomExtensionModule& loadVemoExtensionModule();

    // The five chat-room message classes, in registration order.
    const std::vector<ZMMessageClass>& chatRoomMessageTypeList() const { return chatRoomMessageTypeList_; }

    void destroyModule() override;
    std::vector<ZMMessageClass> getSignalMessageClassList() override;
    bool didHoldReceivedMessage(const std::shared_ptr<ZMMessage>& message, bool isOffline) override;
    void setAppKey(const std::string& appKey) override;
    void setConfiguration(const ZMValue& configuration) override;
    void setUserId(const std::string& userId) override;
    void setCurrentToken(const std::string& token) override;
    void setDeviceToken(const ZMValue& token) override;
    void notifyConnectionStatusChanged(int64_t status) override;
    void notifyLogoutEvent() override;

private:
    ZMChatRoomExtensionModule() = default;

    void p_didReceiveMemberChangeMessage(const std::shared_ptr<ZMMessage>& message,
                                         const ZMChatRoomMemberActionMessage& memberChange);
    bool p_checkHandleNotifyEventMessage(const std::shared_ptr<ZMMessage>& message);

    std::vector<ZMMessageClass> chatRoomMessageTypeList_;
};
