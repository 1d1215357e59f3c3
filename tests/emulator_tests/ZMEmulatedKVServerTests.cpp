#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <Platform/ZMMainQueue.h>

#include "emulator_tests/ZMEmulatorTestDoubles.h"

namespace {

using Strings = std::vector<std::string>;
using FirstSync = ZMCoreEmulator::KVFirstSync;

// Talks to the emulated service the way the module does and records what the
// module would hear, in delivery order: answers as "answer[:arguments]",
// pushes as "sync:<room>" and "kv:<room>:<updated>:<removed>".
class KVServerTest : public ::testing::Test {
protected:
    ZMEventRecorder heard;

    // Rooms outlive a test in the process-wide emulator: every test names its
    // rooms afresh, so that repeated runs in one process start from empty rooms.
    std::string named(const std::string& room) const { return prefix_ + room; }

    void SetUp() override {
        emulator().clearRules();
        emulator().setKVServerModelEnabled(true);
        emulator().setKVFirstSync(FirstSync::Never);
        emulator().setKVRoomCapacity(100);
        emulator().setChatroomKVStorageEnabled(true);
        emulator().setNaviDataAvailable(true);
        emulator().setCallbackThreadCount(1);
        emulator().clearKVNotifications();
        service().initChatRoomListener(recording(heard, "sync"), recording(heard, "kv"), nullptr);
    }
    void TearDown() override {
        // The callbacks record into this fixture: none may run after it.
        EXPECT_TRUE(emulator().waitUntilIdle());
        service().initChatRoomListener(nullptr, nullptr, nullptr);
        // What later tests in the same process expect to find.
        emulator().setCallbackThreadCount(1);
        emulator().setKVFirstSync(FirstSync::Immediately);
    }

    // What one step made the module hear, once everything it caused has run.
    Strings after(const std::function<void()>& step) {
        heard.clear();
        step();
        EXPECT_TRUE(emulator().waitUntilIdle());
        return heard.events();
    }
    auto answer() { return recording(heard, "answer"); }

private:
    inline static int runs_ = 0;
    const std::string prefix_ = numbered("run", ++runs_) + "-";

protected:

