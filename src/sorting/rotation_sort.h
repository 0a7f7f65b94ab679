// The ways of sorting a block's cyclic rotations.
//
// `sort_by_induction` is fast and sorts every block whose rotations all differ. In a periodic one,
// a shorter block repeated, `sort_by_tripling` fixes the order of equal rotations, which is part of
// the archive format. It gives up where it would take quadratic time; there `sort_by_period` does.
//
// All leave the block as it was. The sorted rotations are in the index array as row entries:
//
//   row r:  | b[p-1] (8) | p (24) |, p the start of the rotation in row r
//
// block, scratch: the two buffers of the pair, in either order.
#pragma once

#include <cstdint>

namespace velk {

constexpr std::uint32_t kPositionMask = (1u << 24) - 1;

inline std::uint32_t row_entry(std::uint8_t preceding, std::uint32_t p) {
    return std::uint32_t{preceding} << 24 | p;
}

inline std::uint8_t preceding_byte(std::uint32_t entry) {
    return static_cast<std::uint8_t>(entry >> 24);
}

// Of any number with a position in its low 24 bits.
inline std::uint32_t position_of(std::uint64_t entry) {
    return static_cast<std::uint32_t>(entry) & kPositionMask;
}

// The work arrays that bwt_forward is lent; sorting/bwt.h tells their sizes.
struct SortArrays {
    std::uint32_t *pair_region;
    std::uint32_t *index_array;
    std::uint32_t *bit_array;
    std::uint32_t *model_area;
};

// Returns false for periodic blocks, and for very short ones, with the index array undefined.
// Takes nearly linear time on real data, O(n log^2 n) at worst.
[[nodiscard]] bool sort_by_induction(const SortArrays &arrays, const std::uint8_t *block,
                                     std::uint32_t n, std::uint8_t *scratch);

// Returns false, with the index array undefined, when it has taken its limit of steps.
[[nodiscard]] bool sort_by_tripling(const SortArrays &arrays, std::uint8_t *block, std::uint32_t n);

// Any block, periodic or not. Linear time beside that of sorting the period.
void sort_by_period(const SortArrays &arrays, std::uint8_t *block, std::uint32_t n,
                    std::uint8_t *scratch);

} // namespace velk
