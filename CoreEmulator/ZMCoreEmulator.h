#pragma once

#include <cstdint>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <vector>

#include <CoreEmulator/ZMCoreRequest.h>
#include <CoreEmulator/ZMEmulatedKVServer.h>
#include <CoreEmulator/ZMEmulatedLogger.h>
#include <VemoIMLibCore/VemoIMLibExtensionModule.h>
#include <VemoIMLibCore/ZMMessageContent.h>

// The stand-alone implementation of the core library and its control API.
//
// Linking the CoreEmulator library provides every declaration of
// VemoIMLibCore (ZMKernel, ZMCoreClient, ZMNaviDataManager, ZMNetDetection,
// ZMFwLog, ZMUtilities, the dictionary readers, the message base). This class
// steers it: tests, the demo and application developers' own tests use it to
// answer requests, push events and change the connection.
//
// Threading is that of the real core: every answer, push, connection change
// and received message reaches the module later on one of the emulator's own
// callback threads, never inside the call that caused it.
class ZMCoreEmulator {
public:
    // A rule computes the answer of a request; nothing holds the request until
    // answer() is called for it.
    using Rule = std::function<std::optional<ZMCoreAnswer>(const ZMCoreRequest&)>;

    static ZMCoreEmulator& shared();

    // ---- Between tests -----------------------------------------------------
    // Puts the emulator back to its initial state, so that tests can share a
    // process. First waits (up to timeoutSeconds) until no delivery is
    // outstanding; then drops every rule and every held request (their
    // callbacks are released uncalled: the module never hears of them),
    // clears the request record (ids count from 1 again; the record keeps
    // its initial capacity), resets the key-value server model (stores,
    // memberships, pending first synchronisations, notifications and
    // settings), the navigation data, detection outcome and count, sets the
    // connection status back to 0 without offering it to the modules,
    // switches payload-encoding failure off, goes back to one callback thread
    // and empties the logger (lines, console, observer, capacity, recording).
    //
    // What stays, as with a real core that loads a module once per process:
    // the loaded modules, the registered message types, the listener
    // callbacks a module installed (initChatRoomListener) and push listening.
    // The module's own state (rooms, observers, timers) is the module's: the
    // test kit (ZMChatRoomTestKit::reset) resets both.
    //
    // False when the emulator did not become idle in time (the reset is done
    // all the same), and at once from a callback thread.
    bool reset(double timeoutSeconds = 30);

    // ---- Extension modules -------------------------------------------------
    // Loads a module the way the core does: calls the module class's loader on
    // the caller's thread and keeps the module it returns. Every later
    // connection change, logout and received message is offered to it.
    void loadExtensionModule(const VemoIMLibExtensionModuleLoader& loader);
    // The message classes registered through registerMessageType, in order
    // (a class registered twice appears twice).
    std::vector<ZMMessageClass> registeredMessageTypes() const;

    // ---- Chat-room service requests ---------------------------------------
    // Every request recorded since the last clearRequests() and still kept
    // (see setRequestCapacity), in arrival order (optionally only those of
    // one operation).
    std::vector<ZMCoreRequest> requests() const;
    std::vector<ZMCoreRequest> requests(const std::string& operation) const;
    void clearRequests();
    // Waits until at least count requests of the operation have been recorded
    // since the last clearRequests(); false on timeout.
    bool waitForRequests(const std::string& operation, size_t count, double timeoutSeconds = 5) const;
    // How many requests the record keeps (10,000 initially); the oldest drop
    // out first, and waitForRequests still counts them.
    void setRequestCapacity(size_t capacity);
    size_t requestCapacity() const;

    // Without a rule the key-value server model answers the KV operations
    // (see below); every other operation succeeds with an empty result
    // dictionary (history: an empty page). Rules replace one another per
    // operation and take precedence over the model.
    void setRule(const std::string& operation, ZMCoreAnswer answer);
    void setRule(const std::string& operation, Rule rule);
    // Keeps every later request of the operation unanswered until answer().
    void holdRequests(const std::string& operation);
    void clearRules();
    // Requests held and not yet answered, in arrival order.
    std::vector<ZMCoreRequest> heldRequests() const;
    // Answers a held request on a callback thread; false when no held request
    // has that id.
    bool answer(uint64_t requestId, const ZMCoreAnswer& answer);

    // ---- Pushes from the server -------------------------------------------
    // Calls the callbacks installed by initChatRoomListener (the latest
    // installation), on a callback thread.
    void raiseStatusChange(const std::string& chatroomId);
    void raiseKVChange(const std::string& chatroomId, const ZMValue& updateEntries,
                       const ZMValue& removeEntries);
    void raiseRoomDestroyed(const std::string& chatroomId, int32_t type);
    // Whether setChatRoomPSListener has been called.
    bool isPushListening() const;

