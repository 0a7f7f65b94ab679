// Asks for memory that will be read soon.
#pragma once

#include <cstdint>

namespace velk {

// The address may lie outside of any array: nothing is read.
inline void prefetch(const void *base, std::uintptr_t offset) {
    // Adding to the pointer itself would be undefined outside of its array.
    const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(base) + offset;
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    __builtin_prefetch(reinterpret_cast<const void *>(address));
    // Nothing, but not to be left out: GCC drops calls of functions that only prefetch.
    __asm__ volatile("");
}

} // namespace velk
