#include <CoreEmulator/ZMEmulatedKernel.h>

#include <CoreEmulator/ZMEmulatedChatRoomService.h>

ZMKernel& ZMKernel::sharedInstance() { return ZMEmulatedKernel::shared(); }

ZMEmulatedKernel& ZMEmulatedKernel::shared() {
    static auto* kernel = new ZMEmulatedKernel();
    return *kernel;
}

ZMChatRoomPSManager& ZMEmulatedKernel::chatRoomPSManager() { return ZMEmulatedChatRoomService::shared(); }
