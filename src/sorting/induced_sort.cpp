// Induced sorting of cyclic rotations, with a direct sort of the valleys.
//
// A position is of type S when its rotation is smaller than the one that begins one
// position later, else of type L. An S position behind an L is a valley; there are at most
// n / 2. Sorted valleys determine the order of all rotations in two passes over the rows
// (P. Ko, S. Aluru, "Space efficient linear time construction of suffix arrays", 2003).
//
// Valleys are few and real data tells them apart in a few bytes, so they are sorted by
// comparison, 5 bytes at a time: a bucket for each two-byte beginning, and in it entries
//
//   | the next five bytes (40) | position (24) |
//
// which need no look at the block. Valleys that agree beyond kMinTieDepth bytes and the
// next valley are left tied; the string of the valleys' ranks then decides, which is
// sorted by induction throughout (sorting/name_sort.h), so that repetitive blocks take
// linear time, too.
//
// The arrays, by their use over time (spare: the pair region behind the two buffers):
//
//                  valleys sorted      ties broken                         passes
//   index array    entries             valleys (n/2) | names, buckets      rows
//   spare          counting scratch    string of names, its rows           valleys
//   model area     bucket ends         -                                   -
//   bit array      valley marks | tie marks | kept marks | marks of the name sort
#include "pipeline/byte_order.h"
#include "sorting/bitmap.h"
#include "sorting/name_sort.h"
#include "sorting/prefetch.h"
#include "sorting/rotation_sort.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <utility>

