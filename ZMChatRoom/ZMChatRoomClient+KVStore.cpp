#include <ZMChatRoom/ZMChatRoomClient+Internal.h>

#include <VemoIMLibCore/ZMCoreClient.h>
#include <ZMChatRoom/Messages/ZMChatroomKVNotificationMessage.h>
#include <ZMChatRoom/Utility/ZMChatRoomUtil.h>

// The KV store's operations: set and remove one entry, read one, batch set and
// batch remove, batch read and full read. Each checks its arguments on the
// caller's thread in its own fixed order (the orders, the lines written and
// the codes differ between neighbouring operations on purpose: applications
// and log readers rely on each as it is), refuses at once through the error
// callback, and otherwise sends one request to the core from the operation
// queue. Results arrive on the core's callback threads.

using namespace zm_client;

namespace {

constexpr size_t kMaxBatchSize = 10;

// The number of keys of a key array; anything else holds none.
size_t keyCount(const ZMValue& keys) { return keys.is_array() ? keys.size() : 0; }

// What a failed batch reports besides its code when the module refused it.
const ZMValue& noFailedEntries() {
    static const ZMValue* const empty = new ZMValue(ZMValue::object());
    return *empty;
}

void logParameterError(const char* operation, const ZMValue& chatroomId) {
    logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag, "Parameter Error, %@, chatroomId:%@",
                   operation, chatroomId);
}

void logKeyParameterError(const char* operation, const ZMValue& chatroomId, const ZMValue& key) {
    logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag,
                   "Parameter Error, %@, chatroomId:%@, key:%@", operation, chatroomId, key);
}

void logKVStorageDisabled() {
    logger().write(ZMLogLevelDiagnostic, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag,
                   "KV function of chatroom is not opened");
}

// True, with its line written, when the navigation data switches the KV store off.
bool kvStorageRefused() {
    if (isKVStorageEnabled()) return false;
    logKVStorageDisabled();
    return true;
}

// The state checks of the reads of chosen keys, in their order: the store's
// switch, then the room's first synchronisation. The code of the refusal, its
// line written, or 0.
int32_t readRefusal(ZMChatRoomClient& client, const std::string& chatroomId) {
    if (kvStorageRefused()) return ZMErrorKVStorageDisabled;
    if (client.syncKVChatRoomDict().objectForKey(chatroomId).value_or(false)) return 0;
    logger().write(ZMLogLevelDiagnostic, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag,
                   "Chatroom KV not synchronized（Local data and server are not synchronized）");
    return ZMErrorKVNotSynchronized;
}

// The plain result line "room_id:%@,code:%@" of a refusal (level 4) or of a
// core answer (level 4 for success, 2 for failure).
void logResult(int32_t level, const char* resultTag, const ZMValue& chatroomId, int32_t code) {
    logger().write(level, ZMLogTypeOperation, resultTag, "room_id:%@,code:%@", chatroomId, code);
}

// The success handler of a write or removal, single or batch: the result line,
// then the application's callback.
ZMCoreSuccessBlock writeSuccessHandler(const char* resultTag, const std::string& chatroomId, ZMSuccessBlock success) {
    return [resultTag, chatroomId, success = std::move(success)] {
        logResult(ZMLogLevelOperation, resultTag, chatroomId, 0);
        if (success) success();
    };
}

// The error handler of a single-entry write or removal: the core's code is
// passed on unchanged.
ZMCoreErrorBlock writeErrorHandler(const char* resultTag, const std::string& chatroomId, ZMErrorBlock error) {
    return [resultTag, chatroomId, error = std::move(error)](int32_t code) {
        logResult(ZMLogLevelFailure, resultTag, chatroomId, code);
        if (error) error(code);
    };
}

// The error handler of a batch write or removal: the core's code and its
// failed-entries dictionary are handed on unchanged.
ZMCoreEntriesErrorBlock batchErrorHandler(const char* resultTag, const std::string& chatroomId,
                                          ZMEntriesErrorBlock error) {
    return [resultTag, chatroomId, error = std::move(error)](int32_t code, const ZMValue& failedEntries) {
        logger().write(ZMLogLevelFailure, ZMLogTypeOperation, resultTag, "room_id:%@,code:%@,entries:%@", chatroomId,
                       code, failedEntries);
        if (error) error(code, failedEntries);
    };
}

