#include "ClientTestSupport.h"

#include <algorithm>
#include <functional>

TEST_F(ClientTest, JoinSendsOneRequestAndAnnouncesJoiningThenJoined) {
    core.setRule("joinChatroom", ZMCoreAnswer::success({{"member_count_", 12}, {"create_time_", 1700000000000LL},
                                                        {"is_current_user_banned_", true}}));
    CallOutcome outcome;
    client.joinChatRoom("r1", 10, outcome.success(), outcome.error());
    outcome.returned = true;
    ASSERT_TRUE(outcome.done.waitForCount(1));
    settle();

    EXPECT_EQ(outcome.successes, 1);
    EXPECT_FALSE(outcome.onCallerThread);
    EXPECT_FALSE(outcome.onOperationQueue);
    EXPECT_EQ(status->events.events(), (std::vector<std::string>{"joining:r1", "joined:r1"}));
    EXPECT_EQ(status->callsOffNotifyQueue, 0);
    auto response = status->lastResponse();
    ASSERT_TRUE(response);
    EXPECT_EQ(response->memberCount, 12);
    EXPECT_EQ(response->createTime, 1700000000000LL);
    EXPECT_TRUE(response->isCurrentUserBanned);
    EXPECT_FALSE(response->isAllChatRoomBanned);

    auto requests = core.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].operation, "clearChatroomMessageAndKVWithTargetId");
    EXPECT_EQ(requests[0].arguments, (ZMValue{{"chatroomId", "r1"}, {"clearMsg", true}, {"clearKv", true}}));
    EXPECT_EQ(requests[1].operation, "joinChatroom");
    EXPECT_EQ(requests[1].arguments,
              (ZMValue{{"chatroomId", "r1"}, {"limit", 10}, {"useCacheTime", false}, {"joinMode", 0}}));

    auto cached = entry("r1");
    ASSERT_TRUE(cached);
    EXPECT_EQ(cached->status, ZMChatRoomStatusJoined);
    EXPECT_TRUE(cached->joinedEver);
    EXPECT_EQ(client.syncKVChatRoomDict().objectForKey("r1"), std::optional<bool>(false));
    EXPECT_EQ(core.logger().linesWithTag(ZM_A_JION_CHATROOM_T),
              (std::vector<ZMLogLine>{line(4, 1, ZM_A_JION_CHATROOM_T, "room_id:r1,existed:0,count:10,joinMode:0")}));
    EXPECT_EQ(core.logger().linesWithTag(ZM_A_JION_CHATROOM_R),
              (std::vector<ZMLogLine>{line(4, 1, ZM_A_JION_CHATROOM_R, "code:0,room_id:r1")}));
}

TEST_F(ClientTest, PublicJoinsMapOntoTheCoreJoinWithClampedCount) {
    struct Case {
        std::string name;
        std::function<void(ZMChatRoomClient&, const std::string&, int32_t, CallOutcome&)> join;
        int32_t count;
        std::string operation;
        int32_t sentCount;
        bool existOnly;
    };
    auto plain = [](ZMChatRoomClient& c, const std::string& room, int32_t count, CallOutcome& o) {
        c.joinChatRoom(room, count, o.success(), o.error());
    };
    auto exist = [](ZMChatRoomClient& c, const std::string& room, int32_t count, CallOutcome& o) {
        c.joinExistChatRoom(room, count, o.success(), o.error());
    };
    auto existWithResponse = [](ZMChatRoomClient& c, const std::string& room, int32_t count, CallOutcome& o) {
        auto success = o.success();
        c.joinExistChatRoom(
            room, count,
            ZMJoinSuccessBlock([success](const std::shared_ptr<ZMJoinChatRoomResponse>& response) {
                if (response) success();
            }),
            o.error());
    };
    const std::vector<Case> cases = {
        {"negative count is sent as -1", plain, -5, "joinChatroom", -1, false},
        {"zero count is sent as 0", plain, 0, "joinChatroom", 0, false},
        {"join existing", exist, 50, "joinExistingChatroom", 50, true},
        {"join existing with the response", existWithResponse, -1, "joinExistingChatroom", -1, true},
    };
    int index = 0;
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        const std::string room = "room" + std::to_string(index++);
        core.clearRequests();
        CallOutcome outcome;
        testCase.join(client, room, testCase.count, outcome);
        settle();
        EXPECT_EQ(outcome.successes, 1);
        auto requests = core.requests(testCase.operation);
        ASSERT_EQ(requests.size(), 1u);
        EXPECT_EQ(requests[0].arguments["chatroomId"], room);
        EXPECT_EQ(requests[0].arguments["limit"], testCase.sentCount);
        EXPECT_EQ(requests[0].arguments["useCacheTime"], false);
        auto cached = entry(room);
        ASSERT_TRUE(cached);
        EXPECT_EQ(cached->messageCount, testCase.sentCount);
        EXPECT_EQ(cached->joinExistOnly, testCase.existOnly);
        // The start line shows the count as the caller passed it.
        EXPECT_EQ(core.logger().linesWithTag(ZM_A_JION_CHATROOM_T).back(),
                  line(4, 1, ZM_A_JION_CHATROOM_T,
                       "room_id:" + room + ",existed:" + (testCase.existOnly ? "1" : "0") +
                           ",count:" + std::to_string(testCase.count) + ",joinMode:0"));
    }
}

