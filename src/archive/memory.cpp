#include "archive/memory.h"

#include "archive/format.h"
#include "base/block_size.h"
#include "dce/frequency_models.h"
#include "filters/lzp.h"
#include "sorting/bwt.h"
#include "sorting/st.h"

#include <algorithm>
#include <cstdlib>
#ifdef __linux__
#include <sys/mman.h>
#endif

namespace velk {
namespace {

static_assert(kModelAreaBytes <= kSortScratchBytes);

// Random access misses the TLB with pages of 4 KiB: large ones gain 5 to 15 % with blocks
// of 16 MB, 2 to 5 % with those of 2 MiB. Only pages that lie in the array as a whole are
// asked for, so that it takes no more memory; where there is no support, nothing changes.
std::uint32_t *on_large_pages(void *array, [[maybe_unused]] std::uint32_t bytes) {
#ifdef MADV_HUGEPAGE
    constexpr std::uintptr_t kLargePage = 2 << 20;
    const std::uintptr_t begin = reinterpret_cast<std::uintptr_t>(array);
    const std::uintptr_t skipped = (kLargePage - begin % kLargePage) % kLargePage;
    if (array != nullptr && bytes >= skipped + kLargePage) {
        const std::uintptr_t length = (bytes - skipped) / kLargePage * kLargePage;
        static_cast<void>(madvise(static_cast<char *>(array) + skipped, length, MADV_HUGEPAGE));
    }
#endif
    return static_cast<std::uint32_t *>(array);
}

std::uint32_t *allocate_zeroed(std::uint32_t bytes) {
    return on_large_pages(std::calloc(bytes, 1), bytes);
}

std::uint32_t *allocate(std::uint32_t bytes) {
    return on_large_pages(std::malloc(bytes), bytes);
}

void release(std::uint32_t *&array) {
    std::free(array);
    array = nullptr;
}

} // namespace

std::uint32_t choose_block_size(const Settings &settings, std::uint64_t input_size) {
    if (settings.no_auto_block_size != 0 || input_size > settings.max_block_size) {
        return settings.max_block_size;
    }
    return std::max(static_cast<std::uint32_t>(input_size), kMinBlockSize);
}

// All sums below stay under 2^28: capacity is below 2^24.

std::uint32_t alloc_compress(CoderContext &context, std::uint32_t block_size) {
    if (!is_valid_header(context.settings, block_size)) return 0;
    context.capacity = block_size + kBlockSlack;
    context.bit_words = context.capacity / 8;
    const std::uint32_t index_entries =
        context.settings.st_off != 0 ? context.capacity : std::max(context.capacity, kStContexts);
    const std::uint32_t pair_bytes = 4 * context.capacity;
    context.work1 = allocate_zeroed(pair_bytes);
    context.work2 = allocate_zeroed(4 * index_entries);
    context.work3 = allocate_zeroed(4 * context.bit_words);
    context.work4 = allocate_zeroed(kSortScratchBytes);
    if (context.work1 == nullptr || context.work2 == nullptr || context.work3 == nullptr ||
        context.work4 == nullptr) {
        free_compress(context);
        return 0;
    }
    context.buf_in = reinterpret_cast<std::uint8_t *>(context.work1);
    context.buf_out = context.buf_in + context.capacity;
    return pair_bytes + 4 * index_entries + 4 * context.bit_words + kSortScratchBytes;
}

std::uint32_t alloc_decompress(CoderContext &context, std::uint32_t block_size) {
    if (!is_valid_header(context.settings, block_size)) return 0;
    context.capacity = block_size + kBlockSlack;
    const std::uint32_t region_bytes = context.settings.bwt_off == 0
                                           ? 5 * context.capacity
                                           : 2 * context.capacity + kLzpTableBytes;
    const std::uint32_t model_bytes =
        context.settings.st_off == 0 ? 4 * kStContexts : kModelAreaBytes;
    context.work2 = allocate(region_bytes);
    context.work3 =
        context.settings.st_off == 0 ? allocate_zeroed(model_bytes) : allocate(model_bytes);
    if (context.work2 == nullptr || context.work3 == nullptr) {
        free_decompress(context);
        return 0;
    }
    std::uint8_t *region = reinterpret_cast<std::uint8_t *>(context.work2);
    context.buf_in = region + (region_bytes - 2 * context.capacity);
    context.buf_out = context.buf_in + context.capacity;
    return region_bytes + model_bytes;
}

void free_compress(CoderContext &context) {
    release(context.work1);
    release(context.work2);
    release(context.work3);
    release(context.work4);
}

void free_decompress(CoderContext &context) {
    release(context.work2);
    release(context.work3);
}

} // namespace velk