// The notification message of a write (type 1, with the value) or a removal
// (type 2, without one), encoded by the core. It is built and encoded whether
// or not the room is to be notified: sendNotification alone tells the core
// whether to send it. A payload the core cannot encode is sent as no bytes.
struct NotificationPayload {
    std::string objectName;
    ZMData content;
    int32_t persistentFlag;
};

NotificationPayload notificationPayload(int64_t type, const std::string& key, const std::optional<std::string>& value,
                                        const std::optional<std::string>& extra) {
    auto message = ZMChatroomKVNotificationMessage::notificationWithType(type, key, value, extra);
    return NotificationPayload{ZMChatroomKVNotificationMessage::getObjectName(),
                               ZMCoreClient::sharedCoreClient().payloadOfMessageContent(*message).value_or(ZMData{}),
                               ZMChatroomKVNotificationMessage::persistentFlag()};
}

// A valid notification extra: absent, or a string.
std::optional<std::string> optionalExtra(const ZMValue& notificationExtra) {
    if (notificationExtra.is_string()) return notificationExtra.get<std::string>();
    return std::nullopt;
}

}  // namespace

// ---- One entry ----------------------------------------------------------------

void ZMChatRoomClient::setChatRoomEntry(const ZMValue& chatroomId, const ZMValue& key, const ZMValue& value,
                                        bool sendNotification, bool autoDelete, const ZMValue& notificationExtra,
                                        ZMSuccessBlock success, ZMErrorBlock error) {
    setChatRoomStatus(chatroomId, key, value, false, sendNotification, autoDelete, notificationExtra,
                      std::move(success), std::move(error));
}

void ZMChatRoomClient::forceSetChatRoomEntry(const ZMValue& chatroomId, const ZMValue& key, const ZMValue& value,
                                             bool sendNotification, bool autoDelete, const ZMValue& notificationExtra,
                                             ZMSuccessBlock success, ZMErrorBlock error) {
    setChatRoomStatus(chatroomId, key, value, true, sendNotification, autoDelete, notificationExtra,
                      std::move(success), std::move(error));
}

void ZMChatRoomClient::removeChatRoomEntry(const ZMValue& chatroomId, const ZMValue& key, bool sendNotification,
                                           const ZMValue& notificationExtra, ZMSuccessBlock success,
                                           ZMErrorBlock error) {
    removeChatRoomStatus(chatroomId, key, false, sendNotification, notificationExtra, std::move(success),
                         std::move(error));
}

void ZMChatRoomClient::forceRemoveChatRoomEntry(const ZMValue& chatroomId, const ZMValue& key, bool sendNotification,
                                                const ZMValue& notificationExtra, ZMSuccessBlock success,
                                                ZMErrorBlock error) {
    removeChatRoomStatus(chatroomId, key, true, sendNotification, notificationExtra, std::move(success),
                         std::move(error));
}

void ZMChatRoomClient::setChatRoomStatus(const ZMValue& chatroomId, const ZMValue& key, const ZMValue& value,
                                         bool overwrite, bool sendNotification, bool autoDelete,
                                         const ZMValue& notificationExtra, ZMSuccessBlock success,
                                         ZMErrorBlock error) {
    static constexpr const char* kOperation =
        "setChatRoomStatus:key:value:overwrite:sendNotification:autoDelete:notificationExtra:success:error:";
    logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_A_SET_CHATROOM_KV_T,
                   "room_id:%@,key:%@,value:%@,overwrite:%@,notify:%@,auto_del:%@", chatroomId, key, value, overwrite,
                   sendNotification, autoDelete);
    auto refuse = [&](int32_t code) {
        logResult(ZMLogLevelOperation, ZM_A_SET_CHATROOM_KV_R, chatroomId, code);
        if (error) error(code);
    };
    if (!isValidTargetId(chatroomId)) {
        // Unlike every other refusal of the KV operations, no result line.
        logParameterError(kOperation, chatroomId);
        if (error) error(ZMErrorInvalidParameter);
        return;
    }
    if (const int32_t code = isValidKey(key, value); code != 0) return refuse(code);
    if (!isValidNotificationExtra(notificationExtra)) return refuse(ZMErrorInvalidNotificationExtra);
    if (kvStorageRefused()) return refuse(ZMErrorKVStorageDisabled);

    performOperationQueueBlock([roomId = chatroomId.get<std::string>(), key = key.get<std::string>(),
                                value = value.get<std::string>(), extra = optionalExtra(notificationExtra), overwrite,
                                autoDelete, sendNotification, success = std::move(success),
                                error = std::move(error)]() mutable {
        const NotificationPayload notification = notificationPayload(ZMKVNotificationTypeSet, key, value, extra);
        chatRoomService().setChatroomStatus(roomId, key, value, overwrite, autoDelete, sendNotification,
                                            notification.objectName, notification.content,
                                            notification.persistentFlag,
                                            writeSuccessHandler(ZM_A_SET_CHATROOM_KV_R, roomId, std::move(success)),
                                            writeErrorHandler(ZM_A_SET_CHATROOM_KV_R, roomId, std::move(error)));
    });
}

