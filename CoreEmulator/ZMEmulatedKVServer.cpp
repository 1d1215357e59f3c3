#include <CoreEmulator/ZMEmulatedKVServer.h>

#include <set>

#include <CoreEmulator/ZMEmulatedNaviDataManager.h>
#include <Platform/ZMMainQueue.h>

namespace {

// The join answers after which the user is in the room: success, and success
// through a reset of the room.
bool admitsToRoom(int32_t code) { return code == 0 || code == 33009; }

bool isJoin(std::string_view operation) {
    return operation == "joinChatroom" || operation == "joinExistingChatroom";
}

bool isKVWrite(std::string_view operation) {
    return operation == "setChatroomStatus" || operation == "removeChatRoomStatus" ||
           operation == "setChatRoomEntries" || operation == "removeChatRoomEntries";
}

bool isKVRead(std::string_view operation) {
    return operation == "getChatRoomEntry" || operation == "getChatRoomEntriesByBatch" ||
           operation == "getAllChatRoomEntries";
}

// A recorded argument; null when the request has none of that name.
const ZMValue& argument(const ZMCoreRequest& request, const char* name) {
    static const ZMValue kAbsent;
    auto found = request.arguments.find(name);
    return found == request.arguments.end() ? kAbsent : *found;
}

std::string text(const ZMValue& value) { return value.is_string() ? value.get<std::string>() : std::string(); }

std::string roomOf(const ZMCoreRequest& request) {
    const ZMValue& room = argument(request, "chatroomId");
    return room.is_string() ? room.get<std::string>() : std::string();
}

bool flag(const ZMCoreRequest& request, const char* name) {
    const ZMValue& value = argument(request, name);
    return value.is_boolean() && value.get<bool>();
}

// The keys of a key array, sorted and once each; what is not a string is
// no key and is left out.
std::set<std::string> keysOf(const ZMValue& keys) {
    std::set<std::string> result;
    if (!keys.is_array()) return result;
    for (const auto& key : keys) {
        if (key.is_string()) result.insert(key.get<std::string>());
    }
    return result;
}

// The KV switch of the navigation data as the module would read it now; no
// navigation data reads as off.
bool isKVStorageEnabled() {
    auto navi = ZMEmulatedNaviDataManager::shared().naviData();
    return navi && navi->isChatroomKVStorageEnabled();
}

}  // namespace

ZMEmulatedKVServer::ZMEmulatedKVServer(Pushes pushes) : pushes_(std::move(pushes)) {}

ZMEmulatedKVServer::~ZMEmulatedKVServer() = default;

// ---- Hooks of the chat-room service ----------------------------------------------

ZMEmulatedKVServer::FollowUp ZMEmulatedKVServer::requestArrived(std::string_view operation,
                                                               const std::string& room) {
    if (operation != "quitChatroom") return {};
    Change removed = ZMValue::object();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!enabled_) return {};
        leaveLocked(room);
        if (auto store = stores_.find(room); store != stores_.end()) {
            for (auto entry = store->second.begin(); entry != store->second.end();) {
                if (entry->second.autoDelete && entry->second.owner == currentUserId_) {
                    removed[entry->first] = entry->second.value;
                    entry = store->second.erase(entry);
                } else {
                    ++entry;
                }
            }
        }
    }
    if (removed.empty()) return {};
    // The user has left already, but the server's last word to the leaving
    // user is the removal of its autoDelete entries, so this push is not
    // limited to members.
    return [kvChange = pushes_.kvChange, room, removed] { kvChange(room, ZMValue::object(), removed); };
}

bool ZMEmulatedKVServer::answers(std::string_view operation) { return isKVWrite(operation) || isKVRead(operation); }

std::optional<ZMEmulatedKVServer::Reply> ZMEmulatedKVServer::answer(const ZMCoreRequest& request) {
    if (!answers(request.operation) || !isEnabled()) return std::nullopt;
    return isKVWrite(request.operation) ? write(request) : read(request);
}

