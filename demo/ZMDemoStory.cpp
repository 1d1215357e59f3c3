#include "ZMDemoStory.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>

#include <Platform/ZMMainQueue.h>
#include <ZMChatRoom/Extension/ZMChatRoomExtensionModule.h>

#include "ZMDemoTextMessage.h"

namespace {

// A code of the core that is not one of the final join failures: a room whose
// rejoin fails with it stays cached and the rejoin timer tries again.
constexpr int32_t kTransientFailure = 30001;

constexpr double kRejoinWaitSeconds = 6;  // three sweeps of the 2-second timer

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

// "34210 ZMErrorInvalidParameter" for the codes the module names, else the number.
std::string codeText(int32_t code) {
    static const std::map<int32_t, const char*> names = {
        {ZMErrorInvalidParameter, "ZMErrorInvalidParameter"},
        {ZMErrorInvalidJoinMode, "ZMErrorInvalidJoinMode"},
        {ZMErrorInvalidRtcRoomId, "ZMErrorInvalidRtcRoomId"},
        {ZMErrorInvalidMemberOrder, "ZMErrorInvalidMemberOrder"},
        {ZMErrorInvalidHistoryOrder, "ZMErrorInvalidHistoryOrder"},
        {ZMErrorInvalidMessageCount, "ZMErrorInvalidMessageCount"},
        {ZMErrorInvalidRecordTime, "ZMErrorInvalidRecordTime"},
        {ZMErrorMessageStoreDisabled, "ZMErrorMessageStoreDisabled"},
        {ZMErrorKVNotSynchronized, "ZMErrorKVNotSynchronized"},
        {ZMErrorKVStorageDisabled, "ZMErrorKVStorageDisabled"},
        {ZMErrorKVBatchTooLarge, "ZMErrorKVBatchTooLarge"},
        {ZMErrorKVEntryQueryFailed, "ZMErrorKVEntryQueryFailed"},
    };
    auto found = names.find(code);
    return std::to_string(code) + (found == names.end() ? "" : std::string(" ") + found->second);
}

std::string secondsText(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", seconds);
    return text;
}

}  // namespace

ZMDemoStory::ZMDemoStory(ZMDemoConsole& console)
    : console_(console), core_(ZMCoreEmulator::shared()), server_(core_, console),
      start_(std::chrono::steady_clock::now()) {
    server_.addRoom("lobby", {"dave", "erin", "frank"},
                    {{"dave", "good morning, everyone"},
                     {"erin", "morning! who is coming to the 10 o'clock talk?"},
                     {"frank", "count me in"},
                     {"dave", "see you there"}});
    server_.addRoom("concert", {"gina", "hank", "ivy", "jack"},
                    {{"gina", "sound check done"}, {"ivy", "doors open at 19:30"}});
    // The lobby's key-value store, written by its regulars before the app
    // joins: the first synchronisation brings it to the app.
    core_.seedChatRoomEntries("lobby",
                              {{"topic", "the 10 o'clock talk"},
                               {"slides", "1"},
                               {std::string(ZMDemoPrivateKeyFilter::kPrivatePrefix) + "moderator", "dave"}},
                              "dave");
    server_.open();
}

ZMChatRoomClient& ZMDemoStory::client() { return ZMChatRoomClient::sharedChatRoomClient(); }

ZMSuccessBlock ZMDemoStory::reportSuccess(const std::string& call, const std::string& room) {
    return [this, call, room] { console_.event("callback", "callback success", room, call + " succeeded"); };
}

ZMErrorBlock ZMDemoStory::reportError(const std::string& call, const std::string& room) {
    return [this, call, room](int32_t code) {
        console_.event("callback", "callback error", room, call + " failed with " + codeText(code));
    };
}

bool ZMDemoStory::waitForMore(const std::string& what, const std::string& kind, const std::string& room,
                              size_t before) {
    return console_.waitFor(what, [this, kind, room, before] { return console_.count(kind, room) > before; });
}

