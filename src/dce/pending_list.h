// The pending positions, those ahead of the current run whose byte is known, in ascending
// order, and the block's end n behind them.
//
//   positions    E0 < E1 < E2 < ... < n        E0: where the current run ends
//   entries      E0,  E1 - 1,  E2 - 2, ...     each with its byte in the low 8 bits
//
// An entry is the number of positions in front of its own that are not pending. A value counts
// such positions, too: the next run of a byte finds its place by comparing alone, with several
// entries at once. Entries are signed, 2^31 below what they stand for, since SSE2 compares
// only signed numbers.
#pragma once

#include "base/block_size.h"
#include "base/vectors.h"

#include <cstdint>

namespace velk {

// Entries that are compared and moved at a step; few lists need a second one, and the
// branch behind each is hard to predict (8 at a step: 4 % more time in all).
constexpr std::uint32_t kEntriesPerStep = 16;

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
constexpr std::int32_t kAboveAll = INT32_MAX - kOneFurther;
// Below kAboveAll, above any other entry's number.
constexpr std::uint32_t kNever = entry_number(kAboveAll) - 1;
static_assert(kMaxBlockSize + kBlockSlack < kNever);

// Removes E0, where the next run begins, and inserts the position of `byte` that has `number`
// positions in front that are not pending. Entries up to the number move one place to the
// front; those above it stay. The number is at least E0 and below the entry of n, or it is
// kNever: no position is inserted, and `count` is already lower. The loop ends at the entry of n
// or at those behind it, which fill the last step.
inline void replace_first(PendingList &pending, std::uint32_t number, std::uint32_t byte) {
    const EntryLanes inserted = EntryLanes{} + to_entry(number + 1, byte);
    const EntryLanes last_below = EntryLanes{} + to_entry(number, 255);
    const EntryLanes further = EntryLanes{} + kOneFurther;
    std::int32_t *p = pending.entry;
    for (; p[kEntriesPerStep] <= to_entry(number, 255); p += kEntriesPerStep) {
#pragma GCC unroll 4
        for (std::uint32_t i = 0; i < kEntriesPerStep; i += kLanesOf<EntryLanes>)
            store(p + i, load<EntryLanes>(p + i + 1) + further);
    }
#pragma GCC unroll 4
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
