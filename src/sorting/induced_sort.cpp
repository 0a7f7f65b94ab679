// Induced sorting of cyclic rotations, with a direct sort of the valleys.
//
// A position is of type S when its rotation is smaller than the one that begins one
// position later, else of type L. The sorted valleys (sorting/valleys.h) determine the order
// of all rotations in two passes over the rows (P. Ko, S. Aluru, "Space efficient linear time
// construction of suffix arrays", 2003).
//
// Valleys are few and real data tells them apart in a few bytes, so they are sorted by
// comparison, 5 bytes at a time. A bucket for each two-byte beginning holds entries with the
// next five bytes, which need no look at the block.
//
// The arrays, by their use over time (spare: the pair region behind the two buffers):
//
//                  valleys sorted      ties broken                         passes
//   index array    entries             places | rows and names of ties     rows
//   spare          counting scratch    scratch                             valleys
//   model area     bucket ends         -                                   -
//   bit array      valley marks | tie marks | repeats | falls | kept valleys
#include "base/bits.h"
#include "base/byte_order.h"
#include "base/prefetch.h"
#include "sorting/bwt.h"
#include "sorting/rotation_sort.h"
#include "sorting/valleys.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace velk {
namespace {

// Shorter blocks are not worth the set-up.
constexpr std::uint32_t kMinBlock = 16;
// How many entries ahead the text is fetched from memory: 16 MB blocks gain 1.3 times.
constexpr std::uint32_t kAhead = 32;
// Repeats are left out where one valley in so many begins with the four bytes of the one before.
constexpr std::uint32_t kRepetitivePart = 64;

// Valleys ------------------------------------------------------------------------

// Marks the valleys and returns their number; 0 when all bytes are equal.
std::uint32_t find_valleys(const Valleys &v) {
    std::uint32_t rise = 0; // the first byte that differs from the next one
    while (rise < v.n && v.text[rise] == v.text[rise + 1])
        ++rise;
    if (rise == v.n) return 0;
    std::uint32_t is_s = v.text[rise] < v.text[rise + 1]; // of position 0, which is n, too
    std::uint32_t before_is_s = v.text[v.n - 1] < v.text[0] + is_s;

    for (std::uint32_t i = bitmap_words(v.n); i-- > 0;) {
        std::uint32_t types = 0;
        for (std::uint32_t p = std::min(v.n, 32 * i + 32); p-- > 32 * i;) {
            // The difference is negative for type S. (With a comparison the sort takes 4 %
            // longer: each type waits for the one behind it.)
            is_s = (std::uint32_t{v.text[p]} - v.text[p + 1] - is_s) >> 31;
            types = types << 1 | is_s;
        }
        v.marks[i] = types;
    }
    std::uint32_t valleys = 0;
    for (std::uint32_t i = 0; i < bitmap_words(v.n); ++i) {
        const std::uint32_t types = v.marks[i];
        v.marks[i] = types & ~(types << 1 | before_is_s);
        before_is_s = types >> 31;
        valleys += count_ones(v.marks[i]);
    }
    return valleys;
}

// Makes the entries, in the order of the first two bytes, and leaves in bucket_ends where
// those of each two bytes end. Leaves out repeats where there are some: to look for them takes
// prose, which has none, 5 % longer.
void fill_buckets(Valleys &v, std::uint32_t *bucket_ends) {
    std::fill(bucket_ends, bucket_ends + kTextBuckets, 0);
    std::uint32_t alike = 0; // valleys that begin as the one before
    std::uint32_t before = 0;
    for_each_bit(v.marks, v.n, [&](std::uint32_t p) {
        ++bucket_ends[bucket(v, p)];
        alike += get_u32(v.text + p) == before;
        before = get_u32(v.text + p);
    });
    // Of the valleys tied with each other each is followed by one that is not, but for those
    // alike and the last of the block. So at most (count + alike + 1) / 2 are, which must fit
    // the scratch.
    if (alike >= v.count / kRepetitivePart || v.count + alike >= 2 * (v.n / 4))
        leave_out_repeats(v, bucket_ends);

    std::uint32_t sum = 0;
    for (std::uint32_t k = 0; k < kTextBuckets; ++k)
        sum += std::exchange(bucket_ends[k], sum);
    for_each_bit(v.marks, v.n, [&](std::uint32_t p) {
        const std::uint64_t key = get_u64_be(v.text + p + kBucketDepth) >> kKeyShift;
        v.entries[bucket_ends[bucket(v, p)]++] = key << kKeyShift | p;
    });
}

// Passes -------------------------------------------------------------------------

// A row entry: the position and, above it, the byte before it.
std::uint32_t row_entry(const Valleys &v, std::uint32_t p) {
    return static_cast<std::uint32_t>(v.text[static_cast<std::int32_t>(p) - 1]) << 24 | p;
}

// The row entry of the position before an entry's.
std::uint32_t entry_before(const Valleys &v, std::uint32_t entry) {
    const std::uint32_t p = entry & kPositionMask;
    return row_entry(v, (p == 0 ? v.n : p) - 1);
}

// Gets the text before an entry's position ready.
void fetch_before(const Valleys &v, std::uint32_t entry) {
    prefetch(v.text, (entry & kPositionMask) - std::uintptr_t{2});
}

// Where the rows of each first byte begin, and the last ones end.
struct FirstRows {
    std::uint32_t row[257];
};

FirstRows find_first_rows(const Valleys &v) {
    // Four sets of counters, so that equal neighbours do not wait for each other.
    std::uint32_t count[4][256] = {};
    for (std::uint32_t p = 0; p < v.n; ++p)
        ++count[p % 4][v.text[p]];
    FirstRows first{};
    for (std::uint32_t c = 0; c < 256; ++c)
        first.row[c + 1] = first.row[c] + count[0][c] + count[1][c] + count[2][c] + count[3][c];
    return first;
}

// Puts the L positions in their rows, which come first in those of a first byte. Increasing:
// an entry whose preceding byte is not smaller than its own first byte (never smaller for a
// valley) leads to an L position. valley: the sorted valleys.
void induce_l(const Valleys &v, const std::uint32_t *valley, const FirstRows &first,
              std::uint32_t *rows) {
    std::uint32_t next[256]; // by first byte, the next row to fill
    std::copy_n(first.row, 256, next);
    const auto induce = [&](std::uint32_t entry, std::uint32_t c) {
        const std::uint32_t preceding = entry >> 24;
        if (preceding >= c) rows[next[preceding]++] = entry_before(v, entry);
    };
    std::uint32_t i = 0;
    for (std::uint32_t c = 0; c < 256; ++c) {
        for (std::uint32_t row = first.row[c]; row < next[c]; ++row) {
            fetch_before(v, rows[row + kAhead < v.n ? row + kAhead : row]);
            induce(rows[row], c);
        }
        for (; i < v.count && v.text[valley[i]] == c; ++i) {
            fetch_before(v, valley[i + kAhead < v.count ? i + kAhead : i]);
            induce(row_entry(v, valley[i]), c);
        }
    }
}

// Puts the S positions in all other rows. Decreasing: an S entry whose preceding byte is not
// larger, and an L entry whose preceding byte is smaller, lead to an S position.
void induce_s(const Valleys &v, const FirstRows &first, std::uint32_t *rows) {
    std::uint32_t next[256]; // by first byte, the row behind the next one to fill
    std::copy_n(first.row + 1, 256, next);
    const auto induce = [&](std::uint32_t entry, std::uint32_t limit) {
        const std::uint32_t preceding = entry >> 24;
        if (preceding < limit) rows[--next[preceding]] = entry_before(v, entry);
    };
    for (std::uint32_t c = 256; c-- > 0;) {
        std::uint32_t row = first.row[c + 1];
        for (; row > next[c]; --row) {
            fetch_before(v, rows[row > kAhead ? row - 1 - kAhead : 0]);
            induce(rows[row - 1], c + 1);
        }
        for (; row > first.row[c]; --row) {
            fetch_before(v, rows[row > kAhead ? row - 1 - kAhead : 0]);
            induce(rows[row - 1], c);
        }
    }
}

// The text around the block in `text`: kBwtRoom bytes more than its n are taken.
void copy_text(const std::uint8_t *block, std::uint32_t n, std::uint8_t *text) {
    std::memcpy(text, block, n);
    std::memcpy(text - kTextBefore, block + n - kTextBefore, kTextBefore);
    std::memcpy(text + n, block, kTextAfter);
}
static_assert(kTextBefore + kTextAfter <= kBwtRoom);

// What the pair region holds behind the part of both buffers that is in use, for 64-bit
// numbers: 2 n bytes at least.
std::uint32_t *behind_buffers(const SortArrays &arrays, const std::uint8_t *upper_buffer,
                              std::uint32_t n) {
    const std::uintptr_t used = reinterpret_cast<std::uintptr_t>(upper_buffer) + n + kBwtRoom -
                                reinterpret_cast<std::uintptr_t>(arrays.pair_region);
    return arrays.pair_region + (used + 7) / 8 * 2;
}

} // namespace

