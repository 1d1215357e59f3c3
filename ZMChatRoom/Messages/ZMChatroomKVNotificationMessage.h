#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <Platform/ZMKeyedArchiver.h>
#include <Platform/ZMKeyedUnarchiver.h>
#include <VemoIMLibCore/ZMMessageContent.h>

enum : int64_t {
    ZMKVNotificationTypeSet = 1,
    ZMKVNotificationTypeRemove = 2,
};

// "ZM:chrmKVNotiMsg": sent to a room with a KV write or removal when the
// application asks for a notification. Not persisted.
// Payload: {"type":1,"key":"k","value":"v", base keys (the extra travels as the base "extra")}
class ZMChatroomKVNotificationMessage : public ZMMessageContent {
public:
    static std::string getObjectName() { return "ZM:chrmKVNotiMsg"; }
    static int32_t persistentFlag() { return 0; }

    static std::shared_ptr<ZMChatroomKVNotificationMessage> notificationWithType(
        int64_t type, const std::optional<std::string>& key, const std::optional<std::string>& value,
        const std::optional<std::string>& extra);

    ZMChatroomKVNotificationMessage() = default;
    // Reads the archive form (see encodeWithCoder).
    explicit ZMChatroomKVNotificationMessage(const ZMKeyedUnarchiver& coder);
    // Writes the archive form. The type is written under "key" and then
    // replaced by the key, so an archived message reads back with type 0.
    void encodeWithCoder(ZMKeyedArchiver& coder) const;

    void decodeWithData(const ZMData& data) override;
    std::optional<ZMData> encode() const override;

    int64_t type = 0;
    std::optional<std::string> key;
    std::optional<std::string> value;
};
