#pragma once

#include <functional>
#include <set>
#include <string>
#include <thread>

#include "ClientTestSupport.h"

// What the KV tests share: observers and filters that write what they receive
// into one timeline, together with the module's KV log lines, so that a test
// can assert on the order of lines and observer calls.

// One timeline of observer calls and log lines, in the order they happened.
struct KVTimeline {
    ZMEventRecorder events;
    // Threads the observers and filters ran on, and whether any ran on one of
    // the client's queues (they must run on the core's thread, without a hop).
    std::mutex mutex;
    std::set<std::thread::id> threads;
    std::atomic<int> callsOnClientQueues{0};
    // Addresses of the entry dictionaries the observers received.
    std::vector<const void*> entryAddresses;

    void note(const std::string& event, const ZMValue* entry = nullptr) {
        auto& client = ZMChatRoomClient::sharedChatRoomClient();
        callsOnClientQueues += client.zm_chatroom_operation_queue().isCurrent() ||
                               client.zm__notify_chatroom_status_queue().isCurrent();
        {
            std::lock_guard<std::mutex> lock(mutex);
            threads.insert(std::this_thread::get_id());
            if (entry) entryAddresses.push_back(entry);
        }
        events.record(event);
    }
};

inline std::string compact(const ZMValue& value) { return value.dump(); }

// KV observers overriding one, two or all of the callbacks, named after what
// they implement.
class KVAllObserver : public ZMChatRoomKVStatusChangeDelegate {
public:
    KVAllObserver(KVTimeline& timeline, std::string name) : timeline_(timeline), name_(std::move(name)) {}
    void chatRoomKVDidSync(const std::string& room) override { timeline_.note(name_ + " sync " + room); }
    void chatRoomKVDidUpdate(const std::string& room, const ZMValue& entry) override {
        timeline_.note(name_ + " update " + room + " " + compact(entry), &entry);
    }
    void chatRoomKVDidRemove(const std::string& room, const ZMValue& entry) override {
        timeline_.note(name_ + " remove " + room + " " + compact(entry), &entry);
    }

protected:
    KVTimeline& timeline_;
    std::string name_;
};

class KVUpdateObserver : public ZMChatRoomKVStatusChangeDelegate {
public:
    KVUpdateObserver(KVTimeline& timeline, std::string name) : timeline_(timeline), name_(std::move(name)) {}
    void chatRoomKVDidUpdate(const std::string& room, const ZMValue& entry) override {
        timeline_.note(name_ + " update " + room + " " + compact(entry), &entry);
    }

private:
    KVTimeline& timeline_;
    std::string name_;
};

class KVRemoveObserver : public ZMChatRoomKVStatusChangeDelegate {
public:
    KVRemoveObserver(KVTimeline& timeline, std::string name) : timeline_(timeline), name_(std::move(name)) {}
    void chatRoomKVDidRemove(const std::string& room, const ZMValue& entry) override {
        timeline_.note(name_ + " remove " + room + " " + compact(entry), &entry);
    }

private:
    KVTimeline& timeline_;
    std::string name_;
};

// Answers of a filter: a function of the entries it is given.
using FilterAnswer = std::function<ZMValue(const ZMValue& entries)>;
inline FilterAnswer passThrough() {
    return [](const ZMValue& entries) { return entries; };
}
inline FilterAnswer answering(ZMValue answer) {
    return [answer](const ZMValue&) { return answer; };
}
// Drops every entry whose key starts with "_".
inline FilterAnswer hidingPrivateKeys() {
    return [](const ZMValue& entries) {
        ZMValue kept = ZMValue::object();
        for (const auto& [key, value] : entries.items()) {
            if (key.rfind('_', 0) != 0) kept[key] = value;
        }
        return kept;
    };
}

// A filter implementing every callback.
class KVFullFilter : public ZMChatRoomKVStatusFilterDelegate {
public:
    KVFullFilter(KVTimeline& timeline, FilterAnswer answer = passThrough())
        : timeline_(timeline), answer_(std::move(answer)) {}
    void chatRoomKVStatusDidSync(const std::string& room) override { timeline_.note("filter sync " + room); }
    ZMValue chatRoomKVUpdateFilter(const std::string& room, const ZMValue& entry) override {
        timeline_.note("filter update " + room + " " + compact(entry));
        return answer_(entry);
    }
    ZMValue chatRoomKVRemoveFilter(const std::string& room, const ZMValue& entry) override {
        timeline_.note("filter remove " + room + " " + compact(entry));
        return answer_(entry);
    }
    ZMValue getAllChatRoomEntriesFilter(const std::string& room, const ZMValue& entry) override {
        timeline_.note("filter all " + room + " " + compact(entry));
        return answer_(entry);
    }

private:
    KVTimeline& timeline_;
    FilterAnswer answer_;
};

class KVUpdateFilter : public ZMChatRoomKVStatusFilterDelegate {
public:
    KVUpdateFilter(KVTimeline& timeline, FilterAnswer answer) : timeline_(timeline), answer_(std::move(answer)) {}
    ZMValue chatRoomKVUpdateFilter(const std::string& room, const ZMValue& entry) override {
        timeline_.note("filter update " + room + " " + compact(entry));
        return answer_(entry);
    }

private:
    KVTimeline& timeline_;
    FilterAnswer answer_;
};

