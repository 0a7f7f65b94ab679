// Prefix-tripling sort of cyclic rotations.
//
// A counting sort on the first two bytes and a quicksort of the third give groups of rotations that
// are equal in h = 3 bytes. Each pass then refines every group by the ranks of the rotations that
// begin h and 2h bytes later, which triples h. (After J. Larsson, K. Sadakane, "Faster suffix
// sorting", 1999, with two keys a pass.)
//
//   row array     row r:      | b[p-1] (8) | p (24) |, p the rotation in row r
//   rank array    position p: the first row of the group of rotation p
//   group bitmap  bit r:      row r begins a group; bit n is always set
//
// The rank array takes the whole pair region, and so the place of the block. The row entries hold
// all bytes of the block, and restore it in the end.
//
// How equal keys are ordered decides the order of equal rotations, and so the primary index. So
// every step is part of the format: the quicksorts' pivots and exchanges, the insertion sort's gap,
// the order of the groups. A block can be made that meets the worst pivots at every partition. So
// the sort counts its steps and gives up beyond a limit, which is part of the format, too.
#include "base/bits.h"
#include "sorting/bwt.h"
#include "sorting/rotation_sort.h"
#include "sorting/tripling_quicksort.h"

#include <array>
#include <bit>
#include <cassert>
#include <cstring>

