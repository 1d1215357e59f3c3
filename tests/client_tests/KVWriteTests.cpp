#include "KVTestSupport.h"

// Single and batch writes and removes: the check order of each operation (one
// row per refusal, with its code and its exact lines), the requests that reach
// the core, and how the core's answers reach the application.

namespace {

const std::string kSetOperation =
    "setChatRoomStatus:key:value:overwrite:sendNotification:autoDelete:notificationExtra:success:error:";
const std::string kRemoveOperation =
    "removeChatRoomStatus:key:overwrite:sendNotification:notificationExtra:success:error:";
const std::string kSetEntriesOperation = "setChatRoomEntries:entries:isForce:autoDelete:success:error:";
const std::string kRemoveEntriesOperation = "removeChatRoomEntries:keys:isForce:success:error:";

const std::string kLongExtra(2049, 'x');

const ZMLogLine kRoomIdNotString = diagnostic(6, "Parameter error，targetId is not NSString");
const ZMLogLine kKeyLength = diagnostic(2, "Parameter error，key is empty or length More than 128");
const ZMLogLine kKeyNotString = diagnostic(2, "Parameter error，key is not NSString");
const ZMLogLine kValueLength = diagnostic(2, "Parameter error，value is empty or length More than 4096");
const ZMLogLine kValueNotString = diagnostic(2, "Parameter error，value is not NSString");
const ZMLogLine kExtraLength = diagnostic(2, "Parameter error，notificationExtra length More than 2048");
const ZMLogLine kExtraNotString = diagnostic(2, "notificationExtra is illegitimate");

ZMValue elevenEntries() {
    ZMValue entries = ZMValue::object();
    for (int i = 0; i < 11; ++i) entries[numbered("k", i)] = "v";
    return entries;
}

ZMValue elevenKeys() {
    ZMValue keys = ZMValue::array();
    for (int i = 0; i < 11; ++i) keys.push_back(numbered("k", i));
    return keys;
}

// The notification message a write or removal carries, decoded from the
// payload text the core received.
ZMValue notificationOf(const ZMCoreRequest& request) {
    return ZMValue::parse(request.arguments["notificationContent"].get<std::string>());
}

struct Refusal {
    std::string name;
    ZMValue room;
    ZMValue key;
    ZMValue value;  // set only
    ZMValue extra;
    bool storeOn;
    int32_t code;
    std::vector<ZMLogLine> lines;
};

}  // namespace

TEST_F(KVTest, SingleSetChecksRoomKeyValueExtraThenTheSwitchWithItsOwnLines) {
    const std::string T = ZM_A_SET_CHATROOM_KV_T;
    const std::string R = ZM_A_SET_CHATROOM_KV_R;
    auto start = [&](const std::string& room, const std::string& key, const std::string& value) {
        return opLine(4, T, "room_id:" + room + ",key:" + key + ",value:" + value + ",overwrite:0,notify:1,auto_del:0");
    };
    const std::vector<Refusal> refusals = {
        // An invalid room id writes no result line, unlike every other refusal.
        {"empty room, store off", "", "k1", "v1", nullptr, false, ZMErrorInvalidParameter,
         {start("", "k1", "v1"), kRoomIdNil, diagnostic(2, "Parameter Error, " + kSetOperation + ", chatroomId:")}},
        {"absent room", nullptr, "k1", "v1", nullptr, true, ZMErrorInvalidParameter,
         {start("(null)", "k1", "v1"), kRoomIdNotString,
          diagnostic(2, "Parameter Error, " + kSetOperation + ", chatroomId:(null)")}},
        {"bad key beats bad extra", "r1", "", "v1", kLongExtra, true, ZMErrorInvalidKVKey,
         {start("r1", "", "v1"), kKeyLength, opLine(4, R, "room_id:r1,code:34260")}},
        {"bad value beats bad extra", "r1", "k1", "", kLongExtra, true, ZMErrorInvalidKVValue,
         {start("r1", "k1", ""), kValueLength, opLine(4, R, "room_id:r1,code:34262")}},
        {"value not a string", "r1", "k1", 42, nullptr, true, ZMErrorInvalidKVValue,
         {start("r1", "k1", "42"), kValueNotString, opLine(4, R, "room_id:r1,code:34262")}},
        {"extra too long, store off", "r1", "k1", "v1", kLongExtra, false, ZMErrorInvalidNotificationExtra,
         {start("r1", "k1", "v1"), kExtraLength, opLine(4, R, "room_id:r1,code:34264")}},
        {"extra not a string", "r1", "k1", "v1", 7, true, ZMErrorInvalidNotificationExtra,
         {start("r1", "k1", "v1"), kExtraNotString, opLine(4, R, "room_id:r1,code:34264")}},
        // The switch is tested last.
        {"bad key with the store off", "r1", "a b", "v1", nullptr, false, ZMErrorInvalidKVKey,
         {start("r1", "a b", "v1"), kKeyIllegal, opLine(4, R, "room_id:r1,code:34260")}},
        {"store off", "r1", "k1", "v1", nullptr, false, ZMErrorKVStorageDisabled,
         {start("r1", "k1", "v1"), kStoreOff, opLine(4, R, "room_id:r1,code:23426")}},
    };
    for (const auto& row : refusals) {
        SCOPED_TRACE(row.name);
        expectRefused(
            row.storeOn, [&](KVOutcome& outcome) { client.setChatRoomEntry(row.room, row.key, row.value, true, false, row.extra, outcome.success(), outcome.error()); },
            row.code, row.lines);
    }
    settle();
    EXPECT_TRUE(core.requests().empty());
}

