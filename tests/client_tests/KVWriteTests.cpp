#include "KVTestSupport.h"

// Writes and removals, single and batch: the check order of each, the requests
// that reach the core, and how the core's answers reach the application.

namespace {

const std::string kRemoveOperation = "removeChatRoomStatus:key:overwrite:sendNotification:notificationExtra:success:error:";
const std::string kSetEntriesOperation = "setChatRoomEntries:entries:isForce:autoDelete:success:error:";
const std::string kRemoveEntriesOperation = "removeChatRoomEntries:keys:isForce:success:error:";
const std::string kLongExtra(2049, 'x');
const ZMLogLine kKeyLength = diagnostic(2, "Parameter error，key is empty or length More than 128");
const ZMLogLine kValueLength = diagnostic(2, "Parameter error，value is empty or length More than 4096");
const ZMLogLine kKeyNotString = diagnostic(2, "Parameter error，key is not NSString");
const ZMLogLine kExtraLength = diagnostic(2, "Parameter error，notificationExtra length More than 2048");

std::string flag(bool on) { return on ? "1" : "0"; }
KVCall setCall(ZMValue room, ZMValue key, ZMValue value, ZMValue extra, bool notify = true, bool autoDelete = false,
               bool force = false) {
    return {[=](ZMChatRoomClient& c, KVOutcome& o) {
                auto set = force ? &ZMChatRoomClient::forceSetChatRoomEntry : &ZMChatRoomClient::setChatRoomEntry;
                (c.*set)(room, key, value, notify, autoDelete, extra, o.success(), o.error());
            },
            opLine(4, ZM_A_SET_CHATROOM_KV_T,
                   "room_id:" + shown(room) + ",key:" + shown(key) + ",value:" + shown(value) + ",overwrite:" + flag(force) +
                       ",notify:" + flag(notify) + ",auto_del:" + flag(autoDelete)),
            ZM_A_SET_CHATROOM_KV_R, shown(room)};
}
KVCall removeCall(ZMValue room, ZMValue key, ZMValue extra, bool notify = true, bool force = false) {
    return {[=](ZMChatRoomClient& c, KVOutcome& o) {
                auto remove = force ? &ZMChatRoomClient::forceRemoveChatRoomEntry : &ZMChatRoomClient::removeChatRoomEntry;
                (c.*remove)(room, key, notify, extra, o.success(), o.error());
            },
            opLine(4, ZM_A_REMOVE_CHATROOM_KV_T,
                   "room_id:" + shown(room) + ",key:" + shown(key) + ",overwrite:" + flag(force) + ",notify:" + flag(notify)),
            ZM_A_REMOVE_CHATROOM_KV_R, shown(room)};
}
KVCall setBatchCall(ZMValue room, ZMValue entries, bool force = false, bool autoDelete = false) {  // writes no start line
    return {[=](ZMChatRoomClient& c, KVOutcome& o) {
                c.setChatRoomEntries(room, entries, force, autoDelete, o.success(), o.entriesError());
            },
            std::nullopt, ZM_A_SET_CHATROOM_KVS_R, shown(room)};
}
KVCall removeBatchCall(ZMValue room, ZMValue keys, bool force = true) {
    return {[=](ZMChatRoomClient& c, KVOutcome& o) { c.removeChatRoomEntries(room, keys, force, o.success(), o.entriesError()); },
            opLine(4, ZM_A_REMOVE_CHATROOM_KVS_T, "room_id:" + shown(room) + ",overwrite:" + flag(force)), ZM_A_REMOVE_CHATROOM_KVS_R,
            shown(room)};
}

}  // namespace

