// The bounds of the block size N, and what a buffer holds beside a block; in bytes.
#pragma once

#include <cstdint>

namespace velk {

constexpr std::uint32_t kMinBlockSize = 128 * 1024;
constexpr std::uint32_t kMaxBlockSize = 16383 * 1024;
constexpr std::uint32_t kDefaultBlockSize = 2048 * 1024;
// A buffer holds so much more than N, for trailers, block CRC and what a stage wants behind
// its block. It is part of a run's printed memory; pipeline/block.cpp shows that it suffices.
constexpr std::uint32_t kBlockSlack = 100;
static_assert(kMaxBlockSize + kBlockSlack < (1u << 24)); // positions have 24 bits

} // namespace velk
