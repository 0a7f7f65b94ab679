// Numbers in byte buffers, on any host: least significant byte first unless the name
// ends in _be.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace velk {

inline std::uint32_t get_u32(const std::uint8_t *p) {
    return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
           static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}

inline std::uint64_t get_u64(const std::uint8_t *p) {
    return get_u32(p) | std::uint64_t{get_u32(p + 4)} << 32;
}

inline void put_u32(std::uint8_t *p, std::uint32_t value) {
    p[0] = static_cast<std::uint8_t>(value);
    p[1] = static_cast<std::uint8_t>(value >> 8);
    p[2] = static_cast<std::uint8_t>(value >> 16);
    p[3] = static_cast<std::uint8_t>(value >> 24);
}

// Numbers with the most significant byte first: the entropy coder's, and keys that compare as
// the bytes do. One instruction and a load or store, which compilers do not always make of a
// row of shifted bytes.
inline std::uint32_t swap_to_be(std::uint32_t value) {
    return std::endian::native == std::endian::big ? value : __builtin_bswap32(value);
}

inline std::uint32_t get_u32_be(const std::uint8_t *p) {
    std::uint32_t value;
    std::memcpy(&value, p, sizeof value);
    return swap_to_be(value);
}

inline void put_u32_be(std::uint8_t *p, std::uint32_t value) {
    value = swap_to_be(value);
    std::memcpy(p, &value, sizeof value);
}

inline std::uint64_t get_u64_be(const std::uint8_t *p) {
    std::uint64_t value;
    std::memcpy(&value, p, sizeof value);
    return std::endian::native == std::endian::big ? value : __builtin_bswap64(value);
}

} // namespace velk
