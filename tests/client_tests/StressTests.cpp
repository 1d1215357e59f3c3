#include "ClientTestSupport.h"

TEST_F(ClientTest, AnnouncementsFromManyThreadsArriveInTheOrderEachIssuedThem) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 200;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < kPerThread; ++i) {
                client.notifyChatRoomStatus("thread" + std::to_string(t), ZMChatRoomStatusJoinFailed, i);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    client.zm__notify_chatroom_status_queue().sync([] {});
    ASSERT_EQ(status->events.count(), static_cast<size_t>(kThreads * kPerThread));
    for (const auto& [room, sequence] : byRoom(status->events.events())) {
        for (size_t i = 0; i < sequence.size(); ++i) EXPECT_EQ(sequence[i], "failed:" + std::to_string(i)) << room;
    }
}

// Several app threads join and quit their rooms while the core answers from
// four threads, sometimes failing or resetting, and the connection flaps. Every
// accepted call must get exactly one callback, and no room is announced joined
// before the joining that led to it.
TEST_F(ClientTest, JoinsQuitsAndRejoinsUnderAFlappingConnectionEachGetOneCallback) {
    core.setCallbackThreadCount(4);
    std::atomic<uint64_t> answered{0};
    core.setRule("joinChatroom", ZMCoreEmulator::Rule([&answered](const ZMCoreRequest&) -> std::optional<ZMCoreAnswer> {
                     switch (answered++ % 5) {
                         case 0: return ZMCoreAnswer::failure(500);  // retried later
                         case 1: return ZMCoreAnswer::failure(ZMCodeJoinedWithReset);
                         default: return ZMCoreAnswer::success({{"member_count_", 3}});
                     }
                 }));
    constexpr int kAppThreads = 4;
    constexpr int kRounds = 15;
    std::vector<CallOutcome> outcomes(kAppThreads * kRounds * 2);
    std::atomic<bool> appDone{false};
    std::vector<std::thread> apps;
    for (int t = 0; t < kAppThreads; ++t) {
        apps.emplace_back([&, t] {
            const std::string room = "stress" + std::to_string(t);
            for (int round = 0; round < kRounds; ++round) {
                auto& join = outcomes[(t * kRounds + round) * 2];
                auto& quit = outcomes[(t * kRounds + round) * 2 + 1];
                client.joinChatRoom(room, round, join.success(), join.error());
                ASSERT_TRUE(join.done.waitForCount(1));
                client.quitChatRoom(room, quit.success(), quit.error());
                ASSERT_TRUE(quit.done.waitForCount(1));
            }
        });
    }
    std::thread flapper([&] {
        // Paced by the core so that the flaps interleave with the app's calls
        // instead of flooding the queues.
        for (int flap = 0; flap < 100 && !appDone; ++flap) {
            core.setConnectionStatus(1);
            client.resetCacheChatRoomForFailed();
            client.stopChatRoomRejoinTimer();
            core.setConnectionStatus(0);
            client.rejoinCacheChatRoom();
            client.startChatRoomRejoinTimer();
            core.waitUntilIdle();
        }
    });
    // This thread is the main thread meanwhile: timers and their sweeps run here.
    std::thread joiner([&] {
        for (auto& app : apps) app.join();
        appDone = true;
        mainQueue.async([] {});  // wakes the main thread to see it
    });
    EXPECT_TRUE(mainQueue.runUntil([&] { return appDone.load(); }, 120));
    joiner.join();
    flapper.join();
    client.stopChatRoomRejoinTimer();
    settle();

    for (const auto& outcome : outcomes) EXPECT_EQ(outcome.total(), 1);
    EXPECT_EQ(client.cacheChatRoomDict().count(), 0u);
    EXPECT_EQ(status->callsOffNotifyQueue, 0);
    for (const auto& [room, events] : byRoom(status->events.events())) {
        int joinings = 0;
        int joineds = 0;
        for (const auto& event : events) {
            joinings += event == "joining";
            joineds += event == "joined";
            EXPECT_LE(joineds, joinings) << room;
        }
    }
}
