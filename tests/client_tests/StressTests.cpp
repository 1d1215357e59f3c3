#include "ClientTestSupport.h"

#include <ZMChatRoom/Extension/ZMChatRoomExtensionModule.h>

TEST_F(ClientTest, AnnouncementsFromManyThreadsArriveInTheOrderEachIssuedThem) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 200;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < kPerThread; ++i) {
                client.notifyChatRoomStatus(numbered("thread", t), ZMChatRoomStatusJoinFailed, i);
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
            const std::string room = numbered("stress", t);
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

// KV pushes for many rooms arrive on four core threads while app threads
// write and read, observers come and go, and the filter and the member
// observer are replaced: every accepted call gets exactly one callback, and
// (under ThreadSanitizer) nothing races.
TEST_F(ClientTest, KVPushesWritesReadsAndObserverChurnRunTogetherRaceFree) {
    ZMCoreEmulator::shared().loadExtensionModule(&ZMChatRoomExtensionModule::loadVemoExtensionModule);
    core.setCallbackThreadCount(4);
    for (const char* operation : {"setChatroomStatus", "getChatRoomEntry", "setChatRoomEntries",
                                  "getAllChatRoomEntries", "getChatRoomEntriesByBatch"}) {
        core.setRule(operation, ZMCoreAnswer::success({{"k", "v"}}));
    }
    constexpr int kRooms = 16;
    for (int room = 0; room < kRooms; room += 2) client.syncKVChatRoomDict().setObject(true, numbered("kv", room));

    struct Counting : ZMChatRoomKVStatusChangeDelegate, ZMChatRoomMemberDelegate {
        std::atomic<int>& calls;
        explicit Counting(std::atomic<int>& c) : calls(c) {}
        void chatRoomKVDidUpdate(const std::string&, const ZMValue& entry) override { calls += entry.size() > 0; }
        void chatRoomKVDidRemove(const std::string&, const ZMValue&) override { ++calls; }
        void memberDidChange(const std::shared_ptr<ZMChatRoomMemberActionModel>&) override { ++calls; }
        using ZMChatRoomMemberDelegate::memberDidChange;
    };
    struct Filtering : ZMChatRoomKVStatusFilterDelegate {
        ZMValue chatRoomKVUpdateFilter(const std::string&, const ZMValue& entry) override { return entry; }
        ZMValue chatRoomKVRemoveFilter(const std::string&, const ZMValue&) override { return nullptr; }
    };
    std::atomic<int> observed{0};
    auto steady = std::make_shared<Counting>(observed);
    client.addChatRoomKVStatusChangeDelegate(steady);

    constexpr int kCallsPerThread = 150;
    std::vector<CallOutcome> outcomes(2 * kCallsPerThread);
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    threads.emplace_back([&] {  // the server pushes
        for (int i = 0; i < 400; ++i) {
            const std::string room = numbered("kv", i % kRooms);
            core.raiseKVChange(room, {{numbered("k", i), "v"}}, {{"old", "v"}});
            if (i % 50 == 0) core.raiseStatusChange(room);
            if (i % 20 == 0) {
                core.deliverMessage("ZM:ChrmMemChange", R"({"userList":[{"userId":"u","status":1}],"memberCount":2})",
                                    room);
            }
        }
    });
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&, t] {  // the app writes and reads
            for (int i = 0; i < kCallsPerThread; ++i) {
                CallOutcome& outcome = outcomes[t * kCallsPerThread + i];
                const std::string room = numbered("kv", (i + t) % kRooms);
                switch (i % 5) {
                    case 0:
                        client.setChatRoomEntry(room, "k", "v", true, false, nullptr, outcome.success(),
                                                outcome.error());
                        break;
                    case 1:  // refused (34004) in half of the rooms, sent in the others
                        client.getChatRoomEntry(room, "k", [s = outcome.success()](const ZMValue&) { s(); },
                                                outcome.error());
                        break;
                    case 2:
                        client.setChatRoomEntries(room, {{"a", "1"}, {"b", "2"}}, false, false, outcome.success(),
                                                  [e = outcome.error()](int32_t code, const ZMValue&) { e(code); });
                        break;
                    case 3:
                        client.getAllChatRoomEntries(room, [s = outcome.success()](const ZMValue&) { s(); },
                                                     outcome.error());
                        break;
                    default:
                        client.getChatRoomEntriesByBatch(room, ZMValue::array({"k", "a"}),
                                                         [s = outcome.success()](const ZMValue&) { s(); },
                                                         outcome.error());
                        break;
                }
            }
        });
    }
    std::thread churn([&] {  // observers come and go; the filter and member observer are replaced
        int round = 0;
        while (!done) {
            auto transient = std::make_shared<Counting>(observed);
            client.addChatRoomKVStatusChangeDelegate(transient);
            auto filter = round % 3 == 0 ? nullptr : std::make_shared<Filtering>();
            client.setZMChatRoomKVStatusFilterDelegate(filter);
            client.setMemberDelegate(round % 2 == 0 ? transient : steady);
            client.removeChatRoomKVStatusChangeDelegate(transient);
            ++round;
        }
    });
    for (auto& thread : threads) thread.join();
    for (auto& outcome : outcomes) EXPECT_TRUE(outcome.done.waitForCount(1));
    done = true;
    churn.join();
    settle();
    for (const auto& outcome : outcomes) EXPECT_EQ(outcome.total(), 1);
    EXPECT_GT(observed, 0);
}
