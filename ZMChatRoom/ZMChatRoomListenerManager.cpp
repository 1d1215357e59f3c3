#include <ZMChatRoom/ZMChatRoomListenerManager.h>

ZMChatRoomListenerManager& ZMChatRoomListenerManager::sharedManager() {
    // Created once, never destroyed: deliverers on other threads may still
    // take snapshots while the process exits.
    static ZMChatRoomListenerManager* const manager = new ZMChatRoomListenerManager();
    return *manager;
}

void ZMChatRoomListenerManager::addChatRoomStatusDelegate(const std::shared_ptr<ZMChatRoomStatusDelegate>& delegate) {
    lock_.withLock([&] { chatRoomStatusDelegates.add(delegate); });
}

void ZMChatRoomListenerManager::removeChatRoomStatusDelegate(const std::shared_ptr<ZMChatRoomStatusDelegate>& delegate) {
    lock_.withLock([&] { chatRoomStatusDelegates.remove(delegate); });
}

std::vector<std::shared_ptr<ZMChatRoomStatusDelegate>> ZMChatRoomListenerManager::allChatRoomStatusDelegates() {
    return lock_.withLock([&] { return chatRoomStatusDelegates.allObjects(); });
}

void ZMChatRoomListenerManager::addChatRoomKVStatusChangeDelegate(
    const std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>& delegate) {
    lock_.withLock([&] { chatRoomKVStatusChangeDelegates.add(delegate); });
}

void ZMChatRoomListenerManager::removeChatRoomKVStatusChangeDelegate(
    const std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>& delegate) {
    lock_.withLock([&] { chatRoomKVStatusChangeDelegates.remove(delegate); });
}

std::vector<std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>>
ZMChatRoomListenerManager::allChatRoomKVStatusChangeDelegates() {
    return lock_.withLock([&] { return chatRoomKVStatusChangeDelegates.allObjects(); });
}

void ZMChatRoomListenerManager::addChatRoomNotifyEventDelegate(
    const std::shared_ptr<ZMChatRoomNotifyEventDelegate>& delegate) {
    lock_.withLock([&] { chatRoomNotifyEventDelegates.add(delegate); });
}

void ZMChatRoomListenerManager::removeChatRoomNotifyEventDelegate(
    const std::shared_ptr<ZMChatRoomNotifyEventDelegate>& delegate) {
    lock_.withLock([&] { chatRoomNotifyEventDelegates.remove(delegate); });
}

std::vector<std::shared_ptr<ZMChatRoomNotifyEventDelegate>>
ZMChatRoomListenerManager::allChatRoomNotifyEventDelegates() {
    return lock_.withLock([&] { return chatRoomNotifyEventDelegates.allObjects(); });
}
