#include <CoreEmulator/ZMEmulatedChatRoomService.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

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

// A request's arguments from ("name", value) pairs, in the order passed.
template <class Arguments, class Value>
void addArgument(Arguments& arguments, const char* name, Value&& value) {
    if constexpr (std::is_same_v<std::remove_cvref_t<Value>, std::string>) {
        arguments.push_back({name, std::string(std::forward<Value>(value))});
    } else {
        arguments.push_back({name, ZMValue(std::forward<Value>(value))});
    }
}
template <class Arguments>
void addArguments(Arguments&) {}
template <class Arguments, class Value, class... More>
void addArguments(Arguments& arguments, const char* name, Value&& value, More&&... more) {
    addArgument(arguments, name, std::forward<Value>(value));
    addArguments(arguments, std::forward<More>(more)...);
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

template <class... Pairs>
ZMEmulatedChatRoomService::Arguments ZMEmulatedChatRoomService::argumentsOf(Pairs&&... pairs) {
    Arguments arguments;
    arguments.reserve(sizeof...(Pairs) / 2);
    addArguments(arguments, std::forward<Pairs>(pairs)...);
    return arguments;
}

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
    record("initChatRoomListener", {});
}

void ZMEmulatedChatRoomService::setChatRoomPSListener() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        pushListening_ = true;
    }
    record("setChatRoomPSListener", {});
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

ZMCoreRequest ZMEmulatedChatRoomService::RecordedRequest::request() const {
    ZMCoreRequest built{id, operation, ZMValue::object()};
    auto& dictionary = built.arguments.get_ref<ZMValue::object_t&>();
    for (const auto& [name, value] : arguments) {
        dictionary.emplace(name, std::visit([](const auto& held) { return ZMValue(held); }, value));
    }
    return built;
}

const std::string& ZMEmulatedChatRoomService::RecordedRequest::chatroomId() const {
    static const std::string kNone;
    for (const auto& [name, value] : arguments) {
        if (std::string_view(name) == "chatroomId") {
            if (const auto* text = std::get_if<std::string>(&value)) return *text;
        }
    }
    return kNone;
}

uint64_t ZMEmulatedChatRoomService::takeRequestId() {
    std::lock_guard<std::mutex> lock(mutex_);
    return ++lastRequestId_;
}

bool ZMEmulatedChatRoomService::insertRecordedLocked(RecordedRequest request) {
    const std::string_view operation(request.operation);
    size_t count = 1;
    if (auto counted = recordedCounts_.find(operation); counted != recordedCounts_.end()) {
        count = ++counted->second;
    } else {
        recordedCounts_.emplace(operation, 1);
    }
    const bool waitOver = std::any_of(requestWaits_.begin(), requestWaits_.end(), [&](const RequestWait* wait) {
        return wait->operation == operation && count >= wait->count;
    });
    if (requestCapacity_ == 0) return waitOver;
    // Ids are taken in arrival order but a request becomes visible only once
    // its fate (answered or held) is settled, so a concurrent request may
    // overtake it here; keep the record in id order all the same. It lands at
    // or near the end, so the search runs from there.
    auto position = requests_.end();
    while (position != requests_.begin() && std::prev(position)->id > request.id) --position;
    requests_.insert(position, std::move(request));
    // Bounded: the oldest request drops out.
    if (requests_.size() > requestCapacity_) requests_.pop_front();
    return waitOver;
}

void ZMEmulatedChatRoomService::record(const char* operation, Arguments arguments) {
    const uint64_t id = takeRequestId();
    bool waitOver = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        waitOver = insertRecordedLocked(RecordedRequest{id, operation, std::move(arguments)});
    }
    if (waitOver) recorded_.notify_all();
}

