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
#include "sorting/bwt.h"
#include "sorting/rotation_sort.h"

#include <bit>
#include <cassert>
#include <cstring>
#include <utility>

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

// The arrays and the state that the steps of one block's sort share.
struct Sorter {
    std::uint32_t n;
    std::uint32_t *rows;
    std::uint32_t *ranks;
    std::uint32_t *group_bits;
    Triple *triples;          // slot 0 is not used
    std::uint8_t *third;      // by row, the third byte of its rotation
    std::uint32_t h;          // depth to which the rows of a group are known to be equal
    std::uint32_t pivot_seed; // 0..32767
};

// Row numbers are below 2^24, so signed ones hold them and one less than the first.
using Index = std::int32_t;

Index next_pivot(Sorter &s, Index lo, Index hi) {
    s.pivot_seed = (s.pivot_seed * 7621 + 1) % 32768;
    switch (s.pivot_seed % 3) {
    case 0:
        return lo;
    case 1:
        return (lo + hi) / 2;
    default:
        return hi;
    }
}

// Group bitmap -------------------------------------------------------------------

void set_group_bit(Sorter &s, std::uint32_t row) {
    s.group_bits[row / 32] |= 1u << (row % 32);
}

bool group_bit(const Sorter &s, std::uint32_t row) {
    return (s.group_bits[row / 32] >> (row % 32) & 1) != 0;
}

// The first bit from `row` on that is clear (flip = 0) or set (flip = all ones);
// n + 1 when the words of bits 0..n hold none.
std::uint32_t find_bit(const Sorter &s, std::uint32_t row, std::uint32_t flip) {
    const std::uint32_t last_word = s.n / 32;
    std::uint32_t word = row / 32;
    if (word > last_word) return s.n + 1;
    std::uint32_t wanted = ~(s.group_bits[word] ^ flip) & (~0u << (row % 32));
    while (wanted == 0) {
        if (word == last_word) return s.n + 1;
        ++word;
        wanted = ~(s.group_bits[word] ^ flip);
    }
    return word * 32 + static_cast<std::uint32_t>(std::countr_zero(wanted));
}

std::uint32_t find_clear(const Sorter &s, std::uint32_t row) {
    return find_bit(s, row, 0);
}

std::uint32_t find_set(const Sorter &s, std::uint32_t row) {
    return find_bit(s, row, ~0u);
}

// Calls process(first, end) for each group of two rows or more, in row order. The
// callee may set bits inside the group.
template<typename Process>
void for_each_group(const Sorter &s, Process process) {
    std::uint32_t row = 0;
    while (row < s.n) {
        const std::uint32_t clear = find_clear(s, row + 1);
        if (clear >= s.n) return;
        const std::uint32_t first = clear - 1;
        const std::uint32_t end = find_set(s, clear); // bit n ends the search
        process(first, end);
        row = end;
    }
}

// Quicksort ----------------------------------------------------------------------

