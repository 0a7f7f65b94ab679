// The two directions of the block chain, for what is the same in both.
#pragma once

#include "api/options.h"
#include "archive/coder_context.h"
#include "archive/index.h"
#include "base/block_size.h"
#include "velk.h"

#include <cstddef>
#include <cstdint>

namespace velk {

// Blocks, or records, in a row that one thread codes at once.
constexpr std::uint32_t kMaxGroup = kMaxBlockSize / kMinBlockSize + 1;
struct BlockGroup {
    std::uint32_t length; // bytes of all of them, then of their results in a row
    std::uint32_t count;
    IndexEntry entries[kMaxGroup];
};

struct Coder {
    std::uint32_t (*alloc)(CoderContext &context, std::uint32_t block_size);
    void (*free)(CoderContext &context);
    // From `buf_in` to `buf_out`; false for a block that can't be restored. entry: what the
    // index says of it.
    bool (*code)(CoderContext &context, IndexEntry &entry);
};

// The compressor takes a `file_size` of 0 for an unknown one: the FLT32 filter then has what
// suits the block.
extern const Coder kCompressor;
extern const Coder kRestorer;

// Codes the `length` bytes of `data`, as above.
[[nodiscard]] bool code_data(const Coder &coder, CoderContext &context, const std::uint8_t *data,
                             std::size_t length, IndexEntry &entry);

// Set up the context, whose members are zero: to compress an input of this size, or to restore
// what follows the `size` bytes `start` of a member. memory_bytes: how many were taken, within
// the options' memory limit, of which little has been touched yet.
[[nodiscard]] velk_status open_compressor(CoderContext &context, const CheckedOptions &options,
                                          std::uint64_t input_size, std::uint32_t &memory_bytes);
[[nodiscard]] velk_status open_restorer(CoderContext &context, const CheckedOptions &options,
                                        const void *start, std::size_t size,
                                        std::uint32_t &memory_bytes);

} // namespace velk
