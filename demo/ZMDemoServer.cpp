#include "ZMDemoServer.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "ZMDemoTextMessage.h"

namespace {

// The server's clock starts at 2024-05-01 09:00:00 UTC when the demo starts.
constexpr int64_t kServerEpoch = 1714554000000;
constexpr int64_t kMinute = 60 * 1000;

// This server refuses a join-existing request for a room it does not have
// with 23410, one of the codes after which the module drops the room.
constexpr int32_t kNoSuchRoom = 23410;

bool contains(const std::vector<std::string>& list, const std::string& item) {
    return std::find(list.begin(), list.end(), item) != list.end();
}

}  // namespace

ZMDemoServer::ZMDemoServer(ZMCoreEmulator& core, ZMDemoConsole& console)
    : core_(core), console_(console), start_(std::chrono::steady_clock::now()) {}

int64_t ZMDemoServer::now() const {
    const auto elapsed = std::chrono::steady_clock::now() - start_;
    return kServerEpoch + std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count();
}

std::string ZMDemoServer::timeOfDay(int64_t milliseconds) {
    const int64_t secondsOfDay = (milliseconds / 1000) % (24 * 60 * 60);
    char text[16];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d", static_cast<int>(secondsOfDay / 3600),
                  static_cast<int>(secondsOfDay / 60 % 60), static_cast<int>(secondsOfDay % 60));
    return text;
}

// ---- Answers to the module's requests ---------------------------------------

void ZMDemoServer::open() {
    core_.setRule("joinChatroom", [this](const ZMCoreRequest& request) { return answerJoin(request, true); });
    core_.setRule("joinExistingChatroom", [this](const ZMCoreRequest& request) { return answerJoin(request, false); });
    core_.setRule("quitChatroom", [this](const ZMCoreRequest& request) { return answerQuit(request); });
    core_.setRule("queryChatroomInfo", [this](const ZMCoreRequest& request) { return answerRoomInfo(request); });
    core_.setRule("getChatroomHistoryMessage", [this](const ZMCoreRequest& request) { return answerHistory(request); });
}

void ZMDemoServer::close() { core_.clearRules(); }

std::optional<ZMCoreAnswer> ZMDemoServer::answerJoin(const ZMCoreRequest& request, bool createWhenMissing) {
    const std::string roomId = request.arguments.value("chatroomId", "");
    const bool isRejoin = request.arguments.value("useCacheTime", false);
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = rooms_.find(roomId);
    if (found == rooms_.end()) {
        if (!createWhenMissing) return ZMCoreAnswer::failure(kNoSuchRoom);
        found = rooms_.emplace(roomId, Room{now(), {}, {}, 0}).first;
    }
    Room& room = found->second;
    if (isRejoin && room.nextRejoinFailure != 0) {
        return ZMCoreAnswer::failure(std::exchange(room.nextRejoinFailure, 0));
    }
    const bool present = std::any_of(room.members.begin(), room.members.end(),
                                     [](const Member& member) { return member.userId == kAppUserId; });
    if (!present) room.members.push_back(Member{kAppUserId, now()});
    return ZMCoreAnswer::success({{"create_time_", room.createTime},
                                  {"member_count_", room.members.size()},
                                  {"is_all_chatroom_banned_", false},
                                  {"is_current_user_banned_", false},
                                  {"is_current_chatroom_banned_", false},
                                  {"is_current_chatroom_in_banned_whitelist_", false}});
}

std::optional<ZMCoreAnswer> ZMDemoServer::answerQuit(const ZMCoreRequest& request) {
    const std::string roomId = request.arguments.value("chatroomId", "");
    std::lock_guard<std::mutex> lock(mutex_);
    if (auto found = rooms_.find(roomId); found != rooms_.end()) {
        auto& members = found->second.members;
        members.erase(std::remove_if(members.begin(), members.end(),
                                     [](const Member& member) { return member.userId == kAppUserId; }),
                      members.end());
    }
    return ZMCoreAnswer::success();
}

// Order 1 lists the earliest members first, order 2 the latest; at most limit.
std::optional<ZMCoreAnswer> ZMDemoServer::answerRoomInfo(const ZMCoreRequest& request) {
    const std::string roomId = request.arguments.value("chatroomId", "");
    const int64_t limit = request.arguments.value("limit", int64_t{0});
    const bool latestFirst = request.arguments.value("order", uint64_t{1}) == 2;
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = rooms_.find(roomId);
    if (found == rooms_.end()) return ZMCoreAnswer::success({{"totalMemberCount", 0}});
    std::vector<Member> members = found->second.members;
    std::stable_sort(members.begin(), members.end(), [latestFirst](const Member& a, const Member& b) {
        return latestFirst ? a.joinTime > b.joinTime : a.joinTime < b.joinTime;
    });
    ZMValue memberInfoArray = ZMValue::array();
    for (const auto& member : members) {
        if (static_cast<int64_t>(memberInfoArray.size()) >= limit) break;
        memberInfoArray.push_back({{"userId", member.userId}, {"joinTime", member.joinTime}});
    }
    return ZMCoreAnswer::success({{"totalMemberCount", members.size()}, {"memberInfoArray", memberInfoArray}});
}