TEST_F(KVTest, EachWriteRefusesInItsOwnCheckOrderWithItsOwnLines) {
    ZMValue elevenWithABadKey = numberedEntries(11);
    elevenWithABadKey["bad key"] = "v";
    const ZMValue oneKey = ZMValue::array({"k1"});
    expectRefusals({
        // Single set: key, value, extra, then the switch (an invalid room goes first: see HostileInputTests).
        {"set: bad key beats bad extra", setCall("r1", "", "v1", kLongExtra), true, ZMErrorInvalidKVKey, {kKeyLength}},
        {"set: bad value beats bad extra", setCall("r1", "k1", "", kLongExtra), true, ZMErrorInvalidKVValue, {kValueLength}},
        {"set: bad extra beats the switch", setCall("r1", "k1", "v1", kLongExtra), false, ZMErrorInvalidNotificationExtra,
         {kExtraLength}},
        {"set: store off", setCall("r1", "k1", "v1", nullptr), false, ZMErrorKVStorageDisabled, {kStoreOff}},
        // Single removal: a result line for every refusal, a parameter line for a bad key.
        {"remove: illegal key beats bad extra", removeCall("r1", "a b", kLongExtra), true, ZMErrorInvalidKVKey,
         {kKeyIllegal, parameterError(kRemoveOperation, "r1, key:a b")}},
        {"remove: bad extra beats the switch", removeCall("r1", "k1", kLongExtra), false, ZMErrorInvalidNotificationExtra,
         {kExtraLength}},
        {"remove: store off", removeCall("r1", "k1", nullptr), false, ZMErrorKVStorageDisabled, {kStoreOff}},
        // Batch set: the room, the switch, the count, then the entries.
        {"set batch: empty room", setBatchCall("", {{"k1", "v1"}}), false, ZMErrorInvalidParameter,
         {kRoomIdNil, parameterError(kSetEntriesOperation, "")}},
        {"set batch: 11 entries, store off", setBatchCall("r1", numberedEntries(11)), false, ZMErrorKVStorageDisabled, {kStoreOff}},
        {"set batch: 11 entries, one key bad", setBatchCall("r1", elevenWithABadKey), true, ZMErrorKVBatchTooLarge, {}},
        {"set batch: no entries", setBatchCall("r1", ZMValue::object()), true, ZMErrorKVEntriesEmpty, {}},
        {"set batch: not a dictionary", setBatchCall("r1", ZMValue::array({"k1", "v1"})), true, ZMErrorKVEntriesEmpty, {}},
        {"set batch: one empty value among good ones", setBatchCall("r1", {{"k1", "v1"}, {"k2", ""}, {"k3", "v3"}}), true,
         ZMErrorInvalidKVValue, {kValueLength, parameterError(kSetEntriesOperation, "r1, key:k2, value:")}},
        {"set batch: two illegal keys, the first examined", setBatchCall("r1", {{"k/1", "v1"}, {"k/2", "v2"}}), true,
         ZMErrorInvalidKVKey, {kKeyIllegal, parameterError(kSetEntriesOperation, "r1, key:k/1, value:v1")}},
        // Batch removal: the count before the keys, the switch last.
        {"remove batch: 11 keys, store off", removeBatchCall("r1", numberedEntries(11, true)), false, ZMErrorKVBatchTooLarge, {}},
        {"remove batch: no keys", removeBatchCall("r1", ZMValue::array()), true, ZMErrorKVKeysEmpty, {}},
        {"remove batch: bad keys beat the switch, the first examined", removeBatchCall("r1", ZMValue::array({"k1", 5, 6})),
         false, ZMErrorInvalidKVKey, {kKeyNotString, parameterError(kRemoveEntriesOperation, "r1, key:5")}},
        {"remove batch: store off", removeBatchCall("r1", oneKey), false, ZMErrorKVStorageDisabled, {kStoreOff}},
    });
}