    void join(const std::string& room) { service().joinChatroom(room, 10, false, 0, answer()); }
    void quit(const std::string& room) { service().quitChatroom(room, answer()); }
    void set(const std::string& room, const std::string& key, const std::string& value, bool overwrite = false,
             bool autoDelete = false, bool notify = false) {
        service().setChatroomStatus(room, key, value, overwrite, autoDelete, notify, "ZM:chrmKVNotiMsg",
                                    {'{', '}'}, 0, answer(), answer());
    }
    void remove(const std::string& room, const std::string& key, bool overwrite = false, bool notify = false) {
        service().removeChatRoomStatus(room, key, overwrite, notify, "ZM:chrmKVNotiMsg", {'{', '}'}, 0, answer(),
                                       answer());
    }
    // A room the current user is in, holding "mine" (written by the current
    // user) and "theirs" (written by other-user).
    void prepareRoom(const std::string& room) {
        after([&] { join(room); });
        emulator().seedChatRoomEntries(room, {{"mine", "m"}}, emulator().currentUserId());
        emulator().seedChatRoomEntries(room, {{"theirs", "t"}});
    }
    static std::string kv(const std::string& room, const ZMValue& updated, const ZMValue& removed) {
        return "kv:" + room + ":" + updated.dump() + ":" + removed.dump();
    }
    // Expected lines written once for every row: "%" stands for the row's room.
    static Strings withRoom(Strings lines, const std::string& room) {
        for (auto& line : lines) {
            if (auto at = line.find('%'); at != std::string::npos) line.replace(at, 1, room);
        }
        return lines;
    }
};

const ZMValue kNone = ZMValue::object();

TEST_F(KVServerTest, SingleWritesAreJudgedBySwitchMembershipOwnershipAndCapacity) {
    enum Op { kSet, kRemove };
    const ZMValue kUntouched = {{"mine", "m"}, {"theirs", "t"}};
    const auto quitFirst = [](const std::string& room) { service().quitChatroom(room, nullptr); };
    const auto capacityTwo = [](const std::string&) { emulator().setKVRoomCapacity(2); };
    const struct {
        const char* name;
        Op op;
        std::string key;
        bool overwrite;
        int32_t code;            // 0: applied, answered success and echoed
        std::string echo;        // the echo push: updated:removed
        ZMValue storeAfter;
        std::string ownerAfter;  // of the key; "" when absent
        std::function<void(const std::string& room)> prepare = {};
    } rows[] = {
        {"set a new key", kSet, "k", false, 0, R"({"k":"v"}:{})", {{"k", "v"}, {"mine", "m"}, {"theirs", "t"}}, "me"},
        {"set own key without overwrite", kSet, "mine", false, 0, R"({"mine":"v"}:{})",
         {{"mine", "v"}, {"theirs", "t"}}, "me"},
        {"set another user's key without overwrite", kSet, "theirs", false, 23423, "", kUntouched, "other-user"},
        {"set another user's key with overwrite", kSet, "theirs", true, 0, R"({"theirs":"v"}:{})",
         {{"mine", "m"}, {"theirs", "v"}}, "me"},
        {"set a new key in a full room", kSet, "k", false, 23424, "", kUntouched, "", capacityTwo},
        {"set an existing key in a full room", kSet, "mine", false, 0, R"({"mine":"v"}:{})",
         {{"mine", "v"}, {"theirs", "t"}}, "me", capacityTwo},
        {"set outside the room", kSet, "k", true, 23406, "", kUntouched, "", quitFirst},
        {"set with the KV switch off", kSet, "k", true, 23426, "", kUntouched, "",
         [](auto&) { emulator().setChatroomKVStorageEnabled(false); }},
        {"set without navigation data", kSet, "k", true, 23426, "", kUntouched, "",
         [](auto&) { emulator().setNaviDataAvailable(false); }},
        {"set outside the room with the switch off", kSet, "k", true, 23426, "", kUntouched, "",
         [&](auto& room) {
             quitFirst(room);
             emulator().setChatroomKVStorageEnabled(false);
         }},
        {"remove own key", kRemove, "mine", false, 0, R"({}:{"mine":"m"})", {{"theirs", "t"}}, ""},
        {"remove another user's key without overwrite", kRemove, "theirs", false, 23423, "", kUntouched,
         "other-user"},
        {"remove another user's key with overwrite", kRemove, "theirs", true, 0, R"({}:{"theirs":"t"})",
         {{"mine", "m"}}, ""},
        {"remove a missing key", kRemove, "k", true, 23425, "", kUntouched, ""},
        {"remove outside the room", kRemove, "mine", true, 23406, "", kUntouched, "me", quitFirst},
    };
    emulator().setCurrentUserId("me");
    int index = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string room = named(numbered("single-", index++));
        prepareRoom(room);
        if (row.prepare) row.prepare(room);
        emulator().clearKVNotifications();
        const Strings heardNow = after([&] {
            row.op == kSet ? set(room, row.key, "v", row.overwrite, false, true)
                           : remove(room, row.key, row.overwrite, true);
        });
        emulator().setKVRoomCapacity(100);
        emulator().setChatroomKVStorageEnabled(true);
        emulator().setNaviDataAvailable(true);

        const Strings expected = row.code ? Strings{"answer:" + std::to_string(row.code)}
                                          : Strings{"answer", "kv:" + room + ":" + row.echo};
        EXPECT_EQ(heardNow, expected);
        EXPECT_EQ(emulator().chatRoomEntries(room), row.storeAfter);
        EXPECT_EQ(emulator().chatRoomEntryOwner(room, row.key).value_or(""), row.ownerAfter);
        // The notification goes out with an applied write only.
        const auto notifications = emulator().kvNotifications();
        if (row.code) {
            EXPECT_TRUE(notifications.empty());
        } else {
            EXPECT_EQ(notifications, (std::vector<ZMKVNotification>{{room, "ZM:chrmKVNotiMsg", "{}"}}));
        }
    }
    // Without sendNotification nothing is kept; a write is owned by the
    // current user, whoever that is.
    emulator().setCurrentUserId("emulator-user");
    const std::string quiet = named("single-quiet");
    after([&] { join(quiet); });
    emulator().clearKVNotifications();
    EXPECT_EQ(after([&] { set(quiet, "k", "v"); }), (Strings{"answer", kv(quiet, {{"k", "v"}}, kNone)}));
    EXPECT_TRUE(emulator().kvNotifications().empty());
    EXPECT_EQ(emulator().chatRoomEntryOwner(quiet, "k"), "emulator-user");
}