bool ZMDemoStory::waitForTimer(bool running, const std::string& what) {
    auto& mainQueue = ZMMainQueue::shared();
    if (!console_.waitFor(what, [&mainQueue, running] { return (mainQueue.activeTimerCount() > 0) == running; })) {
        return false;
    }
    console_.say("main", what);
    return true;
}

// ---- Chapters -----------------------------------------------------------------

void ZMDemoStory::loadModule() {
    console_.chapter("The core loads the chat-room module");
    console_.say("app", "ZMCoreEmulator::shared().loadExtensionModule(ZMChatRoomExtensionModule::loadVemoExtensionModule)");
    core_.loadExtensionModule(&ZMChatRoomExtensionModule::loadVemoExtensionModule);

    std::string types;
    for (const auto& messageClass : core_.registeredMessageTypes()) {
        types += (types.empty() ? "" : ", ") + messageClass.getObjectName();
    }
    console_.say("core", "message types registered: " + types);
    // The client starts push listening from its operation queue.
    if (core_.waitForRequests("setChatRoomPSListener", 1)) {
        console_.say("core", "chat-room push listening started by the client");
    } else {
        console_.reportTimeout("the client to start push listening", 5);
    }
}

void ZMDemoStory::registerObservers() {
    console_.chapter("The app registers its observers");
    observer_ = std::make_shared<ZMDemoObserver>(console_);
    client().addChatRoomStatusDelegate(observer_);
    client().setMemberDelegate(observer_);
    client().addChatRoomNotifyEventDelegate(observer_);
    client().addChatRoomKVStatusChangeDelegate(observer_);
    console_.say("app", "one observer for room status, member changes, notify events and KV entries; the module "
                        "holds it weakly");
    filter_ = std::make_shared<ZMDemoPrivateKeyFilter>(console_);
    client().setZMChatRoomKVStatusFilterDelegate(filter_);
    console_.say("app", std::string("a KV filter that hides the app's own \"") + ZMDemoPrivateKeyFilter::kPrivatePrefix +
                            "\" keys from the rest of the app");
}

void ZMDemoStory::joinTwoRooms() {
    console_.chapter("The app joins two rooms");

    // A refusal is reported at once, on the calling thread.
    auto returned = std::make_shared<std::atomic<bool>>(false);
    console_.say("app", "joinChatRoom(\"\", 20)");
    client().joinChatRoom("", 20, {}, [this, returned](int32_t code) {
        console_.event("callback", "callback error", "",
                       "joinChatRoom(\"\") refused with " + codeText(code) +
                           (returned->load() ? "" : ", before the call returned"));
    });
    returned->store(true);

    console_.say("app", "joinChatRoom(\"lobby\", 20)");
    client().joinChatRoom("lobby", 20, reportSuccess("joinChatRoom(\"lobby\")", "lobby"),
                          reportError("joinChatRoom(\"lobby\")", "lobby"));
    console_.say("app", "joinExistChatRoom(\"concert\", 10), the form whose success callback gets the join record");
    client().joinExistChatRoom(
        "concert", 10,
        ZMJoinSuccessBlock([this](const std::shared_ptr<ZMJoinChatRoomResponse>& response) {
            console_.event("callback", "callback success", "concert",
                           "joinExistChatRoom(\"concert\") succeeded, " + std::to_string(response->memberCount) +
                               " members");
        }),
        reportError("joinExistChatRoom(\"concert\")", "concert"));
    rooms_ = {"lobby", "concert"};

    console_.waitFor("both rooms to be joined", [this] {
        return console_.count("status joined", "lobby") >= 1 && console_.count("status joined", "concert") >= 1 &&
               console_.count("callback success", "lobby") >= 1 && console_.count("callback success", "concert") >= 1;
    });
    waitForTimer(true, "rejoin timer running: it sweeps the cached rooms every 2 s on this thread");
}

