// A parent project's app: joins a room on the core emulator and prints
// "joined lobby". It compiles only as C++20 (consteval), and an unused
// parameter makes it fail under -Wextra -Werror: both tell what the module's
// targets hand to their users.

#include <chrono>
#include <cstdio>
#include <future>
#include <memory>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <ZMChatRoom/Extension/ZMChatRoomExtensionModule.h>
#include <ZMChatRoom/ZMChatRoomClient.h>
#include <ZMChatRoom/ZMChatRoomVersion.h>

consteval int membersOnTheServer() { return 7; }

int main(int argc, char** argv) {
    std::printf("%s, ZMChatRoom %s\n", argv[0], ZMCHATROOM_VERSION_STRING);
    ZMCoreEmulator& core = ZMCoreEmulator::shared();
    core.setRule("joinChatroom", ZMCoreAnswer::success({{"member_count_", membersOnTheServer()}}));
    core.loadExtensionModule(&ZMChatRoomExtensionModule::loadVemoExtensionModule);

    auto joined = std::make_shared<std::promise<int>>();
    auto outcome = joined->get_future();
    ZMChatRoomClient::sharedChatRoomClient().joinChatRoom(
        "lobby", 10, [joined] { joined->set_value(0); }, [joined](int32_t code) { joined->set_value(code); });
    if (outcome.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
        std::puts("no answer to the join");
        return 1;
    }
    const int code = outcome.get();
    if (code != 0) {
        std::printf("join failed: %d\n", code);
        return 1;
    }
    std::puts("joined lobby");
    return 0;
}
