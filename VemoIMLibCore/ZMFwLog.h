#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include <VemoIMLibCore/ZMValue.h>

// The core library's logger. Every line of the chat-room module goes through
// one call of write(level, type, tag, format, args...).
//
// The format uses printf-like placeholders, each consuming one argument in
// order: "%@" renders a string as it is, a boolean as 1/0, a number in
// decimal, an absent (null) value as "(null)", an array or dictionary as
// compact JSON; "%d", "%lu" and "%lld" render a number in decimal. "%%" is a
// literal percent sign. Where the line goes and how levels and types filter it
// is the logger's affair. Concurrent calls from any thread are safe.
class ZMFwLog {
public:
    static ZMFwLog& getInstance();

    template <class... Args>
    void write(int32_t level, int32_t type, std::string_view tag, std::string_view format,
               const Args&... args) {
        writeLine(level, type, tag, format, std::vector<ZMValue>{ZMValue(args)...});
    }

    // The one entry point an implementation provides; write() packs its
    // arguments into values and calls it.
    virtual void writeLine(int32_t level, int32_t type, std::string_view tag,
                           std::string_view format, const std::vector<ZMValue>& args) = 0;

protected:
    ZMFwLog() = default;
    virtual ~ZMFwLog() = default;
};
