#pragma once

#include <cstdint>
#include <future>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <VemoIMLibCore/ZMMessageContent.h>

// An app's offline tests of code that uses the chat-room module, on the core
// emulator: load the module once, reset the module and the emulator between
// tests, let queued work finish, and play the server's signal messages and
// pushes with typed values instead of hand-written JSON.
//
// Every function is called from the test's own thread (not from a callback,
// an observer or a rule). The kit drives the main queue by hand (drain()), as
// tests do; a test that hands the main queue to a host poster settles it
// itself. <ZMChatRoomTestKit/ZMChatRoomTestFixture.h> wraps all of this in a
// GoogleTest fixture; docs/testkit.md describes it.
class ZMChatRoomTestKit {
public:
    // ---- Module and state ---------------------------------------------------
    // Loads the chat-room module on the emulator the first time it is called
    // (the core keeps a module for the life of the process; later calls load
    // nothing) and waits until the module listens for pushes.
    static void loadModule();

    // Lets everything the last steps caused run to its end, in three rounds
    // of: the module's queued operations and their requests, the emulator's
    // deliveries, the module's status announcements, the main queue's tasks
    // (timers fire only when the test advances the clock). Held requests stay
    // held. False when the emulator did not become idle within timeoutSeconds,
    // or when called from one of the module's queues or the main queue's own
    // work (where waiting would wait for itself).
    static bool settle(double timeoutSeconds = 30);

    // Puts the module and the emulator back to where a fresh process starts,
    // with the module loaded (if it was): settles, makes the module forget
    // every cached room and KV synchronisation flag, stops its rejoin timer,
    // unregisters every status, KV and notify-event observer, clears the
    // member observer and the KV filter, settles again, invalidates every
    // timer left on the main queue, resets the emulator
    // (ZMCoreEmulator::reset: rules, requests, held requests, KV server,
    // navigation data, connection status 0, logger, ...), drains the main
    // queue and clears the requests and log lines the reset itself caused.
    // The loaded module, its registered message types and the listener
    // callbacks it installed on the core stay. False when something did not
    // settle in time (the reset is done all the same).
    static bool reset(double timeoutSeconds = 30);

    // ---- Signal messages from the server --------------------------------------
    // Each is built with the module's own message class, encoded with its
    // encode() and delivered through ZMCoreEmulator::deliverMessage to the
    // room chatroomId (the message's target). The future tells, once the
    // module has routed the message (and its observers have returned),
    // whether a module held it: true for the first four, false for the KV
    // notification, which the chat-room module leaves to the app's own
    // message handling. Do not wait on it from a callback thread.

    // Every field has a default, so that a test names only the fields it
    // cares about with designated initializers, without a warning for the
    // others: deliverBan({.chatroomId = "lobby", .banType = 1}).

    // One member of a member change: the user and the server's action code.
    struct MemberAction {
        std::string userId{};
        int64_t action = 0;
    };
    // "ZM:ChrmMemChange" -> ZMChatRoomMemberDelegate::memberDidChange (both
    // forms; the model's roomId is chatroomId). A member with an empty id is
    // left out of the payload, as the message's encode() does.
    struct MemberChange {
        std::string chatroomId{};
        std::vector<MemberAction> members{};
        uint64_t memberCount = 0;
    };
    // "ZM:ChrmBlockMsg" -> ZMChatRoomNotifyEventDelegate::chatRoomNotifyBlock.
    struct Block {
        std::string chatroomId{};
        int64_t operateType = 0;
        int64_t durationTime = 0;
        int64_t operateTime = 0;
        std::vector<std::string> userIds{};  // the event's userIdList
        std::optional<std::string> extra{};
    };
    // "ZM:ChrmBanMsg" -> ZMChatRoomNotifyEventDelegate::chatRoomNotifyBan (the
    // ban type travels under the payload key "operateType").
    struct Ban {
        std::string chatroomId{};
        int64_t banType = 0;
        int64_t durationTime = 0;
        int64_t operateTime = 0;
        std::vector<std::string> userIds{};
        std::optional<std::string> extra{};
    };
    // "ZM:ChrmSyncMsg" -> ZMChatRoomNotifyEventDelegate::chatRoomNotifyMultiLoginSync.
    struct MultiLoginSync {
        std::string chatroomId{};
        int64_t status = 0;
        int64_t reason = 0;
        int64_t time = 0;
        std::optional<std::string> extra{};
    };
    // "ZM:chrmKVNotiMsg": type 1 a write (ZMKVNotificationTypeSet), 2 a
    // removal (no value).
    struct KVNotification {
        std::string chatroomId{};
        int64_t type = 1;
        std::optional<std::string> key{};
        std::optional<std::string> value{};
        std::optional<std::string> extra{};
    };

    static std::shared_future<bool> deliverMemberChange(const MemberChange& change, bool isOffline = false);
    static std::shared_future<bool> deliverBlock(const Block& block, bool isOffline = false);
    static std::shared_future<bool> deliverBan(const Ban& ban, bool isOffline = false);
    static std::shared_future<bool> deliverMultiLoginSync(const MultiLoginSync& sync, bool isOffline = false);
    static std::shared_future<bool> deliverKVNotification(const KVNotification& notification,
                                                          bool isOffline = false);

    // Any message content, encoded with its encode() and delivered under the
    // given object name to targetId. Throws std::invalid_argument when the
    // content cannot be encoded (for example a text that is not UTF-8).
    static std::shared_future<bool> deliverContent(const ZMMessageContent& content, const std::string& objectName,
                                                   const std::string& targetId, bool isOffline = false);
    template <class Message>
    static std::shared_future<bool> deliver(const Message& message, const std::string& targetId,
                                            bool isOffline = false) {
        return deliverContent(message, Message::getObjectName(), targetId, isOffline);
    }

    // ---- Pushes from the server and the session -----------------------------------
    // Queued like every push of the emulator: they reach the module later, on
    // a callback thread; settle() waits for them.

    // KV entries, key -> value.
    using Entries = std::map<std::string, std::string>;

    // The room's KV entries finished their first synchronisation (the module
    // then reads every entry once and delivers them as one update).
    static void pushFirstKVSync(const std::string& chatroomId);
    // Entries of the room were updated and/or removed by someone.
    static void pushKVChange(const std::string& chatroomId, const Entries& updated, const Entries& removed = {});
    // The room was destroyed on the server (the module reports type 0 as 0,
    // any other as 3).
    static void pushRoomDestroyed(const std::string& chatroomId, int32_t type = 0);
    // The connection status: kConnected, or a lost connection (1, 13 or -1).
    static constexpr int64_t kConnected = 0;
    static constexpr int64_t kConnectionLost = 13;
    static void pushConnectionStatus(int64_t status);
    // The user logged out.
    static void pushLogout();
};