bool sort_by_induction(const SortArrays &arrays, const std::uint8_t *block, std::uint32_t n,
                       std::uint8_t *scratch) {
    if (n < kMinBlock) return false;
    copy_text(block, n, scratch + kTextBefore);
    std::uint32_t *const index_array = arrays.index_array;
    std::uint32_t *const spare =
        behind_buffers(arrays, std::max<const std::uint8_t *>(block, scratch), n);
    std::uint32_t *const bucket_ends = arrays.model_area;

    Valleys v{};
    v.text = scratch + kTextBefore;
    v.n = n;
    // In n / 8 + kBwtMoreBitWords words: all bits together are 3.5 n and, in words, at most 6.
    v.marks = arrays.bit_array;
    v.tie_marks = v.marks + bitmap_words(n);
    v.repeats = v.tie_marks + bitmap_words(n / 2);
    v.falls = v.repeats + bitmap_words(n / 2);
    std::uint32_t *const more_marks = v.falls + bitmap_words(n / 2);
    v.entries = reinterpret_cast<ValleyEntry *>(index_array);
    v.scratch = reinterpret_cast<ValleyEntry *>(spare);

    v.count = find_valleys(v);
    std::fill(v.tie_marks, more_marks, 0);
    if (v.count > 0) fill_buckets(v, bucket_ends);
    if (v.count == 0) return false;
    sort_valleys(v, bucket_ends);
    for (std::uint32_t i = 0; i < v.count; ++i) {
        ValleyEntry entry; // the two arrays share their place
        std::memcpy(&entry, v.entries + i, sizeof entry);
        index_array[i] = static_cast<std::uint32_t>(entry) & kPositionMask;
    }
    if (v.ties > 0 && !break_ties(v, index_array, spare, more_marks)) return false;

    put_back_repeats(v, index_array, spare); // the rows take the place of the valleys
    const FirstRows first = find_first_rows(v);
    induce_l(v, spare, first, index_array);
    induce_s(v, first, index_array);
    return true;
}

} // namespace velk
