// Join, quit, the room cache, the rejoin sweeps and the count of cached rooms awaiting a rejoin.
#include "ClientTestSupport.h"

namespace {

// The truth the awaiting-rejoin count stands for.
int64_t awaitingInCache(ZMChatRoomClient& client) {
    int64_t awaiting = 0;
    for (const auto& [roomId, e] : client.cacheChatRoomDict().allEntries()) {
        awaiting += ZMCacheChatRoomStatus::awaitsRejoin(e->status.load());
    }
    return awaiting;
}

}  // namespace

// Every way to join, and what each answer of the core does to the room: clamped counts,
// announcements, the cache entry, its KV flag, the rejoin timer and navigation detection.
TEST_F(ClientTest, JoinsSendTheClampedCountAndTheAnswerDecidesTheRoomsFate) {
    const ZMValue reply = {{"member_count_", 12}, {"create_time_", 1700000000000LL}, {"is_current_user_banned_", true}};
    // kind: 0 plain, 1 existing, 2 existing with the response, 3 join mode 1; dropped: a final failure
    struct Row { int kind; int32_t count, sent, code; bool dropped = false, detects = false; };
    for (const Row& row : std::vector<Row>{{0, 10, 10, 0}, {0, -5, -1, 0}, {0, 0, 0, 0}, {1, 50, 50, 0}, {2, -1, -1, 0},
             {3, 4, 4, 0}, {0, 10, 10, 33009}, {0, 10, 10, 23409, true}, {0, 10, 10, 23410, true},
             {0, 10, 10, 20605, true, true}, {0, 10, 10, 23411}, {0, 10, 10, 23412}, {0, 10, 10, 23408, false, true},
             {1, 10, 10, 23413, false, true}, {0, 10, 10, 33003}}) {
        SCOPED_TRACE(::testing::Message() << row.kind << " " << row.count << " " << row.code);
        const bool exist = row.kind == 1 || row.kind == 2, ok = row.code == 0 || row.code == 33009;
        const std::string shown = std::to_string(ok ? 0 : row.code), operation = exist ? "joinExistingChatroom" : "joinChatroom";
        client.clearChatRoom();
        forget();
        const size_t detectionsBefore = core.naviDetectionCount();
        // A fresh join marks the room not synchronised; a known flag stays, but a reset join drops it.
        if (row.code) client.syncKVChatRoomDict().setObject(true, "r");
        core.setRule(operation, row.code ? ZMCoreAnswer::failure(row.code) : ZMCoreAnswer::success(reply));
        auto o = call([&](CallOutcome& o) {
            if (row.kind == 0) return client.joinChatRoom("r", row.count, o.success(), o.error());
            if (row.kind == 1) return client.joinExistChatRoom("r", row.count, o.success(), o.error());
            ZMJoinSuccessBlock success = [s = o.success()](auto& response) { if (response) s(); };
            if (row.kind == 2) return client.joinExistChatRoom("r", row.count, success, o.error());
            ZMChatRoomClientTestPeer::join("r", row.count, 1, o.error(), success);
        });
        EXPECT_EQ(std::tuple(o->successes.load(), o->code.load(), o->onCallerThread.load(), o->onOperationQueue.load()),
                  std::tuple(int{ok}, ok ? 0 : row.code, false, false));
        EXPECT_EQ(status->events.events(), (!ok ? Strings{"joining:r", "failed:r:" + shown} : row.code ?
                  Strings{"joining:r", "reset:r", "joined:r"} : Strings{"joining:r", "joined:r"}));
        if (row.code == 0) {
            ASSERT_TRUE(status->lastResponse);
            const auto& r = *status->lastResponse;
            EXPECT_EQ(std::tuple(r.memberCount, r.createTime, r.isCurrentUserBanned), std::tuple(12, 1700000000000LL, true));
        }
        EXPECT_EQ(sent(), (Requests{clearLocal("r"), {operation, joinArgs("r", row.sent, false, row.kind == 3)}}));
        ASSERT_EQ(!entry("r"), row.dropped);
        if (auto e = entry("r")) {
            EXPECT_EQ(std::tuple(e->status.load(), e->joinedEver.load(), e->messageCount.load(), e->joinExistOnly.load()),
                      std::tuple(ok ? int64_t{ZMChatRoomStatusJoined} : ZMChatRoomStatusJoinFailed, ok, row.sent, exist));
        }
        EXPECT_EQ(kvFlag("r"), row.code != 0 && row.code != 33009);
        EXPECT_EQ(mainQueue.activeTimerCount(), row.dropped ? 0u : 1u);  // stopped once the cache is empty
        EXPECT_EQ(core.naviDetectionCount() - detectionsBefore, row.detects ? 1u : 0u);
        // The start line shows the count as the caller passed it.
        EXPECT_EQ(logged(ZM_A_JION_CHATROOM_T), lines(ZM_A_JION_CHATROOM_T, 4, {"room_id:r,existed:" + std::to_string(exist) +
                  ",count:" + std::to_string(row.count) + ",joinMode:" + std::to_string(row.kind == 3)}));
        EXPECT_EQ(logged(ZM_A_JION_CHATROOM_R), lines(ZM_A_JION_CHATROOM_R, ok ? 4 : 2, {"code:" + shown + ",room_id:r"}));
        EXPECT_EQ(logged(ZM_L_DETECT_CHATROOM_S), lines(ZM_L_DETECT_CHATROOM_S, 2, row.detects ? Strings{"code:" + shown +
                  ",navi:navi.emulator,ip:127.0.0.1,net:wifi"} : Strings{}));
    }
    EXPECT_EQ(status->callsOffNotifyQueue, 0);
}

