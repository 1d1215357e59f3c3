#include <VemoIMLibCore/ZMCoreLogTags.h>

// Application operation (A), bind a chat room to an RTC room, result (R).
const char* const ZM_BINDCHATROOM = "A-bind_chatroom-R";