namespace {

// Shorter blocks are not worth the set-up.
constexpr std::uint32_t kMinBlock = 16;
// Bytes of the text before the block and behind it: the rotation goes on.
constexpr std::uint32_t kTextBefore = 4;
constexpr std::uint32_t kTextAfter = 16;
constexpr std::uint32_t kTextBuckets = 65536;
constexpr std::uint32_t kBucketDepth = 2;
constexpr std::uint32_t kKeyBytes = 5;
constexpr std::uint32_t kKeyShift = 24;
// Valleys that agree in fewer bytes are compared on, even beyond the next valley: ties
// cost more than a few more bytes.
constexpr std::uint32_t kMinTieDepth = 40;
// Where a quarter of the valleys are tied, the others are soon sorted by name, too.
constexpr std::uint32_t kMinTieDepthOfRepetitive = 12;
constexpr std::uint32_t kMaxNetwork = 16;
// Larger sets of entries are first split by a byte of their keys.
constexpr std::uint32_t kMinCounting = 512;
// How many entries ahead the text is fetched from memory: 16 MB blocks gain 1.3 times.
constexpr std::uint32_t kAhead = 32;

using Entry = std::uint64_t;

struct Sorter {
    const std::uint8_t *text; // the block; text[-kTextBefore .. n + kTextAfter - 1] is readable
    std::uint32_t n;
    std::uint32_t valleys;
    Entry *entries;
    Entry *scratch;
    std::uint32_t scratch_entries;
    std::uint32_t *valley_marks; // by position
    std::uint32_t *tie_marks;    // by place in the sorted valleys: tied with the one before
    std::uint32_t ties;
};

std::uint32_t position_of(Entry entry) {
    return static_cast<std::uint32_t>(entry) & kPositionMask;
}

// The position `distance` bytes behind p.
std::uint32_t after(const Sorter &s, std::uint32_t p, std::uint32_t distance) {
    return (p + distance) % s.n;
}

// Valleys ------------------------------------------------------------------------

// By first byte, how many rotations there are of each type.
struct TypeCounts {
    std::uint32_t l[256];
    std::uint32_t s[256];
};

// Lists the valleys, from the last to the first, position 0 foremost. Returns their number;
// 0 when all bytes are equal. list: n / 2 + 1 entries.
std::uint32_t find_valleys(const Sorter &s, std::uint32_t *list, TypeCounts &counts) {
    std::uint32_t rise = 0; // the first byte that differs from the next one
    while (rise < s.n && s.text[rise] == s.text[rise + 1])
        ++rise;
    if (rise == s.n) return 0;

    // Two sets of counters, so that equal neighbours do not wait for each other.
    std::uint32_t count[2][2][256] = {};
    std::uint32_t later_is_s = s.text[rise] < s.text[rise + 1];
    std::uint32_t later = s.text[0];
    std::uint32_t valleys = 0;
    for (std::uint32_t p = s.n; p-- > 0;) {
        const std::uint32_t here = s.text[p];
        const std::uint32_t is_s = here < later + later_is_s;
        list[valleys] = p + 1;
        valleys += later_is_s & ~is_s;
        ++count[p % 2][is_s][here];
        later = here;
        later_is_s = is_s;
    }
    if (list[0] == s.n) list[0] = 0;
    for (std::uint32_t c = 0; c < 256; ++c) {
        counts.l[c] = count[0][0][c] + count[1][0][c];
        counts.s[c] = count[0][1][c] + count[1][1][c];
    }
    return valleys;
}

// Makes the entries, in the order of the first two bytes, and leaves in bucket_ends where
// those of each two bytes end.
void fill_buckets(const Sorter &s, const std::uint32_t *list, std::uint32_t *bucket_ends) {
    const auto bucket = [&](std::uint32_t p) { return s.text[p] * 256u + s.text[p + 1]; };
    std::fill(bucket_ends, bucket_ends + kTextBuckets, 0);
    for (std::uint32_t i = 0; i < s.valleys; ++i)
        ++bucket_ends[bucket(list[i])];
    std::uint32_t sum = 0;
    for (std::uint32_t k = 0; k < kTextBuckets; ++k)
        sum += std::exchange(bucket_ends[k], sum);
    for (std::uint32_t i = 0; i < s.valleys; ++i) {
        const std::uint32_t p = list[i];
        const Entry key = get_u64_be(s.text + p + kBucketDepth) >> kKeyShift;
        s.entries[bucket_ends[bucket(p)]++] = key << kKeyShift | p;
    }
}

// Sorting entries ----------------------------------------------------------------

// Batcher's odd-even merge sort of 2, 4, 8 or 16 entries: fixed exchanges and no branch
// (a sixth less time in sorting valleys than insertion).
inline void order(Entry &a, Entry &b) {
    const Entry x = a;
    const Entry y = b;
    a = x < y ? x : y; // compiles to moves; std::min and std::max to branches
    b = x < y ? y : x;
}

template<std::uint32_t size, std::uint32_t step, std::uint32_t i>
[[gnu::always_inline]] inline void order_steps(Entry *entries) {
    if constexpr (i + step < size) {
        order(entries[i], entries[i + step]);
        order_steps<size, step, i + 2 * step>(entries);
    }
}

template<std::uint32_t size, std::uint32_t step>
[[gnu::always_inline]] inline void merge_halves(Entry *entries) {
    if constexpr (2 * step < size) {
        merge_halves<size, 2 * step>(entries);
        merge_halves<size, 2 * step>(entries + step);
        order_steps<size, step, step>(entries);
    } else {
        order(entries[0], entries[step]);
    }
}

template<std::uint32_t size>
[[gnu::always_inline]] inline void sort_network(Entry *entries) {
    if constexpr (size > 1) {
        sort_network<size / 2>(entries);
        sort_network<size / 2>(entries + size / 2);
        merge_halves<size, 1>(entries);
    }
}

template<std::uint32_t size>
void sort_padded(Entry *entries, std::uint32_t m) {
    Entry padded[size];
    for (std::uint32_t i = 0; i < size; ++i)
        padded[i] = i < m ? entries[i] : ~Entry{0};
    sort_network<size>(padded);
    std::memcpy(entries, padded, m * sizeof *entries);
}

// m: at most kMaxNetwork.
void sort_few(Entry *entries, std::uint32_t m) {
    if (m <= 1) return;
    if (m <= 4) return sort_padded<4>(entries, m);
    if (m <= 8) return sort_padded<8>(entries, m);
    sort_padded<kMaxNetwork>(entries, m);
}

Entry median(Entry a, Entry b, Entry c) {
    return std::max(std::min(a, b), std::min(std::max(a, b), c));
}

// Quicksort without a branch on a comparison (3 times as fast as std::sort on keys of text).
// No two entries are equal: positions differ. Bad pivots end in a heap sort.
void quicksort(Entry *entries, std::uint32_t m, std::uint32_t splits_left) {
    while (m > kMaxNetwork) {
        if (splits_left-- == 0) {
            std::make_heap(entries, entries + m);
            std::sort_heap(entries, entries + m);
            return;
        }
        const std::uint32_t step = m / 9;
        const auto median_at = [&](std::uint32_t i) {
            return median(entries[i * step], entries[(i + 1) * step], entries[(i + 2) * step]);
        };
        const Entry pivot = median(median_at(0), median_at(3), median_at(6));
        std::uint32_t smaller = 0;
        for (std::uint32_t i = 0; i < m; ++i) {
            const Entry entry = entries[i];
            entries[i] = entries[smaller];
            entries[smaller] = entry;
            smaller += entry < pivot;
        }
        // The pivot itself lies in the upper part, which is never empty.
        quicksort(entries, smaller, splits_left);
        entries += smaller;
        m -= smaller;
        if (smaller == 0) { // the pivot is the least: take it out
            std::iter_swap(entries, std::min_element(entries, entries + m));
            ++entries;
            --m;
        }
    }
    sort_few(entries, m);
}

// Sorts by whole keys; `key_byte` says which byte of them, from 4 down to 0, is the highest
// in which they may differ.
void sort_entries(const Sorter &s, Entry *entries, std::uint32_t m, std::uint32_t key_byte) {
    if (m <= kMinCounting || m > s.scratch_entries) {
        quicksort(entries, m, 2 * static_cast<std::uint32_t>(std::bit_width(m)));
        return;
    }
    const std::uint32_t shift = kKeyShift + 8 * key_byte;
    std::uint32_t ends[256] = {};
    for (std::uint32_t i = 0; i < m; ++i)
        ++ends[entries[i] >> shift & 255];
    std::uint32_t sum = 0;
    for (std::uint32_t &end : ends)
        sum += std::exchange(end, sum);
    std::memcpy(s.scratch, entries, m * sizeof *entries);
    for (std::uint32_t i = 0; i < m; ++i)
        entries[ends[s.scratch[i] >> shift & 255]++] = s.scratch[i];
    if (key_byte == 0) return;
    std::uint32_t begin = 0;
    for (const std::uint32_t end : ends) {
        if (end - begin > 1) sort_entries(s, entries + begin, end - begin, key_byte - 1);
        begin = end;
    }
}

// Valleys with equal keys ----------------------------------------------------------

// Bytes from the valley p on that show its piece, up to and with the next valley: all
// valleys that agree in so many bytes have their next valley at the same distance.
std::uint32_t piece_depth(const Sorter &s, std::uint32_t p) {
    std::uint32_t length = 1; // to the next valley
    std::uint32_t q = after(s, p, 1);
    while (!get_bit(s.valley_marks, q)) {
        if (s.valley_marks[q / 32] >> (q % 32) == 0) { // no mark in the rest of the word
            const std::uint32_t skipped = std::min(32 - q % 32, s.n - q);
            length += skipped;
            q = after(s, q, skipped);
        } else {
            ++length;
            q = after(s, q, 1);
        }
    }
    // What shows the valley is the first byte behind it that differs, and is larger.
    std::uint32_t plateau = 1;
    while (s.text[after(s, q, plateau)] == s.text[q])
        ++plateau;
    return length + plateau + 1;
}

void tie(Sorter &s, const Entry *entries, std::uint32_t m) {
    const std::uint32_t first = static_cast<std::uint32_t>(entries - s.entries);
    for (std::uint32_t i = 1; i < m; ++i)
        set_bit(s.tie_marks, first + i);
    s.ties += m - 1;
}

void load_keys(const Sorter &s, Entry *entries, std::uint32_t m, std::uint32_t depth) {
    const std::uint32_t distance = depth % s.n;
    for (std::uint32_t i = 0; i < m; ++i) {
        const std::uint32_t p = position_of(entries[i]);
        std::uint32_t q = p + distance;
        if (q >= s.n) q -= s.n;
        entries[i] = get_u64_be(s.text + q) >> kKeyShift << kKeyShift | p;
    }
}

// Sorts two valleys that agree in `depth` bytes.
void sort_pair(Sorter &s, Entry *entries, std::uint32_t depth, std::uint32_t tie_depth) {
    std::uint32_t a = after(s, position_of(entries[0]), depth);
    std::uint32_t b = after(s, position_of(entries[1]), depth);
    for (;; depth += 8) {
        if (depth >= tie_depth) {
            tie_depth = piece_depth(s, position_of(entries[0]));
            if (depth >= tie_depth) return tie(s, entries, 2);
        }
        const std::uint64_t bytes_a = get_u64_be(s.text + a);
        const std::uint64_t bytes_b = get_u64_be(s.text + b);
        if (bytes_a != bytes_b) {
            if (bytes_b < bytes_a) std::swap(entries[0], entries[1]);
            return;
        }
        a += 8;
        if (a >= s.n) a -= s.n;
        b += 8;
        if (b >= s.n) b -= s.n;
    }
}

// Sorts the valleys of `m` entries that agree in `depth` bytes and hold the next five as
// their keys. From tie_depth bytes on they may be tied. Only the largest run of equal keys
// is not sorted by recursion, so recursion is at most 23 deep; the loop ends because pieces
// do, and all in all reads each piece once or twice.
void sort_valleys(Sorter &s, Entry *entries, std::uint32_t m, std::uint32_t depth,
                  std::uint32_t tie_depth) {
    const auto sort_run = [&s](Entry *run, std::uint32_t size, std::uint32_t run_depth,
                               std::uint32_t run_tie_depth) {
        if (size < 2) return;
        if (size == 2) return sort_pair(s, run, run_depth, run_tie_depth);
        load_keys(s, run, size, run_depth);
        sort_valleys(s, run, size, run_depth, run_tie_depth);
    };
    for (;;) {
        const auto key = [&](std::uint32_t i) { return entries[i] >> kKeyShift; };
        std::uint32_t first_other = 1;
        while (first_other < m && key(first_other) == key(0))
            ++first_other;
        if (first_other < m) sort_entries(s, entries, m, kKeyBytes - 1);

        depth += kKeyBytes;
        Entry *largest = entries;
        std::uint32_t largest_size = 0;
        for (std::uint32_t begin = 0, end; begin < m; begin = end) {
            for (end = begin + 1; end < m && key(end) == key(begin);)
                ++end;
            Entry *run = entries + begin;
            std::uint32_t size = end - begin;
            if (size > largest_size) {
                std::swap(run, largest);
                std::swap(size, largest_size);
            }
            sort_run(run, size, depth, tie_depth);
        }
        if (largest_size < 3) return sort_run(largest, largest_size, depth, tie_depth);
        entries = largest;
        m = largest_size;
        if (depth >= tie_depth) {
            tie_depth = piece_depth(s, position_of(entries[0]));
            if (depth >= tie_depth) return tie(s, entries, m);
        }
        load_keys(s, entries, m, depth);
    }
}

void sort_all_valleys(Sorter &s, const std::uint32_t *bucket_ends) {
    std::uint32_t begin = 0;
    for (std::uint32_t k = 0; k < kTextBuckets; ++k) {
        const std::uint32_t end = bucket_ends[k];
        if (end - begin > 1) {
            const bool repetitive = 4 * s.ties > begin;
            sort_valleys(s, s.entries + begin, end - begin, kBucketDepth,
                         repetitive ? kMinTieDepthOfRepetitive : kMinTieDepth);
        }
        begin = end;
    }
}

// Ties ---------------------------------------------------------------------------

// Marks the valleys that the string of names keeps: those tied with another, and those
// that follow one in the text, whose names end every comparison. Returns their number, or
// `valleys` with all of them marked when the others are too few to be worth telling apart.
std::uint32_t mark_kept(const Sorter &s, const std::uint32_t *sorted, std::uint32_t *kept) {
    std::fill(kept, kept + bitmap_words(s.n), 0);
    for_each_bit(s.tie_marks, s.valleys, [&](std::uint32_t place) {
        set_bit(kept, sorted[place]);
        set_bit(kept, sorted[place - 1]);
    });
    // From the front, so that a valley that only follows one keeps no further one; the
    // first valley follows the last.
    bool last_is_tied = false;
    std::uint32_t count = 0;
    for_each_bit(s.valley_marks, s.n, [&](std::uint32_t p) { last_is_tied = get_bit(kept, p); });
    for_each_bit(s.valley_marks, s.n, [&](std::uint32_t p) {
        const bool tied = get_bit(kept, p);
        if (last_is_tied) set_bit(kept, p);
        count += tied || last_is_tied;
        last_is_tied = tied;
    });
    if (count <= s.n / 4) return count;
    std::copy(s.valley_marks, s.valley_marks + bitmap_words(s.n), kept);
    return s.valleys;
}

// Sorts the tied valleys. Returns false for a periodic block. The sorted valleys are at
// the start of the index array before and after. At most n / 2 numbers each are used of the
// first half of the index array, its second half and `spare`.
bool break_ties(const Sorter &s, std::uint32_t *index_array, std::uint32_t *spare,
                std::uint32_t *marks) {
    std::uint32_t *const kept = marks;
    std::uint32_t *const more_marks = marks + bitmap_words(s.n);
    std::uint32_t *const sorted = index_array;
    std::uint32_t *const second_half = index_array + s.n / 2;
    const std::uint32_t count = mark_kept(s, sorted, kept);

    // No two valleys are neighbours: position / 2 tells them apart.
    std::uint32_t *const name_at = second_half;
    std::uint32_t names = 0;
    std::uint32_t name = 0;
    for (std::uint32_t place = 0; place < s.valleys; ++place) {
        const std::uint32_t p = sorted[place];
        if (!get_bit(kept, p)) continue;
        if (!get_bit(s.tie_marks, place)) name = names;
        name_at[p / 2] = name;
        ++names;
    }
    assert(names == count);
    std::uint32_t *const string = spare;
    std::uint32_t i = 0;
    for_each_bit(kept, s.n, [&](std::uint32_t p) { string[i++] = name_at[p / 2]; });

    // With all valleys kept, `sorted` is not needed any more and gives its place. Else the
    // string and its rows take n / 4 numbers each.
    const bool all = count == s.valleys;
    std::uint32_t *const rows = all ? sorted : spare + count;
    if (!sort_names(string, count, rows, second_half, more_marks)) return false;

    std::uint32_t *const position = second_half;
    i = 0;
    for_each_bit(kept, s.n, [&](std::uint32_t p) { position[i++] = p; });
    const std::uint32_t *row = rows;
    for (std::uint32_t place = 0; place < s.valleys; ++place) {
        if (all || get_bit(kept, sorted[place])) sorted[place] = position[*row++];
    }
    return true;
}

// Passes -------------------------------------------------------------------------

// A row entry: the position and, above it, the byte before it.
std::uint32_t row_entry(const Sorter &s, std::uint32_t p) {
    return static_cast<std::uint32_t>(s.text[static_cast<std::int32_t>(p) - 1]) << 24 | p;
}

// The row entry of the position before an entry's.
std::uint32_t entry_before(const Sorter &s, std::uint32_t entry) {
    const std::uint32_t p = entry & kPositionMask;
    return row_entry(s, (p == 0 ? s.n : p) - 1);
}

// Puts all rotations in their rows. In the rows of a first byte the L positions come first.
// valley: row entries of the sorted valleys; valley_ends: where those of each first byte end.
void induce(const Sorter &s, const std::uint32_t *valley, const std::uint32_t *valley_ends,
            const TypeCounts &counts, std::uint32_t *rows) {
    std::uint32_t first_row[257];
    std::uint32_t next[256]; // by first byte, the next row to fill
    first_row[0] = 0;
    for (std::uint32_t c = 0; c < 256; ++c) {
        next[c] = first_row[c];
        first_row[c + 1] = first_row[c] + counts.l[c] + counts.s[c];
    }
    const auto fetch = [&](std::uint32_t entry) {
        prefetch(s.text, (entry & kPositionMask) - std::uintptr_t{2});
    };

    // Increasing: an entry whose preceding byte is not smaller than its own first byte
    // (never smaller for a valley) leads to an L position.
    const auto induce_l = [&](std::uint32_t entry, std::uint32_t c) {
        const std::uint32_t preceding = entry >> 24;
        if (preceding >= c) rows[next[preceding]++] = entry_before(s, entry);
    };
    std::uint32_t v = 0;
    for (std::uint32_t c = 0; c < 256; ++c) {
        for (std::uint32_t row = first_row[c]; row < next[c]; ++row) {
            fetch(rows[row + kAhead < s.n ? row + kAhead : row]);
            induce_l(rows[row], c);
        }
        for (; v < valley_ends[c]; ++v) {
            fetch(valley[v + kAhead < s.valleys ? v + kAhead : v]);
            induce_l(valley[v], c);
        }
    }

    // Decreasing: an S entry whose preceding byte is not larger, and an L entry whose
    // preceding byte is smaller, lead to an S position.
    const auto induce_s = [&](std::uint32_t entry, std::uint32_t limit) {
        const std::uint32_t preceding = entry >> 24;
        if (preceding < limit) rows[--next[preceding]] = entry_before(s, entry);
    };
    for (std::uint32_t c = 0; c < 256; ++c)
        next[c] = first_row[c + 1];
    for (std::uint32_t c = 256; c-- > 0;) {
        std::uint32_t row = first_row[c + 1];
        for (; row > next[c]; --row) {
            fetch(rows[row > kAhead ? row - 1 - kAhead : 0]);
            induce_s(rows[row - 1], c + 1);
        }
        for (; row > first_row[c]; --row) {
            fetch(rows[row > kAhead ? row - 1 - kAhead : 0]);
            induce_s(rows[row - 1], c);
        }
    }
}

} // namespace

