// All blocks of a stream, from its reading end to its writing end.
#pragma once

#include "api/coder.h"

#include <cstddef>
#include <cstdint>

namespace velk {

struct BlockQueue;

// One call of velk_compress_stream or velk_decompress_stream. A plain record that may be
// filled with zeros.
struct Transfer {
    const velk_stream *stream;
    const Coder *coder;
    std::uint32_t block_size; // bytes
    bool with_heads;          // a record head goes before each result

    // Reads a block, or the data of its record, into `buffer`, which holds the block size
    // and kBlockSlack bytes. length: its bytes; 0 at the end of the input.
    velk_status (*next)(Transfer &transfer, std::uint8_t *buffer, std::uint32_t &length);

    std::uint64_t bytes_in;    // read for the blocks so far
    std::uint64_t bytes_out;   // written
    std::uint64_t bytes_left;  // to read; VELK_SIZE_UNKNOWN: up to the end
    const std::uint8_t *ahead; // what of them has been read before the transfer
    std::uint32_t ahead_bytes;

    BlockQueue *queue; // of several threads; null for one
    velk_status fault; // of a block, or of writing it
};

// Reads `size` bytes, fewer only at the end of the input. Where they come piece by piece,
// blocks that are done meanwhile are written.
[[nodiscard]] velk_status read_fully(Transfer &transfer, std::uint8_t *buffer, std::size_t size,
                                     std::size_t &got);

// Writes and counts the bytes.
[[nodiscard]] velk_status write_fully(Transfer &transfer, const std::uint8_t *bytes,
                                      std::size_t size);

// Codes all blocks with up to `threads` threads. Errors come in the order of the blocks.
// context: memory set up for one block, which is given back here.
[[nodiscard]] velk_status transfer_blocks(Transfer &transfer, CoderContext &context,
                                          std::uint32_t threads);

} // namespace velk
