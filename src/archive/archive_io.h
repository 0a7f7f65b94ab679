// The one reader of archives and the one writer, over bytes that come from anywhere and go
// anywhere. They print nothing and end nothing.
#pragma once

#include "archive/coder_context.h"
#include "archive/format.h"
#include "pipeline/block.h"

#include <cstdint>

namespace velk {

struct ByteSource {
    void *user;
    // Puts the next `count` bytes into `bytes`, fewer only at the end; `got`: how many.
    // False when they can't be read.
    bool (*read)(void *user, void *bytes, std::uint32_t count, std::uint32_t &got);
};

struct ByteSink {
    void *user;
    // Takes all `count` bytes, or returns false.
    bool (*write)(void *user, const void *bytes, std::uint32_t count);
};

// Reads the magic and the header record: the stage flags of `settings` and the block size.
[[nodiscard]] ArchiveStatus read_start(const ByteSource &source, Settings &settings,
                                       std::uint32_t &block_size);

// Reads the start and takes the memory to restore blocks, `memory_bytes` bytes, which
// free_decompress (archive/memory.h) gives back.
[[nodiscard]] ArchiveStatus start_reading(const ByteSource &source, CoderContext &context,
                                          std::uint32_t &memory_bytes);

// Reads the next record's data into `data`, which has room for `capacity` bytes, as
// CoderContext has it. length: their number, or what the head says.
[[nodiscard]] ArchiveStatus read_record(const ByteSource &source, std::uint32_t capacity,
                                        std::uint8_t *data, std::uint32_t &length);

// Reads the next record and restores its block: the `out_len` bytes of the context's `buf_out`.
[[nodiscard]] ArchiveStatus read_block(const ByteSource &source, CoderContext &context,
                                       std::uint32_t &length, BlockTrace &trace);

// Write the magic and the header record, or a record of `length` bytes of data. Return the
// number of bytes written; 0 when the sink failed.
[[nodiscard]] std::uint32_t write_start(const ByteSink &sink, const Settings &settings,
                                        std::uint32_t block_size);
[[nodiscard]] std::uint32_t write_record(const ByteSink &sink, const std::uint8_t *data,
                                         std::uint32_t length);

} // namespace velk
