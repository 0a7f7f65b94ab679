// What the DCE stage remembers of the values coded so far, and the contexts that
// follow from it. Encoder and decoder share every line.
#pragma once

#include "dce/frequency_models.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

namespace velk {

// A smaller value v is symbol v. A larger v is coded as x = v - 4 in binary: its leading 1 and
// its length are symbol 8 + e; two bits are coded; e bits are raw (`split`).
constexpr std::uint32_t kFirstLongValue = 8;
constexpr std::uint32_t kSmallValue = 3;
constexpr std::uint32_t kLongRunLength = 3;
constexpr std::uint32_t kMaxRunTerm = 5;
constexpr std::uint32_t kPrevValueMask = 4095;
// The distance context rises by a step where the last value is below kLowLastValue, by another
// where the run is long.
constexpr std::uint32_t kContextStep = 30;
constexpr std::uint32_t kLowLastValue = 20;

// Statistics of one byte value as they are at the start of a block.
struct SymbolStats {
    std::uint32_t slow_avg = 0;
    std::int32_t fast_avg = 0;
    std::uint32_t small_count = 0; // grows with values below 3, halved by values of 8 or more
    std::uint32_t primary = kContextStep * kContextBytes; // follows from these and the last value
};

// The length of the run that a value follows; a value of the header list has this one.
constexpr std::uint32_t kNoRun = 1;

// The number of significant bits; 0 for 0.
constexpr std::uint32_t bit_length(std::uint32_t x) {
    // 2x + 1 is never 0, so there is no special case; ^ 63 equals 63 - and compiles to one
    // bit scan.
    return static_cast<std::uint32_t>(std::countl_zero(2 * std::uint64_t{x} + 1) ^ 63);
}

// A value from kFirstLongValue on.
struct LongValue {
    std::uint32_t raw_bits;
    std::uint32_t top; // two bits
    std::uint32_t raw;
};

constexpr LongValue split(std::uint32_t v) {
    const std::uint32_t x = v - 4;
    const std::uint32_t raw_bits = bit_length(x) - 3;
    return {raw_bits, x >> raw_bits & 3, x & ((1u << raw_bits) - 1)};
}

constexpr std::uint32_t join(LongValue parts) {
    return 4 + ((4 + parts.top) << parts.raw_bits) + parts.raw;
}

// x up to 4, then 4 + bit_length(x - 4). (Below 4 the difference wraps to 32 bits.)
inline std::uint32_t log_bucket(std::uint32_t x) {
    return std::min(x, 4 + bit_length(x - 4));
}

// By the low bits of the value coded before, how far the secondary model is behind the primary
// one, in bytes. A table, since the next symbol waits for it (3 % less time).
inline constexpr auto kSecondaryStep = [] {
    std::array<std::uint16_t, kPrevValueMask + 1> step{kModelBytes, 2 * kModelBytes,
                                                       3 * kModelBytes};
    for (std::uint32_t d = 1; d + 2 < step.size(); ++d)
        step[d + 2] = static_cast<std::uint16_t>((1 + bit_length(d % 256) + bit_length(d >> 8)) *
                                                 kModelBytes);
    return step;
}();

// What `small_count` adds to the distance context.
inline constexpr auto kSmallCountStep = [] {
    std::array<std::uint8_t, 256> step{};
    for (std::uint32_t small_count = 2; small_count != step.size(); ++small_count)
        step[small_count] =
            static_cast<std::uint8_t>(small_count < 17 ? kContextStep : kContextStep - 1);
    return step;
}();

// What the last value, below 2^27, adds to it. (Some compilers make a branch of a comparison.)
inline std::uint32_t low_value_step(std::uint32_t v) {
    static_assert(kContextStep < 1u << (32 - 27)); // the ones that a negative difference leaves
    return (v - kLowLastValue) >> 27 & kContextStep;
}

inline std::uint32_t secondary_step(std::uint32_t prev_value) {
    return kSecondaryStep[prev_value & kPrevValueMask];
}

// The place of the primary model: that of a distance context for every intact block. Damaged
// blocks, whose values may reach 2^26, can bring it to 122: both averages then stay below 2^28, and
// log_bucket below 33.
inline std::uint32_t primary_model(const SymbolStats &stats, std::uint32_t run_length) {
    return stats.primary + (run_length >= kLongRunLength ? kContextStep * kContextBytes : 0);
}

// Updates the statistics with the value v, below 2^27, so that nothing overflows. Without
// branches, few of which could be predicted (4 ns, not 7); the context is ready long before it
// is needed.
inline void update_stats(SymbolStats &stats, std::uint32_t v, std::uint32_t run_length) {
    const std::uint32_t run_term = std::min(run_length - 1, kMaxRunTerm);
    const std::int32_t value = static_cast<std::int32_t>(v);
    const std::int32_t sum = 4 * value + 2 * stats.fast_avg - static_cast<std::int32_t>(run_term);
    // A third of it if the value is below the average, else a fourth; t is below 2^30.
    static constexpr std::uint64_t kFactors[] = {1ull << 32, (1ull << 34) / 3 + 1};
    const std::uint64_t t = static_cast<std::uint32_t>(std::max(sum, 0));
    const std::uint32_t fast_avg =
        static_cast<std::uint32_t>(t * kFactors[value < stats.fast_avg] >> 34);
    const std::uint32_t slow_avg = (15 * stats.slow_avg + 3 * v) >> 4;
    const std::uint32_t raised = stats.small_count + (v < kSmallValue);
    const std::uint32_t small_count = (raised - (raised >> 8)) >> (v >= kFirstLongValue);

    stats.fast_avg = static_cast<std::int32_t>(fast_avg);
    stats.slow_avg = slow_avg;
    stats.small_count = small_count;
    const std::uint32_t context = ((log_bucket(slow_avg) + 15 * log_bucket(fast_avg)) >> 4) +
                                  kSmallCountStep[small_count] + low_value_step(v);
    stats.primary = context * kContextBytes;
}

} // namespace velk
