// Bits in an array of 32-bit words, bit i in word i / 32.
#pragma once

#include <bit>
#include <cstdint>

inline void set_bit(std::uint32_t *bits, std::uint32_t i) {
    bits[i / 32] |= 1u << (i % 32);
}

inline bool get_bit(const std::uint32_t *bits, std::uint32_t i) {
    return (bits[i / 32] >> (i % 32) & 1) != 0;
}

// Words that hold `count` bits.
constexpr std::uint32_t bitmap_words(std::uint32_t count) {
    return count / 32 + 1;
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
