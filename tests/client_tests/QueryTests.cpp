// Room info, history and binding, and the argument validators every operation uses.
#include "ClientTestSupport.h"

TEST_F(ClientTest, QueriesCheckTheirArgumentsInOrderBeforeAsking) {
    const std::string info = "Parameter Error, getChatRoomInfo:count:order:success:error:, targetId:r";
    const std::string history = "Parameter Error, getRemoteChatroomHistoryMessages:recordTime:count:order:success:error:, ";
    using Lines = std::vector<ZMLogLine>;
    const auto ok = [](CallOutcome& o) { return [s = o.success()](const auto&...) { s(); }; };
    struct Row { std::function<void(CallOutcome&)> call; int32_t code; Lines lines; Requests sent; int store = 0; };
    auto infoRow = [&](uint64_t order, int32_t count, bool accepted) {
        return Row{[=, this](CallOutcome& o) { client.getChatRoomInfo("r", count, order, ok(o), o.error()); },
                   accepted ? 0 : ZMErrorInvalidMemberOrder, accepted ? Lines{} : Lines{clientLine(2, info)},
                   accepted ? Requests{{"queryChatroomInfo", {{"chatroomId", "r"}, {"limit", count}, {"order", order}}}}
                            : Requests{}};
    };
    // store: 0 on, 1 off, 2 no navigation data (reads as off)
    auto historyRow = [&](int64_t time, int32_t count, uint64_t order, int store, int32_t code, std::string line) {
        return Row{[=, this](CallOutcome& o) {
                       client.getRemoteChatroomHistoryMessages("r", time, count, order, ok(o), o.error()); },
                   code, line.empty() ? Lines{} : Lines{clientLine(2, history + line)},
                   code ? Requests{} : Requests{{"getChatroomHistoryMessage", {{"chatroomId", "r"}, {"sendTime", time},
                                                 {"limit", count}, {"order", order}, {"channelId", ""}}}}, store};
    };
    auto bindRow = [&](ZMValue room, ZMValue rtc, int32_t code, Lines lines) {  // the core fails "rtc" with 55
        return Row{[=, this](CallOutcome& o) { client.bindChatRoom(room, rtc, o.success(), o.error()); }, code, lines,
                   code == 0 || code == 55 ? Requests{{"bindRTCRoomForChatroom", {{"chatroomId", "r"}, {"rtcRoomId", rtc}}}}
                                           : Requests{}};
    };
    const std::vector<Row> rows = {
        infoRow(0, 10, false), infoRow(3, 10, false), infoRow(UINT64_MAX, 10, false), infoRow(1, 0, true),
        infoRow(2, -1, true),  // the count goes unchanged
        historyRow(0, 200, 1, 0, 0, ""), historyRow(0, 201, 0, 0, ZMErrorInvalidMessageCount, "count:201"),
        historyRow(0, 0, 0, 0, ZMErrorInvalidMessageCount, "count:0"),
        historyRow(0, -5, 0, 0, ZMErrorInvalidMessageCount, "count:-5"),
        historyRow(0, 10, 2, 0, ZMErrorInvalidHistoryOrder, "order:2"),
        historyRow(-1, 10, 0, 0, ZMErrorInvalidRecordTime, "recordTime:-1"),
        historyRow(5, 10, 0, 1, ZMErrorMessageStoreDisabled, ""), historyRow(5, 10, 0, 2, ZMErrorMessageStoreDisabled, ""),
        historyRow(5, 0, 0, 1, ZMErrorInvalidMessageCount, "count:0"),  // the count is checked before the store
        bindRow("r", nullptr, ZMErrorInvalidRtcRoomId, {clientLine(6, "Parameter error，rtcRoomId is not NSString")}),
        bindRow("r", "", ZMErrorInvalidRtcRoomId, {clientLine(6, "Parameter error，rtcRoomId is nil")}),
        bindRow("", "", ZMErrorInvalidParameter, {clientLine(6, "Parameter error，targetId is nil"),  // the room first
                clientLine(2, "Parameter Error, bindChatRoom:withRTCRoom:success:error:, chatRoomId:")}),
        bindRow("r", "rtc-1", 0, lines(ZM_BINDCHATROOM, 4, {"room_id:r,code:0"})),
        bindRow("r", "rtc", 55, lines(ZM_BINDCHATROOM, 2, {"room_id:r,code:55"}))};
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        core.setChatroomMessageStoreEnabled(rows[i].store != 1);
        core.setNaviDataAvailable(rows[i].store != 2);
        if (rows[i].code == 55) core.setRule("bindRTCRoomForChatroom", ZMCoreAnswer::failure(55));
        forget();
        auto o = call(rows[i].call);
        EXPECT_EQ(std::tuple(o->code.load(), o->successes.load(), o->beforeReturn.load()),
                  std::tuple(rows[i].code, rows[i].code == 0, rows[i].sent.empty()));
        EXPECT_EQ(core.logger().lines(), rows[i].lines);
        EXPECT_EQ(sent(), rows[i].sent);
    }
}

