// Feeds arbitrary payload bytes to every chat-room message decoder, then
// encodes what was decoded and converts it to the observers' event models:
// whatever the server sends, decoding must neither crash nor throw.
#include <cstddef>
#include <cstdint>

#include <ZMChatRoom/Messages/ZMChatRoomMemberActionMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBanMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBlockMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomSyncMessage.h>
#include <ZMChatRoom/Messages/ZMChatroomKVNotificationMessage.h>
#include <ZMChatRoom/Utility/ZMChatRoomUtil.h>

namespace {

template <class Message>
std::shared_ptr<Message> decodeAndEncode(const ZMData& data) {
    auto message = std::make_shared<Message>();
    message->decodeWithData(data);
    (void)message->encode();
    return message;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const ZMData data(bytes, bytes + size);
    auto members = decodeAndEncode<ZMChatRoomMemberActionMessage>(data);
    ZMChatRoomUtil::modelWithBlockMessage(decodeAndEncode<ZMChatRoomMemberBlockMessage>(data));
    ZMChatRoomUtil::modelWithBanMessage(decodeAndEncode<ZMChatRoomMemberBanMessage>(data));
    ZMChatRoomUtil::modelWithSyncMessage(decodeAndEncode<ZMChatRoomSyncMessage>(data));
    decodeAndEncode<ZMChatroomKVNotificationMessage>(data);
    if (auto parsed = ZMMessageContent::dictionaryFromJsonData(data)) {
        (void)ZMChatRoomUtil::stringFromDict(*parsed);
        (void)ZMChatRoomUtil::stringFromArray(parsed->value("userList", ZMValue()));
    }
    return 0;
}
