#include "api/options.h"

#include "archive/format.h"
#include "archive/memory.h"

#include <algorithm>
#include <cstring>
#include <limits>
#ifdef __linux__
#include <sched.h>
#endif
#include <unistd.h>

static_assert(VELK_MIN_BLOCK_SIZE == kMinBlockSize && VELK_MAX_BLOCK_SIZE == kMaxBlockSize);
static_assert(VELK_HEADER_SIZE == kMagicBytes + kHeaderBytes);
static_assert(VELK_RECORD_HEAD_SIZE == kRecordHeadBytes);

namespace {

constexpr std::uint32_t kDefaultBlockSize = 2048 * 1024;

constexpr bool both_sorts(unsigned stages_off) {
    return (stages_off & (VELK_OFF_BWT | VELK_OFF_ST)) == 0;
}

// The processors that this process may use.
std::uint32_t processors() {
#ifdef __linux__
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) == 0)
        return static_cast<std::uint32_t>(CPU_COUNT(&set));
#endif
    return static_cast<std::uint32_t>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L));
}

// The most bytes by which the record of a block, its head included, is longer than it.
// Nothing but trailers adds to a block: where a stage would, it declines.
std::uint32_t record_overhead(const Settings &s) {
    constexpr std::uint32_t kOff = 1;
    constexpr std::uint32_t kEol = 2, kFlt32 = 9, kBwt = 5, kSt = 4, kRle = 5;
    constexpr std::uint32_t kOthers = 3;                    // DELTA, LZP, DCE
    constexpr std::uint32_t kAround = kRecordHeadBytes + 4; // with the block CRC
    const std::uint32_t filters =
        (s.eol_off != 0 ? kOff : kEol) + (s.flt32_off != 0 ? kOff : kFlt32);
    // A block that the DCE can't have coded falls back to its filtered form, with a marker
    // in the place of the DCE's trailer.
    if (s.no_fallback == 0 && s.dce_off != 0) return filters + kOthers + kAround;
    return filters + (s.bwt_off != 0 ? kOff : kBwt) + (s.st_off != 0 ? kOff : kSt) +
           (s.rle_off != 0 ? kOff : kRle) + kOthers + kAround;
}

} // namespace

bool make_plan(const velk_options *options, Plan &plan) {
    velk_options defaults;
    velk_options_init(&defaults);
    const velk_options &o = options == nullptr ? defaults : *options;
    const bool flags_hold = o.fixed_block_size <= 1 && o.no_fallback <= 1;
    const bool reserved_hold = std::all_of(o.reserved, o.reserved + sizeof o.reserved,
                                           [](auto byte) { return byte == 0; });
    if (both_sorts(o.stages_off) || !flags_hold || !reserved_hold) return false;

    plan = Plan{};
    set_flags(plan.settings, o.stages_off);
    plan.settings.no_auto_block_size = o.fixed_block_size;
    plan.settings.no_fallback = o.no_fallback;
    plan.settings.max_block_size = o.block_size == 0 ? kDefaultBlockSize : o.block_size;
    plan.threads = std::min(o.threads == 0 ? processors() : o.threads, VELK_MAX_THREADS);
    plan.memory_limit =
        o.memory_limit == 0 ? std::numeric_limits<std::uint64_t>::max() : o.memory_limit;
    return plan.settings.max_block_size >= kMinBlockSize &&
           plan.settings.max_block_size <= kMaxBlockSize;
}

void put_archive_start(std::uint8_t *header, const Settings &settings, std::uint32_t block_size) {
    std::memcpy(header, kMagic, kMagicBytes);
    put_header(header + kMagicBytes, flags_of(settings), block_size);
}

velk_status read_header(const std::uint8_t *header, std::size_t size, Settings &settings,
                        std::uint32_t &block_size) {
    if (size < kMagicBytes || std::memcmp(header, kMagic, kMagicBytes) != 0)
        return VELK_ERROR_FORMAT;
    std::uint8_t flags;
    if (size < VELK_HEADER_SIZE) return VELK_ERROR_DAMAGED;
    if (!get_header(header + kMagicBytes, flags, block_size)) return VELK_ERROR_DAMAGED;
    if (both_sorts(flags) || block_size < kMinBlockSize || block_size > kMaxBlockSize)
        return VELK_ERROR_FORMAT;
    set_flags(settings, flags);
    return VELK_OK;
}

std::uint32_t file_size_of(std::uint64_t input_size) {
    return input_size == VELK_SIZE_UNKNOWN ? 0 : saturate(input_size + 1);
}

void velk_options_init(velk_options *options) {
    *options = velk_options{};
    options->stages_off = VELK_OFF_ST;
}

std::uint32_t velk_block_size(const velk_options *options, std::uint64_t input_size) {
    Plan plan;
    return make_plan(options, plan) ? choose_block_size(plan.settings, input_size) : 0;
}

std::size_t velk_compress_bound(std::size_t size, const velk_options *options) {
    Plan plan;
    if (!make_plan(options, plan)) return 0;
    const std::uint32_t block_size = choose_block_size(plan.settings, size);
    const std::uint64_t blocks = size / block_size + (size % block_size != 0);
    // At most 2^64 / 2^17 blocks, and less than 2^6 bytes for each.
    const std::uint64_t added = blocks * record_overhead(plan.settings) + VELK_HEADER_SIZE;
    return size > SIZE_MAX - added ? 0 : size + static_cast<std::size_t>(added);
}

velk_status velk_write_header(const velk_options *options, std::uint64_t input_size, void *header) {
    Plan plan;
    if (header == nullptr || !make_plan(options, plan)) return VELK_ERROR_ARGUMENT;
    put_archive_start(static_cast<std::uint8_t *>(header), plan.settings,
                      choose_block_size(plan.settings, input_size));
    return VELK_OK;
}

velk_status velk_read_header(const void *header, velk_options *options) {
    if (header == nullptr || options == nullptr) return VELK_ERROR_ARGUMENT;
    Settings settings{};
    std::uint32_t block_size;
    const velk_status status = read_header(static_cast<const std::uint8_t *>(header),
                                           VELK_HEADER_SIZE, settings, block_size);
    velk_options_init(options);
    if (status != VELK_OK) return status;
    options->block_size = block_size;
    options->fixed_block_size = 1;
    options->stages_off = flags_of(settings);
    return VELK_OK;
}