class KVRemoveFilter : public ZMChatRoomKVStatusFilterDelegate {
public:
    KVRemoveFilter(KVTimeline& timeline, FilterAnswer answer) : timeline_(timeline), answer_(std::move(answer)) {}
    ZMValue chatRoomKVRemoveFilter(const std::string& room, const ZMValue& entry) override {
        timeline_.note("filter remove " + room + " " + compact(entry));
        return answer_(entry);
    }

private:
    KVTimeline& timeline_;
    FilterAnswer answer_;
};

// The outcome of one KV call whose callbacks carry entries.
struct KVOutcome : CallOutcome {
    std::mutex mutex;
    ZMValue entries;        // what the success callback received
    ZMValue failedEntries;  // what a batch error callback received

    ZMEntriesSuccessBlock entriesSuccess() {
        return [this, done = success()](const ZMValue& received) {
            {
                std::lock_guard<std::mutex> lock(mutex);
                entries = received;
            }
            done();
        };
    }
    ZMEntriesErrorBlock entriesError() {
        return [this, failed = error()](int32_t code, const ZMValue& received) {
            {
                std::lock_guard<std::mutex> lock(mutex);
                failedEntries = received;
            }
            failed(code);
        };
    }
};

class KVTest : public ClientTest {
protected:
    KVTimeline timeline;

    void SetUp() override {
        ClientTest::SetUp();
        // Every KV request succeeds with no entries unless a test says
        // otherwise: the module's behaviour is under test, not a server's.
        for (const char* operation : {"setChatroomStatus", "removeChatRoomStatus", "getChatRoomEntry",
                                      "setChatRoomEntries", "removeChatRoomEntries", "getChatRoomEntriesByBatch",
                                      "getAllChatRoomEntries"}) {
            core.setRule(operation, ZMCoreAnswer::success());
        }
        // The KV lines join the observers' calls in one timeline.
        core.logger().setLineObserver([this](const ZMLogLine& line) {
            if (line.tag.rfind("L-", 0) == 0 || line.tag.find("_kv") != std::string::npos) {
                timeline.note("line " + line.tag + " " + line.text);
            }
        });
    }
    void TearDown() override {
        core.logger().setLineObserver(nullptr);
        ClientTest::TearDown();
    }

    // Every line written since the last forget(), in writing order.
    std::vector<ZMLogLine> allLines() { return core.logger().lines(); }

    void markSynchronised(const std::string& room) { client.syncKVChatRoomDict().setObject(true, room); }

    // Makes one call, with the KV store switched on or off, that the module
    // must refuse before it returns: checks the code and every line written.
    // A batch write or removal must hand over the empty dictionary.
    void expectRefused(bool storeOn, const std::function<void(KVOutcome&)>& makeCall, int32_t code,
                       const std::vector<ZMLogLine>& expectedLines);

    // A settled timeline: forgets it before the next step.
    Strings takeTimeline() {
        settle();
        Strings events = timeline.events.events();
        timeline.events.clear();
        return events;
    }
};

inline ZMLogLine opLine(int32_t level, const std::string& tag, const std::string& text) {
    return ZMLogLine{level, ZMLogTypeOperation, tag, text};
}

// A diagnostic line of the client, and those the KV refusals share.
inline ZMLogLine diagnostic(int32_t level, const std::string& text) {
    return ZMLogLine{level, ZMLogTypeDiagnostic, kClientTag, text};
}
inline const ZMLogLine kRoomIdNil = diagnostic(6, "Parameter error，targetId is nil");
inline const ZMLogLine kKeyIllegal = diagnostic(2, "Parameter error，key is contains Illegal character");
inline const ZMLogLine kStoreOff = diagnostic(6, "KV function of chatroom is not opened");

// The pretty JSON text the module's result lines show of a dictionary or array.
inline std::string pretty(const ZMValue& value) { return value.dump(2); }

inline void KVTest::expectRefused(bool storeOn, const std::function<void(KVOutcome&)>& makeCall, int32_t code,
                                  const std::vector<ZMLogLine>& expectedLines) {
    core.setChatroomKVStorageEnabled(storeOn);
    forget();
    KVOutcome outcome;
    outcome.failedEntries = ZMValue::object();
    makeCall(outcome);
    outcome.returned = true;
    EXPECT_EQ(outcome.errors, 1);
    EXPECT_EQ(outcome.code, code);
    EXPECT_TRUE(outcome.beforeReturn);
    EXPECT_EQ(outcome.failedEntries, ZMValue::object());
    EXPECT_EQ(allLines(), expectedLines);
}

// Readable log lines in failure messages.
inline void PrintTo(const ZMLogLine& line, std::ostream* os) {
    *os << "[" << line.level << "][" << line.type << "][" << line.tag << "] " << line.text;
}

// The events of the timeline that a filter recorded.
inline Strings filterEvents(const KVTimeline& timeline) {
    Strings result;
    for (const auto& event : timeline.events.events()) {
        if (event.rfind("filter ", 0) == 0) result.push_back(event);
    }
    return result;
}
