#pragma once

#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

// Call stacks as the hooks see them. Nothing here allocates once the unwinder is warm.

namespace wpp_torture {

constexpr std::size_t kMostFrames = 48;

/// One return address: the file of its module and the offset in it.
struct Frame {
    char module[64];
    std::uint64_t offset;
};

/// The return addresses from the hook's caller on.
struct Stack {
    std::array<void*, kMostFrames> addresses;
    std::size_t first = 0;
    std::size_t end = 0;
};

/// What calls a hook; the frames before it are the hook's own.
#define WPP_CALLER __builtin_return_address(0)

inline bool locate(void* address, dl_find_object& found) {
    return _dl_find_object(address, &found) == 0;
}

inline std::uint64_t offsetOf(void* address, const dl_find_object& found) {
    return reinterpret_cast<std::uintptr_t>(address) - found.dlfo_link_map->l_addr;
}

/// The file name of a module, empty for the program itself.
inline const char* moduleOf(const dl_find_object& found) {
    const char* const path = found.dlfo_link_map->l_name;
    const char* const slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

inline Stack takeStack(void* caller) {
    Stack stack;
    stack.end =
        static_cast<std::size_t>(backtrace(stack.addresses.data(), static_cast<int>(stack.addresses.size())));
    while (stack.first < stack.end && stack.addresses[stack.first] != caller) {
        ++stack.first;
    }
    return stack;
}

inline std::uint64_t mixIn(std::uint64_t hash, std::uint64_t value) {
    constexpr std::uint64_t kPrime = 0x100000001b3U;
    return (hash ^ value) * kPrime;
}

/// The same in every process of the program, wherever its modules lie. Never 0.
inline std::uint64_t hashOf(const Stack& stack) {
    constexpr std::uint64_t kOffsetBasis = 0xcbf29ce484222325U;
    std::uint64_t hash = kOffsetBasis;
    for (std::size_t i = stack.first; i < stack.end; ++i) {
        dl_find_object found;
        if (locate(stack.addresses[i], found)) {
            const auto length =
                static_cast<char*>(found.dlfo_map_end) - static_cast<char*>(found.dlfo_map_start);
            hash =
                mixIn(mixIn(hash, offsetOf(stack.addresses[i], found)), static_cast<std::uint64_t>(length));
        }
    }
    return hash | 1U;
}

/// Writes the stack down for whoever has another process's memory before him. @return the number of frames.
inline std::uint32_t describeStack(const Stack& stack, Frame* frames) {
    std::uint32_t written = 0;
    for (std::size_t i = stack.first; i < stack.end && written < kMostFrames; ++i) {
        dl_find_object found;
        if (!locate(stack.addresses[i], found)) {
            continue;
        }
        Frame& frame = frames[written++];
        std::strncpy(frame.module, moduleOf(found), sizeof(frame.module) - 1);
        frame.offset = offsetOf(stack.addresses[i], found);
    }
    return written;
}

/// The unwinder allocates when it is used for the first time.
inline void useUnwinder() {
    std::array<void*, 4> frames;
    static_cast<void>(backtrace(frames.data(), static_cast<int>(frames.size())));
}

}  // namespace wpp_torture
