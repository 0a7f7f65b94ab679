// The CRC-32 of IEEE 802.3 (reflected polynomial EDB88320), in two orders of the bytes.
//
// Checks in an archive take a range from its last byte to its first: the common CRC of the
// bytes in reverse order. The index of an archive, which holds the CRCs of the blocks, takes
// them in the usual order, first byte first, as gzip and zip do.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velk {

constexpr std::uint32_t kCrcBytes = 4;

// Does nothing: the tables are constants. For callers that set the checksum up.
inline void crc32_init() {}

// The CRC of the first `n` bytes of `buffer`, the last byte first; 0 for n = 0.
[[nodiscard]] std::uint32_t crc32_block(const std::uint8_t *buffer, std::uint32_t n);

// Of the bytes that have the CRC `crc` (0 for none) and the `n` of `bytes` behind them, the
// first byte first.
[[nodiscard]] std::uint32_t crc32_append(std::uint32_t crc, const std::uint8_t *bytes,
                                         std::size_t n);
// The same without the vector instructions that some machines have.
[[nodiscard]] std::uint32_t crc32_append_plain(std::uint32_t crc, const std::uint8_t *bytes,
                                               std::size_t n);

// Polynomials over GF(2) of degree below 32, as the CRC has them: bit 31 belongs to x^0. Their
// product modulo the CRC's polynomial.
constexpr std::uint32_t crc32_multiply(std::uint32_t a, std::uint32_t b) {
    std::uint32_t product = 0;
    for (; a != 0; a <<= 1) {
        product ^= b & (0 - (a >> 31));
        b = (b >> 1) ^ (0xEDB88320 & (0 - (b & 1)));
    }
    return product;
}

// x^n, modulo that polynomial.
constexpr std::uint32_t crc32_power(std::uint64_t n) {
    std::uint32_t power = 1u << 31;
    for (std::uint32_t square = 1u << 30; n != 0; n >>= 1) {
        if ((n & 1) != 0) power = crc32_multiply(power, square);
        square = crc32_multiply(square, square);
    }
    return power;
}

// Of some bytes with the CRC `a` and, behind them, `n`, below 2^61, with the CRC `b`, in the
// usual order.
[[nodiscard]] constexpr std::uint32_t crc32_join(std::uint32_t a, std::uint32_t b,
                                                 std::uint64_t n) {
    return crc32_multiply(crc32_power(8 * n), a) ^ b;
}

} // namespace velk