TEST_F(KVTest, SingleRemoveWritesAResultLineForEveryRefusalAndAKeyLineForABadKey) {
    const std::string T = ZM_A_REMOVE_CHATROOM_KV_T;
    const std::string R = ZM_A_REMOVE_CHATROOM_KV_R;
    auto start = [&](const std::string& room, const std::string& key) {
        return opLine(4, T, "room_id:" + room + ",key:" + key + ",overwrite:0,notify:1");
    };
    const std::vector<Refusal> refusals = {
        {"empty room, store off", "", "k1", nullptr, nullptr, false, ZMErrorInvalidParameter,
         {start("", "k1"), kRoomIdNil, diagnostic(2, "Parameter Error, " + kRemoveOperation + ", chatroomId:"),
          opLine(4, R, "room_id:,code:34210")}},
        {"illegal key beats bad extra", "r1", "a b", nullptr, kLongExtra, true, ZMErrorInvalidKVKey,
         {start("r1", "a b"), kKeyIllegal,
          diagnostic(2, "Parameter Error, " + kRemoveOperation + ", chatroomId:r1, key:a b"),
          opLine(4, R, "room_id:r1,code:34260")}},
        {"key not a string", "r1", 5, nullptr, nullptr, true, ZMErrorInvalidKVKey,
         {start("r1", "5"), kKeyNotString,
          diagnostic(2, "Parameter Error, " + kRemoveOperation + ", chatroomId:r1, key:5"),
          opLine(4, R, "room_id:r1,code:34260")}},
        {"extra too long, store off", "r1", "k1", nullptr, kLongExtra, false, ZMErrorInvalidNotificationExtra,
         {start("r1", "k1"), kExtraLength, opLine(4, R, "room_id:r1,code:34264")}},
        {"bad key with the store off", "r1", "", nullptr, nullptr, false, ZMErrorInvalidKVKey,
         {start("r1", ""), kKeyLength, diagnostic(2, "Parameter Error, " + kRemoveOperation + ", chatroomId:r1, key:"),
          opLine(4, R, "room_id:r1,code:34260")}},
        {"store off", "r1", "k1", nullptr, nullptr, false, ZMErrorKVStorageDisabled,
         {start("r1", "k1"), kStoreOff, opLine(4, R, "room_id:r1,code:23426")}},
    };
    for (const auto& row : refusals) {
        SCOPED_TRACE(row.name);
        expectRefused(
            row.storeOn, [&](KVOutcome& outcome) { client.removeChatRoomEntry(row.room, row.key, true, row.extra, outcome.success(), outcome.error()); },
            row.code, row.lines);
    }
    settle();
    EXPECT_TRUE(core.requests().empty());
}

