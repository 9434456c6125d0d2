#pragma once

#include <cstdint>

/// The low 32 bits of an address, which is all that a log text with "0x%08x" shows of it.
inline unsigned qm_LowAddress(const void* address) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(address));
}
