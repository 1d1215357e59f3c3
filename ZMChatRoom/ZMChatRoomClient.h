#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <Platform/ZMSerialQueue.h>
#include <Platform/ZMWeakReference.h>
#include <VemoIMLibCore/ZMTSMutableDictionary.h>
#include <VemoIMLibCore/ZMValue.h>
#include <ZMChatRoom/ZMCacheChatRoomInfo.h>
#include <ZMChatRoom/ZMChatRoomCallbacks.h>
#include <ZMChatRoom/ZMChatRoomErrorCode.h>
#include <ZMChatRoom/ZMChatRoomKVStatusChangeDelegate.h>
#include <ZMChatRoom/ZMChatRoomKVStatusFilterDelegate.h>
#include <ZMChatRoom/ZMChatRoomMemberDelegate.h>
#include <ZMChatRoom/ZMChatRoomNotifyEventDelegate.h>
#include <ZMChatRoom/ZMChatRoomStatus.h>
#include <ZMChatRoom/ZMChatRoomStatusDelegate.h>
#include <ZMChatRoom/ZMJoinChatRoomResponse.h>

struct ZMChatRoomClientTestPeer;

// The one object through which the application uses chat rooms.
//
// Every public operation validates its arguments on the caller's thread and
// reports a refusal at once, on that thread, through the error callback;
// otherwise it hands one task to the serial operation queue, which sends one
// request to the core library. Success and error callbacks run on the core's
// callback threads. Room status observers run on the notify queue.
class ZMChatRoomClient {
public:
    // Created on first use, never destroyed.
    static ZMChatRoomClient& sharedChatRoomClient();

    ZMChatRoomClient(const ZMChatRoomClient&) = delete;
    ZMChatRoomClient& operator=(const ZMChatRoomClient&) = delete;

    // ---- Observers ----------------------------------------------------------
    // The one member observer, held weakly.
    std::shared_ptr<ZMChatRoomMemberDelegate> memberDelegate() const;
    void setMemberDelegate(const std::shared_ptr<ZMChatRoomMemberDelegate>& delegate);
    // The one KV filter observer, held weakly; setting another replaces it.
    std::shared_ptr<ZMChatRoomKVStatusFilterDelegate> zmKVStatusFilterDelegate() const;
    void setZmKVStatusFilterDelegate(const std::shared_ptr<ZMChatRoomKVStatusFilterDelegate>& delegate);
    void setZMChatRoomKVStatusFilterDelegate(const std::shared_ptr<ZMChatRoomKVStatusFilterDelegate>& delegate);

    // Registration in the listener registry (weak). The set... forms add; they
    // never replace an observer registered earlier.
    void addChatRoomStatusDelegate(const std::shared_ptr<ZMChatRoomStatusDelegate>& delegate);
    void removeChatRoomStatusDelegate(const std::shared_ptr<ZMChatRoomStatusDelegate>& delegate);
    std::vector<std::shared_ptr<ZMChatRoomStatusDelegate>> allChatRoomStatusDelegates();
    void setChatRoomStatusDelegate(const std::shared_ptr<ZMChatRoomStatusDelegate>& delegate);

    void addChatRoomKVStatusChangeDelegate(const std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>& delegate);
    void removeChatRoomKVStatusChangeDelegate(const std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>& delegate);
    std::vector<std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>> allChatRoomKVStatusChangeDelegates();
    void setZMChatRoomKVStatusChangeDelegate(const std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>& delegate);

    void addChatRoomNotifyEventDelegate(const std::shared_ptr<ZMChatRoomNotifyEventDelegate>& delegate);
    void removeChatRoomNotifyEventDelegate(const std::shared_ptr<ZMChatRoomNotifyEventDelegate>& delegate);
    std::vector<std::shared_ptr<ZMChatRoomNotifyEventDelegate>> allChatRoomNotifyEventDelegates();

