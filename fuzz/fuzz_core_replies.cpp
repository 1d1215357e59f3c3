// Feeds arbitrary bytes, parsed as the dictionaries the core answers with, to
// the readers that turn the core's replies into the app's records: the join
// response, the room info, and the core's dictionary readers they use, and
// renders them as log text. A malformed reply must read as missing values,
// never crash or throw.
#include <cstddef>
#include <cstdint>
#include <string>

#include <VemoIMLibCore/ZMDictionaryReaders.h>
#include <ZMChatRoom/Models/ZMChatRoomInfo.h>
#include <ZMChatRoom/Utility/ZMChatRoomUtil.h>
#include <ZMChatRoom/ZMJoinChatRoomResponse.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const std::string text(reinterpret_cast<const char*>(bytes), size);
    ZMValue reply = ZMValue::parse(text, nullptr, false);
    if (reply.is_discarded()) reply = text;  // not JSON: a reply of the wrong kind

    (void)ZMJoinChatRoomResponse::responseWithDictionary(reply);
    (void)ZMChatRoomInfo::infoWithDictionary("room", 1, reply);
    for (const char* key : {"totalMemberCount", "memberInfoArray", "userId", "joinTime", "member_count_"}) {
        (void)zmlib_stringForKey(reply, key);
        (void)zmlib_mix_stringForKey(reply, key);
        (void)zmlib_arrayForKey(reply, key);
        (void)zmlib_dictionaryForKey(reply, key);
        (void)zmlib_integerForKey(reply, key);
        (void)zmlib_unsignedIntegerForKey(reply, key);
        (void)zmlib_longLongIntForKey(reply, key);
        (void)zmlib_boolForKey(reply, key);
    }
    (void)ZMChatRoomUtil::stringFromDict(reply);
    (void)ZMChatRoomUtil::stringFromArray(reply);
    return 0;
}
