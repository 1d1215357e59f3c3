#include <ZMChatRoom/ZMChatRoomClient+Internal.h>

#include <ZMChatRoom/Utility/ZMChatRoomUtil.h>
#include <ZMChatRoom/ZMChatRoomListenerManager.h>

// What the module does with the core's two KV signals: a room's first
// synchronisation (its flag is set, the filter and the KV observers are told,
// and every entry is read once and delivered as one update) and every later
// change (filtered, then delivered to each KV observer). Both run directly on
// the core's callback thread, without a hop to another queue: the filter and
// the KV observers are called there, synchronously, outside every lock.

using namespace zm_client;

namespace {

// The KV observers registered now, kept alive for one delivery.
using KVObservers = ZMLiveObservers<ZMChatRoomKVStatusChangeDelegate>;

ZMObserverSnapshot<ZMChatRoomKVStatusChangeDelegate> kvObservers() {
    return ZMChatRoomListenerManager::sharedManager().chatRoomKVStatusChangeDelegateSnapshot();
}

// The delivery line's JSON text of one event's entries, rendered for the
// first observer that receives them and reused for the others (it is the
// same text). An empty text is no text: rendering failed or found nothing to
// write, so it is rendered again each time, as often as it was asked for,
// with whatever lines the rendering writes each time.
class DeliveryText {
public:
    explicit DeliveryText(const ZMValue& entries) : entries_(entries) {}
    const std::string& text() {
        if (text_.empty()) text_ = ZMChatRoomUtil::stringFromDict(entries_);
        return text_;
    }

private:
    const ZMValue& entries_;
    std::string text_;
};

}  // namespace

void ZMChatRoomClient::chatRoomKVStatusFirstChange(const std::string& chatroomId) {
    // Read once and kept alive until the first full list has been delivered.
    std::shared_ptr<ZMChatRoomKVStatusFilterDelegate> filter = zmKVStatusFilterDelegate();
    if (filter && ZMDelegateImplements(*filter, &ZMChatRoomKVStatusFilterDelegate::chatRoomKVStatusDidSync)) {
        filter->chatRoomKVStatusDidSync(chatroomId);
    }
    logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_L_SYNC_CHATROOM_KV_O, "room_id:%@", chatroomId);
    for (const auto& observer : KVObservers(kvObservers())) {
        if (ZMDelegateImplements(*observer, &ZMChatRoomKVStatusChangeDelegate::chatRoomKVDidSync)) {
            observer->chatRoomKVDidSync(chatroomId);
        }
    }

    // The room is synchronised now, so the full read asks the core's local
    // copy; it writes its own lines and applies its own filter first. Its
    // errors are dropped: there is no application callback to tell.
    getAllChatRoomEntries(
        chatroomId,
        [filter, chatroomId](const ZMValue& allEntries) {
            ZMValue storage;
            const ZMValue& entries =
                filteredEntries(filter.get(), &ZMChatRoomKVStatusFilterDelegate::chatRoomKVUpdateFilter,
                         ZM_L_UPDATE_CHATROOM_FILTER_KV_O, chatroomId, allEntries, storage);
            // Written even for no entries, with the dictionary as it is (not
            // its pretty JSON text as in the change delivery).
            logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_L_UPDATE_CHATROOM_KV_O,
                           "room_id:%@,count:%@,kv:%@", chatroomId, entryCount(entries), entries);
            if (entryCount(entries) == 0) return;
            for (const auto& observer : KVObservers(kvObservers())) {
                if (ZMDelegateImplements(*observer, &ZMChatRoomKVStatusChangeDelegate::chatRoomKVDidUpdate)) {
                    observer->chatRoomKVDidUpdate(chatroomId, entries);
                }
            }
        },
        [](int32_t /*code*/) {});
}

void ZMChatRoomClient::kvChangeBlock(const std::string& chatroomId, const ZMValue& updateEntries,
                                     const ZMValue& removeEntries) {
    // The filter is read afresh for each side; the update side goes first.
    ZMValue updateStorage;
    const ZMValue& updated =
        filteredEntries(zmKVStatusFilterDelegate().get(), &ZMChatRoomKVStatusFilterDelegate::chatRoomKVUpdateFilter,
                 ZM_L_UPDATE_CHATROOM_FILTER_KV_O, chatroomId, updateEntries, updateStorage);
    ZMValue removeStorage;
    const ZMValue& removed =
        filteredEntries(zmKVStatusFilterDelegate().get(), &ZMChatRoomKVStatusFilterDelegate::chatRoomKVRemoveFilter,
                 ZM_L_REMOVE_CHATROOM_FILTER_KV_O, chatroomId, removeEntries, removeStorage);

    // Each observer hears its update, then its removal, before the next
    // observer; a delivery line is written for each observer that receives
    // the event. Every observer receives the same dictionary object.
    const size_t updateCount = entryCount(updated);
    const size_t removeCount = entryCount(removed);
    DeliveryText updatedText(updated);
    DeliveryText removedText(removed);
    for (const auto& observer : KVObservers(kvObservers())) {
        if (updateCount > 0 && ZMDelegateImplements(*observer, &ZMChatRoomKVStatusChangeDelegate::chatRoomKVDidUpdate)) {
            logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_L_UPDATE_CHATROOM_KV_O,
                           "room_id:%@,count:%@,kv:%@", chatroomId, updateCount, updatedText.text());
            observer->chatRoomKVDidUpdate(chatroomId, updated);
        }
        if (removeCount > 0 && ZMDelegateImplements(*observer, &ZMChatRoomKVStatusChangeDelegate::chatRoomKVDidRemove)) {
            logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_L_REMOVE_CHATROOM_KV_O,
                           "room_id:%@,count:%@,kv:%@", chatroomId, removeCount, removedText.text());
            observer->chatRoomKVDidRemove(chatroomId, removed);
        }
    }
}