TEST_F(ClientTest, ARepeatedJoinReplacesTheEntryAndOneRoomPerUserDropsTheOthersSilently) {
    joinAndSettle("r", 10);
    client.syncKVChatRoomDict().setObject(true, "r");
    forget();
    core.holdRequests("joinExistingChatroom");
    client.joinExistChatRoom("r", 3, ZMSuccessBlock{}, ZMErrorBlock{});
    settle();
    EXPECT_EQ(sent(), (Requests{{"joinExistingChatroom", joinArgs("r", 3, false)}}));  // local data kept
    EXPECT_EQ(status->events.events(), (Strings{"joining:r"}));
    const auto& e = *entry("r");
    EXPECT_EQ(std::tuple(e.status.load(), e.joinedEver.load(), e.messageCount.load(), e.joinExistOnly.load()),
              std::tuple(int64_t{ZMChatRoomStatusJoining}, false, 3, true));
    ASSERT_TRUE(answerHeld(ZMCoreAnswer::success()));
    settle();
    EXPECT_EQ(entry("r")->status, ZMChatRoomStatusJoined);
    EXPECT_EQ(kvFlag("r"), true);
    // A final failure drops a room; with another room cached the rejoin timer runs on.
    core.setRule("joinChatroom", ZMCoreAnswer::failure(23409));
    joinAndSettle("gone");
    core.clearRules();
    EXPECT_EQ(mainQueue.activeTimerCount(), 1u);

    // One room per user, as the navigation data says or as its absence reads: a join
    // forgets the other rooms without quitting or announcing them; their KV flags stay.
    const std::vector<std::tuple<std::string, std::function<void(bool)>>> oneRoomPerUser = {
        {"b", [&](bool only) { core.setMutliChatroomEnabled(!only); }},
        {"c", [&](bool only) { core.setNaviDataAvailable(!only); }}};
    for (const auto& [room, onlyOneRoom] : oneRoomPerUser) {
        SCOPED_TRACE(room);
        onlyOneRoom(true);
        forget();
        joinAndSettle(room);
        onlyOneRoom(false);
        EXPECT_EQ(client.cacheChatRoomDict().count(), 1u);
        EXPECT_EQ(status->events.events(), (Strings{"joining:" + room, "joined:" + room}));
        EXPECT_EQ(sent(), (Requests{clearLocal(room), {"joinChatroom", joinArgs(room, 10, false)}}));
        EXPECT_EQ(kvFlag("r"), true);
    }
}

TEST_F(ClientTest, AJoinAnswerArrivingAfterQuitOnlyReachesTheCaller) {
    for (bool succeeds : {true, false}) {
        SCOPED_TRACE(succeeds);
        core.holdRequests("joinChatroom");
        auto o = call([&](CallOutcome& o) { client.joinChatRoom("late", 10, o.success(), o.error()); });
        client.quitChatRoom("late", ZMSuccessBlock{}, ZMErrorBlock{});
        settle();
        status->events.clear();
        ASSERT_TRUE(answerHeld(succeeds ? ZMCoreAnswer::success() : ZMCoreAnswer::failure(500)));
        settle();
        EXPECT_EQ(o->done.events(), Strings{succeeds ? "success" : "error"});
        EXPECT_FALSE(entry("late"));
        EXPECT_EQ(status->events.events(), (succeeds ? Strings{} : Strings{"failed:late:500"}));
    }
}

