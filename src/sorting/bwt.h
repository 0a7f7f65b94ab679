// BWT stage: the Burrows-Wheeler transform over a block's cyclic rotations
// (M. Burrows, D. J. Wheeler, "A Block-sorting Lossless Data Compression Algorithm",
// SRC Research Report 124, 1994).
//
//   | last column (n) | primary index (4) | 1 |       applied: n + 5 bytes
//   | block (n) | 0 |                                 off: n + 1 bytes
//
// The last column holds, for every rotation in sorted order, the byte that precedes it. The primary
// index is the row, from 1, of the rotation that begins at the block's second byte (1 for n = 1).
#pragma once

#include <cstdint>

namespace velk {

constexpr std::uint32_t kBwtTrailerBytes = 5;

// Bytes of the model area that the sort needs: first a 32-bit number for each two-byte string,
// then as many triples of 32-bit numbers.
constexpr std::uint32_t kSortScratchBytes = 65536 * 12;
// Bytes of a buffer that the sort needs behind the block.
constexpr std::uint32_t kBwtRoom = 24;
// Words of the bit array that the sort needs beyond n / 8. induced_sort.cpp shows the sum.
constexpr std::uint32_t kBwtMoreBitWords = 5;

// Sorts the block. n: 1 to 2^24 - 1 bytes.
// pair_region: 4 * capacity bytes, the two buffers, `capacity` bytes each, at its start. capacity:
// at least n + kBwtRoom. index_array: n entries. The addresses of both are multiples of 8.
// bit_array: n / 8 + kBwtMoreBitWords words. model_area: kSortScratchBytes.
// `in` holds the block afterwards, too. sorting/tripling_sort.cpp fixes the order of the equal
// rotations of a periodic block, and so the primary index.
void bwt_forward(std::uint32_t *pair_region, std::uint32_t *index_array, std::uint32_t *bit_array,
                 std::uint32_t *model_area, std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out,
                 std::uint32_t &out_len, std::uint8_t bwt_off);

// Undoes `bwt_forward`. capacity: below 2^24. work_area: 4 * n bytes, n the length of the
// block restored; the buffers may lie in it from byte 3 * capacity on. Or nullptr; then
// no sorted block is restored.
// Returns false for a trailer without its block and for a primary index outside 1..n.
// Any other last column is some permutation's and decodes to some block.
[[nodiscard]] bool bwt_inverse(std::uint32_t *work_area, std::uint8_t *&in, std::uint32_t len,
                               std::uint8_t *&out, std::uint32_t &out_len, std::uint32_t capacity);

} // namespace velk