TEST_F(KVServerTest, BatchWritesJudgeEveryEntryInKeyOrderAndEchoOnlyTheAppliedOnes) {
    const struct {
        const char* name;
        bool isSet;
        ZMValue argument;  // entries or keys
        bool overwrite;
        bool inRoom;
        Strings heard;     // "%" is the room
        ZMValue storeAfter;
    } rows[] = {
        // Capacity 4: "a" and "c" fill the room, "d" finds it full; "d" comes
        // before "theirs", so its code is the request's.
        {"set with failures", true, {{"a", "1"}, {"theirs", "2"}, {"c", "3"}, {"d", "4"}}, false, true,
         {R"(answer:23424:{"d":23424,"theirs":23423})", R"(kv:%:{"a":"1","c":"3"}:{})"},
         {{"a", "1"}, {"c", "3"}, {"mine", "m"}, {"theirs", "t"}}},
        {"set, all applied", true, {{"mine", "1"}, {"theirs", "2"}}, true, true,
         {"answer", R"(kv:%:{"mine":"1","theirs":"2"}:{})"}, {{"mine", "1"}, {"theirs", "2"}}},
        {"set, nothing applied", true, {{"theirs", "2"}}, false, true, {R"(answer:23423:{"theirs":23423})"},
         {{"mine", "m"}, {"theirs", "t"}}},
        {"set outside the room", true, {{"a", "1"}, {"b", "2"}}, true, false,
         {R"(answer:23406:{"a":23406,"b":23406})"}, {{"mine", "m"}, {"theirs", "t"}}},
        {"remove with failures", false, {"zz", "theirs", "mine", "mine"}, false, true,
         {R"(answer:23423:{"theirs":23423,"zz":23425})", R"(kv:%:{}:{"mine":"m"})"}, {{"theirs", "t"}}},
        {"remove, all applied", false, {"theirs", "mine"}, true, true,
         {"answer", R"(kv:%:{}:{"mine":"m","theirs":"t"})"}, ZMValue::object()},
        {"remove outside the room", false, {"mine"}, true, false, {R"(answer:23406:{"mine":23406})"},
         {{"mine", "m"}, {"theirs", "t"}}},
        {"remove no key outside the room", false, ZMValue::array(), true, false, {"answer:23406:{}"},
         {{"mine", "m"}, {"theirs", "t"}}},
    };
    emulator().setKVRoomCapacity(4);
    int index = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string room = named(numbered("batch-", index++));
        prepareRoom(room);
        if (!row.inRoom) after([&] { quit(room); });
        const auto write = [&] {
            auto& ps = service();
            if (row.isSet) return ps.setChatRoomEntries(room, row.argument, row.overwrite, false, answer(), answer());
            ps.removeChatRoomEntries(room, row.argument, row.overwrite, answer(), answer());
        };
        EXPECT_EQ(after(write), withRoom(row.heard, room));
        EXPECT_EQ(emulator().chatRoomEntries(room), row.storeAfter);
    }
}