    // ---- Join and quit ------------------------------------------------------
    // Joins a room (created by the server when needed). A negative message
    // count is sent as -1. Errors: 34210 invalid room id, else the core's code.
    void joinChatRoom(const ZMValue& chatroomId, int32_t messageCount, ZMSuccessBlock success, ZMErrorBlock error);
    // Joins a room only if it exists already.
    void joinExistChatRoom(const ZMValue& chatroomId, int32_t messageCount, ZMSuccessBlock success,
                           ZMErrorBlock error);
    void joinExistChatRoom(const ZMValue& chatroomId, int32_t messageCount, ZMJoinSuccessBlock successBlock,
                           ZMErrorBlock errorBlock);
    // Leaves a room; the room is dropped (and announced quited) before the
    // server answers. Errors: 34210 invalid room id, else the core's code.
    void quitChatRoom(const ZMValue& chatroomId, ZMSuccessBlock success, ZMErrorBlock error);

    // ---- Key-value store ----------------------------------------------------
    // A room's KV entries live on the server; the core mirrors them locally.
    // Keys: 1 to 128 UTF-16 units of the core's legal characters; values: 1 to
    // 4096 units; a notification extra: absent or at most 2048 units. While
    // the navigation data switches the KV store off, an operation whose
    // earlier checks pass is refused with 23426 (the orders: docs/errors.md). Writes and removes never wait for the room's first
    // synchronisation; single and batch reads do (34004 until then).
    //
    // Writes one entry. With sendNotification the server also sends a KV
    // notification message ("ZM:chrmKVNotiMsg", carrying the key, the value and
    // the extra) to the room. autoDelete: the server deletes the entry when
    // this user leaves the room. Fails (core code) when the key holds another
    // user's entry.
    void setChatRoomEntry(const ZMValue& chatroomId, const ZMValue& key, const ZMValue& value,
                          bool sendNotification, bool autoDelete, const ZMValue& notificationExtra,
                          ZMSuccessBlock success, ZMErrorBlock error);
    // The same, overwriting an entry written by another user.
    void forceSetChatRoomEntry(const ZMValue& chatroomId, const ZMValue& key, const ZMValue& value,
                               bool sendNotification, bool autoDelete, const ZMValue& notificationExtra,
                               ZMSuccessBlock success, ZMErrorBlock error);
    // Deletes one entry (optionally notifying the room).
    void removeChatRoomEntry(const ZMValue& chatroomId, const ZMValue& key, bool sendNotification,
                             const ZMValue& notificationExtra, ZMSuccessBlock success, ZMErrorBlock error);
    // The same, deleting an entry written by another user.
    void forceRemoveChatRoomEntry(const ZMValue& chatroomId, const ZMValue& key, bool sendNotification,
                                  const ZMValue& notificationExtra, ZMSuccessBlock success, ZMErrorBlock error);
    // Reads one entry of a synchronised room: success receives {key: value}.
    // Every failure of the read itself is reported as 23427.
    void getChatRoomEntry(const ZMValue& chatroomId, const ZMValue& key, ZMEntriesSuccessBlock success,
                          ZMErrorBlock error);
    // Writes 1 to 10 entries (a dictionary key -> value) in one request;
    // isForce overwrites other users' entries. The error callback always
    // receives a dictionary: empty when the module refused the call, else the
    // core's failed entries.
    void setChatRoomEntries(const ZMValue& chatroomId, const ZMValue& entries, bool isForce, bool autoDelete,
                            ZMSuccessBlock success, ZMEntriesErrorBlock error);
    // Deletes 1 to 10 keys (an array of strings) in one request.
    void removeChatRoomEntries(const ZMValue& chatroomId, const ZMValue& keys, bool isForce,
                               ZMSuccessBlock success, ZMEntriesErrorBlock error);
    // Reads any number of keys (at least one) of a synchronised room.
    void getChatRoomEntriesByBatch(const ZMValue& chatroomId, const ZMValue& keys, ZMEntriesSuccessBlock success,
                                   ZMErrorBlock error);
    // Reads every entry of the room, through the filter observer's
    // getAllChatRoomEntriesFilter when it has one. Never refused for the
    // synchronisation state: the core is told whether the room is synchronised.
    void getAllChatRoomEntries(const ZMValue& chatroomId, ZMEntriesSuccessBlock success, ZMErrorBlock error);

