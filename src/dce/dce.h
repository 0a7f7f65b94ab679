// DCE (Distance+Entropy Coding) stage: codes, for every run of equal bytes, how far
// away the next run of the same byte starts, counted over the positions that the
// decoder can't yet fill by itself. (Distance coding after E. Binder, 2000.)
//
//   a block      a b a a a b            97 98 97 97 97 98
//   header list  number of byte values, n + 1, the values with their first positions
//   run a (0)    1: the next a is at 2; position 1 is pending (b) and does not count
//   run b (1)    3: the next b is at 5; positions 3, 4 and 5 count, 2 is pending (a)
//   run aaa (2)  0: no more a
//   run b (5)    0
//
//   | range coder's bytes | raw-bit words | value count (4) | 1 |
//   | block | 0 |                                               declined
//
// A position that nothing points to continues the run before it. A value below 8 is one symbol.
// A larger one is a symbol for its bit length and two more bits, which are range coded, and
// raw bits.
#pragma once

#include <cstdint>

namespace velk {

constexpr std::uint32_t kDceTrailerBytes = 5;

// Bytes of a buffer that the encoder may write behind the block.
constexpr std::uint32_t kDceRoom = 6;

// Codes the block; declines when the result would be longer than n + 1 bytes.
// runs: n entries. model_area: kModelAreaBytes. Both with any contents.
// The buffers must have room for n + kDceRoom bytes.
void dce_encode(std::uint32_t *runs, std::uint32_t *model_area, std::uint8_t *&in, std::uint32_t n,
                std::uint8_t *&out, std::uint32_t &out_len, std::uint8_t dce_off);

// Undoes `dce_encode`. Returns false when the block does not describe at most
// `capacity` bytes consistently, or when decoding it would read outside of it.
[[nodiscard]] bool dce_decode(std::uint32_t *model_area, std::uint8_t *&in, std::uint32_t len,
                              std::uint8_t *&out, std::uint32_t &out_len, std::uint32_t capacity);

} // namespace velk
