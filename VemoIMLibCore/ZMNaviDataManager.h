#pragma once

#include <memory>

// The three switches of the server's navigation data that the chat-room
// module reads at the moment of each call.
class ZMNaviData {
public:
    ZMNaviData(bool kvStorageEnabled, bool messageStoreEnabled, bool multiChatroomEnabled)
        : kvStorageEnabled_(kvStorageEnabled), messageStoreEnabled_(messageStoreEnabled),
          multiChatroomEnabled_(multiChatroomEnabled) {}

    // The chat-room key-value store is enabled for the application.
    bool isChatroomKVStorageEnabled() const { return kvStorageEnabled_; }
    // The server stores chat-room messages (remote history is available).
    bool isChatroomMessageStoreEnabled() const { return messageStoreEnabled_; }
    // One user may be in several chat rooms at once (the name is the core's).
    bool isMutliChatroomEnabled() const { return multiChatroomEnabled_; }

private:
    bool kvStorageEnabled_;
    bool messageStoreEnabled_;
    bool multiChatroomEnabled_;
};

class ZMNaviDataManager {
public:
    static ZMNaviDataManager& sharedInstance();
    // The current navigation data, or null before any was received (read as
    // every switch off).
    virtual std::shared_ptr<const ZMNaviData> naviData() = 0;

protected:
    virtual ~ZMNaviDataManager() = default;
};
