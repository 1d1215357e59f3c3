// The emulated server side of the chat-room key-value store.
#include <algorithm>

#include <Platform/ZMMainQueue.h>

#include "emulator_tests/ZMEmulatorTestDoubles.h"

namespace {

using FirstSync = ZMCoreEmulator::KVFirstSync;
using RoomStep = std::function<void(const std::string& room)>;
const ZMValue kNone = ZMValue::object();
const ZMValue kUntouched = {{"mine", "m"}, {"theirs", "t"}};

std::string kv(const std::string& room, const ZMValue& updated, const ZMValue& removed) {
    return "kv:" + room + ":" + updated.dump() + ":" + removed.dump();
}
// Expected lines written once for every row: "%" stands for the row's room.
Strings withRoom(Strings lines, const std::string& room) {
    for (auto& line : lines) {
        if (auto at = line.find('%'); at != std::string::npos) line.replace(at, 1, room);
    }
    return lines;
}

// Talks to the emulated service the way the module does and records what the
// module would hear, in delivery order: answers as "answer[:arguments]",
// pushes as "sync:<room>" and "kv:<room>:<updated>:<removed>". Each test
// starts from the emulator's reset (ZMTestMain), rooms empty.
class KVServerTest : public ::testing::Test {
protected:
    ZMEventRecorder heard;

    void SetUp() override {
        emulator().setKVFirstSync(FirstSync::Never);
        service().initChatRoomListener(recording(heard, "sync"), recording(heard, "kv"), nullptr);
    }
    void TearDown() override {
        EXPECT_TRUE(emulator().waitUntilIdle());  // the callbacks record into this fixture
        service().initChatRoomListener(nullptr, nullptr, nullptr);
    }
    Strings hear(const std::function<void()>& step) { return after(heard, step); }
    auto answer() { return recording(heard, "answer"); }
    void join(const std::string& room) { service().joinChatroom(room, 10, false, 0, answer()); }
    void quit(const std::string& room) { service().quitChatroom(room, answer()); }
    void set(const std::string& room, const std::string& key, bool overwrite = false, bool autoDelete = false,
             bool notify = false, const std::string& value = "v") {
        service().setChatroomStatus(room, key, value, overwrite, autoDelete, notify, "ZM:chrmKVNotiMsg", {'{', '}'},
                                    0, answer(), answer());
    }
    // A room the current user is in, holding "mine" (written by the current
    // user) and "theirs" (written by other-user).
    void prepareRoom(const std::string& room) {
        hear([&] { join(room); });
        emulator().seedChatRoomEntries(room, {{"mine", "m"}}, emulator().currentUserId());
        emulator().seedChatRoomEntries(room, {{"theirs", "t"}});
    }
};

TEST_F(KVServerTest, SingleWritesAreJudgedBySwitchMembershipOwnershipAndCapacity) {
    const RoomStep quitFirst = [](auto& room) { service().quitChatroom(room, nullptr); };
    const RoomStep capacityTwo = [](auto&) { emulator().setKVRoomCapacity(2); };
    const struct {
        const char* name;
        bool isSet;
        std::string key;
        bool overwrite;
        int32_t code;            // 0: applied, answered success and echoed
        std::string echo;        // the echo push: updated:removed
        ZMValue storeAfter;
        std::string ownerAfter;  // of the key; "" when absent
        RoomStep prepare = {};
    } rows[] = {
        {"set a new key", 1, "k", 0, 0, R"({"k":"v"}:{})", {{"k", "v"}, {"mine", "m"}, {"theirs", "t"}}, "me"},
        {"set own key without overwrite", 1, "mine", 0, 0, R"({"mine":"v"}:{})", {{"mine", "v"}, {"theirs", "t"}},
         "me"},
        {"set another user's key without overwrite", 1, "theirs", 0, 23423, "", kUntouched, "other-user"},
        {"set another user's key with overwrite", 1, "theirs", 1, 0, R"({"theirs":"v"}:{})",
         {{"mine", "m"}, {"theirs", "v"}}, "me"},
        {"set a new key in a full room", 1, "k", 0, 23424, "", kUntouched, "", capacityTwo},
        {"set an existing key in a full room", 1, "mine", 0, 0, R"({"mine":"v"}:{})", {{"mine", "v"}, {"theirs", "t"}},
         "me", capacityTwo},
        {"set outside the room", 1, "k", 1, 23406, "", kUntouched, "", quitFirst},
        {"set with the KV switch off", 1, "k", 1, 23426, "", kUntouched, "",
         [](auto&) { emulator().setChatroomKVStorageEnabled(false); }},
        {"set without navigation data", 1, "k", 1, 23426, "", kUntouched, "",
         [](auto&) { emulator().setNaviDataAvailable(false); }},
        {"set outside the room with the switch off", 1, "k", 1, 23426, "", kUntouched, "",
         [&](auto& room) { quitFirst(room), emulator().setChatroomKVStorageEnabled(false); }},
        {"remove own key", 0, "mine", 0, 0, R"({}:{"mine":"m"})", {{"theirs", "t"}}, ""},
        {"remove another user's key without overwrite", 0, "theirs", 0, 23423, "", kUntouched, "other-user"},
        {"remove another user's key with overwrite", 0, "theirs", 1, 0, R"({}:{"theirs":"t"})", {{"mine", "m"}}, ""},
        {"remove a missing key", 0, "k", 1, 23425, "", kUntouched, ""},
        {"remove outside the room", 0, "mine", 1, 23406, "", kUntouched, "me", quitFirst},
    };
    emulator().setCurrentUserId("me");
    int index = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string room = numbered("single-", index++);
        prepareRoom(room);
        if (row.prepare) row.prepare(room);
        emulator().clearKVNotifications();
        const Strings heardNow = hear([&] {
            if (row.isSet) return set(room, row.key, row.overwrite, false, true);
            service().removeChatRoomStatus(room, row.key, row.overwrite, true, "ZM:chrmKVNotiMsg", {'{', '}'}, 0,
                                           answer(), answer());
        });
        emulator().setKVRoomCapacity(100);
        emulator().setChatroomKVStorageEnabled(true);
        emulator().setNaviDataAvailable(true);
        const Strings applied = {"answer", "kv:" + room + ":" + row.echo};
        EXPECT_EQ(heardNow, row.code ? Strings{numbered("answer:", row.code)} : applied);
        EXPECT_EQ(emulator().chatRoomEntries(room), row.storeAfter);
        EXPECT_EQ(emulator().chatRoomEntryOwner(room, row.key).value_or(""), row.ownerAfter);
        // The notification goes out with an applied write only.
        using Notes = std::vector<ZMKVNotification>;
        EXPECT_EQ(emulator().kvNotifications(), row.code ? Notes{} : (Notes{{room, "ZM:chrmKVNotiMsg", "{}"}}));
    }
}