TEST_F(KVServerTest, ReadsAnswerFromTheStoreToMembersOnly) {
    const std::string room = named("reads");
    prepareRoom(room);
    const struct {
        const char* name;
        std::function<void()> read;
        std::string answer;
    } rows[] = {
        {"one entry", [&] { service().getChatRoomEntry(room, "mine", answer(), answer()); }, R"(answer:{"mine":"m"})"},
        {"a missing entry", [&] { service().getChatRoomEntry(room, "k", answer(), answer()); }, "answer:23425"},
        {"a batch", [&] { service().getChatRoomEntriesByBatch(room, {"theirs", "k"}, answer(), answer()); },
         R"(answer:{"theirs":"t"})"},
        {"all, synchronised", [&] { service().getAllChatRoomEntries(room, true, answer(), answer()); },
         R"(answer:{"mine":"m","theirs":"t"})"},
        {"all, not synchronised", [&] { service().getAllChatRoomEntries(room, false, answer(), answer()); },
         R"(answer:{"mine":"m","theirs":"t"})"},
    };
    for (const auto& row : rows) EXPECT_EQ(after(row.read), Strings{row.answer}) << row.name;
    emulator().setChatroomKVStorageEnabled(false);
    for (const auto& row : rows) EXPECT_EQ(after(row.read), Strings{"answer:23426"}) << row.name;
    emulator().setChatroomKVStorageEnabled(true);
    after([&] { quit(room); });
    for (const auto& row : rows) EXPECT_EQ(after(row.read), Strings{"answer:23406"}) << row.name;
}

TEST_F(KVServerTest, LeavingEndsMembershipAndDropsTheUsersAutoDeleteEntries) {
    const struct {
        const char* name;
        std::function<void(const std::string& room)> leave;
        Strings heard;  // "%" is the room
        ZMValue storeAfter;
    } rows[] = {
        // The removal is pushed once, after the quit's answer.
        {"quit", [&](auto& room) { quit(room); }, {"answer:0", R"(kv:%:{}:{"a":"1","b":"2"})"},
         {{"c", "3"}, {"mine", "m"}, {"other-auto", "x"}, {"theirs", "t"}}},
        {"logout", [](auto&) { emulator().logout(); }, {},
         {{"c", "3"}, {"mine", "m"}, {"other-auto", "x"}, {"theirs", "t"}}},
        {"room destroyed", [](auto& room) { emulator().raiseRoomDestroyed(room, 0); }, {}, ZMValue::object()},
    };
    int index = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string room = named(numbered("leave-", index++));
        prepareRoom(room);
        // Another user's autoDelete entry stays when the current user leaves.
        emulator().setCurrentUserId("someone");
        after([&] { set(room, "other-auto", "x", false, true); });
        emulator().setCurrentUserId("emulator-user");
        after([&] {
            service().setChatRoomEntries(room, {{"a", "1"}, {"b", "2"}}, false, true, nullptr, nullptr);
            set(room, "c", "3", false, false);
        });
        EXPECT_EQ(after([&] { row.leave(room); }), withRoom(row.heard, room));
        EXPECT_EQ(emulator().chatRoomEntries(room), row.storeAfter);
        EXPECT_EQ(after([&] { set(room, "k", "v"); }), Strings{"answer:23406"});
        // Pushes reach members only.
        EXPECT_EQ(after([&] { emulator().changeChatRoomEntries(room, {{"mine", "n"}}); }), Strings{});
    }
}