    // ---- Room queries -------------------------------------------------------
    // Member count and up to count members; order 1 or 2 (else 34265).
    void getChatRoomInfo(const ZMValue& chatroomId, int32_t count, uint64_t order,
                         ZMChatRoomInfoSuccessBlock success, ZMErrorBlock error);
    // A page of the room's stored history from recordTime (>= 0, else 34202);
    // count 1 to 200 (else 34232); order 0 or 1 (else 34266); 23414 when the
    // server stores no chat-room messages.
    void getRemoteChatroomHistoryMessages(const ZMValue& chatroomId, int64_t recordTime, int32_t count,
                                          uint64_t order, ZMHistorySuccessBlock success, ZMErrorBlock error);
    // Binds the room to a real-time room id (34259 when that id is invalid).
    void bindChatRoom(const ZMValue& chatroomId, const ZMValue& withRTCRoom, ZMSuccessBlock success,
                      ZMErrorBlock error);

    // ---- Room cache and rejoin (driven by the extension module) ------------
    // Rejoins every cached room that is not joining, joined or reset, when connected.
    void rejoinCacheChatRoom();
    // (Re)starts the 2-second repeating rejoin timer on the main queue.
    void startChatRoomRejoinTimer();
    void stopChatRoomRejoinTimer();
    // Marks every cached room failed and announces it with -1.
    void resetCacheChatRoomForFailed();
    // Forgets every room and KV flag (logout); no announcement, no request.
    void clearChatRoom();

    // ---- Wiring -------------------------------------------------------------
    // Installs the client's three callbacks on the core's chat-room service and
    // starts push listening. Called once by the extension module at load.
    void setChatroomListener();
    // Runs the operation in place when already on the operation queue, else
    // queues it.
    void performOperationQueueBlock(ZMOperationBlock operation);

    // ---- Status announcements ----------------------------------------------
    // Queues one announcement to the status observers and returns at once.
    void notifyChatRoomStatus(const std::string& chatroomId, int64_t status, int32_t errorCode);
    void notifyChatRoomStatus(const std::string& chatroomId, std::shared_ptr<ZMJoinChatRoomResponse> response,
                              int64_t status, int32_t errorCode);

    // ---- State ----------------------------------------------------------------
    // Room id -> cache entry of the rooms the user is in or wants to be in.
    // Read it freely; the client's operations alone add and remove entries
    // (they keep the count of rooms awaiting a rejoin, see ZMCacheChatRoomInfo.h).
    ZMTSMutableDictionary<std::shared_ptr<ZMCacheChatRoomInfo>>& cacheChatRoomDict() { return *cacheChatRoomDict_; }
    // Room id -> whether the room's KV entries finished their first sync.
    ZMTSMutableDictionary<bool>& syncKVChatRoomDict();
    ZMSerialQueue& zm_chatroom_operation_queue() { return *zm_chatroom_operation_queue_; }
    ZMSerialQueue& zm__notify_chatroom_status_queue() { return *zm__notify_chatroom_status_queue_; }

private:
    friend struct ZMChatRoomClientTestPeer;

    ZMChatRoomClient();

    // Validators of the public operations' arguments: each answers valid or
    // invalid and writes at most one line naming the rule that failed.
    bool isValidTargetId(const ZMValue& targetId);
    bool isValidRtcRoomId(const ZMValue& rtcRoomId);
    bool isValidKey(const ZMValue& key);
    bool isValidValue(const ZMValue& value);
    // 0, 34260 (key invalid) or 34262 (key valid, value invalid).
    int32_t isValidKey(const ZMValue& key, const ZMValue& value);
    bool isValidNotificationExtra(const ZMValue& notificationExtra);

