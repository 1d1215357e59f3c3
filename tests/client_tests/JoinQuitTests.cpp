#include "ClientTestSupport.h"

TEST_F(ClientTest, JoinsSendTheClampedCountAndAnnounceJoiningThenJoined) {
    const ZMValue reply = {{"member_count_", 12}, {"create_time_", 1700000000000LL}, {"is_current_user_banned_", true}};
    core.setRule("joinChatroom", ZMCoreAnswer::success(reply));
    core.setRule("joinExistingChatroom", ZMCoreAnswer::success(reply));
    enum Kind { kPlain, kExist, kExistWithResponse };
    auto join = [&](Kind kind, const std::string& room, int32_t n, CallOutcome& o) {
        if (kind == kPlain) return client.joinChatRoom(room, n, o.success(), o.error());
        if (kind == kExist) return client.joinExistChatRoom(room, n, o.success(), o.error());
        auto success = ZMJoinSuccessBlock([s = o.success()](const auto& response) { if (response) s(); });
        client.joinExistChatRoom(room, n, success, o.error());
    };
    const std::vector<std::tuple<Kind, int32_t, int32_t>> cases = {  // join, count, count sent
        {kPlain, 10, 10}, {kPlain, -5, -1}, {kPlain, 0, 0}, {kExist, 50, 50}, {kExistWithResponse, -1, -1}};
    int index = 0;
    for (const auto& [kind, count, sentCount] : cases) {
        const std::string room = numbered("room", index++);
        const bool existOnly = kind != kPlain;
        SCOPED_TRACE(room);
        forget();
        auto outcome = call([&, kind = kind, count = count](CallOutcome& o) { join(kind, room, count, o); });
        EXPECT_EQ(outcome->successes, 1);
        EXPECT_FALSE(outcome->onCallerThread);
        EXPECT_FALSE(outcome->onOperationQueue);
        EXPECT_EQ(status->events.events(), (Strings{"joining:" + room, "joined:" + room}));
        ASSERT_TRUE(status->lastResponse);
        EXPECT_EQ(status->lastResponse->memberCount, 12);
        EXPECT_EQ(status->lastResponse->createTime, 1700000000000LL);
        EXPECT_TRUE(status->lastResponse->isCurrentUserBanned);
        EXPECT_EQ(sent(), (Requests{clearLocal(room), {existOnly ? "joinExistingChatroom" : "joinChatroom",
                                                       joinArgs(room, sentCount, false)}}));
        ASSERT_TRUE(entry(room));
        EXPECT_EQ(entry(room)->status, ZMChatRoomStatusJoined);
        EXPECT_TRUE(entry(room)->joinedEver);
        EXPECT_EQ(entry(room)->messageCount, sentCount);
        EXPECT_EQ(entry(room)->joinExistOnly, existOnly);
        EXPECT_EQ(kvFlag(room), false);
        // The start line shows the count as the caller passed it.
        EXPECT_EQ(logged(ZM_A_JION_CHATROOM_T),
                  lines(ZM_A_JION_CHATROOM_T, 4, {"room_id:" + room + ",existed:" + (existOnly ? "1" : "0") +
                                                      ",count:" + std::to_string(count) + ",joinMode:0"}));
        EXPECT_EQ(logged(ZM_A_JION_CHATROOM_R), lines(ZM_A_JION_CHATROOM_R, 4, {"code:0,room_id:" + room}));
    }
    EXPECT_EQ(status->callsOffNotifyQueue, 0);
}