// Order 0 pages backwards from sendTime (0: from now), newest first; order 1
// pages forwards from sendTime, oldest first. The time value handed back is
// the sent time of the page's last message.
std::optional<ZMCoreAnswer> ZMDemoServer::answerHistory(const ZMCoreRequest& request) {
    const std::string roomId = request.arguments.value("chatroomId", "");
    const int64_t sendTime = request.arguments.value("sendTime", int64_t{0});
    const size_t limit = static_cast<size_t>(std::max<int64_t>(0, request.arguments.value("limit", int64_t{0})));
    const bool forwards = request.arguments.value("order", uint64_t{0}) == 1;
    std::lock_guard<std::mutex> lock(mutex_);
    ZMCoreAnswer answer;
    auto found = rooms_.find(roomId);
    if (found == rooms_.end()) return answer;

    std::vector<StoredMessage> page;
    for (const auto& stored : found->second.history) {
        const bool inRange = forwards ? stored.sentTime > sendTime : (sendTime == 0 || stored.sentTime < sendTime);
        if (inRange) page.push_back(stored);
    }
    if (!forwards) std::reverse(page.begin(), page.end());
    answer.hasMore = page.size() > limit;
    if (page.size() > limit) page.resize(limit);
    for (const auto& stored : page) {
        auto message = std::make_shared<ZMMessage>();
        message->objectName = ZMDemoTextMessage::getObjectName();
        message->content = std::make_shared<ZMDemoTextMessage>(stored.text);
        message->targetId = roomId;
        message->senderUserId = stored.sender;
        message->messageUId = "MSG-" + std::to_string(++lastMessageNumber_);
        message->sentTime = stored.sentTime;
        answer.messages.push_back(std::move(message));
        answer.syncTime = stored.sentTime;
    }
    return answer;
}

// ---- Rooms and pushes ---------------------------------------------------------

void ZMDemoServer::addRoom(const std::string& room, const std::vector<std::string>& members,
                           const std::vector<std::pair<std::string, std::string>>& history) {
    const int64_t start = now();
    Room created;
    created.createTime = start - 180 * kMinute;
    for (size_t i = 0; i < members.size(); ++i) {
        created.members.push_back(Member{members[i], start - static_cast<int64_t>(members.size() - i) * 7 * kMinute});
    }
    for (size_t i = 0; i < history.size(); ++i) {
        created.history.push_back(StoredMessage{history[i].first, history[i].second,
                                                start - static_cast<int64_t>(history.size() - i) * kMinute});
    }
    std::lock_guard<std::mutex> lock(mutex_);
    rooms_.insert_or_assign(room, std::move(created));
}

void ZMDemoServer::changeMembers(const std::string& room, const std::vector<std::string>& came,
                                 const std::vector<std::string>& left) {
    ZMValue userList = ZMValue::array();
    size_t memberCount = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto& members = rooms_[room].members;
        for (const auto& userId : came) {
            members.push_back(Member{userId, now()});
            userList.push_back({{"userId", userId}, {"status", kMemberCame}});
        }
        members.erase(std::remove_if(members.begin(), members.end(),
                                     [&left](const Member& member) { return contains(left, member.userId); }),
                      members.end());
        for (const auto& userId : left) userList.push_back({{"userId", userId}, {"status", kMemberLeft}});
        memberCount = members.size();
    }
    send("ZM:ChrmMemChange", {{"userList", userList}, {"memberCount", memberCount}}, room);
}

void ZMDemoServer::banMembers(const std::string& room, const std::vector<std::string>& users, int64_t minutes,
                              const std::string& extra) {
    send("ZM:ChrmBanMsg",
         {{"chatroomId", room},
          {"operateType", 1},
          {"durationTime", minutes},
          {"operateTime", now()},
          {"userList", users},
          {"extra", extra}},
         room);
}

void ZMDemoServer::syncOtherLogin(const std::string& room, int64_t status, int64_t reason) {
    send("ZM:ChrmSyncMsg", {{"chatroomId", room}, {"status", status}, {"reason", reason}, {"time", now()}}, room);
}

void ZMDemoServer::destroyRoom(const std::string& room, int32_t type) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        rooms_.erase(room);
    }
    console_.say("server", "destroys " + room + " (type " + std::to_string(type) + ")");
    core_.raiseRoomDestroyed(room, type);
}

void ZMDemoServer::failNextRejoin(const std::string& room, int32_t code) {
    std::lock_guard<std::mutex> lock(mutex_);
    rooms_[room].nextRejoinFailure = code;
}

void ZMDemoServer::send(const std::string& objectName, const ZMValue& payload, const std::string& room) {
    const std::string text = payload.dump();
    console_.say("server", objectName + " -> " + room + " " + text);
    core_.deliverMessage(objectName, text, room);
}
