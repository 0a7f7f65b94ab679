// The bits of a number, and bits in an array of 32-bit words: bit i in word i / 32.
#pragma once

#include <bit>
#include <cstdint>

namespace velk {

inline void set_bit(std::uint32_t *bits, std::uint32_t i) {
    bits[i / 32] |= 1u << (i % 32);
}

inline void flip_bit(std::uint32_t *bits, std::uint32_t i) {
    bits[i / 32] ^= 1u << (i % 32);
}

inline bool get_bit(const std::uint32_t *bits, std::uint32_t i) {
    return (bits[i / 32] >> (i % 32) & 1) != 0;
}

// The number of bits set. (std::popcount is a call where the machine need not have it.)
inline std::uint32_t count_ones(std::uint64_t bits) {
    bits -= bits >> 1 & 0x5555555555555555u;
    bits = (bits & 0x3333333333333333u) + (bits >> 2 & 0x3333333333333333u);
    bits = (bits + (bits >> 4)) & 0x0F0F0F0F0F0F0F0Fu;
    return static_cast<std::uint32_t>(bits * 0x0101010101010101u >> 56);
}

// Words that hold `count` bits and one more.
constexpr std::uint32_t bitmap_words(std::uint32_t count) {
    return count / 32 + 1;
}

// The first bit from i on, i at most `count`, that is set, or clear if `flip` is all ones, not 0;
// `count` or more if there is none below it.
inline std::uint32_t find_bit(const std::uint32_t *bits, std::uint32_t i, std::uint32_t count,
                              std::uint32_t flip) {
    std::uint32_t word = i / 32;
    std::uint32_t wanted = (bits[word] ^ flip) & ~0u << (i % 32);
    while (wanted == 0) {
        if (++word >= bitmap_words(count)) return count;
        wanted = bits[word] ^ flip;
    }
    return word * 32 + static_cast<std::uint32_t>(std::countr_zero(wanted));
}

inline std::uint32_t find_set(const std::uint32_t *bits, std::uint32_t i, std::uint32_t count) {
    return find_bit(bits, i, count, 0);
}

inline std::uint32_t find_clear(const std::uint32_t *bits, std::uint32_t i, std::uint32_t count) {
    return find_bit(bits, i, count, ~0u);
}

// Calls visit(i) for each set bit i < count, in increasing order.
template<typename Visit>
void for_each_bit(const std::uint32_t *bits, std::uint32_t count, Visit visit) {
    for (std::uint32_t word = 0; word < bitmap_words(count); ++word) {
        for (std::uint32_t rest = bits[word]; rest != 0; rest &= rest - 1) {
            const std::uint32_t i = word * 32 + static_cast<std::uint32_t>(std::countr_zero(rest));
            if (i >= count) return;
            visit(i);
        }
    }
}

} // namespace velk
