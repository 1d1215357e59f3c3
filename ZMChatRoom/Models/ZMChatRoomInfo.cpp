#include <ZMChatRoom/Models/ZMChatRoomInfo.h>

#include <VemoIMLibCore/ZMDictionaryReaders.h>

std::shared_ptr<ZMChatRoomInfo> ZMChatRoomInfo::infoWithDictionary(const std::string& targetId,
                                                                   uint64_t memberOrder, const ZMValue& reply) {
    auto info = std::make_shared<ZMChatRoomInfo>();
    info->targetId = targetId;
    info->memberOrder = memberOrder;
    info->totalMemberCount = static_cast<int32_t>(zmlib_integerForKey(reply, "totalMemberCount"));
    const ZMValue members = zmlib_arrayForKey(reply, "memberInfoArray");
    if (members.is_array() && !members.empty()) {
        std::vector<std::shared_ptr<ZMChatRoomMemberInfo>> memberInfoArray;
        memberInfoArray.reserve(members.size());
        for (const auto& member : members) {
            auto memberInfo = std::make_shared<ZMChatRoomMemberInfo>();
            memberInfo->userId = zmlib_stringForKey(member, "userId");
            memberInfo->joinTime = zmlib_longLongIntForKey(member, "joinTime");
            memberInfoArray.push_back(std::move(memberInfo));
        }
        info->memberInfoArray = std::move(memberInfoArray);
    }
    return info;
}