TEST_F(KVServerTest, BatchWritesJudgeEveryEntryInKeyOrderAndEchoOnlyTheAppliedOnes) {
    // argument: the entries or keys; in: whether the user is in the room; heard: "%" is the room.
    const struct { const char* name; bool isSet; ZMValue argument; bool overwrite, in; Strings heard; ZMValue after; }
        rows[] = {
        // Capacity 4: "a" and "c" fill the room, "d" finds it full; "d" comes
        // before "theirs", so its code is the request's.
        {"set with failures", true, {{"a", "1"}, {"theirs", "2"}, {"c", "3"}, {"d", "4"}}, false, true,
         {R"(answer:23424:{"d":23424,"theirs":23423})", R"(kv:%:{"a":"1","c":"3"}:{})"},
         {{"a", "1"}, {"c", "3"}, {"mine", "m"}, {"theirs", "t"}}},
        {"set, all applied", true, {{"mine", "1"}, {"theirs", "2"}}, true, true,
         {"answer", R"(kv:%:{"mine":"1","theirs":"2"}:{})"}, {{"mine", "1"}, {"theirs", "2"}}},
        {"set, nothing applied", true, {{"theirs", "2"}}, false, true, {R"(answer:23423:{"theirs":23423})"},
         kUntouched},
        {"set outside the room", true, {{"a", "1"}, {"b", "2"}}, true, false, {R"(answer:23406:{"a":23406,"b":23406})"},
         kUntouched},
        {"remove with failures", false, {"zz", "theirs", "mine", "mine"}, false, true,
         {R"(answer:23423:{"theirs":23423,"zz":23425})", R"(kv:%:{}:{"mine":"m"})"}, {{"theirs", "t"}}},
        {"remove, all applied", false, {"theirs", "mine"}, true, true,
         {"answer", R"(kv:%:{}:{"mine":"m","theirs":"t"})"}, kNone},
        {"remove outside the room", false, {"mine"}, true, false, {R"(answer:23406:{"mine":23406})"}, kUntouched},
        {"remove no key outside the room", false, ZMValue::array(), true, false, {"answer:23406:{}"}, kUntouched},
    };
    emulator().setKVRoomCapacity(4);
    int index = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string room = numbered("batch-", index++);
        prepareRoom(room);
        if (!row.in) hear([&] { quit(room); });
        auto& ps = service();
        const auto& what = row.argument;
        const bool overwrite = row.overwrite;
        EXPECT_EQ(hear([&] {
                      if (row.isSet) return ps.setChatRoomEntries(room, what, overwrite, false, answer(), answer());
                      ps.removeChatRoomEntries(room, what, overwrite, answer(), answer());
                  }),
                  withRoom(row.heard, room));
        EXPECT_EQ(emulator().chatRoomEntries(room), row.after);
    }
}

