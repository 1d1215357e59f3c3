#include <ZMChatRoom/Messages/ZMChatRoomMemberActionMessage.h>

#include <algorithm>

#include <VemoIMLibCore/ZMDictionaryReaders.h>
#include <ZMChatRoom/Messages/ZMChatRoomMessageCodec.h>

namespace {

const std::string kUserListKey = "userList";
const std::string kUserIdKey = "userId";
const std::string kStatusKey = "status";
const std::string kMemberCountKey = "memberCount";

// The array under key of a parsed payload, read where it is (what
// zmlib_arrayForKey answers, without copying it): null when there is none.
const ZMValue* arrayInPlace(const ZMValue& dict, const std::string& key) {
    if (!dict.is_object()) return nullptr;
    const auto found = dict.find(key);
    return found != dict.end() && found->is_array() ? &*found : nullptr;
}

// One action per object of the user list, in order (anything else in the
// list describes no member and is skipped). The actions share allocations of
// up to kActionsPerBlock actions each: each action is a shared pointer into
// its block, which lives while any of its actions does. Blocks stay small
// enough for the allocator's fast size classes.
constexpr size_t kActionsPerBlock = 16;

std::vector<std::shared_ptr<ZMChatRoomMemberAction>> actionsOfUsers(const ZMValue& users) {
    size_t count = 0;
    for (const ZMValue& user : users) count += user.is_object() ? 1 : 0;
    std::vector<std::shared_ptr<ZMChatRoomMemberAction>> actions;
    if (count == 0) return actions;
    actions.reserve(count);
    std::shared_ptr<ZMChatRoomMemberAction[]> block;
    size_t next = kActionsPerBlock;
    for (const ZMValue& user : users) {
        if (!user.is_object()) continue;
        if (next == kActionsPerBlock) {
            block = std::make_shared<ZMChatRoomMemberAction[]>(std::min(kActionsPerBlock, count - actions.size()));
            next = 0;
        }
        ZMChatRoomMemberAction& action = block[next++];
        action.memberId = zmlib_stringForKey(user, kUserIdKey);
        action.action = zmlib_integerForKey(user, kStatusKey);
        actions.emplace_back(block, &action);
    }
    return actions;
}

}  // namespace

void ZMChatRoomMemberActionMessage::decodeWithData(const ZMData& data) {
    // Not a JSON object: the bytes are kept raw and the fields stay as they are.
    std::optional<ZMValue> dict = ZMChatRoomMessageCodec::decodedPayload(*this, data);
    if (!dict) return;

    // The user list is read in place from the parsed payload.
    const ZMValue* users = arrayInPlace(*dict, kUserListKey);
    userList = users ? actionsOfUsers(*users) : std::vector<std::shared_ptr<ZMChatRoomMemberAction>>{};
    memberCount = zmlib_unsignedIntegerForKey(*dict, kMemberCountKey);
}

std::optional<ZMData> ZMChatRoomMemberActionMessage::encode() const {
    ZMValue dict = encodeBaseData();

    // Actions without a member id would be meaningless to the receivers, so
    // they are left out of the payload (decoding keeps them).
    ZMValue users = ZMValue::array();
    for (const auto& action : userList) {
        if (!action || !action->memberId || action->memberId->empty()) continue;
        users.push_back(ZMValue{{"userId", *action->memberId}, {"status", action->action}});
    }
    zmlib_setObject(dict, users, "userList");
    zmlib_setObject(dict, ZMValue(memberCount), "memberCount");

    return ZMChatRoomMessageCodec::compactPayload(dict);
}
