#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <Platform/ZMMainQueue.h>
#include <ZMChatRoom/ZMChatRoomClient.h>
#include <VemoIMLibCore/ZMCoreLogTags.h>
#include <ZMChatRoom/ZMChatRoomLogCommonTag.h>

#include "support/ZMTestSupport.h"

using Strings = std::vector<std::string>;
using Requests = std::vector<std::pair<std::string, ZMValue>>;  // (operation, arguments)
inline const std::string kClientTag = "ZMChatRoomClient.cpp";

// Each room's announcements in order, as "status[:code]", from events "status:room[:code]".
inline std::map<std::string, Strings> byRoom(const Strings& events) {
    std::map<std::string, Strings> rooms;
    for (const auto& event : events) {
        const auto first = event.find(':'), second = event.find(':', first + 1);
        rooms[event.substr(first + 1, second - first - 1)].push_back(
            event.substr(0, first) + (second == std::string::npos ? "" : event.substr(second)));
    }
    return rooms;
}

// Reaches the client's private join (join modes other than 0) and its validators.
struct ZMChatRoomClientTestPeer {
    static ZMChatRoomClient& client() { return ZMChatRoomClient::sharedChatRoomClient(); }
    static bool isValidTargetId(const ZMValue& v) { return client().isValidTargetId(v); }
    static bool isValidRtcRoomId(const ZMValue& v) { return client().isValidRtcRoomId(v); }
    static bool isValidKey(const ZMValue& v) { return client().isValidKey(v); }
    static bool isValidValue(const ZMValue& v) { return client().isValidValue(v); }
    static int32_t isValidKey(const ZMValue& k, const ZMValue& v) { return client().isValidKey(k, v); }
    static bool isValidNotificationExtra(const ZMValue& v) { return client().isValidNotificationExtra(v); }
    static void join(const ZMValue& roomId, int32_t count, int32_t joinMode, ZMErrorBlock error = {},
                     ZMJoinSuccessBlock success = {}) {
        client().p_joinChatRoom(roomId, count, joinMode, false, std::move(success), std::move(error));
    }
};

// Records every announcement as "status:room[:code]"; counts calls off the notify queue.
class StatusRecorder : public ZMChatRoomStatusDelegate {
public:
    ZMEventRecorder events;
    std::atomic<int> callsOffNotifyQueue{0};
    // Written on the notify queue; read only after that queue was drained.
    std::shared_ptr<ZMJoinChatRoomResponse> lastResponse;

    void onChatRoomJoining(const std::string& roomId) override { note("joining:" + roomId); }
    void onChatRoomJoined(const std::string& roomId, const std::shared_ptr<ZMJoinChatRoomResponse>& response) override {
        lastResponse = response;
        note("joined:" + roomId);
    }
    void onChatRoomReset(const std::string& roomId) override { note("reset:" + roomId); }
    void onChatRoomJoinFailed(const std::string& roomId, int32_t code) override {
        note("failed:" + roomId + ":" + std::to_string(code));
    }
    void onChatRoomQuited(const std::string& roomId) override { note("quited:" + roomId); }
    void onChatRoomDestroyed(const std::string& roomId, int32_t type) override {
        note("destroyed:" + roomId + ":" + std::to_string(type));
    }

private:
    void note(std::string event) {
        callsOffNotifyQueue += !ZMChatRoomClient::sharedChatRoomClient().zm__notify_chatroom_status_queue().isCurrent();
        events.record(std::move(event));
    }
};

// One call's outcome: which callback ran, with what, on which thread, before the call returned or not.
struct CallOutcome {
    std::atomic<int> successes{0};
    std::atomic<int> errors{0};
    std::atomic<int32_t> code{0};
    std::atomic<bool> onCallerThread{false};
    std::atomic<bool> onOperationQueue{false};
    std::atomic<bool> returned{false};
    std::atomic<bool> beforeReturn{false};
    std::thread::id caller = std::this_thread::get_id();
    ZMEventRecorder done;

