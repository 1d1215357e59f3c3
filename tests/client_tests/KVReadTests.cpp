#include "KVTestSupport.h"

// Single, batch and full reads: their check orders, the synchronisation flag
// they consult or pass on, and what the application receives from the core.

namespace {

const std::string kGetOperation = "getChatRoomEntry:key:success:error:";
const std::string kBatchOperation = "getChatRoomEntriesByBatch:keys:success:error:";
const ZMLogLine kNotSynchronised = diagnostic(6, "Chatroom KV not synchronized（Local data and server are not synchronized）");
const ZMLogLine kFromLocal = diagnostic(6, "Chatroom KV synchronize from local DB");
const ZMLogLine kFromServer = diagnostic(6, "Chatroom KV synchronize from server");

KVCall getCall(ZMValue room, ZMValue key) {
    return {[=](ZMChatRoomClient& c, KVOutcome& o) { c.getChatRoomEntry(room, key, o.entriesSuccess(), o.error()); },
            opLine(4, ZM_A_GET_CHATROOM_KV_T, "room_id:" + shown(room) + ",key:" + shown(key)), ZM_A_GET_CHATROOM_KV_R,
            shown(room)};
}
KVCall getBatchCall(ZMValue room, ZMValue keys) {
    return {[=](ZMChatRoomClient& c, KVOutcome& o) { c.getChatRoomEntriesByBatch(room, keys, o.entriesSuccess(), o.error()); },
            opLine(4, ZM_A_GET_CHATROOM_BATCH_KV_T, "room_id:" + shown(room) + ",keys:" + (keys.empty() ? "" : pretty(keys))),
            ZM_A_GET_CHATROOM_BATCH_KV_R, shown(room)};
}
KVCall getAllCall(ZMValue room) {
    return {[=](ZMChatRoomClient& c, KVOutcome& o) { c.getAllChatRoomEntries(room, o.entriesSuccess(), o.error()); },
            opLine(4, ZM_A_GET_CHATROOM_ALL_KV_T, "room_id:" + shown(room)), ZM_A_GET_CHATROOM_ALL_KV_R, shown(room)};
}

}  // namespace

TEST_F(KVTest, EachReadRefusesInItsOwnCheckOrderWithItsOwnLines) {
    const ZMValue oneKey = ZMValue::array({"k1"});
    client.syncKVChatRoomDict().setObject(false, "r2");  // known but not synchronised, as after a join; r1 unknown
    expectRefusals({
        // Single read: key, the switch, then the synchronisation (an invalid room goes first).
        {"get: bad key, store off, never synchronised", getCall("r1", "a b"), false, ZMErrorInvalidKVKey,
         {kKeyIllegal, parameterError(kGetOperation, "r1, key:a b")}},
        {"get: store off and not synchronised yet", getCall("r2", "k1"), false, ZMErrorKVStorageDisabled, {kStoreOff}},
        {"get: never synchronised", getCall("r1", "k1"), true, ZMErrorKVNotSynchronized, {kNotSynchronised}},
        // Batch read: the same order, with no upper bound on the keys.
        {"batch: no keys", getBatchCall("r1", ZMValue::array()), true, ZMErrorKVKeysEmpty,
         {parameterError(kBatchOperation, "r1, keys:[]")}},
        {"batch: keys in a dictionary", getBatchCall("r1", {{"k1", "v1"}}), true, ZMErrorKVKeysEmpty,
         {parameterError(kBatchOperation, "r1, keys:{\"k1\":\"v1\"}")}},
        {"batch: illegal keys beat the switch, the first examined", getBatchCall("r1", ZMValue::array({"k1", "a b", "c d"})),
         false, ZMErrorInvalidKVKey, {kKeyIllegal, parameterError(kBatchOperation, "r1, key:a b")}},
        {"batch: store off", getBatchCall("r1", oneKey), false, ZMErrorKVStorageDisabled, {kStoreOff}},
        {"batch: not synchronised yet", getBatchCall("r2", oneKey), true, ZMErrorKVNotSynchronized, {kNotSynchronised}},
        // Full read: its result line comes before the switch's line.
        {"all: empty room", getAllCall(""), false, ZMErrorInvalidParameter,
         {kRoomIdNil, parameterError("getAllChatRoomEntries:success:error:", "")}},
        {"all: store off", getAllCall("r1"), false, ZMErrorKVStorageDisabled, {kStoreOff}, ResultLine::First},
    });
}

