#include <ZMChatRoom/Utility/ZMChatRoomUtil.h>

#include <string_view>

#include <Platform/ZMJSONSerialization.h>
#include <Platform/ZMPlatformException.h>
#include <Platform/ZMUTF16.h>
#include <VemoIMLibCore/ZMFwLog.h>
#include <ZMChatRoom/ZMChatRoomLogCommonTag.h>

namespace {

// Pretty-printed JSON text of a non-empty dictionary or array (either helper
// takes either kind), or "" when there is nothing to print or the writer
// refuses it. The platform's exceptions are logged with exceptionFormat and
// turned into ""; any other exception reaches the caller.
std::string prettyJSONText(const ZMValue& container, std::string_view exceptionFormat) {
    if (!(container.is_object() || container.is_array()) || container.empty() ||
        !ZMJSONSerialization::isValidJSONObject(container)) {
        return "";
    }
    try {
        ZMData data = ZMJSONSerialization::dataWithJSONObject(container, true);
        std::string text(data.begin(), data.end());
        // Bytes that do not read as UTF-8 give no string.
        if (!ZMUTF16::length(text)) return "";
        return text;
    } catch (const ZMPlatformException& exception) {
        ZMFwLog::getInstance().write(ZMLogLevelException, ZMLogTypeDiagnostic, ZM_FILE_TAG, exceptionFormat,
                                     exception.description());
        return "";
    }
}

}  // namespace

std::string ZMChatRoomUtil::stringFromDict(const ZMValue& dict) {
    return prettyJSONText(dict, "ZMChatRoomUtil stringFromDict exception:%@");
}

std::string ZMChatRoomUtil::stringFromArray(const ZMValue& array) {
    return prettyJSONText(array, "ZMChatRoomUtil stringFromArray exception:%@");
}

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
