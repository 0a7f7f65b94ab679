// Numbers in byte buffers, on any host: little-endian as in the archive, or (_big)
// big-endian, which compares as the bytes do.
#pragma once

#include <cstdint>

inline std::uint32_t get_u32(const std::uint8_t *p) {
    return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
           static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}

inline void put_u32(std::uint8_t *p, std::uint32_t value) {
    p[0] = static_cast<std::uint8_t>(value);
    p[1] = static_cast<std::uint8_t>(value >> 8);
    p[2] = static_cast<std::uint8_t>(value >> 16);
    p[3] = static_cast<std::uint8_t>(value >> 24);
}

inline std::uint64_t get_u64_big(const std::uint8_t *p) {
    std::uint64_t value = 0;
    for (int i = 0; i < 8; ++i)
        value = value << 8 | p[i];
    return value;
}
