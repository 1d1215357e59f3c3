// Many threads at once: every accepted call gets exactly one callback, announcements keep
// each issuer's order, the awaiting-rejoin count ends exact (and under ThreadSanitizer
// nothing races).
#include "ClientTestSupport.h"

#include <random>

#include <ZMChatRoom/Extension/ZMChatRoomExtensionModule.h>

namespace {

void onThreads(int count, const std::function<void(int)>& work) {
    std::vector<std::thread> threads;
    for (int t = 0; t < count; ++t) threads.emplace_back(work, t);
    for (auto& thread : threads) thread.join();
}

}  // namespace

TEST_F(ClientTest, AnnouncementsFromManyThreadsArriveInTheOrderEachIssuedThem) {
    onThreads(4, [this](int t) {
        for (int i = 0; i < 200; ++i) client.notifyChatRoomStatus(numbered("thread", t), ZMChatRoomStatusJoinFailed, i);
    });
    client.zm__notify_chatroom_status_queue().sync([] {});
    ASSERT_EQ(status->events.count(), 800u);
    for (const auto& [room, sequence] : byRoom(status->events.events())) {
        for (size_t i = 0; i < sequence.size(); ++i) EXPECT_EQ(sequence[i], "failed:" + std::to_string(i)) << room;
    }
}

