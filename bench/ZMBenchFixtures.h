#pragma once

// The module on the core emulator as the benchmarks use it: loaded once, the
// KV server model off (the benchmarks answer requests themselves), and ways
// to let everything settle and to forget the emulator's records outside the
// timed regions.

#include <CoreEmulator/ZMCoreEmulator.h>
#include <Platform/ZMMainQueue.h>
#include <ZMChatRoom/Extension/ZMChatRoomExtensionModule.h>
#include <ZMChatRoom/ZMChatRoomClient.h>

#include <string>

namespace zmbench {

inline ZMChatRoomClient& client() { return ZMChatRoomClient::sharedChatRoomClient(); }
inline ZMCoreEmulator& core() { return ZMCoreEmulator::shared(); }

// Loads the extension module through the emulator once and answers it.
inline ZMChatRoomExtensionModule& loadedModule() {
    static ZMChatRoomExtensionModule* const module = [] {
        ZMChatRoomExtensionModule* loaded = nullptr;
        core().setKVServerModelEnabled(false);
        core().loadExtensionModule([&]() -> VemoIMLibExtensionModule& {
            return *(loaded = &ZMChatRoomExtensionModule::loadVemoExtensionModule());
        });
        return loaded;
    }();
    return *module;
}

// Lets every consequence of what happened so far run: queued operations, the
// core's answers, announcements and main-queue tasks.
inline void settle() {
    for (int round = 0; round < 3; ++round) {
        client().zm_chatroom_operation_queue().sync([] {});
        core().waitUntilIdle(600);
        client().zm__notify_chatroom_status_queue().sync([] {});
        ZMMainQueue::shared().drain();
    }
}

// Forgets the emulator's records (requests and log lines), which grow with
// every call and are not the module's.
inline void forgetCoreRecords() {
    core().clearRequests();
    core().logger().clear();
}

// "room-000042": room ids of one length, short enough to sit inside a string.
inline std::string roomName(long long number) {
    std::string digits = std::to_string(number);
    std::string name("room-");
    name.append(digits.size() < 6 ? 6 - digits.size() : 0, '0');
    name += digits;
    return name;
}

}  // namespace zmbench
