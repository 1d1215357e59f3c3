#pragma once

#include <VemoIMLibCore/ZMChatRoomPSManager.h>

class ZMKernel {
public:
    static ZMKernel& sharedInstance();
    // The chat-room service; lives as long as the process.
    virtual ZMChatRoomPSManager& chatRoomPSManager() = 0;

protected:
    virtual ~ZMKernel() = default;
};
