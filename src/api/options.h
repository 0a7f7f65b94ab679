// What the options of a call and the header of an archive mean to the core.
#pragma once

#include "archive/format.h"
#include "velk.h"

#include <cstdint>

namespace velk {

// The options of a call after the check, with the defaults in place of zeros.
struct CheckedOptions {
    Settings settings;
    bool plain;
    bool tries;                 // how to cut the input into blocks
    bool one_member;            // is restored
    std::uint32_t threads;      // 1 to VELK_MAX_THREADS
    std::uint64_t memory_limit; // bytes
};

// Null stands for the defaults. Returns false for options out of bounds.
[[nodiscard]] bool check_options(const velk_options *options, CheckedOptions &checked);

// The block size that a header with N stands for.
[[nodiscard]] std::uint32_t told_block_size(std::uint32_t block_size);

// The block size N of the archive of an input, and the most bytes of a block.
[[nodiscard]] std::uint32_t choose_block_size(const CheckedOptions &options,
                                              std::uint64_t input_size);
[[nodiscard]] std::uint32_t choose_block_limit(const CheckedOptions &options,
                                               std::uint64_t input_size);

// Whether blocks end where their content changes; and the least bytes of all blocks but the last.
[[nodiscard]] bool cuts_blocks(const CheckedOptions &options);
[[nodiscard]] std::uint32_t least_block(const CheckedOptions &options, std::uint64_t input_size);

// What a caller is told.
[[nodiscard]] velk_status status_of(ArchiveStatus status);

} // namespace velk
