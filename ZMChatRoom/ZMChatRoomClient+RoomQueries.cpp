#include <ZMChatRoom/ZMChatRoomClient+Internal.h>

#include <VemoIMLibCore/ZMCoreLogTags.h>

// Thin request operations on a room: its member count and members, a page of
// its stored history, and its binding to a real-time (RTC) room.

using namespace zm_client;

void ZMChatRoomClient::getChatRoomInfo(const ZMValue& chatroomId, int32_t count, uint64_t order,
                                       ZMChatRoomInfoSuccessBlock success, ZMErrorBlock error) {
    static constexpr const char* kOperation = "getChatRoomInfo:count:order:success:error:";
    if (!isValidTargetId(chatroomId)) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag, "Parameter Error, %@, targetId:%@",
                       kOperation, chatroomId);
        if (error) error(ZMErrorInvalidParameter);
        return;
    }
    // Only 1 and 2: in unsigned arithmetic order - 1 wraps 0 to the top.
    if (order - 1 >= 2) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag, "Parameter Error, %@, targetId:%@",
                       kOperation, chatroomId);
        if (error) error(ZMErrorInvalidMemberOrder);
        return;
    }
    const std::string roomId = chatroomId.get<std::string>();
    performOperationQueueBlock([roomId, count, order, success = std::move(success), error = std::move(error)] {
        chatRoomService().queryChatroomInfo(
            roomId, count, order,
            [roomId, order, success](const ZMValue& reply) {
                auto info = ZMChatRoomInfo::infoWithDictionary(roomId, order, reply);
                if (success) success(info);
            },
            guardedErrorBlock(error));
    });
}

void ZMChatRoomClient::getRemoteChatroomHistoryMessages(const ZMValue& chatroomId, int64_t recordTime, int32_t count,
                                                        uint64_t order, ZMHistorySuccessBlock success,
                                                        ZMErrorBlock error) {
    static constexpr const char* kOperation = "getRemoteChatroomHistoryMessages:recordTime:count:order:success:error:";
    if (!isValidTargetId(chatroomId)) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag, "Parameter Error, %@, targetId:%@",
                       kOperation, chatroomId);
        if (error) error(ZMErrorInvalidParameter);
        return;
    }
    // 1 to 200: in unsigned arithmetic count - 1 wraps 0 and negatives to the top.
    if (static_cast<uint32_t>(count) - 1u >= 200u) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag, "Parameter Error, %@, count:%d",
                       kOperation, count);
        if (error) error(ZMErrorInvalidMessageCount);
        return;
    }
    if (order >= 2) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag, "Parameter Error, %@, order:%lu",
                       kOperation, order);
        if (error) error(ZMErrorInvalidHistoryOrder);
        return;
    }
    if (recordTime < 0) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag, "Parameter Error, %@, recordTime:%lld",
                       kOperation, recordTime);
        if (error) error(ZMErrorInvalidRecordTime);
        return;
    }
    auto navi = naviData();
    if (!(navi && navi->isChatroomMessageStoreEnabled())) {
        if (error) error(ZMErrorMessageStoreDisabled);
        return;
    }
    const std::string roomId = chatroomId.get<std::string>();
    performOperationQueueBlock([roomId, recordTime, count, order, success = std::move(success),
                                error = std::move(error)] {
        chatRoomService().getChatroomHistoryMessage(
            roomId, recordTime, count, order, "",
            [success](const std::vector<std::shared_ptr<ZMMessage>>& messages, int64_t syncTime, bool /*hasMore*/) {
                if (success) success(messages, syncTime);
            },
            guardedErrorBlock(error));
    });
}

void ZMChatRoomClient::bindChatRoom(const ZMValue& chatroomId, const ZMValue& withRTCRoom, ZMSuccessBlock success,
                                    ZMErrorBlock error) {
    static constexpr const char* kOperation = "bindChatRoom:withRTCRoom:success:error:";
    if (!isValidTargetId(chatroomId)) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag, "Parameter Error, %@, chatRoomId:%@",
                       kOperation, chatroomId);
        if (error) error(ZMErrorInvalidParameter);
        return;
    }
    if (!isValidRtcRoomId(withRTCRoom)) {
        if (error) error(ZMErrorInvalidRtcRoomId);
        return;
    }
    const std::string roomId = chatroomId.get<std::string>();
    const std::string rtcRoomId = withRTCRoom.get<std::string>();
    performOperationQueueBlock([roomId, rtcRoomId, success = std::move(success), error = std::move(error)] {
        chatRoomService().bindRTCRoomForChatroom(
            roomId, rtcRoomId,
            [roomId, success] {
                logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_BINDCHATROOM, "room_id:%@,code:%@", roomId, 0);
                if (success) success();
            },
            [roomId, error](int32_t code) {
                logger().write(ZMLogLevelFailure, ZMLogTypeOperation, ZM_BINDCHATROOM, "room_id:%@,code:%@", roomId,
                               code);
                if (error) error(code);
            });
    });
}
