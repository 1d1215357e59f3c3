#pragma once

#include <set>

#include "ClientTestSupport.h"

// Observers and filters of the KV tests write what they receive into one
// timeline with the module's KV lines, noting their threads, calls on the
// client's queues (there must be none) and the entry dictionaries' addresses.
struct KVTimeline {
    ZMEventRecorder events;
    std::mutex mutex;
    std::set<std::thread::id> threads;
    std::atomic<int> callsOnClientQueues{0};
    std::vector<const void*> entryAddresses;
    void note(const std::string& event, const ZMValue* entry = nullptr) {
        auto& client = ZMChatRoomClient::sharedChatRoomClient();
        callsOnClientQueues +=
            client.zm_chatroom_operation_queue().isCurrent() || client.zm__notify_chatroom_status_queue().isCurrent();
        std::unique_lock<std::mutex> lock(mutex);
        threads.insert(std::this_thread::get_id());
        if (entry) entryAddresses.push_back(entry);
        lock.unlock();
        events.record(event);
    }
};

struct KVNoter {  // writes "<name> <what> <room>[ <entries>]"
    KVNoter(KVTimeline& timeline, std::string name) : timeline(timeline), name(std::move(name)) {}
    void note(const char* what, const std::string& room, const ZMValue* entry = nullptr, bool keepAddress = true) {
        std::string line = name + " " + what + " " + room;
        if (entry) line.append(" ").append(entry->dump());
        timeline.note(line, keepAddress ? entry : nullptr);
    }
    KVTimeline& timeline;
    std::string name;
};

// Observers and filters implementing all, or only the update, callbacks (the
// module calls and logs only what they implement); a filter answers a function.
struct KVAllObserver : ZMChatRoomKVStatusChangeDelegate, KVNoter {
    using KVNoter::KVNoter;
    void chatRoomKVDidSync(const std::string& room) override { note("sync", room); }
    void chatRoomKVDidUpdate(const std::string& room, const ZMValue& e) override { note("update", room, &e); }
    void chatRoomKVDidRemove(const std::string& room, const ZMValue& e) override { note("remove", room, &e); }
};
struct KVUpdateObserver : ZMChatRoomKVStatusChangeDelegate, KVNoter {
    using KVNoter::KVNoter;
    void chatRoomKVDidUpdate(const std::string& room, const ZMValue& e) override { note("update", room, &e); }
};
using FilterAnswer = std::function<ZMValue(const ZMValue& entries)>;
struct KVFilterBase : ZMChatRoomKVStatusFilterDelegate, KVNoter {
    KVFilterBase(KVTimeline& timeline, FilterAnswer answer, std::string name = "filter")
        : KVNoter(timeline, std::move(name)), answer(std::move(answer)) {}
    ZMValue pass(const char* what, const std::string& room, const ZMValue& entry) {
        return note(what, room, &entry, false), answer(entry);
    }
    FilterAnswer answer;
};
struct KVFullFilter : KVFilterBase {
    using KVFilterBase::KVFilterBase;
    void chatRoomKVStatusDidSync(const std::string& room) override { note("sync", room); }
    ZMValue chatRoomKVUpdateFilter(const std::string& room, const ZMValue& e) override { return pass("update", room, e); }
    ZMValue chatRoomKVRemoveFilter(const std::string& room, const ZMValue& e) override { return pass("remove", room, e); }
    ZMValue getAllChatRoomEntriesFilter(const std::string& room, const ZMValue& e) override { return pass("all", room, e); }
};
struct KVUpdateFilter : KVFilterBase {
    using KVFilterBase::KVFilterBase;
    ZMValue chatRoomKVUpdateFilter(const std::string& room, const ZMValue& e) override { return pass("update", room, e); }
};
inline FilterAnswer answering(ZMValue answer) { return [answer](const ZMValue&) { return answer; }; }
inline ZMValue passThrough(const ZMValue& entries) { return entries; }
inline ZMValue hidingPrivateKeys(const ZMValue& entries) {  // drops every key starting with "_"
    ZMValue kept = ZMValue::object();
    for (const auto& [key, value] : entries.items())
        if (key.rfind('_', 0) != 0) kept[key] = value;
    return kept;
}

// The outcome of a KV call, with what the success, or a batch error, callback received.
struct KVOutcome : CallOutcome {
    std::mutex mutex;
    ZMValue entries, failedEntries;
    ZMEntriesSuccessBlock entriesSuccess() {
        return [this, done = success()](const ZMValue& received) { keep(entries, received), done(); };
    }
    ZMEntriesErrorBlock entriesError() {
        return [this, failed = error()](int32_t code, const ZMValue& received) { keep(failedEntries, received), failed(code); };
    }
    void keep(ZMValue& into, const ZMValue& received) {
        std::lock_guard<std::mutex> lock(mutex);
        into = received;
    }
};