// A single read maps every failure to 23427, a batch read passes it on without
// a line (its success line says 34004); neither asks the filter. The full read
// tells the core the sync state, writes its source line before the answer's
// (held so it cannot overtake) and applies only the filter's get-all callback;
// an answer that is not a dictionary leaves no entries.
TEST_F(KVTest, ReadsSendTheirRequestAndHandOnTheCoresAnswer) {
    const ZMValue eleven = numberedEntries(11, true);
    const ZMValue found = {{"k1", "v1"}, {"k2", "v2"}}, all = {{"_secret", "s"}, {"a", "1"}, {"b", "2"}};
    const ZMValue shownKeys = {{"a", "1"}, {"b", "2"}};
    using Request = Requests::value_type;
    const Request getRequest = {"getChatRoomEntry", {{"chatroomId", "r1"}, {"key", "k1"}}},
                  batchRequest = {"getChatRoomEntriesByBatch", {{"chatroomId", "r1"}, {"keys", eleven}}},
                  fromServer = {"getAllChatRoomEntries", {{"chatroomId", "r1"}, {"isSync", false}}},
                  fromLocal = {"getAllChatRoomEntries", {{"chatroomId", "r1"}, {"isSync", true}}};
    const std::string getR = ZM_A_GET_CHATROOM_KV_R, batchR = ZM_A_GET_CHATROOM_BATCH_KV_R, allR = ZM_A_GET_CHATROOM_ALL_KV_R;
    auto allFound = [&](const ZMValue& entries) {
        const std::string kv = entries.empty() ? "" : pretty(entries);
        return opLine(4, allR, "room_id:r1,code:0,count:" + std::to_string(entries.size()) + ",kv:" + kv);
    };
    auto filtered = [](int after) {
        return opLine(4, ZM_L_GET_CHATROOM_FILTER_ALL_KV_O, "room_id:r1,before:3,after:" + std::to_string(after));
    };
    using Filter = std::shared_ptr<ZMChatRoomKVStatusFilterDelegate>;
    const Filter emptying = std::make_shared<KVFullFilter>(timeline, answering(ZMValue::object()));
    struct Row {  // the code and entries the app receives; the lines after the start line
        std::string name;
        KVCall call;
        bool synchronised;
        Filter filter;
        ZMCoreAnswer answer;
        Request request;
        int32_t code;
        ZMValue entries;
        std::vector<ZMLogLine> lines;
    };
    const std::vector<Row> rows = {
        {"get", getCall("r1", "k1"), true, emptying, ZMCoreAnswer::success(found), getRequest, 0, found,
         {opLine(4, getR, "room_id:r1,code:0,kv:" + pretty(found))}},
        {"get failing 500", getCall("r1", "k1"), true, emptying, ZMCoreAnswer::failure(500), getRequest, 23427, {},
         {resultLine(getR, "r1", 23427, 2)}},
        {"batch of eleven", getBatchCall("r1", eleven), true, emptying, ZMCoreAnswer::success(found), batchRequest, 0, found,
         {opLine(4, batchR, "room_id:r1,code:34004,count:2,kv:" + pretty(found))}},
        {"batch failing", getBatchCall("r1", eleven), true, emptying, ZMCoreAnswer::failure(500), batchRequest, 500, {}, {}},
        {"all, not synchronised", getAllCall("r1"), false, nullptr, ZMCoreAnswer::success(all), fromServer, 0, all,
         {kFromServer, allFound(all)}},
        {"all failing", getAllCall("r1"), false, nullptr, ZMCoreAnswer::failure(23406), fromServer, 23406, {},
         {kFromServer, resultLine(allR, "r1", 23406, 2)}},
        {"all, a filter without the get-all callback", getAllCall("r1"), true,
         std::make_shared<KVUpdateFilter>(timeline, answering(nullptr)),
         ZMCoreAnswer::success(all), fromLocal, 0, all, {kFromLocal, allFound(all)}},
        {"all, hiding private keys", getAllCall("r1"), true, std::make_shared<KVFullFilter>(timeline, hidingPrivateKeys),
         ZMCoreAnswer::success(all), fromLocal, 0, shownKeys, {kFromLocal, filtered(2), allFound(shownKeys)}},
        {"all, a filter answering an array", getAllCall("r1"), true,
         std::make_shared<KVFullFilter>(timeline, answering(ZMValue::array({"a"}))),
         ZMCoreAnswer::success(all), fromLocal, 0, ZMValue::object(), {kFromLocal, filtered(0), allFound(ZMValue::object())}},
    };
    for (const char* operation : {"getChatRoomEntry", "getChatRoomEntriesByBatch", "getAllChatRoomEntries"}) {
        core.holdRequests(operation);
    }
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        client.syncKVChatRoomDict().setObject(row.synchronised, "r1");
        setFilter(row.filter);
        forget();
        KVOutcome outcome;
        row.call.make(client, outcome);
        settle();
        ASSERT_TRUE(answerHeld(row.answer));
        settle();
        EXPECT_EQ(sent(), Requests{row.request});
        EXPECT_EQ(std::tuple(outcome.total(), outcome.code.load(), outcome.onCallerThread.load(),
                             outcome.onOperationQueue.load()),
                  std::tuple(1, row.code, false, false));
        EXPECT_EQ(outcome.entries, row.entries);
        std::vector<ZMLogLine> expected = row.lines;
        expected.insert(expected.begin(), *row.call.start);
        EXPECT_EQ(allLines(), expected);
    }
}

// An automatic rejoin keeps a room's sync flag unless answered with a reset.
// (Joins, quits, destructions and logout are covered with membership.)
TEST_F(KVTest, AnAutomaticRejoinKeepsTheSyncFlagUnlessAnsweredWithAReset) {
    joinAndSettle("r1");
    core.raiseStatusChange("r1");
    for (const bool reset : {false, true}) {
        SCOPED_TRACE(reset);
        if (reset) core.setRule("joinChatroom", ZMCoreAnswer::failure(ZMCodeJoinedWithReset));
        client.resetCacheChatRoomForFailed();
        client.rejoinCacheChatRoom();
        settle();
        EXPECT_EQ(kvFlag("r1"), !reset);
    }
}
