#include <ZMChatRoom/ZMChatRoomListenerManager.h>

ZMChatRoomListenerManager& ZMChatRoomListenerManager::sharedManager() {
    // Created once, never destroyed: deliverers on other threads may still
    // take snapshots while the process exits.
    static ZMChatRoomListenerManager* const manager = new ZMChatRoomListenerManager();
    return *manager;
}

template <class T>
void ZMChatRoomListenerManager::add(Registrations<T>& registrations, const std::shared_ptr<T>& delegate) {
    ZMObserverSnapshot<T> stale;  // released outside the lock
    lock_.withLock([&] {
        if (!delegate || registrations.members.contains(delegate)) return;
        registrations.members.add(delegate);
        stale = std::move(registrations.snapshot);
        registrations.snapshot = nullptr;
        registrations.generation.fetch_add(1, std::memory_order_release);
    });
}

template <class T>
void ZMChatRoomListenerManager::remove(Registrations<T>& registrations, const std::shared_ptr<T>& delegate) {
    ZMObserverSnapshot<T> stale;  // released outside the lock
    lock_.withLock([&] {
        if (!delegate) return;
        registrations.members.remove(delegate);
        stale = std::move(registrations.snapshot);
        registrations.snapshot = nullptr;
        registrations.generation.fetch_add(1, std::memory_order_release);
    });
}

template <class T>
ZMObserverSnapshot<T> ZMChatRoomListenerManager::snapshot(Registrations<T>& registrations) {
    return lock_.withLock([&] {
        if (!registrations.snapshot) {
            registrations.snapshot =
                std::make_shared<const std::vector<std::weak_ptr<T>>>(registrations.members.allWeakObjects());
        }
        return registrations.snapshot;
    });
}

namespace {

// The live observers of a snapshot as strong references.
template <class T>
std::vector<std::shared_ptr<T>> liveObservers(const ZMObserverSnapshot<T>& snapshot) {
    std::vector<std::shared_ptr<T>> live;
    live.reserve(snapshot->size());
    for (const auto& weak : *snapshot) {
        if (auto strong = weak.lock()) live.push_back(std::move(strong));
    }
    return live;
}

}  // namespace

void ZMChatRoomListenerManager::addChatRoomStatusDelegate(const std::shared_ptr<ZMChatRoomStatusDelegate>& delegate) {
    add(chatRoomStatusDelegates, delegate);
}

void ZMChatRoomListenerManager::removeChatRoomStatusDelegate(const std::shared_ptr<ZMChatRoomStatusDelegate>& delegate) {
    remove(chatRoomStatusDelegates, delegate);
}

std::vector<std::shared_ptr<ZMChatRoomStatusDelegate>> ZMChatRoomListenerManager::allChatRoomStatusDelegates() {
    return liveObservers(chatRoomStatusDelegateSnapshot());
}

ZMObserverSnapshot<ZMChatRoomStatusDelegate> ZMChatRoomListenerManager::chatRoomStatusDelegateSnapshot() {
    return snapshot(chatRoomStatusDelegates);
}

uint64_t ZMChatRoomListenerManager::chatRoomStatusDelegateGeneration() const {
    return chatRoomStatusDelegates.generation.load(std::memory_order_acquire);
}

void ZMChatRoomListenerManager::addChatRoomKVStatusChangeDelegate(
    const std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>& delegate) {
    add(chatRoomKVStatusChangeDelegates, delegate);
}

void ZMChatRoomListenerManager::removeChatRoomKVStatusChangeDelegate(
    const std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>& delegate) {
    remove(chatRoomKVStatusChangeDelegates, delegate);
}

std::vector<std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>>
ZMChatRoomListenerManager::allChatRoomKVStatusChangeDelegates() {
    return liveObservers(chatRoomKVStatusChangeDelegateSnapshot());
}

ZMObserverSnapshot<ZMChatRoomKVStatusChangeDelegate>
ZMChatRoomListenerManager::chatRoomKVStatusChangeDelegateSnapshot() {
    return snapshot(chatRoomKVStatusChangeDelegates);
}

void ZMChatRoomListenerManager::addChatRoomNotifyEventDelegate(
    const std::shared_ptr<ZMChatRoomNotifyEventDelegate>& delegate) {
    add(chatRoomNotifyEventDelegates, delegate);
}

void ZMChatRoomListenerManager::removeChatRoomNotifyEventDelegate(
    const std::shared_ptr<ZMChatRoomNotifyEventDelegate>& delegate) {
    remove(chatRoomNotifyEventDelegates, delegate);
}

std::vector<std::shared_ptr<ZMChatRoomNotifyEventDelegate>>
ZMChatRoomListenerManager::allChatRoomNotifyEventDelegates() {
    return liveObservers(chatRoomNotifyEventDelegateSnapshot());
}

ZMObserverSnapshot<ZMChatRoomNotifyEventDelegate> ZMChatRoomListenerManager::chatRoomNotifyEventDelegateSnapshot() {
    return snapshot(chatRoomNotifyEventDelegates);
}
