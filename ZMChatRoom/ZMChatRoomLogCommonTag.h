#pragma once

#include <cstdint>
#include <string_view>

// The tags of the module's operation lines. First letter: A for an operation
// the application calls, L for a flow the library runs by itself. Last
// letter: T start, R result, O observed server change, S network detection.
// The constant names read JION/REJION while the texts read join/rejoin.
class ZMChatRoomLogCommonTag {};

extern const char* const ZM_A_JION_CHATROOM_T;
extern const char* const ZM_A_JION_CHATROOM_R;
extern const char* const ZM_A_QUIT_CHATROOM_T;
extern const char* const ZM_A_QUIT_CHATROOM_R;
extern const char* const ZM_A_SET_CHATROOM_KV_T;
extern const char* const ZM_A_SET_CHATROOM_KV_R;
extern const char* const ZM_A_SET_CHATROOM_KVS_R;
extern const char* const ZM_A_GET_CHATROOM_KV_T;
extern const char* const ZM_A_GET_CHATROOM_KV_R;
extern const char* const ZM_A_GET_CHATROOM_BATCH_KV_T;
extern const char* const ZM_A_GET_CHATROOM_BATCH_KV_R;
extern const char* const ZM_A_GET_CHATROOM_ALL_KV_T;
extern const char* const ZM_A_GET_CHATROOM_ALL_KV_R;
extern const char* const ZM_A_REMOVE_CHATROOM_KV_T;
extern const char* const ZM_A_REMOVE_CHATROOM_KV_R;
extern const char* const ZM_A_REMOVE_CHATROOM_KVS_T;
extern const char* const ZM_A_REMOVE_CHATROOM_KVS_R;
extern const char* const ZM_L_REJION_CHATROOM_T;
extern const char* const ZM_L_REJION_CHATROOM_R;
extern const char* const ZM_L_SYNC_CHATROOM_KV_O;
extern const char* const ZM_L_UPDATE_CHATROOM_FILTER_KV_O;
extern const char* const ZM_L_REMOVE_CHATROOM_FILTER_KV_O;
extern const char* const ZM_L_UPDATE_CHATROOM_KV_O;
extern const char* const ZM_L_REMOVE_CHATROOM_KV_O;
extern const char* const ZM_L_GET_CHATROOM_FILTER_ALL_KV_O;
extern const char* const ZM_L_DETECT_CHATROOM_S;

// Levels of the module's lines.
enum : int32_t {
    ZMLogLevelFailure = 2,     // failures after an answer, parameter errors, network detection
    ZMLogLevelException = 3,   // exceptions caught while writing JSON text
    ZMLogLevelOperation = 4,   // starts, successes, refusals before sending, life cycle
    ZMLogLevelDiagnostic = 6,  // KV store and room-id diagnostics
};

// Types of the module's lines.
enum : int32_t {
    ZMLogTypeOperation = 1,    // lines with a tag of the table above
    ZMLogTypeRejoinStart = 64, // only the "L-rejoin_chatroom-T" line
    ZMLogTypeDiagnostic = 1024 // lines tagged with the writing source file's name
};

// The base name of a source file path: everything after the last '/'.
constexpr std::string_view ZMSourceFileBaseName(std::string_view path) {
    auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// The tag of a diagnostic line: the writing source file's base name.
#define ZM_FILE_TAG (ZMSourceFileBaseName(__FILE__))
