#include <VemoIMLibCore/ZMUtilities.h>

#include <CoreEmulator/ZMCoreEmulator.h>

// Every byte of a legal key is an ASCII character of the key alphabet, so a
// byte outside ASCII (any multi-byte UTF-8 character, or invalid UTF-8) makes
// the key illegal without decoding it. The empty key has no illegal character
// and passes: its length is the caller's check, not this one.
bool ZMUtilities::checkChatroomKey(const std::string& key) {
    for (const unsigned char byte : key) {
        if (byte >= 0x80 || !ZMCoreEmulator::isLegalKVKeyCharacter(byte)) return false;
    }
    return true;
}