TEST_F(ClientTest, JoinRefusesAJoinModeOtherThanZeroOrOneAfterCheckingTheRoomId) {
    const std::vector<std::tuple<std::string, int32_t, int32_t, std::string>> cases = {
        {"r1", 2, ZMErrorInvalidJoinMode, "code:34258,mode:2"},
        {"r1", -1, ZMErrorInvalidJoinMode, "code:34258,mode:-1"},
        {"", 2, ZMErrorInvalidParameter, "code:34210,room_id:"}};
    for (const auto& [room, mode, code, text] : cases) {
        SCOPED_TRACE(text);
        core.logger().clear();
        CallOutcome outcome;
        ZMChatRoomClientTestPeer::join(room, 10, mode, outcome.error());
        outcome.returned = true;
        EXPECT_EQ(outcome.errors, 1);
        EXPECT_EQ(outcome.code, code);
        EXPECT_TRUE(outcome.beforeReturn);
        EXPECT_EQ(logged(ZM_A_JION_CHATROOM_R), lines(ZM_A_JION_CHATROOM_R, 2, {text}));
    }
    settle();
    EXPECT_TRUE(core.requests().empty());
    EXPECT_FALSE(kvFlag("r1"));
    ZMChatRoomClientTestPeer::join("r1", 10, ZMChatRoomJoinModeAlternate);
    settle();
    EXPECT_EQ(sent(), (Requests{clearLocal("r1"), {"joinChatroom", joinArgs("r1", 10, false, 1)}}));
}

TEST_F(ClientTest, JoinResultCodesDecideTheRoomsFate) {
    // code, dropped (a final failure: the room leaves the cache), detects navigation
    const std::vector<std::tuple<int32_t, bool, bool>> cases = {
        {33009, false, false}, {23409, true, false}, {23410, true, false}, {20605, true, true},
        {23411, false, false}, {23412, false, false}, {23408, false, true}, {23413, false, true},
        {33003, false, false}};
    for (const auto& [code, dropped, detects] : cases) {
        SCOPED_TRACE(code);
        const bool success = code == ZMCodeJoinedWithReset;
        const std::string shown = success ? "0" : std::to_string(code);
        client.clearChatRoom();
        forget();
        const size_t detectionsBefore = core.naviDetectionCount();
        // A flag already true must drop back to false on a reset join.
        client.syncKVChatRoomDict().setObject(true, "r");
        core.setRule("joinChatroom", ZMCoreAnswer::failure(code));
        auto outcome = call([&](CallOutcome& o) { client.joinChatRoom("r", 10, o.success(), o.error()); });

        EXPECT_EQ(outcome->done.events(), Strings{success ? "success" : "error"});
        EXPECT_EQ(outcome->code, success ? 0 : code);
        EXPECT_EQ(status->events.events(),
                  (success ? Strings{"joining:r", "reset:r", "joined:r"} : Strings{"joining:r", "failed:r:" + shown}));
        auto cached = entry("r");
        EXPECT_EQ(cached ? cached->status.load() : 0,
                  dropped ? 0 : success ? int64_t{ZMChatRoomStatusJoined} : ZMChatRoomStatusJoinFailed);
        EXPECT_EQ(kvFlag("r"), !success);  // a known flag stays, but a reset join drops it
        EXPECT_EQ(mainQueue.activeTimerCount(), dropped ? 0u : 1u);  // stopped once the cache is empty
        EXPECT_EQ(core.naviDetectionCount() - detectionsBefore, detects ? 1u : 0u);
        EXPECT_EQ(logged(ZM_A_JION_CHATROOM_R),
                  lines(ZM_A_JION_CHATROOM_R, success ? 4 : 2, {"code:" + shown + ",room_id:r"}));
        EXPECT_EQ(logged(ZM_L_DETECT_CHATROOM_S),
                  lines(ZM_L_DETECT_CHATROOM_S, 2,
                        detects ? Strings{"code:" + shown + ",navi:navi.emulator,ip:127.0.0.1,net:wifi"} : Strings{}));
    }
}

