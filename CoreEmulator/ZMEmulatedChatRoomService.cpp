#include <CoreEmulator/ZMEmulatedChatRoomService.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>

#include <CoreEmulator/ZMEmulatedDispatcher.h>
#include <Platform/ZMUTF16.h>
#include <VemoIMLibCore/ZMFwLog.h>

namespace {

const char* const kLogTag = "ZMEmulatedChatRoomService.cpp";

// A byte payload is recorded as its text; bytes that are not UTF-8 text are
// kept as a byte value so that nothing is lost and nothing reads as a string.
ZMValue payloadValue(const ZMData& data) {
    std::string text(data.begin(), data.end());
    if (ZMUTF16::length(text).has_value()) return ZMValue(std::move(text));
    return ZMValue::binary(data);
}

// A request's arguments: a dictionary built in place from ("key", value)
// pairs.
void addArguments(ZMValue::object_t&) {}
template <class Value, class... More>
void addArguments(ZMValue::object_t& arguments, const char* key, Value&& value, More&&... more) {
    arguments.emplace(key, ZMValue(std::forward<Value>(value)));
    addArguments(arguments, std::forward<More>(more)...);
}
template <class... Pairs>
ZMValue argumentsOf(Pairs&&... pairs) {
    ZMValue arguments = ZMValue::object();
    addArguments(arguments.get_ref<ZMValue::object_t&>(), std::forward<Pairs>(pairs)...);
    return arguments;
}

// Result callbacks by shape: success without arguments or error(code).
auto plainResponder(ZMCoreSuccessBlock success, ZMCoreErrorBlock error) {
    return [success = std::move(success), error = std::move(error)](const ZMCoreAnswer& answer) {
        if (answer.code == 0) {
            if (success) success();
        } else if (error) {
            error(answer.code);
        }
    };
}

// success(result dictionary) or error(code).
auto dictionaryResponder(ZMCoreDictionaryBlock success, ZMCoreErrorBlock error) {
    return [success = std::move(success), error = std::move(error)](const ZMCoreAnswer& answer) {
        if (answer.code == 0) {
            if (success) success(answer.result);
        } else if (error) {
            error(answer.code);
        }
    };
}

// success() or error(code, failed entries).
auto entriesResponder(ZMCoreSuccessBlock success, ZMCoreEntriesErrorBlock error) {
    return [success = std::move(success), error = std::move(error)](const ZMCoreAnswer& answer) {
        if (answer.code == 0) {
            if (success) success();
        } else if (error) {
            error(answer.code, answer.result);
        }
    };
}

}  // namespace

ZMEmulatedChatRoomService::ZMEmulatedChatRoomService()
    : kvServer_(ZMEmulatedKVServer::Pushes{
          [this](const std::string& chatroomId) { raiseStatusChange(chatroomId); },
          [this](const std::string& chatroomId, const ZMValue& updateEntries, const ZMValue& removeEntries) {
              raiseKVChange(chatroomId, updateEntries, removeEntries);
          }}) {}

ZMEmulatedChatRoomService& ZMEmulatedChatRoomService::shared() {
    static auto* service = new ZMEmulatedChatRoomService();
    return *service;
}

// ---- Requests ----------------------------------------------------------------

void ZMEmulatedChatRoomService::initChatRoomListener(ZMChatRoomStatusChangeBlock statusChangeBlock,
                                                     ZMChatRoomKVChangeBlock kvChangeBlock,
                                                     ZMChatRoomDestroyedBlock roomDestroyedBlock) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        statusChangeBlock_ = std::move(statusChangeBlock);
        kvChangeBlock_ = std::move(kvChangeBlock);
        roomDestroyedBlock_ = std::move(roomDestroyedBlock);
    }
    record("initChatRoomListener", ZMValue::object());
}

void ZMEmulatedChatRoomService::setChatRoomPSListener() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        pushListening_ = true;
    }
    record("setChatRoomPSListener", ZMValue::object());
}

