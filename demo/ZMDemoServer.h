#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <CoreEmulator/ZMCoreEmulator.h>

#include "ZMDemoConsole.h"

// The server side of the demo: its rooms with their members and stored
// messages. It answers the module's requests through the core emulator's
// rules (join, rejoin, quit, room info, history) and sends signal messages
// and events into the rooms through the emulator's pushes, writing one
// "server" line for each thing it sends.
//
// Rules run on the thread that sends the request (the module's operation
// queue), so the rooms are guarded by a mutex.
class ZMDemoServer {
public:
    // The action codes of this server's member change messages. The module
    // passes them through; their meaning is agreed between server and app.
    static constexpr int64_t kMemberCame = 1;
    static constexpr int64_t kMemberLeft = 2;
    // The demo app's user.
    static constexpr const char* kAppUserId = "me";

    ZMDemoServer(ZMCoreEmulator& core, ZMDemoConsole& console);

    // Starts and stops answering the module's requests. close() must run
    // before the server goes away: the emulator keeps the rules.
    void open();
    void close();

    // A room with members who joined some minutes ago, and a few stored
    // messages.
    void addRoom(const std::string& room, const std::vector<std::string>& members,
                 const std::vector<std::pair<std::string, std::string>>& history);

    // Members come and go: the roster changes and a "ZM:ChrmMemChange"
    // message goes to the room.
    void changeMembers(const std::string& room, const std::vector<std::string>& came,
                       const std::vector<std::string>& left);
    // "ZM:ChrmBanMsg": users of the room may not speak for some minutes.
    void banMembers(const std::string& room, const std::vector<std::string>& users, int64_t minutes,
                    const std::string& extra);
    // "ZM:ChrmSyncMsg": another login of the app's user changed its presence.
    void syncOtherLogin(const std::string& room, int64_t status, int64_t reason);
    // The room is destroyed; the core reports it with the server's type.
    void destroyRoom(const std::string& room, int32_t type);
    // The next rejoin request of the room (a join that uses the cache time)
    // fails with this code; later ones succeed again.
    void failNextRejoin(const std::string& room, int32_t code);

    // The server's clock, in milliseconds since the epoch, and a time of day
    // ("09:00:05") for the console.
    int64_t now() const;
    static std::string timeOfDay(int64_t milliseconds);

private:
    struct Member {
        std::string userId;
        int64_t joinTime = 0;
    };
    struct StoredMessage {
        std::string sender;
        std::string text;
        int64_t sentTime = 0;
    };
    struct Room {
        int64_t createTime = 0;
        std::vector<Member> members;
        std::vector<StoredMessage> history;
        int32_t nextRejoinFailure = 0;  // 0: none
    };

    std::optional<ZMCoreAnswer> answerJoin(const ZMCoreRequest& request, bool createWhenMissing);
    std::optional<ZMCoreAnswer> answerQuit(const ZMCoreRequest& request);
    std::optional<ZMCoreAnswer> answerRoomInfo(const ZMCoreRequest& request);
    std::optional<ZMCoreAnswer> answerHistory(const ZMCoreRequest& request);
    void send(const std::string& objectName, const ZMValue& payload, const std::string& room);

    ZMCoreEmulator& core_;
    ZMDemoConsole& console_;
    const std::chrono::steady_clock::time_point start_;
    mutable std::mutex mutex_;
    std::map<std::string, Room> rooms_;
    uint64_t lastMessageNumber_ = 0;
};