TEST_F(ClientTest, JoinRefusesAJoinModeOtherThanZeroOrOne) {
    for (int32_t mode : {2, -1}) {
        core.logger().clear();
        CallOutcome outcome;
        ZMChatRoomClientTestPeer::join("r1", 10, mode, false, ZMJoinSuccessBlock{}, outcome.error());
        outcome.returned = true;
        EXPECT_EQ(outcome.errors, 1);
        EXPECT_EQ(outcome.code, ZMErrorInvalidJoinMode);
        EXPECT_TRUE(outcome.beforeReturn);
        EXPECT_EQ(linesOf(ZM_A_JION_CHATROOM_R), (std::vector<std::string>{"code:34258,mode:" + std::to_string(mode)}));
    }
    // The room id is checked first.
    core.logger().clear();
    CallOutcome both;
    ZMChatRoomClientTestPeer::join("", 10, 2, false, ZMJoinSuccessBlock{}, both.error());
    EXPECT_EQ(both.code, ZMErrorInvalidParameter);
    EXPECT_EQ(linesOf(ZM_A_JION_CHATROOM_R), (std::vector<std::string>{"code:34210,room_id:"}));
    settle();
    EXPECT_TRUE(core.requests().empty());
    EXPECT_FALSE(client.syncKVChatRoomDict().objectForKey("r1").has_value());
    ZMChatRoomClientTestPeer::join("r1", 10, ZMChatRoomJoinModeAlternate, false, ZMJoinSuccessBlock{}, ZMErrorBlock{});
    settle();
    auto requests = core.requests("joinChatroom");
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].arguments["joinMode"], 1);
    EXPECT_EQ(entry("r1")->joinMode, 1);
}