// Sorts lo..hi of what `ops` gives access to; recursion is as deep as the pivots are
// bad. ops.sorted_otherwise(lo, hi) may take over short ranges, ops.load_pivot(i)
// fixes the pivot, ops.order(i) compares element i with it (below 0, 0, above 0).
template<typename Ops>
void quicksort(Sorter &s, Ops &ops, Index lo, Index hi) {
    for (;;) {
        if (ops.sorted_otherwise(lo, hi)) return;
        ops.load_pivot(next_pivot(s, lo, hi));
        Index i = lo;
        Index j = hi;
        while (i < j) {
            while (ops.order(i) < 0)
                ++i;
            while (ops.order(j) > 0)
                --j;
            if (i <= j) ops.exchange(i++, j--);
        }
        // Elements equal to the pivot that met in the middle are in their place.
        if (j >= lo) {
            while (lo < j && ops.order(j) == 0)
                --j;
        }
        if (i <= hi) {
            while (ops.order(i) == 0) {
                if (i >= hi) {
                    if (lo < j) quicksort(s, ops, lo, j);
                    return;
                }
                ++i;
            }
        }
        if (lo < j) quicksort(s, ops, lo, j);
        lo = i;
        if (i >= hi) return;
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
    s.pivot_seed = 0;
    ThirdByteOps ops{s};
    quicksort(s, ops, static_cast<Index>(first), static_cast<Index>(end - 1));
    for (std::uint32_t row = first + 1; row < end; ++row) {
        if (s.third[row] != s.third[row - 1]) set_group_bit(s, row);
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
    int order(Index i) const {
        if (less(triples[i], pivot)) return -1;
        return equal_keys(triples[i], pivot) ? 0 : 1;
    }
};

void sort_triples(Sorter &s, Index lo, Index hi) {
    TripleOps ops{s.triples};
    quicksort(s, ops, lo, hi);
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
        if (m > kMaxLookahead || !all_equal) break;
    }
    if (!equal_rotations) {
        s.pivot_seed = 0;
        const Index last = static_cast<Index>(m);
        if (m == 2) {
            if (less(s.triples[2], s.triples[1])) std::swap(s.triples[1], s.triples[2]);
        } else if (last < kMaxInsertion) {
            insertion_sort_triples(s.triples, 1, last);
        } else {
            sort_triples(s, 1, last);
        }
    }
    store_entries(s, first, end);

    const std::uint32_t group_rank = rank_of_row(s, first);
    std::uint32_t subgroup = first;
    const Triple *triple = s.triples + 2;
    for (std::uint32_t row = first + 1; row < end; ++row, ++triple) {
        if (equal_rotations || !equal_keys(triple[0], triple[-1])) {
            set_group_bit(s, row);
            subgroup = row;
        }
        if (subgroup != first) rank_of_row(s, row) = group_rank + (subgroup - first);
    }
}

Triple keys_of_row(const Sorter &s, Index row) {
    return keys_at(s, s.rows[row], s.h, s.h);
}

void sort_triple_range(Sorter &s, Index lo, Index hi) {
    const std::uint32_t first = static_cast<std::uint32_t>(lo);
    const std::uint32_t end = static_cast<std::uint32_t>(hi) + 1;
    const bool all_equal = build_triples(s, first, end, s.h);
    s.pivot_seed = 0;
    if (all_equal) return;
    sort_triples(s, 1, hi - lo + 1);
    store_entries(s, first, end);
}

// Sorts rows lo..hi by their keys, in place until a part fits the triples. Returns
// false when all keys are equal.
bool sort_large_group(Sorter &s, Index lo, Index hi) {
    for (bool whole_range = true;; whole_range = false) {
        if (hi - lo + 1 <= static_cast<Index>(kMaxTriples)) {
            sort_triple_range(s, lo, hi);
            return true;
        }
        const Triple pivot = keys_of_row(s, next_pivot(s, lo, hi));
        Index i = lo;
        Index j = hi;
        while (i < j) {
            while (less(keys_of_row(s, i), pivot))
                ++i;
            while (less(pivot, keys_of_row(s, j)))
                --j;
            if (i <= j) std::swap(s.rows[i++], s.rows[j--]);
        }
        while (j >= lo && equal_keys(keys_of_row(s, j), pivot))
            --j;
        while (i <= hi && equal_keys(keys_of_row(s, i), pivot))
            ++i;
        if (i > hi && j < lo && whole_range) return false;
        if (lo < j) sort_large_group(s, lo, j);
        lo = i;
        if (i >= hi) return true;
    }
}

void refine_large_group(Sorter &s, std::uint32_t first, std::uint32_t end) {
    if (!sort_large_group(s, static_cast<Index>(first), static_cast<Index>(end - 1))) return;
    // All bits come before the first rank: a rank set early would alter later keys.
    Triple previous = keys_of_row(s, static_cast<Index>(first));
    for (std::uint32_t row = first + 1; row < end; ++row) {
        const Triple keys = keys_of_row(s, static_cast<Index>(row));
        if (!equal_keys(keys, previous)) set_group_bit(s, row);
        previous = keys;
    }
    const std::uint32_t group_rank = rank_of_row(s, first);
    std::uint32_t subgroup = first;
    for (std::uint32_t row = first + 1; row < end; ++row) {
        if (group_bit(s, row)) subgroup = row;
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
    std::memset(s.group_bits, 0, (s.n / 32 + 1) * sizeof *s.group_bits);
    for (std::uint32_t p = 0; p < s.n; ++p)
        ++next[bucket(p)];
    std::uint32_t row = 0;
    for (std::uint32_t k = 0; k < kBuckets; ++k) {
        const std::uint32_t count = next[k];
        if (count == 0) continue;
        start[k] = row;
        next[k] = row;
        set_group_bit(s, row);
        row += count;
    }
    set_group_bit(s, s.n);
    std::uint32_t preceding = block[s.n - 1];
    for (std::uint32_t p = 0; p < s.n; ++p) {
        const std::uint32_t r = next[bucket(p)]++;
        s.rows[r] = preceding << 24 | p;
        s.third[r] = block[p + 2];
        preceding = block[p];
    }
}

} // namespace

void sort_by_tripling(const SortArrays &arrays, std::uint8_t *block, std::uint32_t n,
                      std::uint8_t *scratch) {
    assert(n > 0 && n <= kPositionMask);
    Sorter s{};
    s.n = n;
    s.rows = arrays.index_array;
    s.ranks = arrays.pair_region;
    s.group_bits = arrays.bit_array;
    s.third = scratch;
    std::uint32_t *const next = arrays.model_area;
    std::uint32_t *const start = arrays.model_area + kBuckets;

    block[n] = block[0];
    block[n + 1] = block[1];
    sort_two_bytes(s, block, next, start);
    for_each_group(
        s, [&](std::uint32_t first, std::uint32_t end) { sort_third_bytes(s, first, end); });

    std::uint8_t *const moved = reinterpret_cast<std::uint8_t *>(arrays.pair_region) + 3 * n;
    std::memmove(moved, block, n + 2);
    for (std::uint32_t p = 0; p < n; ++p) {
        const std::uint32_t first_byte = moved[p];
        s.ranks[p] = first_byte << 24 | start[moved[p + 1] * 256u + moved[p + 2]];
    }

    s.triples = reinterpret_cast<Triple *>(arrays.model_area); // the buckets are done with
    run_passes(s);
}
