#include "KVTestSupport.h"

// The first synchronisation of a room and the delivery of pushed KV changes:
// what the filter and the KV observers receive, in which order relative to
// the module's lines, on which thread.

namespace {

const ZMValue kUpdate = {{"_private", "p"}, {"a", "1"}, {"b", "2"}};
const ZMValue kRemove = {{"c", "3"}};

std::string line(const std::string& tag, const std::string& text) { return "line " + tag + " " + text; }

std::string updateLine(const ZMValue& entries) {
    return line(ZM_L_UPDATE_CHATROOM_KV_O,
                "room_id:r1,count:" + std::to_string(entries.size()) + ",kv:" + pretty(entries));
}
std::string removeLine(const ZMValue& entries) {
    return line(ZM_L_REMOVE_CHATROOM_KV_O,
                "room_id:r1,count:" + std::to_string(entries.size()) + ",kv:" + pretty(entries));
}
std::string filterLine(const char* tag, size_t before, size_t after) {
    return line(tag, "room_id:r1,before:" + std::to_string(before) + ",after:" + std::to_string(after));
}

}  // namespace

// The filter matrix: what each kind of filter lets through, and the lines it
// causes. One observer implements everything.
TEST_F(KVTest, PushedChangesPassTheFilterUpdateSideFirstThenReachTheObserver) {
    auto observer = std::make_shared<KVAllObserver>(timeline, "o1");
    client.addChatRoomKVStatusChangeDelegate(observer);
    const ZMValue publicUpdate = {{"a", "1"}, {"b", "2"}};
    const std::string filteredUpdate = "filter update r1 " + kUpdate.dump();
    const std::string filteredRemove = "filter remove r1 " + kRemove.dump();
    struct Row {
        std::string name;
        std::function<std::shared_ptr<ZMChatRoomKVStatusFilterDelegate>()> filter;
        Strings timeline;
    };
    const std::vector<Row> rows = {
        {"no filter", [] { return nullptr; },
         {updateLine(kUpdate), "o1 update r1 " + kUpdate.dump(), removeLine(kRemove), "o1 remove r1 " + kRemove.dump()}},
        {"update filter only", [&] { return std::make_shared<KVUpdateFilter>(timeline, hidingPrivateKeys()); },
         {filteredUpdate, filterLine(ZM_L_UPDATE_CHATROOM_FILTER_KV_O, 3, 2), updateLine(publicUpdate),
          "o1 update r1 " + publicUpdate.dump(), removeLine(kRemove), "o1 remove r1 " + kRemove.dump()}},
        {"remove filter only", [&] { return std::make_shared<KVRemoveFilter>(timeline, answering(ZMValue::object())); },
         {filteredRemove, filterLine(ZM_L_REMOVE_CHATROOM_FILTER_KV_O, 1, 0), updateLine(kUpdate),
          "o1 update r1 " + kUpdate.dump()}},
        {"both", [&] { return std::make_shared<KVFullFilter>(timeline, hidingPrivateKeys()); },
         {filteredUpdate, filterLine(ZM_L_UPDATE_CHATROOM_FILTER_KV_O, 3, 2), filteredRemove,
          filterLine(ZM_L_REMOVE_CHATROOM_FILTER_KV_O, 1, 1), updateLine(publicUpdate),
          "o1 update r1 " + publicUpdate.dump(), removeLine(kRemove), "o1 remove r1 " + kRemove.dump()}},
        {"answering empty", [&] { return std::make_shared<KVFullFilter>(timeline, answering(ZMValue::object())); },
         {filteredUpdate, filterLine(ZM_L_UPDATE_CHATROOM_FILTER_KV_O, 3, 0), filteredRemove,
          filterLine(ZM_L_REMOVE_CHATROOM_FILTER_KV_O, 1, 0)}},
        {"answering nothing", [&] { return std::make_shared<KVFullFilter>(timeline, answering(nullptr)); },
         {filteredUpdate, filterLine(ZM_L_UPDATE_CHATROOM_FILTER_KV_O, 3, 0), filteredRemove,
          filterLine(ZM_L_REMOVE_CHATROOM_FILTER_KV_O, 1, 0)}},
        {"answering a string", [&] { return std::make_shared<KVFullFilter>(timeline, answering("x")); },
         {filteredUpdate, filterLine(ZM_L_UPDATE_CHATROOM_FILTER_KV_O, 3, 0), filteredRemove,
          filterLine(ZM_L_REMOVE_CHATROOM_FILTER_KV_O, 1, 0)}},
        {"destroyed while set", [&] {
             client.setZMChatRoomKVStatusFilterDelegate(std::make_shared<KVFullFilter>(timeline, answering(nullptr)));
             return nullptr;  // the only owner is gone: delivery goes on unfiltered
         },
         {updateLine(kUpdate), "o1 update r1 " + kUpdate.dump(), removeLine(kRemove), "o1 remove r1 " + kRemove.dump()}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto filter = row.filter();
        if (filter) client.setZMChatRoomKVStatusFilterDelegate(filter);
        EXPECT_EQ(client.zmKVStatusFilterDelegate(), filter);
        takeTimeline();
        core.raiseKVChange("r1", kUpdate, kRemove);
        EXPECT_EQ(takeTimeline(), row.timeline);
    }
}

// Per observer its update then its removal, a line before each call; an
// observer implementing neither gets no line; the same dictionary object
// reaches every observer, on the core's thread.
TEST_F(KVTest, EachObserverHearsItsUpdateThenItsRemovalWithALineEach) {
    auto first = std::make_shared<KVAllObserver>(timeline, "o1");
    auto updatesOnly = std::make_shared<KVUpdateObserver>(timeline, "o2");
    auto deaf = std::make_shared<ZMChatRoomKVStatusChangeDelegate>();
    auto removalsOnly = std::make_shared<KVRemoveObserver>(timeline, "o3");
    for (const auto& observer : std::vector<std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>>{
             first, updatesOnly, deaf, removalsOnly}) {
        client.setZMChatRoomKVStatusChangeDelegate(observer);  // adds
    }
    ASSERT_EQ(client.allChatRoomKVStatusChangeDelegates().size(), 4u);
    takeTimeline();
    core.raiseKVChange("r1", kUpdate, kRemove);
    EXPECT_EQ(takeTimeline(), (Strings{updateLine(kUpdate), "o1 update r1 " + kUpdate.dump(), removeLine(kRemove),
                                       "o1 remove r1 " + kRemove.dump(), updateLine(kUpdate),
                                       "o2 update r1 " + kUpdate.dump(), removeLine(kRemove),
                                       "o3 remove r1 " + kRemove.dump()}));
    std::lock_guard<std::mutex> lock(timeline.mutex);
    ASSERT_EQ(timeline.entryAddresses.size(), 4u);
    EXPECT_EQ(timeline.entryAddresses[0], timeline.entryAddresses[2]);  // both updates
    EXPECT_EQ(timeline.entryAddresses[1], timeline.entryAddresses[3]);  // both removals
    EXPECT_EQ(timeline.callsOnClientQueues, 0);
    EXPECT_EQ(timeline.threads.size(), 1u);
    EXPECT_EQ(timeline.threads.count(std::this_thread::get_id()), 0u);
}

TEST_F(KVTest, AnEmptySideOfAChangeIsNeitherDeliveredNorLogged) {
    auto observer = std::make_shared<KVAllObserver>(timeline, "o1");
    client.addChatRoomKVStatusChangeDelegate(observer);
    const std::vector<std::tuple<ZMValue, ZMValue, Strings>> rows = {
        {ZMValue::object(), kRemove, {removeLine(kRemove), "o1 remove r1 " + kRemove.dump()}},
        {kUpdate, nullptr, {updateLine(kUpdate), "o1 update r1 " + kUpdate.dump()}},
        {nullptr, ZMValue::array({"c"}), {}},  // an array holds no entries
    };
    for (const auto& [update, remove, expected] : rows) {
        SCOPED_TRACE(update.dump() + " / " + remove.dump());
        takeTimeline();
        core.raiseKVChange("r1", update, remove);
        EXPECT_EQ(takeTimeline(), expected);
    }
    // With no observer at all, a change writes no delivery line.
    client.removeChatRoomKVStatusChangeDelegate(observer);
    takeTimeline();
    core.raiseKVChange("r1", kUpdate, kRemove);
    EXPECT_EQ(takeTimeline(), Strings{});
}

// The first synchronisation: the filter's sync, the sync line, every
// observer's sync, then the module's own full read (isSync true), filtered by
// the get-all filter and then by the update filter, one update line printing
// the dictionary as it is, and one update per observer without lines.
TEST_F(KVTest, FirstSyncDeliversTheWholeStoreOnceFilteredTwice) {
    const ZMValue all = {{"_private", "p"}, {"a", "1"}, {"b", "2"}};
    core.setRule("getAllChatRoomEntries", ZMCoreAnswer::success(all));
    auto observer = std::make_shared<KVAllObserver>(timeline, "o1");
    auto second = std::make_shared<KVUpdateObserver>(timeline, "o2");
    client.addChatRoomKVStatusChangeDelegate(observer);
    client.addChatRoomKVStatusChangeDelegate(second);
    // Drops one private key per pass, so the two passes are told apart.
    auto filter = std::make_shared<KVFullFilter>(timeline, [](const ZMValue& entries) {
        ZMValue kept = entries;
        for (const auto& [key, value] : entries.items()) {
            if (key.rfind('_', 0) == 0) {
                kept.erase(key);
                return kept;
            }
        }
        kept.erase(kept.begin());
        return kept;
    });
    client.setZMChatRoomKVStatusFilterDelegate(filter);
    const ZMValue once = {{"a", "1"}, {"b", "2"}};
    const ZMValue twice = {{"b", "2"}};
    takeTimeline();
    core.raiseStatusChange("r1");
    EXPECT_EQ(takeTimeline(),
              (Strings{"filter sync r1", line(ZM_L_SYNC_CHATROOM_KV_O, "room_id:r1"), "o1 sync r1",
                       line(ZM_A_GET_CHATROOM_ALL_KV_T, "room_id:r1"), "filter all r1 " + all.dump(),
                       filterLine(ZM_L_GET_CHATROOM_FILTER_ALL_KV_O, 3, 2),
                       line(ZM_A_GET_CHATROOM_ALL_KV_R, "room_id:r1,code:0,count:2,kv:" + pretty(once)),
                       "filter update r1 " + once.dump(), filterLine(ZM_L_UPDATE_CHATROOM_FILTER_KV_O, 2, 1),
                       line(ZM_L_UPDATE_CHATROOM_KV_O, "room_id:r1,count:1,kv:" + twice.dump()),
                       "o1 update r1 " + twice.dump(), "o2 update r1 " + twice.dump()}));
    EXPECT_EQ(sent(), (Requests{{"getAllChatRoomEntries", {{"chatroomId", "r1"}, {"isSync", true}}}}));
    EXPECT_EQ(logged(kClientTag), (std::vector<ZMLogLine>{ZMLogLine{6, 1024, kClientTag,
                                                                    "Chatroom KV synchronize from local DB"}}));
    EXPECT_EQ(kvFlag("r1"), true);
    EXPECT_EQ(timeline.callsOnClientQueues, 0);
    std::lock_guard<std::mutex> lock(timeline.mutex);
    ASSERT_EQ(timeline.entryAddresses.size(), 2u);
    EXPECT_EQ(timeline.entryAddresses[0], timeline.entryAddresses[1]);  // one dictionary for both observers
}

// The filter of a first synchronisation is the one set when it was reported,
// kept alive until the full list has been delivered; the full read itself
// consults the filter set when its answer arrives.
TEST_F(KVTest, FirstSyncKeepsTheFilterItStartedWith) {
    struct NamedFilter : ZMChatRoomKVStatusFilterDelegate {
        NamedFilter(KVTimeline& t, std::string n) : timeline(t), name(std::move(n)) {}
        ZMValue chatRoomKVUpdateFilter(const std::string&, const ZMValue& entry) override {
            timeline.note(name + " update");
            return entry;
        }
        ZMValue getAllChatRoomEntriesFilter(const std::string&, const ZMValue& entry) override {
            timeline.note(name + " all");
            return entry;
        }
        KVTimeline& timeline;
        std::string name;
    };
    auto observer = std::make_shared<KVUpdateObserver>(timeline, "o1");
    client.addChatRoomKVStatusChangeDelegate(observer);
    auto first = std::make_shared<NamedFilter>(timeline, "first");
    std::weak_ptr<NamedFilter> firstAlive = first;
    client.setZMChatRoomKVStatusFilterDelegate(first);
    core.holdRequests("getAllChatRoomEntries");
    core.raiseStatusChange("r1");
    settle();
    // The app replaces the filter and drops the first one while the read is under way.
    auto second = std::make_shared<NamedFilter>(timeline, "second");
    client.setZMChatRoomKVStatusFilterDelegate(second);
    first.reset();
    EXPECT_FALSE(firstAlive.expired());
    takeTimeline();
    ASSERT_TRUE(answerHeld(ZMCoreAnswer::success({{"a", "1"}})));
    Strings events = takeTimeline();
    Strings filterCalls;
    for (const auto& event : events) {
        if (event.rfind("first", 0) == 0 || event.rfind("second", 0) == 0) filterCalls.push_back(event);
    }
    EXPECT_EQ(filterCalls, (Strings{"second all", "first update"}));
    EXPECT_EQ(events.back(), "o1 update r1 {\"a\":\"1\"}");
    EXPECT_TRUE(firstAlive.expired());  // released once the delivery ran
}

TEST_F(KVTest, FirstSyncOfAnEmptyRoomLogsCountZeroAndUpdatesNobody) {
    auto observer = std::make_shared<KVAllObserver>(timeline, "o1");
    client.addChatRoomKVStatusChangeDelegate(observer);
    auto filter = std::make_shared<KVFullFilter>(timeline);
    client.setZMChatRoomKVStatusFilterDelegate(filter);
    takeTimeline();
    core.raiseStatusChange("r1");
    Strings events = takeTimeline();
    EXPECT_EQ(events.front(), "filter sync r1");
    EXPECT_NE(std::find(events.begin(), events.end(), "o1 sync r1"), events.end());
    EXPECT_EQ(events.back(), line(ZM_L_UPDATE_CHATROOM_KV_O, "room_id:r1,count:0,kv:{}"));
    EXPECT_EQ(std::count_if(events.begin(), events.end(),
                            [](const std::string& e) { return e.rfind("o1 update", 0) == 0; }),
              0);
}

// A failed full read ends the first synchronisation silently; a second
// status change runs it again in full; changes for a room that is not
// synchronised are delivered all the same.
TEST_F(KVTest, FirstSyncDropsReadErrorsAndRunsAgainOnEveryStatusChange) {
    auto observer = std::make_shared<KVAllObserver>(timeline, "o1");
    client.addChatRoomKVStatusChangeDelegate(observer);
    core.setRule("getAllChatRoomEntries", ZMCoreAnswer::failure(500));
    takeTimeline();
    core.raiseStatusChange("r1");
    EXPECT_EQ(takeTimeline(), (Strings{line(ZM_L_SYNC_CHATROOM_KV_O, "room_id:r1"), "o1 sync r1",
                                       line(ZM_A_GET_CHATROOM_ALL_KV_T, "room_id:r1"),
                                       line(ZM_A_GET_CHATROOM_ALL_KV_R, "room_id:r1,code:500")}));
    core.setRule("getAllChatRoomEntries", ZMCoreAnswer::success({{"a", "1"}}));
    core.raiseStatusChange("r1");
    Strings again = takeTimeline();
    EXPECT_EQ(again.back(), "o1 update r1 {\"a\":\"1\"}");

    client.syncKVChatRoomDict().setObject(false, "r1");
    core.raiseKVChange("r1", {{"a", "2"}}, nullptr);
    EXPECT_EQ(takeTimeline().back(), "o1 update r1 {\"a\":\"2\"}");
}

// Observers and the filter are called on the core's thread: with several
// callback threads, each change is filtered and delivered on the one thread
// that delivered it, never on the client's queues.
TEST_F(KVTest, FilterAndObserversRunOnTheCoresThreadWithoutAHop) {
    core.setCallbackThreadCount(3);
    struct ThreadCheckingObserver : ZMChatRoomKVStatusChangeDelegate {
        std::mutex mutex;
        std::map<std::string, std::thread::id> filteredOn;
        std::atomic<int> mismatches{0};
        std::atomic<int> updates{0};
        void chatRoomKVDidUpdate(const std::string& room, const ZMValue&) override {
            std::lock_guard<std::mutex> lock(mutex);
            mismatches += filteredOn[room] != std::this_thread::get_id();
            ++updates;
        }
    };
    struct ThreadNotingFilter : ZMChatRoomKVStatusFilterDelegate {
        ThreadCheckingObserver* observer = nullptr;
        ZMValue chatRoomKVUpdateFilter(const std::string& room, const ZMValue& entry) override {
            std::lock_guard<std::mutex> lock(observer->mutex);
            observer->filteredOn[room] = std::this_thread::get_id();
            return entry;
        }
    };
    auto observer = std::make_shared<ThreadCheckingObserver>();
    auto filter = std::make_shared<ThreadNotingFilter>();
    filter->observer = observer.get();
    client.addChatRoomKVStatusChangeDelegate(observer);
    client.setZMChatRoomKVStatusFilterDelegate(filter);
    for (int i = 0; i < 30; ++i) core.raiseKVChange(numbered("room", i), {{"k", "v"}}, nullptr);
    settle();
    EXPECT_EQ(observer->updates, 30);
    EXPECT_EQ(observer->mismatches, 0);
}
