// EOL filter: reflows text whose lines end in CR LF, wrapped at some width.
//
// Both sides learn the width W from the lengths of the last 16 lines. A line break
// that comes just where the next word would not fit into W columns is dropped; the
// decoder puts it back. A space at which the decoder would wrongly put one is replaced
// by an escape byte E, a byte value that the block does not hold.
//
//   first, in the whole block:   CR LF -> CR space,  CR space -> CR LF
//   then:   ...end of a line. CR space The next...  ->  ...end of a line. The next...
//
//   | coded text | E | 2 |     applied
//   | block, CR LF swapped | 1 |     no free byte value, or mostly indented lines
//   | block | 0 |     off
#pragma once

#include <cstdint>

namespace velk {

constexpr std::uint32_t kEolTrailerBytes = 2;

// The block in `in` is altered. The buffers must have room for n + 2 bytes.
void eol_encode(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                std::uint8_t eol_off);

// Undoes `eol_encode`; a trailer above 2 counts as 1. The decoder inserts at most one
// CR for each coded byte. Returns false when the text would be longer than `capacity`,
// or there is no escape byte before a trailer 2.
[[nodiscard]] bool eol_decode(std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out,
                              std::uint32_t &out_len, std::uint32_t capacity);

} // namespace velk