TEST_F(ClientTest, QueryAnswersReachTheCallerAsRecordsOrCodes) {
    using Members = std::vector<std::pair<std::string, int64_t>>;
    for (const auto& [reply, total, members] : std::vector<std::tuple<ZMValue, int32_t, std::optional<Members>>>{
             {{{"memberInfoArray", {{{"userId", "u1"}, {"joinTime", 11}}, {{"userId", "u2"}, {"joinTime", 22}}}}}, 0,
              Members{{"u1", 11}, {"u2", 22}}},
             {{{"totalMemberCount", 5}}, 5, std::nullopt},
             {{{"totalMemberCount", 321}, {"memberInfoArray", ZMValue::array()}}, 321, std::nullopt}}) {
        SCOPED_TRACE(total);
        core.setRule("queryChatroomInfo", ZMCoreAnswer::success(reply));
        std::shared_ptr<ZMChatRoomInfo> info;
        client.getChatRoomInfo("room", 2, 2, [&](const auto& result) { info = result; }, {});
        settle();
        ASSERT_TRUE(info);
        EXPECT_EQ(std::tuple(info->targetId, info->memberOrder, info->totalMemberCount), std::tuple("room", 2u, total));
        std::optional<Members> received;
        if (info->memberInfoArray) received.emplace();
        for (const auto& m : info->memberInfoArray.value_or(decltype(info->memberInfoArray)::value_type{})) {
            received->emplace_back(m->userId.value_or("?"), m->joinTime);
        }
        EXPECT_EQ(received, members);
    }
    ZMCoreAnswer page;
    page.messages = {std::make_shared<ZMMessage>()};
    page.syncTime = 987;
    core.setRule("getChatroomHistoryMessage", page);
    std::pair<std::vector<std::shared_ptr<ZMMessage>>, int64_t> received;
    client.getRemoteChatroomHistoryMessages("r", 0, 10, 0, [&](const auto& m, int64_t t) { received = {m, t}; }, {});
    settle();
    EXPECT_EQ(received, std::pair(page.messages, int64_t{987}));
    core.setRule("queryChatroomInfo", ZMCoreAnswer::failure(4321));
    core.setRule("getChatroomHistoryMessage", ZMCoreAnswer::failure(9));
    core.logger().clear();
    EXPECT_EQ(call([&](CallOutcome& o) { client.getChatRoomInfo("room", 2, 1, {}, o.error()); })->code, 4321);
    EXPECT_EQ(call([&](CallOutcome& o) { client.getRemoteChatroomHistoryMessages("r", 0, 10, 0, {}, o.error()); })->code, 9);
    EXPECT_TRUE(core.logger().lines().empty());
}

