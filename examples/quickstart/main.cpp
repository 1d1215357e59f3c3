// Quick start: load the chat-room module on the core emulator, join a room,
// lose and regain the connection, and print what the app sees. The app's main
// thread drives the main queue, where the module's rejoin timer runs.

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <CoreEmulator/ZMCoreEmulator.h>  // only to run on the emulator instead of the vendor's core
#include <Platform/ZMMainQueue.h>
#include <ZMChatRoom/Extension/ZMChatRoomExtensionModule.h>
#include <ZMChatRoom/ZMChatRoomClient.h>
#include <ZMChatRoom/ZMChatRoomVersion.h>

namespace {

// Prints the room statuses the module announces (on its notify queue) and
// counts the joins.
class StatusPrinter : public ZMChatRoomStatusDelegate {
public:
    void onChatRoomJoining(const std::string& room) override { print(room + ": joining"); }
    void onChatRoomJoined(const std::string& room, const std::shared_ptr<ZMJoinChatRoomResponse>& response) override {
        print(room + ": joined, " + std::to_string(response->memberCount) + " members");
        ++joins;
    }
    void onChatRoomJoinFailed(const std::string& room, int32_t errorCode) override {
        print(room + ": join failed with " + std::to_string(errorCode) +
              (errorCode == -1 ? " (connection lost)" : ""));
    }
    void onChatRoomQuited(const std::string& room) override {
        print(room + ": quit");
        quit = true;
    }

    std::atomic<int> joins{0};
    std::atomic<bool> quit{false};

private:
    void print(const std::string& line) {
        std::lock_guard<std::mutex> lock(mutex_);
        std::printf("  [status] %s\n", line.c_str());
        std::fflush(stdout);
    }
    std::mutex mutex_;
};

// Drives the main queue from this (the main) thread until done() or 10 seconds.
bool waitFor(const char* what, const std::function<bool()>& done) {
    if (ZMMainQueue::shared().runUntil(done, 10)) return true;
    std::printf("timed out waiting for %s\n", what);
    return false;
}

}  // namespace

int main() {
    std::printf("ZMChatRoom %s quick start, on the core emulator\n", ZMCHATROOM_VERSION_STRING);
    ZMCoreEmulator& core = ZMCoreEmulator::shared();

    // The emulated server: joins succeed with 42 members, except the first
    // rejoin after a reconnect, which fails with a code the module retries.
    std::atomic<bool> failNextRejoin{true};
    core.setRule("joinChatroom", [&](const ZMCoreRequest& request) -> std::optional<ZMCoreAnswer> {
        if (request.arguments.value("useCacheTime", false) && failNextRejoin.exchange(false)) {
            return ZMCoreAnswer::failure(30001);
        }
        return ZMCoreAnswer::success({{"member_count_", 42}});
    });

    // 1. The core loads the module; on the emulator the app asks it to.
    core.loadExtensionModule(&ZMChatRoomExtensionModule::loadVemoExtensionModule);
    ZMChatRoomClient& client = ZMChatRoomClient::sharedChatRoomClient();

    // 2. Observe. The module holds observers weakly: keep the shared_ptr.
    auto printer = std::make_shared<StatusPrinter>();
    client.addChatRoomStatusDelegate(printer);

    // 3. Join, with the 10 latest messages on entering.
    std::puts("app: join \"lobby\"");
    client.joinChatRoom(
        "lobby", 10, [] { std::puts("  [callback] join succeeded"); },
        [](int32_t code) { std::printf("  [callback] join failed: %d\n", static_cast<int>(code)); });
    if (!waitFor("the join", [&] { return printer->joins >= 1; })) return 1;

    // 4. The connection drops and returns. The immediate rejoin fails; the
    //    2-second rejoin timer, which runs on the main queue, retries it.
    std::puts("network: connection lost");
    core.setConnectionStatus(1);
    std::puts("network: connection back");
    core.setConnectionStatus(0);
    if (!waitFor("the rejoin by the timer", [&] { return printer->joins >= 2; })) return 1;

    // 5. Quit.
    std::puts("app: quit \"lobby\"");
    client.quitChatRoom("lobby", {}, [](int32_t code) { std::printf("  [callback] quit failed: %d\n", code); });
    if (!waitFor("the quit", [&] { return printer->quit.load(); })) return 1;
    std::puts("done");
    return 0;
}