TEST_F(KVServerTest, LeavingEndsMembershipAndDropsTheUsersAutoDeleteEntries) {
    const ZMValue kept = {{"c", "3"}, {"mine", "m"}, {"other-auto", "x"}, {"theirs", "t"}};
    const struct { const char* name; RoomStep leave; Strings heard; ZMValue storeAfter; } rows[] = {
        // The removal is pushed once, after the quit's answer.
        {"quit", [&](auto& room) { quit(room); }, {"answer:0", R"(kv:%:{}:{"a":"1","b":"2"})"}, kept},
        {"logout", [](auto&) { emulator().logout(); }, {}, kept},
        {"room destroyed", [](auto& room) { emulator().raiseRoomDestroyed(room, 0); }, {}, kNone},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string room = numbered("leave-", &row - rows);
        prepareRoom(room);
        // Another user's autoDelete entry stays when the current user leaves.
        emulator().setCurrentUserId("someone");
        hear([&] { set(room, "other-auto", false, true, false, "x"); });
        emulator().setCurrentUserId("emulator-user");
        hear([&] {
            service().setChatRoomEntries(room, {{"a", "1"}, {"b", "2"}}, false, true, nullptr, nullptr);
            set(room, "c", false, false, false, "3");
        });
        EXPECT_EQ(hear([&] { row.leave(room); }), withRoom(row.heard, room));
        EXPECT_EQ(emulator().chatRoomEntries(room), row.storeAfter);
        EXPECT_EQ(hear([&] { set(room, "k"); }), Strings{"answer:23406"});
    }
}

