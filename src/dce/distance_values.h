// The values that describe a block to the coder: the header list, then the distance
// of every run to the next run of its byte. dce/dce.h shows them on an example.
#pragma once

#include "dce/symbol_stats.h"
#include "pipeline/byte_order.h"

#include <cstdint>
#include <cstring>

// Length of the run that starts at p, below n. Eight bytes are compared at once: run
// lengths are hard to predict, but few reach 8.
inline std::uint32_t run_length(const std::uint8_t *block, std::uint32_t n, std::uint32_t p) {
    const std::uint8_t s = block[p];
    std::uint32_t end = p;
    while (end + 8 <= n) {
        const std::uint64_t differences = get_u64(block + end) ^ s * 0x0101010101010101u;
        if (differences != 0) {
            return end - p + static_cast<std::uint32_t>(std::countr_zero(differences)) / 8;
        }
        end += 8;
    }
    while (end < n && block[end] == s)
        ++end;
    return end - p;
}

// The byte values seen, the last seen first, eight in a word, the first in its low
// byte. (The list of a move-to-front coder; eight bytes are compared and moved at once.)
struct RecencyList {
    std::uint64_t word[256 / 8];
};

// Moves byte s to the front and returns the number of byte values that were in front
// of it. s is in the list.
inline std::uint32_t move_to_front(RecencyList &list, std::uint8_t s) {
    constexpr std::uint64_t kLows = 0x0101010101010101u, kHighs = 0x8080808080808080u;
    const std::uint64_t wanted = s * kLows;
    std::uint64_t moved_in = s;
    for (std::uint32_t i = 0;; ++i) {
        const std::uint64_t word = list.word[i];
        const std::uint64_t differences = word ^ wanted;
        // The lowest bit set is the high bit of the first byte that is 0.
        const std::uint64_t equal = (differences - kLows) & ~differences & kHighs;
        const std::uint64_t moved = word << 8 | moved_in;
        if (equal != 0) {
            const std::uint64_t up_to_s = equal ^ (equal - 1);
            list.word[i] = (moved & up_to_s) | (word & ~up_to_s);
            return 8 * i + static_cast<std::uint32_t>(std::countr_zero(equal)) / 8;
        }
        list.word[i] = moved;
        moved_in = word >> 56;
    }
}

// Puts a byte value that the list lacks to the front of `count` others.
inline void add_to_front(RecencyList &list, std::uint32_t count, std::uint8_t s) {
    for (std::uint32_t i = count / 8; i > 0; --i)
        list.word[i] = list.word[i] << 8 | list.word[i - 1] >> 56;
    list.word[0] = list.word[0] << 8 | s;
}

// Where the byte values of a block are first seen, in ascending order.
struct FirstPositions {
    std::uint32_t position[256];
    std::uint32_t count;
};

// A run as `find_values` notes it: its value, below 2^24, and over it its length,
// kLongRun for any from there on.
constexpr std::uint32_t kLengthShift = 24;
constexpr std::uint32_t kLongRun = 255;

// Notes each run at its start in `runs`. Its value: with t the start of the next run of
// the same byte, the number of positions from the run's end to t that are not pending;
// 0 if there is no such run. The pending ones are as many as the other byte values
// between, so the list of the byte values last seen gives the value, once t is reached:
// no list of positions has to be kept. block: n bytes, 0 < n < 2^24.
inline void find_values(const std::uint8_t *block, std::uint32_t n, std::uint32_t *runs,
                        FirstPositions &first) {
    std::uint32_t start[256], end[256]; // of the last run of each byte
    bool seen[256] = {};
    RecencyList recent{};
    first.count = 0;
    for (std::uint32_t p = 0; p < n;) {
        const std::uint8_t s = block[p];
        if (seen[s]) [[likely]] {
            const std::uint32_t others = move_to_front(recent, s);
            runs[start[s]] |= p - end[s] + 1 - others;
        } else {
            seen[s] = true;
            add_to_front(recent, first.count, s);
            first.position[first.count++] = p;
        }
        const std::uint32_t length = run_length(block, n, p);
        runs[p] = std::min(length, kLongRun) << kLengthShift;
        start[s] = p;
        p += length;
        end[s] = p;
    }
}

// Value k of the header list: the number of byte values, n + 1, then each byte value
// with the distance of its first position from the one before it (0 at first).
inline std::uint32_t header_value(const std::uint8_t *block, std::uint32_t n,
                                  const FirstPositions &first, std::uint32_t k) {
    if (k < 2) return k == 0 ? first.count : n + 1;
    const std::uint32_t *const position = first.position + (k - 2) / 2;
    if (k % 2 == 0) return block[*position];
    return k == 3 ? 0 : position[0] - position[-1];
}

// Calls emit(v, s, run) for every value v of the block in the order of coding: s is
// the byte value whose statistics serve it, `run` the run that it follows. Ends early,
// and returns false, when emit does. runs: n entries, any contents; 0 < n < 2^24.
template<typename Emit>
bool for_each_value(const std::uint8_t *block, std::uint32_t n, std::uint32_t *runs, Emit emit) {
    FirstPositions first;
    find_values(block, n, runs, first);

    // One loop for header list and runs, so that there is one call of `emit` to inline.
    const std::uint32_t header_values = 2 * first.count + 2;
    std::uint32_t p = 0;
    for (std::uint32_t k = 0; p < n; ++k) {
        std::uint32_t v, s, length;
        if (k < header_values) [[unlikely]] {
            v = header_value(block, n, first, k);
            // Byte values, and block length, go with the statistics of byte value 0, the
            // gaps between first positions with those of 1.
            s = k >= 5 && k % 2 != 0;
            length = 1;
        } else {
            v = runs[p] & ((1u << kLengthShift) - 1);
            s = block[p];
            length = runs[p] >> kLengthShift;
            if (length == kLongRun) [[unlikely]]
                length = run_length(block, n, p);
            p += length;
        }
        if (!emit(v, s, run_context(length))) return false;
    }
    return true;
}
