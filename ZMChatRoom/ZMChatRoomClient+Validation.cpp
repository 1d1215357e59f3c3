#include <ZMChatRoom/ZMChatRoomClient+Internal.h>

#include <VemoIMLibCore/ZMUtilities.h>

// The validators of the public operations' arguments. Each tests its argument
// in a fixed order, writes one line naming the first rule that failed and
// answers; the calling operation turns a refusal into an error code.

using namespace zm_client;

namespace {

constexpr size_t kMaxTargetIdLength = 64;
constexpr size_t kMaxKeyLength = 128;
constexpr size_t kMaxValueLength = 4096;
constexpr size_t kMaxNotificationExtraLength = 2048;

}  // namespace

bool ZMChatRoomClient::isValidTargetId(const ZMValue& targetId) {
    auto length = stringLength(targetId);
    if (!length) {
        logger().write(ZMLogLevelDiagnostic, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag, "Parameter error，targetId is not NSString");
        return false;
    }
    if (*length == 0) {
        logger().write(ZMLogLevelDiagnostic, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag, "Parameter error，targetId is nil");
        return false;
    }
    if (*length > kMaxTargetIdLength) {
        logger().write(ZMLogLevelDiagnostic, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag,
                       "Parameter error，targetId length More than 64");
        return false;
    }
    return true;
}

bool ZMChatRoomClient::isValidRtcRoomId(const ZMValue& rtcRoomId) {
    auto length = stringLength(rtcRoomId);
    if (!length) {
        logger().write(ZMLogLevelDiagnostic, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag,
                       "Parameter error，rtcRoomId is not NSString");
        return false;
    }
    if (*length == 0) {
        logger().write(ZMLogLevelDiagnostic, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag, "Parameter error，rtcRoomId is nil");
        return false;
    }
    return true;
}

bool ZMChatRoomClient::isValidKey(const ZMValue& key) {
    auto length = stringLength(key);
    if (!length) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag, "Parameter error，key is not NSString");
        return false;
    }
    if (*length == 0 || *length > kMaxKeyLength) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag,
                       "Parameter error，key is empty or length More than %@", kMaxKeyLength);
        return false;
    }
    // The legal characters are the core's rule; asked only for keys of a valid length.
    if (!ZMUtilities::checkChatroomKey(key.get<std::string>())) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag,
                       "Parameter error，key is contains Illegal character");
        return false;
    }
    return true;
}

bool ZMChatRoomClient::isValidValue(const ZMValue& value) {
    auto length = stringLength(value);
    if (!length) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag, "Parameter error，value is not NSString");
        return false;
    }
    if (*length == 0 || *length > kMaxValueLength) {
        logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag,
                       "Parameter error，value is empty or length More than %@", kMaxValueLength);
        return false;
    }
    return true;
}

int32_t ZMChatRoomClient::isValidKey(const ZMValue& key, const ZMValue& value) {
    if (!isValidKey(key)) return ZMErrorInvalidKVKey;
    if (!isValidValue(value)) return ZMErrorInvalidKVValue;
    return 0;
}

bool ZMChatRoomClient::isValidNotificationExtra(const ZMValue& notificationExtra) {
    // An absent extra is valid and counts as length 0.
    size_t length = 0;
    if (!notificationExtra.is_null()) {
        auto stringLengthOfExtra = stringLength(notificationExtra);
        if (!stringLengthOfExtra) {
            logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag, "notificationExtra is illegitimate");
            return false;
        }
        length = *stringLengthOfExtra;
    }
    if (length <= kMaxNotificationExtraLength) return true;
    logger().write(ZMLogLevelFailure, ZMLogTypeDiagnostic, ZMChatRoomClientLogTag,
                   "Parameter error，notificationExtra length More than %@", kMaxNotificationExtraLength);
    return false;
}
