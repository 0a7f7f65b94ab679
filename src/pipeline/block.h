// The chain of stages, from a block of the file to the data of a block record.
//
//   forward   EOL - FLT32 - DELTA - LZP - BWT - ST - RLE - DCE
//   inverse   the same from right to left
//
// The data of a block record has one of two forms:
//
//   normal    | output of the DCE stage (its last byte is 0 or 1) | block CRC (4) |
//   fallback  | output of the LZP stage                       | 2 | block CRC (4) |
//
// The block CRC is `crc32_block` over all bytes before it.
#pragma once

#include "archive/coder_context.h"
#include "pipeline/stage.h"

#include <cstdint>

namespace velk {

// The last byte before the CRC; of the normal form it is less.
constexpr std::uint8_t kFallbackMarker = 2;

// What `decompress_block` met on its way, for tools that explain an archive. Zero for
// what it did not come to.
struct BlockTrace {
    bool crc_holds;
    bool fallback;
    StageNumber reached;                  // the stage whose inverse was called last
    std::uint32_t coded_len[STAGE_COUNT]; // bytes that the forward stage put out
    std::uint8_t trailer[STAGE_COUNT];    // the last of them; 0: the stage did not apply
};

// Whether there is a copy of the stages for processors like this machine's (pipeline/stages.h),
// which all but `settings.baseline` takes.
[[nodiscard]] bool has_v3();

// The most bytes by which the data of a block's record are more than the block, with these
// stages off.
[[nodiscard]] std::uint32_t data_overhead(const Settings &settings);

// Turns the `in_len` bytes of `buf_in` into the data of a block record: `out_len`
// bytes of `buf_out`. Returns false, having done nothing, when `in_len` is above the
// block size.
bool compress_block(CoderContext &context);

// Restores the block from the data of a block record, `in_len` bytes of `buf_in`;
// the result is the `out_len` bytes of `buf_out`. The stage flags of the settings
// must be those that the memory was set up for; they only tell which work arrays
// there are. Returns false when the length can't be right, the block CRC does not
// match, or a stage can't undo its part. Fills `trace` if there is one.
[[nodiscard]] bool decompress_block(CoderContext &context, BlockTrace *trace = nullptr);

} // namespace velk
