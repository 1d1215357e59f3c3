#pragma once

#include <string>

class ZMUtilities {
public:
    // True when every character of a chat-room KV key is legal. The set of
    // legal characters is the core library's rule.
    static bool checkChatroomKey(const std::string& key);
};
