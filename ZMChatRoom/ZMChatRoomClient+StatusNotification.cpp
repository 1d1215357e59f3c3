#include <ZMChatRoom/ZMChatRoomClient+Internal.h>

#include <ZMChatRoom/ZMChatRoomListenerManager.h>

// Room-status announcements: delivered on the notify queue, one at a time, in
// the order they were issued, so the status observers hear every room's
// changes in the order they happened.

namespace {

// Larger buffers are let go after a delivery rather than kept for the next.
constexpr size_t kKeptAnnouncementCapacity = 1024;

void announce(ZMChatRoomStatusDelegate& delegate, const std::string& chatroomId,
              const std::shared_ptr<ZMJoinChatRoomResponse>& response, int64_t status, int32_t errorCode) {
    switch (status) {
        case ZMChatRoomStatusJoining:
            delegate.onChatRoomJoining(chatroomId);
            break;
        case ZMChatRoomStatusJoined:
            delegate.onChatRoomJoined(chatroomId, response);
            break;
        case ZMChatRoomStatusReset:
            delegate.onChatRoomReset(chatroomId);
            break;
        case ZMChatRoomStatusJoinFailed:
            delegate.onChatRoomJoinFailed(chatroomId, errorCode);
            break;
        case ZMChatRoomStatusQuited:
            delegate.onChatRoomQuited(chatroomId);
            break;
        case ZMChatRoomStatusDestroyed:
            // Observers see only two destroy types: 0, or 3 for any other.
            delegate.onChatRoomDestroyed(chatroomId, errorCode != 0 ? 3 : 0);
            break;
        default:
            break;
    }
}

}  // namespace

void ZMChatRoomClient::notifyChatRoomStatus(const std::string& chatroomId, int64_t status, int32_t errorCode) {
    notifyChatRoomStatus(chatroomId, nullptr, status, errorCode);
}

void ZMChatRoomClient::notifyChatRoomStatus(const std::string& chatroomId,
                                            std::shared_ptr<ZMJoinChatRoomResponse> response, int64_t status,
                                            int32_t errorCode) {
    auto& announcements = *statusAnnouncements_;
    auto& queue = *zm__notify_chatroom_status_queue_;
    bool wake = false;
    {
        std::lock_guard<std::mutex> held(announcements.lock);
        announcements.issued.push_back({chatroomId, std::move(response), status, errorCode});
        if (announcements.openBatchTask && *announcements.openBatchTask == queue.enqueuedCount()) {
            // Its delivery task is still the last task queued: it delivers this one too.
            announcements.batchEnds.back() = announcements.issued.size();
        } else {
            // Queued under the lock, so that once this returns the
            // announcement is covered by a queued delivery task: a task
            // queued on the notify queue afterwards runs after it has been
            // delivered. The queue's worker is woken after the lock is let
            // go, so that it does not wake only to wait for it.
            announcements.batchEnds.push_back(announcements.issued.size());
            uint64_t task = 0;
            wake = queue.enqueue([this] { deliverStatusAnnouncements(); }, &task);
            announcements.openBatchTask = task;
        }
    }
    if (wake) queue.wake();
}

void ZMChatRoomClient::deliverStatusAnnouncements() {
    auto& announcements = *statusAnnouncements_;
    {
        // This task's batch: the first one still queued.
        std::lock_guard<std::mutex> held(announcements.lock);
        auto& issued = announcements.issued;
        auto& ends = announcements.batchEnds;
        const size_t end = ends.front();
        ends.erase(ends.begin());
        if (ends.empty()) {
            announcements.openBatchTask.reset();
            announcements.delivering.swap(issued);
        } else {
            const auto last = issued.begin() + static_cast<std::ptrdiff_t>(end);
            announcements.delivering.assign(std::make_move_iterator(issued.begin()), std::make_move_iterator(last));
            issued.erase(issued.begin(), last);
            for (size_t& later : ends) later -= end;
        }
    }
    auto& manager = ZMChatRoomListenerManager::sharedManager();
    auto& observers = announcements.observers;
    auto& reached = announcements.reached;
    bool taken = false;
    uint64_t generation = 0;
    for (const auto& announcement : announcements.delivering) {
        // An observer held here alone was let go by its owners since it was
        // taken: it goes now, as it would have gone at the end of the
        // previous delivery (its destructor may let go of others in turn).
        for (bool released = true; released;) {
            released = false;
            for (auto& observer : observers) {
                if (observer && observer.use_count() == 1) {
                    observer.reset();
                    released = true;
                }
            }
        }
        // Observers registered up to the moment of delivery receive it: the
        // observers are taken again whenever the registrations have changed.
        const uint64_t current = manager.chatRoomStatusDelegateGeneration();
        if (!taken || current != generation) {
            observers.clear();
            const auto snapshot = manager.chatRoomStatusDelegateSnapshot();
            for (const auto& weak : *snapshot) {
                if (auto strong = weak.lock()) observers.push_back(std::move(strong));
            }
            generation = current;
            taken = true;
        }
        // The observers this announcement reaches are settled before the
        // first is called: what a callback changes reaches the next one.
        reached.clear();
        for (const auto& observer : observers) reached.push_back(observer && observer.use_count() > 1);
        for (size_t i = 0; i < observers.size(); ++i) {
            if (!reached[i]) continue;
            announce(*observers[i], announcement.chatroomId, announcement.response, announcement.status,
                     announcement.errorCode);
        }
    }
    observers.clear();
    announcements.delivering.clear();
    if (announcements.delivering.capacity() > kKeptAnnouncementCapacity) {
        std::vector<StatusAnnouncements::Announcement>().swap(announcements.delivering);
    }
}
