#include "ClientTestSupport.h"

namespace {

const std::string kInfo = "Parameter Error, getChatRoomInfo:count:order:success:error:, ";
const std::string kHistory =
    "Parameter Error, getRemoteChatroomHistoryMessages:recordTime:count:order:success:error:, ";

}  // namespace

TEST_F(ClientTest, RoomInfoAcceptsOrderOneOrTwoAndPassesTheCountUnchanged) {
    const std::vector<std::tuple<uint64_t, int32_t, bool>> cases = {  // order, count, sent
        {0, 10, false}, {3, 10, false}, {UINT64_MAX, 10, false}, {1, 0, true}, {2, -1, true}};
    for (const auto& [order, count, accepted] : cases) {
        SCOPED_TRACE(order);
        forget();
        auto outcome = call([&, n = count, o = order](CallOutcome& out) {
            client.getChatRoomInfo("r", n, o, {}, out.error());
        });
        EXPECT_EQ(outcome->code, accepted ? 0 : ZMErrorInvalidMemberOrder);
        EXPECT_EQ(core.logger().lines(), lines(kClientTag, 2, accepted ? Strings{} : Strings{kInfo + "targetId:r"},
                                               ZMLogTypeDiagnostic));
        EXPECT_EQ(sent(), (accepted ? Requests{{"queryChatroomInfo",
                                                {{"chatroomId", "r"}, {"limit", count}, {"order", order}}}}
                                    : Requests{}));
    }
}

TEST_F(ClientTest, RoomInfoReplyBecomesARecord) {
    using Members = std::vector<std::pair<std::string, int64_t>>;
    const std::vector<std::tuple<std::string, ZMValue, int32_t, std::optional<Members>>> cases = {
        {"members, no total",
         {{"memberInfoArray", {{{"userId", "u1"}, {"joinTime", 11}}, {{"userId", "u2"}, {"joinTime", 22}}}}}, 0,
         Members{{"u1", 11}, {"u2", 22}}},
        {"no member array", {{"totalMemberCount", 5}}, 5, std::nullopt},
        {"empty member array", {{"totalMemberCount", 321}, {"memberInfoArray", ZMValue::array()}}, 321, std::nullopt},
    };
    for (const auto& [name, reply, total, members] : cases) {
        SCOPED_TRACE(name);
        core.setRule("queryChatroomInfo", ZMCoreAnswer::success(reply));
        std::shared_ptr<ZMChatRoomInfo> info;
        client.getChatRoomInfo("room", 2, 2, [&](const auto& result) { info = result; }, {});
        settle();
        ASSERT_TRUE(info);
        EXPECT_EQ(info->targetId, "room");
        EXPECT_EQ(info->memberOrder, 2u);
        EXPECT_EQ(info->totalMemberCount, total);
        std::optional<Members> received;
        if (info->memberInfoArray) {
            received.emplace();
            for (const auto& m : *info->memberInfoArray) received->emplace_back(m->userId.value_or("?"), m->joinTime);
        }
        EXPECT_EQ(received, members);
    }
    core.setRule("queryChatroomInfo", ZMCoreAnswer::failure(4321));
    core.logger().clear();
    EXPECT_EQ(call([&](CallOutcome& o) { client.getChatRoomInfo("room", 2, 1, {}, o.error()); })->code, 4321);
    EXPECT_TRUE(core.logger().lines().empty());
}