ZMEmulatedKVServer::FollowUp ZMEmulatedKVServer::requestAnswered(std::string_view operation,
                                                                const std::string& room,
                                                                const ZMCoreAnswer& answer) {
    if (!isJoin(operation) || !admitsToRoom(answer.code)) return {};
    std::lock_guard<std::mutex> lock(mutex_);
    if (!enabled_) return {};
    Membership& membership = memberships_[room];
    leaveLocked(room);  // a join while in the room starts a new stay
    membership.member = true;
    const uint64_t serial = membership.serial;
    switch (firstSync_) {
        case FirstSync::Never:
            return {};
        case FirstSync::Immediately:
            return [this, room, serial] { firstSyncDue(room, serial); };
        case FirstSync::AfterDelay:
            break;
    }
    return [this, room, serial, delay = firstSyncDelay_] {
        std::lock_guard<std::mutex> lock(mutex_);
        Membership& stay = memberships_[room];
        if (!enabled_ || !stay.member || stay.serial != serial) return;
        // The main queue takes no lock of ours, so the timer may be made here.
        stay.firstSyncTimer = ZMMainQueue::shared().scheduledTimer(
            delay, false, [this, room, serial] { firstSyncDue(room, serial); });
    };
}

void ZMEmulatedKVServer::logout() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!enabled_) return;
    for (auto& [room, membership] : memberships_) leaveLocked(room);
    for (auto& [room, store] : stores_) {
        std::erase_if(store, [this](const auto& entry) {
            return entry.second.autoDelete && entry.second.owner == currentUserId_;
        });
    }
}

void ZMEmulatedKVServer::roomDestroyed(const std::string& chatroomId) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!enabled_) return;
    leaveLocked(chatroomId);
    stores_.erase(chatroomId);
}

// ---- Requests ----------------------------------------------------------------------

int32_t ZMEmulatedKVServer::refusalLocked(const std::string& chatroomId, bool kvEnabled) const {
    if (!kvEnabled) return kStorageDisabled;
    auto membership = memberships_.find(chatroomId);
    if (membership == memberships_.end() || !membership->second.member) return kNotInRoom;
    return 0;
}

int32_t ZMEmulatedKVServer::setEntryLocked(Store& store, const std::string& key, const ZMValue& value,
                                           bool overwrite, bool autoDelete) {
    if (auto existing = store.find(key); existing != store.end()) {
        if (existing->second.owner != currentUserId_ && !overwrite) return kOwnedByAnotherUser;
    } else if (store.size() >= capacity_) {
        return kRoomFull;  // only a new key takes room
    }
    store.insert_or_assign(key, Entry{value, currentUserId_, autoDelete});
    return 0;
}

int32_t ZMEmulatedKVServer::removeEntryLocked(Store& store, const std::string& key, bool overwrite,
                                              ZMValue& removed) {
    auto existing = store.find(key);
    if (existing == store.end()) return kNoSuchKey;
    if (existing->second.owner != currentUserId_ && !overwrite) return kOwnedByAnotherUser;
    removed[key] = existing->second.value;
    store.erase(existing);
    return 0;
}

