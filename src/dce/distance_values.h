// The values that the entropy coder gets: the header list, then the distance of every run to
// the next run of its byte. dce/dce.h shows them on an example.
#pragma once

#include "base/bits.h"
#include "base/block_size.h"
#include "base/runs.h"
#include "dce/symbol_stats.h"

#include <algorithm>
#include <bit>
#include <cstdint>

namespace velk {

// The latest runs, which tell a byte's move-to-front rank: the number of other bytes seen since
// its last run. Every run takes the next slot, and a slot is dead when its byte has a later
// one. The rank is the number of slots behind the byte's own less the dead ones among them,
// which are counted without a loop. (To search a move-to-front list takes three times as long
// for random bytes.)
constexpr std::uint32_t kRecentSlots = 512;

struct RecentRuns {
    std::uint32_t taken;                   // slots
    std::uint64_t dead[kRecentSlots / 64]; // bit i of word w: slot 64 w + i
    std::uint64_t dead_behind;             // byte w: the dead slots behind word w, modulo 256
    std::uint16_t slot[256];               // of each byte's last run
    std::uint8_t byte[kRecentSlots];       // whose slot it is
};
static_assert(sizeof RecentRuns::dead / 8 == sizeof RecentRuns::dead_behind); // words and bytes

inline void take_slot(RecentRuns &recent, std::uint8_t s) {
    recent.slot[s] = static_cast<std::uint16_t>(recent.taken);
    recent.byte[recent.taken++] = s;
}

// Gives s, which has a slot, the next one and returns its move-to-front rank before that.
inline std::uint32_t retake_slot(RecentRuns &recent, std::uint8_t s) {
    constexpr std::uint64_t kLows = 0x0101010101010101u, kHighs = 0x8080808080808080u;
    const std::uint32_t word = recent.slot[s] / 64, bit = recent.slot[s] % 64;
    const std::uint32_t dead = count_ones(recent.dead[word] >> bit) +
                               static_cast<std::uint32_t>(recent.dead_behind >> 8 * word);
    const std::uint32_t rank = (recent.taken - 1 - recent.slot[s] - dead) % 256;
    recent.dead[word] |= std::uint64_t{1} << bit;
    // One more behind each word in front of this one: a sum without carries between bytes.
    const std::uint64_t one_more = kLows - (kLows << 8 * word);
    recent.dead_behind =
        ((recent.dead_behind & ~kHighs) + one_more) ^ (recent.dead_behind & kHighs);
    take_slot(recent, s);
    return rank;
}

// Drops the dead slots; at most 256, one a byte, are left.
inline void drop_dead(RecentRuns &recent) {
    recent.taken = 0;
    for (std::uint32_t word = 0; word < kRecentSlots / 64; ++word) {
        for (std::uint64_t live = ~recent.dead[word]; live != 0; live &= live - 1) {
            const auto bit = static_cast<std::uint32_t>(std::countr_zero(live));
            take_slot(recent, recent.byte[64 * word + bit]);
        }
        recent.dead[word] = 0;
    }
    recent.dead_behind = 0;
}

// Where the byte values of a block are first seen, in ascending order.
struct FirstPositions {
    std::uint32_t position[256];
    std::uint32_t count;
};

// A run as `find_values` notes it, packed: the value in the low 24 bits, the run length above;
// kLongRun stands for 255 or more.
constexpr std::uint32_t kLengthShift = 24;
static_assert(kMaxBlockSize + kBlockSlack < 1u << kLengthShift);
constexpr std::uint32_t kLongRun = 255;

// Notes the runs in their order. A run's value, with t the start of the next run of the same
// byte: how many of the positions from the run's end to t are not pending; 0 if there is no
// such run. Each other byte seen between has one pending position there. So the
// move-to-front rank at t gives the value, and no list of positions is kept.
// block: n bytes, n above 0.
inline void find_values(const std::uint8_t *block, std::uint32_t n, std::uint32_t *runs,
                        FirstPositions &first) {
    std::uint32_t last[256], end[256]; // of each byte: its last run's number, and where that ends
    bool seen[256] = {};
    RecentRuns recent{};
    first.count = 0;
    std::uint32_t k = 0;
    visit_runs(block, n, [&](std::uint32_t p, std::uint32_t run_end) {
        const std::uint8_t s = block[p];
        if (recent.taken == kRecentSlots) [[unlikely]]
            drop_dead(recent);
        if (seen[s]) [[likely]] {
            runs[last[s]] |= p - end[s] + 1 - retake_slot(recent, s);
        } else {
            seen[s] = true;
            take_slot(recent, s);
            first.position[first.count++] = p;
        }
        runs[k] = std::min(run_end - p, kLongRun) << kLengthShift;
        last[s] = k++;
        end[s] = run_end;
        return true;
    });
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

// Calls emit(v, s, run_length) for every value v of the block in the order of coding. s is the
// byte value whose statistics serve v; run_length is that of the run that v follows. Ends, and
// returns false, as soon as emit does. runs: n entries, any contents; n above 0.
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
            // The gaps between first positions go with the statistics of byte value 1, all
            // other values with those of 0.
            s = k >= 5 && k % 2 != 0;
            length = kNoRun;
        } else {
            const std::uint32_t run = *runs++;
            v = run & ((1u << kLengthShift) - 1);
            s = block[p];
            length = run >> kLengthShift;
            p += length;
            if (length == kLongRun) [[unlikely]] {
                for (; p < n && block[p] == s; ++p)
                    ++length;
            }
        }
        if (!emit(v, s, length)) return false;
    }
    return true;
}

} // namespace velk
