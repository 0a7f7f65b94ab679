// Asks for memory that will be read soon.
#pragma once

#include <cstdint>

// The address may lie outside of any array: nothing is read.
inline void prefetch(const void *base, std::uintptr_t offset) {
    __builtin_prefetch(
        reinterpret_cast<const void *>(reinterpret_cast<std::uintptr_t>(base) + offset));
}
