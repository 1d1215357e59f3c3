// The operation tags as they appear in log lines.

#include <gtest/gtest.h>

#include <set>
#include <string>

#include <ZMChatRoom/ZMChatRoomLogCommonTag.h>

namespace {

TEST(ChatRoomLogCommonTagTest, EveryConstantHasItsText) {
    struct Tag {
        const char* constant;
        const char* text;
    };
    const Tag tags[] = {
        {ZM_A_JION_CHATROOM_T, "A-join_chatroom-T"},
        {ZM_A_JION_CHATROOM_R, "A-join_chatroom-R"},
        {ZM_A_QUIT_CHATROOM_T, "A-quit_chatroom-T"},
        {ZM_A_QUIT_CHATROOM_R, "A-quit_chatroom-R"},
        {ZM_A_SET_CHATROOM_KV_T, "A-set_chatroom_kv-T"},
        {ZM_A_SET_CHATROOM_KV_R, "A-set_chatroom_kv-R"},
        {ZM_A_SET_CHATROOM_KVS_R, "A-set_chatroom_kvs-R"},
        {ZM_A_GET_CHATROOM_KV_T, "A-get_chatroom_kv-T"},
        {ZM_A_GET_CHATROOM_KV_R, "A-get_chatroom_kv-R"},
        {ZM_A_GET_CHATROOM_BATCH_KV_T, "A-get_chatroom_batch_kv-T"},
        {ZM_A_GET_CHATROOM_BATCH_KV_R, "A-get_chatroom_batch_kv-R"},
        {ZM_A_GET_CHATROOM_ALL_KV_T, "A-get_chatroom_all_kv-T"},
        {ZM_A_GET_CHATROOM_ALL_KV_R, "A-get_chatroom_all_kv-R"},
        {ZM_A_REMOVE_CHATROOM_KV_T, "A-remove_chatroom_kv-T"},
        {ZM_A_REMOVE_CHATROOM_KV_R, "A-remove_chatroom_kv-R"},
        {ZM_A_REMOVE_CHATROOM_KVS_T, "A-remove_chatroom_kvs-T"},
        {ZM_A_REMOVE_CHATROOM_KVS_R, "A-remove_chatroom_kvs-R"},
        {ZM_L_REJION_CHATROOM_T, "L-rejoin_chatroom-T"},
        {ZM_L_REJION_CHATROOM_R, "L-rejoin_chatroom-R"},
        {ZM_L_SYNC_CHATROOM_KV_O, "L-sync_chatroom_kv-O"},
        {ZM_L_UPDATE_CHATROOM_FILTER_KV_O, "L-update_chatroom_filter_kv-O"},
        {ZM_L_REMOVE_CHATROOM_FILTER_KV_O, "L-remove_chatroom_filter_kv-O"},
        {ZM_L_UPDATE_CHATROOM_KV_O, "L-update_chatroom_kv-O"},
        {ZM_L_REMOVE_CHATROOM_KV_O, "L-remove_chatroom_kv-O"},
        {ZM_L_GET_CHATROOM_FILTER_ALL_KV_O, "L-get_chatroom_filter_all_kv-O"},
        {ZM_L_DETECT_CHATROOM_S, "L-detect_chatroom-S"},
    };
    std::set<std::string> seen;
    for (const Tag& tag : tags) {
        ASSERT_NE(tag.constant, nullptr) << tag.text;
        EXPECT_STREQ(tag.constant, tag.text);
        EXPECT_TRUE(seen.insert(tag.constant).second) << "duplicate tag " << tag.constant;
    }
}

TEST(ChatRoomLogCommonTagTest, DiagnosticTagIsTheSourceFileBaseName) {
    EXPECT_EQ(ZMSourceFileBaseName("/a/b/ZMChatRoomUtil.cpp"), "ZMChatRoomUtil.cpp");
    EXPECT_EQ(ZMSourceFileBaseName("ZMChatRoomClient.cpp"), "ZMChatRoomClient.cpp");
    EXPECT_EQ(ZM_FILE_TAG, "ZMChatRoomLogCommonTagTests.cpp");
}

}  // namespace
