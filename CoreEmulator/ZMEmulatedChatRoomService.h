#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <CoreEmulator/ZMCoreRequest.h>
#include <CoreEmulator/ZMEmulatedKVServer.h>
#include <VemoIMLibCore/ZMChatRoomPSManager.h>

// The emulated chat-room service behind ZMKernel::chatRoomPSManager().
//
// Every call is recorded as a ZMCoreRequest (operation = the method's name,
// arguments keyed by its parameter names; callbacks are not recorded). A call
// with result callbacks is then answered by the rule of its operation, or held
// until answer(). Without a rule, the key-value server model answers the KV
// operations (while it is on); everything else succeeds with an empty
// dictionary (history: an empty page). Answers and pushes are delivered on the
// callback threads.
class ZMEmulatedChatRoomService : public ZMChatRoomPSManager {
public:
    using Rule = std::function<std::optional<ZMCoreAnswer>(const ZMCoreRequest&)>;

    static ZMEmulatedChatRoomService& shared();

    // ---- ZMChatRoomPSManager ----------------------------------------------
    void initChatRoomListener(ZMChatRoomStatusChangeBlock statusChangeBlock,
                              ZMChatRoomKVChangeBlock kvChangeBlock,
                              ZMChatRoomDestroyedBlock roomDestroyedBlock) override;
    void setChatRoomPSListener() override;
    void joinChatroom(const std::string& chatroomId, int32_t limit, bool useCacheTime, int32_t joinMode,
                      ZMChatRoomJoinResultBlock resultBlock) override;
    void joinExistingChatroom(const std::string& chatroomId, int32_t limit, bool useCacheTime,
                              int32_t joinMode, ZMChatRoomJoinResultBlock resultBlock) override;
    void quitChatroom(const std::string& chatroomId, ZMChatRoomQuitResultBlock resultBlock) override;
    void clearChatroomMessageAndKVWithTargetId(const std::string& chatroomId, bool clearMsg,
                                               bool clearKv) override;
    void setChatroomStatus(const std::string& chatroomId, const std::string& key, const std::string& value,
                           bool overwrite, bool autoDelete, bool sendNotification,
                           const std::string& notificationObjectName, const ZMData& notificationContent,
                           int32_t persistentFlag, ZMCoreSuccessBlock success, ZMCoreErrorBlock error) override;
    void removeChatRoomStatus(const std::string& chatroomId, const std::string& key, bool overwrite,
                              bool sendNotification, const std::string& notificationObjectName,
                              const ZMData& notificationContent, int32_t persistentFlag,
                              ZMCoreSuccessBlock success, ZMCoreErrorBlock error) override;
    void getChatRoomEntry(const std::string& chatroomId, const std::string& key, ZMCoreDictionaryBlock success,
                          ZMCoreErrorBlock error) override;
    void setChatRoomEntries(const std::string& chatroomId, const ZMValue& entries, bool overwrite,
                            bool autoDelete, ZMCoreSuccessBlock success, ZMCoreEntriesErrorBlock error) override;
    void removeChatRoomEntries(const std::string& chatroomId, const ZMValue& keys, bool overwrite,
                               ZMCoreSuccessBlock success, ZMCoreEntriesErrorBlock error) override;
    void getChatRoomEntriesByBatch(const std::string& chatroomId, const ZMValue& keys,
                                   ZMCoreDictionaryBlock success, ZMCoreErrorBlock error) override;
    void getAllChatRoomEntries(const std::string& chatroomId, bool isSync, ZMCoreDictionaryBlock success,
                               ZMCoreErrorBlock error) override;
    void queryChatroomInfo(const std::string& chatroomId, int32_t limit, uint64_t order,
                           ZMCoreDictionaryBlock success, ZMCoreErrorBlock error) override;
    void getChatroomHistoryMessage(const std::string& chatroomId, int64_t sendTime, int32_t limit,
                                   uint64_t order, const std::string& channelId, ZMCoreHistoryBlock successBlock,
                                   ZMCoreErrorBlock errorBlock) override;
    void bindRTCRoomForChatroom(const std::string& chatroomId, const std::string& rtcRoomId,
                                ZMCoreSuccessBlock success, ZMCoreErrorBlock error) override;

    // ---- Control ----------------------------------------------------------
    // How many requests the record keeps unless setRequestCapacity says otherwise.
    static constexpr size_t kDefaultRequestCapacity = 10000;

    // The kept requests (the newest requestCapacity() recorded since the last
    // clear), in id order; only those of one operation when it is given.
    std::vector<ZMCoreRequest> requests(const std::string* operation) const;
    void clearRequests();
    // Counts every request recorded since the last clear, kept or not.
    bool waitForRequests(const std::string& operation, size_t count, double timeoutSeconds) const;
    // How many requests are kept at most; the oldest drop out first. Lowering
    // it drops the oldest kept requests at once; 0 keeps none.
    void setRequestCapacity(size_t capacity);
    size_t requestCapacity() const;

