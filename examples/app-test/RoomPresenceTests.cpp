// Tests of the app's RoomPresence on the core emulator: the emulator plays the
// server and the network, the test checks what the user interface would show.
// ZMChatRoomTestFixture loads the module once and resets the module and the
// emulator before every test, so the tests also pass run together in one
// process (./room_presence_tests), in any order.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include <ZMChatRoomTestKit/ZMChatRoomTestFixture.h>

#include "RoomPresence.h"

namespace {

using Kit = ZMChatRoomTestKit;

struct Case {
    const char* name;
    std::string room;
    std::function<void(ZMCoreEmulator&)> server;  // how the emulated server answers
    std::function<void()> after;                  // what happens once the app asked to enter
    RoomPresence::State state;
    int64_t memberCount;
    std::optional<int32_t> lastError;
    std::string statusLine;
};

std::ostream& operator<<(std::ostream& out, const Case& c) { return out << c.name; }

class RoomPresenceTest : public ZMChatRoomTestFixture, public testing::WithParamInterface<Case> {};

TEST_P(RoomPresenceTest, ShowsWhereTheAppStands) {
    const Case& c = GetParam();
    if (c.server) c.server(core);
    auto presence = std::make_shared<RoomPresence>(c.room);
    presence->enter();
    ASSERT_NO_FATAL_FAILURE(settle());
    if (c.after) {
        c.after();
        ASSERT_NO_FATAL_FAILURE(settle());
    }
    EXPECT_EQ(presence->state(), c.state);
    EXPECT_EQ(presence->memberCount(), c.memberCount);
    EXPECT_EQ(presence->lastError(), c.lastError);
    EXPECT_EQ(presence->statusLine(), c.statusLine);
}

void joinAnswers(ZMCoreEmulator& core, int members) {
    core.setRule("joinChatroom", ZMCoreAnswer::success({{"member_count_", members}}));
}

INSTANTIATE_TEST_SUITE_P(
    Server, RoomPresenceTest,
    testing::Values(
        Case{"LetsTheAppIn", "lobby", [](ZMCoreEmulator& core) { joinAnswers(core, 5); }, nullptr,
             RoomPresence::State::In, 4, std::nullopt, "In lobby with 4 others"},
        Case{"RefusesAClosedRoom", "lobby",
             [](ZMCoreEmulator& core) { core.setRule("joinChatroom", ZMCoreAnswer::failure(23410)); }, nullptr,
             RoomPresence::State::Failed, 0, 23410, "Could not enter lobby (error 23410)"},
        Case{"ConnectionDropsAfterEntering", "lobby", [](ZMCoreEmulator& core) { joinAnswers(core, 3); },
             [] { Kit::pushConnectionStatus(Kit::kConnectionLost); }, RoomPresence::State::Failed, 2, -1,
             "Offline, will retry lobby"},
        // The server's member-change message, built by the kit with the
        // module's own message class.
        Case{"MembersComeAndGo", "lobby", [](ZMCoreEmulator& core) { joinAnswers(core, 3); },
             [] {
                 Kit::deliverMemberChange({.chatroomId = "lobby", .members = {{"u7", 1}, {"u8", 1}}, .memberCount = 5});
             },
             RoomPresence::State::In, 4, std::nullopt, "In lobby with 4 others"},
        Case{"IgnoresOtherRooms", "lobby", [](ZMCoreEmulator& core) { joinAnswers(core, 3); },
             [] { Kit::deliverMemberChange({.chatroomId = "hall", .members = {{"u7", 1}}, .memberCount = 9}); },
             RoomPresence::State::In, 2, std::nullopt, "In lobby with 2 others"},
        Case{"RejectsAnEmptyRoomId", "", nullptr, nullptr, RoomPresence::State::Failed, 0, 34210,
             "Could not enter  (error 34210)"}),
    [](const testing::TestParamInfo<Case>& info) { return std::string(info.param.name); });

class RoomPresenceSessionTest : public ZMChatRoomTestFixture {};

TEST_F(RoomPresenceSessionTest, LeavingTakesTheAppOut) {
    auto presence = std::make_shared<RoomPresence>("lobby");
    presence->enter();
    ASSERT_NO_FATAL_FAILURE(settle());
    ASSERT_EQ(presence->state(), RoomPresence::State::In);
    presence->leave();
    ASSERT_NO_FATAL_FAILURE(settle());
    EXPECT_EQ(presence->state(), RoomPresence::State::Out);
    EXPECT_EQ(core.requests("quitChatroom").size(), 1u);
}

TEST_F(RoomPresenceSessionTest, ARoomDestroyedOnTheServerTakesTheAppOut) {
    auto presence = std::make_shared<RoomPresence>("lobby");
    presence->enter();
    ASSERT_NO_FATAL_FAILURE(settle());
    Kit::pushRoomDestroyed("lobby");
    ASSERT_NO_FATAL_FAILURE(settle());
    EXPECT_EQ(presence->state(), RoomPresence::State::Out);
    EXPECT_EQ(presence->statusLine(), "Not in lobby");
}

}  // namespace