// The four public forms reach the core with their flags, the notification
// message built and encoded whether or not it is to be sent, and with no
// regard for the room's synchronisation (this room was never joined).
TEST_F(KVTest, SingleWritesSendTheirFlagsAndAlwaysAnEncodedNotification) {
    struct Case {
        std::string name;
        std::function<void(CallOutcome&)> call;
        std::string operation;
        ZMValue arguments;     // besides the notification
        ZMValue notification;  // the decoded payload
        std::string startLine;
    };
    const std::vector<Case> cases = {
        {"set", [&](CallOutcome& o) { client.setChatRoomEntry("r1", "k1", "v1", true, true, "x", o.success(), o.error()); },
         "setChatroomStatus",
         {{"chatroomId", "r1"}, {"key", "k1"}, {"value", "v1"}, {"overwrite", false}, {"autoDelete", true},
          {"sendNotification", true}},
         {{"type", 1}, {"key", "k1"}, {"value", "v1"}, {"extra", "x"}},
         "room_id:r1,key:k1,value:v1,overwrite:0,notify:1,auto_del:1"},
        {"force set without notification", [&](CallOutcome& o) {
             client.forceSetChatRoomEntry("r1", "k1", "v1", false, false, nullptr, o.success(), o.error());
         },
         "setChatroomStatus",
         {{"chatroomId", "r1"}, {"key", "k1"}, {"value", "v1"}, {"overwrite", true}, {"autoDelete", false},
          {"sendNotification", false}},
         {{"type", 1}, {"key", "k1"}, {"value", "v1"}},
         "room_id:r1,key:k1,value:v1,overwrite:1,notify:0,auto_del:0"},
        {"remove", [&](CallOutcome& o) { client.removeChatRoomEntry("r1", "k1", true, "x", o.success(), o.error()); },
         "removeChatRoomStatus",
         {{"chatroomId", "r1"}, {"key", "k1"}, {"overwrite", false}, {"sendNotification", true}},
         {{"type", 2}, {"key", "k1"}, {"extra", "x"}},
         "room_id:r1,key:k1,overwrite:0,notify:1"},
        {"force remove", [&](CallOutcome& o) {
             client.forceRemoveChatRoomEntry("r1", "k1", false, "", o.success(), o.error());
         },
         "removeChatRoomStatus",
         {{"chatroomId", "r1"}, {"key", "k1"}, {"overwrite", true}, {"sendNotification", false}},
         {{"type", 2}, {"key", "k1"}, {"extra", ""}},
         "room_id:r1,key:k1,overwrite:1,notify:0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        forget();
        auto outcome = call(c.call);
        EXPECT_EQ(outcome->successes, 1);
        EXPECT_FALSE(outcome->onCallerThread);
        EXPECT_FALSE(outcome->onOperationQueue);
        auto requests = core.requests();
        ASSERT_EQ(requests.size(), 1u);
        EXPECT_EQ(requests[0].operation, c.operation);
        ZMValue arguments = requests[0].arguments;
        EXPECT_EQ(arguments["notificationObjectName"], "ZM:chrmKVNotiMsg");
        EXPECT_EQ(arguments["persistentFlag"], 0);
        EXPECT_EQ(notificationOf(requests[0]), c.notification);
        arguments.erase("notificationObjectName");
        arguments.erase("persistentFlag");
        arguments.erase("notificationContent");
        EXPECT_EQ(arguments, c.arguments);
        const std::string tagBase = c.operation == "setChatroomStatus" ? "A-set_chatroom_kv-" : "A-remove_chatroom_kv-";
        EXPECT_EQ(allLines(), (std::vector<ZMLogLine>{opLine(4, tagBase + "T", c.startLine),
                                                      opLine(4, tagBase + "R", "room_id:r1,code:0")}));
    }
}

TEST_F(KVTest, SingleWriteFailuresPassTheCoresCodeOnAfterALevelTwoLine) {
    for (const char* operation : {"setChatroomStatus", "removeChatRoomStatus"}) {
        SCOPED_TRACE(operation);
        const bool isSet = std::string(operation) == "setChatroomStatus";
        core.setRule(operation, ZMCoreAnswer::failure(23423));
        forget();
        auto outcome = call([&](CallOutcome& o) {
            if (isSet) return client.setChatRoomEntry("r1", "k1", "v1", false, false, nullptr, o.success(), o.error());
            client.removeChatRoomEntry("r1", "k1", false, nullptr, o.success(), o.error());
        });
        EXPECT_EQ(outcome->errors, 1);
        EXPECT_EQ(outcome->code, 23423);
        EXPECT_FALSE(outcome->onCallerThread);
        const std::string tag = isSet ? ZM_A_SET_CHATROOM_KV_R : ZM_A_REMOVE_CHATROOM_KV_R;
        EXPECT_EQ(logged(tag), lines(tag, 2, {"room_id:r1,code:23423"}));
    }
}

// A core that cannot encode the notification still gets the write, with an
// empty payload; sendNotification alone tells it whether to send anything.
TEST_F(KVTest, ANotificationTheCoreCannotEncodeIsSentAsAnEmptyPayload) {
    core.setPayloadEncodingFails(true);
    auto outcome = call([&](CallOutcome& o) {
        client.setChatRoomEntry("r1", "k1", "v1", true, false, "x", o.success(), o.error());
    });
    EXPECT_EQ(outcome->successes, 1);
    auto requests = core.requests("setChatroomStatus");
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].arguments["notificationContent"], "");
    EXPECT_EQ(requests[0].arguments["sendNotification"], true);
}

