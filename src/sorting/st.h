// The ST, a sort transform of limited order: the block's rotations sorted by their
// first 21 bits only, in one counting sort. (After M. Schindler, "A fast block-sorting
// algorithm for lossless data compression", 1997.)
//
//   | last column (n) | first three bytes of the block | 1 |     applied
//   | block | 0 |     off, or n below 3
//
// Within a context, the 21 bits, rotations come in the order 0, n - 1, n - 2, ..., 1.
#pragma once

#include <cstdint>

namespace velk {

constexpr std::uint32_t kStTrailerBytes = 4;

constexpr std::uint32_t kStContexts = 1u << 21;

// contexts: kStContexts entries, any contents; touched only when the stage applies.
// The buffers must have room for n + 4 bytes; the block in `in` is not altered.
void st_forward(std::uint32_t *contexts, std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out,
                std::uint32_t &out_len, std::uint8_t st_off);

// Undoes `st_forward`. contexts: kStContexts entries, any contents; or nullptr, then no
// block to which the stage was applied is restored. Returns false for one shorter than
// 3 bytes, and for one whose contexts lead outside the last column.
[[nodiscard]] bool st_inverse(std::uint32_t *contexts, std::uint8_t *&in, std::uint32_t len,
                              std::uint8_t *&out, std::uint32_t &out_len, std::uint32_t capacity);

} // namespace velk
