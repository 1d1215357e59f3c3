// Feeds arbitrary bytes, as strings and as parsed JSON values of any kind, to
// the UTF-8 check behind every length limit and to all six argument
// validators: whatever an app passes, a validator answers valid or invalid
// without crashing or throwing.
#include <cstddef>
#include <cstdint>
#include <string>

#include <CoreEmulator/ZMCoreEmulator.h>
#include <Platform/ZMUTF16.h>
#include <ZMChatRoom/ZMChatRoomClient.h>

// Reaches the client's private validators.
struct ZMChatRoomClientTestPeer {
    static void validate(const ZMValue& first, const ZMValue& second) {
        auto& client = ZMChatRoomClient::sharedChatRoomClient();
        (void)client.isValidTargetId(first);
        (void)client.isValidRtcRoomId(first);
        (void)client.isValidKey(first);
        (void)client.isValidValue(first);
        (void)client.isValidKey(first, second);
        (void)client.isValidKey(second, first);
        (void)client.isValidNotificationExtra(first);
    }
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const std::string text(reinterpret_cast<const char*>(bytes), size);
    (void)ZMUTF16::length(text);
    // The bytes whole, and split in two (a key and its value).
    const size_t half = size / 2;
    const ZMValue whole = text;
    ZMChatRoomClientTestPeer::validate(whole, ZMValue(text.substr(half)));
    ZMChatRoomClientTestPeer::validate(ZMValue(text.substr(0, half)), whole);
    // The bytes as a JSON value of any kind: numbers, arrays, dictionaries, null.
    const ZMValue parsed = ZMValue::parse(text, nullptr, false);
    if (!parsed.is_discarded()) ZMChatRoomClientTestPeer::validate(parsed, whole);
    // The validators' lines go to the emulator's logger: keep it from growing.
    ZMCoreEmulator::shared().logger().clear();
    return 0;
}
