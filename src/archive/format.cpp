#include "archive/format.h"

#include "archive/memory.h"
#include "pipeline/byte_order.h"
#include "pipeline/crc32.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace velk {
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

std::uint32_t choose_block_size(const Settings &settings, std::uint64_t input_size) {
    if (settings.no_auto_block_size != 0 || input_size > settings.max_block_size) {
        return settings.max_block_size;
    }
    return std::max(static_cast<std::uint32_t>(input_size), kMinBlockSize);
}

std::uint32_t saturate(std::uint64_t size) {
    constexpr std::uint64_t kLimit = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::min(size, kLimit));
}

void put_header(std::uint8_t *header, std::uint8_t flags, std::uint32_t block_size) {
    header[1] = flags;
    put_u32(header + 2, block_size);
    header[0] = check_byte(header + 1, kHeaderBytes - 1);
}

bool get_header(const std::uint8_t *header, std::uint8_t &flags, std::uint32_t &block_size) {
    flags = header[1];
    block_size = get_u32(header + 2);
    return header[0] == check_byte(header + 1, kHeaderBytes - 1);
}

void put_start(std::uint8_t *start, const Settings &settings, std::uint32_t block_size) {
    std::memcpy(start, kMagic, kMagicBytes);
    put_header(start + kMagicBytes, flags_of(settings), block_size);
}

void put_record_head(std::uint8_t *head, std::uint32_t length) {
    put_u32(head + 1, length);
    head[0] = check_byte(head + 1, kRecordHeadBytes - 1);
}

bool get_record_head(const std::uint8_t *head, std::uint32_t &length) {
    length = get_u32(head + 1);
    return head[0] == check_byte(head + 1, kRecordHeadBytes - 1);
}

} // namespace velk