TEST_F(ClientTest, ARepeatedJoinReplacesTheEntryAndOneRoomPerUserDropsTheOthersSilently) {
    joinAndSettle("r", 10);
    client.syncKVChatRoomDict().setObject(true, "r");
    forget();
    core.holdRequests("joinExistingChatroom");
    client.joinExistChatRoom("r", 3, ZMSuccessBlock{}, ZMErrorBlock{});
    settle();
    EXPECT_EQ(sent(), (Requests{{"joinExistingChatroom", joinArgs("r", 3, false)}}));  // local data kept
    auto replaced = entry("r");
    EXPECT_EQ(replaced->status, ZMChatRoomStatusJoining);
    EXPECT_FALSE(replaced->joinedEver);
    EXPECT_EQ(replaced->messageCount, 3);
    EXPECT_TRUE(replaced->joinExistOnly);
    EXPECT_EQ(status->events.events(), (Strings{"joining:r"}));
    ASSERT_TRUE(answerHeld(ZMCoreAnswer::success()));
    settle();
    EXPECT_EQ(entry("r")->status, ZMChatRoomStatusJoined);
    EXPECT_EQ(kvFlag("r"), true);

    // One room per user, as the navigation data says or as its absence reads:
    // a join forgets the other room without quitting it or announcing it.
    const std::vector<std::tuple<std::string, std::string, std::function<void(bool)>>> oneRoomPerUser = {
        {"switch off", "b", [&](bool only) { core.setMutliChatroomEnabled(!only); }},
        {"no navigation data", "c", [&](bool only) { core.setNaviDataAvailable(!only); }}};
    std::string previous = "r";
    for (const auto& [name, room, onlyOneRoom] : oneRoomPerUser) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(entry(previous));
        const std::optional<bool> flag = kvFlag(previous);
        ASSERT_TRUE(flag.has_value());
        onlyOneRoom(true);
        forget();
        joinAndSettle(room);
        onlyOneRoom(false);
        EXPECT_FALSE(entry(previous));
        EXPECT_EQ(status->events.events(), (Strings{"joining:" + room, "joined:" + room}));
        EXPECT_EQ(sent(), (Requests{clearLocal(room), {"joinChatroom", joinArgs(room, 10, false)}}));
        EXPECT_EQ(kvFlag(previous), flag);  // the dropped room keeps its KV flag
        previous = room;
    }
}

TEST_F(ClientTest, AJoinAnswerArrivingAfterQuitOnlyReachesTheCaller) {
    for (bool succeeds : {true, false}) {
        SCOPED_TRACE(succeeds);
        core.holdRequests("joinChatroom");
        auto outcome = call([&](CallOutcome& o) { client.joinChatRoom("late", 10, o.success(), o.error()); });
        client.quitChatRoom("late", ZMSuccessBlock{}, ZMErrorBlock{});
        settle();
        status->events.clear();
        ASSERT_TRUE(answerHeld(succeeds ? ZMCoreAnswer::success() : ZMCoreAnswer::failure(500)));
        settle();
        EXPECT_EQ(outcome->done.events(), Strings{succeeds ? "success" : "error"});
        EXPECT_FALSE(entry("late"));
        EXPECT_EQ(status->events.events(), (succeeds ? Strings{} : Strings{"failed:late:500"}));
    }
}

TEST_F(ClientTest, QuitAnnouncesBeforeTheServerAnswersAndReportsItsAnswer) {
    joinAndSettle("a");
    core.setRule("joinChatroom", ZMCoreAnswer::failure(23409));
    joinAndSettle("x");  // a final failure drops "x"; with "a" still cached the rejoin timer runs on
    EXPECT_EQ(mainQueue.activeTimerCount(), 1u);
    core.clearRules();
    joinAndSettle("r");
    client.syncKVChatRoomDict().setObject(true, "r");
    forget();
    core.holdRequests("quitChatroom");
    auto outcome = call([&](CallOutcome& o) { client.quitChatRoom("r", o.success(), o.error()); });
    EXPECT_EQ(status->events.events(), (Strings{"quited:r"}));
    EXPECT_FALSE(entry("r"));
    EXPECT_FALSE(kvFlag("r"));
    EXPECT_EQ(mainQueue.activeTimerCount(), 1u);  // "a" is still cached
    EXPECT_EQ(outcome->total(), 0);
    ASSERT_TRUE(answerHeld(ZMCoreAnswer::failure(33009)));
    ASSERT_TRUE(outcome->done.waitForCount(1));
    EXPECT_EQ(outcome->successes, 1);
    EXPECT_EQ(logged(ZM_A_QUIT_CHATROOM_T), lines(ZM_A_QUIT_CHATROOM_T, 4, {"room_id:r"}));
    EXPECT_EQ(logged(ZM_A_QUIT_CHATROOM_R), lines(ZM_A_QUIT_CHATROOM_R, 4, {"code:0,room_id:r"}));

    // An unknown room is still announced and asked for; the server's failure reaches the caller.
    core.setRule("quitChatroom", ZMCoreAnswer::failure(777));
    forget();
    auto unknown = call([&](CallOutcome& o) { client.quitChatRoom("never-joined", o.success(), o.error()); });
    EXPECT_EQ(status->events.events(), (Strings{"quited:never-joined"}));
    EXPECT_EQ(unknown->code, 777);
    EXPECT_EQ(logged(ZM_A_QUIT_CHATROOM_R), lines(ZM_A_QUIT_CHATROOM_R, 2, {"code:777,room_id:never-joined"}));
    EXPECT_EQ(core.naviDetectionCount(), 0u);
    client.quitChatRoom("a", ZMSuccessBlock{}, ZMErrorBlock{});  // the last room: the rejoin timer stops
    settle();
    EXPECT_EQ(mainQueue.activeTimerCount(), 0u);
}

