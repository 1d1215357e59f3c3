#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <ZMChatRoom/ZMChatRoomClient.h>

#include "ZMDemoConsole.h"
#include "ZMDemoObserver.h"
#include "ZMDemoServer.h"

// The demo app: one chapter per public function, each doing what an app
// does with the chat-room module (or what the server or the network does to
// it) and then waiting, by driving the main queue, until the app has observed
// the outcome. The main thread is the app's main thread: the rejoin timer
// fires on it while a chapter waits.
class ZMDemoStory {
public:
    using Chapter = void (ZMDemoStory::*)();

    explicit ZMDemoStory(ZMDemoConsole& console);

    // Chapters, in the order of the full story.
    void loadModule();
    void registerObservers();
    void joinTwoRooms();
    void membersComeAndGo();
    void keyValueStore();
    void connectionDrops();
    void connectionReturns();
    void banAndMultiLoginSync();
    void readRoomInfoAndHistory();
    void bindRtcRoom();
    void roomDestroyedOnServer();
    void quitRooms();

    // Waits until nothing is left under way, stops the emulated server and
    // prints the summary. Returns the exit code: 0, or 1 when a wait timed out.
    int finish(const std::string& storyName);

private:
    ZMChatRoomClient& client();
    // A success and an error callback that report the outcome of call, an
    // operation on room, as an event.
    ZMSuccessBlock reportSuccess(const std::string& call, const std::string& room);
    ZMErrorBlock reportError(const std::string& call, const std::string& room);
    bool waitForTimer(bool running, const std::string& what);
    // Waits until one more event of kind was observed in room than before.
    bool waitForMore(const std::string& what, const std::string& kind, const std::string& room, size_t before);
    void printSummary(const std::string& storyName);

    ZMDemoConsole& console_;
    ZMCoreEmulator& core_;
    ZMDemoServer server_;
    std::shared_ptr<ZMDemoObserver> observer_;
    std::shared_ptr<ZMDemoPrivateKeyFilter> filter_;
    // The rooms the app is in (or wants to be in), in join order.
    std::vector<std::string> rooms_;
    const std::chrono::steady_clock::time_point start_;
};
