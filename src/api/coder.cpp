#include "api/coder.h"

#include "archive/memory.h"
#include "pipeline/block.h"

namespace {

constexpr std::uint32_t kAssumedSize = 64 << 20;

bool compress(CoderContext &context) {
    if (context.file_size != 0) return compress_block(context);
    context.file_size = kAssumedSize;
    const bool done = compress_block(context);
    context.file_size = 0;
    return done;
}

bool restore(CoderContext &context) {
    return decompress_block(context);
}

} // namespace

const Coder kCompressor = {alloc_compress, free_compress, compress};
const Coder kRestorer = {alloc_decompress, free_decompress, restore};

velk_status alloc_within(const Coder &coder, CoderContext &context, std::uint32_t block_size,
                         std::uint64_t limit, std::uint32_t &bytes) {
    bytes = coder.alloc(context, block_size);
    if (bytes == 0) return VELK_ERROR_MEMORY;
    if (bytes > limit) { // nothing of it has been touched
        coder.free(context);
        return VELK_ERROR_MEMORY;
    }
    return VELK_OK;
}