void ZMEmulatedChatRoomService::joinChatroom(const std::string& chatroomId, int32_t limit, bool useCacheTime,
                                             int32_t joinMode, ZMChatRoomJoinResultBlock resultBlock) {
    handle("joinChatroom",
           argumentsOf("chatroomId", chatroomId, "limit", limit, "useCacheTime", useCacheTime, "joinMode", joinMode),
           [resultBlock = std::move(resultBlock)](const ZMCoreAnswer& answer) {
               if (resultBlock) resultBlock(answer.code, answer.result);
           });
}

void ZMEmulatedChatRoomService::joinExistingChatroom(const std::string& chatroomId, int32_t limit,
                                                     bool useCacheTime, int32_t joinMode,
                                                     ZMChatRoomJoinResultBlock resultBlock) {
    handle("joinExistingChatroom",
           argumentsOf("chatroomId", chatroomId, "limit", limit, "useCacheTime", useCacheTime, "joinMode", joinMode),
           [resultBlock = std::move(resultBlock)](const ZMCoreAnswer& answer) {
               if (resultBlock) resultBlock(answer.code, answer.result);
           });
}

void ZMEmulatedChatRoomService::quitChatroom(const std::string& chatroomId, ZMChatRoomQuitResultBlock resultBlock) {
    handle("quitChatroom", argumentsOf("chatroomId", chatroomId),
           [resultBlock = std::move(resultBlock)](const ZMCoreAnswer& answer) {
               if (resultBlock) resultBlock(answer.code);
           });
}

void ZMEmulatedChatRoomService::clearChatroomMessageAndKVWithTargetId(const std::string& chatroomId,
                                                                      bool clearMsg, bool clearKv) {
    record("clearChatroomMessageAndKVWithTargetId",
           argumentsOf("chatroomId", chatroomId, "clearMsg", clearMsg, "clearKv", clearKv));
}

void ZMEmulatedChatRoomService::setChatroomStatus(const std::string& chatroomId, const std::string& key,
                                                  const std::string& value, bool overwrite, bool autoDelete,
                                                  bool sendNotification, const std::string& notificationObjectName,
                                                  const ZMData& notificationContent, int32_t persistentFlag,
                                                  ZMCoreSuccessBlock success, ZMCoreErrorBlock error) {
    handle("setChatroomStatus",
           argumentsOf("chatroomId", chatroomId,
                       "key", key,
                       "value", value,
                       "overwrite", overwrite,
                       "autoDelete", autoDelete,
                       "sendNotification", sendNotification,
                       "notificationObjectName", notificationObjectName,
                       "notificationContent", payloadValue(notificationContent),
                       "persistentFlag", persistentFlag),
           plainResponder(std::move(success), std::move(error)));
}

void ZMEmulatedChatRoomService::removeChatRoomStatus(const std::string& chatroomId, const std::string& key,
                                                     bool overwrite, bool sendNotification,
                                                     const std::string& notificationObjectName,
                                                     const ZMData& notificationContent, int32_t persistentFlag,
                                                     ZMCoreSuccessBlock success, ZMCoreErrorBlock error) {
    handle("removeChatRoomStatus",
           argumentsOf("chatroomId", chatroomId,
                       "key", key,
                       "overwrite", overwrite,
                       "sendNotification", sendNotification,
                       "notificationObjectName", notificationObjectName,
                       "notificationContent", payloadValue(notificationContent),
                       "persistentFlag", persistentFlag),
           plainResponder(std::move(success), std::move(error)));
}

void ZMEmulatedChatRoomService::getChatRoomEntry(const std::string& chatroomId, const std::string& key,
                                                 ZMCoreDictionaryBlock success, ZMCoreErrorBlock error) {
    handle("getChatRoomEntry", argumentsOf("chatroomId", chatroomId, "key", key),
           dictionaryResponder(std::move(success), std::move(error)));
}

void ZMEmulatedChatRoomService::setChatRoomEntries(const std::string& chatroomId, const ZMValue& entries,
                                                   bool overwrite, bool autoDelete, ZMCoreSuccessBlock success,
                                                   ZMCoreEntriesErrorBlock error) {
    handle("setChatRoomEntries",
           argumentsOf("chatroomId", chatroomId,
                       "entries", entries,
                       "overwrite", overwrite,
                       "autoDelete", autoDelete),
           entriesResponder(std::move(success), std::move(error)));
}

