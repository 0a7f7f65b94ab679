// The positions ahead of the current run that are known to hold some byte, in
// ascending order, and the block's end behind them.
//
//   positions    E0 < E1 < E2 < ... < n        E0: where the current run ends
//   entries      E0,  E1 - 1,  E2 - 2, ...     each with its byte in the low 8 bits
//
// An entry counts the positions in front of it that nothing is known of. So the next
// run of a byte, v such positions after the current run, is placed by comparing alone,
// and all entries can be compared at once. Entries are signed numbers, 2^31 below what
// they stand for, since SSE2 compares only such.
#pragma once

#include "base/vectors.h"

#include <cstdint>

namespace velk {

// Entries that are compared and moved at a step; few lists need a second one, and the
// branch behind each is hard to predict (4 at a step: 3 % more time in all).
constexpr std::uint32_t kEntriesPerStep = 8;

struct PendingList {
    // Up to 255 positions, n, and for the last step's reads entries above all others.
    alignas(64) std::int32_t entry[256 + kEntriesPerStep];
    std::uint32_t count; // entries in front of the one of n
};

constexpr std::int32_t to_entry(std::uint32_t number, std::uint32_t byte) {
    return static_cast<std::int32_t>((number << 8 | byte) ^ 0x80000000u);
}

constexpr std::uint32_t entry_number(std::int32_t entry) {
    return (static_cast<std::uint32_t>(entry) ^ 0x80000000u) >> 8;
}

constexpr std::uint8_t entry_byte(std::int32_t entry) {
    return static_cast<std::uint8_t>(entry);
}

constexpr std::int32_t kOneFurther = 1 << 8;
constexpr std::int32_t kAboveAll = INT32_MAX - kOneFurther; // n is below 2^24 - 3
// Below kAboveAll, above any other entry's number.
constexpr std::uint32_t kNever = entry_number(kAboveAll) - 1;

// E0 gets to be the current run, and its end is E1. `byte` takes the place behind the first
// `number` positions of which nothing is known; the number is at least E0 and below the
// entry of n. Or it is kNever: the byte has no place, and `count` is already lower.
// Either way entries above the number follow within kEntriesPerStep of the last one, where it ends.
inline void replace_first(PendingList &pending, std::uint32_t number, std::uint32_t byte) {
    const EntryLanes inserted = EntryLanes{} + to_entry(number + 1, byte);
    const EntryLanes last_below = EntryLanes{} + to_entry(number, 255);
    const EntryLanes further = EntryLanes{} + kOneFurther;
    std::int32_t *p = pending.entry;
    for (; p[kEntriesPerStep] <= to_entry(number, 255); p += kEntriesPerStep) {
#pragma GCC unroll 2
        for (std::uint32_t i = 0; i < kEntriesPerStep; i += kLanesOf<EntryLanes>)
            store(p + i, load<EntryLanes>(p + i + 1) + further);
    }
#pragma GCC unroll 2
    for (std::uint32_t i = 0; i < kEntriesPerStep; i += kLanesOf<EntryLanes>) {
        const EntryLanes here = load<EntryLanes>(p + i), next = load<EntryLanes>(p + i + 1);
        const EntryLanes stays = here > last_below, next_stays = next > last_below;
        EntryLanes result = next + further;
        result ^= (result ^ inserted) & next_stays;
        result ^= (result ^ here) & stays;
        store(p + i, result);
    }
}

} // namespace velk