void ZMChatRoomClient::removeChatRoomStatus(const ZMValue& chatroomId, const ZMValue& key, bool overwrite,
                                            bool sendNotification, const ZMValue& notificationExtra,
                                            ZMSuccessBlock success, ZMErrorBlock error) {
    static constexpr const char* kOperation =
        "removeChatRoomStatus:key:overwrite:sendNotification:notificationExtra:success:error:";
    logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_A_REMOVE_CHATROOM_KV_T,
                   "room_id:%@,key:%@,overwrite:%@,notify:%@", chatroomId, key, overwrite, sendNotification);
    auto refuse = [&](int32_t code) {
        logResult(ZMLogLevelOperation, ZM_A_REMOVE_CHATROOM_KV_R, chatroomId, code);
        if (error) error(code);
    };
    if (!isValidTargetId(chatroomId)) {
        logParameterError(kOperation, chatroomId);
        return refuse(ZMErrorInvalidParameter);
    }
    if (!isValidKey(key)) {
        logKeyParameterError(kOperation, chatroomId, key);
        return refuse(ZMErrorInvalidKVKey);
    }
    if (!isValidNotificationExtra(notificationExtra)) return refuse(ZMErrorInvalidNotificationExtra);
    if (kvStorageRefused()) return refuse(ZMErrorKVStorageDisabled);

    performOperationQueueBlock([roomId = chatroomId.get<std::string>(), key = key.get<std::string>(),
                                extra = optionalExtra(notificationExtra), overwrite, sendNotification,
                                success = std::move(success), error = std::move(error)]() mutable {
        const NotificationPayload notification =
            notificationPayload(ZMKVNotificationTypeRemove, key, std::nullopt, extra);
        chatRoomService().removeChatRoomStatus(
            roomId, key, overwrite, sendNotification, notification.objectName, notification.content,
            notification.persistentFlag, writeSuccessHandler(ZM_A_REMOVE_CHATROOM_KV_R, roomId, std::move(success)),
            writeErrorHandler(ZM_A_REMOVE_CHATROOM_KV_R, roomId, std::move(error)));
    });
}

void ZMChatRoomClient::getChatRoomEntry(const ZMValue& chatroomId, const ZMValue& key, ZMEntriesSuccessBlock success,
                                        ZMErrorBlock error) {
    static constexpr const char* kOperation = "getChatRoomEntry:key:success:error:";
    logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_A_GET_CHATROOM_KV_T, "room_id:%@,key:%@", chatroomId,
                   key);
    auto refuse = [&](int32_t code) {
        logResult(ZMLogLevelOperation, ZM_A_GET_CHATROOM_KV_R, chatroomId, code);
        if (error) error(code);
    };
    if (!isValidTargetId(chatroomId)) {
        logParameterError(kOperation, chatroomId);
        return refuse(ZMErrorInvalidParameter);
    }
    if (!isValidKey(key)) {
        logKeyParameterError(kOperation, chatroomId, key);
        return refuse(ZMErrorInvalidKVKey);
    }
    const std::string roomId = chatroomId.get<std::string>();
    if (const int32_t code = readRefusal(*this, roomId); code != 0) return refuse(code);

    // The flag may change before the task runs; the read is sent all the same.
    performOperationQueueBlock([roomId, key = key.get<std::string>(), success = std::move(success),
                                error = std::move(error)] {
        chatRoomService().getChatRoomEntry(
            roomId, key,
            [roomId, success](const ZMValue& entry) {
                logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_A_GET_CHATROOM_KV_R,
                               "room_id:%@,code:%@,kv:%@", roomId, 0, ZMChatRoomUtil::stringFromDict(entry));
                if (success) success(entry);
            },
            [roomId, error](int32_t /*coreCode*/) {
                // Whatever the core's reason, the application learns only that the read failed.
                logResult(ZMLogLevelFailure, ZM_A_GET_CHATROOM_KV_R, roomId, ZMErrorKVEntryQueryFailed);
                if (error) error(ZMErrorKVEntryQueryFailed);
            });
    });
}