TEST_F(ClientTest, JoinResultCodesDecideTheRoomsFate) {
    struct Case {
        int32_t code;
        bool success;
        std::vector<std::string> announcements;
        std::optional<int64_t> cachedStatus;  // nothing: dropped from the cache
        bool detectsNavigation;
    };
    const std::vector<Case> cases = {
        {33009, true, {"joining:r", "reset:r", "joined:r"}, ZMChatRoomStatusJoined, false},
        {23409, false, {"joining:r", "failed:r:23409"}, std::nullopt, false},
        {23410, false, {"joining:r", "failed:r:23410"}, std::nullopt, false},
        {20605, false, {"joining:r", "failed:r:20605"}, std::nullopt, true},
        {23411, false, {"joining:r", "failed:r:23411"}, ZMChatRoomStatusJoinFailed, false},
        {23412, false, {"joining:r", "failed:r:23412"}, ZMChatRoomStatusJoinFailed, false},
        {23408, false, {"joining:r", "failed:r:23408"}, ZMChatRoomStatusJoinFailed, true},
        {23413, false, {"joining:r", "failed:r:23413"}, ZMChatRoomStatusJoinFailed, true},
        {33003, false, {"joining:r", "failed:r:33003"}, ZMChatRoomStatusJoinFailed, false},
        {12345, false, {"joining:r", "failed:r:12345"}, ZMChatRoomStatusJoinFailed, true},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.code);
        client.clearChatRoom();
        settle();
        status->events.clear();
        core.logger().clear();
        const size_t detectionsBefore = core.naviDetectionCount();
        // A flag already true must drop back to false on a reset join.
        client.syncKVChatRoomDict().setObject(true, "r");
        core.setRule("joinChatroom", ZMCoreAnswer::failure(testCase.code));

        CallOutcome outcome;
        client.joinChatRoom("r", 10, outcome.success(), outcome.error());
        settle();

        EXPECT_EQ(outcome.successes, testCase.success ? 1 : 0);
        EXPECT_EQ(outcome.errors, testCase.success ? 0 : 1);
        if (!testCase.success) {
            EXPECT_EQ(outcome.code, testCase.code);
        }
        EXPECT_EQ(status->events.events(), testCase.announcements);
        auto cached = entry("r");
        EXPECT_EQ(cached ? std::optional<int64_t>(cached->status.load()) : std::nullopt, testCase.cachedStatus);
        EXPECT_EQ(core.naviDetectionCount() - detectionsBefore, testCase.detectsNavigation ? 1u : 0u);
        const std::string loggedCode = testCase.success ? "0" : std::to_string(testCase.code);
        EXPECT_EQ(core.logger().linesWithTag(ZM_A_JION_CHATROOM_R),
                  (std::vector<ZMLogLine>{line(testCase.success ? 4 : 2, 1, ZM_A_JION_CHATROOM_R,
                                               "code:" + loggedCode + ",room_id:r")}));
        if (testCase.code == 33009) {
            EXPECT_EQ(client.syncKVChatRoomDict().objectForKey("r"), std::optional<bool>(false));
        }
        if (testCase.detectsNavigation) {
            EXPECT_EQ(core.logger().linesWithTag(ZM_L_DETECT_CHATROOM_S),
                      (std::vector<ZMLogLine>{line(2, 1, ZM_L_DETECT_CHATROOM_S,
                                                   "code:" + loggedCode + ",navi:navi.emulator,ip:127.0.0.1,net:wifi")}));
        }
    }
}

TEST_F(ClientTest, TheRejoinTimerStopsOnlyWhenTheCacheEmpties) {
    joinAndSettle("a");
    ASSERT_EQ(mainQueue.activeTimerCount(), 1u);
    core.setRule("joinChatroom", ZMCoreAnswer::failure(23409));
    joinAndSettle("b");  // the join restarts the timer, the failure leaves "a" cached
    EXPECT_EQ(mainQueue.activeTimerCount(), 1u);
    client.quitChatRoom("a", ZMSuccessBlock{}, ZMErrorBlock{});
    settle();
    EXPECT_EQ(client.cacheChatRoomDict().count(), 0u);
    EXPECT_EQ(mainQueue.activeTimerCount(), 0u);
}

TEST_F(ClientTest, ARepeatedJoinReplacesTheEntryWithoutClearingLocalDataOrTheKVFlag) {
    joinAndSettle("r", 10);
    client.syncKVChatRoomDict().setObject(true, "r");
    core.clearRequests();
    status->events.clear();
    core.holdRequests("joinExistingChatroom");
    client.joinExistChatRoom("r", 3, ZMSuccessBlock{}, ZMErrorBlock{});
    settle();
    EXPECT_TRUE(core.requests("clearChatroomMessageAndKVWithTargetId").empty());
    ASSERT_EQ(core.heldRequests().size(), 1u);
    auto replaced = entry("r");
    EXPECT_EQ(replaced->status, ZMChatRoomStatusJoining);
    EXPECT_FALSE(replaced->joinedEver);
    EXPECT_EQ(replaced->messageCount, 3);
    EXPECT_TRUE(replaced->joinExistOnly);
    EXPECT_EQ(status->events.events(), (std::vector<std::string>{"joining:r"}));
    ASSERT_TRUE(core.answer(core.heldRequests()[0].id, ZMCoreAnswer::success()));
    settle();
    EXPECT_EQ(entry("r")->status, ZMChatRoomStatusJoined);
    EXPECT_EQ(client.syncKVChatRoomDict().objectForKey("r"), std::optional<bool>(true));
}

