// The positions ahead of the current run that are known to hold some byte, in
// ascending order, behind them the block's end as a sentinel. The head is the start
// of the current run.
#pragma once

#include <cstdint>

// One position for each byte value, and the sentinel.
struct PendingList {
    std::uint32_t position[256 + 1];
    std::uint32_t count; // positions before the sentinel
};

inline void remove_head(PendingList &pending) {
    for (std::uint32_t i = 0; i < pending.count; ++i)
        pending.position[i] = pending.position[i + 1];
    --pending.count;
}

// Removes the head and inserts `t`, which is above the head and below the sentinel.
inline void replace_head(PendingList &pending, std::uint32_t t) {
    std::uint32_t i = 0;
    for (; pending.position[i + 1] < t; ++i)
        pending.position[i] = pending.position[i + 1];
    pending.position[i] = t;
}
