#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// Whether an observer implements (overrides) a callback of its interface.
//
// Every observer interface of the module declares its callbacks virtual with a
// default that does nothing, so an application overrides only what it needs
// and writes nothing else. Some deliveries depend on whether a callback is
// implemented, before calling it: a KV delivery line is written per observer
// that implements the callback, a filter changes results and writes lines only
// for what it implements, an event model is built only for an observer that
// will receive it. This function answers that question for any interface:
//
//     if (ZMDelegateImplements(*observer, &ZMChatRoomKVStatusChangeDelegate::chatRoomKVDidUpdate)) ...
//
// It compares the function the observer's virtual table holds for the callback
// with the one the interface itself holds: they differ exactly when the
// observer's class (or a class between it and the interface) overrides the
// callback. It reads the virtual table as the Itanium C++ ABI lays it out,
// which GCC and Clang use on every platform the module targets (Linux,
// Android, iOS, macOS), including the ARM variant of member-function pointers.
// Elsewhere every callback counts as implemented.
//
// The interface must be a concrete class (callbacks with default bodies) whose
// default bodies are defined out of line in the module, so that every virtual
// table in the process refers to the same default function, whether the
// observer's class is compiled into the application or a shared library.

namespace zm_delegate_detail {

// The two words of a pointer to member function in the Itanium C++ ABI.
struct MemberFunctionPointer {
    std::uintptr_t ptr;
    std::ptrdiff_t adj;
};

// The function that object's virtual table holds for a virtual callback, or
// null when the callback is not virtual.
template <class Interface, class Callback>
const void* virtualTarget(const Interface& object, Callback Interface::*callback) {
    static_assert(sizeof(callback) == sizeof(MemberFunctionPointer), "not an Itanium member-function pointer");
    MemberFunctionPointer pointer;
    std::memcpy(&pointer, &callback, sizeof pointer);
#if defined(__arm__) || defined(__aarch64__) || defined(__mips__)
    // ARM variant: the virtual flag is the low bit of adj, ptr is the slot's offset.
    if ((pointer.adj & 1) == 0) return nullptr;
    const std::uintptr_t slotOffset = pointer.ptr;
    const std::ptrdiff_t thisAdjustment = pointer.adj >> 1;
#else
    // Generic variant: ptr is 1 + the slot's offset for a virtual function.
    if ((pointer.ptr & 1) == 0) return nullptr;
    const std::uintptr_t slotOffset = pointer.ptr - 1;
    const std::ptrdiff_t thisAdjustment = pointer.adj;
#endif
    // The virtual-table pointer is the first word of the (adjusted) object.
    const char* self = reinterpret_cast<const char*>(&object) + thisAdjustment;
    const char* table = nullptr;
    std::memcpy(&table, self, sizeof table);
    const void* target = nullptr;
    std::memcpy(&target, table + slotOffset, sizeof target);
    return target;
}

}  // namespace zm_delegate_detail

template <class Interface, class Callback>
bool ZMDelegateImplements(const Interface& delegate, Callback Interface::*callback) {
#if defined(__GNUC__) || defined(__clang__)
    // A plain instance of the interface holds every default.
    static const Interface defaults{};
    return zm_delegate_detail::virtualTarget(delegate, callback) !=
           zm_delegate_detail::virtualTarget(defaults, callback);
#else
    (void)delegate;
    (void)callback;
    return true;
#endif
}
