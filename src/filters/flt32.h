// FLT32 filter: makes the relative operands of x86 calls absolute, so that calls of
// one routine from different places carry the same bytes.
//
//   E8 | operand (4) |     the operand v of a call at p becomes v + base + p where that
//                          lies in 0..R - 1; the values that this displaces take the
//                          place of those it leaves free
//
//   | block | base (4) | R (4) | 1 |     applied
//   | block | 0 |     off, or more spaces than zeros: text
//
// base and R span the whole file for a block that is a part of it. The mapping is one
// to one only while base + R + n is below 2^32; the filter declines all other blocks.
#pragma once

#include <cstdint>

namespace velk {

constexpr std::uint32_t kFlt32TrailerBytes = 9;

// The calls of a block, and whether it is machine code: whether the filter would apply, and more
// than one byte in 400 begins a call whose operand lies within 2^24 of 0, as those of most programs
// do. (Of random bytes one in 32,768 does.)
// reach: bytes, a power of two; nearly all calls go less far from the block's start. 0: nearly
// all stay in the block.
struct CallStatistics {
    bool is_code;
    std::uint32_t reach;
};
[[nodiscard]] CallStatistics find_calls(const std::uint8_t *block, std::uint32_t n);

// file_size: bytes of the input file + 1; 2^32 - 1 stands for anything larger.
// The buffers must have room for n + 9 bytes; the block in `in` is not altered.
void flt32_encode(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                  std::uint32_t file_size, std::uint8_t flt32_off);

// Undoes `flt32_encode`; any trailer but 0 counts as 1. The output is 9 bytes shorter
// than the input. Returns false for a trailer without a block before it.
[[nodiscard]] bool flt32_decode(std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out,
                                std::uint32_t &out_len, std::uint32_t capacity);

} // namespace velk
