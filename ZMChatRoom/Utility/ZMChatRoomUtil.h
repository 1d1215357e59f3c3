#pragma once

#include <memory>
#include <string>

#include <VemoIMLibCore/ZMValue.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBanMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomMemberBlockMessage.h>
#include <ZMChatRoom/Messages/ZMChatRoomSyncMessage.h>
#include <ZMChatRoom/Models/ZMChatRoomMemberBanEvent.h>
#include <ZMChatRoom/Models/ZMChatRoomMemberBlockEvent.h>
#include <ZMChatRoom/Models/ZMChatRoomSyncEvent.h>

// JSON text for log lines and the event models of the notify-event observers.
class ZMChatRoomUtil {
public:
    // Pretty-printed JSON text of a non-empty dictionary or array that is
    // valid JSON for the platform's writer (ZMJSONSerialization::
    // isValidJSONObject: JSON values only, UTF-8 strings and keys, nested no
    // deeper than the platform's parser reads); "" for anything else, without
    // a log line. The two take either kind and answer the same.
    static std::string stringFromDict(const ZMValue& dict);
    static std::string stringFromArray(const ZMValue& array);

    // A new event built from the message (every field empty or 0 when the
    // message is null). Never null.
    static std::shared_ptr<ZMChatRoomSyncEvent> modelWithSyncMessage(
        const std::shared_ptr<const ZMChatRoomSyncMessage>& message);
    static std::shared_ptr<ZMChatRoomMemberBlockEvent> modelWithBlockMessage(
        const std::shared_ptr<const ZMChatRoomMemberBlockMessage>& message);
    static std::shared_ptr<ZMChatRoomMemberBanEvent> modelWithBanMessage(
        const std::shared_ptr<const ZMChatRoomMemberBanMessage>& message);
};
