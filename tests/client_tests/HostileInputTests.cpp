// Invalid room ids, among them values nested 10000 deep, in every ZMValue argument of every
// public operation, on a thread with a mobile platform's 512 KB stack: each call is refused
// with 34210 before it returns, on the caller's thread, and its lines render the deep value
// cut short after 64 levels instead of walking it level by level.
#include "ClientTestSupport.h"

#include <pthread.h>

#include "support/ZMNestedValues.h"

namespace {

void runOnSmallStack(std::function<void()> work) {
    pthread_attr_t attributes;
    pthread_t thread;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 512 * 1024), 0);
    auto run = [](void* w) -> void* { return (*static_cast<std::function<void()>*>(w))(), nullptr; };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
    pthread_attr_destroy(&attributes);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
}

}  // namespace

TEST_F(ClientTest, InvalidAndDeeplyNestedRoomIdsAreRefusedOnTheCallersThreadBeforeReturning) {
    using V = const ZMValue&;
    std::vector<ZMValue> failedEntries;  // what the entries' error callbacks received
    const auto entriesError = [&](CallOutcome& o) {
        return [&, e = o.error()](int32_t code, V entries) { failedEntries.push_back(entries), e(code); };
    };
    const auto ok = [](CallOutcome& o) { return [s = o.success()](const auto&...) { s(); }; };
    const std::string diag = "Parameter Error, ", kv = ",code:34210";
    struct Operation {
        std::function<void(V, CallOutcome&)> call;
        size_t lineCount, renderings;  // lines written, and how often they show a deep value
        std::string tag, before, after;  // the last line: its tag and the text around the value
    };
    const std::string join = "code:34210,room_id:";
    const std::string kvSet =
        diag + "setChatRoomStatus:key:value:overwrite:sendNotification:autoDelete:notificationExtra:success:error:, chatroomId:";
    const std::vector<Operation> operations = {
        {[&](V v, auto& o) { client.joinChatRoom(v, 10, o.success(), o.error()); }, 3, 2, ZM_A_JION_CHATROOM_R, join, ""},
        {[&](V v, auto& o) { client.joinExistChatRoom(v, 10, o.success(), o.error()); }, 3, 2, ZM_A_JION_CHATROOM_R, join,
         ""},
        {[&](V v, auto& o) { client.joinExistChatRoom(v, 10, ZMJoinSuccessBlock(ok(o)), o.error()); }, 3, 2,
         ZM_A_JION_CHATROOM_R, join, ""},
        {[&](V v, auto& o) { client.quitChatRoom(v, o.success(), o.error()); }, 3, 2, ZM_A_QUIT_CHATROOM_R,
         "code:33003,room_id:", ""},  // the line keeps the historical code
        {[&](V v, auto& o) { client.getChatRoomInfo(v, 10, 1, ok(o), o.error()); }, 2, 1, kClientTag,
         diag + "getChatRoomInfo:count:order:success:error:, targetId:", ""},
        {[&](V v, auto& o) { client.getRemoteChatroomHistoryMessages(v, 0, 10, 0, ok(o), o.error()); }, 2, 1, kClientTag,
         diag + "getRemoteChatroomHistoryMessages:recordTime:count:order:success:error:, targetId:", ""},
        {[&](V v, auto& o) { client.bindChatRoom(v, v, o.success(), o.error()); }, 2, 1, kClientTag,
         diag + "bindChatRoom:withRTCRoom:success:error:, chatRoomId:", ""},
        {[&](V v, auto& o) { client.setChatRoomEntry(v, v, v, true, false, v, o.success(), o.error()); }, 3, 4, kClientTag,
         kvSet, ""},
        {[&](V v, auto& o) { client.forceSetChatRoomEntry(v, v, v, true, false, v, o.success(), o.error()); }, 3, 4,
         kClientTag, kvSet, ""},
        {[&](V v, auto& o) { client.removeChatRoomEntry(v, v, true, v, o.success(), o.error()); }, 4, 4,
         ZM_A_REMOVE_CHATROOM_KV_R, "room_id:", kv},
        {[&](V v, auto& o) { client.forceRemoveChatRoomEntry(v, v, true, v, o.success(), o.error()); }, 4, 4,
         ZM_A_REMOVE_CHATROOM_KV_R, "room_id:", kv},
        {[&](V v, auto& o) { client.getChatRoomEntry(v, v, ok(o), o.error()); }, 4, 4, ZM_A_GET_CHATROOM_KV_R, "room_id:", kv},
        {[&](V v, auto& o) { client.setChatRoomEntries(v, v, false, false, o.success(), entriesError(o)); }, 3, 2,
         ZM_A_SET_CHATROOM_KVS_R, "room_id:", kv},
        {[&](V v, auto& o) { client.removeChatRoomEntries(v, v, true, o.success(), entriesError(o)); }, 4, 3,
         ZM_A_REMOVE_CHATROOM_KVS_R, "room_id:", kv},
        // The keys' JSON text is written before any check: too deep for JSON, it is empty.
        {[&](V v, auto& o) { client.getChatRoomEntriesByBatch(v, v, ok(o), o.error()); }, 4, 3,
         ZM_A_GET_CHATROOM_BATCH_KV_R, "room_id:", kv},
        {[&](V v, auto& o) { client.getAllChatRoomEntries(v, ok(o), o.error()); }, 4, 3, ZM_A_GET_CHATROOM_ALL_KV_R,
         "room_id:", kv}};
    std::vector<std::pair<ZMValue, std::string>> badIds = {
        {nullptr, "(null)"}, {"", ""}, {std::string(65, 'x'), std::string(65, 'x')}, {12, "12"}};
    for (bool dictionaries : {false, true}) {  // moved in: copying recurses once per level
        badIds.emplace_back(nestedValue(10000, dictionaries), cutShortText(64, dictionaries));
    }
    for (size_t i = 0; i < operations.size(); ++i) {
        const Operation& op = operations[i];
        for (const auto& [badId, rendered] : badIds) {
            SCOPED_TRACE(::testing::Message() << "operation " << i << " with " << rendered.substr(0, 70));
            core.logger().clear();
            failedEntries.clear();
            CallOutcome o;
            runOnSmallStack([&, &badId = badId] {
                o.caller = std::this_thread::get_id();
                op.call(badId, o);
                o.returned = true;
            });
            EXPECT_EQ(std::tuple(o.errors.load(), o.successes.load(), o.code.load(), o.onCallerThread.load(),
                                 o.beforeReturn.load()), std::tuple(1, 0, ZMErrorInvalidParameter, true, true));
            EXPECT_EQ(failedEntries, std::vector<ZMValue>(i == 12 || i == 13, ZMValue::object()));
            const auto written = core.logger().lines();
            ASSERT_EQ(written.size(), op.lineCount);
            const bool diagnostic = op.tag == kClientTag;
            EXPECT_EQ(written.back(), (ZMLogLine{op.after.empty() ? 2 : 4, diagnostic ? ZMLogTypeDiagnostic
                                                 : ZMLogTypeOperation, op.tag, op.before + rendered + op.after}));
            if (rendered.size() < 100) continue;
            size_t shown = 0;
            for (const auto& line : written) {
                for (auto at = line.text.find(rendered); at != std::string::npos; at = line.text.find(rendered, at + 1)) {
                    ++shown;
                }
            }
            EXPECT_EQ(shown, op.renderings);
        }
    }
    // A join mode other than 0 or 1 is refused too, once the room id passed.
    for (const auto& [room, mode, code, text] : std::vector<std::tuple<std::string, int32_t, int32_t, std::string>>{
             {"r1", 2, ZMErrorInvalidJoinMode, "code:34258,mode:2"},
             {"r1", -1, ZMErrorInvalidJoinMode, "code:34258,mode:-1"},
             {"", 2, ZMErrorInvalidParameter, "code:34210,room_id:"}}) {
        SCOPED_TRACE(text);
        core.logger().clear();
        CallOutcome o;
        ZMChatRoomClientTestPeer::join(room, 10, mode, o.error());
        o.returned = true;
        EXPECT_EQ(std::tuple(o.errors.load(), o.code.load(), o.beforeReturn.load()), std::tuple(1, code, true));
        EXPECT_EQ(logged(ZM_A_JION_CHATROOM_R), lines(ZM_A_JION_CHATROOM_R, 2, {text}));
    }
    settle();
    EXPECT_TRUE(core.requests().empty());
    EXPECT_TRUE(status->events.events().empty());
    EXPECT_EQ(client.syncKVChatRoomDict().count(), 0u);
}
