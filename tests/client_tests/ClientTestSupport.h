#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <Platform/ZMMainQueue.h>
#include <ZMChatRoom/ZMChatRoomClient.h>
#include <VemoIMLibCore/ZMCoreLogTags.h>
#include <ZMChatRoom/ZMChatRoomLogCommonTag.h>

#include "support/ZMTestSupport.h"

// Reaches the client's private join, so that join modes other than the public
// entry points' 0 can be tried, and its argument validators.
struct ZMChatRoomClientTestPeer {
    static ZMChatRoomClient& client() { return ZMChatRoomClient::sharedChatRoomClient(); }
    static bool isValidTargetId(const ZMValue& v) { return client().isValidTargetId(v); }
    static bool isValidRtcRoomId(const ZMValue& v) { return client().isValidRtcRoomId(v); }
    static bool isValidKey(const ZMValue& v) { return client().isValidKey(v); }
    static bool isValidValue(const ZMValue& v) { return client().isValidValue(v); }
    static int32_t isValidKey(const ZMValue& k, const ZMValue& v) { return client().isValidKey(k, v); }
    static bool isValidNotificationExtra(const ZMValue& v) { return client().isValidNotificationExtra(v); }

    static void join(const ZMValue& roomId, int32_t count, int32_t joinMode, bool isExist, ZMJoinSuccessBlock success,
                     ZMErrorBlock error) {
        ZMChatRoomClient::sharedChatRoomClient().p_joinChatRoom(roomId, count, joinMode, isExist, std::move(success),
                                                                std::move(error));
    }
};

// Records every status announcement as "status:room[:code]" and notes any
// call made outside the client's notify queue.
class StatusRecorder : public ZMChatRoomStatusDelegate {
public:
    ZMEventRecorder events;
    std::atomic<int> callsOffNotifyQueue{0};
    std::shared_ptr<ZMJoinChatRoomResponse> lastResponse() {
        std::lock_guard<std::mutex> lock(mutex_);
        return lastResponse_;
    }

    void onChatRoomJoining(const std::string& roomId) override { note("joining:" + roomId); }
    void onChatRoomJoined(const std::string& roomId, const std::shared_ptr<ZMJoinChatRoomResponse>& response) override {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            lastResponse_ = response;
        }
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
        if (!ZMChatRoomClient::sharedChatRoomClient().zm__notify_chatroom_status_queue().isCurrent()) ++callsOffNotifyQueue;
        events.record(std::move(event));
    }
    std::mutex mutex_;
    std::shared_ptr<ZMJoinChatRoomResponse> lastResponse_;
};

// The outcome of one public call: which callback ran, with what, on which
// thread, and whether it ran before the call returned.
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

    ZMSuccessBlock success() {
        return [this] {
            note();
            ++successes;
            done.record("success");
        };
    }
    ZMErrorBlock error() {
        return [this](int32_t errorCode) {
            note();
            code = errorCode;
            ++errors;
            done.record("error");
        };
    }
    int total() const { return successes + errors; }

private:
    void note() {
        onCallerThread = std::this_thread::get_id() == caller;
        onOperationQueue = ZMChatRoomClient::sharedChatRoomClient().zm_chatroom_operation_queue().isCurrent();
        beforeReturn = !returned;
    }
};

class ClientTest : public ::testing::Test {
protected:
    ZMChatRoomClient& client = ZMChatRoomClient::sharedChatRoomClient();
    ZMCoreEmulator& core = ZMCoreEmulator::shared();
    ZMMainQueue& mainQueue = ZMMainQueue::shared();
    std::shared_ptr<StatusRecorder> status = std::make_shared<StatusRecorder>();

    void SetUp() override {
        client.setChatroomListener();
        client.addChatRoomStatusDelegate(status);
        settle();
        core.clearRequests();
        core.logger().clear();
    }

    // Lets every consequence of what happened so far run to its end: queued
    // operations, the core's answers, status announcements and main-queue
    // tasks (timers only fire when the test advances the clock).
    void settle() {
        for (int round = 0; round < 3; ++round) {
            client.zm_chatroom_operation_queue().sync([] {});
            ASSERT_TRUE(core.waitUntilIdle(30));
            client.zm__notify_chatroom_status_queue().sync([] {});
            mainQueue.drain();
        }
    }

    // Joins and waits until the join is announced joined.
    void joinAndSettle(const std::string& roomId, int32_t count = 10) {
        client.joinChatRoom(roomId, count, ZMSuccessBlock{}, ZMErrorBlock{});
        settle();
    }

    std::shared_ptr<ZMCacheChatRoomInfo> entry(const std::string& roomId) {
        return client.cacheChatRoomDict().objectForKey(roomId).value_or(nullptr);
    }

    std::vector<std::string> linesOf(const std::string& tag) {
        std::vector<std::string> texts;
        for (const auto& line : core.logger().linesWithTag(tag)) texts.push_back(line.text);
        return texts;
    }

    static ZMLogLine line(int32_t level, int32_t type, const std::string& tag, const std::string& text) {
        return ZMLogLine{level, type, tag, text};
    }
};

inline const std::string kClientTag = "ZMChatRoomClient.cpp";
