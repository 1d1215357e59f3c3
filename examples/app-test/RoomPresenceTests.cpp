// Tests of the app's RoomPresence on the core emulator: the emulator plays the
// server and the network, the test checks what the user interface would show.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <Platform/ZMMainQueue.h>
#include <ZMChatRoom/Extension/ZMChatRoomExtensionModule.h>
#include <ZMChatRoom/ZMChatRoomClient.h>

#include "RoomPresence.h"

namespace {

struct Case {
    const char* name;
    std::string room;
    std::function<void(ZMCoreEmulator&)> server;  // how the emulated server answers
    std::function<void(ZMCoreEmulator&)> after;   // what happens once the app asked to enter
    RoomPresence::State state;
    int64_t memberCount;
    std::optional<int32_t> lastError;
    std::string statusLine;
};

std::ostream& operator<<(std::ostream& out, const Case& c) { return out << c.name; }

class RoomPresenceFixture : public testing::Test {
protected:
    void SetUp() override { core.loadExtensionModule(&ZMChatRoomExtensionModule::loadVemoExtensionModule); }

    // Lets everything the last step caused happen: the module's operations and
    // requests, the emulator's answers, the status announcements and the
    // main-queue tasks.
    void settle() {
        for (int round = 0; round < 3; ++round) {
            client.zm_chatroom_operation_queue().sync([] {});
            ASSERT_TRUE(core.waitUntilIdle());
            client.zm__notify_chatroom_status_queue().sync([] {});
            ZMMainQueue::shared().drain();
        }
    }

    ZMCoreEmulator& core = ZMCoreEmulator::shared();
    ZMChatRoomClient& client = ZMChatRoomClient::sharedChatRoomClient();
};

class RoomPresenceTest : public RoomPresenceFixture, public testing::WithParamInterface<Case> {};

TEST_P(RoomPresenceTest, ShowsWhereTheAppStands) {
    const Case& c = GetParam();
    if (c.server) c.server(core);
    auto presence = std::make_shared<RoomPresence>(c.room);
    presence->enter();
    ASSERT_NO_FATAL_FAILURE(settle());
    if (c.after) {
        c.after(core);
        ASSERT_NO_FATAL_FAILURE(settle());
    }
    EXPECT_EQ(presence->state(), c.state);
    EXPECT_EQ(presence->memberCount(), c.memberCount);
    EXPECT_EQ(presence->lastError(), c.lastError);
    EXPECT_EQ(presence->statusLine(), c.statusLine);
}

INSTANTIATE_TEST_SUITE_P(
    Server, RoomPresenceTest,
    testing::Values(
        Case{"LetsTheAppIn", "lobby",
             [](ZMCoreEmulator& core) { core.setRule("joinChatroom", ZMCoreAnswer::success({{"member_count_", 5}})); },
             nullptr, RoomPresence::State::In, 4, std::nullopt, "In lobby with 4 others"},
        Case{"RefusesAClosedRoom", "lobby",
             [](ZMCoreEmulator& core) { core.setRule("joinChatroom", ZMCoreAnswer::failure(23410)); }, nullptr,
             RoomPresence::State::Failed, 0, 23410, "Could not enter lobby (error 23410)"},
        Case{"ConnectionDropsAfterEntering", "lobby",
             [](ZMCoreEmulator& core) { core.setRule("joinChatroom", ZMCoreAnswer::success({{"member_count_", 3}})); },
             [](ZMCoreEmulator& core) { core.setConnectionStatus(1); }, RoomPresence::State::Failed, 2, -1,
             "Offline, will retry lobby"},
        Case{"RejectsAnEmptyRoomId", "", nullptr, nullptr, RoomPresence::State::Failed, 0, 34210,
             "Could not enter  (error 34210)"}),
    [](const testing::TestParamInfo<Case>& info) { return std::string(info.param.name); });

TEST_F(RoomPresenceFixture, LeavingTakesTheAppOut) {
    auto presence = std::make_shared<RoomPresence>("lobby");
    presence->enter();
    ASSERT_NO_FATAL_FAILURE(settle());
    ASSERT_EQ(presence->state(), RoomPresence::State::In);
    presence->leave();
    ASSERT_NO_FATAL_FAILURE(settle());
    EXPECT_EQ(presence->state(), RoomPresence::State::Out);
    EXPECT_EQ(core.requests("quitChatroom").size(), 1u);
}

}  // namespace