void ZMEmulatedChatRoomService::removeChatRoomEntries(const std::string& chatroomId, const ZMValue& keys,
                                                      bool overwrite, ZMCoreSuccessBlock success,
                                                      ZMCoreEntriesErrorBlock error) {
    handle("removeChatRoomEntries", argumentsOf("chatroomId", chatroomId, "keys", keys, "overwrite", overwrite),
           entriesResponder(std::move(success), std::move(error)));
}

void ZMEmulatedChatRoomService::getChatRoomEntriesByBatch(const std::string& chatroomId, const ZMValue& keys,
                                                          ZMCoreDictionaryBlock success, ZMCoreErrorBlock error) {
    handle("getChatRoomEntriesByBatch", argumentsOf("chatroomId", chatroomId, "keys", keys),
           dictionaryResponder(std::move(success), std::move(error)));
}

void ZMEmulatedChatRoomService::getAllChatRoomEntries(const std::string& chatroomId, bool isSync,
                                                      ZMCoreDictionaryBlock success, ZMCoreErrorBlock error) {
    handle("getAllChatRoomEntries", argumentsOf("chatroomId", chatroomId, "isSync", isSync),
           dictionaryResponder(std::move(success), std::move(error)));
}

void ZMEmulatedChatRoomService::queryChatroomInfo(const std::string& chatroomId, int32_t limit, uint64_t order,
                                                  ZMCoreDictionaryBlock success, ZMCoreErrorBlock error) {
    handle("queryChatroomInfo", argumentsOf("chatroomId", chatroomId, "limit", limit, "order", order),
           dictionaryResponder(std::move(success), std::move(error)));
}

void ZMEmulatedChatRoomService::getChatroomHistoryMessage(const std::string& chatroomId, int64_t sendTime,
                                                          int32_t limit, uint64_t order, const std::string& channelId,
                                                          ZMCoreHistoryBlock successBlock,
                                                          ZMCoreErrorBlock errorBlock) {
    handle("getChatroomHistoryMessage",
           argumentsOf("chatroomId", chatroomId,
                       "sendTime", sendTime,
                       "limit", limit,
                       "order", order,
                       "channelId", channelId),
           [successBlock = std::move(successBlock), errorBlock = std::move(errorBlock)](const ZMCoreAnswer& answer) {
               if (answer.code == 0) {
                   if (successBlock) successBlock(answer.messages, answer.syncTime, answer.hasMore);
               } else if (errorBlock) {
                   errorBlock(answer.code);
               }
           });
}

void ZMEmulatedChatRoomService::bindRTCRoomForChatroom(const std::string& chatroomId, const std::string& rtcRoomId,
                                                       ZMCoreSuccessBlock success, ZMCoreErrorBlock error) {
    handle("bindRTCRoomForChatroom", argumentsOf("chatroomId", chatroomId, "rtcRoomId", rtcRoomId),
           plainResponder(std::move(success), std::move(error)));
}

// ---- Recording and answering -------------------------------------------------

uint64_t ZMEmulatedChatRoomService::takeRequestId() {
    std::lock_guard<std::mutex> lock(mutex_);
    return ++lastRequestId_;
}

void ZMEmulatedChatRoomService::insertRecordedLocked(ZMCoreRequest request) {
    if (auto counted = recordedCounts_.find(request.operation); counted != recordedCounts_.end()) {
        ++counted->second;
    } else {
        recordedCounts_.emplace(request.operation, 1);
    }
    if (requestCapacity_ == 0) return;
    // Ids are taken in arrival order but a request becomes visible only once
    // its fate (answered or held) is settled, so a concurrent request may
    // overtake it here; keep the record in id order all the same. It lands at
    // or near the end, so the search runs from there.
    auto position = requests_.end();
    while (position != requests_.begin() && std::prev(position)->id > request.id) --position;
    requests_.insert(position, std::move(request));
    // Bounded: the oldest request drops out.
    if (requests_.size() > requestCapacity_) requests_.pop_front();
}

