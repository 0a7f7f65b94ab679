#include "archive/memory.h"

#include "archive/format.h"
#include "base/block_size.h"
#include "dce/frequency_models.h"
#include "filters/lzp.h"
#include "sorting/bwt.h"
#include "sorting/st.h"

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#ifdef __linux__
#include <sys/mman.h>
#endif

namespace velk {
namespace {

static_assert(kModelAreaBytes <= kSortScratchBytes);

// Takes an array and adds its bytes to `sum`, which stays below 2^28, as capacity is below 2^24.
//
// Random access misses the TLB with pages of 4 KiB, and some virtual machines take 20 us to hand
// one out. With large ones, which the array is aligned to, blocks of 2 MiB are restored in 8 %
// less time there, and elsewhere in 2 to 5 %. Only pages that lie in the array as a whole are
// asked for, so that it takes no more memory; the small ones behind them are had at once (with
// blocks of 1 MB a tenth less time). Where there is no support, nothing changes.
bool take(std::uint32_t *&array, std::uint32_t bytes, std::uint32_t &sum) {
    sum += bytes;
#ifdef MADV_HUGEPAGE
    constexpr std::uint32_t kLargePage = 2 << 20;
    if (bytes >= kLargePage) {
        void *memory;
        if (posix_memalign(&memory, kLargePage, bytes) != 0) return false;
        array = static_cast<std::uint32_t *>(memory);
        const std::uint32_t rest = bytes % kLargePage;
        static_cast<void>(madvise(array, bytes - rest, MADV_HUGEPAGE));
#ifdef MADV_POPULATE_WRITE
        static_cast<void>(madvise(array + (bytes - rest) / 4, rest, MADV_POPULATE_WRITE));
#endif
        return true;
    }
#endif
    array = static_cast<std::uint32_t *>(std::malloc(bytes));
    return array != nullptr;
}

} // namespace

std::uint32_t choose_block_size(const Settings &settings, std::uint64_t input_size) {
    if (settings.no_auto_block_size != 0 || input_size > settings.max_block_size) {
        return settings.max_block_size;
    }
    return std::max(static_cast<std::uint32_t>(input_size), kMinBlockSize);
}

std::uint32_t alloc_compress(CoderContext &context, std::uint32_t block_size) {
    if (!is_valid_header(context.settings, block_size)) return 0;
    context.capacity = block_size + kBlockSlack;
    context.bit_words = context.capacity / 8;
    const std::uint32_t index_entries =
        context.settings.st_off != 0 ? context.capacity : std::max(context.capacity, kStContexts);
    std::uint32_t sum = 0;
    if (!take(context.work1, 4 * context.capacity, sum) ||
        !take(context.work2, 4 * index_entries, sum) ||
        !take(context.work3, 4 * context.bit_words, sum) ||
        !take(context.work4, kSortScratchBytes, sum)) {
        free_compress(context);
        return 0;
    }
    context.buf_in = reinterpret_cast<std::uint8_t *>(context.work1);
    context.buf_out = context.buf_in + context.capacity;
    return sum;
}

std::uint32_t alloc_decompress(CoderContext &context, std::uint32_t block_size) {
    if (!is_valid_header(context.settings, block_size)) return 0;
    context.capacity = block_size + kBlockSlack;
    const bool with_st = context.settings.st_off == 0;
    const std::uint32_t before_buffers =
        context.settings.bwt_off == 0 ? 3 * context.capacity : kLzpTableBytes;
    std::uint32_t sum = 0;
    if (!take(context.work2, before_buffers + 2 * context.capacity, sum) ||
        !take(context.work3, with_st ? 4 * kStContexts : kModelAreaBytes, sum)) {
        free_decompress(context);
        return 0;
    }
    context.buf_in = reinterpret_cast<std::uint8_t *>(context.work2) + before_buffers;
    context.buf_out = context.buf_in + context.capacity;
    return sum;
}

void free_compress(CoderContext &context) {
    for (std::uint32_t **array : {&context.work1, &context.work2, &context.work3, &context.work4}) {
        std::free(*array);
        *array = nullptr;
    }
}

// What compression alone takes was not taken.
void free_decompress(CoderContext &context) {
    free_compress(context);
}

} // namespace velk
