// Prefix-tripling sort of cyclic rotations.
//
// A counting sort on the first two bytes and a quicksort of the third give groups of
// rotations that are equal in h = 3 bytes. Each pass then refines every group by the
// ranks of the rotations that begin h and 2h bytes later, which triples h. (After
// J. Larsson, K. Sadakane, "Faster suffix sorting", 1999, with two keys a pass.)
//
//   row array     row r:      | b[p-1] (8) | p (24) |, p the rotation in row r
//   rank array    position p: an order key of rotation p, equal within a group
//   group bitmap  bit r:      row r begins a group; bit n is always set
//
// The rank array takes the whole pair region, buffers included, and so n + 2 bytes of
// the block are first moved to byte 3n of it, where the ranks arrive last:
//
//   | rank 0 | rank 1 | ... | rank p | ->      | b[p + 1] ... b[n + 1] |
//   0        4                       4p + 4    3n + p + 1              4n + 2
//
// Where the order of equal elements decides the order of equal rotations, and with it
// the primary index, every step is part of the format: the quicksorts' pivots and
// exchanges, the insertion sort's gap, the order of the groups.
//
// A block can be made to meet the quicksort's worst pivots at every partition. So the sort
// counts its steps and gives up beyond a limit, which is part of the format, too.
#include "sorting/bitmap.h"
#include "sorting/bwt.h"
#include "sorting/rotation_sort.h"
#include "sorting/tripling_quicksort.h"

#include <bit>
#include <cassert>
#include <cstring>
#include <utility>

namespace velk {
namespace {

constexpr std::uint32_t kBuckets = 65536;
// A larger group does not fit the triples' memory and is partitioned first.
constexpr std::uint32_t kMaxTriples = 65535;
// Groups of up to this many rows look further ahead at once when all keys are equal.
constexpr std::uint32_t kMaxLookahead = 16;
// Ranges of up to this many triples are sorted by insertion.
constexpr std::int32_t kMaxInsertion = 25;

struct Triple {
    std::uint32_t key1;
    std::uint32_t key2;
    std::uint32_t entry; // of the row array
};
static_assert(sizeof(Triple) * (kMaxTriples + 1) <= kSortScratchBytes);

bool less(const Triple &a, const Triple &b) {
    return a.key1 != b.key1 ? a.key1 < b.key1 : a.key2 < b.key2;
}

bool equal_keys(const Triple &a, const Triple &b) {
    return a.key1 == b.key1 && a.key2 == b.key2;
}

int compare(const Triple &a, const Triple &b) {
    if (less(a, b)) return -1;
    return equal_keys(a, b) ? 0 : 1;
}

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
    Triple *triples;     // slot 0 is not used
    std::uint8_t *third; // by row, the third byte of its rotation
    std::uint32_t h;     // depth to which the rows of a group are known to be equal
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

// Third bytes --------------------------------------------------------------------

struct ThirdByteOps {
    Sorter &s;
    int pivot = 0;

    void exchange(Index i, Index j) const {
        std::swap(s.third[i], s.third[j]);
        std::swap(s.rows[i], s.rows[j]);
    }
    bool sorted_otherwise(Index lo, Index hi) const {
        if (hi - lo >= 2) return false;
        if (s.third[hi] < s.third[lo]) exchange(lo, hi);
        return true;
    }
    void load_pivot(Index i) { pivot = s.third[i]; }
    int order(Index i) const { return s.third[i] - pivot; }
};

void sort_third_bytes(Sorter &s, std::uint32_t first, std::uint32_t end) {
    s.quicksort.pivot_seed = 0;
    ThirdByteOps ops{s};
    quicksort(s.quicksort, ops, 0, static_cast<Index>(first), static_cast<Index>(end - 1));
    for (std::uint32_t row = first + 1; row < end; ++row) {
        if (s.third[row] != s.third[row - 1]) set_bit(s.group_bits, row);
    }
}

// Triples ------------------------------------------------------------------------

void insertion_pass(Triple *triples, Index lo, Index hi, Index gap) {
    for (Index i = hi - gap; i >= lo; --i) {
        const Triple taken = triples[i];
        Index j = i + gap;
        for (; j <= hi && less(triples[j], taken); j += gap)
            triples[j - gap] = triples[j];
        triples[j - gap] = taken;
    }
}

void insertion_sort_triples(Triple *triples, Index lo, Index hi) {
    if (hi - lo > 3) insertion_pass(triples, lo, hi, 4);
    insertion_pass(triples, lo, hi, 1);
}

struct TripleOps {
    Triple *triples;
    Triple pivot{};

