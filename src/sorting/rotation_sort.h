// The ways of sorting a block's cyclic rotations.
//
// `sort_by_induction` is fast and sorts every block whose rotations all differ.
// `sort_by_tripling` sorts any block; for a periodic one, a shorter block repeated, it
// fixes the order of equal rotations, which is part of the archive format. Blocks can be made
// on which it would take quadratic time; their order is that of `sort_by_period`.
//
// All leave the block as it was and the sorted rotations in the index array as row entries:
//
//   row r:  | b[p-1] (8) | p (24) |, p the start of the rotation in row r
//
// block, scratch: the two buffers of the pair, in either order.
#pragma once

#include <cstdint>

namespace velk {

constexpr std::uint32_t kPositionMask = (1u << 24) - 1;

// The work arrays that bwt_forward is lent; sorting/bwt.h tells their sizes.
struct SortArrays {
    std::uint32_t *pair_region;
    std::uint32_t *index_array;
    std::uint32_t *bit_array;
    std::uint32_t *model_area;
};

// Returns false for periodic blocks, and for very short ones, with the index array undefined.
// Takes time O(n log^2 n) at worst, to break ties log n times, on real data nearly linear.
[[nodiscard]] bool sort_by_induction(const SortArrays &arrays, const std::uint8_t *block,
                                     std::uint32_t n, std::uint8_t *scratch);

// Returns false when that takes more steps than a bound allows, with the index array undefined.
[[nodiscard]] bool sort_by_tripling(const SortArrays &arrays, std::uint8_t *block, std::uint32_t n);

// Any block, periodic or not. Linear time beside that of sorting the period.
void sort_by_period(const SortArrays &arrays, std::uint8_t *block, std::uint32_t n,
                    std::uint8_t *scratch);

} // namespace velk
