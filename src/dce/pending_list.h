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

#include <cstdint>
#include <cstring>

constexpr std::uint32_t kEntryLanes = 4;
typedef std::int32_t EntryLanes __attribute__((vector_size(4 * kEntryLanes)));

// Entries that are compared and moved at a step; few lists need a second one, and the
// branch behind each is hard to predict (4 at a step: 3 % more time in all).
constexpr std::uint32_t kStep = 8;

struct PendingList {
    // Up to 255 positions, n, and for the last step's reads entries above all others.
    alignas(64) std::int32_t entry[256 + kStep];
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
constexpr std::int32_t kAboveAll = INT32_MAX - kOneFurther; // n is below 2^24 - 2

inline EntryLanes load_entries(const std::int32_t *p) {
    EntryLanes lanes;
    std::memcpy(&lanes, p, sizeof lanes);
    return lanes;
}

// E0 gets to be the current run, and its end is E1.
inline void remove_first(PendingList &pending) {
    for (std::uint32_t i = 0; i < pending.count; ++i)
        pending.entry[i] = pending.entry[i + 1] + kOneFurther;
    pending.entry[pending.count--] = kAboveAll;
}

// The same, and `byte` takes the place behind the first `number` positions of which
// nothing is known; the number is at least E0 and below the entry of n, so that the
// steps end there.
inline void replace_first(PendingList &pending, std::uint32_t number, std::uint32_t byte) {
    const EntryLanes inserted = EntryLanes{} + to_entry(number + 1, byte);
    const EntryLanes last_below = EntryLanes{} + to_entry(number, 255);
    const EntryLanes further = EntryLanes{} + kOneFurther;
    for (std::int32_t *p = pending.entry;; p += kStep) {
        const bool done = p[kStep - 1] > to_entry(number, 255);
#pragma GCC unroll 2
        for (std::uint32_t i = 0; i < kStep; i += kEntryLanes) {
            const EntryLanes here = load_entries(p + i), next = load_entries(p + i + 1);
            const EntryLanes stays = here > last_below, next_stays = next > last_below;
            EntryLanes result = next + further;
            result ^= (result ^ inserted) & next_stays;
            result ^= (result ^ here) & stays;
            std::memcpy(p + i, &result, sizeof result);
        }
        if (done) return;
    }
}