void ZMDemoStory::membersComeAndGo() {
    console_.chapter("Members come and go");
    const size_t before = console_.count("member change");
    server_.changeMembers("lobby", {"alice", "bob"}, {});
    server_.changeMembers("lobby", {}, {"frank"});
    server_.changeMembers("concert", {"kim"}, {"hank"});
    console_.waitFor("three member changes", [this, before] { return console_.count("member change") >= before + 3; });
}

void ZMDemoStory::keyValueStore() {
    console_.chapter("The room's key-value store");
    const std::string room = rooms_.front();
    const std::string q = quoted(room);
    // Joining brought the first synchronisation: the whole store as one update.
    console_.waitFor("the first synchronisation of " + room, [this, room] {
        return console_.count("kv sync", room) >= 1 && console_.count("kv update", room) >= 1;
    });

    // A write with a notification to the room; the server echoes the change.
    size_t updates = console_.count("kv update", room);
    std::string call = "setChatRoomEntry(" + q + ", \"presenter\", \"me\", notify, autoDelete)";
    console_.say("app", call);
    client().setChatRoomEntry(room, "presenter", ZMDemoServer::kAppUserId, true, true, "me presents next",
                              reportSuccess(call, room), reportError(call, room));
    waitForMore("the echo of the write", "kv update", room, updates);
    for (const auto& notification : core_.kvNotifications()) {
        console_.say("server", "sent " + notification.objectName + " to " + notification.chatroomId + ": " +
                                   (notification.content.is_string() ? notification.content.get<std::string>()
                                                                     : notification.content.dump()));
    }
    core_.clearKVNotifications();

    // Another member changes and removes entries; a private key stays hidden.
    updates = console_.count("kv update", room);
    const size_t removals = console_.count("kv remove", room);
    console_.say("server", "dave sets slides = 2 and " + std::string(ZMDemoPrivateKeyFilter::kPrivatePrefix) +
                               "poll = open, then removes topic");
    core_.changeChatRoomEntries(
        room, {{"slides", "2"}, {std::string(ZMDemoPrivateKeyFilter::kPrivatePrefix) + "poll", "open"}}, "dave");
    core_.deleteChatRoomEntries(room, ZMValue::array({"topic"}));
    waitForMore("dave's change", "kv update", room, updates);
    waitForMore("dave's removal", "kv remove", room, removals);

    // Reads: one key, a batch, everything (the full read passes the filter).
    size_t successes = console_.count("callback success", room);
    console_.say("app", "getChatRoomEntry(" + q + ", \"presenter\")");
    client().getChatRoomEntry(
        room, "presenter",
        [this, room](const ZMValue& entries) {
            console_.event("callback", "callback success", room, "getChatRoomEntry: " + entries.dump());
        },
        reportError("getChatRoomEntry", room));
    waitForMore("the entry", "callback success", room, successes);
    successes = console_.count("callback success", room);
    console_.say("app", "getChatRoomEntriesByBatch(" + q + ", [\"slides\", \"presenter\", \"agenda\"])");
    client().getChatRoomEntriesByBatch(
        room, ZMValue::array({"slides", "presenter", "agenda"}),
        [this, room](const ZMValue& entries) {
            console_.event("callback", "callback success", room,
                           "getChatRoomEntriesByBatch: " + entries.dump() + " (no \"agenda\" on the server)");
        },
        reportError("getChatRoomEntriesByBatch", room));
    waitForMore("the batch", "callback success", room, successes);
    successes = console_.count("callback success", room);
    console_.say("app", "getAllChatRoomEntries(" + q + ")");
    client().getAllChatRoomEntries(
        room,
        [this, room](const ZMValue& entries) {
            console_.event("callback", "callback success", room, "getAllChatRoomEntries: " + entries.dump());
        },
        reportError("getAllChatRoomEntries", room));
    waitForMore("every entry", "callback success", room, successes);

    // A batch write and a batch removal, each echoed as one change.
    updates = console_.count("kv update", room);
    call = "setChatRoomEntries(" + q + ", {vote.yes: 12, vote.no: 3})";
    console_.say("app", call);
    client().setChatRoomEntries(room, {{"vote.yes", "12"}, {"vote.no", "3"}}, false, false,
                                reportSuccess(call, room),
                                [this, call, room](int32_t code, const ZMValue& failed) {
                                    console_.event("callback", "callback error", room,
                                                   call + " failed with " + codeText(code) + ", " + failed.dump());
                                });
    waitForMore("the echo of the batch", "kv update", room, updates);
    const size_t removed = console_.count("kv remove", room);
    call = "removeChatRoomEntries(" + q + ", [vote.yes, vote.no])";
    console_.say("app", call);
    client().removeChatRoomEntries(room, ZMValue::array({"vote.yes", "vote.no"}), false, reportSuccess(call, room),
                                   [this, call, room](int32_t code, const ZMValue&) {
                                       console_.event("callback", "callback error", room,
                                                      call + " failed with " + codeText(code));
                                   });
    waitForMore("the echo of the removal", "kv remove", room, removed);

    // Three refusals an app meets, each before the call returns.
    ZMValue eleven = ZMValue::object();
    for (int i = 1; i <= 11; ++i) eleven["seat." + std::to_string(i)] = "free";
    console_.say("app", "setChatRoomEntries(" + q + ", 11 entries)");
    client().setChatRoomEntries(room, eleven, false, false, {}, [this, room](int32_t code, const ZMValue&) {
        console_.event("callback", "callback error", room, "11 entries refused with " + codeText(code));
    });
    console_.say("app", "getChatRoomEntry(\"cinema\", \"film\"): a room the app has not joined");
    client().getChatRoomEntry("cinema", "film", {}, [this](int32_t code) {
        console_.event("callback", "callback error", "cinema",
                       "read before the room is synchronised, refused with " + codeText(code));
    });
    console_.say("core", "the navigation data switches the KV store off");
    core_.setChatroomKVStorageEnabled(false);
    client().setChatRoomEntry(room, "slides", "3", false, false, nullptr, {}, [this, room](int32_t code) {
        console_.event("callback", "callback error", room, "write with the store off refused with " + codeText(code));
    });
    core_.setChatroomKVStorageEnabled(true);
    console_.say("core", "the KV store is on again");
}

