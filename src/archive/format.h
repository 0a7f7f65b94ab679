// What an archive is made of, outside the blocks' data:
//
//   | magic (12) | check, flags, N (1 + 1 + 4) | record | record | ...
//   record:  | check, L (1 + 4) | L bytes of block data |
//
// Numbers are unsigned, 32 bits, little-endian. A check byte is the low byte of
// `crc32_block` over the bytes that follow it in its header or head.
#pragma once

#include "base/block_size.h"
#include "cli/settings.h"
#include "pipeline/crc32.h"
#include "pipeline/stage.h"

#include <cstddef>
#include <cstdint>

namespace velk {

constexpr char kMagic[] = "VELK_V0.95a>";
constexpr std::uint32_t kMagicBytes = sizeof kMagic - 1;
constexpr std::uint32_t kFirstRecord = kMagicBytes + 6; // its offset
constexpr std::uint32_t kRecordHeadBytes = 5;
constexpr std::uint32_t kMinRecordData = 1 + kCrcBytes;
constexpr std::uint32_t kMaxRecordData = kMaxBlockSize + kBlockSlack; // of any block size

enum class ArchiveStatus {
    kGood,          // all of what was asked for is there
    kMore,          // so far, but not yet all
    kEnd,           // no more records
    kEndMark,       // a record of length 0: what follows does not belong to the archive
    kReadFailed,    // the source failed
    kNotAnArchive,  // no magic
    kHeaderCut,     // the bytes end in the header
    kHeaderDamaged, // its check byte does not fit
    kHeaderInvalid, // it fits, but no compressor writes this block size or these stages
    kNoMemory,
    kHeadCut,       // the bytes end in a record head
    kHeadDamaged,   // its check byte does not fit
    kLengthInvalid, // it fits, but no block of the archive's block size is of this length
    kNextHeader,    // a header begins where a record could
    kMemberCut,     // it begins, or the bytes end, before the index that must come
    kIndexDamaged,  // it does not fit the records
    kGarbage,       // bytes behind the archive that are no part of it
    kBlockCut,      // the bytes end in a block's data
    kBlockDamaged,  // the block CRC does not fit
    kStageFailed,   // it fits, but a stage can't be undone
};

struct StageEntry {
    const char *name;
    std::uint8_t Settings::*off; // its flag
};
extern const StageEntry kStageTable[STAGE_COUNT];

// The flags byte that says which stages `settings` has off, and back.
[[nodiscard]] std::uint8_t flags_of(const Settings &settings);
void set_flags(Settings &settings, std::uint8_t flags);

// Whether a compressor could write an archive of this block size, in bytes, with these
// stages off: of the sorting transforms at least one.
[[nodiscard]] bool is_valid_header(const Settings &settings, std::uint32_t block_size);

// Writes the kFirstRecord bytes before the first record: magic and header record.
void put_start(std::uint8_t *start, const Settings &settings, std::uint32_t block_size);
// Reads the stage flags and the block size, in bytes, from the `size` bytes that an archive
// begins with, kFirstRecord or fewer.
[[nodiscard]] ArchiveStatus parse_start(const std::uint8_t *start, std::size_t size,
                                        Settings &settings, std::uint32_t &block_size);

// Writes the kRecordHeadBytes bytes of a record head for `length` bytes of data.
void put_record_head(std::uint8_t *head, std::uint32_t length);
// Reads them; false when the check byte does not fit the rest.
[[nodiscard]] bool get_record_head(const std::uint8_t *head, std::uint32_t &length);
// The same in an archive whose buffers hold `capacity` bytes.
[[nodiscard]] ArchiveStatus parse_record_head(const std::uint8_t *head, std::uint32_t capacity,
                                              std::uint32_t &length);

} // namespace velk
