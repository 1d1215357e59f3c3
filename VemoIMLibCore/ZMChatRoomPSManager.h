#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <VemoIMLibCore/ZMMessage.h>
#include <VemoIMLibCore/ZMValue.h>

// Callback types of the chat-room service. Every callback runs later, on a
// thread of the core library, never inside the call that handed it over. An
// empty callback is skipped. Every request calls exactly one of its result
// callbacks.
using ZMChatRoomStatusChangeBlock = std::function<void(const std::string& chatroomId)>;
using ZMChatRoomKVChangeBlock = std::function<void(const std::string& chatroomId,
                                                   const ZMValue& updateEntries,
                                                   const ZMValue& removeEntries)>;
using ZMChatRoomDestroyedBlock = std::function<void(const std::string& chatroomId, int32_t type)>;
using ZMChatRoomJoinResultBlock = std::function<void(int32_t code, const ZMValue& result)>;
using ZMChatRoomQuitResultBlock = std::function<void(int32_t code)>;
using ZMCoreSuccessBlock = std::function<void()>;
using ZMCoreErrorBlock = std::function<void(int32_t code)>;
using ZMCoreDictionaryBlock = std::function<void(const ZMValue& dict)>;
using ZMCoreEntriesErrorBlock = std::function<void(int32_t code, const ZMValue& failedEntries)>;
using ZMCoreHistoryBlock = std::function<void(const std::vector<std::shared_ptr<ZMMessage>>& messages,
                                              int64_t syncTime, bool hasMore)>;

// The core library's chat-room service (ZMKernel::sharedInstance().chatRoomPSManager()).
class ZMChatRoomPSManager {
public:
    // Registers the three push callbacks: status change (the room's KV entries
    // completed their first synchronisation), KV change (entries added or
    // changed, entries removed) and room destroyed (with the server's type).
    virtual void initChatRoomListener(ZMChatRoomStatusChangeBlock statusChangeBlock,
                                      ZMChatRoomKVChangeBlock kvChangeBlock,
                                      ZMChatRoomDestroyedBlock roomDestroyedBlock) = 0;
    // Starts listening for chat-room pushes.
    virtual void setChatRoomPSListener() = 0;

    // Joins a room; the result carries the code (0 success) and the join
    // result dictionary ("create_time_", "member_count_", ...).
    virtual void joinChatroom(const std::string& chatroomId, int32_t limit, bool useCacheTime,
                              int32_t joinMode, ZMChatRoomJoinResultBlock resultBlock) = 0;
    // Joins a room only if it exists already.
    virtual void joinExistingChatroom(const std::string& chatroomId, int32_t limit, bool useCacheTime,
                                      int32_t joinMode, ZMChatRoomJoinResultBlock resultBlock) = 0;
    virtual void quitChatroom(const std::string& chatroomId, ZMChatRoomQuitResultBlock resultBlock) = 0;
    // Deletes the locally stored messages and/or KV entries of a room, at once.
    virtual void clearChatroomMessageAndKVWithTargetId(const std::string& chatroomId, bool clearMsg,
                                                       bool clearKv) = 0;

    // Writes one KV entry; when sendNotification is true the given message is
    // sent to the room.
    virtual void setChatroomStatus(const std::string& chatroomId, const std::string& key,
                                   const std::string& value, bool overwrite, bool autoDelete,
                                   bool sendNotification, const std::string& notificationObjectName,
                                   const ZMData& notificationContent, int32_t persistentFlag,
                                   ZMCoreSuccessBlock success, ZMCoreErrorBlock error) = 0;
    virtual void removeChatRoomStatus(const std::string& chatroomId, const std::string& key,
                                      bool overwrite, bool sendNotification,
                                      const std::string& notificationObjectName,
                                      const ZMData& notificationContent, int32_t persistentFlag,
                                      ZMCoreSuccessBlock success, ZMCoreErrorBlock error) = 0;
    virtual void getChatRoomEntry(const std::string& chatroomId, const std::string& key,
                                  ZMCoreDictionaryBlock success, ZMCoreErrorBlock error) = 0;
    virtual void setChatRoomEntries(const std::string& chatroomId, const ZMValue& entries,
                                    bool overwrite, bool autoDelete, ZMCoreSuccessBlock success,
                                    ZMCoreEntriesErrorBlock error) = 0;
    virtual void removeChatRoomEntries(const std::string& chatroomId, const ZMValue& keys,
                                       bool overwrite, ZMCoreSuccessBlock success,
                                       ZMCoreEntriesErrorBlock error) = 0;
    virtual void getChatRoomEntriesByBatch(const std::string& chatroomId, const ZMValue& keys,
                                           ZMCoreDictionaryBlock success, ZMCoreErrorBlock error) = 0;
    // isSync tells the core that the room's entries are synchronised locally.
    virtual void getAllChatRoomEntries(const std::string& chatroomId, bool isSync,
                                       ZMCoreDictionaryBlock success, ZMCoreErrorBlock error) = 0;

    // Room info: "totalMemberCount" and "memberInfoArray" ([{"userId","joinTime"}]).
    virtual void queryChatroomInfo(const std::string& chatroomId, int32_t limit, uint64_t order,
                                   ZMCoreDictionaryBlock success, ZMCoreErrorBlock error) = 0;
    virtual void getChatroomHistoryMessage(const std::string& chatroomId, int64_t sendTime,
                                           int32_t limit, uint64_t order, const std::string& channelId,
                                           ZMCoreHistoryBlock successBlock, ZMCoreErrorBlock errorBlock) = 0;
    virtual void bindRTCRoomForChatroom(const std::string& chatroomId, const std::string& rtcRoomId,
                                        ZMCoreSuccessBlock success, ZMCoreErrorBlock error) = 0;

protected:
    virtual ~ZMChatRoomPSManager() = default;
};
