// The blocks of an input: its bytes as they come stand in a window until it is known where the
// next block ends.
//
//   | given out | window: `wanted` bytes, or those up to the end of the input | free |
//               ^ start                                                       ^ end
#pragma once

#include "api/block_cut.h"
#include "api/coder.h"

#include <cstdint>

namespace velk {

struct BlockReader {
    std::uint64_t left;  // bytes of the input to come; VELK_SIZE_UNKNOWN: up to its end
    std::uint8_t *bytes; // `room` of them
    std::uint32_t room;
    std::uint32_t start, end;  // of the window
    std::uint32_t wanted;      // bytes in the window before a block is given out
    std::uint32_t block_limit; // the most bytes of a block
    std::uint32_t next_length; // bytes of the next block; 0: not known yet
    bool gives_groups;         // as many blocks at once as one could hold
    bool flushes;              // what is in the window, before it takes more
    BlockCutter *cutter;       // null: blocks are full
};

// Bytes of memory that the reader of an input takes.
[[nodiscard]] std::uint64_t reader_bytes(const CheckedOptions &options, std::uint64_t input_size);

// False, with nothing taken, where the memory is not to be had.
[[nodiscard]] bool open_reader(BlockReader &reader, const CheckedOptions &options,
                               std::uint64_t input_size);
void close_reader(BlockReader &reader);

// Where the next bytes of the input go, and how many at most; wanted = 0: the reader needs none
// to give out blocks.
[[nodiscard]] std::uint8_t *next_input(BlockReader &reader, std::uint32_t &wanted);

// Takes the `count` bytes that came there; 0: the input ends. False where it had to have more.
[[nodiscard]] bool take_input(BlockReader &reader, std::uint32_t count);

// Has the reader want no more until all that came has been given out; false when nothing is left.
[[nodiscard]] bool flush_input(BlockReader &reader);

// The bytes of the next block or blocks, where no input is wanted; no blocks at the end of all.
// They stay until the next call of next_input. `blocks`: how many, and their lengths.
[[nodiscard]] const std::uint8_t *give_blocks(BlockReader &reader, BlockGroup &blocks);

} // namespace velk
