#include "ZMDemoObserver.h"

#include "ZMDemoServer.h"

namespace {

std::string joinedList(const ZMValue& userIds) {
    if (!userIds.is_array() || userIds.empty()) return "nobody";
    std::string text;
    for (const auto& userId : userIds) {
        if (!text.empty()) text += ", ";
        text += userId.is_string() ? userId.get<std::string>() : userId.dump();
    }
    return text;
}

// "topic = \"...\", slides = \"3\"" for the entries of a KV dictionary.
std::string entriesText(const ZMValue& entries) {
    if (!entries.is_object() || entries.empty()) return "nothing";
    std::string text;
    for (const auto& [key, value] : entries.items()) {
        if (!text.empty()) text += ", ";
        text += key + " = " + value.dump();
    }
    return text;
}

std::string memberAction(const ZMChatRoomMemberAction& action) {
    const std::string who = action.memberId.value_or("(no id)");
    switch (action.action) {
        case ZMDemoServer::kMemberCame:
            return who + " came";
        case ZMDemoServer::kMemberLeft:
            return who + " left";
        default:
            return who + " action " + std::to_string(action.action);
    }
}

}  // namespace

// ---- Room status (notify queue) -------------------------------------------------

void ZMDemoObserver::onChatRoomJoining(const std::string& chatroomId) {
    console_.event("status", "status joining", chatroomId, chatroomId + ": joining");
}

void ZMDemoObserver::onChatRoomJoined(const std::string& chatroomId,
                                      const std::shared_ptr<ZMJoinChatRoomResponse>& response) {
    std::string text = chatroomId + ": joined";
    if (response) {
        text += ", " + std::to_string(response->memberCount) + " members, room created at " +
                ZMDemoServer::timeOfDay(response->createTime);
        if (response->isCurrentUserBanned || response->isAllChatRoomBanned) text += ", you may not speak";
    }
    console_.event("status", "status joined", chatroomId, text);
}

void ZMDemoObserver::onChatRoomReset(const std::string& chatroomId) {
    console_.event("status", "status reset", chatroomId, chatroomId + ": reset by the server");
}

void ZMDemoObserver::onChatRoomJoinFailed(const std::string& chatroomId, int32_t errorCode) {
    std::string text = chatroomId + ": failed, code " + std::to_string(errorCode);
    if (errorCode == -1) text += " (connection lost)";
    console_.event("status", "status failed", chatroomId, text);
}

void ZMDemoObserver::onChatRoomQuited(const std::string& chatroomId) {
    console_.event("status", "status quited", chatroomId, chatroomId + ": quited");
}

void ZMDemoObserver::onChatRoomDestroyed(const std::string& chatroomId, int32_t type) {
    console_.event("status", "status destroyed", chatroomId,
                   chatroomId + ": destroyed on the server (type " + std::to_string(type) + ")");
}

// ---- Members (core thread) ----------------------------------------------------------

void ZMDemoObserver::memberDidChange(const std::shared_ptr<ZMChatRoomMemberActionModel>& model) {
    if (!model) return;
    std::string text = model->roomId + ":";
    for (size_t i = 0; i < model->chatRoomMemberActions.size(); ++i) {
        const auto& action = model->chatRoomMemberActions[i];
        text += (i == 0 ? " " : ", ") + (action ? memberAction(*action) : std::string("(none)"));
    }
    text += "; " + std::to_string(model->memberCount) + " members now";
    console_.event("member", "member change", model->roomId, text);
}

// ---- Notify events (core thread) ----------------------------------------------------

void ZMDemoObserver::chatRoomNotifyMultiLoginSync(const std::shared_ptr<ZMChatRoomSyncEvent>& event) {
    if (!event) return;
    const std::string room = event->chatroomId.value_or("");
    console_.event("notify", "notify sync", room,
                   room + ": another login of this user changed its presence (status " +
                       std::to_string(event->status) + ", reason " + std::to_string(event->reason) + ") at " +
                       ZMDemoServer::timeOfDay(event->time));
}

void ZMDemoObserver::chatRoomNotifyBlock(const std::shared_ptr<ZMChatRoomMemberBlockEvent>& event) {
    if (!event) return;
    const std::string room = event->chatroomId.value_or("");
    console_.event("notify", "notify block", room,
                   room + ": blocked " + joinedList(event->userIdList) + " (type " +
                       std::to_string(event->operateType) + ") for " + std::to_string(event->durationTime) +
                       " min");
}

void ZMDemoObserver::chatRoomNotifyBan(const std::shared_ptr<ZMChatRoomMemberBanEvent>& event) {
    if (!event) return;
    const std::string room = event->chatroomId.value_or("");
    std::string text = room + ": banned " + joinedList(event->userIdList) + " from speaking (type " +
                       std::to_string(event->banType) + ") for " + std::to_string(event->durationTime) +
                       " min from " + ZMDemoServer::timeOfDay(event->operateTime);
    if (event->extra && !event->extra->empty()) text += ", extra \"" + *event->extra + "\"";
    console_.event("notify", "notify ban", room, text);
}

// ---- KV entries (core thread) -------------------------------------------------------

void ZMDemoObserver::chatRoomKVDidSync(const std::string& chatroomId) {
    console_.event("kv", "kv sync", chatroomId, chatroomId + ": KV entries synchronised");
}

void ZMDemoObserver::chatRoomKVDidUpdate(const std::string& chatroomId, const ZMValue& entry) {
    console_.event("kv", "kv update", chatroomId, chatroomId + ": KV set " + entriesText(entry));
}

void ZMDemoObserver::chatRoomKVDidRemove(const std::string& chatroomId, const ZMValue& entry) {
    console_.event("kv", "kv remove", chatroomId, chatroomId + ": KV removed " + entriesText(entry));
}

// ---- KV filter (core thread) ----------------------------------------------------------

ZMValue ZMDemoPrivateKeyFilter::chatRoomKVUpdateFilter(const std::string& chatroomId, const ZMValue& entry) {
    return withoutPrivateKeys(chatroomId, entry);
}

ZMValue ZMDemoPrivateKeyFilter::getAllChatRoomEntriesFilter(const std::string& chatroomId, const ZMValue& entry) {
    return withoutPrivateKeys(chatroomId, entry);
}

ZMValue ZMDemoPrivateKeyFilter::withoutPrivateKeys(const std::string& chatroomId, const ZMValue& entry) {
    ZMValue kept = ZMValue::object();
    std::string hidden;
    if (entry.is_object()) {
        for (const auto& [key, value] : entry.items()) {
            if (key.rfind(kPrivatePrefix, 0) == 0) {
                hidden += (hidden.empty() ? "" : ", ") + key;
            } else {
                kept[key] = value;
            }
        }
    }
    if (!hidden.empty()) console_.say("filter", chatroomId + ": hid " + hidden);
    return kept;
}
