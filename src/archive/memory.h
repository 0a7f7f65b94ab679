// The memory of a run, taken once, for the run's block size N.
//
//   compression
//     work1  pair region     4 * capacity bytes:  | buf_in | buf_out | ............. |
//                            behind the buffers the sort's numbers, then the block as it
//                            was before the sort
//     work2  index array     `capacity` entries of 32 bits (with the ST at least 2^21)
//     work3  bit array       `bit_words` words of 32 bits
//     work4  model area      65536 * 12 bytes
//
//   decompression
//     work2  region          5 * capacity bytes:  | ............. | buf_in | buf_out |
//                            without the BWT stage: | 65536 bytes | buf_in | buf_out |
//     work3  model area      the model sets of the DCE stage; with the ST 2^21 entries
#pragma once

#include "archive/coder_context.h"
#include "pipeline/stage.h"

#include <cstdint>

namespace velk {

// The block size for an input of `input_size` bytes.
[[nodiscard]] std::uint32_t choose_block_size(const Settings &settings, std::uint64_t input_size);

// Sets `capacity`, the work arrays and the buffer pair for block size `block_size` bytes; what
// is in them is left open. `settings.st_off` and `settings.bwt_off` must be set before. Returns
// the bytes taken, or 0, with nothing taken, when `is_valid_header` refuses them or the memory
// is not to be had.
[[nodiscard]] std::uint32_t alloc_compress(CoderContext &context, std::uint32_t block_size);
[[nodiscard]] std::uint32_t alloc_decompress(CoderContext &context, std::uint32_t block_size);

// Gives back what the function above took.
void free_compress(CoderContext &context);
void free_decompress(CoderContext &context);

} // namespace velk