void ZMDemoStory::connectionDrops() {
    console_.chapter("The connection drops");
    std::map<std::string, size_t> failedBefore;
    for (const auto& room : rooms_) failedBefore[room] = console_.count("status failed", room);

    console_.say("core", "connection status 1: the connection is lost");
    core_.setConnectionStatus(1);
    console_.waitFor("every room to be announced failed", [this, failedBefore] {
        for (const auto& [room, before] : failedBefore) {
            if (console_.count("status failed", room) <= before) return false;
        }
        return true;
    });
    waitForTimer(false, "rejoin timer stopped while the connection is down");
}

void ZMDemoStory::connectionReturns() {
    console_.chapter("The connection comes back");
    const std::string flaky = rooms_.front();
    const size_t flakyFailed = console_.count("status failed", flaky);
    std::map<std::string, size_t> joinedBefore;
    for (const auto& room : rooms_) joinedBefore[room] = console_.count("status joined", room);

    server_.failNextRejoin(flaky, kTransientFailure);
    console_.say("server", "will refuse the next rejoin of " + flaky + " once, with " +
                               std::to_string(kTransientFailure) + " (not a final code)");
    console_.say("core", "connection status 0: connected again");
    const double reconnectedAt = ZMMainQueue::shared().now();
    core_.setConnectionStatus(0);

    console_.waitFor("the first rejoin sweep to finish", [&] {
        if (console_.count("status failed", flaky) <= flakyFailed) return false;
        for (const auto& [room, before] : joinedBefore) {
            if (room != flaky && console_.count("status joined", room) <= before) return false;
        }
        return true;
    });
    waitForTimer(true, "rejoin timer running again; " + flaky + " waits for its next sweep");
    if (console_.waitFor(
            "the rejoin timer to bring " + flaky + " back",
            [&] { return console_.count("status joined", flaky) > joinedBefore[flaky]; }, kRejoinWaitSeconds)) {
        console_.say("app", flaky + " is back " + secondsText(ZMMainQueue::shared().now() - reconnectedAt) +
                                " after the connection returned");
    }
}

