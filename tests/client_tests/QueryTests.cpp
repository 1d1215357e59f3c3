#include "ClientTestSupport.h"

#include <algorithm>

namespace {

std::string paramLine(const std::string& operation, const std::string& rest) {
    return "Parameter Error, " + operation + ", " + rest;
}

const std::string kInfo = "getChatRoomInfo:count:order:success:error:";
const std::string kHistory = "getRemoteChatroomHistoryMessages:recordTime:count:order:success:error:";

}  // namespace

TEST_F(ClientTest, RoomInfoAcceptsOrderOneOrTwoAndPassesTheCountUnchanged) {
    struct Case {
        uint64_t order;
        int32_t count;
        int32_t code;  // 0: sent
    };
    const std::vector<Case> cases = {{0, 10, ZMErrorInvalidMemberOrder}, {3, 10, ZMErrorInvalidMemberOrder},
                                     {UINT64_MAX, 10, ZMErrorInvalidMemberOrder}, {1, 0, 0}, {2, -1, 0}};
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.order);
        core.clearRequests();
        core.logger().clear();
        CallOutcome outcome;
        client.getChatRoomInfo("r", testCase.count, testCase.order, ZMChatRoomInfoSuccessBlock{}, outcome.error());
        settle();
        if (testCase.code != 0) {
            EXPECT_EQ(outcome.code, testCase.code);
            EXPECT_TRUE(core.requests().empty());
            EXPECT_EQ(linesOf(kClientTag), (std::vector<std::string>{paramLine(kInfo, "targetId:r")}));
        } else {
            EXPECT_EQ(outcome.errors, 0);
            ASSERT_EQ(core.requests("queryChatroomInfo").size(), 1u);
            EXPECT_EQ(core.requests()[0].arguments,
                      (ZMValue{{"chatroomId", "r"}, {"limit", testCase.count}, {"order", testCase.order}}));
        }
    }
}

TEST_F(ClientTest, RoomInfoReplyBecomesARecord) {
    struct Case {
        std::string name;
        ZMValue reply;
        int32_t total;
        std::optional<std::vector<std::pair<std::string, int64_t>>> members;
    };
    const std::vector<Case> cases = {
        {"full reply",
         {{"totalMemberCount", 321},
          {"memberInfoArray", {{{"userId", "u1"}, {"joinTime", 11}}, {{"userId", "u2"}, {"joinTime", 22}}}}},
         321,
         std::vector<std::pair<std::string, int64_t>>{{"u1", 11}, {"u2", 22}}},
        {"no member array", {{"totalMemberCount", 5}}, 5, std::nullopt},
        {"empty member array", {{"totalMemberCount", 5}, {"memberInfoArray", ZMValue::array()}}, 5, std::nullopt},
        {"no total", {{"memberInfoArray", {{{"userId", "u"}, {"joinTime", 1}}}}}, 0,
         std::vector<std::pair<std::string, int64_t>>{{"u", 1}}},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        core.setRule("queryChatroomInfo", ZMCoreAnswer::success(testCase.reply));
        std::shared_ptr<ZMChatRoomInfo> info;
        ZMEventRecorder done;
        client.getChatRoomInfo(
            "room", 2, 2,
            [&](const std::shared_ptr<ZMChatRoomInfo>& result) {
                info = result;
                done.record("info");
            },
            ZMErrorBlock{});
        ASSERT_TRUE(done.waitForCount(1));
        ASSERT_TRUE(info);
        EXPECT_EQ(info->targetId, "room");
        EXPECT_EQ(info->memberOrder, 2u);
        EXPECT_EQ(info->totalMemberCount, testCase.total);
        ASSERT_EQ(info->memberInfoArray.has_value(), testCase.members.has_value());
        if (!testCase.members) continue;
        ASSERT_EQ(info->memberInfoArray->size(), testCase.members->size());
        for (size_t i = 0; i < testCase.members->size(); ++i) {
            EXPECT_EQ((*info->memberInfoArray)[i]->userId, (*testCase.members)[i].first);
            EXPECT_EQ((*info->memberInfoArray)[i]->joinTime, (*testCase.members)[i].second);
        }
    }
    core.setRule("queryChatroomInfo", ZMCoreAnswer::failure(4321));
    core.logger().clear();
    CallOutcome outcome;
    client.getChatRoomInfo("room", 2, 1, ZMChatRoomInfoSuccessBlock{}, outcome.error());
    settle();
    EXPECT_EQ(outcome.code, 4321);
    EXPECT_TRUE(core.logger().lines().empty());
}