    // ---- Connection and session -------------------------------------------
    // Sets the status read by getConnectionStatus (0 connected; the initial
    // status is 0) and offers it to every loaded module.
    void setConnectionStatus(int64_t status);
    // Offers the logout event to every loaded module; the current user leaves
    // every room of the key-value server model.
    void logout();

    // ---- Received messages ------------------------------------------------
    // Decodes the JSON payload with the class registered for objectName (a
    // message of an unregistered type has no content) and offers the message
    // to the loaded modules in load order until one holds it. The future
    // tells whether one did.
    std::shared_future<bool> deliverMessage(const std::string& objectName, const std::string& jsonPayload,
                                            const std::string& targetId, bool isOffline = false);

    // ---- Key-value server model ------------------------------------------
    // A store per room (key -> value, owner, autoDelete) and the rooms the
    // current user is in: joining (a join answered 0 or 33009) and leaving (a
    // quit request, logout, raiseRoomDestroyed) are followed whoever answers.
    // Without a rule for them, the KV operations are answered from the store,
    // and writes are echoed back as KV-change pushes. docs/emulator.md has
    // every rule and code.
    using KVFirstSync = ZMEmulatedKVServer::FirstSync;

    // On initially. Off, rules and the plain defaults alone answer, and the
    // model pushes nothing and follows no join, quit or logout.
    void setKVServerModelEnabled(bool enabled);
    // Who the module's requests are made as ("emulator-user" initially).
    void setCurrentUserId(const std::string& userId);
    std::string currentUserId() const;
    // When the first-synchronisation push follows a successful join answer:
    // right after it (initially), never, or delaySeconds later on the main
    // queue's clock. Applies to later joins.
    void setKVFirstSync(KVFirstSync mode, double delaySeconds = 0);
    // How many entries a room holds at most (100 initially).
    void setKVRoomCapacity(size_t capacity);
    // Stores entries (key -> value) as written by another user, without a push
    // and without the capacity check; also before anyone joined.
    void seedChatRoomEntries(const std::string& chatroomId, const ZMValue& entries,
                             const std::string& ownerUserId = "other-user");
    // Changes entries or removes keys as another user would, pushing the change
    // to the module when the current user is in the room.
    void changeChatRoomEntries(const std::string& chatroomId, const ZMValue& entries,
                               const std::string& ownerUserId = "other-user");
    void deleteChatRoomEntries(const std::string& chatroomId, const ZMValue& keys);
    // The room's store as a dictionary key -> value, and an entry's owner.
    ZMValue chatRoomEntries(const std::string& chatroomId) const;
    std::optional<std::string> chatRoomEntryOwner(const std::string& chatroomId, const std::string& key) const;
    // Notifications sent with single writes and removals (sendNotification),
    // in order, since the last clear.
    std::vector<ZMKVNotification> kvNotifications() const;
    void clearKVNotifications();

    // ---- Navigation data --------------------------------------------------
    // Whether the core has navigation data at all (initially it has); without
    // it ZMNaviDataManager::naviData() answers null, which the module reads as
    // every switch off.
    void setNaviDataAvailable(bool available);
    // The three switches; all are on initially.
    void setChatroomKVStorageEnabled(bool enabled);
    void setChatroomMessageStoreEnabled(bool enabled);
    void setMutliChatroomEnabled(bool enabled);
    // How navigation re-detection answers: success with these three strings
    // (the initial answer is "navi.emulator", "127.0.0.1", "wifi"), or failure.
    void setNaviDetectionResult(const std::string& navi, const std::string& ip, const std::string& net);
    void setNaviDetectionFails();
    size_t naviDetectionCount() const;

    // ---- Payload encoding -------------------------------------------------
    // While set, ZMCoreClient::payloadOfMessageContent answers nothing.
    void setPayloadEncodingFails(bool fails);

    // ---- Threads ----------------------------------------------------------
    // How many callback threads deliver answers and pushes (1 initially: then
    // everything is delivered in the order it was caused). With more, each
    // delivery goes to the next thread in turn.
    void setCallbackThreadCount(size_t count);
    // Returns once the emulator's own deliveries queued so far (answers,
    // pushes, connection changes, logouts, received messages, detection
    // answers) have run, including those queued synchronously from inside a
    // delivery. Work on the module's own queues is not covered: a client call
    // made from a callback only queues a task on the module's operation queue,
    // and status announcements run on its notify queue (see docs/emulator.md
    // for settling everything). False on timeout, and at once when called from
    // a callback thread.
    bool waitUntilIdle(double timeoutSeconds = 5) const;

    // ---- Logger and key rule ----------------------------------------------
    ZMEmulatedLogger& logger();
    // The legal characters of a KV key: ASCII letters, digits and _ - + = .
    static bool isLegalKVKeyCharacter(char32_t character);

private:
    ZMCoreEmulator();
    struct State;
    State* state_;
};