ZMEmulatedKVServer::Reply ZMEmulatedKVServer::write(const ZMCoreRequest& request) {
    const std::string room = roomOf(request);
    const std::string& operation = request.operation;
    const bool overwrite = flag(request, "overwrite");
    const bool autoDelete = flag(request, "autoDelete");
    const bool kvEnabled = isKVStorageEnabled();
    Change update = ZMValue::object();
    Change remove = ZMValue::object();
    ZMValue failed = ZMValue::object();
    int32_t code = 0;

    std::lock_guard<std::mutex> lock(mutex_);
    const int32_t refusal = refusalLocked(room, kvEnabled);
    Store& store = stores_[room];
    if (operation == "setChatroomStatus" || operation == "removeChatRoomStatus") {
        const std::string key = text(argument(request, "key"));
        const ZMValue& value = argument(request, "value");
        const bool isSet = operation == "setChatroomStatus";
        code = refusal;
        if (code == 0) {
            code = isSet ? setEntryLocked(store, key, value, overwrite, autoDelete)
                         : removeEntryLocked(store, key, overwrite, remove);
        }
        if (code == 0 && isSet) update[key] = value;
        if (code == 0 && flag(request, "sendNotification")) {
            notifications_.push_back(ZMKVNotification{room, text(argument(request, "notificationObjectName")),
                                                      argument(request, "notificationContent")});
        }
    } else {
        // A batch: every entry is judged on its own, in key order; the
        // request fails with the first failing entry's code. A request refused
        // as a whole fails every entry, and fails even without entries.
        code = refusal;
        const bool isSet = operation == "setChatRoomEntries";
        std::set<std::string> keys;
        const ZMValue& entries = argument(request, "entries");
        if (isSet && entries.is_object()) {
            for (const auto& item : entries.items()) keys.insert(item.key());
        } else if (!isSet) {
            keys = keysOf(argument(request, "keys"));
        }
        for (const auto& key : keys) {
            int32_t entryCode = refusal;
            if (entryCode == 0) {
                entryCode = isSet ? setEntryLocked(store, key, entries.at(key), overwrite, autoDelete)
                                  : removeEntryLocked(store, key, overwrite, remove);
            }
            if (entryCode != 0) {
                failed[key] = entryCode;
                if (code == 0) code = entryCode;
            } else if (isSet) {
                update[key] = entries.at(key);
            }
        }
    }
    if (store.empty()) stores_.erase(room);
    return Reply{code == 0 ? ZMCoreAnswer::success() : ZMCoreAnswer::failure(code, std::move(failed)),
                 pushToMember(room, std::move(update), std::move(remove))};
}

ZMEmulatedKVServer::Reply ZMEmulatedKVServer::read(const ZMCoreRequest& request) {
    const std::string room = roomOf(request);
    const bool kvEnabled = isKVStorageEnabled();
    std::lock_guard<std::mutex> lock(mutex_);
    if (const int32_t refusal = refusalLocked(room, kvEnabled)) return Reply{ZMCoreAnswer::failure(refusal), {}};
    static const Store kEmpty;
    auto found = stores_.find(room);
    const Store& store = found == stores_.end() ? kEmpty : found->second;
    ZMValue result = ZMValue::object();
    if (request.operation == "getChatRoomEntry") {
        auto entry = store.find(text(argument(request, "key")));
        if (entry == store.end()) return Reply{ZMCoreAnswer::failure(kNoSuchKey), {}};
        result[entry->first] = entry->second.value;
    } else if (request.operation == "getChatRoomEntriesByBatch") {
        for (const auto& key : keysOf(argument(request, "keys"))) {
            if (auto entry = store.find(key); entry != store.end()) result[key] = entry->second.value;
        }
    } else {
        // isSync tells the core what the module has synchronised; the server's
        // answer is every entry either way.
        for (const auto& [key, entry] : store) result[key] = entry.value;
    }
    return Reply{ZMCoreAnswer::success(std::move(result)), {}};
}

// ---- Membership and pushes -----------------------------------------------------------

void ZMEmulatedKVServer::leaveLocked(const std::string& chatroomId) {
    auto found = memberships_.find(chatroomId);
    if (found == memberships_.end()) return;
    Membership& membership = found->second;
    membership.member = false;
    ++membership.serial;
    if (membership.firstSyncTimer) membership.firstSyncTimer->invalidate();
    membership.firstSyncTimer.reset();
}

ZMEmulatedKVServer::FollowUp ZMEmulatedKVServer::pushToMember(const std::string& chatroomId, Change update,
                                                             Change remove) {
    if (update.empty() && remove.empty()) return {};
    return [this, chatroomId, update = std::move(update), remove = std::move(remove)] {
        pushIfMember(chatroomId, update, remove);
    };
}

void ZMEmulatedKVServer::pushIfMember(const std::string& chatroomId, const Change& update, const Change& remove) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto membership = memberships_.find(chatroomId);
        if (!enabled_ || membership == memberships_.end() || !membership->second.member) return;
    }
    pushes_.kvChange(chatroomId, update, remove);
}

void ZMEmulatedKVServer::firstSyncDue(const std::string& chatroomId, uint64_t serial) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto membership = memberships_.find(chatroomId);
        if (!enabled_ || membership == memberships_.end() || !membership->second.member ||
            membership->second.serial != serial) {
            return;
        }
        membership->second.firstSyncTimer.reset();
    }
    pushes_.statusChange(chatroomId);
}

// ---- Control -------------------------------------------------------------------------

