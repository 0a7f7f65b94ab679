// Numbers side by side, as many as fit the widest vectors that the code is compiled for: the
// vector types of GCC and Clang, which become the machine's own vectors (SSE2 or AVX2 on x86-64)
// or plain code.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#ifdef __SSE2__
#include <immintrin.h>
#endif

namespace velk {

#ifdef __AVX2__
constexpr std::uint32_t kVectorBytes = 32;
#else
constexpr std::uint32_t kVectorBytes = 16;
#endif
typedef std::uint8_t ByteLanes __attribute__((vector_size(kVectorBytes)));
typedef std::uint16_t CountLanes __attribute__((vector_size(kVectorBytes)));
typedef std::int32_t EntryLanes __attribute__((vector_size(kVectorBytes)));

template<typename Lanes>
constexpr std::uint32_t kLanesOf = sizeof(Lanes) / sizeof(Lanes{}[0]);

// Loads a vector, or stores one, at any address.
template<typename Lanes>
inline Lanes load(const void *p) {
    Lanes lanes;
    std::memcpy(&lanes, p, sizeof lanes);
    return lanes;
}

template<typename Lanes>
inline void store(void *p, Lanes lanes) {
    std::memcpy(p, &lanes, sizeof lanes);
}

// Bit i is that of lane i of a comparison's result.
inline std::uint32_t plain_lane_bits(ByteLanes lanes) {
    std::uint32_t bits = 0;
    for (std::uint32_t i = 0; i < kLanesOf<ByteLanes>; ++i)
        bits |= (lanes[i] & 1u) << i;
    return bits;
}

inline std::uint32_t lane_bits(ByteLanes lanes) {
#if defined __AVX2__
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(reinterpret_cast<__m256i>(lanes)));
#elif defined __SSE2__
    return static_cast<std::uint32_t>(_mm_movemask_epi8(reinterpret_cast<__m128i>(lanes)));
#else
    return plain_lane_bits(lanes);
#endif
}

// Counts among the positions from p to `end` - 1, a vector of them at a step, until less than a
// vector is left; returns where that is. count(p, lanes) adds 0 or 1 to each lane of each of
// lanes[], for the position p and those behind it; a comparison gives 0 or 255, which is -1. The
// sum of all lanes of lanes[k] is added to counts[k].
template<std::uint32_t kCounts, typename Count>
inline std::uint32_t count_in_lanes(std::uint32_t p, std::uint32_t end,
                                    std::uint32_t (&counts)[kCounts], Count count) {
    constexpr std::uint32_t kMaxSteps = 255; // of counts of one byte
    while (p + kVectorBytes <= end) {
        ByteLanes lanes[kCounts] = {};
        const std::uint32_t steps = std::min((end - p) / kVectorBytes, kMaxSteps);
        for (const std::uint32_t stop = p + steps * kVectorBytes; p < stop; p += kVectorBytes)
            count(p, lanes);
        for (std::uint32_t k = 0; k < kCounts; ++k) {
            for (std::uint32_t i = 0; i < kVectorBytes; ++i)
                counts[k] += lanes[k][i];
        }
    }
    return p;
}

} // namespace velk