void ZMEmulatedChatRoomService::record(const std::string& operation, ZMValue arguments) {
    const uint64_t id = takeRequestId();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        insertRecordedLocked(ZMCoreRequest{id, operation, std::move(arguments)});
    }
    recorded_.notify_all();
}

void ZMEmulatedChatRoomService::handle(const std::string& operation, ZMValue arguments, Responder responder) {
    ZMCoreRequest request{0, operation, std::move(arguments)};
    Rule rule;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        request.id = ++lastRequestId_;
        if (auto found = rules_.find(operation); found != rules_.end()) rule = found->second;
    }

    // A quit ends the stay in the room whatever answers it.
    ZMEmulatedKVServer::FollowUp afterAnswer = kvServer_.requestArrived(request);

    // The rule is the test's code: it runs without the emulator's lock, so it
    // may use the control API. Without a rule the KV server model answers the
    // KV operations; everything else succeeds.
    std::optional<ZMCoreAnswer> answer;
    if (rule) {
        try {
            answer = rule(request);
        } catch (const std::exception& error) {
            ZMFwLog::getInstance().write(2, 1024, kLogTag, "rule of %@ raised an exception, request %@ held: %@",
                                         operation, request.id, std::string(error.what()));
            answer.reset();
        } catch (...) {
            ZMFwLog::getInstance().write(2, 1024, kLogTag, "rule of %@ raised an exception, request %@ held: %@",
                                         operation, request.id, std::string("(unknown)"));
            answer.reset();
        }
    } else if (auto reply = kvServer_.answer(request)) {
        answer = std::move(reply->answer);
        afterAnswer = std::move(reply->afterAnswer);
    } else {
        answer = ZMCoreAnswer::success();
    }

    // Outstanding from before the request is visible until its answer is
    // queued: "wait for the request, then wait until idle" sees the answer.
    ZMEmulatedDispatcher::Hold pending(ZMEmulatedDispatcher::shared());
    if (answer) afterAnswer = answered(request, *answer, std::move(afterAnswer));
    {
        // Recorded and, if so, held in one step: whoever sees the request sees
        // it held and can answer it.
        std::lock_guard<std::mutex> lock(mutex_);
        if (!answer) held_.emplace(request.id, HeldRequest{request, responder, afterAnswer});
        insertRecordedLocked(std::move(request));
    }
    recorded_.notify_all();

    if (answer) queueAnswer(std::move(responder), std::move(*answer), std::move(afterAnswer));
}

ZMEmulatedKVServer::FollowUp ZMEmulatedChatRoomService::answered(const ZMCoreRequest& request,
                                                                 const ZMCoreAnswer& answer,
                                                                 ZMEmulatedKVServer::FollowUp afterAnswer) {
    // A join answered with success makes the user a member now; its first
    // synchronisation follows the answer.
    if (auto admitted = kvServer_.requestAnswered(request, answer)) return admitted;
    return afterAnswer;
}

void ZMEmulatedChatRoomService::queueAnswer(Responder responder, ZMCoreAnswer answer,
                                            ZMEmulatedKVServer::FollowUp afterAnswer) {
    ZMEmulatedDispatcher::shared().deliver([responder = std::move(responder), answer = std::move(answer),
                                            afterAnswer = std::move(afterAnswer)] {
        responder(answer);
        // Queued from inside the answer's delivery: a later delivery of its own,
        // after the callbacks have returned, on whichever thread is next.
        if (afterAnswer) afterAnswer();
    });
}

// ---- Control -----------------------------------------------------------------

std::vector<ZMCoreRequest> ZMEmulatedChatRoomService::requests(const std::string* operation) const {
    std::lock_guard<std::mutex> lock(mutex_);
    if (operation == nullptr) return std::vector<ZMCoreRequest>(requests_.begin(), requests_.end());
    std::vector<ZMCoreRequest> matching;
    for (const auto& request : requests_) {
        if (request.operation == *operation) matching.push_back(request);
    }
    return matching;
}

