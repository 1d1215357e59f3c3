// The bounded record of requests and the per-operation counts that
// waitForRequests reads.
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "emulator_tests/ZMEmulatorTestDoubles.h"

namespace {

const std::string kClear = "clearChatroomMessageAndKVWithTargetId";
const std::string kQuery = "queryChatroomInfo";

// The kept requests as "operation:room".
std::vector<std::string> kept() {
    std::vector<std::string> result;
    for (const auto& request : emulator().requests()) {
        result.push_back(request.operation.substr(0, 5) + ":" + request.arguments["chatroomId"].get<std::string>());
    }
    return result;
}

TEST(ZMCoreEmulatorRequestRecord, KeepsTheNewestRequestsUpToItsCapacityAndCountsEveryOne) {
    EXPECT_EQ(emulator().requestCapacity(), 10000u);
    int room = 0;
    auto clear = [&](int count) {
        for (int i = 0; i < count; ++i) service().clearChatroomMessageAndKVWithTargetId(numbered("r", ++room), true, true);
    };
    auto query = [&] { service().queryChatroomInfo(numbered("r", ++room), 1, 1, nullptr, nullptr); };
    const struct {
        const char* step;
        std::function<void()> act;
        std::vector<std::string> kept;
        size_t clears, queries;  // counted since the last clearRequests()
    } steps[] = {
        {"capacity 3, five requests", [&] { emulator().setRequestCapacity(3); clear(5); },
         {"clear:r3", "clear:r4", "clear:r5"}, 5, 0},
        {"another operation", [&] { query(); }, {"clear:r4", "clear:r5", "query:r6"}, 5, 1},
        {"lowered to 1", [&] { emulator().setRequestCapacity(1); }, {"query:r6"}, 5, 1},
        {"0 keeps none but counts", [&] { emulator().setRequestCapacity(0); clear(1); }, {}, 6, 1},
        {"clearing forgets the counts", [&] { emulator().clearRequests(); }, {}, 0, 0},
        {"raised to 2", [&] { emulator().setRequestCapacity(2); query(); clear(2); }, {"clear:r9", "clear:r10"}, 2, 1},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.step);
        step.act();
        EXPECT_EQ(kept(), step.kept);
        // Waiting reads the counts: a count reached is seen at once, one more is not there.
        EXPECT_TRUE(emulator().waitForRequests(kClear, step.clears, 0));
        EXPECT_FALSE(emulator().waitForRequests(kClear, step.clears + 1, 0));
        EXPECT_TRUE(emulator().waitForRequests(kQuery, step.queries, 0));
        EXPECT_FALSE(emulator().waitForRequests(kQuery, step.queries + 1, 0));
    }
    // Ids go on counting whatever is kept.
    EXPECT_EQ(emulator().requests().back().id, 10u);
    EXPECT_TRUE(emulator().waitUntilIdle());
}

}  // namespace