void ZMEmulatedKVServer::setEnabled(bool enabled) {
    std::lock_guard<std::mutex> lock(mutex_);
    enabled_ = enabled;
    if (enabled) return;
    // Switched off, it pushes nothing more: pending first synchronisations end.
    for (auto& [room, membership] : memberships_) {
        if (membership.firstSyncTimer) membership.firstSyncTimer->invalidate();
        membership.firstSyncTimer.reset();
    }
}

bool ZMEmulatedKVServer::isEnabled() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return enabled_;
}

void ZMEmulatedKVServer::setCurrentUserId(const std::string& userId) {
    std::lock_guard<std::mutex> lock(mutex_);
    currentUserId_ = userId;
}

std::string ZMEmulatedKVServer::currentUserId() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return currentUserId_;
}

void ZMEmulatedKVServer::setFirstSync(FirstSync mode, double delaySeconds) {
    std::lock_guard<std::mutex> lock(mutex_);
    firstSync_ = mode;
    firstSyncDelay_ = delaySeconds;
}

void ZMEmulatedKVServer::setRoomCapacity(size_t capacity) {
    std::lock_guard<std::mutex> lock(mutex_);
    capacity_ = capacity;
}

void ZMEmulatedKVServer::seedEntries(const std::string& chatroomId, const ZMValue& entries,
                                     const std::string& ownerUserId) {
    if (!entries.is_object() || entries.empty()) return;
    std::lock_guard<std::mutex> lock(mutex_);
    Store& store = stores_[chatroomId];
    for (const auto& item : entries.items()) {
        store.insert_or_assign(item.key(), Entry{item.value(), ownerUserId, false});
    }
}

void ZMEmulatedKVServer::changeEntries(const std::string& chatroomId, const ZMValue& entries,
                                       const std::string& ownerUserId) {
    seedEntries(chatroomId, entries, ownerUserId);
    if (entries.is_object() && !entries.empty()) pushIfMember(chatroomId, entries, ZMValue::object());
}

void ZMEmulatedKVServer::deleteEntries(const std::string& chatroomId, const ZMValue& keys) {
    Change removed = ZMValue::object();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto store = stores_.find(chatroomId);
        if (store == stores_.end()) return;
        for (const auto& key : keysOf(keys)) {
            if (auto entry = store->second.find(key); entry != store->second.end()) {
                removed[key] = entry->second.value;
                store->second.erase(entry);
            }
        }
        if (store->second.empty()) stores_.erase(store);
    }
    if (!removed.empty()) pushIfMember(chatroomId, ZMValue::object(), removed);
}

ZMValue ZMEmulatedKVServer::entries(const std::string& chatroomId) const {
    std::lock_guard<std::mutex> lock(mutex_);
    ZMValue result = ZMValue::object();
    if (auto store = stores_.find(chatroomId); store != stores_.end()) {
        for (const auto& [key, entry] : store->second) result[key] = entry.value;
    }
    return result;
}

std::optional<std::string> ZMEmulatedKVServer::entryOwner(const std::string& chatroomId,
                                                          const std::string& key) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto store = stores_.find(chatroomId);
    if (store == stores_.end()) return std::nullopt;
    auto entry = store->second.find(key);
    if (entry == store->second.end()) return std::nullopt;
    return entry->second.owner;
}

std::vector<ZMKVNotification> ZMEmulatedKVServer::notifications() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return notifications_;
}

void ZMEmulatedKVServer::clearNotifications() {
    std::lock_guard<std::mutex> lock(mutex_);
    notifications_.clear();
}

void ZMEmulatedKVServer::reset() {
    std::lock_guard<std::mutex> lock(mutex_);
    // Every stay ends rather than being forgotten: a membership keeps its
    // serial, so a follow-up still on its way from before the reset finds it
    // changed and does nothing, even after the room is joined again.
    for (auto& [room, membership] : memberships_) leaveLocked(room);
    stores_.clear();
    notifications_.clear();
    enabled_ = true;
    currentUserId_ = kDefaultUserId;
    firstSync_ = FirstSync::Immediately;
    firstSyncDelay_ = 0;
    capacity_ = kDefaultRoomCapacity;
}
