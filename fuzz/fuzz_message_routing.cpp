// Feeds arbitrary received messages to the extension module's routing: the
// first byte picks the message type (one of the five chat-room messages, or a
// type the module does not know) and whether it arrived offline, the rest is
// the payload. Decoded or not, the message goes through the module's
// didHoldReceivedMessage to a member observer and a notify-event observer
// that read every field they are given.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <ZMChatRoom/Extension/ZMChatRoomExtensionModule.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberActionMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBanMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBlockMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomSyncMessage.h>
#include <ZMChatRoom/Messages/ZMChatroomKVNotificationMessage.h>
#include <ZMChatRoom/ZMChatRoomClient.h>

namespace {

// Touches every field, so that a record built wrong shows under the
// sanitizers. Sums in unsigned arithmetic: the server's numbers are arbitrary.
class ReadingObserver : public ZMChatRoomMemberDelegate, public ZMChatRoomNotifyEventDelegate {
public:
    void memberDidChange(const std::vector<std::shared_ptr<ZMChatRoomMemberAction>>& members,
                         const std::string& chatroomId) override {
        touch(chatroomId.size());
        for (const auto& member : members) {
            if (member) touch(member->memberId.value_or("").size(), member->action);
        }
    }
    void memberDidChange(const std::shared_ptr<ZMChatRoomMemberActionModel>& model) override {
        touch(model->roomId.size(), model->chatRoomMemberActions.size(), model->memberCount);
    }
    void chatRoomNotifyMultiLoginSync(const std::shared_ptr<ZMChatRoomSyncEvent>& event) override {
        touch(event->chatroomId.value_or("").size(), event->status, event->reason, event->time,
              event->extra.value_or("").size());
    }
    void chatRoomNotifyBlock(const std::shared_ptr<ZMChatRoomMemberBlockEvent>& event) override {
        touch(event->chatroomId.value_or("").size(), event->operateType, event->durationTime, event->operateTime,
              event->userIdList.size(), event->extra.value_or("").size());
    }
    void chatRoomNotifyBan(const std::shared_ptr<ZMChatRoomMemberBanEvent>& event) override {
        touch(event->chatroomId.value_or("").size(), event->banType, event->durationTime, event->operateTime,
              event->userIdList.size(), event->extra.value_or("").size());
    }
    uint64_t seen = 0;

private:
    template <class... Numbers>
    void touch(Numbers... numbers) {
        ((seen += static_cast<uint64_t>(numbers)), ...);
    }
};

template <class Message>
std::pair<std::string, std::shared_ptr<ZMMessageContent>> decoded(const ZMData& payload) {
    auto message = std::make_shared<Message>();
    message->decodeWithData(payload);
    return {Message::getObjectName(), message};
}

std::shared_ptr<ReadingObserver>& observer() {
    static auto* kept = new std::shared_ptr<ReadingObserver>(std::make_shared<ReadingObserver>());
    return *kept;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    ZMCoreEmulator::shared().loadExtensionModule(&ZMChatRoomExtensionModule::loadVemoExtensionModule);
    auto& client = ZMChatRoomClient::sharedChatRoomClient();
    client.setMemberDelegate(observer());
    client.addChatRoomNotifyEventDelegate(observer());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    if (size == 0) return 0;
    const ZMData payload(bytes + 1, bytes + size);
    std::pair<std::string, std::shared_ptr<ZMMessageContent>> content;
    switch (bytes[0] % 6) {
        case 0: content = decoded<ZMChatRoomMemberActionMessage>(payload); break;
        case 1: content = decoded<ZMChatRoomMemberBlockMessage>(payload); break;
        case 2: content = decoded<ZMChatRoomMemberBanMessage>(payload); break;
        case 3: content = decoded<ZMChatRoomSyncMessage>(payload); break;
        case 4: content = decoded<ZMChatroomKVNotificationMessage>(payload); break;
        default: content = {"App:Unknown", nullptr}; break;  // a type the core could not decode
    }
    auto message = std::make_shared<ZMMessage>();
    message->objectName = content.first;
    message->content = content.second;
    message->targetId = "room";
    (void)ZMChatRoomExtensionModule::loadVemoExtensionModule().didHoldReceivedMessage(message, (bytes[0] & 0x80) != 0);
    ZMCoreEmulator::shared().logger().clear();
    return 0;
}