    void exchange(Index i, Index j) const { std::swap(triples[i], triples[j]); }
    bool sorted_otherwise(Index lo, Index hi) const {
        if (hi - lo < 2) {
            if (less(triples[hi], triples[lo])) exchange(lo, hi);
            return true;
        }
        if (hi - lo >= kMaxInsertion) return false;
        insertion_sort_triples(triples, lo, hi);
        return true;
    }
    void load_pivot(Index i) { pivot = triples[i]; }
    int order(Index i) const { return compare(triples[i], pivot); }
};

// Sorts triples 1 to m, those of the rows from `first` on.
void sort_triples(Sorter &s, std::uint32_t first, std::uint32_t m) {
    s.quicksort.pivot_seed = 0;
    TripleOps ops{s.triples};
    quicksort(s.quicksort, ops, static_cast<Index>(first) - 1, 1, static_cast<Index>(m));
}

// The keys of a row entry at offset d: the ranks d and d + step bytes further on.
// d and step are at most n, so one subtraction each brings a position back below n.
Triple keys_at(const Sorter &s, std::uint32_t entry, std::uint32_t d, std::uint32_t step) {
    std::uint32_t p1 = (entry & kPositionMask) + d;
    if (p1 >= s.n) p1 -= s.n;
    std::uint32_t p2 = p1 + step;
    if (p2 >= s.n) p2 -= s.n;
    return {s.ranks[p1], s.ranks[p2], entry};
}

// Builds triples 1.. for rows first..end - 1; returns whether all keys are equal.
bool build_triples(Sorter &s, std::uint32_t first, std::uint32_t end, std::uint32_t d) {
    s.quicksort.steps_left -= end - first;
    Triple *triple = s.triples + 1;
    bool all_equal = true;
    for (std::uint32_t row = first; row < end; ++row, ++triple) {
        *triple = keys_at(s, s.rows[row], d, s.h);
        if (row > first && !equal_keys(triple[0], triple[-1])) all_equal = false;
    }
    return all_equal;
}

void store_entries(Sorter &s, std::uint32_t first, std::uint32_t end) {
    const Triple *triple = s.triples + 1;
    for (std::uint32_t row = first; row < end; ++row, ++triple)
        s.rows[row] = triple->entry;
}

std::uint32_t &rank_of_row(Sorter &s, std::uint32_t row) {
    return s.ranks[s.rows[row] & kPositionMask];
}

// Passes -------------------------------------------------------------------------

void refine_small_group(Sorter &s, std::uint32_t first, std::uint32_t end) {
    const std::uint32_t m = end - first;
    assert(m <= kMaxTriples);
    // Rotations that are equal in all n bytes stay in their order, a group each.
    bool equal_rotations = false;
    for (std::uint32_t d = s.h;;) {
        const bool all_equal = build_triples(s, first, end, d);
        d += 2 * s.h;
        if (d > s.n) {
            equal_rotations = all_equal;
            break;
        }
        if (m > kMaxLookahead || !all_equal || s.quicksort.steps_left < 0) break;
    }
    if (!equal_rotations) sort_triples(s, first, m);
    store_entries(s, first, end);

    const std::uint32_t group_rank = rank_of_row(s, first);
    std::uint32_t subgroup = first;
    const Triple *triple = s.triples + 2;
    for (std::uint32_t row = first + 1; row < end; ++row, ++triple) {
        if (equal_rotations || !equal_keys(triple[0], triple[-1])) {
            set_bit(s.group_bits, row);
            subgroup = row;
        }
        if (subgroup != first) rank_of_row(s, row) = group_rank + (subgroup - first);
    }
}

Triple keys_of_row(const Sorter &s, Index row) {
    return keys_at(s, s.rows[row], s.h, s.h);
}

// Rows of a large group, until a part of them fits the triples.
struct RowOps {
    Sorter &s;
    Triple pivot{};

