// A member change's actions share a few allocations: each action is a
// pointer of its own into one, they stay valid however long any of them is
// kept, and each can be changed without touching the others.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <ZMChatRoom/Messages/ZMChatRoomMemberActionMessage.h>

#include "support/ZMTestSupport.h"

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

// Lists longer than one shared allocation holds, with skipped entries
// between the members: every member is read, in order, and each one kept
// alone stays valid.
TEST(MemberActionDecodingTest, LongListsKeepEveryMemberInOrder) {
    for (int users : {15, 16, 17, 33, 50}) {
        std::string text = R"({"userList":[)";
        for (int i = 0; i < users; ++i) {
            if (i > 0) text += ',';
            if (i % 5 == 2) text += "7,";  // not a member
            text += R"({"userId":")";
            text += numbered("u", i);
            text += R"(","status":)";
            text += std::to_string(i % 3 + 1);
            text += "}";
        }
        text += "]}";
        std::vector<std::shared_ptr<ZMChatRoomMemberAction>> kept;
        {
            ZMChatRoomMemberActionMessage message;
            message.decodeWithData(bytes(text));
            kept = message.userList;
        }
        ASSERT_EQ(kept.size(), static_cast<size_t>(users)) << users;
        for (int i = 0; i < users; ++i) {
            EXPECT_EQ(kept[i]->memberId, std::optional<std::string>(numbered("u", i))) << users;
            EXPECT_EQ(kept[i]->action, i % 3 + 1) << users;
        }
        // Dropped from the front: what is left still reads back.
        for (int i = 0; i + 1 < users; ++i) kept[i].reset();
        EXPECT_EQ(kept.back()->memberId, std::optional<std::string>(numbered("u", users - 1)));
    }
}

}  // namespace