// Quit (announced before the server answers) and destruction on the server both drop
// the room and its KV flag; the last room to go stops the rejoin timer.
TEST_F(ClientTest, QuitAndDestructionDropTheRoomAndTheLastStopsTheTimer) {
    joinAndSettle("a");
    joinAndSettle("r");
    joinAndSettle("d");
    for (const char* room : {"r", "d"}) client.syncKVChatRoomDict().setObject(true, room);
    forget();
    core.holdRequests("quitChatroom");
    auto o = call([&](CallOutcome& o) { client.quitChatRoom("r", o.success(), o.error()); });
    core.raiseRoomDestroyed("d", 7);
    settle();
    EXPECT_EQ(status->events.events(), (Strings{"quited:r", "destroyed:d:3"}));  // 7 collapses to 3
    for (const char* room : {"r", "d"}) EXPECT_FALSE(entry(room) || kvFlag(room)) << room;
    EXPECT_EQ(mainQueue.activeTimerCount(), 1u);  // "a" is still cached
    EXPECT_EQ(o->total(), 0);
    ASSERT_TRUE(answerHeld(ZMCoreAnswer::failure(33009)));  // counts as success
    ASSERT_TRUE(o->done.waitForCount(1));
    EXPECT_EQ(o->successes, 1);
    EXPECT_EQ(logged(ZM_A_QUIT_CHATROOM_T), lines(ZM_A_QUIT_CHATROOM_T, 4, {"room_id:r"}));
    EXPECT_EQ(logged(ZM_A_QUIT_CHATROOM_R), lines(ZM_A_QUIT_CHATROOM_R, 4, {"code:0,room_id:r"}));

    // Unknown rooms are still announced (and a quit asked for); the server's failure reaches the caller.
    core.setRule("quitChatroom", ZMCoreAnswer::failure(777));
    forget();
    auto unknown = call([&](CallOutcome& o) { client.quitChatRoom("never-joined", o.success(), o.error()); });
    core.raiseRoomDestroyed("unknown", 1);
    settle();
    EXPECT_EQ(status->events.events(), (Strings{"quited:never-joined", "destroyed:unknown:3"}));
    EXPECT_EQ(unknown->code, 777);
    EXPECT_EQ(logged(ZM_A_QUIT_CHATROOM_R), lines(ZM_A_QUIT_CHATROOM_R, 2, {"code:777,room_id:never-joined"}));
    EXPECT_EQ(core.naviDetectionCount(), 0u);
    for (bool destroy : {false, true}) {
        if (destroy) joinAndSettle("a");
        if (destroy) core.raiseRoomDestroyed("a", 0);
        else client.quitChatRoom("a", ZMSuccessBlock{}, ZMErrorBlock{});
        settle();
        EXPECT_EQ(mainQueue.activeTimerCount(), 0u) << destroy;
    }
    EXPECT_EQ(status->events.events().back(), "destroyed:a:0");
}

