// The values that describe a block to the coder: the header list, then the distance
// of every run to the next run of its byte. dce/dce.h shows them on an example.
#pragma once

#include "dce/pending_list.h"
#include "dce/symbol_stats.h"

#include <cstdint>

constexpr std::uint32_t kNoPosition = 0xFFFFFFFFu;

// Links each position to the next one with the same byte (kNoPosition after the last)
// and lists the byte values by first occurrence: `first` gets their first positions
// and n behind them. next_pos: n entries; n at least 1.
inline void scan_positions(const std::uint8_t *block, std::uint32_t n, std::uint32_t *next_pos,
                           PendingList &first) {
    std::uint32_t last[256];
    std::fill(last, last + 256, kNoPosition);
    first.count = 0;
    for (std::uint32_t p = 0; p < n; ++p) {
        std::uint32_t &previous = last[block[p]];
        if (previous == kNoPosition) {
            first.position[first.count++] = p;
        } else {
            next_pos[previous] = p;
        }
        previous = p;
    }
    for (const std::uint32_t position : last) {
        if (position != kNoPosition) next_pos[position] = kNoPosition;
    }
    first.position[first.count] = n;
}

// The value of a run that ends at q when the next run of its byte starts at t: the
// positions from q + 1 to t that are not pending.
inline std::uint32_t distance(const PendingList &pending, std::uint32_t q, std::uint32_t t) {
    std::uint32_t known = 0; // pending positions below t, the head left out
    while (pending.position[known + 1] < t)
        ++known;
    return t - q - known;
}

// Calls emit(v, s, run) for every value v of the block in the order of coding: s is
// the byte value whose statistics serve it, `run` the run that it follows. Ends early,
// and returns false, when emit does. next_pos: n entries, any contents; n at least 1.
template<typename Emit>
bool for_each_value(const std::uint8_t *block, std::uint32_t n, std::uint32_t *next_pos,
                    Emit emit) {
    PendingList pending;
    scan_positions(block, n, next_pos, pending);

    // In the header list byte values, and block length, go with the statistics of byte
    // value 0, the gaps between first positions with those of 1.
    if (!emit(pending.count, 0, kNoRun) || !emit(n + 1, 0, kNoRun)) return false;
    if (!emit(block[0], 0, kNoRun) || !emit(0, 0, kNoRun)) return false;
    for (std::uint32_t k = 1; k < pending.count; ++k) {
        const std::uint32_t first = pending.position[k];
        if (!emit(block[first], 0, kNoRun)) return false;
        if (!emit(first - pending.position[k - 1], 1, kNoRun)) return false;
    }

    for (std::uint32_t p = 0; p < n;) {
        const std::uint8_t s = block[p];
        std::uint32_t q = p;
        while (q + 1 < n && block[q + 1] == s)
            ++q;
        const std::uint32_t t = next_pos[q];
        std::uint32_t v = 0;
        if (t == kNoPosition) {
            remove_head(pending);
        } else {
            v = distance(pending, q, t);
            replace_head(pending, t);
        }
        if (!emit(v, s, run_context(q - p + 1))) return false;
        p = q + 1;
    }
    return true;
}
