#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <CoreEmulator/ZMCoreRequest.h>
#include <Platform/ZMTimer.h>

// A notification message the server would have sent to a room after a single
// KV write or removal made with sendNotification.
struct ZMKVNotification {
    std::string chatroomId;
    std::string objectName;
    // The encoded message as it was recorded with the request: its text, or
    // bytes (ZMValue::binary) when it is not UTF-8 text.
    ZMValue content;

    bool operator==(const ZMKVNotification&) const = default;
};

// The emulated server side of the chat-room key-value store: one store per
// room (key -> value, owner, autoDelete), the rooms the current user is in,
// and the pushes a real server sends after joins and writes.
//
// The chat-room service asks it for the answer of every KV request that no
// rule answers, and tells it about joins and quits whoever answered them.
// What it pushes goes out through the Pushes it was made with, after the
// answer that caused it has been delivered: a follow-up runs on the callback
// thread right after the answer's callbacks returned, and queues the push as
// a delivery of its own. It has its own lock and never calls anything of the
// module (or the Pushes) while holding it.
class ZMEmulatedKVServer {
public:
    enum class FirstSync { Immediately, Never, AfterDelay };

    // Queues a push to the module; both are the service's own pushes.
    struct Pushes {
        std::function<void(const std::string& chatroomId)> statusChange;
        std::function<void(const std::string& chatroomId, const ZMValue& updateEntries,
                           const ZMValue& removeEntries)>
            kvChange;
    };
    // Runs on the callback thread after an answer's callbacks; may be empty.
    using FollowUp = std::function<void()>;
    struct Reply {
        ZMCoreAnswer answer;
        FollowUp afterAnswer;
    };

    static constexpr const char* kDefaultUserId = "emulator-user";
    static constexpr size_t kDefaultRoomCapacity = 100;

    // Refusal codes of the model.
    static constexpr int32_t kNotInRoom = 23406;
    static constexpr int32_t kOwnedByAnotherUser = 23423;
    static constexpr int32_t kRoomFull = 23424;
    static constexpr int32_t kNoSuchKey = 23425;
    static constexpr int32_t kStorageDisabled = 23426;

    explicit ZMEmulatedKVServer(Pushes pushes);
    ~ZMEmulatedKVServer();
    ZMEmulatedKVServer(const ZMEmulatedKVServer&) = delete;
    ZMEmulatedKVServer& operator=(const ZMEmulatedKVServer&) = delete;

    // ---- Hooks of the chat-room service -----------------------------------
    // A request has arrived (before any rule runs): a quit ends the
    // membership now; what it returns pushes the removal of the user's
    // autoDelete entries once the quit is answered.
    FollowUp requestArrived(std::string_view operation, const std::string& chatroomId);
    // True for the KV operations, the ones answer() may answer.
    static bool answers(std::string_view operation);
    // The model's answer to a KV request that no rule answers; nothing for
    // other operations and while the model is off.
    std::optional<Reply> answer(const ZMCoreRequest& request);
    // A request was answered, by whatever answered it: a join answered 0 or
    // 33009 makes the current user a member, and what it returns starts the
    // room's first synchronisation.
    FollowUp requestAnswered(std::string_view operation, const std::string& chatroomId, const ZMCoreAnswer& answer);
    // Events of the session and the server.
    void logout();
    void roomDestroyed(const std::string& chatroomId);

    // ---- Control ----------------------------------------------------------
    void setEnabled(bool enabled);
    bool isEnabled() const;
    void setCurrentUserId(const std::string& userId);
    std::string currentUserId() const;
    void setFirstSync(FirstSync mode, double delaySeconds);
    void setRoomCapacity(size_t capacity);
    // Stores entries (a dictionary key -> value) as written by ownerUserId,
    // without a push.
    void seedEntries(const std::string& chatroomId, const ZMValue& entries, const std::string& ownerUserId);
    // Stores or removes entries as written by another user and pushes the
    // change when the current user is in the room.
    void changeEntries(const std::string& chatroomId, const ZMValue& entries, const std::string& ownerUserId);
    void deleteEntries(const std::string& chatroomId, const ZMValue& keys);
    ZMValue entries(const std::string& chatroomId) const;
    std::optional<std::string> entryOwner(const std::string& chatroomId, const std::string& key) const;
    std::vector<ZMKVNotification> notifications() const;
    void clearNotifications();
    // Back to the initial state: no stores, the current user in no room (a
    // first synchronisation still due is cancelled), no notifications, and
    // the initial settings (on, "emulator-user", immediate first
    // synchronisation, 100 entries a room).
    void reset();

private:
    struct Entry {
        ZMValue value;
        std::string owner;
        bool autoDelete = false;
    };
    using Store = std::map<std::string, Entry>;
    // The current user's presence in one room. serial changes on every join
    // and every leave, so a follow-up that was due for an earlier stay finds
    // it changed and does nothing.
    struct Membership {
        bool member = false;
        uint64_t serial = 0;
        std::shared_ptr<ZMTimer> firstSyncTimer;
    };
    // The entries a change pushes: updated or removed, key -> value.
    using Change = ZMValue;

    Reply write(const ZMCoreRequest& request);
    Reply read(const ZMCoreRequest& request);
    // Why a request of the current user is refused before its entries are
    // looked at (0: not refused); the caller holds mutex_.
    int32_t refusalLocked(const std::string& chatroomId, bool kvEnabled) const;
    int32_t setEntryLocked(Store& store, const std::string& key, const ZMValue& value, bool overwrite,
                           bool autoDelete);
    int32_t removeEntryLocked(Store& store, const std::string& key, bool overwrite, ZMValue& removed);
    // Ends the current user's stay in a room; the caller holds mutex_.
    void leaveLocked(const std::string& chatroomId);
    // A follow-up that pushes a change while the current user is still in the
    // room; empty when there is nothing to push.
    FollowUp pushToMember(const std::string& chatroomId, Change update, Change remove);
    // Queues a change push now, when the current user is in the room.
    void pushIfMember(const std::string& chatroomId, const Change& update, const Change& remove);
    void firstSyncDue(const std::string& chatroomId, uint64_t serial);

    const Pushes pushes_;
    mutable std::mutex mutex_;
    bool enabled_ = true;
    std::string currentUserId_ = kDefaultUserId;
    FirstSync firstSync_ = FirstSync::Immediately;
    double firstSyncDelay_ = 0;
    size_t capacity_ = kDefaultRoomCapacity;
    std::map<std::string, Store> stores_;
    std::map<std::string, Membership> memberships_;
    std::vector<ZMKVNotification> notifications_;
};
