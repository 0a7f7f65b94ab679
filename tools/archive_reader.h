// Reads an archive block by block, in order while it is whole, or by searching for
// what damage has left of it.
#pragma once

#include "archive/coder_context.h"
#include "pipeline/block.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

extern const char *const kStageNames[STAGE_COUNT];

struct ArchiveFile {
    ArchiveFile() = default;
    ~ArchiveFile();
    ArchiveFile(const ArchiveFile &) = delete;
    ArchiveFile &operator=(const ArchiveFile &) = delete;

    std::FILE *file = nullptr;
    std::uint64_t size = 0; // bytes
    std::string name;
};

// Opens a regular file. Returns false, with the reason in `why`, when it can't.
[[nodiscard]] bool open_archive(ArchiveFile &archive, const char *name, std::string &why);

// Sets the stage flags of `settings` and the block size from the archive's header.
// Returns false, with the reason in `why`, for a header that no compressor writes.
[[nodiscard]] bool read_header(ArchiveFile &archive, Settings &settings, std::uint32_t &block_size,
                               std::string &why);

// A block in the archive and what each stage made of its length when it was written.
struct BlockInfo {
    std::uint64_t number;       // counted from 1
    std::uint64_t offset;       // of its record in the archive
    std::uint32_t coded_len;    // bytes of the record, its head included
    std::uint32_t original_len; // bytes of the file
    bool fallback;
    std::uint8_t trailer[STAGE_COUNT]; // last byte; 0: the stage did not apply
    // Bytes after each stage, trailers included; what a fallback took back counts
    // as never done.
    std::uint32_t len_after[STAGE_COUNT];
};

// The walk through an archive from its first block to its last.
struct BlockReader {
    BlockReader() = default;
    ~BlockReader();
    BlockReader(const BlockReader &) = delete;
    BlockReader &operator=(const BlockReader &) = delete;

    ArchiveFile archive;
    CoderContext context{};       // buf_out holds the block restored last
    std::uint32_t block_size = 0; // N
    std::uint64_t position = 0;   // of the next record
    BlockInfo block{};            // the last one; its number and offset also when it failed
};

// Opens the archive, reads its header and takes the memory that its blocks need.
[[nodiscard]] bool open_blocks(BlockReader &reader, const char *name, std::string &why);

enum class Step { kBlock, kEnd, kDamage };

// Passes over the next record and sets number, offset and coded_len of the block. At
// damage `why` holds the reason, and the walk is over.
[[nodiscard]] Step next_record(BlockReader &reader, std::string &why);

// Does so and restores the block in memory. Damage as above.
[[nodiscard]] Step next_block(BlockReader &reader, std::string &why);

// A stretch of a damaged archive.
enum class ExtentKind { kIntact, kHeadLost, kLost };
struct Extent {
    std::uint64_t begin, end; // bytes of the archive
    ExtentKind kind;          // one intact record; one without its head; no intact block
    std::uint64_t data;       // where the block data begin, which go to `end`; 0 if lost
    std::uint32_t heads;      // record heads that still show its blocks; 0: unknown
};

// Divides the archive behind its header into intact records and what lies between.
// buffer: room for the data of the largest block.
//
// A record is intact when its head and its block CRC hold. Behind damage the heads
// lead on if they can; that way a record inside the data of a damaged one (an archive
// that was compressed once more) is not taken for one of this archive. Otherwise the
// next intact record is searched for, byte by byte. As a block CRC covers all up to
// the block's end, a block whose head alone is damaged is found by its end.
[[nodiscard]] std::vector<Extent> survey(ArchiveFile &archive, bool header_holds,
                                         std::uint8_t *buffer);

// Reads `count` bytes at `offset`; false when they are not all there.
[[nodiscard]] bool read_at(ArchiveFile &archive, std::uint64_t offset, void *bytes,
                           std::uint32_t count);

// Shows on a terminal how far a long run is; with `offset` = the archive's size wipes
// that away.
void show_progress(const ArchiveFile &archive, std::uint64_t offset);