TEST_F(ClientTest, HistoryChecksItsArgumentsInOrderThenTheMessageStore) {
    struct Case {
        std::string name;
        int64_t recordTime;
        int32_t count;
        uint64_t order;
        bool storeEnabled;
        int32_t code;  // 0: sent
        std::string line;
    };
    const std::vector<Case> cases = {
        {"count 200", 0, 200, 1, true, 0, ""},
        {"count 201", 0, 201, 0, true, ZMErrorInvalidMessageCount, paramLine(kHistory, "count:201")},
        {"count 0", 0, 0, 0, true, ZMErrorInvalidMessageCount, paramLine(kHistory, "count:0")},
        {"count -5", 0, -5, 0, true, ZMErrorInvalidMessageCount, paramLine(kHistory, "count:-5")},
        {"order 2", 0, 10, 2, true, ZMErrorInvalidHistoryOrder, paramLine(kHistory, "order:2")},
        {"record time -1", -1, 10, 0, true, ZMErrorInvalidRecordTime, paramLine(kHistory, "recordTime:-1")},
        {"store disabled", 5, 10, 0, false, ZMErrorMessageStoreDisabled, ""},
        {"bad count wins over store", 5, 0, 0, false, ZMErrorInvalidMessageCount, paramLine(kHistory, "count:0")},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        core.setChatroomMessageStoreEnabled(testCase.storeEnabled);
        core.clearRequests();
        core.logger().clear();
        CallOutcome outcome;
        client.getRemoteChatroomHistoryMessages("r", testCase.recordTime, testCase.count, testCase.order,
                                                ZMHistorySuccessBlock{}, outcome.error());
        outcome.returned = true;
        settle();
        if (testCase.code == 0) {
            EXPECT_EQ(outcome.errors, 0);
            ASSERT_EQ(core.requests().size(), 1u);
            EXPECT_EQ(core.requests()[0].arguments,
                      (ZMValue{{"chatroomId", "r"}, {"sendTime", testCase.recordTime}, {"limit", testCase.count},
                               {"order", testCase.order}, {"channelId", ""}}));
            continue;
        }
        EXPECT_EQ(outcome.code, testCase.code);
        EXPECT_TRUE(outcome.beforeReturn);
        EXPECT_TRUE(core.requests().empty());
        const auto lines = core.logger().lines();
        if (testCase.line.empty()) {
            EXPECT_TRUE(lines.empty());
        } else {
            EXPECT_EQ(lines, (std::vector<ZMLogLine>{line(2, ZMLogTypeDiagnostic, kClientTag, testCase.line)}));
        }
    }
}

TEST_F(ClientTest, HistoryHandsTheCorePageToTheCaller) {
    auto message = std::make_shared<ZMMessage>();
    message->targetId = "r";
    ZMCoreAnswer page;
    page.messages = {message};
    page.syncTime = 987;
    page.hasMore = true;
    core.setRule("getChatroomHistoryMessage", page);
    std::vector<std::shared_ptr<ZMMessage>> received;
    int64_t time = 0;
    ZMEventRecorder done;
    client.getRemoteChatroomHistoryMessages(
        "r", 0, 10, 0,
        [&](const std::vector<std::shared_ptr<ZMMessage>>& messages, int64_t syncTime) {
            received = messages;
            time = syncTime;
            done.record("page");
        },
        ZMErrorBlock{});
    ASSERT_TRUE(done.waitForCount(1));
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0], message);
    EXPECT_EQ(time, 987);

    core.setRule("getChatroomHistoryMessage", ZMCoreAnswer::failure(9));
    CallOutcome failed;
    client.getRemoteChatroomHistoryMessages("r", 0, 10, 0, ZMHistorySuccessBlock{}, failed.error());
    settle();
    EXPECT_EQ(failed.code, 9);
}

TEST_F(ClientTest, BindingChecksBothIdsAndLogsTheResult) {
    struct Case {
        std::string name;
        ZMValue room;
        ZMValue rtc;
        int32_t code;  // 0: sent
        std::vector<std::string> clientLines;
    };
    const std::vector<Case> cases = {
        {"absent rtc id", "r", nullptr, ZMErrorInvalidRtcRoomId, {"Parameter error，rtcRoomId is not NSString"}},
        {"empty rtc id", "r", "", ZMErrorInvalidRtcRoomId, {"Parameter error，rtcRoomId is nil"}},
        {"room id first", "", "", ZMErrorInvalidParameter,
         {"Parameter error，targetId is nil",
          paramLine("bindChatRoom:withRTCRoom:success:error:", "chatRoomId:")}},
        {"valid", "r", "rtc-1", 0, {}},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        core.clearRequests();
        core.logger().clear();
        CallOutcome outcome;
        client.bindChatRoom(testCase.room, testCase.rtc, outcome.success(), outcome.error());
        settle();
        EXPECT_EQ(linesOf(kClientTag), testCase.clientLines);
        if (testCase.code != 0) {
            EXPECT_EQ(outcome.code, testCase.code);
            EXPECT_TRUE(core.requests().empty());
        } else {
            EXPECT_EQ(outcome.successes, 1);
            ASSERT_EQ(core.requests().size(), 1u);
            EXPECT_EQ(core.requests()[0].arguments, (ZMValue{{"chatroomId", "r"}, {"rtcRoomId", "rtc-1"}}));
            EXPECT_EQ(core.logger().linesWithTag(ZM_BINDCHATROOM),
                      (std::vector<ZMLogLine>{line(4, 1, ZM_BINDCHATROOM, "room_id:r,code:0")}));
        }
    }
    core.setRule("bindRTCRoomForChatroom", ZMCoreAnswer::failure(55));
    core.logger().clear();
    CallOutcome failed;
    client.bindChatRoom("r", "rtc", failed.success(), failed.error());
    settle();
    EXPECT_EQ(failed.code, 55);
    EXPECT_EQ(core.logger().linesWithTag(ZM_BINDCHATROOM),
              (std::vector<ZMLogLine>{line(2, 1, ZM_BINDCHATROOM, "room_id:r,code:55")}));
}
