// Run-length stage after the sort.
//
// A run is stored as a few copies of its byte. Their number tells the bit length of the run length.
// The low bits of the run length go into a second stream, one bit a byte, so that the DCE can model
// both apart. With L the run length and 2^j <= L - 1 < 2^(j+1):
//
//   L = 1, 2    L copies, no bits
//   L >= 3      j + 2 copies, the j low bits of L - 1
//
//   | copies (heads) ... | bits, last first ... | head count (4) | 1 |
//   0                    H                      H + B            H + B + 5
//
// The stage declines (| block | 0 |) when heads and bits are more than the block, or when runs are
// often interrupted by a single other byte: those the DCE codes better without this stage.
#pragma once

#include <cstdint>

namespace velk {

constexpr std::uint32_t kRleTrailerBytes = 5;

// n: below 2^24 bytes. The buffers must have room for n + 5 bytes.
void rle_forward(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                 std::uint8_t rle_off);

// Undoes `rle_forward`. Returns false when heads and bits describe more than
// `capacity` bytes or reach outside the block.
[[nodiscard]] bool rle_inverse(std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out,
                               std::uint32_t &out_len, std::uint32_t capacity);

} // namespace velk
