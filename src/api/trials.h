// Blocks joined and split where that makes their records smaller, by trying it.
#pragma once

#include "api/coder.h"
#include "base/block_size.h"

#include <cstdint>

namespace velk {

// Bytes that the results of blocks take which together are `length` bytes.
[[nodiscard]] constexpr std::uint32_t results_room(std::uint32_t length) {
    return length + (length / kMinBlockSize + 1) * kBlockSlack;
}

// Bytes of memory for the trials of blocks which together are `length` bytes.
[[nodiscard]] constexpr std::uint32_t trials_room(std::uint32_t length) {
    return 2 * results_room(length);
}

// Codes the blocks in a row that are `data`: all but the last at least kMinBlockSize, and no longer
// together than one may be. Blocks are cut into the smallest ones where a sample is smaller so,
// others split where they change most, then neighbours joined, each time that records and entries
// get smaller by it, as long as no more than 2.25 times the bytes were coded for all that. (Joined
// before they are split, programs come out 2 % larger.)
// results: trials_room bytes for blocks of blocks.length; at its front the blocks' results are
// then in a row, blocks.length bytes.
void try_blocks(CoderContext &context, std::uint8_t *results, const std::uint8_t *data,
                BlockGroup &blocks);

// Codes the blocks, or the record, that `data` is. trials: memory for them; null: the blocks are
// coded as they are, one only. Returns the results in a row; null for a record that can't be
// restored.
[[nodiscard]] const std::uint8_t *code_blocks(const Coder &coder, CoderContext &context,
                                              std::uint8_t *trials, const std::uint8_t *data,
                                              BlockGroup &blocks);

} // namespace velk
