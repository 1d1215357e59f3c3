#include "KVTestSupport.h"

// Single, batch and full reads: their check orders with exact lines, the
// synchronisation flag they consult (or only pass on), and what the
// application receives from the core's answers.

namespace {

const std::string kGetOperation = "getChatRoomEntry:key:success:error:";
const std::string kBatchOperation = "getChatRoomEntriesByBatch:keys:success:error:";
const std::string kAllOperation = "getAllChatRoomEntries:success:error:";

const ZMLogLine kNotSynchronised =
    diagnostic(6, "Chatroom KV not synchronized（Local data and server are not synchronized）");
const ZMLogLine kFromLocal = diagnostic(6, "Chatroom KV synchronize from local DB");
const ZMLogLine kFromServer = diagnostic(6, "Chatroom KV synchronize from server");

}  // namespace

TEST_F(KVTest, SingleGetChecksKeyThenSwitchThenSynchronisation) {
    const std::string T = ZM_A_GET_CHATROOM_KV_T;
    const std::string R = ZM_A_GET_CHATROOM_KV_R;
    struct Row {
        std::string name;
        ZMValue room;
        ZMValue key;
        bool storeOn;
        int32_t code;
        std::vector<ZMLogLine> lines;
    };
    const std::vector<Row> rows = {
        {"empty room, store off", "", "k1", false, ZMErrorInvalidParameter,
         {opLine(4, T, "room_id:,key:k1"), kRoomIdNil, diagnostic(2, "Parameter Error, " + kGetOperation + ", chatroomId:"),
          opLine(4, R, "room_id:,code:34210")}},
        {"bad key, store off, never synchronised", "r1", "a b", false, ZMErrorInvalidKVKey,
         {opLine(4, T, "room_id:r1,key:a b"), kKeyIllegal,
          diagnostic(2, "Parameter Error, " + kGetOperation + ", chatroomId:r1, key:a b"),
          opLine(4, R, "room_id:r1,code:34260")}},
        {"store off and not synchronised: the switch first", "r1", "k1", false, ZMErrorKVStorageDisabled,
         {opLine(4, T, "room_id:r1,key:k1"), kStoreOff, opLine(4, R, "room_id:r1,code:23426")}},
        {"never synchronised", "r1", "k1", true, ZMErrorKVNotSynchronized,
         {opLine(4, T, "room_id:r1,key:k1"), kNotSynchronised, opLine(4, R, "room_id:r1,code:34004")}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        expectRefused(
            row.storeOn, [&](KVOutcome& outcome) { client.getChatRoomEntry(row.room, row.key, outcome.entriesSuccess(), outcome.error()); },
            row.code, row.lines);
    }
    settle();
    EXPECT_TRUE(core.requests().empty());
}

// The answer passes through unfiltered; every failure of the read becomes 23427.
TEST_F(KVTest, SingleGetHandsOnTheCoresDictionaryAndMapsEveryFailureTo23427) {
    auto filter = std::make_shared<KVFullFilter>(timeline, answering(ZMValue::object()));
    client.setZMChatRoomKVStatusFilterDelegate(filter);
    markSynchronised("r1");
    const ZMValue found = {{"k1", "v1"}};
    const std::vector<std::pair<ZMCoreAnswer, ZMLogLine>> rows = {
        {ZMCoreAnswer::success(found), opLine(4, ZM_A_GET_CHATROOM_KV_R, "room_id:r1,code:0,kv:" + pretty(found))},
        {ZMCoreAnswer::failure(23425), opLine(2, ZM_A_GET_CHATROOM_KV_R, "room_id:r1,code:23427")},
        {ZMCoreAnswer::failure(500), opLine(2, ZM_A_GET_CHATROOM_KV_R, "room_id:r1,code:23427")},
    };
    for (const auto& [answer, resultLine] : rows) {
        SCOPED_TRACE(answer.code);
        core.setRule("getChatRoomEntry", answer);
        forget();
        KVOutcome outcome;
        client.getChatRoomEntry("r1", "k1", outcome.entriesSuccess(), outcome.error());
        settle();
        EXPECT_EQ(sent(), (Requests{{"getChatRoomEntry", {{"chatroomId", "r1"}, {"key", "k1"}}}}));
        EXPECT_EQ(outcome.total(), 1);
        EXPECT_FALSE(outcome.onCallerThread);
        EXPECT_FALSE(outcome.onOperationQueue);
        if (answer.code == 0) {
            EXPECT_EQ(outcome.entries, found);
        } else {
            EXPECT_EQ(outcome.code, ZMErrorKVEntryQueryFailed);
        }
        EXPECT_EQ(logged(ZM_A_GET_CHATROOM_KV_R), (std::vector<ZMLogLine>{resultLine}));
    }
    EXPECT_TRUE(filterEvents(timeline).empty());  // the filter was never asked
}

TEST_F(KVTest, BatchGetChecksKeysSwitchAndSynchronisationButSetsNoUpperBound) {
    const std::string T = ZM_A_GET_CHATROOM_BATCH_KV_T;
    const std::string R = ZM_A_GET_CHATROOM_BATCH_KV_R;
    const ZMValue oneKey = ZMValue::array({"k1"});
    struct Row {
        std::string name;
        ZMValue room;
        ZMValue keys;
        bool storeOn;
        int32_t code;
        std::vector<ZMLogLine> lines;
    };
    const std::vector<Row> rows = {
        {"empty room, store off", "", oneKey, false, ZMErrorInvalidParameter,
         {opLine(4, T, "room_id:,keys:" + pretty(oneKey)), kRoomIdNil,
          diagnostic(2, "Parameter Error, " + kBatchOperation + ", chatroomId:"), opLine(4, R, "room_id:,code:34210")}},
        {"no keys", "r1", ZMValue::array(), true, ZMErrorKVKeysEmpty,
         {opLine(4, T, "room_id:r1,keys:"), diagnostic(2, "Parameter Error, " + kBatchOperation + ", chatroomId:r1, keys:[]"),
          opLine(4, R, "room_id:r1,code:34261")}},
        {"absent keys", "r1", nullptr, true, ZMErrorKVKeysEmpty,
         {opLine(4, T, "room_id:r1,keys:"),
          diagnostic(2, "Parameter Error, " + kBatchOperation + ", chatroomId:r1, keys:(null)"),
          opLine(4, R, "room_id:r1,code:34261")}},
        {"keys in a dictionary", "r1", {{"k1", "v1"}}, true, ZMErrorKVKeysEmpty,
         {opLine(4, T, "room_id:r1,keys:" + pretty({{"k1", "v1"}})),
          diagnostic(2, "Parameter Error, " + kBatchOperation + ", chatroomId:r1, keys:{\"k1\":\"v1\"}"),
          opLine(4, R, "room_id:r1,code:34261")}},
        {"an illegal key with the store off", "r1", ZMValue::array({"k1", "a b"}), false, ZMErrorInvalidKVKey,
         {opLine(4, T, "room_id:r1,keys:" + pretty(ZMValue::array({"k1", "a b"}))), kKeyIllegal,
          diagnostic(2, "Parameter Error, " + kBatchOperation + ", chatroomId:r1, key:a b"),
          opLine(4, R, "room_id:r1,code:34260")}},
        {"two illegal keys: only the first is examined", "r1", ZMValue::array({"a b", "c d"}), true, ZMErrorInvalidKVKey,
         {opLine(4, T, "room_id:r1,keys:" + pretty(ZMValue::array({"a b", "c d"}))), kKeyIllegal,
          diagnostic(2, "Parameter Error, " + kBatchOperation + ", chatroomId:r1, key:a b"),
          opLine(4, R, "room_id:r1,code:34260")}},
        {"store off", "r1", oneKey, false, ZMErrorKVStorageDisabled,
         {opLine(4, T, "room_id:r1,keys:" + pretty(oneKey)), kStoreOff, opLine(4, R, "room_id:r1,code:23426")}},
        {"not synchronised", "r1", oneKey, true, ZMErrorKVNotSynchronized,
         {opLine(4, T, "room_id:r1,keys:" + pretty(oneKey)), kNotSynchronised, opLine(4, R, "room_id:r1,code:34004")}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        expectRefused(
            row.storeOn, [&](KVOutcome& outcome) { client.getChatRoomEntriesByBatch(row.room, row.keys, outcome.entriesSuccess(), outcome.error()); },
            row.code, row.lines);
    }
    settle();
    EXPECT_TRUE(core.requests().empty());
}

// Eleven keys go out (no size limit); the success line carries 34004; a core
// failure reaches the app unchanged and without a line of the module.
TEST_F(KVTest, BatchGetSendsAnyNumberOfKeysAndPassesTheAnswerThroughUnfiltered) {
    auto filter = std::make_shared<KVFullFilter>(timeline, answering(ZMValue::object()));
    client.setZMChatRoomKVStatusFilterDelegate(filter);
    markSynchronised("r1");
    ZMValue keys = ZMValue::array();
    for (int i = 0; i < 11; ++i) keys.push_back(numbered("k", i));
    const ZMValue found = {{"k1", "v1"}, {"k2", "v2"}};
    for (const auto& answer : {ZMCoreAnswer::success(found), ZMCoreAnswer::failure(500)}) {
        SCOPED_TRACE(answer.code);
        core.setRule("getChatRoomEntriesByBatch", answer);
        forget();
        KVOutcome outcome;
        client.getChatRoomEntriesByBatch("r1", keys, outcome.entriesSuccess(), outcome.error());
        settle();
        EXPECT_EQ(sent(), (Requests{{"getChatRoomEntriesByBatch", {{"chatroomId", "r1"}, {"keys", keys}}}}));
        EXPECT_EQ(outcome.total(), 1);
        EXPECT_FALSE(outcome.onCallerThread);
        EXPECT_FALSE(outcome.onOperationQueue);
        if (answer.code == 0) {
            EXPECT_EQ(outcome.entries, found);
            EXPECT_EQ(logged(ZM_A_GET_CHATROOM_BATCH_KV_R),
                      lines(ZM_A_GET_CHATROOM_BATCH_KV_R, 4, {"room_id:r1,code:34004,count:2,kv:" + pretty(found)}));
        } else {
            EXPECT_EQ(outcome.code, 500);
            EXPECT_TRUE(logged(ZM_A_GET_CHATROOM_BATCH_KV_R).empty());
        }
    }
    EXPECT_TRUE(filterEvents(timeline).empty());
}

TEST_F(KVTest, GetAllIsNeverRefusedForTheSyncStateAndTellsTheCoreInstead) {
    // Held, so that the answer's line cannot overtake the caller's source line.
    core.holdRequests("getAllChatRoomEntries");
    for (const bool synchronised : {false, true}) {
        SCOPED_TRACE(synchronised);
        if (synchronised) markSynchronised("r1");
        forget();
        KVOutcome outcome;
        client.getAllChatRoomEntries("r1", outcome.entriesSuccess(), outcome.error());
        settle();
        ASSERT_TRUE(answerHeld(ZMCoreAnswer::success()));
        settle();
        EXPECT_EQ(outcome.successes, 1);
        EXPECT_FALSE(outcome.onCallerThread);
        EXPECT_FALSE(outcome.onOperationQueue);
        EXPECT_EQ(sent(), (Requests{{"getAllChatRoomEntries", {{"chatroomId", "r1"}, {"isSync", synchronised}}}}));
        // The source line is written after scheduling, before the answer's line.
        EXPECT_EQ(allLines(), (std::vector<ZMLogLine>{opLine(4, ZM_A_GET_CHATROOM_ALL_KV_T, "room_id:r1"),
                                                      synchronised ? kFromLocal : kFromServer,
                                                      opLine(4, ZM_A_GET_CHATROOM_ALL_KV_R, "room_id:r1,code:0,count:0,kv:")}));
    }
}

TEST_F(KVTest, GetAllRefusalsAndFailuresWriteTheirLinesInTheirOwnOrder) {
    struct Row {
        std::string name;
        ZMValue room;
        bool storeOn;
        ZMCoreAnswer answer;
        int32_t code;
        std::vector<ZMLogLine> lines;
    };
    const std::string T = ZM_A_GET_CHATROOM_ALL_KV_T;
    const std::string R = ZM_A_GET_CHATROOM_ALL_KV_R;
    const std::vector<Row> rows = {
        {"empty room, store off", "", false, ZMCoreAnswer::success(), ZMErrorInvalidParameter,
         {opLine(4, T, "room_id:"), kRoomIdNil, diagnostic(2, "Parameter Error, " + kAllOperation + ", chatroomId:"),
          opLine(4, R, "room_id:,code:34210")}},
        // Result line first, then the switch's line: the reverse of the other operations.
        {"store off", "r1", false, ZMCoreAnswer::success(), ZMErrorKVStorageDisabled,
         {opLine(4, T, "room_id:r1"), opLine(4, R, "room_id:r1,code:23426"), kStoreOff}},
        {"core failure", "r1", true, ZMCoreAnswer::failure(23406), 23406,
         {opLine(4, T, "room_id:r1"), kFromServer, opLine(2, R, "room_id:r1,code:23406")}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        core.setChatroomKVStorageEnabled(row.storeOn);
        core.holdRequests("getAllChatRoomEntries");
        forget();
        KVOutcome outcome;
        client.getAllChatRoomEntries(row.room, outcome.entriesSuccess(), outcome.error());
        outcome.returned = true;
        settle();
        if (!core.heldRequests().empty()) {
            ASSERT_TRUE(answerHeld(row.answer));
        }
        settle();
        EXPECT_EQ(outcome.errors, 1);
        EXPECT_EQ(outcome.code, row.code);
        EXPECT_EQ(allLines(), row.lines);
    }
}

// Only a filter implementing getAllChatRoomEntriesFilter changes the result,
// and only then is the filter line written. An answer of nothing, or of
// something that is not a dictionary, leaves no entries.
TEST_F(KVTest, GetAllPassesItsResultThroughTheFiltersGetAllCallbackOnly) {
    const ZMValue all = {{"_secret", "s"}, {"a", "1"}, {"b", "2"}};
    core.setRule("getAllChatRoomEntries", ZMCoreAnswer::success(all));
    struct Row {
        std::string name;
        std::shared_ptr<ZMChatRoomKVStatusFilterDelegate> filter;
        ZMValue delivered;
        Strings filterLines;  // "L-get_chatroom_filter_all_kv-O" texts
    };
    const std::vector<Row> rows = {
        {"no filter", nullptr, all, {}},
        {"a filter without the get-all callback", std::make_shared<KVUpdateFilter>(timeline, answering(nullptr)), all,
         {}},
        {"hiding private keys", std::make_shared<KVFullFilter>(timeline, hidingPrivateKeys()),
         {{"a", "1"}, {"b", "2"}}, {"room_id:r1,before:3,after:2"}},
        {"answering empty", std::make_shared<KVFullFilter>(timeline, answering(ZMValue::object())), ZMValue::object(),
         {"room_id:r1,before:3,after:0"}},
        {"answering nothing", std::make_shared<KVFullFilter>(timeline, answering(nullptr)), ZMValue::object(),
         {"room_id:r1,before:3,after:0"}},
        {"answering an array", std::make_shared<KVFullFilter>(timeline, answering(ZMValue::array({"a"}))),
         ZMValue::object(), {"room_id:r1,before:3,after:0"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        client.setZMChatRoomKVStatusFilterDelegate(row.filter);
        forget();
        KVOutcome outcome;
        client.getAllChatRoomEntries("r1", outcome.entriesSuccess(), outcome.error());
        settle();
        EXPECT_EQ(outcome.successes, 1);
        EXPECT_EQ(outcome.entries, row.delivered);
        EXPECT_EQ(logged(ZM_L_GET_CHATROOM_FILTER_ALL_KV_O),
                  lines(ZM_L_GET_CHATROOM_FILTER_ALL_KV_O, 4, row.filterLines));
        const std::string kv = row.delivered.empty() ? "" : pretty(row.delivered);
        EXPECT_EQ(logged(ZM_A_GET_CHATROOM_ALL_KV_R),
                  lines(ZM_A_GET_CHATROOM_ALL_KV_R, 4,
                        {"room_id:r1,code:0,count:" + std::to_string(row.delivered.size()) + ",kv:" + kv}));
    }
}

// The flag each event leaves behind, read through what the app sees: a single
// get refused with 34004 or sent, and the isSync a full read hands the core.
TEST_F(KVTest, TheSyncFlagFollowsJoinResetFirstSyncQuitDestroyAndLogout) {
    core.setRule("joinChatroom", ZMCoreAnswer::success());
    auto getIsRefused = [&](const std::string& room) {
        KVOutcome outcome;
        client.getChatRoomEntry(room, "k1", outcome.entriesSuccess(), outcome.error());
        settle();  // a read that was sent answers into outcome
        return outcome.code == ZMErrorKVNotSynchronized;
    };
    struct Step {
        std::string name;
        std::function<void()> action;
        std::optional<bool> flag;
    };
    const std::vector<Step> steps = {
        {"join", [&] { joinAndSettle("r1"); }, false},
        {"first sync", [&] { core.raiseStatusChange("r1"); }, true},
        {"join again keeps it", [&] { joinAndSettle("r1"); }, true},
        {"join answered with a reset", [&] {
             core.setRule("joinChatroom", ZMCoreAnswer::failure(ZMCodeJoinedWithReset));
             joinAndSettle("r1");
             core.setRule("joinChatroom", ZMCoreAnswer::success());
         },
         false},
        {"first sync again", [&] { core.raiseStatusChange("r1"); }, true},
        {"quit", [&] { client.quitChatRoom("r1", ZMSuccessBlock{}, ZMErrorBlock{}); }, std::nullopt},
        {"rejoin and sync", [&] { joinAndSettle("r1"); core.raiseStatusChange("r1"); }, true},
        {"destroyed", [&] { core.raiseRoomDestroyed("r1", 0); }, std::nullopt},
        {"rejoin and sync again", [&] { joinAndSettle("r1"); core.raiseStatusChange("r1"); }, true},
        {"an automatic rejoin keeps it", [&] {
             client.resetCacheChatRoomForFailed();
             client.rejoinCacheChatRoom();
         },
         true},
        {"an automatic rejoin answered with a reset", [&] {
             core.setRule("joinChatroom", ZMCoreAnswer::failure(ZMCodeJoinedWithReset));
             client.resetCacheChatRoomForFailed();
             client.rejoinCacheChatRoom();
             settle();
             core.setRule("joinChatroom", ZMCoreAnswer::success());
         },
         false},
        {"logout", [&] { client.clearChatRoom(); }, std::nullopt},
        {"a status change for a room never joined", [&] { core.raiseStatusChange("r2"); }, std::nullopt},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.name);
        step.action();
        settle();
        EXPECT_EQ(kvFlag("r1"), step.flag);
        EXPECT_EQ(getIsRefused("r1"), step.flag != true);
    }
    EXPECT_EQ(kvFlag("r2"), true);
}