TEST_F(KVTest, BatchSetTestsTheSwitchBeforeTheCountAndWritesNoStartLine) {
    const std::string R = ZM_A_SET_CHATROOM_KVS_R;
    ZMValue elevenWithABadKey = elevenEntries();
    elevenWithABadKey["bad key"] = "v";
    struct Row {
        std::string name;
        ZMValue room;
        ZMValue entries;
        bool storeOn;
        int32_t code;
        std::vector<ZMLogLine> lines;
    };
    const std::vector<Row> rows = {
        {"empty room, store off", "", {{"k1", "v1"}}, false, ZMErrorInvalidParameter,
         {kRoomIdNil, diagnostic(2, "Parameter Error, " + kSetEntriesOperation + ", chatroomId:"),
          opLine(4, R, "room_id:,code:34210")}},
        {"11 entries with the store off", "r1", elevenEntries(), false, ZMErrorKVStorageDisabled,
         {kStoreOff, opLine(4, R, "room_id:r1,code:23426")}},
        {"11 entries, one key bad: the count goes first", "r1", elevenWithABadKey, true, ZMErrorKVBatchTooLarge,
         {opLine(4, R, "room_id:r1,code:23429")}},
        {"no entries", "r1", ZMValue::object(), true, ZMErrorKVEntriesEmpty, {opLine(4, R, "room_id:r1,code:34263")}},
        {"absent entries", "r1", nullptr, true, ZMErrorKVEntriesEmpty, {opLine(4, R, "room_id:r1,code:34263")}},
        {"entries not a dictionary", "r1", ZMValue::array({"k1", "v1"}), true, ZMErrorKVEntriesEmpty,
         {opLine(4, R, "room_id:r1,code:34263")}},
        {"one empty value among good ones", "r1", {{"k1", "v1"}, {"k2", ""}, {"k3", "v3"}}, true,
         ZMErrorInvalidKVValue,
         {kValueLength,
          diagnostic(2, "Parameter Error, " + kSetEntriesOperation + ", chatroomId:r1, key:k2, value:"),
          opLine(4, R, "room_id:r1,code:34262")}},
        {"a value that is not a string", "r1", {{"k1", 3}}, true, ZMErrorInvalidKVValue,
         {kValueNotString,
          diagnostic(2, "Parameter Error, " + kSetEntriesOperation + ", chatroomId:r1, key:k1, value:3"),
          opLine(4, R, "room_id:r1,code:34262")}},
        {"two illegal keys: only the first is examined", "r1", {{"k/1", "v1"}, {"k/2", "v2"}}, true,
         ZMErrorInvalidKVKey,
         {kKeyIllegal,
          diagnostic(2, "Parameter Error, " + kSetEntriesOperation + ", chatroomId:r1, key:k/1, value:v1"),
          opLine(4, R, "room_id:r1,code:34260")}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        expectRefused(
            row.storeOn, [&](KVOutcome& outcome) { client.setChatRoomEntries(row.room, row.entries, false, false, outcome.success(), outcome.entriesError()); },
            row.code, row.lines);
    }
    settle();
    EXPECT_TRUE(core.requests().empty());
}

TEST_F(KVTest, BatchRemoveWritesItsStartLineFirstAndTestsTheSwitchLast) {
    const std::string T = ZM_A_REMOVE_CHATROOM_KVS_T;
    const std::string R = ZM_A_REMOVE_CHATROOM_KVS_R;
    struct Row {
        std::string name;
        ZMValue room;
        ZMValue keys;
        bool storeOn;
        int32_t code;
        std::vector<ZMLogLine> lines;
    };
    const std::vector<Row> rows = {
        {"empty room, store off", "", ZMValue::array({"k1"}), false, ZMErrorInvalidParameter,
         {opLine(4, T, "room_id:,overwrite:1"), kRoomIdNil,
          diagnostic(2, "Parameter Error, " + kRemoveEntriesOperation + ", chatroomId:"),
          opLine(4, R, "room_id:,code:34210")}},
        {"11 keys with the store off: the count goes first", "r1", elevenKeys(), false, ZMErrorKVBatchTooLarge,
         {opLine(4, T, "room_id:r1,overwrite:1"), opLine(4, R, "room_id:r1,code:23429")}},
        {"no keys", "r1", ZMValue::array(), true, ZMErrorKVKeysEmpty,
         {opLine(4, T, "room_id:r1,overwrite:1"), opLine(4, R, "room_id:r1,code:34261")}},
        {"absent keys", "r1", nullptr, true, ZMErrorKVKeysEmpty,
         {opLine(4, T, "room_id:r1,overwrite:1"), opLine(4, R, "room_id:r1,code:34261")}},
        {"one key not in an array", "r1", "k1", true, ZMErrorKVKeysEmpty,
         {opLine(4, T, "room_id:r1,overwrite:1"), opLine(4, R, "room_id:r1,code:34261")}},
        {"a key that is not a string, store off", "r1", ZMValue::array({"k1", 5}), false, ZMErrorInvalidKVKey,
         {opLine(4, T, "room_id:r1,overwrite:1"), kKeyNotString,
          diagnostic(2, "Parameter Error, " + kRemoveEntriesOperation + ", chatroomId:r1, key:5"),
          opLine(4, R, "room_id:r1,code:34260")}},
        {"two keys that are not strings: only the first is examined", "r1", ZMValue::array({7, 8}), true,
         ZMErrorInvalidKVKey,
         {opLine(4, T, "room_id:r1,overwrite:1"), kKeyNotString,
          diagnostic(2, "Parameter Error, " + kRemoveEntriesOperation + ", chatroomId:r1, key:7"),
          opLine(4, R, "room_id:r1,code:34260")}},
        {"store off", "r1", ZMValue::array({"k1"}), false, ZMErrorKVStorageDisabled,
         {opLine(4, T, "room_id:r1,overwrite:1"), kStoreOff, opLine(4, R, "room_id:r1,code:23426")}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        expectRefused(
            row.storeOn, [&](KVOutcome& outcome) { client.removeChatRoomEntries(row.room, row.keys, true, outcome.success(), outcome.entriesError()); },
            row.code, row.lines);
    }
    settle();
    EXPECT_TRUE(core.requests().empty());
}

TEST_F(KVTest, BatchesOfTenAreSentAndTheCoresFailedEntriesReachTheAppUnchanged) {
    ZMValue ten = ZMValue::object();
    ZMValue tenKeys = ZMValue::array();
    for (int i = 0; i < 10; ++i) {
        ten[numbered("k", i)] = numbered("v", i);
        tenKeys.push_back(numbered("k", i));
    }
    const ZMValue failed = {{"k3", 23423}, {"k7", 23424}};
    const std::string setR = ZM_A_SET_CHATROOM_KVS_R;
    const std::string removeR = ZM_A_REMOVE_CHATROOM_KVS_R;
    struct Row {
        bool isSet;
        bool isForce;
        bool autoDelete;  // set only
        ZMCoreAnswer answer;
        std::vector<ZMLogLine> lines;
    };
    const std::vector<Row> rows = {
        {true, false, true, ZMCoreAnswer::success(), {opLine(4, setR, "room_id:r1,code:0")}},
        {true, true, false, ZMCoreAnswer::failure(23423, failed),
         {opLine(2, setR, "room_id:r1,code:23423,entries:" + failed.dump())}},
        {false, false, false, ZMCoreAnswer::success(),
         {opLine(4, ZM_A_REMOVE_CHATROOM_KVS_T, "room_id:r1,overwrite:0"), opLine(4, removeR, "room_id:r1,code:0")}},
        {false, true, false, ZMCoreAnswer::failure(23423, failed),
         {opLine(4, ZM_A_REMOVE_CHATROOM_KVS_T, "room_id:r1,overwrite:1"),
          opLine(2, removeR, "room_id:r1,code:23423,entries:" + failed.dump())}},
    };
    for (const auto& row : rows) {
        const std::string operation = row.isSet ? "setChatRoomEntries" : "removeChatRoomEntries";
        SCOPED_TRACE(operation + " force " + std::to_string(row.isForce) + " code " + std::to_string(row.answer.code));
        core.setRule(operation, row.answer);
        forget();
        KVOutcome outcome;
        if (row.isSet) {
            client.setChatRoomEntries("r1", ten, row.isForce, row.autoDelete, outcome.success(), outcome.entriesError());
        } else {
            client.removeChatRoomEntries("r1", tenKeys, row.isForce, outcome.success(), outcome.entriesError());
        }
        outcome.returned = true;
        settle();
        const ZMValue arguments =
            row.isSet ? ZMValue{{"chatroomId", "r1"}, {"entries", ten}, {"overwrite", row.isForce},
                                {"autoDelete", row.autoDelete}}
                      : ZMValue{{"chatroomId", "r1"}, {"keys", tenKeys}, {"overwrite", row.isForce}};
        EXPECT_EQ(sent(), (Requests{{operation, arguments}}));
        EXPECT_EQ(outcome.total(), 1);
        EXPECT_FALSE(outcome.onCallerThread);
        EXPECT_FALSE(outcome.onOperationQueue);
        if (row.answer.code == 0) {
            EXPECT_EQ(outcome.successes, 1);
        } else {
            EXPECT_EQ(outcome.code, row.answer.code);
            EXPECT_EQ(outcome.failedEntries, failed);
        }
        EXPECT_EQ(allLines(), row.lines);
    }
}

// Every operation whose callbacks are left out runs to its end without
// calling an empty function, whatever the core answers.
TEST_F(KVTest, AbsentCallbacksAreSkippedOnEveryPath) {
    markSynchronised("r1");
    const std::vector<std::pair<std::string, std::function<void()>>> calls = {
        {"setChatroomStatus", [&] { client.setChatRoomEntry("r1", "k", "v", false, false, nullptr, {}, {}); }},
        {"removeChatRoomStatus", [&] { client.removeChatRoomEntry("r1", "k", false, nullptr, {}, {}); }},
        {"getChatRoomEntry", [&] { client.getChatRoomEntry("r1", "k", {}, {}); }},
        {"setChatRoomEntries", [&] { client.setChatRoomEntries("r1", {{"k", "v"}}, false, false, {}, {}); }},
        {"removeChatRoomEntries", [&] { client.removeChatRoomEntries("r1", ZMValue::array({"k"}), false, {}, {}); }},
        {"getChatRoomEntriesByBatch", [&] { client.getChatRoomEntriesByBatch("r1", ZMValue::array({"k"}), {}, {}); }},
        {"getAllChatRoomEntries", [&] { client.getAllChatRoomEntries("r1", {}, {}); }},
    };
    for (const auto& answer : {ZMCoreAnswer::success({{"k", "v"}}), ZMCoreAnswer::failure(500)}) {
        for (const auto& [operation, makeCall] : calls) {
            SCOPED_TRACE(operation + " " + std::to_string(answer.code));
            core.setRule(operation, answer);
            forget();
            makeCall();
            settle();
            EXPECT_EQ(core.requests(operation).size(), 1u);
            // The emulator logs any exception a callback raises on its thread.
            EXPECT_TRUE(logged("ZMEmulatedDispatcher.cpp").empty());
        }
        // Refusals too.
        client.setChatRoomEntry("", "k", "v", false, false, nullptr, {}, {});
        client.setChatRoomEntries("", {{"k", "v"}}, false, false, {}, {});
    }
}

// Writes one thread issues reach the core in call order, interleaved with the
// client's other operations.
TEST_F(KVTest, WritesFromOneThreadReachTheCoreInCallOrder) {
    core.holdRequests("setChatroomStatus");
    for (int i = 0; i < 20; ++i) {
        const std::string key = numbered("k", i);
        if (i % 2 == 0) {
            client.setChatRoomEntry("r1", key, "v", false, false, nullptr, ZMSuccessBlock{}, ZMErrorBlock{});
        } else {
            client.removeChatRoomEntries("r1", ZMValue::array({key}), false, ZMSuccessBlock{}, ZMEntriesErrorBlock{});
        }
    }
    settle();
    auto requests = core.requests();
    ASSERT_EQ(requests.size(), 20u);
    for (int i = 0; i < 20; ++i) {
        const std::string key = numbered("k", i);
        if (i % 2 == 0) {
            EXPECT_EQ(requests[i].arguments["key"], key);
        } else {
            EXPECT_EQ(requests[i].arguments["keys"], ZMValue::array({key}));
        }
    }
}
