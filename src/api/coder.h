// The two directions of the block chain, for what is the same in both.
#pragma once

#include "archive/coder_context.h"
#include "velk.h"

#include <cstdint>

namespace velk {

struct Coder {
    std::uint32_t (*alloc)(CoderContext &context, std::uint32_t block_size);
    void (*free)(CoderContext &context);
    // From `buf_in` to `buf_out`; false for a block that can't be restored.
    // seen: bytes of the input up to the block's end; 0 if that is unknown.
    bool (*code)(CoderContext &context, std::uint64_t seen);
};

// The compressor takes a `file_size` of 0 for an unknown one, and assumes one.
extern const Coder kCompressor;
extern const Coder kRestorer;

// Sets up the context's memory, of which `bytes` were taken, unless they are above `limit`.
// The stage flags of the settings must be set.
[[nodiscard]] velk_status alloc_within(const Coder &coder, CoderContext &context,
                                       std::uint32_t block_size, std::uint64_t limit,
                                       std::uint32_t &bytes);

} // namespace velk
