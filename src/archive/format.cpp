#include "archive/format.h"

#include "base/block_size.h"
#include "base/byte_order.h"
#include "pipeline/crc32.h"

#include <cstring>

namespace velk {

using enum ArchiveStatus;

namespace {

std::uint8_t check_byte(const std::uint8_t *bytes, std::uint32_t count) {
    return static_cast<std::uint8_t>(crc32_block(bytes, count));
}

} // namespace

const StageEntry kStageTable[STAGE_COUNT] = {
    {"EOL", &Settings::eol_off}, {"FLT32", &Settings::flt32_off}, {"DELTA", &Settings::delta_off},
    {"LZP", &Settings::lzp_off}, {"BWT", &Settings::bwt_off},     {"ST", &Settings::st_off},
    {"RLE", &Settings::rle_off}, {"DCE", &Settings::dce_off},
};

std::uint8_t flags_of(const Settings &settings) {
    unsigned flags = 0;
    for (unsigned stage = 0; stage < STAGE_COUNT; ++stage) {
        if (settings.*kStageTable[stage].off != 0) flags |= 1u << stage;
    }
    return static_cast<std::uint8_t>(flags);
}

void set_flags(Settings &settings, std::uint8_t flags) {
    for (unsigned stage = 0; stage < STAGE_COUNT; ++stage)
        settings.*kStageTable[stage].off = (flags >> stage) & 1;
}

bool is_valid_header(const Settings &settings, std::uint32_t block_size) {
    const bool both_sorts = settings.bwt_off == 0 && settings.st_off == 0;
    return block_size >= kMinBlockSize && block_size <= kMaxBlockSize && !both_sorts;
}

void put_start(std::uint8_t *start, const Settings &settings, std::uint32_t block_size) {
    std::memcpy(start, kMagic, kMagicBytes);
    std::uint8_t *const checked = start + kMagicBytes + 1;
    checked[0] = flags_of(settings);
    put_u32(checked + 1, block_size);
    checked[-1] = check_byte(checked, 5);
}

ArchiveStatus parse_start(const std::uint8_t *start, std::size_t size, Settings &settings,
                          std::uint32_t &block_size) {
    if (size < kMagicBytes || std::memcmp(start, kMagic, kMagicBytes) != 0) return kNotAnArchive;
    if (size < kFirstRecord) return kHeaderCut;
    const std::uint8_t *const checked = start + kMagicBytes + 1;
    set_flags(settings, checked[0]);
    block_size = get_u32(checked + 1);
    if (checked[-1] != check_byte(checked, 5)) return kHeaderDamaged;
    return is_valid_header(settings, block_size) ? kGood : kHeaderInvalid;
}

void put_record_head(std::uint8_t *head, std::uint32_t length) {
    put_u32(head + 1, length);
    head[0] = check_byte(head + 1, kRecordHeadBytes - 1);
}

bool get_record_head(const std::uint8_t *head, std::uint32_t &length) {
    length = get_u32(head + 1);
    return head[0] == check_byte(head + 1, kRecordHeadBytes - 1);
}

ArchiveStatus parse_record_head(const std::uint8_t *head, std::uint32_t capacity,
                                std::uint32_t &length) {
    if (!get_record_head(head, length)) return kHeadDamaged;
    if (length == 0) return kEndMark;
    return length >= kMinRecordData && length <= capacity ? kGood : kLengthInvalid;
}

} // namespace velk