TEST_F(ClientTest, HistoryChecksItsArgumentsInOrderThenTheMessageStore) {
    // The message store as the navigation data has it: no data at all reads as switched off.
    enum Store { kOn, kOff, kNoNaviData };
    // record time, count, order, store, code (0: sent), line after the operation's name
    const std::vector<std::tuple<int64_t, int32_t, uint64_t, Store, int32_t, std::string>> cases = {
        {0, 200, 1, kOn, 0, ""},
        {0, 201, 0, kOn, ZMErrorInvalidMessageCount, "count:201"},
        {0, 0, 0, kOn, ZMErrorInvalidMessageCount, "count:0"},
        {0, -5, 0, kOn, ZMErrorInvalidMessageCount, "count:-5"},
        {0, 10, 2, kOn, ZMErrorInvalidHistoryOrder, "order:2"},
        {-1, 10, 0, kOn, ZMErrorInvalidRecordTime, "recordTime:-1"},
        {5, 10, 0, kOff, ZMErrorMessageStoreDisabled, ""},
        {5, 10, 0, kNoNaviData, ZMErrorMessageStoreDisabled, ""},
        {5, 0, 0, kOff, ZMErrorInvalidMessageCount, "count:0"},  // the count is checked before the store
    };
    for (const auto& [time, count, order, store, code, line] : cases) {
        SCOPED_TRACE(::testing::Message() << count << " " << order << " " << time << " " << store);
        core.setChatroomMessageStoreEnabled(store != kOff);
        core.setNaviDataAvailable(store != kNoNaviData);
        forget();
        auto outcome = call([&, t = time, n = count, o = order](CallOutcome& out) {
            client.getRemoteChatroomHistoryMessages("r", t, n, o, {}, out.error());
        });
        EXPECT_EQ(outcome->code, code);
        EXPECT_EQ(outcome->beforeReturn, code != 0);
        EXPECT_EQ(core.logger().lines(),
                  lines(kClientTag, 2, line.empty() ? Strings{} : Strings{kHistory + line}, ZMLogTypeDiagnostic));
        EXPECT_EQ(sent(), (code ? Requests{}
                                : Requests{{"getChatroomHistoryMessage", {{"chatroomId", "r"}, {"sendTime", time},
                                            {"limit", count}, {"order", order}, {"channelId", ""}}}}));
    }
}

TEST_F(ClientTest, HistoryHandsTheCorePageToTheCaller) {
    auto message = std::make_shared<ZMMessage>();
    ZMCoreAnswer page;
    page.messages = {message};
    page.syncTime = 987;
    core.setRule("getChatroomHistoryMessage", page);
    std::vector<std::shared_ptr<ZMMessage>> received;
    int64_t time = 0;
    client.getRemoteChatroomHistoryMessages(
        "r", 0, 10, 0, [&](const auto& messages, int64_t syncTime) { received = messages; time = syncTime; }, {});
    settle();
    EXPECT_EQ(received, (std::vector<std::shared_ptr<ZMMessage>>{message}));
    EXPECT_EQ(time, 987);
    core.setRule("getChatroomHistoryMessage", ZMCoreAnswer::failure(9));
    auto failed = call([&](CallOutcome& o) { client.getRemoteChatroomHistoryMessages("r", 0, 10, 0, {}, o.error()); });
    EXPECT_EQ(failed->code, 9);
}

TEST_F(ClientTest, BindingChecksBothIdsAndLogsTheResult) {
    const std::vector<std::tuple<ZMValue, ZMValue, int32_t, std::vector<ZMLogLine>>> cases = {  // room, rtc, code
        {"r", nullptr, ZMErrorInvalidRtcRoomId, {clientLine(6, "Parameter error，rtcRoomId is not NSString")}},
        {"r", "", ZMErrorInvalidRtcRoomId, {clientLine(6, "Parameter error，rtcRoomId is nil")}},
        {"", "", ZMErrorInvalidParameter,  // the room id is checked first
         {clientLine(6, "Parameter error，targetId is nil"),
          clientLine(2, "Parameter Error, bindChatRoom:withRTCRoom:success:error:, chatRoomId:")}},
        {"r", "rtc-1", 0, lines(ZM_BINDCHATROOM, 4, {"room_id:r,code:0"})},
        {"r", "rtc", 55, lines(ZM_BINDCHATROOM, 2, {"room_id:r,code:55"})},  // the core's failure
    };
    for (const auto& [room, rtc, code, written] : cases) {
        SCOPED_TRACE(rtc.dump());
        forget();
        if (code == 55) core.setRule("bindRTCRoomForChatroom", ZMCoreAnswer::failure(55));
        auto outcome = call([&, room = room, rtc = rtc](CallOutcome& o) {
            client.bindChatRoom(room, rtc, o.success(), o.error());
        });
        EXPECT_EQ(core.logger().lines(), written);
        EXPECT_EQ(outcome->successes, code == 0 ? 1 : 0);
        EXPECT_EQ(outcome->code, code);
        EXPECT_EQ(sent(), (code == 0 || code == 55
                               ? Requests{{"bindRTCRoomForChatroom", {{"chatroomId", "r"}, {"rtcRoomId", rtc}}}}
                               : Requests{}));
    }
}
