// The chain of stages, and a whole archive, called on byte vectors.
#pragma once

#include "archive/coder_context.h"
#include "archive/memory.h"
#include "cli/error.h"
#include "data.h"
#include "pipeline/block.h"

#include <optional>

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

struct Restored {
    ErrorCode error; // what the program would end with
    Bytes bytes;     // what it would have written by then
};
// Reads the archive as the driver does.
Restored restore_archive(const Bytes &archive);

// Where the archive's records begin, and its end, as the record heads' lengths say.
std::vector<std::size_t> record_starts(const Bytes &archive);
