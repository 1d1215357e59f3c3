#include "KVTestSupport.h"

// A room's first synchronisation and pushed KV changes: what the filter and the
// observers receive, in which order among the module's lines, on which thread.

namespace {

const ZMValue kUpdate = {{"_private", "p"}, {"a", "1"}, {"b", "2"}}, kPublic = {{"a", "1"}, {"b", "2"}}, kRemove = {{"c", "3"}};

std::string line(const std::string& tag, const std::string& text) { return "line " + tag + " " + text; }
std::string filterLine(const char* tag, size_t before, size_t after) {
    return line(tag, "room_id:r1,before:" + std::to_string(before) + ",after:" + std::to_string(after));
}
// An observer's delivery of one side: the line, then the call.
Strings delivered(const char* side, const ZMValue& entries, const std::string& observer = "o1") {
    const std::string tag = side == std::string("update") ? ZM_L_UPDATE_CHATROOM_KV_O : ZM_L_REMOVE_CHATROOM_KV_O;
    return {line(tag, "room_id:r1,count:" + std::to_string(entries.size()) + ",kv:" + pretty(entries)),
            observer + " " + side + " r1 " + entries.dump()};
}

}  // namespace

// What each filter lets through, update side first, and the lines it causes; an
// answer of nothing counts as no entries; a filter is held weakly.
TEST_F(KVTest, PushedChangesPassTheFilterUpdateSideFirstThenReachTheObserver) {
    auto observer = std::make_shared<KVAllObserver>(timeline, "o1");
    client.addChatRoomKVStatusChangeDelegate(observer);
    auto updateFiltered = [](size_t after) {
        return Strings{"filter update r1 " + kUpdate.dump(), filterLine(ZM_L_UPDATE_CHATROOM_FILTER_KV_O, 3, after)};
    };
    auto removeFiltered = [](size_t after) {
        return Strings{"filter remove r1 " + kRemove.dump(), filterLine(ZM_L_REMOVE_CHATROOM_FILTER_KV_O, 1, after)};
    };
    const Strings unfiltered = delivered("update", kUpdate) + delivered("remove", kRemove);
    using Filter = std::shared_ptr<ZMChatRoomKVStatusFilterDelegate>;
    const std::vector<std::tuple<std::string, std::function<Filter()>, Strings>> rows = {
        {"no filter", [] { return nullptr; }, unfiltered},
        {"update filter only", [&] { return std::make_shared<KVUpdateFilter>(timeline, hidingPrivateKeys); },
         updateFiltered(2) + delivered("update", kPublic) + delivered("remove", kRemove)},
        {"both", [&] { return std::make_shared<KVFullFilter>(timeline, hidingPrivateKeys); },
         updateFiltered(2) + removeFiltered(1) + delivered("update", kPublic) + delivered("remove", kRemove)},
        {"answering nothing", [&] { return std::make_shared<KVFullFilter>(timeline, answering(nullptr)); },
         updateFiltered(0) + removeFiltered(0)},
        {"destroyed while set", [&] { return setFilter(std::make_shared<KVFullFilter>(timeline, passThrough)), Filter(); }, unfiltered},
    };
    for (const auto& [name, makeFilter, expected] : rows) {
        SCOPED_TRACE(name);
        auto filter = makeFilter();
        if (filter) setFilter(filter);
        EXPECT_EQ(client.zmKVStatusFilterDelegate(), filter);
        takeTimeline();
        core.raiseKVChange("r1", kUpdate, kRemove);
        EXPECT_EQ(takeTimeline(), expected);
    }
    // All on the one core thread, the filter's answer delivered without a hop.
    EXPECT_EQ(timeline.threads.size(), 1u);
    EXPECT_EQ(timeline.threads.count(std::this_thread::get_id()), 0u);
    EXPECT_EQ(timeline.callsOnClientQueues, 0);
}

// Per observer its update then its removal, a line before each call, the same
// dictionary object for all; nothing for an observer implementing neither, an
// empty side, or no observer.
TEST_F(KVTest, EachObserverHearsItsUpdateThenItsRemovalWithALineEach) {
    auto first = std::make_shared<KVAllObserver>(timeline, "o1");
    auto updatesOnly = std::make_shared<KVUpdateObserver>(timeline, "o2");
    auto deaf = std::make_shared<ZMChatRoomKVStatusChangeDelegate>();
    auto last = std::make_shared<KVAllObserver>(timeline, "o3");
    for (const auto& o : std::vector<std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>>{first, updatesOnly, deaf, last}) {
        client.setZMChatRoomKVStatusChangeDelegate(o);  // adds
    }
    ASSERT_EQ(client.allChatRoomKVStatusChangeDelegates().size(), 4u);
    core.raiseKVChange("r1", kUpdate, kRemove);
    EXPECT_EQ(takeTimeline(), delivered("update", kUpdate) + delivered("remove", kRemove) + delivered("update", kUpdate, "o2") +
                                  delivered("update", kUpdate, "o3") + delivered("remove", kRemove, "o3"));
    {
        std::lock_guard<std::mutex> lock(timeline.mutex);
        ASSERT_EQ(timeline.entryAddresses.size(), 5u);
        EXPECT_EQ(timeline.entryAddresses[0], timeline.entryAddresses[2]);  // the updates
        EXPECT_EQ(timeline.entryAddresses[0], timeline.entryAddresses[3]);
        EXPECT_EQ(timeline.entryAddresses[1], timeline.entryAddresses[4]);  // the removals
    }
    client.removeChatRoomKVStatusChangeDelegate(updatesOnly);
    client.removeChatRoomKVStatusChangeDelegate(last);
    const std::vector<std::tuple<ZMValue, ZMValue, Strings>> rows = {
        {ZMValue::object(), kRemove, delivered("remove", kRemove)},
        {kUpdate, nullptr, delivered("update", kUpdate)},
        {nullptr, ZMValue::array({"c"}), {}},  // an array holds no entries
    };
    for (const auto& [update, remove, expected] : rows) {
        SCOPED_TRACE(update.dump() + " / " + remove.dump());
        core.raiseKVChange("r1", update, remove);
        EXPECT_EQ(takeTimeline(), expected);
    }
    client.removeChatRoomKVStatusChangeDelegate(first);
    core.raiseKVChange("r1", kUpdate, kRemove);
    EXPECT_EQ(takeTimeline(), Strings{});
}