    ZMSuccessBlock success() { return [this] { note(successes, "success"); }; }
    ZMErrorBlock error() { return [this](int32_t errorCode) { code = errorCode; note(errors, "error"); }; }
    int total() const { return successes + errors; }

private:
    void note(std::atomic<int>& counter, const char* event) {
        onCallerThread = std::this_thread::get_id() == caller;
        onOperationQueue = ZMChatRoomClient::sharedChatRoomClient().zm_chatroom_operation_queue().isCurrent();
        beforeReturn = !returned;
        ++counter;
        done.record(event);
    }
};

class ClientTest : public ::testing::Test {
protected:
    ZMChatRoomClient& client = ZMChatRoomClient::sharedChatRoomClient();
    ZMCoreEmulator& core = ZMCoreEmulator::shared();
    ZMMainQueue& mainQueue = ZMMainQueue::shared();
    std::shared_ptr<StatusRecorder> status = std::make_shared<StatusRecorder>();

    void SetUp() override {
        // The tests script every answer and push; the KV server model (tested with the
        // emulator) would add pushes and reads of its own.
        core.setKVServerModelEnabled(false);
        client.setChatroomListener();
        client.addChatRoomStatusDelegate(status);
        settle();
        forget();
    }

    // Runs queued operations, core answers, announcements and main-queue tasks to their end
    // (timers fire only when the test advances the clock).
    void settle() {
        for (int round = 0; round < 3; ++round) {
            client.zm_chatroom_operation_queue().sync([] {});
            ASSERT_TRUE(core.waitUntilIdle(30));
            client.zm__notify_chatroom_status_queue().sync([] {});
            mainQueue.drain();
        }
    }

    // Forgets the requests, log lines and announcements seen so far.
    void forget() {
        core.clearRequests();
        core.logger().clear();
        status->events.clear();
        status->lastResponse.reset();
    }

    // Makes one call with fresh callbacks, notes its return, then settles.
    std::unique_ptr<CallOutcome> call(const std::function<void(CallOutcome&)>& operation) {
        auto outcome = std::make_unique<CallOutcome>();
        operation(*outcome);
        outcome->returned = true;
        settle();
        return outcome;
    }

    // Answers the one request held, if exactly one is.
    bool answerHeld(const ZMCoreAnswer& answer) {
        auto held = core.heldRequests();
        return held.size() == 1 && core.answer(held[0].id, answer);
    }

    void joinAndSettle(const std::string& roomId, int32_t count = 10) {
        client.joinChatRoom(roomId, count, ZMSuccessBlock{}, ZMErrorBlock{});
        settle();
    }

    std::shared_ptr<ZMCacheChatRoomInfo> entry(const std::string& roomId) {
        return client.cacheChatRoomDict().objectForKey(roomId).value_or(nullptr);
    }

    std::optional<bool> kvFlag(const std::string& roomId) { return client.syncKVChatRoomDict().objectForKey(roomId); }

    Requests sent() {
        Requests result;
        for (const auto& r : core.requests()) result.emplace_back(r.operation, r.arguments);
        return result;
    }

    std::vector<ZMLogLine> logged(const std::string& tag) { return core.logger().linesWithTag(tag); }

    // The expected lines of one tag, all at one level and of one type.
    static std::vector<ZMLogLine> lines(const std::string& tag, int32_t level, const Strings& texts, int32_t type = 1) {
        std::vector<ZMLogLine> result;
        for (const auto& text : texts) result.push_back(ZMLogLine{level, type, tag, text});
        return result;
    }
    // The request that clears a room's local messages and KV entries before a first join.
    static Requests::value_type clearLocal(const std::string& roomId) {
        return {"clearChatroomMessageAndKVWithTargetId",
                {{"chatroomId", roomId}, {"clearMsg", true}, {"clearKv", true}}};
    }
    // The arguments of a join request.
    static ZMValue joinArgs(const std::string& roomId, int32_t limit, bool useCacheTime, int32_t joinMode = 0) {
        return {{"chatroomId", roomId}, {"limit", limit}, {"useCacheTime", useCacheTime}, {"joinMode", joinMode}};
    }
    static ZMLogLine clientLine(int32_t level, const std::string& text) {
        return ZMLogLine{level, ZMLogTypeDiagnostic, kClientTag, text};
    }
};
