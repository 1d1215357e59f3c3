#include <ZMChatRoom/ZMChatRoomLogCommonTag.h>

const char* const ZM_A_JION_CHATROOM_T = "A-join_chatroom-T";
const char* const ZM_A_JION_CHATROOM_R = "A-join_chatroom-R";
const char* const ZM_A_QUIT_CHATROOM_T = "A-quit_chatroom-T";
const char* const ZM_A_QUIT_CHATROOM_R = "A-quit_chatroom-R";
const char* const ZM_A_SET_CHATROOM_KV_T = "A-set_chatroom_kv-T";
const char* const ZM_A_SET_CHATROOM_KV_R = "A-set_chatroom_kv-R";
const char* const ZM_A_SET_CHATROOM_KVS_R = "A-set_chatroom_kvs-R";
const char* const ZM_A_GET_CHATROOM_KV_T = "A-get_chatroom_kv-T";
const char* const ZM_A_GET_CHATROOM_KV_R = "A-get_chatroom_kv-R";
const char* const ZM_A_GET_CHATROOM_BATCH_KV_T = "A-get_chatroom_batch_kv-T";
const char* const ZM_A_GET_CHATROOM_BATCH_KV_R = "A-get_chatroom_batch_kv-R";
const char* const ZM_A_GET_CHATROOM_ALL_KV_T = "A-get_chatroom_all_kv-T";
const char* const ZM_A_GET_CHATROOM_ALL_KV_R = "A-get_chatroom_all_kv-R";
const char* const ZM_A_REMOVE_CHATROOM_KV_T = "A-remove_chatroom_kv-T";
const char* const ZM_A_REMOVE_CHATROOM_KV_R = "A-remove_chatroom_kv-R";
const char* const ZM_A_REMOVE_CHATROOM_KVS_T = "A-remove_chatroom_kvs-T";
const char* const ZM_A_REMOVE_CHATROOM_KVS_R = "A-remove_chatroom_kvs-R";
const char* const ZM_L_REJION_CHATROOM_T = "L-rejoin_chatroom-T";
const char* const ZM_L_REJION_CHATROOM_R = "L-rejoin_chatroom-R";
const char* const ZM_L_SYNC_CHATROOM_KV_O = "L-sync_chatroom_kv-O";
const char* const ZM_L_UPDATE_CHATROOM_FILTER_KV_O = "L-update_chatroom_filter_kv-O";
const char* const ZM_L_REMOVE_CHATROOM_FILTER_KV_O = "L-remove_chatroom_filter_kv-O";
const char* const ZM_L_UPDATE_CHATROOM_KV_O = "L-update_chatroom_kv-O";
const char* const ZM_L_REMOVE_CHATROOM_KV_O = "L-remove_chatroom_kv-O";
const char* const ZM_L_GET_CHATROOM_FILTER_ALL_KV_O = "L-get_chatroom_filter_all_kv-O";
const char* const ZM_L_DETECT_CHATROOM_S = "L-detect_chatroom-S";
