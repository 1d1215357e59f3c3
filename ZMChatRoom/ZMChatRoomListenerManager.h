#pragma once

#include <memory>
#include <vector>

#include <Platform/ZMRecursiveLock.h>
#include <Platform/ZMWeakSet.h>
#include <ZMChatRoom/ZMChatRoomKVStatusChangeDelegate.h>
#include <ZMChatRoom/ZMChatRoomNotifyEventDelegate.h>
#include <ZMChatRoom/ZMChatRoomStatusDelegate.h>

// The application's observers, in three weak sets, one per kind of event.
// Registration never keeps an observer alive; a destroyed observer leaves
// its set by itself. Deliverers take a snapshot and call the observers
// outside the manager's lock. Any thread may add, remove or take snapshots.
class ZMChatRoomListenerManager {
public:
    static ZMChatRoomListenerManager& sharedManager();

    void addChatRoomStatusDelegate(const std::shared_ptr<ZMChatRoomStatusDelegate>& delegate);
    void removeChatRoomStatusDelegate(const std::shared_ptr<ZMChatRoomStatusDelegate>& delegate);
    std::vector<std::shared_ptr<ZMChatRoomStatusDelegate>> allChatRoomStatusDelegates();

    void addChatRoomKVStatusChangeDelegate(const std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>& delegate);
    void removeChatRoomKVStatusChangeDelegate(const std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>& delegate);
    std::vector<std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>> allChatRoomKVStatusChangeDelegates();

    void addChatRoomNotifyEventDelegate(const std::shared_ptr<ZMChatRoomNotifyEventDelegate>& delegate);
    void removeChatRoomNotifyEventDelegate(const std::shared_ptr<ZMChatRoomNotifyEventDelegate>& delegate);
    std::vector<std::shared_ptr<ZMChatRoomNotifyEventDelegate>> allChatRoomNotifyEventDelegates();

private:
    ZMChatRoomListenerManager() = default;

    ZMRecursiveLock lock_;
    ZMWeakSet<ZMChatRoomKVStatusChangeDelegate> chatRoomKVStatusChangeDelegates;
    ZMWeakSet<ZMChatRoomStatusDelegate> chatRoomStatusDelegates;
    ZMWeakSet<ZMChatRoomNotifyEventDelegate> chatRoomNotifyEventDelegates;
};
