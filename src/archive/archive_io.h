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

// A source that can be read at any place.
struct PlacedSource {
    void *user;
    // As above, from `offset` on.
    bool (*read_at)(void *user, std::uint64_t offset, void *bytes, std::uint32_t count,
                    std::uint32_t &got);
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

// A record as its bytes come, in pieces of any size: the head, then the data that it tells of.
struct RecordIntake {
    std::uint8_t *data;       // has room for `capacity` bytes
    std::uint32_t capacity;   // as CoderContext has it
    std::uint32_t length = 0; // bytes of data, once the head is there
    std::uint32_t taken = 0;  // bytes of the record that have come
    std::uint8_t head[kRecordHeadBytes] = {};
};

// Where the next bytes of a record that is not whole go. wanted: how many, at least 1.
[[nodiscard]] std::uint8_t *next_place(RecordIntake &intake, std::uint32_t &wanted);

// Takes in `count` bytes put there, at most those wanted; 0 at the end of all bytes. Returns
// kMore until the record is whole, kGood when it is, or what is wrong.
[[nodiscard]] ArchiveStatus take_in(RecordIntake &intake, std::uint32_t count);

// Reads the next record's data into `data`, which has room for `capacity` bytes, as
// CoderContext has it. length: their number, or what the head says.
[[nodiscard]] ArchiveStatus read_record(const ByteSource &source, std::uint32_t capacity,
                                        std::uint8_t *data, std::uint32_t &length);

// Reads the next record and restores its block: the `out_len` bytes of the context's `buf_out`.
[[nodiscard]] ArchiveStatus read_block(const ByteSource &source, CoderContext &context,
                                       std::uint32_t &length, BlockTrace &trace);

// A walk from record to record by their heads alone. Each head is read with the byte before
// it, which tells a record that is whole from one that is cut short.
struct RecordWalk {
    std::uint64_t record = 0; // the offset of the record that was found last
    std::uint32_t length = 0; // bytes of its data
    std::uint64_t next = kFirstRecord;
    std::uint8_t bytes[1 + kRecordHeadBytes] = {}; // those before and at `next`,
    std::uint32_t got = 0;                         // as many as there are; 0 before the first step
};

// Finds the next record. Returns kGood, kEnd, kEndMark, or what is wrong with the one at
// `next`; of one that is cut short, `record` and `length` tell.
[[nodiscard]] ArchiveStatus next_record(const PlacedSource &source, std::uint32_t capacity,
                                        RecordWalk &walk);

// Write the magic and the header record, or a record of `length` bytes of data. Return the
// number of bytes written; 0 when the sink failed.
[[nodiscard]] std::uint32_t write_start(const ByteSink &sink, const Settings &settings,
                                        std::uint32_t block_size);
[[nodiscard]] std::uint32_t write_record(const ByteSink &sink, const std::uint8_t *data,
                                         std::uint32_t length);

} // namespace velk
