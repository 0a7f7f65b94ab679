// The chain of stages, and a whole archive, called on byte vectors.
#pragma once

#include "archive/archive_io.h"
#include "base/block_size.h"
#include "data.h"

#include <optional>

using namespace velk;

// A run's memory for one set of switches, with all that is in it kept from block to block.
class Chain {
public:
    // flags: those of an archive.
    Chain(std::uint8_t flags, bool no_fallback, std::uint32_t file_size,
          std::uint32_t block_size = kMinBlockSize);
    ~Chain();
    Chain(const Chain &) = delete;
    Chain &operator=(const Chain &) = delete;

    // False where both sorting transforms are on.
    bool usable() const { return usable_; }
    Bytes compress(const Bytes &block);
    // Nothing when the record data is refused.
    std::optional<Bytes> decompress(const Bytes &data, BlockTrace *trace = nullptr);

private:
    CoderContext forward_{}, inverse_{};
    bool usable_;
};

// An archive of these blocks, which may be shorter than the block size.
Bytes make_archive(std::uint8_t flags, const std::vector<Bytes> &blocks);

// The same with an index.
Bytes make_indexed(std::uint8_t flags, const std::vector<Bytes> &blocks);

struct Restored {
    ArchiveStatus status;             // what ended the reading
    Bytes bytes;                      // the blocks before it
    std::vector<std::size_t> lengths; // of the blocks
    bool whole() const {
        return status == ArchiveStatus::kEnd || status == ArchiveStatus::kEndMark;
    }
};
// A read beyond the first `readable` bytes fails.
Restored restore_archive(const Bytes &archive, std::size_t readable = SIZE_MAX);

// Where the archive's records begin, and its end, as the record heads' lengths say.
std::vector<std::size_t> record_starts(const Bytes &archive);