void ZMEmulatedChatRoomService::clearRequests() {
    std::lock_guard<std::mutex> lock(mutex_);
    requests_.clear();
    recordedCounts_.clear();
}

bool ZMEmulatedChatRoomService::waitForRequests(const std::string& operation, size_t count,
                                                double timeoutSeconds) const {
    std::unique_lock<std::mutex> lock(mutex_);
    // Each wake-up reads the operation's count; the record is not searched.
    return recorded_.wait_for(lock, ZMEmulatedDispatcher::waitDuration(timeoutSeconds), [&] {
        const auto counted = recordedCounts_.find(operation);
        return (counted == recordedCounts_.end() ? 0 : counted->second) >= count;
    });
}

void ZMEmulatedChatRoomService::setRequestCapacity(size_t capacity) {
    std::lock_guard<std::mutex> lock(mutex_);
    requestCapacity_ = capacity;
    while (requests_.size() > requestCapacity_) requests_.pop_front();
}

size_t ZMEmulatedChatRoomService::requestCapacity() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requestCapacity_;
}

void ZMEmulatedChatRoomService::setRule(const std::string& operation, Rule rule) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (rule) {
        rules_.insert_or_assign(operation, std::move(rule));
    } else {
        rules_.erase(operation);
    }
}

void ZMEmulatedChatRoomService::clearRules() {
    std::lock_guard<std::mutex> lock(mutex_);
    rules_.clear();
}

std::vector<ZMCoreRequest> ZMEmulatedChatRoomService::heldRequests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<ZMCoreRequest> held;
    held.reserve(held_.size());
    for (const auto& entry : held_) held.push_back(entry.second.request);
    return held;
}

bool ZMEmulatedChatRoomService::answer(uint64_t requestId, const ZMCoreAnswer& answer) {
    HeldRequest held;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = held_.find(requestId);
        if (found == held_.end()) return false;
        held = std::move(found->second);
        held_.erase(found);
    }
    auto afterAnswer = answered(held.request, answer, std::move(held.afterAnswer));
    queueAnswer(std::move(held.responder), answer, std::move(afterAnswer));
    return true;
}

void ZMEmulatedChatRoomService::resetRequests() {
    std::map<uint64_t, HeldRequest> dropped;
    std::map<std::string, Rule> rules;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        dropped.swap(held_);
        rules.swap(rules_);
        lastRequestId_ = 0;
    }
    clearRequests();
    // Destroyed here, outside the lock: the module's callbacks and the test's
    // rules may own objects whose destructors call back into the emulator.
    dropped.clear();
    rules.clear();
}

// ---- Pushes ------------------------------------------------------------------

void ZMEmulatedChatRoomService::raiseStatusChange(const std::string& chatroomId) {
    ZMChatRoomStatusChangeBlock block;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        block = statusChangeBlock_;
    }
    if (!block) return;
    ZMEmulatedDispatcher::shared().deliver([block = std::move(block), chatroomId] { block(chatroomId); });
}

void ZMEmulatedChatRoomService::raiseKVChange(const std::string& chatroomId, const ZMValue& updateEntries,
                                              const ZMValue& removeEntries) {
    ZMChatRoomKVChangeBlock block;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        block = kvChangeBlock_;
    }
    if (!block) return;
    ZMEmulatedDispatcher::shared().deliver([block = std::move(block), chatroomId, updateEntries, removeEntries] {
        block(chatroomId, updateEntries, removeEntries);
    });
}

void ZMEmulatedChatRoomService::raiseRoomDestroyed(const std::string& chatroomId, int32_t type) {
    // The room is gone on the server: its store and the user's stay in it too.
    kvServer_.roomDestroyed(chatroomId);
    ZMChatRoomDestroyedBlock block;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        block = roomDestroyedBlock_;
    }
    if (!block) return;
    ZMEmulatedDispatcher::shared().deliver([block = std::move(block), chatroomId, type] { block(chatroomId, type); });
}

bool ZMEmulatedChatRoomService::isPushListening() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return pushListening_;
}
