// Where a block had better end before it is full: where its content changes.
//
// The filters decide for a whole block. One that holds sound and text, or programs and tables, gets
// none of them; and what has nothing in common sorts and codes worse together.
//
//   window   | piece | piece | piece | piece | piece | piece | ...     32 KiB each
//   kind       code    code    code    code    sound   sound             by the filters' tests
//                                            ^ a cut, if what follows repeats little of this
//
// The rule is no part of the format: an archive's blocks may end anywhere.
#pragma once

#include "base/block_size.h"

#include <cstdint>

namespace velk {

constexpr std::uint32_t kPieceBytes = 32 << 10;
constexpr std::uint32_t kMaxPieces = kMaxBlockSize / kPieceBytes + 1;
constexpr std::uint32_t kLeastRun = 4;            // pieces of one kind that are worth a block
constexpr std::uint32_t kLeastCutBlock = 1 << 20; // smaller blocks gain little by cuts
static_assert(kLeastRun * kPieceBytes == kMinBlockSize);

// A string of the window that was met before: in which pieces.
struct Repeat {
    std::uint16_t from; // the last one before
    std::uint16_t to : 15;
    std::uint16_t is_long : 1;
};

// What is known of the window, kept from cut to cut.
struct BlockCutter {
    std::uint32_t sample_bits; // one string in 2^sample_bits is looked at
    std::uint32_t offset;      // of the window in the input, modulo 2^32
    std::uint32_t kinds_known; // pieces with a kind
    std::uint32_t sampled;     // pieces whose strings have been looked at
    std::uint8_t kinds[kMaxPieces];
    std::uint16_t samples[kMaxPieces]; // by piece, how many strings were looked at
    std::uint32_t repeat_count;
    Repeat repeats[1 << 16];
    std::uint32_t places[1 << 18]; // offset of the last string, by its hash
};

// cutter: zeros. block_size: the most bytes of a block.
void start_cutter(BlockCutter &cutter, std::uint32_t block_size);

// Bytes of the block that the `n` bytes of the window begin with: n, or fewer where it ends early,
// but at least kMinBlockSize then, and as many are left. The next call's window begins behind it.
// n: the most bytes of a block, or fewer where the input ends.
[[nodiscard]] std::uint32_t find_cut(BlockCutter &cutter, const std::uint8_t *window,
                                     std::uint32_t n);

} // namespace velk