// All at once, the core answering from four threads: app threads join and quit their rooms
// (the core failing now and then, or resetting) and write and read KV entries, while the
// connection flaps, the server pushes KV changes and member messages, observers come and go,
// the filter and member observer are replaced, and other rooms are joined, quit, destroyed,
// failed by hand and logged out of. Every accepted call gets exactly one callback, no room is
// announced joined before its joining, and the awaiting-rejoin count ends exact.
TEST_F(ClientTest, EverythingAtOnceGivesEachCallOneCallbackAndLeavesTheCountExact) {
    ZMCoreEmulator::shared().loadExtensionModule(&ZMChatRoomExtensionModule::loadVemoExtensionModule);
    core.setCallbackThreadCount(4);
    std::atomic<uint64_t> answered{0};
    core.setRule("joinChatroom", ZMCoreEmulator::Rule([&answered](const ZMCoreRequest&) -> std::optional<ZMCoreAnswer> {
                     const uint64_t n = answered++ % 5;
                     return n == 0   ? ZMCoreAnswer::failure(500)
                            : n == 1 ? ZMCoreAnswer::failure(ZMCodeJoinedWithReset)
                                     : ZMCoreAnswer::success({{"member_count_", 3}});
                 }));
    for (const char* operation : {"setChatroomStatus", "getChatRoomEntry", "setChatRoomEntries", "getAllChatRoomEntries",
                                  "getChatRoomEntriesByBatch"}) {
        core.setRule(operation, ZMCoreAnswer::success({{"k", "v"}}));
    }
    for (int room = 0; room < 16; room += 2) client.syncKVChatRoomDict().setObject(true, numbered("kv", room));
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
    constexpr int kRounds = 15;
    std::vector<CallOutcome> outcomes(4 * kRounds * 2 + 300);
    std::atomic<bool> done{false};
    std::thread everyone([&] {
        onThreads(10, [&](int t) {
            if (t < 4) {  // app threads joining and quitting
                for (int round = 0; round < kRounds; ++round) {
                    auto& join = outcomes[(t * kRounds + round) * 2];
                    auto& quit = outcomes[(t * kRounds + round) * 2 + 1];
                    client.joinChatRoom(numbered("stress", t), round, join.success(), join.error());
                    ASSERT_TRUE(join.done.waitForCount(1));
                    client.quitChatRoom(numbered("stress", t), quit.success(), quit.error());
                    ASSERT_TRUE(quit.done.waitForCount(1));
                }
            } else if (t < 6) {  // app threads writing and reading, refused (34004) in rooms not synchronised
                for (int i = 0; i < 150; ++i) {
                    CallOutcome& o = outcomes[4 * kRounds * 2 + (t - 4) * 150 + i];
                    const std::string room = numbered("kv", (i + t) % 16);
                    auto success = [s = o.success()](const ZMValue&) { s(); };
                    switch (i % 5) {
                        case 0: client.setChatRoomEntry(room, "k", "v", true, false, nullptr, o.success(), o.error()); break;
                        case 1: client.getChatRoomEntry(room, "k", success, o.error()); break;
                        case 2:
                            client.setChatRoomEntries(room, {{"a", "1"}, {"b", "2"}}, false, false, o.success(),
                                                      [e = o.error()](int32_t code, const ZMValue&) { e(code); });
                            break;
                        case 3: client.getAllChatRoomEntries(room, success, o.error()); break;
                        default: client.getChatRoomEntriesByBatch(room, ZMValue::array({"k", "a"}), success, o.error());
                    }
                }
            } else if (t == 6) {  // the server pushes
                for (int i = 0; i < 400; ++i) {
                    const std::string room = numbered("kv", i % 16);
                    core.raiseKVChange(room, {{numbered("k", i), "v"}}, {{"old", "v"}});
                    if (i % 50 == 0) core.raiseStatusChange(room);
                    if (i % 20 == 0) {
                        core.deliverMessage("ZM:ChrmMemChange", R"({"userList":[{"userId":"u","status":1}],"memberCount":2})",
                                            room);
                    }
                }
            } else if (t == 7) {  // the connection flaps, paced by the core
                for (int flap = 0; flap < 100; ++flap) {
                    core.setConnectionStatus(1);
                    client.resetCacheChatRoomForFailed();
                    client.stopChatRoomRejoinTimer();
                    core.setConnectionStatus(0);
                    client.rejoinCacheChatRoom();
                    client.startChatRoomRejoinTimer();
                    core.waitUntilIdle();
                }
            } else {  // other rooms change every way there is
                std::mt19937 random(static_cast<unsigned>(t));
                for (int i = 0; i < 300; ++i) {
                    const std::string room = numbered("room", static_cast<long long>(random() % 12));
                    switch (random() % 8) {
                        case 0:
                        case 1: client.joinChatRoom(room, 1, ZMSuccessBlock{}, ZMErrorBlock{}); break;
                        case 2: client.quitChatRoom(room, ZMSuccessBlock{}, ZMErrorBlock{}); break;
                        case 3:
                            if (auto cached = entry(room)) cached->status = 1 + static_cast<int64_t>(random() % 6);
                            break;
                        case 4: client.resetCacheChatRoomForFailed(); break;
                        case 5: client.rejoinCacheChatRoom(); break;
                        case 6: core.raiseRoomDestroyed(room, 0); break;
                        default:
                            if (i % 50 == 0) client.clearChatRoom();
                    }
                }
            }
        });
        done = true;
        mainQueue.async([] {});  // wakes the main thread to see it
    });
    std::thread churn([&] {
        for (int round = 0; !done; ++round) {
            auto transient = std::make_shared<Counting>(observed);
            client.addChatRoomKVStatusChangeDelegate(transient);
            client.setZMChatRoomKVStatusFilterDelegate(round % 3 == 0 ? nullptr : std::make_shared<Filtering>());
            client.setMemberDelegate(round % 2 == 0 ? transient : steady);
            client.removeChatRoomKVStatusChangeDelegate(transient);
        }
    });
    // This thread is the main thread meanwhile: timers and their sweeps run here.
    EXPECT_TRUE(mainQueue.runUntil([&] { return done.load(); }, 120));
    everyone.join();
    churn.join();
    client.stopChatRoomRejoinTimer();
    for (auto& outcome : outcomes) EXPECT_TRUE(outcome.done.waitForCount(1));
    settle();
    for (const auto& outcome : outcomes) EXPECT_EQ(outcome.total(), 1);
    for (int t = 0; t < 4; ++t) EXPECT_FALSE(entry(numbered("stress", t)));
    EXPECT_EQ(status->callsOffNotifyQueue, 0);
    EXPECT_GT(observed, 0);
    for (const auto& [room, events] : byRoom(status->events.events())) {
        int balance = 0;
        for (const auto& event : events) {
            balance += (event == "joining") - (event == "joined");
            EXPECT_GE(balance, 0) << room;
        }
    }
    int64_t awaiting = 0;
    for (const auto& [roomId, e] : client.cacheChatRoomDict().allEntries()) {
        awaiting += ZMCacheChatRoomStatus::awaitsRejoin(e->status.load());
    }
    EXPECT_EQ(ZMCacheChatRoomStatus::awaitingRejoinCount(), awaiting);
    client.clearChatRoom();
    EXPECT_EQ(ZMCacheChatRoomStatus::awaitingRejoinCount(), 0);
}
