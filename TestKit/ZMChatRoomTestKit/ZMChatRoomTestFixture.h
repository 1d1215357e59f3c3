#pragma once

// A GoogleTest fixture for an app's tests of code that uses the chat-room
// module on the core emulator. Header only: include it in a test program that
// links GTest and ZMChatRoom::TestKit.
//
//   class RoomTest : public ZMChatRoomTestFixture {};
//   TEST_F(RoomTest, ShowsBans) {
//       client.addChatRoomNotifyEventDelegate(observer);
//       ZMChatRoomTestKit::deliverBan({.chatroomId = "lobby", .banType = 1, .userIds = {"u1"}}).get();
//       ...
//   }
//
// The module is loaded once per process (by the first test's set-up; later
// set-ups load nothing), and the module and the emulator are reset
// before every test, so the tests of a program may share one process in any
// order. Everything a test registers is forgotten by the next one's reset;
// keep your observers' shared_ptrs in the test as usual.

#include <gtest/gtest.h>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <Platform/ZMMainQueue.h>
#include <ZMChatRoom/ZMChatRoomClient.h>
#include <ZMChatRoomTestKit/ZMChatRoomTestKit.h>

class ZMChatRoomTestFixture : public ::testing::Test {
protected:
    void SetUp() override {
        ZMChatRoomTestKit::loadModule();
        ASSERT_TRUE(ZMChatRoomTestKit::reset()) << "the previous test left work that did not finish";
    }

    // Lets everything the test's last steps caused run to its end.
    void settle() { ASSERT_TRUE(ZMChatRoomTestKit::settle()) << "the emulator did not become idle"; }

    ZMCoreEmulator& core = ZMCoreEmulator::shared();
    ZMChatRoomClient& client = ZMChatRoomClient::sharedChatRoomClient();
    ZMMainQueue& mainQueue = ZMMainQueue::shared();
};
