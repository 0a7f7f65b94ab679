// Eight 16-bit numbers side by side: the vector types of GCC and Clang, which become
// the machine's own vectors (SSE2 on x86-64) or plain code.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace velk {

constexpr std::uint32_t kCountLanes = 8;
typedef std::uint16_t Lanes __attribute__((vector_size(2 * kCountLanes)));

inline Lanes load_lanes(const std::uint16_t *p) {
    Lanes lanes;
    std::memcpy(&lanes, p, sizeof lanes);
    return lanes;
}

// The same, and the reverse, where p is known to be aligned to a vector.
inline Lanes load_aligned(const std::uint16_t *p) {
    Lanes lanes;
    std::memcpy(&lanes, __builtin_assume_aligned(p, sizeof lanes), sizeof lanes);
    return lanes;
}

inline void store_aligned(std::uint16_t *p, Lanes lanes) {
    std::memcpy(__builtin_assume_aligned(p, sizeof lanes), &lanes, sizeof lanes);
}

inline Lanes all_lanes(std::uint32_t number) {
    return Lanes{} + static_cast<std::uint16_t>(number);
}

// Vector i of a row: all bits are set in the lanes from number x of the row on, x below
// 2^15. (As signed numbers, which is how SSE2 compares.)
inline Lanes lanes_from(std::uint32_t x, std::uint32_t i) {
    typedef std::int16_t Numbers __attribute__((vector_size(2 * kCountLanes)));
    const Numbers numbers =
        Numbers{0, 1, 2, 3, 4, 5, 6, 7} + static_cast<std::int16_t>(kCountLanes * i);
    return reinterpret_cast<Lanes>(numbers >= Numbers{} + static_cast<std::int16_t>(x));
}

// a - b, but 0 where b is larger.
inline Lanes subtract_down_to_0(Lanes a, Lanes b) {
#ifdef __SSE2__
    // One instruction, of which GCC makes three to five when it has to find it.
    return reinterpret_cast<Lanes>(
        _mm_subs_epu16(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(b)));
#else
    return a > b ? a - b : Lanes{};
#endif
}

// How many of 32 lanes are 0. Those come first; the others have all their bits set.
inline std::uint32_t number_of_zeros(const Lanes (&row)[4]) {
#ifdef __SSE2__
    // A bit a lane. (With the sums below decoding takes 2 % more time, random bytes 8 %.)
    const auto bits = [](Lanes a, Lanes b) {
        return static_cast<std::uint64_t>(_mm_movemask_epi8(
            _mm_packs_epi16(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(b))));
    };
    const std::uint64_t end = std::uint64_t{1} << 32;
    return static_cast<std::uint32_t>(
        std::countr_zero(end | bits(row[2], row[3]) << 16 | bits(row[0], row[1])));
#else
    Lanes sum{};
    for (const Lanes lanes : row)
        sum += Lanes{} + 1 + lanes;
    std::uint64_t half[2];
    static_assert(sizeof half == sizeof sum);
    std::memcpy(half, &sum, sizeof half);
    return static_cast<std::uint32_t>((half[0] + half[1]) * 0x0001000100010001u >> 48);
#endif
}

} // namespace velk