TEST_F(KVServerTest, TheFirstSynchronisationFollowsASuccessfulJoinAnswerAsConfigured) {
    auto& mainQueue = ZMMainQueue::shared();
    const struct {
        const char* name;
        FirstSync mode;
        double delay;
        int32_t joinCode;
        bool existingOnly;
        Strings heardAtJoin;   // "%" is the room
        Strings heardLater;    // after the main queue's clock reached the delay
    } rows[] = {
        {"immediately", FirstSync::Immediately, 0, 0, false, {"answer:0:{}", "sync:%"}, {}},
        {"immediately after a reset", FirstSync::Immediately, 0, 33009, true, {"answer:33009:{}", "sync:%"}, {}},
        {"never", FirstSync::Never, 0, 0, false, {"answer:0:{}"}, {}},
        {"after a delay", FirstSync::AfterDelay, 1.5, 0, true, {"answer:0:{}"}, {"sync:%"}},
        {"not after a failed join", FirstSync::Immediately, 0, 23410, false, {"answer:23410:{}"}, {}},
    };
    int index = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string room = named(numbered("sync-", index++));
        emulator().setKVFirstSync(row.mode, row.delay);
        const std::string operation = row.existingOnly ? "joinExistingChatroom" : "joinChatroom";
        emulator().setRule(operation, ZMCoreAnswer::failure(row.joinCode));
        const auto joinRoom = [&] {
            if (row.existingOnly) return service().joinExistingChatroom(room, 10, false, 0, answer());
            join(room);
        };
        EXPECT_EQ(after(joinRoom), withRoom(row.heardAtJoin, room));
        EXPECT_EQ(after([&] { mainQueue.advance(1.25); }), Strings{});
        EXPECT_EQ(after([&] { mainQueue.advance(0.25); }), withRoom(row.heardLater, room));
        EXPECT_EQ(mainQueue.activeTimerCount(), 0u);
        // Membership came from the join answer, whoever gave it.
        EXPECT_EQ(after([&] { set(room, "k", "v"); }).front(), row.joinCode == 23410 ? "answer:23406" : "answer");
        emulator().clearRules();
    }
}

TEST_F(KVServerTest, AFirstSynchronisationStillDueIsDroppedWhenTheUserLeavesOrTheModelIsSwitchedOff) {
    auto& mainQueue = ZMMainQueue::shared();
    emulator().setKVFirstSync(FirstSync::AfterDelay, 2);
    const std::function<void(const std::string&)> cancels[] = {
        [&](auto& room) { quit(room); },
        [](auto&) { emulator().logout(); },
        [](auto& room) { emulator().raiseRoomDestroyed(room, 0); },
        [](auto&) { emulator().setKVServerModelEnabled(false); },
        // Joining again starts over: only the new stay's push comes, 2 s after it.
        [&](auto& room) { join(room); },
    };
    int index = 0;
    for (const auto& cancel : cancels) {
        SCOPED_TRACE(index);
        const std::string room = named(numbered("due-", index++));
        after([&] { join(room); });
        EXPECT_EQ(mainQueue.activeTimerCount(), 1u);
        after([&] { mainQueue.advance(1); });
        after([&] { cancel(room); });
        const bool rejoined = index == 5;
        EXPECT_EQ(mainQueue.activeTimerCount(), rejoined ? 1u : 0u);
        EXPECT_EQ(after([&] { mainQueue.advance(1); }), Strings{});
        EXPECT_EQ(after([&] { mainQueue.advance(1); }), rejoined ? Strings{"sync:" + room} : Strings{});
        emulator().setKVServerModelEnabled(true);
    }
    // Left and joined again from inside the join's own answer, before its
    // push was scheduled: only the second stay is synchronised.
    emulator().setRule("joinChatroom", [](const ZMCoreRequest& request) -> std::optional<ZMCoreAnswer> {
        return ZMCoreAnswer::success({{"first", request.id}});
    });
    const std::string inside = named("due-inside");
    after([&] {
        service().joinChatroom(inside, 10, false, 0, [inside](int32_t, const ZMValue& result) {
            if (!result.contains("first")) return;
            service().quitChatroom(inside, nullptr);
            emulator().setRule("joinChatroom", ZMCoreAnswer::success());
            service().joinChatroom(inside, 10, false, 0, nullptr);
        });
    });
    EXPECT_EQ(mainQueue.activeTimerCount(), 1u);
    EXPECT_EQ(after([&] { mainQueue.advance(2); }), Strings{"sync:" + inside});
    emulator().clearRules();

    // A held join makes the user a member when it is answered, by hand too.
    emulator().setKVFirstSync(FirstSync::Immediately);
    emulator().holdRequests("joinChatroom");
    const std::string held = named("due-held");
    EXPECT_EQ(after([&] { join(held); }), Strings{});
    EXPECT_EQ(after([&] { set(held, "k", "v"); }), Strings{"answer:23406"});
    EXPECT_EQ(after([&] { emulator().answer(emulator().heldRequests().at(0).id, ZMCoreAnswer::success()); }),
              (Strings{"answer:0:{}", "sync:" + held}));
    EXPECT_EQ(after([&] { set(held, "k", "v"); }).front(), "answer");
}