bool sort_by_induction(const SortArrays &arrays, const std::uint8_t *block, std::uint32_t n,
                       std::uint8_t *scratch) {
    if (n < kMinBlock) return false;
    std::uint8_t *const text = scratch + kTextBefore;
    std::memcpy(text, block, n);
    std::memcpy(text - kTextBefore, block + n - kTextBefore, kTextBefore);
    std::memcpy(text + n, block, kTextAfter);

    // The two buffers take half of the pair region; n bytes each and 24 more are used.
    std::uint32_t *const index_array = arrays.index_array;
    const std::uint8_t *const buffers_end = std::max<const std::uint8_t *>(block, scratch) + n + 24;
    const std::uintptr_t used = reinterpret_cast<std::uintptr_t>(buffers_end) -
                                reinterpret_cast<std::uintptr_t>(arrays.pair_region);
    std::uint32_t *const spare = arrays.pair_region + (used + 7) / 8 * 2;
    std::uint32_t *const bucket_ends = arrays.model_area;

    Sorter s{};
    s.text = text;
    s.n = n;
    s.entries = reinterpret_cast<Entry *>(index_array);
    s.scratch = reinterpret_cast<Entry *>(spare);
    s.scratch_entries = n / 4;
    s.valley_marks = arrays.bit_array;
    s.tie_marks = s.valley_marks + bitmap_words(n);
    std::uint32_t *const more_marks = s.tie_marks + bitmap_words(n / 2);

    TypeCounts counts;
    std::uint32_t *const list = spare;
    s.valleys = find_valleys(s, list, counts);
    if (s.valleys == 0) return false;
    std::fill(s.valley_marks, more_marks, 0);
    for (std::uint32_t i = 0; i < s.valleys; ++i)
        set_bit(s.valley_marks, list[i]);
    fill_buckets(s, list, bucket_ends);
    sort_all_valleys(s, bucket_ends);

    for (std::uint32_t i = 0; i < s.valleys; ++i) {
        Entry entry; // the two arrays share their place
        std::memcpy(&entry, s.entries + i, sizeof entry);
        index_array[i] = position_of(entry);
    }
    if (s.ties > 0 && !break_ties(s, index_array, spare, more_marks)) return false;

    std::uint32_t *const valley = spare;
    for (std::uint32_t i = 0; i < s.valleys; ++i)
        valley[i] = row_entry(s, index_array[i]);
    std::uint32_t valley_ends[256];
    for (std::uint32_t c = 0; c < 256; ++c)
        valley_ends[c] = bucket_ends[c * 256 + 255];
    induce(s, valley, valley_ends, counts, index_array);
    return true;
}