namespace velk {
namespace {

constexpr std::uint32_t kBuckets = 65536;
static_assert(kBuckets * sizeof(std::uint32_t) <= kSortScratchBytes);
// A larger group is partitioned first.
constexpr std::uint32_t kMaxTriples = 65535;
// Groups of up to this many rows look further ahead at once when all keys are equal.
constexpr std::uint32_t kMaxLookahead = 16;
// Ranges of up to this many triples are sorted by insertion.
constexpr std::uint32_t kMaxInsertion = 25;

struct Triple {
    std::array<std::uint32_t, 2> keys; // a 64-bit number, in halves for want of room
    std::uint32_t entry;               // of the row array
};
static_assert(sizeof(Triple) * kMaxTriples <= kSortScratchBytes);

// A step is a row, or triple, that is compared with a pivot or whose keys are fetched. Periods
// of text, tables, code, words, Fibonacci and Thue-Morse strings take up to 2.5 n log n; bad
// pivots could make it n^2 / 12. Blocks of a few thousand bytes may always take as many.
constexpr std::int64_t kMaxStepsFactor = 4;
constexpr std::int64_t kStepsOfAnyBlock = 1 << 24;

std::int64_t max_steps(std::uint32_t n) {
    return kMaxStepsFactor * n * std::bit_width(n) + kStepsOfAnyBlock;
}

// The arrays and the state that the steps of one block's sort share.
struct Sorter {
    std::uint32_t n;
    std::uint32_t *rows;
    std::uint32_t *ranks;
    std::uint32_t *group_bits;
    Triple *triples;
    std::uint32_t h; // depth to which the rows of a group are known to be equal
    QuicksortState quicksort;
};

// Calls process(first, end) for each group of two rows or more, in row order. The
// callee may set bits inside the group.
template<typename Process>
void for_each_group(const Sorter &s, Process process) {
    std::uint32_t row = 0;
    while (row < s.n) {
        const std::uint32_t clear = find_clear(s.group_bits, row + 1, s.n);
        if (clear >= s.n) return;
        const std::uint32_t first = clear - 1;
        const std::uint32_t end = find_set(s.group_bits, clear, s.n); // bit n ends the search
        process(first, end);
        row = end;
    }
}

// Begins a group at each of the rows first + 1..end - 1 whose key is not the one before.
template<typename KeyOfRow>
void split_group(Sorter &s, std::uint32_t first, std::uint32_t end, KeyOfRow key_of_row) {
    for (std::uint32_t row = first + 1; row < end; ++row) {
        if (key_of_row(row) != key_of_row(row - 1)) set_bit(s.group_bits, row);
    }
}

// Ranks the rotations in rows first..end - 1, the first of which begins a group.
void set_ranks(Sorter &s, std::uint32_t first, std::uint32_t end) {
    std::uint32_t group = first;
    for (std::uint32_t row = first; row < end; ++row) {
        if (get_bit(s.group_bits, row)) group = row;
        s.ranks[position_of(s.rows[row])] = group;
    }
}

// The position before p.
std::uint32_t before(const Sorter &s, std::uint32_t p) {
    return (p == 0 ? s.n : p) - 1;
}

// Counting sort on two bytes. The first two bytes of the block are repeated at its end.
void sort_two_bytes(Sorter &s, const std::uint8_t *block, std::uint32_t *next) {
    const auto bucket = [&](std::uint32_t p) { return block[p] * 256u + block[p + 1]; };
    std::memset(next, 0, kBuckets * sizeof *next);
    for (std::uint32_t p = 0; p < s.n; ++p)
        ++next[bucket(p)];
    std::uint32_t row = 0;
    for (std::uint32_t k = 0; k < kBuckets; ++k) {
        set_bit(s.group_bits, row);
        row += std::exchange(next[k], row);
    }
    set_bit(s.group_bits, s.n);
    for (std::uint32_t p = 0; p < s.n; ++p)
        s.rows[next[bucket(p)]++] = row_entry(block[before(s, p)], p);
}

void sort_third_bytes(Sorter &s, const std::uint8_t *block, std::uint32_t first,
                      std::uint32_t end) {
    const auto third_byte = [&](std::uint32_t entry) { return block[position_of(entry) + 2]; };
    std::uint32_t *const rows = s.rows + first;
    const auto sort_pair = [&](std::uint32_t lo, std::uint32_t hi) {
        if (hi - lo > 2) return false;
        if (third_byte(rows[lo + 1]) < third_byte(rows[lo])) std::swap(rows[lo], rows[lo + 1]);
        return true;
    };
    s.quicksort.pivot_seed = 0;
    quicksort(s.quicksort, rows, end - first, first, third_byte, sort_pair);
    split_group(s, first, end, [&](std::uint32_t row) { return third_byte(s.rows[row]); });
}

// Triples ------------------------------------------------------------------------

std::uint64_t keys_of(const Triple &triple) {
    return std::bit_cast<std::uint64_t>(triple.keys);
}

void insertion_pass(Triple *triples, std::uint32_t m, std::uint32_t gap) {
    for (std::uint32_t i = m - gap; i-- > 0;) {
        const Triple taken = triples[i];
        std::uint32_t j = i + gap;
        for (; j < m && keys_of(triples[j]) < keys_of(taken); j += gap)
            triples[j - gap] = triples[j];
        triples[j - gap] = taken;
    }
}

// Sorts the triples of rows first..end - 1 and stores the entries.
void sort_triples(Sorter &s, std::uint32_t first, std::uint32_t end) {
    const auto sort_few = [&](std::uint32_t lo, std::uint32_t hi) {
        if (hi - lo > kMaxInsertion) return false;
        if (hi - lo > 4) insertion_pass(s.triples + lo, hi - lo, 4);
        insertion_pass(s.triples + lo, hi - lo, 1);
        return true;
    };
    quicksort(s.quicksort, s.triples, end - first, first, keys_of, sort_few);
    for (std::uint32_t row = first; row < end; ++row)
        s.rows[row] = s.triples[row - first].entry;
}

// The keys of a row entry at offset d: the ranks d and d + h bytes further on. d and h are at
// most n, so one subtraction each brings a position back below n.
std::uint64_t keys_at(const Sorter &s, std::uint32_t entry, std::uint32_t d) {
    std::uint32_t p1 = position_of(entry) + d;
    if (p1 >= s.n) p1 -= s.n;
    std::uint32_t p2 = p1 + s.h;
    if (p2 >= s.n) p2 -= s.n;
    return std::uint64_t{s.ranks[p1]} << 32 | s.ranks[p2];
}

// Builds the triples of rows first..end - 1; returns whether all keys are equal.
bool build_triples(Sorter &s, std::uint32_t first, std::uint32_t end, std::uint32_t d) {
    s.quicksort.steps_left -= end - first;
    s.quicksort.pivot_seed = 0;
    bool all_equal = true;
    for (std::uint32_t row = first; row < end; ++row) {
        const std::uint64_t keys = keys_at(s, s.rows[row], d);
        s.triples[row - first] = {std::bit_cast<std::array<std::uint32_t, 2>>(keys), s.rows[row]};
        all_equal &= keys == keys_of(s.triples[0]);
    }
    return all_equal;
}

// Passes -------------------------------------------------------------------------

void refine_small_group(Sorter &s, std::uint32_t first, std::uint32_t end) {
    std::uint32_t d = s.h;
    bool all_equal = false;
    do {
        all_equal = build_triples(s, first, end, d);
        d += 2 * s.h;
    } while (all_equal && end - first <= kMaxLookahead && d <= s.n && s.quicksort.steps_left >= 0);
    if (all_equal && d > s.n) {
        // Rotations that are equal in all n bytes stay in their order, a group each.
        split_group(s, first, end, [](std::uint32_t row) { return row; });
    } else {
        sort_triples(s, first, end);
        split_group(s, first, end,
                    [&](std::uint32_t row) { return keys_of(s.triples[row - first]); });
    }
}

// Partitions the rows until a part of them fits the triples.
void refine_large_group(Sorter &s, std::uint32_t first, std::uint32_t end) {
    const auto keys_at_h = [&](std::uint32_t entry) { return keys_at(s, entry, s.h); };
    const auto sort_part = [&](std::uint32_t lo, std::uint32_t hi) {
        if (hi - lo > kMaxTriples) return false;
        if (!build_triples(s, first + lo, first + hi, s.h)) sort_triples(s, first + lo, first + hi);
        return true;
    };
    quicksort(s.quicksort, s.rows + first, end - first, first, keys_at_h, sort_part);
    split_group(s, first, end, [&](std::uint32_t row) { return keys_at_h(s.rows[row]); });
}

// h triples with each pass, so there are at most 15.
void run_passes(Sorter &s) {
    std::uint32_t previous_unsorted = 1;
    for (s.h = 3; s.h <= s.n; s.h *= 3) {
        std::uint32_t unsorted = 0;
        for_each_group(s, [&](std::uint32_t first, std::uint32_t end) {
            unsorted += end - first - 1;
            if (s.quicksort.steps_left < 0) return;
            if (end - first <= kMaxTriples) {
                refine_small_group(s, first, end);
            } else {
                refine_large_group(s, first, end);
            }
            // After all bits: a rank set earlier would alter later keys.
            set_ranks(s, find_set(s.group_bits, first + 1, s.n), end);
        });
        if (unsorted == previous_unsorted || unsorted == 0) return;
        previous_unsorted = unsorted;
    }
}

} // namespace

bool sort_by_tripling(const SortArrays &arrays, std::uint8_t *block, std::uint32_t n) {
    assert(n > 0 && n <= kPositionMask);
    Sorter s{};
    s.n = n;
    s.rows = arrays.index_array;
    s.ranks = arrays.pair_region;
    s.group_bits = arrays.bit_array;
    s.triples = reinterpret_cast<Triple *>(arrays.model_area);
    s.quicksort.waiting = s.group_bits + bitmap_words(n); // 3 * n / 32 + 2 words in all
    s.quicksort.steps_left = max_steps(n);
    std::memset(s.group_bits, 0, (bitmap_words(n) + bitmap_words(2 * n)) * sizeof *s.group_bits);

    block[n] = block[0];
    block[n + 1] = block[1];
    sort_two_bytes(s, block, arrays.model_area);
    for_each_group(
        s, [&](std::uint32_t first, std::uint32_t end) { sort_third_bytes(s, block, first, end); });
    set_ranks(s, 0, n);
    run_passes(s);
    for (std::uint32_t row = 0; row < n; ++row) {
        const std::uint32_t entry = s.rows[row];
        block[before(s, position_of(entry))] = preceding_byte(entry);
    }
    return s.quicksort.steps_left >= 0;
}

} // namespace velk
