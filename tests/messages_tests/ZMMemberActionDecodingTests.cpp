// A member change's actions are built in one allocation: each action is a
// pointer of its own into it, they stay valid however long any of them is
// kept, and each can be changed without touching the others.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <ZMChatRoom/Messages/ZMChatRoomMemberActionMessage.h>

namespace {

ZMData bytes(const std::string& text) { return ZMData(text.begin(), text.end()); }

TEST(MemberActionDecodingTest, ActionsAreDistinctAndOutliveTheirMessage) {
    std::vector<std::shared_ptr<ZMChatRoomMemberAction>> kept;
    {
        auto message = std::make_shared<ZMChatRoomMemberActionMessage>();
        message->decodeWithData(
            bytes(R"({"userList":[{"userId":"u1","status":1},"skipped",{"userId":"u2","status":3},{}],"memberCount":3})"));
        ASSERT_EQ(message->userList.size(), 3u);
        kept = message->userList;
        // Decoding again replaces the list; the actions handed out stay as they were.
        message->decodeWithData(bytes(R"({"userList":[{"userId":"u9","status":2}]})"));
        ASSERT_EQ(message->userList.size(), 1u);
        EXPECT_EQ(message->userList[0]->memberId, std::optional<std::string>("u9"));
    }
    ASSERT_EQ(kept.size(), 3u);
    EXPECT_NE(kept[0], kept[1]);
    EXPECT_NE(kept[1], kept[2]);
    kept[0]->memberId = "changed";
    EXPECT_EQ(kept[1]->memberId, std::optional<std::string>("u2"));
    EXPECT_EQ(kept[1]->action, 3);
    EXPECT_EQ(kept[2]->memberId, std::nullopt);
    EXPECT_EQ(kept[2]->action, 0);
    // The last one alone keeps what it points to.
    auto last = kept[2];
    kept.clear();
    EXPECT_EQ(last->memberId, std::nullopt);
    last->memberId = "still valid";
    EXPECT_EQ(last->memberId, std::optional<std::string>("still valid"));
}

}  // namespace
