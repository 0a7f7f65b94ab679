#include "api/options.h"

#include "api/threads.h"
#include "archive/format.h"
#include "archive/memory.h"
#include "base/block_size.h"
#include "filters/eol.h"
#include "filters/flt32.h"
#include "sorting/bwt.h"
#include "sorting/rle.h"
#include "sorting/st.h"

#include <algorithm>
#include <cstddef>
#include <limits>

namespace velk {

static_assert(VELK_MIN_BLOCK_SIZE == kMinBlockSize && VELK_MAX_BLOCK_SIZE == kMaxBlockSize);
static_assert(VELK_HEADER_SIZE == kFirstRecord && VELK_RECORD_HEAD_SIZE == kRecordHeadBytes);
static_assert(VELK_OFF_EOL == 1 << STAGE_EOL && VELK_OFF_ST == 1 << STAGE_ST &&
              VELK_OFF_DCE == 1 << STAGE_DCE);

namespace {

// The most bytes by which the record of a block, its head included, is longer than it.
// Nothing but trailers adds to a block: where a stage would, it declines.
std::uint32_t record_overhead(const Settings &s) {
    constexpr std::uint32_t kOff = 1;
    constexpr std::uint32_t kOthers = 3; // DELTA, LZP, DCE
    constexpr std::uint32_t kAround = kRecordHeadBytes + kCrcBytes;
    const std::uint32_t filters =
        (s.eol_off != 0 ? kOff : kEolTrailerBytes) + (s.flt32_off != 0 ? kOff : kFlt32TrailerBytes);
    // A block that the DCE can't have coded falls back to its filtered form, with a marker
    // in the place of the DCE's trailer.
    if (s.no_fallback == 0 && s.dce_off != 0) return filters + kOthers + kAround;
    return filters + (s.bwt_off != 0 ? kOff : kBwtTrailerBytes) +
           (s.st_off != 0 ? kOff : kStTrailerBytes) + (s.rle_off != 0 ? kOff : kRleTrailerBytes) +
           kOthers + kAround;
}

} // namespace

bool make_plan(const velk_options *options, Plan &plan) {
    velk_options defaults;
    velk_options_init(&defaults);
    const velk_options &o = options == nullptr ? defaults : *options;
    const bool flags_hold = o.fixed_block_size <= 1 && o.no_fallback <= 1;
    const bool reserved_hold = std::all_of(o.reserved, o.reserved + sizeof o.reserved,
                                           [](auto byte) { return byte == 0; });
    if (!flags_hold || !reserved_hold) return false;

    plan = Plan{};
    set_flags(plan.settings, o.stages_off);
    plan.settings.no_auto_block_size = o.fixed_block_size;
    plan.settings.no_fallback = o.no_fallback;
    plan.settings.max_block_size = o.block_size == 0 ? kDefaultBlockSize : o.block_size;
    plan.threads = std::min(o.threads == 0 ? processors() : o.threads, VELK_MAX_THREADS);
    plan.memory_limit =
        o.memory_limit == 0 ? std::numeric_limits<std::uint64_t>::max() : o.memory_limit;
    return is_valid_header(plan.settings, plan.settings.max_block_size);
}

velk_status status_of(ArchiveStatus status) {
    switch (status) {
    case ArchiveStatus::kGood:
    case ArchiveStatus::kEnd:
    case ArchiveStatus::kEndMark:
        return VELK_OK;
    case ArchiveStatus::kReadFailed:
        return VELK_ERROR_READ;
    case ArchiveStatus::kNotAnArchive:
    case ArchiveStatus::kHeaderInvalid:
        return VELK_ERROR_FORMAT;
    case ArchiveStatus::kNoMemory:
        return VELK_ERROR_MEMORY;
    default:
        return VELK_ERROR_DAMAGED;
    }
}

} // namespace velk

using namespace velk;

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
    put_start(static_cast<std::uint8_t *>(header), plan.settings,
              choose_block_size(plan.settings, input_size));
    return VELK_OK;
}

velk_status velk_read_header(const void *header, velk_options *options) {
    if (header == nullptr || options == nullptr) return VELK_ERROR_ARGUMENT;
    Settings settings{};
    std::uint32_t block_size;
    const velk_status status = status_of(parse_start(static_cast<const std::uint8_t *>(header),
                                                     VELK_HEADER_SIZE, settings, block_size));
    velk_options_init(options);
    if (status != VELK_OK) return status;
    options->block_size = block_size;
    options->fixed_block_size = 1;
    options->stages_off = flags_of(settings);
    return VELK_OK;
}
