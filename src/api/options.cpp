#include "api/options.h"

#include "api/threads.h"
#include "archive/format.h"
#include "archive/memory.h"
#include "base/block_size.h"
#include "base/checked.h"
#include "pipeline/block.h"

#include <algorithm>
#include <cstddef>
#include <limits>

namespace velk {

static_assert(VELK_MIN_BLOCK_SIZE == kMinBlockSize && VELK_MAX_BLOCK_SIZE == kMaxBlockSize);
static_assert(VELK_HEADER_SIZE == kFirstRecord && VELK_RECORD_HEAD_SIZE == kRecordHeadBytes);
static_assert(VELK_OFF_EOL == 1 << STAGE_EOL && VELK_OFF_ST == 1 << STAGE_ST &&
              VELK_OFF_DCE == 1 << STAGE_DCE);

bool check_options(const velk_options *options, CheckedOptions &checked) {
    velk_options defaults;
    velk_options_init(&defaults);
    const velk_options &o = options == nullptr ? defaults : *options;
    const bool flags_hold = o.fixed_block_size <= 1 && o.no_fallback <= 1;
    const bool reserved_hold = std::all_of(o.reserved, o.reserved + sizeof o.reserved,
                                           [](auto byte) { return byte == 0; });
    if (!flags_hold || !reserved_hold) return false;

    checked = CheckedOptions{};
    set_flags(checked.settings, o.stages_off);
    checked.settings.no_auto_block_size = o.fixed_block_size;
    checked.settings.no_fallback = o.no_fallback;
    checked.settings.max_block_size = o.block_size == 0 ? kDefaultBlockSize : o.block_size;
    checked.threads = std::min(o.threads == 0 ? processors() : o.threads, VELK_MAX_THREADS);
    checked.memory_limit =
        o.memory_limit == 0 ? std::numeric_limits<std::uint64_t>::max() : o.memory_limit;
    return is_valid_header(checked.settings, checked.settings.max_block_size);
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
    CheckedOptions checked;
    return check_options(options, checked) ? choose_block_size(checked.settings, input_size) : 0;
}

std::size_t velk_compress_bound(std::size_t size, const velk_options *options) {
    CheckedOptions checked;
    if (!check_options(options, checked)) return 0;
    const std::uint32_t block_size = choose_block_size(checked.settings, size);
    const std::uint64_t blocks = size / block_size + (size % block_size != 0);
    const std::uint64_t overhead = kRecordHeadBytes + data_overhead(checked.settings);
    // At most 2^64 / 2^17 blocks, and less than 2^6 bytes for each.
    std::uint64_t bound = blocks * overhead + VELK_HEADER_SIZE;
    return add_checked(bound, size) && bound <= SIZE_MAX ? static_cast<std::size_t>(bound) : 0;
}

velk_status velk_write_header(const velk_options *options, std::uint64_t input_size, void *header) {
    CheckedOptions checked;
    if (header == nullptr || !check_options(options, checked)) return VELK_ERROR_ARGUMENT;
    put_start(static_cast<std::uint8_t *>(header), checked.settings,
              choose_block_size(checked.settings, input_size));
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
