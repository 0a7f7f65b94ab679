#include "api/options.h"

#include "api/block_cut.h"
#include "api/threads.h"
#include "archive/index.h"
#include "archive/memory.h"
#include "base/block_size.h"
#include "base/checked.h"
#include "pipeline/block.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>

namespace velk {

static_assert(VELK_MIN_BLOCK_SIZE == kMinBlockSize && VELK_MAX_BLOCK_SIZE == kMaxBlockSize);
static_assert(VELK_HEADER_SIZE == kFirstRecord && VELK_RECORD_HEAD_SIZE == kRecordHeadBytes);
static_assert(VELK_ENTRY_SIZE == kEntryBytes);
static_assert(VELK_OFF_EOL == 1 << STAGE_EOL && VELK_OFF_ST == 1 << STAGE_ST &&
              VELK_OFF_DCE == 1 << STAGE_DCE);

// Block sizes by level; that of 0 is the default.
constexpr std::uint32_t kLevelSizes[] = {kDefaultBlockSize, 128 << 10,    256 << 10, 512 << 10,
                                         1 << 20,           2 << 20,      4 << 20,   8 << 20,
                                         kMaxBlockSize,     kMaxBlockSize};
static_assert(std::size(kLevelSizes) == VELK_MAX_LEVEL + 1);

bool check_options(const velk_options *options, CheckedOptions &checked) {
    velk_options defaults;
    velk_options_init(&defaults);
    const velk_options &o = options == nullptr ? defaults : *options;
    const bool flags_hold =
        o.fixed_block_size <= 1 && o.no_fallback <= 1 && o.plain <= 1 && o.one_member <= 1;
    const bool reserved_hold = std::all_of(o.reserved, o.reserved + sizeof o.reserved,
                                           [](auto byte) { return byte == 0; });
    if (!flags_hold || !reserved_hold || o.block_size % 1024 != 0 ||
        o.level >= std::size(kLevelSizes))
        return false;

    checked = CheckedOptions{};
    set_flags(checked.settings, o.stages_off);
    checked.settings.no_auto_block_size = o.fixed_block_size;
    checked.settings.no_fallback = o.no_fallback;
    checked.settings.max_block_size = o.block_size == 0 ? kLevelSizes[o.level] : o.block_size;
    checked.plain = o.plain != 0;
    checked.tries = o.level == VELK_MAX_LEVEL && !checked.plain;
    checked.one_member = o.one_member != 0;
    checked.threads = std::min(o.threads == 0 ? processors() : o.threads, VELK_MAX_THREADS);
    checked.memory_limit =
        o.memory_limit == 0 ? std::numeric_limits<std::uint64_t>::max() : o.memory_limit;
    return is_valid_header(checked.settings, checked.settings.max_block_size);
}

std::uint32_t told_block_size(std::uint32_t block_size) {
    return is_marked(block_size) ? block_size - kIndexMark : block_size;
}

std::uint32_t choose_block_size(const CheckedOptions &options, std::uint64_t input_size) {
    const Settings &settings = options.settings;
    if (options.plain) return choose_block_size(settings, input_size);
    const std::uint32_t most = std::min(settings.max_block_size, kMaxIndexedBlock);
    if (settings.no_auto_block_size != 0 || input_size >= most) return most + kIndexMark;
    // The least number above the size that bears the mark.
    const auto size = static_cast<std::uint32_t>(input_size);
    return std::max((size + 1023 - (kIndexMark - 1)) / 1024 * 1024, kMinBlockSize) + kIndexMark;
}

std::uint32_t choose_block_limit(const CheckedOptions &options, std::uint64_t input_size) {
    const std::uint32_t block_size = choose_block_size(options, input_size);
    if (options.plain) return block_size;
    return std::min({options.settings.max_block_size, kMaxIndexedBlock, block_size - 1});
}

bool cuts_blocks(const CheckedOptions &options) {
    return !options.plain && options.settings.max_block_size >= kLeastCutBlock;
}

std::uint32_t least_block(const CheckedOptions &options, std::uint64_t input_size) {
    return cuts_blocks(options) || options.tries ? kMinBlockSize
                                                 : choose_block_limit(options, input_size);
}

velk_status status_of(ArchiveStatus status) {
    switch (status) {
    case ArchiveStatus::kGood:
    case ArchiveStatus::kEnd:
    case ArchiveStatus::kEndMark:
    case ArchiveStatus::kNextHeader:
    case ArchiveStatus::kGarbage:
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
    if (options == nullptr) return;
    *options = velk_options{};
    options->stages_off = VELK_OFF_ST;
}

std::uint32_t velk_block_size(const velk_options *options, std::uint64_t input_size) {
    CheckedOptions checked;
    return check_options(options, checked) ? choose_block_limit(checked, input_size) : 0;
}

std::size_t velk_compress_bound(std::size_t size, const velk_options *options) {
    CheckedOptions checked;
    if (!check_options(options, checked)) return 0;
    const std::uint32_t least = least_block(checked, size);
    const std::uint64_t blocks = size / least + (size % least != 0);
    const std::uint64_t record_overhead = kRecordHeadBytes + data_overhead(checked.settings);
    // At most 2^64 / 2^17 blocks, and less than 2^7 bytes for each.
    std::uint64_t bound = blocks * (record_overhead + (checked.plain ? 0 : kEntryBytes)) +
                          VELK_HEADER_SIZE + (checked.plain ? 0 : kRecordHeadBytes + kFooterBytes);
    return add_checked(bound, size) && bound <= SIZE_MAX ? static_cast<std::size_t>(bound) : 0;
}

velk_status velk_write_header(const velk_options *options, std::uint64_t input_size, void *header) {
    CheckedOptions checked;
    if (header == nullptr || !check_options(options, checked)) return VELK_ERROR_ARGUMENT;
    put_start(static_cast<std::uint8_t *>(header), checked.settings,
              choose_block_size(checked, input_size));
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
    options->plain = !is_marked(block_size);
    options->block_size = told_block_size(block_size);
    options->fixed_block_size = 1;
    options->stages_off = flags_of(settings);
    return VELK_OK;
}
