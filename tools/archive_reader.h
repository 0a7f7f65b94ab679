// Reads an archive block by block, while it is whole.
#pragma once

#include "archive/coder_context.h"
#include "pipeline/block.h"

#include <cstdint>
#include <cstdio>
#include <string>

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

// Reads the header of the archive, which is open, and takes the memory that its blocks
// need.
[[nodiscard]] bool open_blocks(BlockReader &reader, std::string &why);

enum class Step { kBlock, kEnd, kDamage };

// Restores the next block in memory. At damage `why` holds the reason, and the walk is
// over.
[[nodiscard]] Step next_block(BlockReader &reader, std::string &why);

// Restores blocks of any size and any stages: a header that is lost can't tell them.
class Restorer {
public:
    ~Restorer();
    // False when there is not the memory.
    [[nodiscard]] bool prepare();
    // Restores the block whose data go from `begin` to `end`. Returns it, and its length,
    // or nullptr when it can't be undone.
    [[nodiscard]] const std::uint8_t *restore(ArchiveFile &archive, std::uint64_t begin,
                                              std::uint64_t end, std::uint32_t &length);

private:
    CoderContext bwt_{}, st_{}; // memory for blocks sorted in one way or the other
};

// Reads `count` bytes at `offset`; false when they are not all there.
[[nodiscard]] bool read_at(ArchiveFile &archive, std::uint64_t offset, void *bytes,
                           std::uint32_t count);

// Shows on a terminal how far a long run is; with `offset` = the archive's size wipes
// that away.
void show_progress(const ArchiveFile &archive, std::uint64_t offset);