    // An empty rule removes the operation's rule.
    void setRule(const std::string& operation, Rule rule);
    void clearRules();
    std::vector<ZMCoreRequest> heldRequests() const;
    bool answer(uint64_t requestId, const ZMCoreAnswer& answer);
    // Drops every rule and every held request (their callbacks are released
    // uncalled), clears the record and numbers requests from 1 again. The
    // installed listener callbacks and push listening stay.
    void resetRequests();

    void raiseStatusChange(const std::string& chatroomId);
    void raiseKVChange(const std::string& chatroomId, const ZMValue& updateEntries, const ZMValue& removeEntries);
    void raiseRoomDestroyed(const std::string& chatroomId, int32_t type);
    bool isPushListening() const;

    ZMEmulatedKVServer& kvServer() { return kvServer_; }

private:
    // Calls the callbacks of one request with an answer.
    using Responder = std::function<void(const ZMCoreAnswer&)>;
    struct HeldRequest {
        ZMCoreRequest request;
        std::string chatroomId;  // its "chatroomId" argument, for the KV server model
        Responder responder;
        // What the KV server does once the request is answered (a quit's
        // removal push); may be empty.
        ZMEmulatedKVServer::FollowUp afterAnswer;
    };
    // A request's arguments as they were passed: parameter names with their
    // values, strings kept as plain strings. The dictionary of a
    // ZMCoreRequest is built from them only when something reads the request
    // (a rule, the KV server model, a held request, the record's readers), so
    // a request nobody looks at costs no dynamic values.
    struct Argument {
        const char* name;
        std::variant<std::string, ZMValue> value;
    };
    using Arguments = std::vector<Argument>;
    // Arguments from ("name", value) pairs, in the order passed.
    template <class... Pairs>
    static Arguments argumentsOf(Pairs&&... pairs);
    struct RecordedRequest {
        uint64_t id = 0;
        const char* operation = "";  // the operation's name, a string literal
        Arguments arguments;

        ZMCoreRequest request() const;
        // The "chatroomId" argument; empty when there is none.
        const std::string& chatroomId() const;
    };
    // A waitForRequests() call in progress: woken once its operation's count
    // reaches count, not by every request.
    struct RequestWait {
        std::string_view operation;
        size_t count = 0;
    };

    ZMEmulatedChatRoomService();
    ~ZMEmulatedChatRoomService() override = default;

    // Records a request that has no answer (listener set-up, local clearing).
    void record(const char* operation, Arguments arguments);
    // Records a request and answers it by its rule, or holds it.
    void handle(const char* operation, Arguments arguments, Responder responder);
    uint64_t takeRequestId();
    // Adds a request to the record in id order; the caller holds mutex_.
    // Answers whether a waiter's count has been reached (the caller then
    // notifies recorded_ once it has let the lock go).
    bool insertRecordedLocked(RecordedRequest request);
    // Tells the KV server model a request has its answer, and answers what
    // follows the answer's delivery: the model's follow-up (a join starts
    // the first synchronisation) or else afterAnswer.
    ZMEmulatedKVServer::FollowUp answered(std::string_view operation, const std::string& chatroomId,
                                          const ZMCoreAnswer& answer, ZMEmulatedKVServer::FollowUp afterAnswer);
    // Delivers an answer on a callback thread: the request's callbacks, then
    // the follow-up.
    void queueAnswer(Responder responder, ZMCoreAnswer answer, ZMEmulatedKVServer::FollowUp afterAnswer);

    mutable std::mutex mutex_;
    mutable std::condition_variable recorded_;
    mutable std::vector<const RequestWait*> requestWaits_;
    uint64_t lastRequestId_ = 0;
    // The record, bounded by requestCapacity_, and how many requests of each
    // operation were recorded since the last clear (dropped ones included).
    std::deque<RecordedRequest> requests_;
    size_t requestCapacity_ = kDefaultRequestCapacity;
    std::map<std::string, size_t, std::less<>> recordedCounts_;
    std::map<std::string, Rule, std::less<>> rules_;
    std::map<uint64_t, HeldRequest> held_;  // ordered by id, i.e. by arrival
    ZMChatRoomStatusChangeBlock statusChangeBlock_;
    ZMChatRoomKVChangeBlock kvChangeBlock_;
    ZMChatRoomDestroyedBlock roomDestroyedBlock_;
    bool pushListening_ = false;
    // Has its own lock; called without mutex_ held.
    ZMEmulatedKVServer kvServer_;
};