TEST_F(KVServerTest, TheFirstSynchronisationFollowsASuccessfulJoinAnswerAsConfigured) {
    auto& mainQueue = ZMMainQueue::shared();
    // existing: joinExistingChatroom; "%" is the room; later: once the main queue's clock reached the delay.
    const struct { const char* name; FirstSync mode; double delay; int32_t code; bool existing; Strings atJoin, later; }
        rows[] = {
        {"immediately", FirstSync::Immediately, 0, 0, false, {"answer:0:{}", "sync:%"}, {}},
        {"immediately after a reset", FirstSync::Immediately, 0, 33009, true, {"answer:33009:{}", "sync:%"}, {}},
        {"never", FirstSync::Never, 0, 0, false, {"answer:0:{}"}, {}},
        {"after a delay", FirstSync::AfterDelay, 1.5, 0, true, {"answer:0:{}"}, {"sync:%"}},
        {"not after a failed join", FirstSync::Immediately, 0, 23410, false, {"answer:23410:{}"}, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string room = numbered("sync-", &row - rows);
        emulator().setKVFirstSync(row.mode, row.delay);
        emulator().setRule(row.existing ? "joinExistingChatroom" : "joinChatroom", ZMCoreAnswer::failure(row.code));
        EXPECT_EQ(hear([&] {
                      if (row.existing) return service().joinExistingChatroom(room, 10, false, 0, answer());
                      join(room);
                  }),
                  withRoom(row.atJoin, room));
        EXPECT_EQ(hear([&] { mainQueue.advance(1.25); }), Strings{});
        EXPECT_EQ(hear([&] { mainQueue.advance(0.25); }), withRoom(row.later, room));
        EXPECT_EQ(mainQueue.activeTimerCount(), 0u);
        // Membership came from the join answer, whoever gave it.
        EXPECT_EQ(hear([&] { set(room, "k"); }).front(), row.code == 23410 ? "answer:23406" : "answer");
        emulator().clearRules();
    }
}

TEST_F(KVServerTest, AFirstSynchronisationStillDueIsDroppedWhenTheUserLeavesOrTheModelIsSwitchedOff) {
    auto& mainQueue = ZMMainQueue::shared();
    emulator().setKVFirstSync(FirstSync::AfterDelay, 2);
    const RoomStep cancels[] = {
        [&](auto& room) { quit(room); }, [](auto&) { emulator().logout(); },
        [](auto& room) { emulator().raiseRoomDestroyed(room, 0); },
        [](auto&) { emulator().setKVServerModelEnabled(false); },
        [&](auto& room) { join(room); },  // joining again starts over: only the new stay's push comes, 2 s after it
    };
    for (int index = 0; index < 5; ++index) {
        SCOPED_TRACE(index);
        const std::string room = numbered("due-", index);
        const bool rejoined = index == 4;
        hear([&] { join(room); });
        EXPECT_EQ(mainQueue.activeTimerCount(), 1u);
        hear([&] { mainQueue.advance(1); });
        hear([&] { cancels[index](room); });
        EXPECT_EQ(mainQueue.activeTimerCount(), rejoined ? 1u : 0u);
        EXPECT_EQ(hear([&] { mainQueue.advance(1); }), Strings{});
        EXPECT_EQ(hear([&] { mainQueue.advance(1); }), rejoined ? Strings{"sync:" + room} : Strings{});
        emulator().setKVServerModelEnabled(true);
    }
    // Left and joined again from inside the join's own answer, before its
    // push was scheduled: only the second stay is synchronised.
    emulator().setRule("joinChatroom", [](const ZMCoreRequest& request) -> std::optional<ZMCoreAnswer> {
        return ZMCoreAnswer::success({{"first", request.id}});
    });
    hear([&] {
        service().joinChatroom("inside", 10, false, 0, [](int32_t, const ZMValue& result) {
            if (!result.contains("first")) return;
            service().quitChatroom("inside", nullptr);
            emulator().setRule("joinChatroom", ZMCoreAnswer::success());
            service().joinChatroom("inside", 10, false, 0, nullptr);
        });
    });
    EXPECT_EQ(mainQueue.activeTimerCount(), 1u);
    EXPECT_EQ(hear([&] { mainQueue.advance(2); }), Strings{"sync:inside"});
    emulator().clearRules();
    // A held join makes the user a member when it is answered, by hand too.
    emulator().setKVFirstSync(FirstSync::Immediately);
    emulator().holdRequests("joinChatroom");
    EXPECT_EQ(hear([&] { join("held"); }), Strings{});
    EXPECT_EQ(hear([&] { set("held", "k"); }), Strings{"answer:23406"});
    EXPECT_EQ(hear([&] { emulator().answer(emulator().heldRequests().at(0).id, ZMCoreAnswer::success()); }),
              (Strings{"answer:0:{}", "sync:held"}));
    EXPECT_EQ(hear([&] { set("held", "k"); }).front(), "answer");
}

TEST_F(KVServerTest, ChangesMadeThroughTheControlApiArePushedToMembersOnly) {
    emulator().seedChatRoomEntries("r", {{"s", "1"}});  // before anyone joined: the first synchronisation finds it
    emulator().setKVFirstSync(FirstSync::Immediately);
    EXPECT_EQ(hear([&] { join("r"); }), (Strings{"answer:0:{}", "sync:r"}));
    EXPECT_EQ(hear([&] { service().getAllChatRoomEntries("r", 0, answer(), 0); }), Strings{R"(answer:{"s":"1"})"});
    const std::pair<std::function<void()>, Strings> rows[] = {
        {[] { emulator().seedChatRoomEntries("r", {{"a", "1"}}, "x"); }, {}},
        {[] { emulator().changeChatRoomEntries("r", {{"a", "2"}, {"b", "3"}}); }, {R"(kv:r:{"a":"2","b":"3"}:{})"}},
        {[] { emulator().deleteChatRoomEntries("r", {"a", "missing"}); }, {R"(kv:r:{}:{"a":"2"})"}},
        {[] { emulator().deleteChatRoomEntries("r", {"missing"}); }, {}},
    };
    for (const auto& [change, expected] : rows) EXPECT_EQ(hear(change), expected);
    EXPECT_EQ(emulator().chatRoomEntries("r"), ZMValue({{"b", "3"}, {"s", "1"}}));
    EXPECT_EQ(emulator().chatRoomEntryOwner("r", "b"), "other-user");
    hear([&] { quit("r"); });
    for (const auto& [change, expected] : rows) EXPECT_EQ(hear(change), Strings{}) << "outside the room";
}

TEST_F(KVServerTest, ReadsAnswerMembersFromTheStoreUnlessARuleOrTheModelSwitchedOffAnswers) {
    prepareRoom("r");
    auto& ps = service();
    const std::string all = R"(answer:{"mine":"m","theirs":"t"})";
    const std::pair<std::function<void()>, std::string> reads[] = {
        {[&] { ps.getChatRoomEntry("r", "mine", answer(), answer()); }, R"(answer:{"mine":"m"})"},
        {[&] { ps.getChatRoomEntry("r", "k", answer(), answer()); }, "answer:23425"},
        {[&] { ps.getChatRoomEntriesByBatch("r", {"theirs", "k"}, answer(), answer()); }, R"(answer:{"theirs":"t"})"},
        {[&] { ps.getAllChatRoomEntries("r", true, answer(), answer()); }, all},
        {[&] { ps.getAllChatRoomEntries("r", false, answer(), answer()); }, all},
    };
    for (const auto& [read, expected] : reads) EXPECT_EQ(hear(read), Strings{expected});
    emulator().setChatroomKVStorageEnabled(false);
    for (const auto& [read, expected] : reads) EXPECT_EQ(hear(read), Strings{"answer:23426"}) << expected;
    emulator().setChatroomKVStorageEnabled(true);
    // A rule's answer, a held request answered by hand: the store is untouched and nothing is echoed.
    emulator().setRule("setChatroomStatus", ZMCoreAnswer::success());
    emulator().setRule("getChatRoomEntry", ZMCoreAnswer::success({{"x", "y"}}));
    emulator().holdRequests("removeChatRoomEntries");
    EXPECT_EQ(hear([&] { set("r", "k", false, false, true); }), Strings{"answer"});
    EXPECT_EQ(hear([&] { ps.getChatRoomEntry("r", "mine", answer(), answer()); }), Strings{R"(answer:{"x":"y"})"});
    hear([&] { ps.removeChatRoomEntries("r", {"mine"}, false, answer(), answer()); });
    EXPECT_EQ(hear([&] { emulator().answer(emulator().heldRequests().at(0).id, ZMCoreAnswer::success()); }),
              Strings{"answer"});
    EXPECT_EQ(emulator().chatRoomEntries("r"), kUntouched);
    EXPECT_TRUE(emulator().kvNotifications().empty());
    emulator().clearRules();
    // Switched off (the answers are the plain defaults), nothing is stored or
    // pushed, and joins and quits are not followed.
    emulator().setKVServerModelEnabled(false);
    emulator().setKVFirstSync(FirstSync::Immediately);
    EXPECT_EQ(hear([&] { join("off"); }), Strings{"answer:0:{}"});
    EXPECT_EQ(hear([&] { set("off", "k", false, true); }), Strings{"answer"});
    EXPECT_EQ(hear([&] { emulator().changeChatRoomEntries("r", {{"mine", "n"}}); }), Strings{});
    EXPECT_EQ(hear([&] { quit("r"); }), Strings{"answer:0"});
    EXPECT_EQ(emulator().chatRoomEntries("off"), kNone);
    // On again: the user is still in the room the model saw it join.
    emulator().setKVServerModelEnabled(true);
    EXPECT_EQ(hear([&] { set("r", "k"); }), (Strings{"answer", kv("r", {{"k", "v"}}, kNone)}));
    EXPECT_EQ(hear([&] { set("off", "k"); }), Strings{"answer:23406"});
    hear([&] { quit("r"); });
    for (const auto& [read, expected] : reads) EXPECT_EQ(hear(read), Strings{"answer:23406"}) << expected;
}

TEST_F(KVServerTest, AnswersAndEchoesRunOnCallbackThreadsAndEachEchoFollowsItsAnswer) {
    hear([&] { join("r"); });
    emulator().setCallbackThreadCount(3);
    auto key = [](int w, int i) { return numbered("k", w * 10 + i); };
    std::vector<std::thread> writers;
    for (int w = 0; w < 3; ++w) {
        writers.emplace_back([&, w] {
            for (int i = 0; i < 10; ++i) {
                service().setChatroomStatus("r", key(w, i), "v", false, false, false, "", {}, 0,
                                            recording(heard, "answer:" + key(w, i)), nullptr);
            }
        });
    }
    for (auto& writer : writers) writer.join();
    ASSERT_TRUE(emulator().waitUntilIdle());
    const Strings events = heard.events();
    ASSERT_EQ(events.size(), 61u);  // the join's answer, then 30 answers and 30 echoes
    for (int n = 0; n < 30; ++n) {
        const auto echoed = std::find(events.begin(), events.end(), kv("r", {{key(n / 10, n % 10), "v"}}, kNone));
        ASSERT_NE(echoed, events.end()) << n;
        EXPECT_LT(std::find(events.begin(), events.end(), "answer:" + key(n / 10, n % 10)), echoed) << n;
    }
    EXPECT_EQ(emulator().chatRoomEntries("r").size(), 30u);
    // Without sendNotification nothing is kept; a write is owned by the current user.
    EXPECT_TRUE(emulator().kvNotifications().empty());
    EXPECT_EQ(emulator().chatRoomEntryOwner("r", key(2, 9)), "emulator-user");
}

}  // namespace