TEST_F(ClientTest, WithOneRoomPerUserAJoinDropsTheOtherRoomsSilently) {
    joinAndSettle("a");
    client.syncKVChatRoomDict().setObject(true, "a");
    core.setMutliChatroomEnabled(false);
    status->events.clear();
    core.clearRequests();
    joinAndSettle("b");

    EXPECT_FALSE(entry("a"));
    EXPECT_TRUE(entry("b"));
    EXPECT_EQ(status->events.events(), (std::vector<std::string>{"joining:b", "joined:b"}));
    EXPECT_TRUE(core.requests("quitChatroom").empty());
    ASSERT_EQ(core.requests("clearChatroomMessageAndKVWithTargetId").size(), 1u);
    EXPECT_EQ(core.requests("clearChatroomMessageAndKVWithTargetId")[0].arguments["chatroomId"], "b");
    // The dropped room keeps its KV flag.
    EXPECT_EQ(client.syncKVChatRoomDict().objectForKey("a"), std::optional<bool>(true));
}

TEST_F(ClientTest, AJoinAnswerArrivingAfterQuitOnlyReachesTheCaller) {
    for (bool succeeds : {true, false}) {
        SCOPED_TRACE(succeeds);
        core.holdRequests("joinChatroom");
        CallOutcome outcome;
        client.joinChatRoom("late", 10, outcome.success(), outcome.error());
        settle();
        client.quitChatRoom("late", ZMSuccessBlock{}, ZMErrorBlock{});
        settle();
        status->events.clear();

        auto held = core.heldRequests();
        ASSERT_EQ(held.size(), 1u);
        ASSERT_TRUE(core.answer(held[0].id, succeeds ? ZMCoreAnswer::success() : ZMCoreAnswer::failure(500)));
        settle();

        EXPECT_EQ(outcome.successes, succeeds ? 1 : 0);
        EXPECT_EQ(outcome.errors, succeeds ? 0 : 1);
        EXPECT_FALSE(entry("late"));
        EXPECT_EQ(status->events.events(),
                  succeeds ? std::vector<std::string>{} : std::vector<std::string>{"failed:late:500"});
        core.clearRules();
    }
}

TEST_F(ClientTest, QuitAnnouncesBeforeTheServerAnswersAndReportsItsAnswer) {
    joinAndSettle("r");
    client.syncKVChatRoomDict().setObject(true, "r");
    status->events.clear();
    core.holdRequests("quitChatroom");
    CallOutcome outcome;
    client.quitChatRoom("r", outcome.success(), outcome.error());
    settle();
    EXPECT_EQ(status->events.events(), (std::vector<std::string>{"quited:r"}));
    EXPECT_FALSE(entry("r"));
    EXPECT_FALSE(client.syncKVChatRoomDict().objectForKey("r").has_value());
    EXPECT_EQ(outcome.total(), 0);

    auto held = core.heldRequests();
    ASSERT_EQ(held.size(), 1u);
    ASSERT_TRUE(core.answer(held[0].id, ZMCoreAnswer::failure(33009)));
    ASSERT_TRUE(outcome.done.waitForCount(1));
    EXPECT_EQ(outcome.successes, 1);
    EXPECT_EQ(core.logger().linesWithTag(ZM_A_QUIT_CHATROOM_T),
              (std::vector<ZMLogLine>{line(4, 1, ZM_A_QUIT_CHATROOM_T, "room_id:r")}));
    EXPECT_EQ(core.logger().linesWithTag(ZM_A_QUIT_CHATROOM_R),
              (std::vector<ZMLogLine>{line(4, 1, ZM_A_QUIT_CHATROOM_R, "code:0,room_id:r")}));

    // An unknown room is still announced and asked for; the server's failure reaches the caller.
    core.setRule("quitChatroom", ZMCoreAnswer::failure(777));
    core.logger().clear();
    status->events.clear();
    CallOutcome unknown;
    client.quitChatRoom("never-joined", unknown.success(), unknown.error());
    settle();
    EXPECT_EQ(status->events.events(), (std::vector<std::string>{"quited:never-joined"}));
    EXPECT_EQ(unknown.code, 777);
    EXPECT_EQ(core.logger().linesWithTag(ZM_A_QUIT_CHATROOM_R),
              (std::vector<ZMLogLine>{line(2, 1, ZM_A_QUIT_CHATROOM_R, "code:777,room_id:never-joined")}));
    EXPECT_EQ(core.naviDetectionCount(), 0u);
}