// A first synchronisation: the filter's sync, the sync line, each observer's
// sync, then a full read (isSync true) filtered by the get-all then the update
// callback, one update line showing the dictionary as it is (even empty) and an
// update per observer. A failed read ends it silently; each status change runs
// it again.
TEST_F(KVTest, FirstSyncDeliversTheWholeStoreOnceFilteredTwice) {
    auto observer = std::make_shared<KVAllObserver>(timeline, "o1");
    auto second = std::make_shared<KVUpdateObserver>(timeline, "o2");
    client.addChatRoomKVStatusChangeDelegate(observer);
    client.addChatRoomKVStatusChangeDelegate(second);
    // Drops the first key in each pass, so the two passes are told apart.
    auto filter = std::make_shared<KVFullFilter>(timeline, [](ZMValue e) { return e.erase(e.begin()), e; });
    setFilter(filter);
    const Strings synced = {line(ZM_L_SYNC_CHATROOM_KV_O, "room_id:r1"), "o1 sync r1", line(ZM_A_GET_CHATROOM_ALL_KV_T, "room_id:r1")};
    const Strings start = Strings{"filter sync r1"} + synced;
    core.setRule("getAllChatRoomEntries", ZMCoreAnswer::failure(500));
    core.raiseStatusChange("r1");
    EXPECT_EQ(takeTimeline(), start + Strings{line(ZM_A_GET_CHATROOM_ALL_KV_R, "room_id:r1,code:500")});

    core.setRule("getAllChatRoomEntries", ZMCoreAnswer::success(kUpdate));
    forget();
    core.raiseStatusChange("r1");
    EXPECT_EQ(takeTimeline(), start + (Strings{"filter all r1 " + kUpdate.dump(),
                                               filterLine(ZM_L_GET_CHATROOM_FILTER_ALL_KV_O, 3, 2),
                                               line(ZM_A_GET_CHATROOM_ALL_KV_R, "room_id:r1,code:0,count:2,kv:" + pretty(kPublic)),
                                               "filter update r1 " + kPublic.dump(),
                                               filterLine(ZM_L_UPDATE_CHATROOM_FILTER_KV_O, 2, 1),
                                               line(ZM_L_UPDATE_CHATROOM_KV_O, "room_id:r1,count:1,kv:{\"b\":\"2\"}"),
                                               "o1 update r1 {\"b\":\"2\"}", "o2 update r1 {\"b\":\"2\"}"}));
    EXPECT_EQ(sent(), (Requests{{"getAllChatRoomEntries", {{"chatroomId", "r1"}, {"isSync", true}}}}));
    EXPECT_EQ(logged(kClientTag), (std::vector<ZMLogLine>{diagnostic(6, "Chatroom KV synchronize from local DB")}));
    EXPECT_EQ(kvFlag("r1"), true);
    EXPECT_EQ(timeline.callsOnClientQueues, 0);
    {
        std::lock_guard<std::mutex> lock(timeline.mutex);
        ASSERT_EQ(timeline.entryAddresses.size(), 2u);
        EXPECT_EQ(timeline.entryAddresses[0], timeline.entryAddresses[1]);  // one dictionary for both observers
    }
    setFilter(nullptr);
    core.setRule("getAllChatRoomEntries", ZMCoreAnswer::success());
    core.raiseStatusChange("r1");
    EXPECT_EQ(takeTimeline(), synced + (Strings{line(ZM_A_GET_CHATROOM_ALL_KV_R, "room_id:r1,code:0,count:0,kv:"),
                                                line(ZM_L_UPDATE_CHATROOM_KV_O, "room_id:r1,count:0,kv:{}")}));
    // The filter set when the sync was reported is kept alive until its full
    // list is delivered; the full read asks the one set when it answers.
    auto first = std::make_shared<KVFullFilter>(timeline, passThrough, "first");
    std::weak_ptr<KVFullFilter> firstAlive = first;
    setFilter(first);
    core.holdRequests("getAllChatRoomEntries");
    core.raiseStatusChange("r1");
    takeTimeline();
    filter = std::make_shared<KVFullFilter>(timeline, passThrough, "second");
    setFilter(filter);
    first.reset();
    EXPECT_FALSE(firstAlive.expired());
    ASSERT_TRUE(answerHeld(ZMCoreAnswer::success({{"a", "1"}})));
    Strings calls;
    for (const auto& event : takeTimeline()) {
        if (event.rfind("line ", 0) != 0) calls.push_back(event);
    }
    EXPECT_EQ(calls, (Strings{"second all r1 {\"a\":\"1\"}", "first update r1 {\"a\":\"1\"}", "o1 update r1 {\"a\":\"1\"}",
                              "o2 update r1 {\"a\":\"1\"}"}));
    EXPECT_TRUE(firstAlive.expired());
    // A change for a room not synchronised is delivered all the same.
    client.syncKVChatRoomDict().setObject(false, "r1");
    core.raiseKVChange("r1", {{"a", "2"}}, nullptr);
    EXPECT_EQ(takeTimeline().back(), "o2 update r1 {\"a\":\"2\"}");
}
