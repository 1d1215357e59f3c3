// The count of cached rooms that await a rejoin, which lets the 2-second
// timer's sweep skip its walk when there is nothing to retry: it must follow
// every status change and every way an entry leaves the cache, whoever makes
// the change and from whichever thread.

#include "ClientTestSupport.h"

#include <random>

namespace {

// The truth the count stands for: cached entries whose status is neither
// joining, joined nor reset.
int64_t cachedRoomsAwaitingRejoin(ZMChatRoomClient& client) {
    int64_t awaiting = 0;
    for (const auto& [roomId, entry] : client.cacheChatRoomDict().allEntries()) {
        awaiting += ZMCacheChatRoomStatus::awaitsRejoin(entry->status.load()) ? 1 : 0;
    }
    return awaiting;
}

TEST(CacheEntryStatusTest, ReadsBackWhatWasStoredAndCountsOnlyWhileCached) {
    const int64_t before = ZMCacheChatRoomStatus::awaitingRejoinCount();
    ZMCacheChatRoomInfo entry;
    EXPECT_EQ(entry.status.load(), 0);
    EXPECT_FALSE(entry.status.isCached());
    // Every status reads back as stored, in the cache or not, whatever the bit it shares a word with.
    for (bool cached : {false, true}) {
        if (cached) entry.status.enterCache();
        for (int64_t status : {int64_t{1}, int64_t{2}, int64_t{3}, int64_t{4}, int64_t{5}, int64_t{6}, int64_t{0},
                               int64_t{-1}, int64_t{1} << 40, -(int64_t{1} << 62), (int64_t{1} << 62) - 1}) {
            entry.status = status;
            EXPECT_EQ(entry.status.load(), status);
            EXPECT_EQ(static_cast<int64_t>(entry.status), status);
            EXPECT_EQ(entry.status.isCached(), cached);
            const bool awaits = status != 1 && status != 2 && status != 6;
            EXPECT_EQ(ZMCacheChatRoomStatus::awaitsRejoin(status), awaits) << status;
            EXPECT_EQ(ZMCacheChatRoomStatus::awaitingRejoinCount(), before + (cached && awaits ? 1 : 0)) << status;
        }
    }
    // Leaving and entering again, and the entry's own transitions, each move the count once.
    const struct {
        const char* step;
        std::function<void()> apply;
        int64_t counted;
    } steps[] = {
        {"failed while cached", [&] { entry.status = 3; }, 1},
        {"failed again", [&] { entry.status = 3; }, 1},
        {"out of the cache", [&] { entry.status.leaveCache(); }, 0},
        {"out twice", [&] { entry.status.leaveCache(); }, 0},
        {"joined outside", [&] { entry.status = 2; }, 0},
        {"back in, joined", [&] { entry.status.enterCache(); }, 0},
        {"in twice", [&] { entry.status.enterCache(); }, 0},
        {"reset", [&] { entry.status = 6; }, 0},
        {"quited status", [&] { entry.status = 4; }, 1},
        {"joining", [&] { entry.status = 1; }, 0},
        {"failed, then out", [&] {
             entry.status = 3;
             entry.status.leaveCache();
         }, 0},
    };
    for (const auto& step : steps) {
        step.apply();
        EXPECT_EQ(ZMCacheChatRoomStatus::awaitingRejoinCount(), before + step.counted) << step.step;
    }
}

TEST_F(ClientTest, TheAwaitingRejoinCountFollowsEveryStatusChangeAndRemoval) {
    auto expectCount = [&](int64_t expected, const char* step) {
        settle();
        EXPECT_EQ(cachedRoomsAwaitingRejoin(client), expected) << step;
        EXPECT_EQ(ZMCacheChatRoomStatus::awaitingRejoinCount(), expected) << step;
    };
    auto joinAnswered = [&](const std::string& roomId, std::optional<ZMCoreAnswer> answer) {
        if (answer) core.setRule("joinChatroom", *answer);
        joinAndSettle(roomId);
        core.clearRules();
    };
    auto setStatus = [&](const std::string& roomId, int64_t status) { entry(roomId)->status = status; };
    client.clearChatRoom();  // whatever an earlier test left behind

    const struct {
        const char* step;
        std::function<void()> apply;
        int64_t awaiting;
    } steps[] = {
        {"joined rooms", [&] { for (const char* room : {"a", "b", "c"}) joinAnswered(room, std::nullopt); }, 0},
        {"a join failing for now", [&] { joinAnswered("d", ZMCoreAnswer::failure(500)); }, 1},
        {"a join failing for good leaves the cache", [&] { joinAnswered("e", ZMCoreAnswer::failure(23409)); }, 1},
        {"connection lost", [&] { client.resetCacheChatRoomForFailed(); }, 4},
        {"rejoins under way", [&] {
             core.holdRequests("joinChatroom");
             client.rejoinCacheChatRoom();
         }, 0},
        {"rejoins answered: joined, dropped, failed, reset", [&] {
             settle();
             const ZMCoreAnswer answers[] = {ZMCoreAnswer::success(), ZMCoreAnswer::failure(23410),
                                             ZMCoreAnswer::failure(500), ZMCoreAnswer::failure(ZMCodeJoinedWithReset)};
             auto held = core.heldRequests();
             ASSERT_EQ(held.size(), 4u);
             for (size_t i = 0; i < held.size(); ++i) ASSERT_TRUE(core.answer(held[i].id, answers[i]));
             core.clearRules();
         }, 1},
        {"a status written by hand", [&] { setStatus("a", ZMChatRoomStatusJoinFailed); }, 2},
        {"and written back", [&] { setStatus("a", ZMChatRoomStatusJoined); }, 1},
        {"the failed room quit", [&] { client.quitChatRoom("c", ZMSuccessBlock{}, ZMErrorBlock{}); }, 0},
        {"a failed room destroyed on the server", [&] {
             setStatus("d", ZMChatRoomStatusJoinFailed);
             core.raiseRoomDestroyed("d", 0);
         }, 0},
        {"a failed room joined again: the new entry replaces it", [&] {
             setStatus("a", ZMChatRoomStatusJoinFailed);
             joinAnswered("a", std::nullopt);
         }, 0},
        {"a status written to an entry no longer cached", [&] {
             auto old = entry("a");
             client.quitChatRoom("a", ZMSuccessBlock{}, ZMErrorBlock{});
             settle();
             old->status = ZMChatRoomStatusJoinFailed;
         }, 0},
        {"failed rooms, then one room per user", [&] {
             joinAnswered("f", ZMCoreAnswer::failure(500));
             joinAnswered("g", ZMCoreAnswer::failure(500));
             core.setMutliChatroomEnabled(false);
             joinAnswered("h", std::nullopt);
             core.setMutliChatroomEnabled(true);
         }, 0},
        {"failed rooms, then logout", [&] {
             joinAnswered("i", ZMCoreAnswer::failure(500));
             joinAnswered("j", ZMCoreAnswer::failure(500));
             client.clearChatRoom();  // what the extension module does on logout
         }, 0},
    };
    for (const auto& step : steps) {
        step.apply();
        expectCount(step.awaiting, step.step);
    }
}

// Statuses written by hand, joins, quits, failures, sweeps and logouts from
// several threads at once: once everything has settled the count is exact
// again (it is never below the truth on the way, which the timer relies on).
TEST_F(ClientTest, TheAwaitingRejoinCountIsExactAfterConcurrentChanges) {
    client.clearChatRoom();
    core.setCallbackThreadCount(3);
    std::atomic<int> failures{0};
    core.setRule("joinChatroom", [&failures](const ZMCoreRequest&) -> std::optional<ZMCoreAnswer> {
        return failures.fetch_add(1) % 3 == 0 ? ZMCoreAnswer::failure(500) : ZMCoreAnswer::success();
    });
    constexpr int kRooms = 12;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            std::mt19937 random(static_cast<unsigned>(t));
            for (int i = 0; i < 300; ++i) {
                const std::string room = numbered("room", static_cast<long long>(random() % kRooms));
                switch (random() % 8) {
                    case 0:
                    case 1:
                        client.joinChatRoom(room, 1, ZMSuccessBlock{}, ZMErrorBlock{});
                        break;
                    case 2:
                        client.quitChatRoom(room, ZMSuccessBlock{}, ZMErrorBlock{});
                        break;
                    case 3:
                        if (auto cached = entry(room)) cached->status = 1 + static_cast<int64_t>(random() % 6);
                        break;
                    case 4:
                        client.resetCacheChatRoomForFailed();
                        break;
                    case 5:
                        client.rejoinCacheChatRoom();
                        break;
                    case 6:
                        core.raiseRoomDestroyed(room, 0);
                        break;
                    default:
                        if (i % 50 == 0) client.clearChatRoom();
                        break;
                }
            }
        });
    }
    for (auto& thread : threads) thread.join();
    settle();
    EXPECT_EQ(ZMCacheChatRoomStatus::awaitingRejoinCount(), cachedRoomsAwaitingRejoin(client));
    client.clearChatRoom();
    EXPECT_EQ(ZMCacheChatRoomStatus::awaitingRejoinCount(), 0);
}

}  // namespace
