// What the DCE stage remembers of the values coded so far, and the contexts that
// follow from it. Encoder and decoder share every line.
#pragma once

#include "dce/frequency_models.h"

#include <algorithm>
#include <bit>
#include <cstdint>

// Statistics of one byte value; all zero at the start of a block.
struct SymbolStats {
    std::uint32_t slow_avg;
    std::int32_t fast_avg;
    std::uint8_t small_count; // grows with values below 3, halved by values of 8 or more
    std::uint32_t last_value;
};

// Values below it are a symbol of their own; above, symbol 8 + e stands for the
// values whose last 2 + e bits follow.
constexpr std::uint32_t kFirstLongValue = 8;
constexpr std::uint32_t kSmallValue = 3;
constexpr std::uint32_t kMaxRunTerm = 5;
constexpr std::uint32_t kPrevValueMask = 4095;

// The run that a value follows: its length - 1, at most kMaxRunTerm, and whether it
// is a run of three or more. Header values follow none.
struct RunContext {
    std::uint32_t term;
    bool flag;
};

constexpr RunContext kNoRun{0, false};

// run_length: bytes of the run, at least 1.
inline RunContext run_context(std::uint32_t run_length) {
    return {std::min(run_length - 1, kMaxRunTerm), run_length >= 3};
}

// The number of significant bits; 0 for 0.
inline std::uint32_t bit_length(std::uint32_t x) {
    return static_cast<std::uint32_t>(std::bit_width(x));
}

inline std::uint32_t log_bucket(std::uint32_t x) {
    return x <= 4 ? x : 4 + bit_length(x - 4);
}

// 0 to 12.
inline std::uint32_t secondary_index(std::uint32_t prev_value) {
    if (prev_value <= 2) return prev_value;
    const std::uint32_t d = prev_value - 2;
    return bit_length(d % 256) + bit_length(d >> 8);
}

// A number that lies within the distance contexts for every block of less than 2^24
// bytes. Damaged blocks, whose values may reach 2^26, can bring it to 122 (both
// averages then stay below 2^28, and log_bucket below 33), still inside a set.
inline std::uint32_t distance_context(const SymbolStats &stats, bool run_flag) {
    const std::uint32_t fast_avg = static_cast<std::uint32_t>(stats.fast_avg);
    std::uint32_t context = (log_bucket(stats.slow_avg) + 15 * log_bucket(fast_avg)) >> 4;
    if (stats.small_count >= 17) {
        context += 29;
    } else if (stats.small_count >= 2) {
        context += 30;
    }
    if (stats.last_value < 20) context += 30;
    if (run_flag) context += 30;
    return context;
}

// Takes value v in: all statistics and `prev_value`. v is below 2^27, so that nothing
// overflows.
inline void update_stats(SymbolStats &stats, std::uint32_t &prev_value, std::uint32_t v,
                         std::uint32_t run_term) {
    const std::int32_t value = static_cast<std::int32_t>(v);
    stats.last_value = v;
    const std::int32_t t = 4 * value + 2 * stats.fast_avg - static_cast<std::int32_t>(run_term);
    if (t < 0) {
        stats.fast_avg = 0;
    } else {
        stats.fast_avg = value < stats.fast_avg ? t / 3 : t / 4;
    }
    prev_value = v & kPrevValueMask;
    stats.slow_avg = (15 * stats.slow_avg + 3 * v) >> 4;
    if (v < kSmallValue) {
        if (stats.small_count < 255) ++stats.small_count;
    } else if (v >= kFirstLongValue) {
        stats.small_count >>= 1;
    }
}