    void exchange(Index i, Index j) const { std::swap(s.rows[i], s.rows[j]); }
    bool sorted_otherwise(Index lo, Index hi) const {
        const std::uint32_t first = static_cast<std::uint32_t>(lo);
        const std::uint32_t m = static_cast<std::uint32_t>(hi - lo) + 1;
        if (m > kMaxTriples) return false;
        s.quicksort.pivot_seed = 0;
        if (build_triples(s, first, first + m, s.h)) return true;
        sort_triples(s, first, m);
        store_entries(s, first, first + m);
        return true;
    }
    void load_pivot(Index i) { pivot = keys_of_row(s, i); }
    int order(Index i) const { return compare(keys_of_row(s, i), pivot); }
};

void refine_large_group(Sorter &s, std::uint32_t first, std::uint32_t end) {
    RowOps ops{s};
    quicksort(s.quicksort, ops, 0, static_cast<Index>(first), static_cast<Index>(end - 1));
    // All bits come before the first rank: a rank set early would alter later keys.
    Triple previous = keys_of_row(s, static_cast<Index>(first));
    for (std::uint32_t row = first + 1; row < end; ++row) {
        const Triple keys = keys_of_row(s, static_cast<Index>(row));
        if (!equal_keys(keys, previous)) set_bit(s.group_bits, row);
        previous = keys;
    }
    const std::uint32_t group_rank = rank_of_row(s, first);
    std::uint32_t subgroup = first;
    for (std::uint32_t row = first + 1; row < end; ++row) {
        if (get_bit(s.group_bits, row)) subgroup = row;
        if (subgroup != first) rank_of_row(s, row) = group_rank + (subgroup - first);
    }
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
        });
        if (unsorted == previous_unsorted || unsorted == 0) return;
        previous_unsorted = unsorted;
    }
}

// Counting sort on two bytes. `block` holds n + 2 bytes, the first two repeated at
// the end. Leaves the third byte of each row's rotation in `third` and the first row
// of each bucket in `start`.
void sort_two_bytes(Sorter &s, const std::uint8_t *block, std::uint32_t *next,
                    std::uint32_t *start) {
    const auto bucket = [&](std::uint32_t p) { return block[p] * 256u + block[p + 1]; };
    std::memset(next, 0, kBuckets * sizeof *next);
    std::memset(start, 0, kBuckets * sizeof *start);
    for (std::uint32_t p = 0; p < s.n; ++p)
        ++next[bucket(p)];
    std::uint32_t row = 0;
    for (std::uint32_t k = 0; k < kBuckets; ++k) {
        const std::uint32_t count = next[k];
        if (count == 0) continue;
        start[k] = row;
        next[k] = row;
        set_bit(s.group_bits, row);
        row += count;
    }
    set_bit(s.group_bits, s.n);
    std::uint32_t preceding = block[s.n - 1];
    for (std::uint32_t p = 0; p < s.n; ++p) {
        const std::uint32_t r = next[bucket(p)]++;
        s.rows[r] = preceding << 24 | p;
        s.third[r] = block[p + 2];
        preceding = block[p];
    }
}

// Gives every position the key of its first three bytes. The block lies in `block` with two
// bytes behind it.
void make_ranks(Sorter &s, const std::uint8_t *block, const std::uint32_t *start) {
    std::uint8_t *const moved = reinterpret_cast<std::uint8_t *>(s.ranks) + 3 * s.n;
    std::memmove(moved, block, s.n + 2);
    for (std::uint32_t p = 0; p < s.n; ++p) {
        const std::uint32_t first_byte = moved[p];
        s.ranks[p] = first_byte << 24 | start[moved[p + 1] * 256u + moved[p + 2]];
    }
}

// A rank's top byte is its rotation's first one. Each is read before it is written over.
void take_block_back(const Sorter &s, std::uint8_t *block) {
    std::uint8_t *const bytes = reinterpret_cast<std::uint8_t *>(s.ranks);
    for (std::uint32_t p = 0; p < s.n; ++p)
        bytes[p] = static_cast<std::uint8_t>(s.ranks[p] >> 24);
    std::memmove(block, bytes, s.n);
}

} // namespace

bool sort_by_tripling(const SortArrays &arrays, std::uint8_t *block, std::uint32_t n,
                      std::uint8_t *scratch) {
    assert(n > 0 && n <= kPositionMask);
    const std::uint32_t words = bitmap_words(n);
    Sorter s{};
    s.n = n;
    s.rows = arrays.index_array;
    s.ranks = arrays.pair_region;
    s.group_bits = arrays.bit_array;
    s.third = scratch;
    s.quicksort.rows = n;
    s.quicksort.begins = s.group_bits + words;
    s.quicksort.ends = s.quicksort.begins + words;
    s.quicksort.steps_left = max_steps(n);
    std::memset(s.group_bits, 0, 3 * words * sizeof *s.group_bits);
    std::uint32_t *const next = arrays.model_area;
    std::uint32_t *const start = arrays.model_area + kBuckets;

    block[n] = block[0];
    block[n + 1] = block[1];
    sort_two_bytes(s, block, next, start);
    for_each_group(
        s, [&](std::uint32_t first, std::uint32_t end) { sort_third_bytes(s, first, end); });
    make_ranks(s, block, start);
    s.triples = reinterpret_cast<Triple *>(arrays.model_area); // the buckets are done with
    run_passes(s);
    const bool sorted = s.quicksort.steps_left >= 0;
    if (!sorted) take_block_back(s, block);
    return sorted;
}

} // namespace velk