TEST_F(ClientTest, ConnectionLossFailsEveryRoomAndTheSweepRejoinsEachWithItsOwnArguments) {
    client.joinChatRoom("a", 5, ZMSuccessBlock{}, ZMErrorBlock{});
    client.joinExistChatRoom("b", -3, ZMSuccessBlock{}, ZMErrorBlock{});
    ZMChatRoomClientTestPeer::join("c", 7, ZMChatRoomJoinModeAlternate);
    settle();
    status->events.clear();
    client.resetCacheChatRoomForFailed();
    settle();
    EXPECT_EQ(status->events.events(), (Strings{"failed:a:-1", "failed:b:-1", "failed:c:-1"}));
    forget();
    core.setRule("joinExistingChatroom", ZMCoreAnswer::failure(ZMCodeJoinedWithReset));  // success through reset
    client.rejoinCacheChatRoom();
    settle();
    EXPECT_EQ(sent(), (Requests{{"joinChatroom", joinArgs("a", 5, true)},
                                {"joinExistingChatroom", joinArgs("b", -1, true)},
                                {"joinChatroom", joinArgs("c", 7, true, 1)}}));
    EXPECT_EQ(logged(ZM_L_REJION_CHATROOM_T), lines(ZM_L_REJION_CHATROOM_T, 4, {"room_id:a,existed:0,count:5",
                                              "room_id:b,existed:1,count:-1", "room_id:c,existed:0,count:7"}, 64));
    EXPECT_EQ(logged(ZM_L_REJION_CHATROOM_R),
              lines(ZM_L_REJION_CHATROOM_R, 4, {"code:0,room_id:a", "code:0,room_id:b", "code:0,room_id:c"}));
    EXPECT_EQ(byRoom(status->events.events()),
              (std::map<std::string, Strings>{
                  {"a", {"joining", "joined"}}, {"b", {"joining", "reset", "joined"}}, {"c", {"joining", "joined"}}}));
    for (const char* room : {"a", "b", "c"}) EXPECT_EQ(entry(room)->status, ZMChatRoomStatusJoined);
}

TEST_F(ClientTest, TheRejoinTimerSweepsEveryTwoSecondsOnlyWhileConnectedAndRoomsAreCached) {
    auto tick = [&](double seconds) { mainQueue.advance(seconds), settle(); };
    client.startChatRoomRejoinTimer();
    settle();
    EXPECT_EQ(mainQueue.activeTimerCount(), 0u);  // nothing cached
    joinAndSettle("a");
    client.startChatRoomRejoinTimer();  // restarting replaces, never doubles
    settle();
    EXPECT_EQ(mainQueue.activeTimerCount(), 1u);
    core.clearRequests();
    for (ZMChatRoomStatus found : {ZMChatRoomStatusJoined, ZMChatRoomStatusReset}) {  // a reset room is about to join
        entry("a")->status = found;
        tick(2.0);
    }
    client.resetCacheChatRoomForFailed();
    core.setConnectionStatus(1);
    client.rejoinCacheChatRoom();
    tick(2.0);
    EXPECT_TRUE(core.requests().empty());  // disconnected
    core.setConnectionStatus(0);
    core.holdRequests("joinChatroom");
    tick(1.99);
    EXPECT_TRUE(core.requests().empty());
    tick(0.01);
    EXPECT_EQ(core.heldRequests().size(), 1u);
    tick(2.0);  // still joining: not asked again
    EXPECT_EQ(core.requests("joinChatroom").size(), 1u);
    // A non-final failure is retried by the next tick; a final one ends it all.
    ASSERT_TRUE(answerHeld(ZMCoreAnswer::failure(500)));
    settle();
    tick(2.0);
    ASSERT_TRUE(answerHeld(ZMCoreAnswer::failure(23410)));
    settle();
    EXPECT_FALSE(entry("a"));
    EXPECT_EQ(mainQueue.activeTimerCount(), 0u);
    EXPECT_EQ(logged(ZM_L_REJION_CHATROOM_R), lines(ZM_L_REJION_CHATROOM_R, 2, {"code:500,room_id:a", "code:23410,room_id:a"}));
    // Logout empties the cache but leaves the timer to run until it is stopped.
    joinAndSettle("b");
    client.clearChatRoom();
    EXPECT_EQ(client.cacheChatRoomDict().count() + client.syncKVChatRoomDict().count(), 0u);
    core.clearRequests();
    tick(4.0);
    EXPECT_EQ(mainQueue.activeTimerCount(), 1u);
    EXPECT_TRUE(core.requests().empty());
    client.stopChatRoomRejoinTimer();
    settle();
    EXPECT_EQ(mainQueue.activeTimerCount(), 0u);
}

