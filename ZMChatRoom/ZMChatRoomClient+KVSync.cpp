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

std::vector<std::shared_ptr<ZMChatRoomKVStatusChangeDelegate>> kvObservers() {
    return ZMChatRoomListenerManager::sharedManager().allChatRoomKVStatusChangeDelegates();
}

}  // namespace

void ZMChatRoomClient::chatRoomKVStatusFirstChange(const std::string& chatroomId) {
    // Read once and kept alive until the first full list has been delivered.
    std::shared_ptr<ZMChatRoomKVStatusFilterDelegate> filter = zmKVStatusFilterDelegate();
    if (filter && ZMDelegateImplements(*filter, &ZMChatRoomKVStatusFilterDelegate::chatRoomKVStatusDidSync)) {
        filter->chatRoomKVStatusDidSync(chatroomId);
    }
    logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_L_SYNC_CHATROOM_KV_O, "room_id:%@", chatroomId);
    for (const auto& observer : kvObservers()) {
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
            for (const auto& observer : kvObservers()) {
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
    for (const auto& observer : kvObservers()) {
        if (updateCount > 0 && ZMDelegateImplements(*observer, &ZMChatRoomKVStatusChangeDelegate::chatRoomKVDidUpdate)) {
            logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_L_UPDATE_CHATROOM_KV_O,
                           "room_id:%@,count:%@,kv:%@", chatroomId, updateCount,
                           ZMChatRoomUtil::stringFromDict(updated));
            observer->chatRoomKVDidUpdate(chatroomId, updated);
        }
        if (removeCount > 0 && ZMDelegateImplements(*observer, &ZMChatRoomKVStatusChangeDelegate::chatRoomKVDidRemove)) {
            logger().write(ZMLogLevelOperation, ZMLogTypeOperation, ZM_L_REMOVE_CHATROOM_KV_O,
                           "room_id:%@,count:%@,kv:%@", chatroomId, removeCount,
                           ZMChatRoomUtil::stringFromDict(removed));
            observer->chatRoomKVDidRemove(chatroomId, removed);
        }
    }
}