TEST_F(ClientTest, InvalidRoomIdsAreRefusedOnTheCallersThreadBeforeReturning) {
    struct Case {
        std::string name;
        std::function<void(ZMChatRoomClient&, const ZMValue&, CallOutcome&)> call;
        std::string resultTag;  // the operation line with the code, if any
        std::string resultText;
    };
    auto joinCall = [](ZMChatRoomClient& c, const ZMValue& room, CallOutcome& o) {
        c.joinChatRoom(room, 10, o.success(), o.error());
    };
    auto existCall = [](ZMChatRoomClient& c, const ZMValue& room, CallOutcome& o) {
        c.joinExistChatRoom(room, 10, o.success(), o.error());
    };
    auto quitCall = [](ZMChatRoomClient& c, const ZMValue& room, CallOutcome& o) {
        c.quitChatRoom(room, o.success(), o.error());
    };
    auto infoCall = [](ZMChatRoomClient& c, const ZMValue& room, CallOutcome& o) {
        c.getChatRoomInfo(room, 10, 1, ZMChatRoomInfoSuccessBlock{}, o.error());
    };
    auto historyCall = [](ZMChatRoomClient& c, const ZMValue& room, CallOutcome& o) {
        c.getRemoteChatroomHistoryMessages(room, 0, 10, 0, ZMHistorySuccessBlock{}, o.error());
    };
    auto bindCall = [](ZMChatRoomClient& c, const ZMValue& room, CallOutcome& o) {
        c.bindChatRoom(room, "rtc", o.success(), o.error());
    };
    const std::vector<Case> cases = {
        {"join", joinCall, ZM_A_JION_CHATROOM_R, "code:34210,room_id:"},
        {"join existing", existCall, ZM_A_JION_CHATROOM_R, "code:34210,room_id:"},
        {"quit logs 33003", quitCall, ZM_A_QUIT_CHATROOM_R, "code:33003,room_id:"},
        {"room info", infoCall, kClientTag, "Parameter Error, getChatRoomInfo:count:order:success:error:, targetId:"},
        {"history", historyCall, kClientTag,
         "Parameter Error, getRemoteChatroomHistoryMessages:recordTime:count:order:success:error:, targetId:"},
        {"bind", bindCall, kClientTag, "Parameter Error, bindChatRoom:withRTCRoom:success:error:, chatRoomId:"},
    };
    const std::vector<std::pair<ZMValue, std::string>> badIds = {
        {nullptr, "(null)"}, {"", ""}, {std::string(65, 'x'), std::string(65, 'x')}, {12, "12"}};
    for (const auto& testCase : cases) {
        for (const auto& [badId, rendered] : badIds) {
            SCOPED_TRACE(testCase.name + " with " + badId.dump());
            core.logger().clear();
            CallOutcome outcome;
            testCase.call(client, badId, outcome);
            outcome.returned = true;
            EXPECT_EQ(outcome.errors, 1);
            EXPECT_EQ(outcome.code, ZMErrorInvalidParameter);
            EXPECT_TRUE(outcome.onCallerThread);
            EXPECT_TRUE(outcome.beforeReturn);
            auto texts = linesOf(testCase.resultTag);
            EXPECT_NE(std::find(texts.begin(), texts.end(), testCase.resultText + rendered), texts.end());
        }
    }
    settle();
    EXPECT_TRUE(core.requests().empty());
    EXPECT_TRUE(status->events.events().empty());
    EXPECT_EQ(client.syncKVChatRoomDict().count(), 0u);
}

TEST_F(ClientTest, RoomDestroyedOnTheServerIsAnnouncedWithACollapsedType) {
    joinAndSettle("a");
    joinAndSettle("b");
    client.syncKVChatRoomDict().setObject(true, "a");
    status->events.clear();

    core.raiseRoomDestroyed("a", 7);
    settle();
    EXPECT_FALSE(entry("a"));
    EXPECT_FALSE(client.syncKVChatRoomDict().objectForKey("a").has_value());
    EXPECT_EQ(mainQueue.activeTimerCount(), 1u);  // "b" is still cached

    core.raiseRoomDestroyed("b", 0);
    settle();
    EXPECT_EQ(mainQueue.activeTimerCount(), 0u);

    core.raiseRoomDestroyed("unknown", 1);
    settle();
    EXPECT_EQ(status->events.events(),
              (std::vector<std::string>{"destroyed:a:3", "destroyed:b:0", "destroyed:unknown:3"}));
}
