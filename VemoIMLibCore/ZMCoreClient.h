#pragma once

#include <cstdint>
#include <optional>

#include <VemoIMLibCore/ZMMessageContent.h>

// The core library's client: message type registry, connection state and
// payload encoding.
class ZMCoreClient {
public:
    static ZMCoreClient& sharedCoreClient();

    // Makes the core decode incoming messages whose object name is the
    // class's getObjectName() into instances of that class.
    virtual void registerMessageType(const ZMMessageClass& messageClass) = 0;
    // The current connection status; 0 means connected.
    virtual int64_t getConnectionStatus() = 0;
    // The byte payload the core sends for a message content, or nothing.
    virtual std::optional<ZMData> payloadOfMessageContent(const ZMMessageContent& content) = 0;

protected:
    virtual ~ZMCoreClient() = default;
};