TEST_F(ClientTest, InvalidRoomIdsAreRefusedOnTheCallersThreadBeforeReturning) {
    using Call = std::function<void(const ZMValue&, CallOutcome&)>;
    const std::vector<std::tuple<std::string, Call, std::string, std::string>> cases = {  // tag and text of the line
        {"join", [&](auto& room, auto& o) { client.joinChatRoom(room, 10, o.success(), o.error()); },
         ZM_A_JION_CHATROOM_R, "code:34210,room_id:"},
        {"join existing", [&](auto& room, auto& o) { client.joinExistChatRoom(room, 10, o.success(), o.error()); },
         ZM_A_JION_CHATROOM_R, "code:34210,room_id:"},
        {"quit logs 33003", [&](auto& room, auto& o) { client.quitChatRoom(room, o.success(), o.error()); },
         ZM_A_QUIT_CHATROOM_R, "code:33003,room_id:"},
        {"room info", [&](auto& room, auto& o) { client.getChatRoomInfo(room, 10, 1, {}, o.error()); }, kClientTag,
         "Parameter Error, getChatRoomInfo:count:order:success:error:, targetId:"},
        {"history",
         [&](auto& room, auto& o) { client.getRemoteChatroomHistoryMessages(room, 0, 10, 0, {}, o.error()); },
         kClientTag,
         "Parameter Error, getRemoteChatroomHistoryMessages:recordTime:count:order:success:error:, targetId:"},
        {"bind", [&](auto& room, auto& o) { client.bindChatRoom(room, "rtc", o.success(), o.error()); }, kClientTag,
         "Parameter Error, bindChatRoom:withRTCRoom:success:error:, chatRoomId:"},
    };
    const std::vector<std::pair<ZMValue, std::string>> badIds = {
        {nullptr, "(null)"}, {"", ""}, {std::string(65, 'x'), std::string(65, 'x')}, {12, "12"}};
    for (const auto& [name, operation, tag, text] : cases) {
        for (const auto& [badId, rendered] : badIds) {
            SCOPED_TRACE(name + " with " + badId.dump());
            core.logger().clear();
            CallOutcome outcome;
            operation(badId, outcome);
            outcome.returned = true;
            EXPECT_EQ(outcome.errors, 1);
            EXPECT_EQ(outcome.code, ZMErrorInvalidParameter);
            EXPECT_TRUE(outcome.onCallerThread);
            EXPECT_TRUE(outcome.beforeReturn);
            ASSERT_FALSE(core.logger().lines().empty());
            EXPECT_EQ(core.logger().lines().back(),
                      (ZMLogLine{2, tag == kClientTag ? ZMLogTypeDiagnostic : 1, tag, text + rendered}));
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
    EXPECT_FALSE(kvFlag("a"));
    EXPECT_EQ(mainQueue.activeTimerCount(), 1u);  // "b" is still cached
    core.raiseRoomDestroyed("b", 0);
    settle();
    EXPECT_EQ(mainQueue.activeTimerCount(), 0u);
    core.raiseRoomDestroyed("unknown", 1);
    settle();
    EXPECT_EQ(status->events.events(), (Strings{"destroyed:a:3", "destroyed:b:0", "destroyed:unknown:3"}));
}
