#include "ClientTestSupport.h"

TEST_F(ClientTest, ConnectionLossFailsEveryRoomAndTheSweepRejoinsEachWithItsOwnArguments) {
    client.joinChatRoom("a", 5, ZMSuccessBlock{}, ZMErrorBlock{});
    client.joinExistChatRoom("b", -3, ZMSuccessBlock{}, ZMErrorBlock{});
    ZMChatRoomClientTestPeer::join("c", 7, ZMChatRoomJoinModeAlternate, false, ZMJoinSuccessBlock{}, ZMErrorBlock{});
    settle();
    status->events.clear();

    client.resetCacheChatRoomForFailed();
    settle();
    EXPECT_EQ(status->events.events(), (std::vector<std::string>{"failed:a:-1", "failed:b:-1", "failed:c:-1"}));
    for (const char* room : {"a", "b", "c"}) EXPECT_EQ(entry(room)->status, ZMChatRoomStatusJoinFailed);

    core.clearRequests();
    core.logger().clear();
    status->events.clear();
    client.rejoinCacheChatRoom();
    settle();

    const auto requests = core.requests();
    ASSERT_EQ(requests.size(), 3u);
    const std::vector<std::pair<std::string, ZMValue>> expected = {
        {"joinChatroom", {{"chatroomId", "a"}, {"limit", 5}, {"useCacheTime", true}, {"joinMode", 0}}},
        {"joinExistingChatroom", {{"chatroomId", "b"}, {"limit", -1}, {"useCacheTime", true}, {"joinMode", 0}}},
        {"joinChatroom", {{"chatroomId", "c"}, {"limit", 7}, {"useCacheTime", true}, {"joinMode", 1}}},
    };
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(requests[i].operation, expected[i].first);
        EXPECT_EQ(requests[i].arguments, expected[i].second);
    }
    EXPECT_EQ(core.logger().linesWithTag(ZM_L_REJION_CHATROOM_T)[1],
              line(4, 64, ZM_L_REJION_CHATROOM_T, "room_id:b,existed:1,count:-1"));
    EXPECT_EQ(core.logger().linesWithTag(ZM_L_REJION_CHATROOM_R)[0], line(4, 1, ZM_L_REJION_CHATROOM_R, "code:0,room_id:a"));
    EXPECT_EQ(status->events.count(), 6u);
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
    ASSERT_EQ(core.heldRequests().size(), 1u);
    EXPECT_EQ(entry("a")->status, ZMChatRoomStatusJoining);
    mainQueue.advance(2.0);  // still joining: not asked again
    settle();
    EXPECT_EQ(core.requests("joinChatroom").size(), 1u);

    // A non-final failure is retried by the next tick; a final one ends it all.
    ASSERT_TRUE(core.answer(core.heldRequests()[0].id, ZMCoreAnswer::failure(500)));
    settle();
    EXPECT_EQ(entry("a")->status, ZMChatRoomStatusJoinFailed);
    mainQueue.advance(2.0);
    settle();
    ASSERT_EQ(core.heldRequests().size(), 1u);
    ASSERT_TRUE(core.answer(core.heldRequests()[0].id, ZMCoreAnswer::failure(23410)));
    settle();
    EXPECT_FALSE(entry("a"));
    EXPECT_EQ(mainQueue.activeTimerCount(), 0u);
    EXPECT_EQ(linesOf(ZM_L_REJION_CHATROOM_R),
              (std::vector<std::string>{"code:500,room_id:a", "code:23410,room_id:a"}));
}

TEST_F(ClientTest, ARejoinAnsweredWithResetPassesThroughResetToJoined) {
    joinAndSettle("a");
    client.resetCacheChatRoomForFailed();
    core.setRule("joinChatroom", ZMCoreAnswer::failure(ZMCodeJoinedWithReset));
    settle();
    status->events.clear();
    client.rejoinCacheChatRoom();
    settle();
    EXPECT_EQ(status->events.events(), (std::vector<std::string>{"joining:a", "reset:a", "joined:a"}));
    EXPECT_EQ(linesOf(ZM_L_REJION_CHATROOM_R), (std::vector<std::string>{"code:0,room_id:a"}));
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