// Each form sends its flags, a single write its notification built and encoded
// even when not to be sent, whatever the room's synchronisation (never joined).
// The core's failure code and a batch's failed entries reach the app unchanged.
TEST_F(KVTest, WritesSendTheirFlagsAndHandOnTheCoresAnswer) {
    const ZMValue ten = numberedEntries(10), tenKeys = numberedEntries(10, true);
    const ZMValue failed = {{"k3", 23423}, {"k7", 23424}};
    // The arguments of a single write or removal of k1 in r1, its notification decoded.
    auto single = [](bool isSet, bool overwrite, bool autoDelete, bool notify, const ZMValue& extra) {
        ZMValue message = {{"type", isSet ? 1 : 2}, {"key", "k1"}};
        ZMValue arguments = {{"chatroomId", "r1"}, {"key", "k1"}, {"overwrite", overwrite}, {"sendNotification", notify},
                             {"notificationObjectName", "ZM:chrmKVNotiMsg"}, {"persistentFlag", 0}};
        if (isSet) arguments.update({{"value", "v1"}, {"autoDelete", autoDelete}});
        if (isSet) message["value"] = "v1";
        if (extra.is_string()) message["extra"] = extra;
        arguments["notificationContent"] = message;
        return arguments;
    };
    auto inR1 = [](ZMValue arguments) { return arguments.update({{"chatroomId", "r1"}}), arguments; };
    const std::vector<std::tuple<KVCall, std::string, ZMValue>> rows = {
        {setCall("r1", "k1", "v1", "x", true, false), "setChatroomStatus", single(true, false, false, true, "x")},
        {setCall("r1", "k1", "v1", nullptr, false, true, true), "setChatroomStatus", single(true, true, true, false, nullptr)},
        {removeCall("r1", "k1", "x"), "removeChatRoomStatus", single(false, false, false, true, "x")},
        {removeCall("r1", "k1", "", false, true), "removeChatRoomStatus", single(false, true, false, false, "")},
        {setBatchCall("r1", ten, false, true), "setChatRoomEntries",
         inR1({{"entries", ten}, {"overwrite", false}, {"autoDelete", true}})},
        {setBatchCall("r1", ten, true, false), "setChatRoomEntries",
         inR1({{"entries", ten}, {"overwrite", true}, {"autoDelete", false}})},
        {removeBatchCall("r1", tenKeys, false), "removeChatRoomEntries", inR1({{"keys", tenKeys}, {"overwrite", false}})},
        {removeBatchCall("r1", tenKeys, true), "removeChatRoomEntries", inR1({{"keys", tenKeys}, {"overwrite", true}})},
    };
    for (const auto& [call, operation, arguments] : rows) {
        const bool batch = !arguments.contains("notificationContent");
        for (const auto& answer : {ZMCoreAnswer::success(), ZMCoreAnswer::failure(23423, failed)}) {
            SCOPED_TRACE(operation + " " + arguments.dump() + " answered " + std::to_string(answer.code));
            core.setRule(operation, answer);
            forget();
            KVOutcome outcome;
            call.make(client, outcome);
            settle();
            Requests requests = sent();
            ASSERT_EQ(requests.size(), 1u);
            if (!batch) {  // the notification's payload, decoded
                auto& content = requests[0].second["notificationContent"];
                content = ZMValue::parse(content.get<std::string>());
            }
            EXPECT_EQ(requests, (Requests{{operation, arguments}}));
            EXPECT_EQ(std::tuple(outcome.total(), answer.code ? outcome.errors.load() : outcome.successes.load(),
                                 outcome.code.load(), outcome.onCallerThread.load(), outcome.onOperationQueue.load()),
                      std::tuple(1, 1, answer.code, false, false));
            EXPECT_EQ(outcome.failedEntries, batch && answer.code ? failed : ZMValue());
            std::vector<ZMLogLine> expected;
            if (call.start) expected.push_back(*call.start);
            expected.push_back(!answer.code ? resultLine(call.resultTag, "r1", 0)
                               : batch      ? opLine(2, call.resultTag, "room_id:r1,code:23423,entries:" + failed.dump())
                                            : resultLine(call.resultTag, "r1", 23423, 2));
            EXPECT_EQ(allLines(), expected);
        }
    }
    // A notification the core cannot encode goes as an empty payload; sendNotification alone decides.
    core.setPayloadEncodingFails(true);
    forget();
    KVOutcome outcome;
    std::get<0>(rows[0]).make(client, outcome);
    settle();
    auto requests = core.requests("setChatroomStatus");
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].arguments["notificationContent"], "");
    EXPECT_EQ(requests[0].arguments["sendNotification"], true);
}

// Calls from one thread reach the core in call order, whatever their kind; absent
// callbacks are skipped on every path (a call would throw on the core's thread).
TEST_F(KVTest, CallsReachTheCoreInOrderAndAbsentCallbacksAreSkipped) {
    client.syncKVChatRoomDict().setObject(true, "r1");
    const Strings operations = {"setChatroomStatus", "removeChatRoomStatus", "getChatRoomEntry", "setChatRoomEntries",
                                "removeChatRoomEntries", "getChatRoomEntriesByBatch", "getAllChatRoomEntries"};
    for (const auto& answer : {ZMCoreAnswer::success({{"k", "v"}}), ZMCoreAnswer::failure(500)}) {
        SCOPED_TRACE(answer.code);
        for (const auto& operation : operations) core.setRule(operation, answer);
        forget();
        client.setChatRoomEntry("r1", "k", "v", false, false, nullptr, {}, {});
        client.removeChatRoomEntry("r1", "k", false, nullptr, {}, {});
        client.getChatRoomEntry("r1", "k", {}, {});
        client.setChatRoomEntries("r1", {{"k", "v"}}, false, false, {}, {});
        client.removeChatRoomEntries("r1", ZMValue::array({"k"}), false, {}, {});
        client.getChatRoomEntriesByBatch("r1", ZMValue::array({"k"}), {}, {});
        client.getAllChatRoomEntries("r1", {}, {});
        client.setChatRoomEntry("", "k", "v", false, false, nullptr, {}, {});
        client.setChatRoomEntries("", {{"k", "v"}}, false, false, {}, {});
        settle();
        Strings received;
        for (const auto& request : core.requests()) received.push_back(request.operation);
        EXPECT_EQ(received, operations);
        EXPECT_TRUE(logged("ZMEmulatedDispatcher.cpp").empty());  // where such an exception is logged
    }
}
