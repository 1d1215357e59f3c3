#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <Platform/ZMRecursiveLock.h>
#include <Platform/ZMWeakSet.h>
#include <ZMChatRoom/ZMChatRoomKVStatusChangeDelegate.h>
#include <ZMChatRoom/ZMChatRoomNotifyEventDelegate.h>
#include <ZMChatRoom/ZMChatRoomStatusDelegate.h>

// The observers of one kind as registered at one moment, in registration
// order, held weakly. Immutable and shared: every delivery until the next
// registration or removal gets the same snapshot, without allocating.
template <class T>
using ZMObserverSnapshot = std::shared_ptr<const std::vector<std::weak_ptr<T>>>;

// The application's observers, in three weak sets, one per kind of event.
// Registration never keeps an observer alive; a destroyed observer leaves
// its set by itself. Deliverers take a snapshot and call the observers
// outside the manager's lock. Any thread may add, remove or take snapshots.
//
// Each kind keeps its snapshot until its registrations change: the first
// snapshot after a change is built (once), every other one is shared.
// Adding or removing an observer takes constant time; it only drops the
// snapshot and moves the kind's generation on.
class ZMChatRoomListenerManager {
public:
    static ZMChatRoomListenerManager& sharedManager();

    void addChatRoomStatusDelegate(const std::shared_ptr<ZMChatRoomStatusDelegate>& delegate);
    void removeChatRoomStatusDelegate(const std::shared_ptr<ZMChatRoomStatusDelegate>& delegate);
    std::vector<std::shared_ptr<ZMChatRoomStatusDelegate>> allChatRoomStatusDelegates();
    ZMObserverSnapshot<ZMChatRoomStatusDelegate> chatRoomStatusDelegateSnapshot();
    // Moves on with every registration and removal of a status observer: a
    // deliverer that saw the same generation before may keep the observers
    // it took then.
    uint64_t chatRoomStatusDelegateGeneration() const;

    void addChatRoomKVStatusChangeDelegate(const std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>& delegate);
    void removeChatRoomKVStatusChangeDelegate(const std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>& delegate);
    std::vector<std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>> allChatRoomKVStatusChangeDelegates();
    ZMObserverSnapshot<ZMChatRoomKVStatusChangeDelegate> chatRoomKVStatusChangeDelegateSnapshot();

    void addChatRoomNotifyEventDelegate(const std::shared_ptr<ZMChatRoomNotifyEventDelegate>& delegate);
    void removeChatRoomNotifyEventDelegate(const std::shared_ptr<ZMChatRoomNotifyEventDelegate>& delegate);
    std::vector<std::shared_ptr<ZMChatRoomNotifyEventDelegate>> allChatRoomNotifyEventDelegates();
    ZMObserverSnapshot<ZMChatRoomNotifyEventDelegate> chatRoomNotifyEventDelegateSnapshot();

private:
    ZMChatRoomListenerManager() = default;

    // One kind's registrations and its current snapshot (null after a change).
    template <class T>
    struct Registrations {
        ZMWeakSet<T> members;
        ZMObserverSnapshot<T> snapshot;
        std::atomic<uint64_t> generation{0};
    };
    template <class T>
    void add(Registrations<T>& registrations, const std::shared_ptr<T>& delegate);
    template <class T>
    void remove(Registrations<T>& registrations, const std::shared_ptr<T>& delegate);
    template <class T>
    ZMObserverSnapshot<T> snapshot(Registrations<T>& registrations);

    ZMRecursiveLock lock_;
    Registrations<ZMChatRoomKVStatusChangeDelegate> chatRoomKVStatusChangeDelegates;
    Registrations<ZMChatRoomStatusDelegate> chatRoomStatusDelegates;
    Registrations<ZMChatRoomNotifyEventDelegate> chatRoomNotifyEventDelegates;
};

// The observers of a snapshot that are alive at the moment it is made, kept
// alive until it is destroyed: what one delivery walks. Holds up to eight
// observers in place, more on the heap.
template <class T>
class ZMLiveObservers {
public:
    explicit ZMLiveObservers(const ZMObserverSnapshot<T>& snapshot) {
        if (!snapshot) return;
        for (const auto& weak : *snapshot) {
            if (auto strong = weak.lock()) push(std::move(strong));
        }
    }
    ZMLiveObservers(const ZMLiveObservers&) = delete;
    ZMLiveObservers& operator=(const ZMLiveObservers&) = delete;

    const std::shared_ptr<T>* begin() const { return more_.empty() ? inPlace_.data() : more_.data(); }
    const std::shared_ptr<T>* end() const { return begin() + count_; }
    size_t size() const { return count_; }

private:
    void push(std::shared_ptr<T> observer) {
        if (count_ < inPlace_.size()) {
            inPlace_[count_++] = std::move(observer);
            return;
        }
        if (more_.empty()) {
            more_.reserve(2 * inPlace_.size());
            for (auto& held : inPlace_) more_.push_back(std::move(held));
        }
        more_.push_back(std::move(observer));
        ++count_;
    }

    std::array<std::shared_ptr<T>, 8> inPlace_;
    std::vector<std::shared_ptr<T>> more_;
    size_t count_ = 0;
};