TEST_F(KVServerTest, ChangesMadeThroughTheControlApiArePushedToMembersOnly) {
    const std::string room = named("control");
    // Seeded before anyone joined, so that the first synchronisation finds it.
    emulator().seedChatRoomEntries(room, {{"s", "1"}});
    emulator().setKVFirstSync(FirstSync::Immediately);
    EXPECT_EQ(after([&] { join(room); }), (Strings{"answer:0:{}", "sync:" + room}));
    EXPECT_EQ(after([&] { service().getAllChatRoomEntries(room, false, answer(), answer()); }),
              Strings{R"(answer:{"s":"1"})"});
    const struct {
        const char* name;
        std::function<void()> change;
        Strings heard;
    } rows[] = {
        {"seed", [&] { emulator().seedChatRoomEntries(room, {{"a", "1"}}, "x"); }, {}},
        {"change", [&] { emulator().changeChatRoomEntries(room, {{"a", "2"}, {"b", "3"}}); },
         {kv(room, {{"a", "2"}, {"b", "3"}}, kNone)}},
        {"delete", [&] { emulator().deleteChatRoomEntries(room, {"a", "missing"}); }, {kv(room, kNone, {{"a", "2"}})}},
        {"delete nothing", [&] { emulator().deleteChatRoomEntries(room, {"missing"}); }, {}},
    };
    for (const auto& row : rows) EXPECT_EQ(after(row.change), row.heard) << row.name;
    EXPECT_EQ(emulator().chatRoomEntries(room), ZMValue({{"b", "3"}, {"s", "1"}}));
    EXPECT_EQ(emulator().chatRoomEntryOwner(room, "b"), "other-user");
    after([&] { quit(room); });
    for (const auto& row : rows) EXPECT_EQ(after(row.change), Strings{}) << row.name << " outside the room";
    EXPECT_EQ(emulator().chatRoomEntries(room), ZMValue({{"b", "3"}, {"s", "1"}}));
}

TEST_F(KVServerTest, RulesTakePrecedenceAndTheModelSwitchedOffAnswersLikeTheDefaults) {
    const std::string room = named("ruled");
    const std::string off = named("off");
    prepareRoom(room);
    // A rule's answer, a held request answered by hand: the store is untouched and nothing is echoed.
    emulator().setRule("setChatroomStatus", ZMCoreAnswer::success());
    emulator().setRule("getChatRoomEntry", ZMCoreAnswer::success({{"x", "y"}}));
    emulator().holdRequests("removeChatRoomEntries");
    EXPECT_EQ(after([&] { set(room, "k", "v", false, false, true); }), Strings{"answer"});
    EXPECT_EQ(after([&] { service().getChatRoomEntry(room, "mine", answer(), answer()); }),
              Strings{R"(answer:{"x":"y"})"});
    after([&] { service().removeChatRoomEntries(room, {"mine"}, false, answer(), answer()); });
    EXPECT_EQ(after([&] { emulator().answer(emulator().heldRequests().at(0).id, ZMCoreAnswer::success()); }),
              Strings{"answer"});
    EXPECT_EQ(emulator().chatRoomEntries(room), ZMValue({{"mine", "m"}, {"theirs", "t"}}));
    EXPECT_TRUE(emulator().kvNotifications().empty());
    emulator().clearRules();

    // Switched off: every KV operation succeeds with an empty dictionary,
    // nothing is stored or pushed, and joins and quits are not followed.
    emulator().setKVServerModelEnabled(false);
    emulator().setKVFirstSync(FirstSync::Immediately);
    EXPECT_EQ(after([&] { join(off); }), Strings{"answer:0:{}"});
    EXPECT_EQ(after([&] { set(off, "k", "v", false, true); }), Strings{"answer"});
    EXPECT_EQ(after([&] { service().getChatRoomEntry(room, "mine", answer(), answer()); }), Strings{"answer:{}"});
    EXPECT_EQ(after([&] { service().removeChatRoomEntries(room, {"x"}, false, answer(), answer()); }),
              Strings{"answer"});
    EXPECT_EQ(after([&] { emulator().changeChatRoomEntries(room, {{"mine", "n"}}); }), Strings{});
    EXPECT_EQ(after([&] { quit(room); }), Strings{"answer:0"});
    EXPECT_EQ(emulator().chatRoomEntries(off), ZMValue::object());

    // On again: the user is still in the room the model saw it join.
    emulator().setKVServerModelEnabled(true);
    EXPECT_EQ(after([&] { set(room, "k", "v"); }), (Strings{"answer", kv(room, {{"k", "v"}}, kNone)}));
    EXPECT_EQ(after([&] { set(off, "k", "v"); }), Strings{"answer:23406"});
}