// ---- Batches --------------------------------------------------------------------

void ZMChatRoomClient::setChatRoomEntries(const ZMValue& chatroomId, const ZMValue& entries, bool isForce,
                                          bool autoDelete, ZMSuccessBlock success, ZMEntriesErrorBlock error) {
    static constexpr const char* kOperation = "setChatRoomEntries:entries:isForce:autoDelete:success:error:";
    // No start line: a batch write has none.
    auto refuse = [&](int32_t code) {
        logResult(ZMLogLevelOperation, ZM_A_SET_CHATROOM_KVS_R, chatroomId, code);
        if (error) error(code, noFailedEntries());
    };
    if (!isValidTargetId(chatroomId)) {
        logParameterError(kOperation, chatroomId);
        return refuse(ZMErrorInvalidParameter);
    }
    // The switch is tested before the entries (a batch removal tests it last).
    if (kvStorageRefused()) return refuse(ZMErrorKVStorageDisabled);
    // Anything but a dictionary holds no entries.
    const size_t count = entryCount(entries);
    if (count > kMaxBatchSize) return refuse(ZMErrorKVBatchTooLarge);
    if (count == 0) return refuse(ZMErrorKVEntriesEmpty);
    for (const auto& [entryKey, entryValue] : entries.items()) {
        const ZMValue key = entryKey;
        if (const int32_t code = isValidKey(key, entryValue); code != 0) {
            logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag,
                           "Parameter Error, %@, chatroomId:%@, key:%@, value:%@", kOperation, chatroomId, key,
                           entryValue);
            return refuse(code);
        }
    }

    performOperationQueueBlock([roomId = chatroomId.get<std::string>(), entries, isForce, autoDelete,
                                success = std::move(success), error = std::move(error)]() mutable {
        chatRoomService().setChatRoomEntries(roomId, entries, isForce, autoDelete,
                                             writeSuccessHandler(ZM_A_SET_CHATROOM_KVS_R, roomId, std::move(success)),
                                             batchErrorHandler(ZM_A_SET_CHATROOM_KVS_R, roomId, std::move(error)));
    });
}

void ZMChatRoomClient::removeChatRoomEntries(const ZMValue& chatroomId, const ZMValue& keys, bool isForce,
                                             ZMSuccessBlock success, ZMEntriesErrorBlock error) {
    static constexpr const char* kOperation = "removeChatRoomEntries:keys:isForce:success:error:";
    logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_A_REMOVE_CHATROOM_KVS_T, "room_id:%@,overwrite:%@",
                   chatroomId, isForce);
    auto refuse = [&](int32_t code) {
        logResult(ZMLogLevelOperation, ZM_A_REMOVE_CHATROOM_KVS_R, chatroomId, code);
        if (error) error(code, noFailedEntries());
    };
    if (!isValidTargetId(chatroomId)) {
        logParameterError(kOperation, chatroomId);
        return refuse(ZMErrorInvalidParameter);
    }
    // Anything but an array holds no keys.
    const size_t count = keyCount(keys);
    if (count > kMaxBatchSize) return refuse(ZMErrorKVBatchTooLarge);
    if (count == 0) return refuse(ZMErrorKVKeysEmpty);
    for (const auto& key : keys) {
        if (!isValidKey(key)) {
            logKeyParameterError(kOperation, chatroomId, key);
            return refuse(ZMErrorInvalidKVKey);
        }
    }
    // The switch is tested last (a batch write tests it before the entries).
    if (kvStorageRefused()) return refuse(ZMErrorKVStorageDisabled);

    performOperationQueueBlock([roomId = chatroomId.get<std::string>(), keys, isForce, success = std::move(success),
                                error = std::move(error)]() mutable {
        chatRoomService().removeChatRoomEntries(
            roomId, keys, isForce, writeSuccessHandler(ZM_A_REMOVE_CHATROOM_KVS_R, roomId, std::move(success)),
            batchErrorHandler(ZM_A_REMOVE_CHATROOM_KVS_R, roomId, std::move(error)));
    });
}

// ---- Reads of several entries ---------------------------------------------------------

