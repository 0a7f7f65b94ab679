// LZP preprocessing stage: replaces long repeats by an escape byte and a length.
//
// The last four bytes predict where the block goes on as it did before (C. Bloom, "LZP:
// a new data compression algorithm", 1996). Where 64 bytes or more repeat, E and the
// length take their place; E is the byte value that the block holds least often. With P
// the byte before and all sums modulo 256:
//
//   b                               a byte that is not E
//   E                               E where there is no prediction
//   E, P                            E where there is one
//   E, P + 1 (q times), P + 1 + M   63 + 254 q + M bytes as predicted, M = 1..254
//
//   | code | E | 1 |     applied
//   | block | 0 |     off, shorter than 5 bytes, or the code would not be shorter
#pragma once

#include <cstdint>

namespace velk {

constexpr std::uint32_t kLzpTrailerBytes = 2;

// The prediction of each of the hashed contexts: a position, 0 for none.
constexpr std::uint32_t kLzpTableEntries = 16384;
constexpr std::uint32_t kLzpTableBytes = 4 * kLzpTableEntries;

// table: kLzpTableEntries entries, any contents, here and below.
// The buffers must have room for n + 2 bytes; the block in `in` is not altered.
void lzp_encode(std::uint32_t *table, std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out,
                std::uint32_t &out_len, std::uint8_t lzp_off);

// Undoes `lzp_encode`. Returns false when a code is cut short or describes more than
// `capacity` bytes.
[[nodiscard]] bool lzp_decode(std::uint32_t *table, std::uint8_t *&in, std::uint32_t len,
                              std::uint8_t *&out, std::uint32_t &out_len, std::uint32_t capacity);

} // namespace velk