TEST(CacheEntryStatusTest, ReadsBackWhatWasStoredAndCountsOnlyWhileCached) {
    const int64_t before = ZMCacheChatRoomStatus::awaitingRejoinCount();
    ZMCacheChatRoomInfo e;
    EXPECT_EQ(std::tuple(e.status.load(), e.status.isCached()), std::tuple(int64_t{0}, false));
    for (bool cached : {false, true}) {  // any status reads back whatever the bit it shares a word with
        if (cached) e.status.enterCache();
        for (int64_t s : {1LL, 2LL, 3LL, 4LL, 5LL, 6LL, 0LL, -1LL, 1LL << 40, -(1LL << 62), (1LL << 62) - 1}) {
            e.status = s;
            const bool awaits = s != 1 && s != 2 && s != 6;
            EXPECT_EQ(std::tuple(e.status.load(), e.status.isCached(), ZMCacheChatRoomStatus::awaitsRejoin(s),
                                 ZMCacheChatRoomStatus::awaitingRejoinCount()),
                      std::tuple(int64_t{s}, cached, awaits, before + (cached && awaits))) << s;
        }
    }
    // Repeated and outside-the-cache changes move the count once, or not at all.
    const std::vector<std::pair<std::function<void()>, int64_t>> steps = {
        {[&] { e.status = 3; }, 1}, {[&] { e.status = 3; }, 1}, {[&] { e.status.leaveCache(); }, 0},
        {[&] { e.status.leaveCache(); }, 0}, {[&] { e.status = 2; }, 0}, {[&] { e.status.enterCache(); }, 0},
        {[&] { e.status.enterCache(); }, 0}, {[&] { e.status = 4; }, 1}, {[&] { e.status = 1; }, 0},
        {[&] { e.status = 3; e.status.leaveCache(); }, 0}};
    for (size_t i = 0; i < steps.size(); ++i) {
        steps[i].first();
        EXPECT_EQ(ZMCacheChatRoomStatus::awaitingRejoinCount(), before + steps[i].second) << "step " << i;
    }
}

TEST_F(ClientTest, TheAwaitingRejoinCountFollowsEveryStatusChangeAndRemoval) {
    auto join = [&](const std::string& room, std::optional<ZMCoreAnswer> answer = std::nullopt) {
        if (answer) core.setRule("joinChatroom", *answer);
        joinAndSettle(room);
        core.clearRules();
    };
    auto quit = [&](const char* room) { client.quitChatRoom(room, ZMSuccessBlock{}, ZMErrorBlock{}); };
    auto fail = [&](const char* room) { entry(room)->status = ZMChatRoomStatusJoinFailed; };
    const ZMCoreAnswer failing = ZMCoreAnswer::failure(500);
    const std::vector<std::tuple<const char*, std::function<void()>, int64_t>> steps = {
        {"joined rooms", [&] { for (const char* room : {"a", "b", "c"}) join(room); }, 0},
        {"a join failing for now", [&] { join("d", failing); }, 1},
        {"a join failing for good leaves the cache", [&] { join("e", ZMCoreAnswer::failure(23409)); }, 1},
        {"connection lost", [&] { client.resetCacheChatRoomForFailed(); }, 4},
        {"rejoins under way", [&] { core.holdRequests("joinChatroom"); client.rejoinCacheChatRoom(); }, 0},
        {"rejoins answered: joined, dropped, failed, reset", [&] {
             settle();
             const ZMCoreAnswer answers[] = {ZMCoreAnswer::success(), ZMCoreAnswer::failure(23410), failing,
                                             ZMCoreAnswer::failure(ZMCodeJoinedWithReset)};
             auto held = core.heldRequests();
             ASSERT_EQ(held.size(), 4u);
             for (size_t i = 0; i < held.size(); ++i) ASSERT_TRUE(core.answer(held[i].id, answers[i]));
             core.clearRules();
         }, 1},
        {"a status written by hand", [&] { fail("a"); }, 2},
        {"the failed room quit", [&] { quit("c"); }, 1},
        {"a failed room destroyed on the server", [&] { fail("d"); core.raiseRoomDestroyed("d", 0); }, 1},
        {"a failed room joined again", [&] { join("a"); }, 0},
        {"a status written to an entry no longer cached", [&] {
             auto old = entry("a");
             quit("a");
             settle();
             old->status = ZMChatRoomStatusJoinFailed;
         }, 0},
        {"failed rooms, then one room per user", [&] {
             join("f", failing);
             core.setMutliChatroomEnabled(false);
             join("h");
             core.setMutliChatroomEnabled(true);
         }, 0},
        {"failed rooms, then logout", [&] { join("i", failing); client.clearChatRoom(); }, 0}};
    for (const auto& [step, apply, awaiting] : steps) {
        apply();
        settle();
        EXPECT_EQ(std::tuple(awaitingInCache(client), ZMCacheChatRoomStatus::awaitingRejoinCount()),
                  std::tuple(awaiting, awaiting)) << step;
    }
}