void ZMDemoStory::banAndMultiLoginSync() {
    console_.chapter("A ban and a multi-login sync arrive");
    const size_t bans = console_.count("notify ban");
    const size_t syncs = console_.count("notify sync");
    server_.banMembers(rooms_.front(), {"bob"}, 10, "flooding");
    server_.syncOtherLogin(rooms_.back(), 1, 2);
    console_.waitFor("the ban and the sync event", [this, bans, syncs] {
        return console_.count("notify ban") > bans && console_.count("notify sync") > syncs;
    });
}

void ZMDemoStory::readRoomInfoAndHistory() {
    console_.chapter("The app reads room info and history");
    const std::string room = rooms_.front();
    size_t successes = console_.count("callback success", room);

    console_.say("app", "getChatRoomInfo(" + quoted(room) + ", count 3, order 1)");
    client().getChatRoomInfo(
        room, 3, 1,
        [this, room](const std::shared_ptr<ZMChatRoomInfo>& info) {
            std::string text = "getChatRoomInfo(" + quoted(room) + "): " + std::to_string(info->totalMemberCount) +
                               " members; the first to join:";
            if (info->memberInfoArray) {
                for (const auto& member : *info->memberInfoArray) {
                    // Appended piece by piece: "\n" + std::string builds a temporary
                    // for nothing, and g++ 12 misreads it at -O2 (-Wrestrict).
                    text += '\n';
                    text += member->userId.value_or("(no id)");
                    text += " since ";
                    text += ZMDemoServer::timeOfDay(member->joinTime);
                }
            }
            console_.event("callback", "callback success", room, text);
        },
        reportError("getChatRoomInfo(" + quoted(room) + ")", room));
    console_.waitFor("the room info", [this, room, successes] {
        return console_.count("callback success", room) > successes;
    });

    console_.say("app", "getRemoteChatroomHistoryMessages(" + quoted(room) + ", count 500): too many");
    client().getRemoteChatroomHistoryMessages(room, 0, 500, 0, {},
                                              reportError("getRemoteChatroomHistoryMessages(count 500)", ""));

    successes = console_.count("callback success", room);
    console_.say("app", "getRemoteChatroomHistoryMessages(" + quoted(room) + ", recordTime 0, count 3, order 0)");
    client().getRemoteChatroomHistoryMessages(
        room, 0, 3, 0,
        [this, room](const std::vector<std::shared_ptr<ZMMessage>>& messages, int64_t syncTime) {
            std::string text = "history of " + room + ": " + std::to_string(messages.size()) +
                               " messages, newest first, page ends at " + ZMDemoServer::timeOfDay(syncTime);
            for (const auto& message : messages) {
                auto textMessage = std::dynamic_pointer_cast<ZMDemoTextMessage>(message->content);
                text += '\n';
                text += ZMDemoServer::timeOfDay(message->sentTime);
                text += ' ';
                text += message->senderUserId;
                text += ": ";
                text += textMessage ? textMessage->content : message->objectName;
            }
            console_.event("callback", "callback success", room, text);
        },
        reportError("getRemoteChatroomHistoryMessages(" + quoted(room) + ")", room));
    console_.waitFor("the history page", [this, room, successes] {
        return console_.count("callback success", room) > successes;
    });
}