TEST_F(KVServerTest, AnswersAndEchoesRunOnCallbackThreadsAndEachEchoFollowsItsAnswer) {
    const std::string room = named("threads");
    after([&] { join(room); });
    emulator().setCallbackThreadCount(3);
    std::vector<std::thread> writers;
    for (int w = 0; w < 3; ++w) {
        writers.emplace_back([&, w] {
            for (int i = 0; i < 10; ++i) {
                std::string key = numbered("k", w);
                key += numbered("-", i);
                service().setChatroomStatus(room, key, "v", false, false, false, "", {}, 0,
                                            recording(heard, "answer:" + key), nullptr);
            }
        });
    }
    for (auto& writer : writers) writer.join();
    ASSERT_TRUE(emulator().waitUntilIdle());
    const Strings events = heard.events();
    ASSERT_EQ(events.size(), 61u);  // the join's answer, then 30 answers and 30 echoes
    for (int w = 0; w < 3; ++w) {
        for (int i = 0; i < 10; ++i) {
            std::string key = numbered("k", w);
            key += numbered("-", i);
            const auto answered = std::find(events.begin(), events.end(), "answer:" + key);
            const auto echoed = std::find(events.begin(), events.end(), kv(room, {{key, "v"}}, kNone));
            ASSERT_NE(echoed, events.end()) << key;
            EXPECT_LT(answered, echoed) << key;
        }
    }
    EXPECT_EQ(emulator().chatRoomEntries(room).size(), 30u);
}

TEST(ZMCoreEmulatorSession, NavigationDataCanBeAbsentAndPayloadEncodingCanFail) {
    auto& navi = ZMNaviDataManager::sharedInstance();
    emulator().setMutliChatroomEnabled(false);
    emulator().setNaviDataAvailable(false);
    EXPECT_EQ(navi.naviData(), nullptr);
    emulator().setNaviDataAvailable(true);  // the switches set meanwhile are kept
    ASSERT_NE(navi.naviData(), nullptr);
    EXPECT_FALSE(navi.naviData()->isMutliChatroomEnabled());
    EXPECT_TRUE(navi.naviData()->isChatroomKVStorageEnabled());
    emulator().setMutliChatroomEnabled(true);

    struct Counting : ZMMessageContent {
        void decodeWithData(const ZMData&) override {}
        std::optional<ZMData> encode() const override { return ++encoded, ZMData{'{', '}'}; }
        mutable int encoded = 0;
    } content;
    auto& client = ZMCoreClient::sharedCoreClient();
    for (bool fails : {false, true, false}) {
        emulator().setPayloadEncodingFails(fails);
        EXPECT_EQ(client.payloadOfMessageContent(content), fails ? std::nullopt : std::optional(ZMData{'{', '}'}));
    }
    EXPECT_EQ(content.encoded, 2);  // not even asked while encoding fails
}

}  // namespace