void ZMEmulatedChatRoomService::handle(const char* operation, Arguments arguments, Responder responder) {
    RecordedRequest recorded{0, operation, std::move(arguments)};
    Rule rule;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        recorded.id = ++lastRequestId_;
        if (auto found = rules_.find(std::string_view(operation)); found != rules_.end()) rule = found->second;
    }
    // The request as a rule, the KV server model or a held request reads it,
    // built once when first needed.
    std::optional<ZMCoreRequest> request;
    auto readable = [&]() -> const ZMCoreRequest& {
        if (!request) request = recorded.request();
        return *request;
    };

    // Read only until the record takes the request over, below.
    const std::string& room = recorded.chatroomId();
    // A quit ends the stay in the room whatever answers it.
    ZMEmulatedKVServer::FollowUp afterAnswer = kvServer_.requestArrived(operation, room);

    // The rule is the test's code: it runs without the emulator's lock, so it
    // may use the control API. Without a rule the KV server model answers the
    // KV operations; everything else succeeds.
    std::optional<ZMCoreAnswer> answer;
    if (rule) {
        try {
            answer = rule(readable());
        } catch (const std::exception& error) {
            ZMFwLog::getInstance().write(2, 1024, kLogTag, "rule of %@ raised an exception, request %@ held: %@",
                                         std::string(operation), recorded.id, std::string(error.what()));
            answer.reset();
        } catch (...) {
            ZMFwLog::getInstance().write(2, 1024, kLogTag, "rule of %@ raised an exception, request %@ held: %@",
                                         std::string(operation), recorded.id, std::string("(unknown)"));
            answer.reset();
        }
    } else if (auto reply = ZMEmulatedKVServer::answers(operation) ? kvServer_.answer(readable()) : std::nullopt) {
        answer = std::move(reply->answer);
        afterAnswer = std::move(reply->afterAnswer);
    } else {
        answer = ZMCoreAnswer::success();
    }

    // Outstanding from before the request is visible until its answer is
    // queued: "wait for the request, then wait until idle" sees the answer.
    ZMEmulatedDispatcher::Hold pending(ZMEmulatedDispatcher::shared());
    if (answer) afterAnswer = answered(operation, room, *answer, std::move(afterAnswer));
    bool waitOver = false;
    {
        // Recorded and, if so, held in one step: whoever sees the request sees
        // it held and can answer it.
        std::lock_guard<std::mutex> lock(mutex_);
        if (!answer) held_.emplace(recorded.id, HeldRequest{readable(), room, responder, afterAnswer});
        waitOver = insertRecordedLocked(std::move(recorded));
    }
    if (waitOver) recorded_.notify_all();

    if (answer) queueAnswer(std::move(responder), std::move(*answer), std::move(afterAnswer));
}

ZMEmulatedKVServer::FollowUp ZMEmulatedChatRoomService::answered(std::string_view operation,
                                                                 const std::string& chatroomId,
                                                                 const ZMCoreAnswer& answer,
                                                                 ZMEmulatedKVServer::FollowUp afterAnswer) {
    // A join answered with success makes the user a member now; its first
    // synchronisation follows the answer.
    if (auto admitted = kvServer_.requestAnswered(operation, chatroomId, answer)) return admitted;
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
    std::vector<ZMCoreRequest> matching;
    for (const auto& recorded : requests_) {
        if (operation == nullptr || *operation == recorded.operation) matching.push_back(recorded.request());
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
    // Registered while it waits, so that only the request reaching the count
    // wakes it; each wake-up reads the operation's count, not the record.
    const RequestWait wait{operation, count};
    requestWaits_.push_back(&wait);
    const bool reached = recorded_.wait_for(lock, ZMEmulatedDispatcher::waitDuration(timeoutSeconds), [&] {
        const auto counted = recordedCounts_.find(operation);
        return (counted == recordedCounts_.end() ? 0 : counted->second) >= count;
    });
    requestWaits_.erase(std::find(requestWaits_.begin(), requestWaits_.end(), &wait));
    return reached;
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
    auto afterAnswer = answered(held.request.operation, held.chatroomId, answer, std::move(held.afterAnswer));
    queueAnswer(std::move(held.responder), answer, std::move(afterAnswer));
    return true;
}

void ZMEmulatedChatRoomService::resetRequests() {
    std::map<uint64_t, HeldRequest> dropped;
    std::map<std::string, Rule, std::less<>> rules;
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
