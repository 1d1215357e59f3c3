#include "ClientTestSupport.h"

TEST_F(ClientTest, ConnectionLossFailsEveryRoomAndTheSweepRejoinsEachWithItsOwnArguments) {
    client.joinChatRoom("a", 5, ZMSuccessBlock{}, ZMErrorBlock{});
    client.joinExistChatRoom("b", -3, ZMSuccessBlock{}, ZMErrorBlock{});
    ZMChatRoomClientTestPeer::join("c", 7, ZMChatRoomJoinModeAlternate);
    settle();
    status->events.clear();
    client.resetCacheChatRoomForFailed();
    settle();
    EXPECT_EQ(status->events.events(), (Strings{"failed:a:-1", "failed:b:-1", "failed:c:-1"}));
    for (const char* room : {"a", "b", "c"}) EXPECT_EQ(entry(room)->status, ZMChatRoomStatusJoinFailed);

    forget();
    core.setRule("joinExistingChatroom", ZMCoreAnswer::failure(ZMCodeJoinedWithReset));  // success through reset
    client.rejoinCacheChatRoom();
    settle();
    EXPECT_EQ(sent(), (Requests{{"joinChatroom", joinArgs("a", 5, true)},
                                {"joinExistingChatroom", joinArgs("b", -1, true)},
                                {"joinChatroom", joinArgs("c", 7, true, 1)}}));
    EXPECT_EQ(logged(ZM_L_REJION_CHATROOM_T),
              lines(ZM_L_REJION_CHATROOM_T, 4,
                    {"room_id:a,existed:0,count:5", "room_id:b,existed:1,count:-1", "room_id:c,existed:0,count:7"},
                    64));
    EXPECT_EQ(logged(ZM_L_REJION_CHATROOM_R),
              lines(ZM_L_REJION_CHATROOM_R, 4, {"code:0,room_id:a", "code:0,room_id:b", "code:0,room_id:c"}));
    EXPECT_EQ(byRoom(status->events.events()),
              (std::map<std::string, Strings>{
                  {"a", {"joining", "joined"}}, {"b", {"joining", "reset", "joined"}}, {"c", {"joining", "joined"}}}));
    for (const char* room : {"a", "b", "c"}) EXPECT_EQ(entry(room)->status, ZMChatRoomStatusJoined);
}

TEST_F(ClientTest, TheSweepSendsNothingWhileDisconnectedOrForRoomsInProgress) {
    joinAndSettle("a");
    client.resetCacheChatRoomForFailed();
    settle();
    core.clearRequests();
    core.setConnectionStatus(1);
    client.rejoinCacheChatRoom();
    settle();
    EXPECT_TRUE(core.requests().empty());

    core.setConnectionStatus(0);
    core.holdRequests("joinChatroom");
    mainQueue.advance(1.99);
    settle();
    EXPECT_TRUE(core.requests().empty());
    mainQueue.advance(0.01);  // the join's timer sweeps 2 seconds after it started
    settle();
    EXPECT_EQ(core.heldRequests().size(), 1u);
    EXPECT_EQ(entry("a")->status, ZMChatRoomStatusJoining);
    mainQueue.advance(2.0);  // still joining: not asked again
    settle();
    EXPECT_EQ(core.requests("joinChatroom").size(), 1u);

    // A non-final failure is retried by the next tick; a final one ends it all.
    ASSERT_TRUE(answerHeld(ZMCoreAnswer::failure(500)));
    settle();
    EXPECT_EQ(entry("a")->status, ZMChatRoomStatusJoinFailed);
    mainQueue.advance(2.0);
    settle();
    ASSERT_TRUE(answerHeld(ZMCoreAnswer::failure(23410)));
    settle();
    EXPECT_FALSE(entry("a"));
    EXPECT_EQ(mainQueue.activeTimerCount(), 0u);
    EXPECT_EQ(logged(ZM_L_REJION_CHATROOM_R),
              lines(ZM_L_REJION_CHATROOM_R, 2, {"code:500,room_id:a", "code:23410,room_id:a"}));
}

TEST_F(ClientTest, TheRejoinTimerRunsOnlyWithRoomsCachedAndSurvivesLogout) {
    client.startChatRoomRejoinTimer();
    settle();
    EXPECT_EQ(mainQueue.activeTimerCount(), 0u);
    joinAndSettle("a");
    EXPECT_EQ(mainQueue.activeTimerCount(), 1u);
    client.startChatRoomRejoinTimer();  // restarting replaces, never doubles
    settle();
    EXPECT_EQ(mainQueue.activeTimerCount(), 1u);

    client.resetCacheChatRoomForFailed();
    client.clearChatRoom();
    EXPECT_EQ(client.cacheChatRoomDict().count(), 0u);
    EXPECT_EQ(client.syncKVChatRoomDict().count(), 0u);
    core.clearRequests();
    mainQueue.advance(4.0);
    settle();
    EXPECT_EQ(mainQueue.activeTimerCount(), 1u);
    EXPECT_TRUE(core.requests().empty());
    client.stopChatRoomRejoinTimer();
    settle();
    EXPECT_EQ(mainQueue.activeTimerCount(), 0u);
}

TEST_F(ClientTest, BothSweepsRejoinOnlyARoomThatIsNotJoiningJoinedOrReset) {
    // A join answered 33009 passes through reset (6) on its way to joined; a
    // sweep that finds the room at that moment must leave it alone, as it does
    // a room joining or joined. The status is set by hand to stand for each
    // moment a sweep may find the room in.
    core.setRule("joinChatroom", ZMCoreAnswer::failure(ZMCodeJoinedWithReset));
    joinAndSettle("r", 7);
    EXPECT_EQ(status->events.events(), (Strings{"joining:r", "reset:r", "joined:r"}));
    core.clearRules();
    const std::vector<std::pair<std::string, std::function<void()>>> sweeps = {
        {"reconnect", [&] { client.rejoinCacheChatRoom(); }},
        {"2-second timer", [&] { mainQueue.advance(2.0); }}};  // the timer started with the join
    const std::vector<std::pair<ZMChatRoomStatus, bool>> found = {  // status, rejoined
        {ZMChatRoomStatusJoining, false},
        {ZMChatRoomStatusJoined, false},
        {ZMChatRoomStatusReset, false},
        {ZMChatRoomStatusJoinFailed, true}};
    for (const auto& [sweepName, sweep] : sweeps) {
        for (const auto& [roomStatus, rejoined] : found) {
            SCOPED_TRACE(sweepName + " finding status " + std::to_string(roomStatus));
            forget();
            auto cached = entry("r");
            ASSERT_TRUE(cached);
            cached->status = roomStatus;
            sweep();
            settle();
            EXPECT_EQ(sent(), (rejoined ? Requests{{"joinChatroom", joinArgs("r", 7, true)}} : Requests{}));
            EXPECT_EQ(entry("r")->status, rejoined ? ZMChatRoomStatusJoined : roomStatus);
        }
    }
}
