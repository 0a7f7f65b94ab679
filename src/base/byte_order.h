// Numbers in byte buffers, on any host: least significant byte first unless the name
// ends in _be. One load or store and at most one instruction more, which compilers do not
// always make of a row of shifted bytes.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace velk {

inline std::uint32_t swap_bytes(std::uint32_t value) {
    return __builtin_bswap32(value);
}

inline std::uint64_t swap_bytes(std::uint64_t value) {
    return __builtin_bswap64(value);
}

template<typename Number, std::endian order>
Number get_number(const std::uint8_t *p) {
    Number value;
    std::memcpy(&value, p, sizeof value);
    return order == std::endian::native ? value : swap_bytes(value);
}

template<std::endian order, typename Number>
void put_number(std::uint8_t *p, Number value) {
    if (order != std::endian::native) value = swap_bytes(value);
    std::memcpy(p, &value, sizeof value);
}

inline std::uint32_t get_u32(const std::uint8_t *p) {
    return get_number<std::uint32_t, std::endian::little>(p);
}

inline std::uint64_t get_u64(const std::uint8_t *p) {
    return get_number<std::uint64_t, std::endian::little>(p);
}

inline void put_u32(std::uint8_t *p, std::uint32_t value) {
    put_number<std::endian::little>(p, value);
}

inline void put_u64(std::uint8_t *p, std::uint64_t value) {
    put_number<std::endian::little>(p, value);
}

// As the entropy coder has them, and for keys that compare as the bytes do.
inline std::uint32_t get_u32_be(const std::uint8_t *p) {
    return get_number<std::uint32_t, std::endian::big>(p);
}

inline std::uint64_t get_u64_be(const std::uint8_t *p) {
    return get_number<std::uint64_t, std::endian::big>(p);
}

inline void put_u32_be(std::uint8_t *p, std::uint32_t value) {
    put_number<std::endian::big>(p, value);
}

} // namespace velk
