#include "api/coder.h"

#include "archive/format.h"
#include "archive/memory.h"
#include "filters/flt32.h"
#include "pipeline/block.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace velk {
namespace {

bool compress(CoderContext &context, IndexEntry &entry) {
    entry.block_len = context.in_len;
    entry.block_crc = crc32_append(0, context.buf_in, context.in_len); // the chain alters it
    const bool unknown = context.file_size == 0;
    if (unknown) {
        // The filter takes the size for how far calls reach, and declines where it is too large.
        // What is not code comes out up to 1 % smaller without it, and code as small by the reach
        // of its own calls as by the size of its program.
        const CallStatistics calls = find_calls(context.buf_in, context.in_len);
        const std::uint32_t reach =
            calls.reach == 0 ? 0 : std::max(calls.reach, context.in_len + 1);
        set_file_size(context, calls.is_code ? std::uint64_t{reach} + 1 : UINT64_MAX);
    }
    const bool done = compress_block(context);
    if (unknown) context.file_size = 0;
    entry.data_len = context.out_len;
    return done;
}

bool restore(CoderContext &context, IndexEntry &entry) {
    entry.data_len = context.in_len;
    if (!decompress_block(context)) return false;
    entry.block_len = context.out_len;
    entry.block_crc = crc32_append(0, context.buf_out, context.out_len);
    return true;
}

bool baseline_wanted() {
    const char *const cpu = std::getenv("VELK_CPU");
    return cpu != nullptr && std::strcmp(cpu, "baseline") == 0;
}

velk_status alloc_within(const Coder &coder, CoderContext &context, std::uint32_t block_size,
                         std::uint64_t limit, std::uint32_t &memory_bytes) {
    context.settings.baseline = baseline_wanted();
    memory_bytes = coder.alloc(context, block_size);
    if (memory_bytes != 0 && memory_bytes <= limit) return VELK_OK;
    coder.free(context);
    return VELK_ERROR_MEMORY;
}

} // namespace

const Coder kCompressor = {alloc_compress, free_compress, compress};
const Coder kRestorer = {alloc_decompress, free_decompress, restore};

bool code_data(const Coder &coder, CoderContext &context, const std::uint8_t *data,
               std::size_t length, IndexEntry &entry) {
    if (data != context.buf_in) std::memcpy(context.buf_in, data, length);
    context.in_len = static_cast<std::uint32_t>(length);
    return coder.code(context, entry);
}

velk_status open_compressor(CoderContext &context, const CheckedOptions &options,
                            std::uint64_t input_size, std::uint32_t &memory_bytes) {
    context.settings = options.settings;
    // 0 for an unknown one, and before an index: blocks are the same from files and from pipes.
    set_file_size(context, options.plain ? input_size + 1 : 0);
    return alloc_within(kCompressor, context, choose_block_size(options, input_size),
                        options.memory_limit, memory_bytes);
}

velk_status open_restorer(CoderContext &context, const CheckedOptions &options, const void *start,
                          std::size_t size, std::uint32_t &memory_bytes) {
    std::uint32_t block_size;
    const velk_status status = status_of(
        parse_start(static_cast<const std::uint8_t *>(start), size, context.settings, block_size));
    return status == VELK_OK
               ? alloc_within(kRestorer, context, block_size, options.memory_limit, memory_bytes)
               : status;
}

} // namespace velk

const char *velk_cpu(void) {
    return velk::has_v3() && !velk::baseline_wanted() ? "x86-64-v3" : "baseline";
}