    // The one write and the one removal behind the four single-entry
    // operations, which differ only in overwrite.
    void setChatRoomStatus(const ZMValue& chatroomId, const ZMValue& key, const ZMValue& value, bool overwrite,
                           bool sendNotification, bool autoDelete, const ZMValue& notificationExtra,
                           ZMSuccessBlock success, ZMErrorBlock error);
    void removeChatRoomStatus(const ZMValue& chatroomId, const ZMValue& key, bool overwrite, bool sendNotification,
                              const ZMValue& notificationExtra, ZMSuccessBlock success, ZMErrorBlock error);
    // The core reported the room's first KV synchronisation (its flag is
    // already true): tell the filter and the KV observers, then read every
    // entry and deliver them as one update.
    void chatRoomKVStatusFirstChange(const std::string& chatroomId);
    // The core's KV-change callback: filter, then deliver to the KV observers.
    void kvChangeBlock(const std::string& chatroomId, const ZMValue& updateEntries, const ZMValue& removeEntries);

    void p_joinChatRoom(const ZMValue& chatroomId, int32_t messageCount, int32_t joinMode, bool isExist,
                        ZMJoinSuccessBlock success, ZMErrorBlock error);
    // p_joinChatRoom with either kind of success callback (the one not used
    // is empty): a plain one is wrapped into a response callback only once
    // the join is accepted, so that a refused join allocates nothing for it.
    void joinRoom(const ZMValue& chatroomId, int32_t messageCount, int32_t joinMode, bool isExist,
                  ZMSuccessBlock plainSuccess, ZMJoinSuccessBlock success, ZMErrorBlock error);
    void joinChatRoomSuccess(const std::string& chatroomId, const std::shared_ptr<ZMJoinChatRoomResponse>& response,
                             int32_t code);
    void joinChatRoomError(const std::string& chatroomId, int32_t code);
    void detectNaviIfNeedByChatroom(int64_t code);
    // sweptEntry: the room's cache entry as a sweep found it, if any (saves
    // looking the room up again while that entry is still cached).
    void p_rejoinChatRoom(const std::string& chatroomId, bool existOnly, int32_t messageCount,
                          ZMJoinSuccessBlock success, ZMErrorBlock error,
                          std::shared_ptr<ZMCacheChatRoomInfo> sweptEntry = nullptr);
    // The only ways entries enter and leave the membership cache: they keep
    // each entry's in-cache mark, and with it the count of cached rooms that
    // await a rejoin (see ZMCacheChatRoomStatus).
    void cacheRoom(const std::string& chatroomId, const std::shared_ptr<ZMCacheChatRoomInfo>& entry);
    void uncacheRoom(const std::string& chatroomId);
    void uncacheAllRooms();
    // The answer to a join or a rejoin (they differ only in their result tag).
    void handleJoinResult(const char* resultTag, const std::string& chatroomId, int32_t code,
                          const ZMValue& result, const ZMJoinSuccessBlock& success, const ZMErrorBlock& error);

    // Read on the core's threads while the application may replace them.
    ZMWeakReference<ZMChatRoomMemberDelegate> memberDelegate_;
    ZMWeakReference<ZMChatRoomKVStatusFilterDelegate> zmKVStatusFilterDelegate_;
    std::unique_ptr<ZMTSMutableDictionary<std::shared_ptr<ZMCacheChatRoomInfo>>> cacheChatRoomDict_;
    std::atomic<ZMTSMutableDictionary<bool>*> syncKVChatRoomDict_{nullptr};
    std::unique_ptr<ZMSerialQueue> zm_chatroom_operation_queue_;
    std::unique_ptr<ZMSerialQueue> zm__notify_chatroom_status_queue_;

    // Announcements issued and not yet delivered (ZMChatRoomClient+StatusNotification.cpp).
    struct StatusAnnouncements;
    std::unique_ptr<StatusAnnouncements> statusAnnouncements_;
    void deliverStatusAnnouncements();
};