inline ZMLogLine opLine(int32_t level, const std::string& tag, const std::string& text) {
    return ZMLogLine{level, ZMLogTypeOperation, tag, text};
}
inline ZMLogLine resultLine(const std::string& tag, const std::string& room, int32_t code, int32_t level = 4) {
    return opLine(level, tag, "room_id:" + room + ",code:" + std::to_string(code));
}
inline ZMLogLine diagnostic(int32_t level, const std::string& text) { return ZMLogLine{level, ZMLogTypeDiagnostic, kClientTag, text}; }
inline const ZMLogLine kRoomIdNil = diagnostic(6, "Parameter error，targetId is nil");
inline const ZMLogLine kKeyIllegal = diagnostic(2, "Parameter error，key is contains Illegal character");
inline const ZMLogLine kStoreOff = diagnostic(6, "KV function of chatroom is not opened");
inline ZMLogLine parameterError(const std::string& operation, const std::string& details) {
    return diagnostic(2, "Parameter Error, " + operation + ", chatroomId:" + details);
}
// The texts the module's lines show of a dictionary or array, and of a room id or key.
inline std::string pretty(const ZMValue& value) { return value.dump(2); }
inline std::string shown(const ZMValue& value) { return value.is_string() ? value.get<std::string>() : value.dump(); }
// Entries k0..k(n-1) with the values v0..., or only their keys.
inline ZMValue numberedEntries(int count, bool asKeys = false) {
    ZMValue result = asKeys ? ZMValue::array() : ZMValue::object();
    for (int i = 0; i < count; ++i) asKeys ? result.push_back(numbered("k", i)) : void(result[numbered("k", i)] = numbered("v", i));
    return result;
}
inline Strings operator+(Strings a, const Strings& b) { return a.insert(a.end(), b.begin(), b.end()), a; }
inline void PrintTo(const ZMLogLine& l, std::ostream* os) {
    *os << "[" << l.level << "][" << l.type << "][" << l.tag << "] " << l.text;
}

// One KV call: how to make it, its start line (if any), its result line's tag and room.
struct KVCall {
    std::function<void(ZMChatRoomClient&, KVOutcome&)> make;
    std::optional<ZMLogLine> start;
    std::string resultTag, room;
};
// A call refused with the KV store on or off: its code, the lines after its start line, where its result line goes.
enum class ResultLine { Last, First };
struct KVRefusal {
    std::string name;
    KVCall call;
    bool storeOn;
    int32_t code;
    std::vector<ZMLogLine> lines;
    ResultLine result = ResultLine::Last;
};

class KVTest : public ClientTest {
protected:
    KVTimeline timeline;
    void SetUp() override {
        ClientTest::SetUp();
        // With the server model off, every KV request succeeds with no entries unless a test says otherwise.
        core.logger().setLineObserver([this](const ZMLogLine& line) {
            const bool kv = line.tag.rfind("L-", 0) == 0 || line.tag.find("_kv") != std::string::npos;
            if (kv) timeline.note("line " + line.tag + " " + line.text);
        });
    }
    void TearDown() override {
        core.logger().setLineObserver(nullptr);
        ClientTest::TearDown();
    }
    std::vector<ZMLogLine> allLines() { return core.logger().lines(); }
    // The filter is held weakly: the caller keeps it alive.
    void setFilter(const std::shared_ptr<ZMChatRoomKVStatusFilterDelegate>& f) { client.setZMChatRoomKVStatusFilterDelegate(f); }

    // Each call fails once before it returns, with its code and lines, and sends nothing.
    void expectRefusals(const std::vector<KVRefusal>& rows) {
        for (const auto& row : rows) {
            SCOPED_TRACE(row.name);
            core.setChatroomKVStorageEnabled(row.storeOn);
            forget();
            KVOutcome outcome;
            outcome.failedEntries = ZMValue::object();
            row.call.make(client, outcome);
            outcome.returned = true;
            EXPECT_EQ(std::tuple(outcome.errors.load(), outcome.code.load(), outcome.beforeReturn.load()),
                      std::tuple(1, row.code, true));
            EXPECT_EQ(outcome.failedEntries, ZMValue::object());
            std::vector<ZMLogLine> expected = row.lines;
            const ZMLogLine result = resultLine(row.call.resultTag, row.call.room, row.code);
            expected.insert(row.result == ResultLine::First ? expected.begin() : expected.end(), result);
            if (row.call.start) expected.insert(expected.begin(), *row.call.start);
            EXPECT_EQ(allLines(), expected);
        }
        settle();
        EXPECT_TRUE(core.requests().empty());
    }

    Strings takeTimeline() {  // settled, and forgotten before the next step
        settle();
        Strings events = timeline.events.events();
        timeline.events.clear();
        return events;
    }
};