TEST_F(ClientTest, ValidatorsAnswerAndWriteOneLineNamingTheFailedRule) {
    using P = ZMChatRoomClientTestPeer;
    using Lines = std::vector<ZMLogLine>;
    std::string emoji;  // U+1F600, two UTF-16 units each
    for (int i = 0; i < 33; ++i) emoji += "\xF0\x9F\x98\x80";
    const auto id = [](const ZMValue& v) { return int32_t{P::isValidTargetId(v)}; };
    const auto rtc = [](const ZMValue& v) { return int32_t{P::isValidRtcRoomId(v)}; };
    const auto key = [](const ZMValue& v) { return int32_t{P::isValidKey(v)}; };
    const auto value = [](const ZMValue& v) { return int32_t{P::isValidValue(v)}; };
    const auto extra = [](const ZMValue& v) { return int32_t{P::isValidNotificationExtra(v)}; };
    const auto keyThenValue = [](const ZMValue& v) { return P::isValidKey(v[0], v[1]); };  // a code, 0 when valid
    const std::vector<std::tuple<std::function<int32_t(const ZMValue&)>, ZMValue, int32_t, int32_t, std::string>> rows = {
        {id, nullptr, 0, 6, "targetId is not NSString"}, {id, 42, 0, 6, "targetId is not NSString"},
        {id, "ab\xC3", 0, 6, "targetId is not NSString"},  // invalid UTF-8
        {id, "", 0, 6, "targetId is nil"}, {id, std::string(64, 'a'), 1, 0, ""},
        {id, std::string(65, 'a'), 0, 6, "targetId length More than 64"},
        {id, emoji.substr(4), 1, 0, ""}, {id, emoji, 0, 6, "targetId length More than 64"},  // 64 and 66 units
        {rtc, nullptr, 0, 6, "rtcRoomId is not NSString"}, {rtc, "", 0, 6, "rtcRoomId is nil"},
        {rtc, std::string(5000, 'r'), 1, 0, ""},  // no upper limit
        {key, nullptr, 0, 2, "key is not NSString"}, {key, "", 0, 2, "key is empty or length More than 128"},
        {key, std::string(128, 'k'), 1, 0, ""},
        {key, std::string(129, '!'), 0, 2, "key is empty or length More than 128"},  // before the character test
        {key, "a b", 0, 2, "key is contains Illegal character"},
        {value, nullptr, 0, 2, "value is not NSString"}, {value, "", 0, 2, "value is empty or length More than 4096"},
        {value, std::string(4096, 'v'), 1, 0, ""},
        {value, std::string(4097, 'v'), 0, 2, "value is empty or length More than 4096"}, {value, "a b!\n", 1, 0, ""},
        {extra, nullptr, 1, 0, ""}, {extra, "", 1, 0, ""}, {extra, std::string(2048, 'e'), 1, 0, ""},
        {extra, std::string(2049, 'e'), 0, 2, "notificationExtra length More than 2048"},
        {keyThenValue, ZMValue::array({"a b", ""}), ZMErrorInvalidKVKey, 2, "key is contains Illegal character"},
        {keyThenValue, ZMValue::array({"key", ""}), ZMErrorInvalidKVValue, 2, "value is empty or length More than 4096"},
        {keyThenValue, ZMValue::array({"key", "value"}), 0, 0, ""}};
    for (size_t i = 0; i < rows.size(); ++i) {
        const auto& [check, v, answer, level, text] = rows[i];
        SCOPED_TRACE(i);
        core.logger().clear();
        EXPECT_EQ(check(v), answer);
        EXPECT_EQ(core.logger().lines(), text.empty() ? Lines{} : Lines{clientLine(level, "Parameter error，" + text)});
    }
    core.logger().clear();
    EXPECT_FALSE(P::isValidNotificationExtra(7));
    EXPECT_EQ(core.logger().lines(), Lines{clientLine(2, "notificationExtra is illegitimate")});
}
