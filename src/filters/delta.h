// DELTA filter: splits a block of records of k = 2, 3 or 4 bytes into byte channels.
//
//   a0 b0 c0 a1 b1 c1 a2 ...   ->   a0 a1 a2 ... b0 b1 ... c0 c1 ...
//
//   | channels | k - 1 |     applied
//   | block | 0 |     off, shorter than 4 bytes, or no clear record structure
//
// The record size is the distance at which bytes repeat most often, if that distance
// stands out and the others repeat mostly by chance, one byte at a time.
#pragma once

#include <cstdint>

namespace velk {

constexpr std::uint32_t kDeltaTrailerBytes = 1;

// The record size k of `n` bytes, 0 where the filter would not apply. same_before: how many bytes
// equal the one k before, for k = 1 to 4; left as it was for n below 4.
[[nodiscard]] std::uint32_t find_record_size(const std::uint8_t *bytes, std::uint32_t n,
                                             std::uint32_t (&same_before)[5]);

// The buffers must have room for n + 1 bytes; the block in `in` is not altered.
void delta_encode(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                  std::uint8_t delta_off);

// Undoes `delta_encode`. The output is 1 byte shorter than the input. Returns false for
// a trailer above 3.
[[nodiscard]] bool delta_decode(std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out,
                                std::uint32_t &out_len, std::uint32_t capacity);

} // namespace velk
