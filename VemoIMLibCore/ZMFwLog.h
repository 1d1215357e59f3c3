#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include <VemoIMLibCore/ZMValue.h>

// One argument of a log line as the logger receives it: a view of the
// caller's argument, never a copy. Text is seen through its bytes, a ZMValue
// through its address; numbers and booleans are held as they are. A view
// lives as long as the write() call that made it, so an implementation that
// keeps a line renders it before it returns.
//
// Each kind renders as ZMValue of the caller's argument would: std::string,
// std::string_view and const char* as a string (a null const char* as an
// absent value), bool as a boolean, signed integers (and enumerations with a
// signed underlying type) as an integer, unsigned ones as an unsigned integer,
// float and double as a number, ZMValue as itself, nullptr as absent. Other
// argument types do not compile, so that nothing is converted into a
// temporary that the view would outlive.
class ZMFwLogArgument {
public:
    enum class Kind : uint8_t { Null, String, Signed, Unsigned, Boolean, Double, Value };

    template <class T>
    static constexpr bool isSupported =
        std::is_same_v<T, bool> || std::is_same_v<T, ZMValue> || std::is_same_v<T, std::string> ||
        std::is_same_v<T, std::string_view> || std::is_same_v<T, const char*> || std::is_same_v<T, char*> ||
        std::is_same_v<T, std::nullptr_t> || std::is_floating_point_v<T> || std::is_enum_v<T> ||
        (std::is_array_v<T> && std::is_same_v<std::remove_cv_t<std::remove_extent_t<T>>, char>) ||
        // Plain char (a character or a byte?) is left out; signed char and
        // unsigned char are small integers, as ZMValue takes them.
        (std::is_integral_v<T> && !std::is_same_v<T, char> && !std::is_same_v<T, wchar_t> &&
         !std::is_same_v<T, char8_t> && !std::is_same_v<T, char16_t> && !std::is_same_v<T, char32_t>);

    template <class T>
        requires isSupported<T>
    constexpr ZMFwLogArgument(const T& argument) noexcept {  // NOLINT: implicit on purpose
        if constexpr (std::is_same_v<T, bool>) {
            kind_ = Kind::Boolean;
            boolean_ = argument;
        } else if constexpr (std::is_same_v<T, ZMValue>) {
            kind_ = Kind::Value;
            value_ = &argument;
        } else if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, std::string_view>) {
            setText(argument.data(), argument.size());
        } else if constexpr (std::is_array_v<T>) {
            setText(argument, std::char_traits<char>::length(argument));
        } else if constexpr (std::is_same_v<T, const char*> || std::is_same_v<T, char*>) {
            if (argument == nullptr) {
                kind_ = Kind::Null;
            } else {
                setText(argument, std::char_traits<char>::length(argument));
            }
        } else if constexpr (std::is_same_v<T, std::nullptr_t>) {
            kind_ = Kind::Null;
        } else if constexpr (std::is_floating_point_v<T>) {
            kind_ = Kind::Double;
            double_ = static_cast<double>(argument);
        } else if constexpr (std::is_enum_v<T>) {
            setInteger(static_cast<std::underlying_type_t<T>>(argument));
        } else {
            setInteger(argument);
        }
    }

    constexpr Kind kind() const noexcept { return kind_; }
    // The value of the argument's kind; reading another kind's value is an error.
    constexpr std::string_view text() const noexcept { return {text_.data, text_.size}; }
    constexpr int64_t signedValue() const noexcept { return signed_; }
    constexpr uint64_t unsignedValue() const noexcept { return unsigned_; }
    constexpr bool booleanValue() const noexcept { return boolean_; }
    constexpr double doubleValue() const noexcept { return double_; }
    constexpr const ZMValue& value() const noexcept { return *value_; }

private:
    constexpr void setText(const char* data, size_t size) noexcept {
        kind_ = Kind::String;
        text_ = {data, size};
    }
    template <class I>
    constexpr void setInteger(I number) noexcept {
        if constexpr (std::is_same_v<I, bool>) {
            kind_ = Kind::Boolean;
            boolean_ = number;
        } else if constexpr (std::is_signed_v<I>) {
            kind_ = Kind::Signed;
            signed_ = static_cast<int64_t>(number);
        } else {
            kind_ = Kind::Unsigned;
            unsigned_ = static_cast<uint64_t>(number);
        }
    }

    struct Text {
        const char* data;
        size_t size;
    };
    Kind kind_ = Kind::Null;
    union {
        Text text_;
        int64_t signed_;
        uint64_t unsigned_;
        bool boolean_;
        double double_;
        const ZMValue* value_ = nullptr;
    };
};

// The arguments of one line, in order.
using ZMFwLogArguments = std::span<const ZMFwLogArgument>;

// The core library's logger. Every line of the chat-room module goes through
// one call of write(level, type, tag, format, args...).
//
// The format uses printf-like placeholders, each consuming one argument in
// order: "%@" renders a string as it is, a boolean as 1/0, a number in
// decimal, an absent (null) value as "(null)", an array or dictionary as
// compact JSON; "%d", "%lu" and "%lld" render a number in decimal. "%%" is a
// literal percent sign. Where the line goes and how levels and types filter it
// is the logger's affair, and so is whether the format is rendered at all.
// Concurrent calls from any thread are safe.
class ZMFwLog {
public:
    static ZMFwLog& getInstance();

    // Hands the arguments to writeLine as views in an array on the stack: no
    // allocation and no copy of any argument, whatever its size or depth.
    template <class... Args>
    void write(int32_t level, int32_t type, std::string_view tag, std::string_view format, const Args&... args) {
        if constexpr (sizeof...(Args) == 0) {
            writeLine(level, type, tag, format, ZMFwLogArguments());
        } else {
            const ZMFwLogArgument arguments[] = {ZMFwLogArgument(args)...};
            writeLine(level, type, tag, format, ZMFwLogArguments(arguments));
        }
    }

    // The one entry point an implementation provides. The arguments (and the
    // values they view) are valid only during the call.
    virtual void writeLine(int32_t level, int32_t type, std::string_view tag, std::string_view format,
                           ZMFwLogArguments args) = 0;

protected:
    ZMFwLog() = default;
    virtual ~ZMFwLog() = default;
};