void ZMDemoStory::bindRtcRoom() {
    console_.chapter("The app binds a room to an RTC room");
    const std::string room = rooms_.back();
    const size_t successes = console_.count("callback success", room);
    const std::string call = "bindChatRoom(" + quoted(room) + ", withRTCRoom \"rtc-stage-1\")";
    console_.say("app", call);
    client().bindChatRoom(room, "rtc-stage-1", reportSuccess(call, room), reportError(call, room));
    console_.waitFor("the binding", [this, room, successes] {
        return console_.count("callback success", room) > successes;
    });
}

void ZMDemoStory::roomDestroyedOnServer() {
    console_.chapter("A room is destroyed on the server");
    const std::string room = rooms_.back();
    server_.destroyRoom(room, 1);
    console_.waitFor(room + " to be announced destroyed",
                     [this, room] { return console_.count("status destroyed", room) >= 1; });
    rooms_.pop_back();
}

void ZMDemoStory::quitRooms() {
    console_.chapter("The app quits");
    std::map<std::string, std::pair<size_t, size_t>> before;
    for (const auto& room : rooms_) {
        before[room] = {console_.count("status quited", room), console_.count("callback success", room)};
        const std::string call = "quitChatRoom(" + quoted(room) + ")";
        console_.say("app", call);
        client().quitChatRoom(room, reportSuccess(call, room), reportError(call, room));
    }
    console_.waitFor("every room to be quit", [this, before] {
        for (const auto& [room, counts] : before) {
            if (console_.count("status quited", room) <= counts.first) return false;
            if (console_.count("callback success", room) <= counts.second) return false;
        }
        return true;
    });
    rooms_.clear();
    waitForTimer(false, "rejoin timer stopped: no room left");
}

// ---- End ------------------------------------------------------------------------

int ZMDemoStory::finish(const std::string& storyName) {
    // Let everything under way reach the app: the core's deliveries, the
    // operation queue, the notify queue and the main queue's tasks.
    core_.waitUntilIdle();
    client().zm_chatroom_operation_queue().sync([] {});
    core_.waitUntilIdle();
    client().zm__notify_chatroom_status_queue().sync([] {});
    ZMMainQueue::shared().drain();
    server_.close();
    printSummary(storyName);
    return console_.sawTimeout() ? 1 : 0;
}

void ZMDemoStory::printSummary(const std::string& storyName) {
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    char line[160];
    console_.plain("");
    console_.plain("Summary of the " + quoted(storyName) + " story (" + secondsText(seconds) + ")");
    console_.plain("  events the app observed");
    static const std::vector<std::string> kindOrder = {
        "status joining", "status joined",    "status reset",  "status failed", "status quited",
        "status destroyed", "member change", "notify ban",   "notify block",  "notify sync",
        "kv sync",          "kv update",     "kv remove",
        "callback success", "callback error"};
    for (const auto& [kind, count] : console_.tally(kindOrder)) {
        std::snprintf(line, sizeof line, "    %-40s %4zu", kind.c_str(), count);
        console_.plain(line);
    }
    // Requests per core operation, in the order of their first appearance.
    std::vector<std::pair<std::string, size_t>> perOperation;
    for (const auto& request : core_.requests()) {
        auto found = std::find_if(perOperation.begin(), perOperation.end(),
                                  [&request](const auto& entry) { return entry.first == request.operation; });
        if (found == perOperation.end()) {
            perOperation.emplace_back(request.operation, 1);
        } else {
            ++found->second;
        }
    }
    console_.plain("  requests the module sent to the core");
    for (const auto& [operation, count] : perOperation) {
        std::snprintf(line, sizeof line, "    %-40s %4zu", operation.c_str(), count);
        console_.plain(line);
    }
    std::snprintf(line, sizeof line, "  navigation re-detections after failed joins: %zu, module log lines: %zu",
                  core_.naviDetectionCount(), core_.logger().lines().size());
    console_.plain(line);
    if (console_.sawTimeout()) console_.plain("  some awaited events did not happen (see the lines marked !!)");
}