void ZMChatRoomClient::getChatRoomEntriesByBatch(const ZMValue& chatroomId, const ZMValue& keys,
                                                 ZMEntriesSuccessBlock success, ZMErrorBlock error) {
    static constexpr const char* kOperation = "getChatRoomEntriesByBatch:keys:success:error:";
    logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_A_GET_CHATROOM_BATCH_KV_T, "room_id:%@,keys:%@",
                   chatroomId, ZMChatRoomUtil::stringFromArray(keys));
    auto refuse = [&](int32_t code) {
        logResult(ZMLogLevelOperation, ZM_A_GET_CHATROOM_BATCH_KV_R, chatroomId, code);
        if (error) error(code);
    };
    if (!isValidTargetId(chatroomId)) {
        logParameterError(kOperation, chatroomId);
        return refuse(ZMErrorInvalidParameter);
    }
    // No upper bound on the number of keys of a read.
    if (keyCount(keys) == 0) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag,
                       "Parameter Error, %@, chatroomId:%@, keys:%@", kOperation, chatroomId, keys);
        return refuse(ZMErrorKVKeysEmpty);
    }
    for (const auto& key : keys) {
        if (!isValidKey(key)) {
            logKeyParameterError(kOperation, chatroomId, key);
            return refuse(ZMErrorInvalidKVKey);
        }
    }
    const std::string roomId = chatroomId.get<std::string>();
    if (const int32_t code = readRefusal(*this, roomId); code != 0) return refuse(code);

    performOperationQueueBlock([roomId, keys, success = std::move(success), error = std::move(error)] {
        chatRoomService().getChatRoomEntriesByBatch(
            roomId, keys,
            [roomId, success](const ZMValue& entries) {
                // The success line carries 34004, not 0.
                logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_A_GET_CHATROOM_BATCH_KV_R,
                               "room_id:%@,code:%@,count:%@,kv:%@", roomId, ZMErrorKVNotSynchronized,
                               entryCount(entries), ZMChatRoomUtil::stringFromDict(entries));
                if (success) success(entries);
            },
            // A failure reaches the application as the core reports it, without a line.
            guardedErrorBlock(error));
    });
}

void ZMChatRoomClient::getAllChatRoomEntries(const ZMValue& chatroomId, ZMEntriesSuccessBlock success,
                                             ZMErrorBlock error) {
    static constexpr const char* kOperation = "getAllChatRoomEntries:success:error:";
    logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_A_GET_CHATROOM_ALL_KV_T, "room_id:%@", chatroomId);
    if (!isValidTargetId(chatroomId)) {
        logParameterError(kOperation, chatroomId);
        logResult(ZMLogLevelOperation, ZM_A_GET_CHATROOM_ALL_KV_R, chatroomId, ZMErrorInvalidParameter);
        if (error) error(ZMErrorInvalidParameter);
        return;
    }
    if (!isKVStorageEnabled()) {
        // The result line comes before the diagnostic line here.
        logResult(ZMLogLevelOperation, ZM_A_GET_CHATROOM_ALL_KV_R, chatroomId, ZMErrorKVStorageDisabled);
        logKVStorageDisabled();
        if (error) error(ZMErrorKVStorageDisabled);
        return;
    }
    // Never refused for the synchronisation state: the core is told it.
    const std::string roomId = chatroomId.get<std::string>();
    const bool isSync = syncKVChatRoomDict().objectForKey(roomId).value_or(false);

    performOperationQueueBlock([this, roomId, isSync, success = std::move(success), error = std::move(error)] {
        chatRoomService().getAllChatRoomEntries(
            roomId, isSync,
            [this, roomId, success](const ZMValue& coreEntries) {
                ZMValue storage;
                const ZMValue& entries = filteredEntries(
                    zmKVStatusFilterDelegate().get(), &ZMChatRoomKVStatusFilterDelegate::getAllChatRoomEntriesFilter,
                    ZM_L_GET_CHATROOM_FILTER_ALL_KV_O, roomId, coreEntries, storage);
                logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_A_GET_CHATROOM_ALL_KV_R,
                               "room_id:%@,code:%@,count:%@,kv:%@", roomId, 0, entryCount(entries),
                               ZMChatRoomUtil::stringFromDict(entries));
                if (success) success(entries);
            },
            [roomId, error](int32_t code) {
                logResult(ZMLogLevelFailure, ZM_A_GET_CHATROOM_ALL_KV_R, roomId, code);
                if (error) error(code);
            });
    });
    logger().write(ZMLogLevelDiagnostic, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag,
                   isSync ? "Chatroom KV synchronize from local DB" : "Chatroom KV synchronize from server");
}
