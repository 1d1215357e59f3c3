#pragma once

#include <VemoIMLibCore/ZMKernel.h>

// The emulated kernel: hands out the emulated chat-room service.
class ZMEmulatedKernel : public ZMKernel {
public:
    static ZMEmulatedKernel& shared();
    ZMChatRoomPSManager& chatRoomPSManager() override;

private:
    ZMEmulatedKernel() = default;
    ~ZMEmulatedKernel() override = default;
};
