// Eight 16-bit numbers side by side: the vector types of GCC and Clang, which become
// the machine's own vectors (SSE2 on x86-64) or plain code.
#pragma once

#include <cstdint>
#include <cstring>

namespace velk {

constexpr std::uint32_t kCountLanes = 8;
typedef std::uint16_t Lanes __attribute__((vector_size(2 * kCountLanes)));

// A load, and the reverse, where p is known to be aligned to a vector.
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

} // namespace velk
