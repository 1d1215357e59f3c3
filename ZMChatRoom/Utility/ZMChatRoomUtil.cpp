#include <ZMChatRoom/Utility/ZMChatRoomUtil.h>

#include <Platform/ZMJSONSerialization.h>

namespace {

// Pretty-printed JSON text of a non-empty dictionary or array (either helper
// takes either kind), or "" when there is nothing to print or the writer
// would refuse it: a value inside that is not JSON, a string or key that is
// not UTF-8, or nesting deeper than the platform's parser reads. The validity
// test walks the value without recursion and covers every refusal of the
// writer, so a valid container is written without an exception and a hostile
// one (nested thousands deep) is never handed to the recursive writer.
std::string prettyJSONText(const ZMValue& container) {
    if (!(container.is_object() || container.is_array()) || container.empty() ||
        !ZMJSONSerialization::isValidJSONObject(container)) {
        return "";
    }
    const ZMData data = ZMJSONSerialization::dataWithJSONObject(container, true);
    return std::string(data.begin(), data.end());
}

}  // namespace

std::string ZMChatRoomUtil::stringFromDict(const ZMValue& dict) { return prettyJSONText(dict); }

std::string ZMChatRoomUtil::stringFromArray(const ZMValue& array) { return prettyJSONText(array); }

std::shared_ptr<ZMChatRoomSyncEvent> ZMChatRoomUtil::modelWithSyncMessage(
    const std::shared_ptr<const ZMChatRoomSyncMessage>& message) {
    auto event = std::make_shared<ZMChatRoomSyncEvent>();
    if (message) {
        event->chatroomId = message->chatroomId;
        event->status = message->status;
        event->reason = message->reason;
        event->time = message->time;
        event->extra = message->extra;
    }
    return event;
}

std::shared_ptr<ZMChatRoomMemberBlockEvent> ZMChatRoomUtil::modelWithBlockMessage(
    const std::shared_ptr<const ZMChatRoomMemberBlockMessage>& message) {
    auto event = std::make_shared<ZMChatRoomMemberBlockEvent>();
    if (message) {
        event->chatroomId = message->chatroomId;
        event->operateType = message->operateType;
        event->durationTime = message->durationTime;
        event->operateTime = message->operateTime;
        event->userIdList = message->userIdList;
        event->extra = message->extra;
    }
    return event;
}

std::shared_ptr<ZMChatRoomMemberBanEvent> ZMChatRoomUtil::modelWithBanMessage(
    const std::shared_ptr<const ZMChatRoomMemberBanMessage>& message) {
    auto event = std::make_shared<ZMChatRoomMemberBanEvent>();
    if (message) {
        event->chatroomId = message->chatroomId;
        event->banType = message->banType;
        event->durationTime = message->durationTime;
        event->operateTime = message->operateTime;
        event->userIdList = message->userIdList;
        event->extra = message->extra;
    }
    return event;
}
