// Induced sorting of cyclic rotations (P. Ko, S. Aluru, "Space efficient linear time construction
// of suffix arrays", 2003).
//
// A position is of type S when its rotation is smaller than the next one's, else of type L. An LMS
// position is an S position behind an L position. The sorted LMS positions (sorting/lms.h)
// determine the order of all rotations in two passes over the rows.
//
// The arrays, by their use over time (spare: the pair region behind the two buffers):
//
//                  LMS positions sorted    ties broken                        passes
//   index array    entries                 places | rows and names of ties    rows
//   spare          scratch                 scratch                            LMS positions
//   model area     bucket ends             -                                  -
//   bit array      marks | tie marks | repeats | falls | more marks
#include "base/bits.h"
#include "base/byte_order.h"
#include "base/bytes.h"
#include "base/vectors.h"
#include "sorting/bwt.h"
#include "sorting/lms.h"
#include "sorting/rotation_sort.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>
#include <utility>

namespace velk {
namespace {

// Shorter blocks are not worth the set-up.
constexpr std::uint32_t kMinBlock = 16;
// Repeats are left out where one LMS position in so many begins as the one before.
constexpr std::uint32_t kRepetitivePart = 64;

// LMS positions ------------------------------------------------------------------

// The types of `count` positions, at most 32, a bit each, set for type S. is_s: the type of the
// position behind them before, that of the first one after.
std::uint32_t types_of(const std::uint8_t *text, std::uint32_t count, std::uint32_t &is_s) {
    std::uint64_t types = std::uint64_t{is_s} << count;
    if (count < 32) {
        for (std::uint32_t p = count; p-- > 0;)
            types |= std::uint64_t{text[p] < text[p + 1] + (types >> (p + 1) & 1)} << p;
    } else {
        std::uint32_t same = 0;
        for (std::uint32_t k = 0; k < 32; k += kLanesOf<ByteLanes>) {
            const ByteLanes here = load<ByteLanes>(text + k), next = load<ByteLanes>(text + k + 1);
            types |= std::uint64_t{lane_bits(here < next)} << k;
            same |= lane_bits(here == next) << k;
        }
        // A byte that is the same as the next one has its type. By doubling, as those of 1, 2, 4,
        // ... bytes in a row are found.
        for (std::uint32_t shift = 1; shift <= 32; shift *= 2) {
            types |= types >> shift & same;
            same &= same >> shift % 32;
        }
    }
    is_s = types & 1;
    return static_cast<std::uint32_t>(types & ((std::uint64_t{1} << count) - 1));
}

// Marks the LMS positions. Returns their number, 0 when all bytes are equal.
std::uint32_t mark_lms(const LmsSort &s) {
    std::uint32_t rise = 0; // the first byte that differs from the next one
    while (rise < s.n && s.text[rise] == s.text[rise + 1])
        ++rise;
    if (rise == s.n) return 0;
    std::uint32_t is_s = s.text[rise] < s.text[rise + 1]; // of position 0, which is n, too
    std::uint32_t before_is_s = s.text[s.n - 1] < s.text[0] + is_s;

    for (std::uint32_t i = bitmap_words(s.n); i-- > 0;) {
        s.marks[i] = types_of(s.text + 32 * i, std::min(s.n - 32 * i, 32u), is_s);
    }
    std::uint32_t count = 0;
    for (std::uint32_t i = 0; i < bitmap_words(s.n); ++i) {
        const std::uint32_t types = s.marks[i];
        s.marks[i] = types & ~(types << 1 | before_is_s);
        before_is_s = types >> 31;
        count += count_ones(s.marks[i]);
    }
    return count;
}

// Makes the entries, in the order of their buckets, and leaves in bucket_ends where the entries of
// each end. Leaves out repeats where some are likely: looking for them takes prose, which has
// none, 5 % longer.
void fill_buckets(LmsSort &s, std::uint32_t *bucket_ends) {
    std::fill(bucket_ends, bucket_ends + kTextBuckets, 0);
    std::uint32_t alike = 0; // LMS positions that begin as the one before
    std::uint32_t before = 0;
    for_each_bit(s.marks, s.n, [&](std::uint32_t p) {
        ++bucket_ends[bucket(s, p)];
        alike += get_u32(s.text + p) == before;
        before = get_u32(s.text + p);
    });
    // LMS positions tied with each other do not follow one another, but for those alike, and the
    // block's last and first. So at most (count + alike + 1) / 2 are: they must fit the scratch.
    if (alike >= s.count / kRepetitivePart || s.count + alike >= 2 * (s.n / 4))
        leave_out_repeats(s, bucket_ends);

    std::uint32_t sum = 0;
    for (std::uint32_t k = 0; k < kTextBuckets; ++k)
        sum += std::exchange(bucket_ends[k], sum);
    for_each_bit(s.marks, s.n, [&](std::uint32_t p) {
        const std::uint64_t key = get_u64_be(s.text + p + kBucketDepth) >> kKeyShift;
        s.entries[bucket_ends[bucket(s, p)]++] = key << kKeyShift | p;
    });
}

// Passes -------------------------------------------------------------------------

std::uint32_t entry_of(const LmsSort &s, std::uint32_t p) {
    return row_entry(s.text[static_cast<std::int32_t>(p) - 1], p);
}

// The row entry of the position before an entry's.
std::uint32_t entry_before(const LmsSort &s, std::uint32_t entry) {
    const std::uint32_t p = position_of(entry);
    return entry_of(s, (p == 0 ? s.n : p) - 1);
}

// Where the rows of each first byte begin, and the last ones end.
using FirstRows = std::array<std::uint32_t, 257>;

FirstRows find_first_rows(const LmsSort &s) {
    const std::array<std::uint32_t, 256> count = count_bytes(s.text, s.n);
    FirstRows first{};
    std::partial_sum(count.begin(), count.end(), first.begin() + 1);
    return first;
}

// Puts the L positions in their rows, the first ones of each first byte. Upwards: an entry leads to
// an L position when its preceding byte is not smaller than its first. (That of an LMS position
// always is larger.) lms: the sorted LMS positions.
void induce_l(const LmsSort &s, const std::uint32_t *lms, const FirstRows &first,
              std::uint32_t *rows) {
    std::uint32_t next[256]; // by first byte, the next row to fill
    std::copy_n(first.begin(), 256, next);
    const auto induce = [&](std::uint32_t entry, std::uint32_t c) {
        const std::uint32_t preceding = preceding_byte(entry);
        if (preceding >= c) rows[next[preceding]++] = entry_before(s, entry);
    };
    std::uint32_t i = 0;
    for (std::uint32_t c = 0; c < 256; ++c) {
        for (std::uint32_t row = first[c]; row < next[c]; ++row) {
            fetch_text(s, rows[row + kFarAhead < s.n ? row + kFarAhead : row], -2);
            induce(rows[row], c);
        }
        for (; i < s.count && s.text[lms[i]] == c; ++i) {
            fetch_text(s, lms[i + kFarAhead < s.count ? i + kFarAhead : i], -2);
            induce(entry_of(s, lms[i]), c);
        }
    }
}

// Puts the S positions in all other rows. Downwards: an S entry leads to an S position when its
// preceding byte is not larger than its first, an L entry when it is smaller.
void induce_s(const LmsSort &s, const FirstRows &first, std::uint32_t *rows) {
    std::uint32_t next[256]; // by first byte, the row behind the next one to fill
    std::copy_n(first.begin() + 1, 256, next);
    const auto induce = [&](std::uint32_t entry, std::uint32_t limit) {
        const std::uint32_t preceding = preceding_byte(entry);
        if (preceding < limit) rows[--next[preceding]] = entry_before(s, entry);
    };
    for (std::uint32_t c = 256; c-- > 0;) {
        std::uint32_t row = first[c + 1];
        for (; row > next[c]; --row) {
            fetch_text(s, rows[row > kFarAhead ? row - 1 - kFarAhead : 0], -2);
            induce(rows[row - 1], c + 1);
        }
        for (; row > first[c]; --row) {
            fetch_text(s, rows[row > kFarAhead ? row - 1 - kFarAhead : 0], -2);
            induce(rows[row - 1], c);
        }
    }
}

// Copies the block to `text`, and around it the bytes with which its rotations go on.
void copy_text(const std::uint8_t *block, std::uint32_t n, std::uint8_t *text) {
    std::memcpy(text, block, n);
    std::memcpy(text - kTextBefore, block + n - kTextBefore, kTextBefore);
    std::memcpy(text + n, block, kTextAfter);
}
static_assert(kTextBefore + kTextAfter <= kBwtRoom);

// The pair region behind what is in use of its buffers, aligned to 8 bytes. At most 2 * capacity +
// 7 of its 4 * capacity bytes are before, so that 2 * n are left.
std::uint32_t *behind_buffers(const SortArrays &arrays, const std::uint8_t *upper_buffer,
                              std::uint32_t n) {
    const std::uintptr_t used = reinterpret_cast<std::uintptr_t>(upper_buffer) + n + kBwtRoom -
                                reinterpret_cast<std::uintptr_t>(arrays.pair_region);
    return arrays.pair_region + (used + 7) / 8 * 2;
}
static_assert(2 * kBwtRoom >= 7);

} // namespace

bool sort_by_induction(const SortArrays &arrays, const std::uint8_t *block, std::uint32_t n,
                       std::uint8_t *scratch) {
    if (n < kMinBlock) return false;
    copy_text(block, n, scratch + kTextBefore);
    std::uint32_t *const index_array = arrays.index_array;
    std::uint32_t *const spare =
        behind_buffers(arrays, std::max<const std::uint8_t *>(block, scratch), n);

    LmsSort s{};
    s.text = scratch + kTextBefore;
    s.n = n;
    // Two arrays of n bits, three of n / 2: 2 * (n / 32 + 1) + 3 * (n / 64 + 1) <= n / 8 + 5 words.
    static_assert(kBwtMoreBitWords >= 5);
    s.marks = arrays.bit_array;
    s.tie_marks = s.marks + bitmap_words(n);
    s.repeats = s.tie_marks + bitmap_words(n / 2);
    s.falls = s.repeats + bitmap_words(n / 2);
    std::uint32_t *const more_marks = s.falls + bitmap_words(n / 2);
    s.entries = reinterpret_cast<LmsEntry *>(index_array);
    s.scratch = reinterpret_cast<LmsEntry *>(spare);

    s.count = mark_lms(s);
    std::fill(s.tie_marks, more_marks, 0);
    if (s.count > 0) fill_buckets(s, arrays.model_area);
    if (s.count == 0) return false;
    sort_lms(s, arrays.model_area);
    for (std::uint32_t i = 0; i < s.count; ++i) {
        LmsEntry entry; // the two arrays share their place
        std::memcpy(&entry, s.entries + i, sizeof entry);
        index_array[i] = position_of(entry);
    }
    if (s.ties > 0 && !break_ties(s, index_array, spare, more_marks)) return false;

    put_back_repeats(s, index_array, spare); // now the index array is free for the rows
    const FirstRows first = find_first_rows(s);
    induce_l(s, spare, first, index_array);
    induce_s(s, first, index_array);
    return true;
}

} // namespace velk
