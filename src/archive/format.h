// What an archive is made of, outside the blocks' data:
//
//   | magic (12) | check, flags, N (1 + 1 + 4) | record | record | ...
//   record:  | check, L (1 + 4) | L bytes of block data |
//
// Numbers are unsigned, 32 bits, little-endian. A check byte is the low byte of
// `crc32_block` over the bytes that follow it in its header or head.
#pragma once

#include "cli/settings.h"
#include "pipeline/block.h"

#include <cstdint>

namespace velk {

constexpr char kMagic[] = "VELK_V0.95a>";
constexpr std::uint32_t kMagicBytes = sizeof kMagic - 1;
constexpr std::uint32_t kHeaderBytes = 6;
constexpr std::uint32_t kFirstRecord = kMagicBytes + kHeaderBytes; // its offset
constexpr std::uint32_t kRecordHeadBytes = 5;

struct StageEntry {
    const char *name;
    std::uint8_t Settings::*off; // its flag
};
extern const StageEntry kStageTable[STAGE_COUNT];

// The flags byte that says which stages `settings` has off, and back.
[[nodiscard]] std::uint8_t flags_of(const Settings &settings);
void set_flags(Settings &settings, std::uint8_t flags);

// The block size for an input of `input_size` bytes, and the size as
// CoderContext::file_size holds it, which goes no further than 2^32 - 1.
[[nodiscard]] std::uint32_t choose_block_size(const Settings &settings, std::uint64_t input_size);
[[nodiscard]] std::uint32_t saturate(std::uint64_t size);

// Writes the kHeaderBytes bytes of a header record.
void put_header(std::uint8_t *header, std::uint8_t flags, std::uint32_t block_size);
// Reads them; false when the check byte does not fit the rest.
[[nodiscard]] bool get_header(const std::uint8_t *header, std::uint8_t &flags,
                              std::uint32_t &block_size);

// Writes the kFirstRecord bytes before the first record: magic and header record.
void put_start(std::uint8_t *start, const Settings &settings, std::uint32_t block_size);

// Writes the kRecordHeadBytes bytes of a record head for `length` bytes of data.
void put_record_head(std::uint8_t *head, std::uint32_t length);
// Reads them; false when the check byte does not fit the rest.
[[nodiscard]] bool get_record_head(const std::uint8_t *head, std::uint32_t &length);

} // namespace velk
