// The two directions of the block chain, for what is the same in both.
#pragma once

#include "archive/coder_context.h"
#include "velk.h"

#include <cstdint>

struct Coder {
    std::uint32_t (*alloc)(CoderContext &context, std::uint32_t block_size);
    void (*free)(CoderContext &context);
    // From `buf_in` to `buf_out`; false for a block that can't be restored.
    bool (*code)(CoderContext &context);
};

// A `file_size` of 0 stands for an unknown one: the compressor then chooses the size to
// assume for each block by the block alone.
extern const Coder kCompressor;
extern const Coder kRestorer;

// Sets up the context's memory, of which `bytes` were taken, unless they are above `limit`.
// The stage flags of the settings must be set.
[[nodiscard]] velk_status alloc_within(const Coder &coder, CoderContext &context,
                                       std::uint32_t block_size, std::uint64_t limit,
                                       std::uint32_t &bytes);
