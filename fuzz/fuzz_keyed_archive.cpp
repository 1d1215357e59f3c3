// Reads damaged keyed archives of a KV notification message: a damaged
// archive must give an empty reader, never a crash. Random bytes seldom get
// past an archive's header, so half of the inputs start from a valid archive
// (written from the input's own text) and damage it where the input says.
#include <cstddef>
#include <cstdint>
#include <string>

#include <ZMChatRoom/Messages/ZMChatroomKVNotificationMessage.h>

namespace {

void readBack(const ZMData& bytes) {
    const ZMKeyedUnarchiver coder(bytes);
    ZMChatroomKVNotificationMessage message(coder);
    ZMKeyedArchiver again;
    message.encodeWithCoder(again);
    (void)again.encodedData();
}

ZMData damagedArchive(const uint8_t* bytes, size_t size) {
    const size_t half = size / 2;
    const std::string text(reinterpret_cast<const char*>(bytes), half);
    auto message = ZMChatroomKVNotificationMessage::notificationWithType(static_cast<int64_t>(size), text,
                                                                       text.substr(0, half / 2), text);
    ZMKeyedArchiver coder;
    message->encodeWithCoder(coder);
    ZMData archive = coder.encodedData();
    // The second half of the input is a list of (position, new byte) edits;
    // an odd leftover byte cuts the archive short at that position.
    for (size_t i = half; i + 1 < size; i += 2) {
        if (archive.empty()) break;
        archive[bytes[i] % archive.size()] = bytes[i + 1];
    }
    if ((size - half) % 2 == 1 && !archive.empty()) archive.resize(bytes[size - 1] % archive.size());
    return archive;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    if (size == 0) return 0;
    if (bytes[0] % 2 == 0) {
        readBack(ZMData(bytes + 1, bytes + size));
    } else {
        readBack(damagedArchive(bytes + 1, size - 1));
    }
    return 0;
}
