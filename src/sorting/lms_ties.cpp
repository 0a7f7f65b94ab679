// Decides the order of tied LMS positions by prefix doubling (U. Manber, G. Myers, "Suffix arrays:
// a new method for on-line string searches", 1993).
//
// LMS positions are numbered in the order of the block. When few are tied, only those and the ones
// right behind one are kept: comparisons end at an untied one. The kept ones have rows, in the
// order known so far. A group is the rows of those tied with each other, its first row their name.
//
// A pass sorts each group by the names that are h numbers behind. What is tied afterwards agrees in
// 2 h pieces, and h doubles for the next pass. So log n passes break all ties, unless the block is
// periodic. Very regular blocks, as Fibonacci strings, need all of them.
//
// A pass goes backwards through the block: names are best known when the groups further back have
// been sorted. A long repeat then costs one step for each of its LMS positions. Real data hardly
// ever needs a second pass.
#include "base/bits.h"
#include "base/prefetch.h"
#include "sorting/distinct_sort.h"
#include "sorting/lms.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstring>
#include <utility>

namespace velk {
namespace {

// In a row, beside the number of an LMS position.
constexpr std::uint32_t kTied = 1u << 31;    // with the row before
constexpr std::uint32_t kVisited = 1u << 30; // in a group's first row: sorted in this pass
constexpr std::uint32_t kNumberMask = kVisited - 1;
static_assert(kMaxLms <= kNumberMask);
// Sorting a group of m counts as m * log m steps. When all sorting has taken so many steps for each
// LMS position, none is sorted twice in a pass any more. Most data takes up to 15, repetitive data
// up to 45: with a limit of 16 that takes up to 1.4 times as long at 16 MB.
constexpr std::uint32_t kMaxWork = 64;
static_assert(kMaxLms <= UINT32_MAX / kMaxWork);

// 32 positions of the block: which of them are kept, and how many of those before them.
struct KeptWord {
    std::uint32_t bits;
    std::uint32_t before;
};

struct Ties {
    std::uint32_t count;        // of kept LMS positions
    std::uint32_t *rows;        // the number of the LMS position there, kTied, kVisited
    std::uint32_t *name;        // by number
    std::uint64_t *scratch;     // scratch_size entries
    std::uint32_t scratch_size; // no group has more rows: break_ties refuses those
    std::uint32_t h;            // tied LMS positions are known to agree in so many pieces

    std::uint32_t number(std::uint32_t row) const { return rows[row] & kNumberMask; }
    bool is_tied(std::uint32_t row) const { return row < count && (rows[row] & kTied) != 0; }
    std::uint32_t name_after(std::uint32_t k) const {
        return name[k + h < count ? k + h : k + h - count];
    }
};

// Groups -------------------------------------------------------------------------

// The rows of those in a group that have the same name behind them.
struct Part {
    std::uint32_t begin;
    std::uint32_t end; // of those filled; before, their number
};

// Sorts the group of number k. Returns the steps. once: its parts count as sorted, too.
std::uint32_t refine_group(const Ties &t, std::uint32_t k, bool once) {
    const std::uint32_t begin = t.name[k];
    std::uint32_t m = 1; // at most scratch_size
    while (t.is_tied(begin + m))
        ++m;
    std::uint32_t least = t.count;
    std::uint32_t largest = 0;
    for (std::uint32_t i = 0; i < m; ++i) {
        if (i + kAhead < m) prefetch(t.name, 4u * t.number(begin + i + kAhead));
        const std::uint32_t l = t.number(begin + i);
        const std::uint32_t after = t.name_after(l);
        t.scratch[i] = std::uint64_t{after} << 32 | l;
        least = std::min(least, after);
        largest = std::max(largest, after);
    }

    const auto after = [&](std::uint32_t i) {
        return static_cast<std::uint32_t>(t.scratch[i] >> 32);
    };
    const std::uint32_t sorted = once ? kVisited : 0;
    const auto put = [&](std::uint32_t i, std::uint32_t name, std::uint32_t row) {
        const auto l = static_cast<std::uint32_t>(t.scratch[i]);
        t.rows[row] = l | (row == name ? sorted : kTied);
        t.name[l] = name;
    };
    // Most names behind a group are those of one other group. Counting those takes the sort of
    // repetitive blocks 5 to 14 % fewer instructions than sorting them.
    const std::uint32_t names = largest - least + 1;
    if (names <= 4 * m && 5 * m <= t.scratch_size) {
        Part *const parts = reinterpret_cast<Part *>(t.scratch + m);
        std::fill(parts, parts + names, Part{});
        for (std::uint32_t i = 0; i < m; ++i)
            ++parts[after(i) - least].end;
        std::uint32_t row = begin;
        for (std::uint32_t i = 0; i < names; ++i)
            row += std::exchange(parts[i], Part{row, row}).end;
        for (std::uint32_t i = 0; i < m; ++i) {
            Part &part = parts[after(i) - least];
            put(i, part.begin, part.end++);
        }
    } else {
        sort_distinct(t.scratch, m, 32, t.scratch + m, t.scratch_size - m);
        std::uint32_t name = begin;
        for (std::uint32_t i = 0; i < m; ++i) {
            if (i > 0 && after(i) != after(i - 1)) name = begin + i;
            put(i, name, begin + i);
        }
    }
    t.rows[t.name[k]] |= kVisited;
    return m * static_cast<std::uint32_t>(std::bit_width(m));
}

// One pass. Sorts each group when the last of its LMS positions is met and, while the budget of
// steps lasts, its parts in the same way. What is tied then had the same names h behind.
void refine_backwards(const Ties &t, std::uint32_t &budget) {
    for (std::uint32_t k = t.count; k-- > 0;) {
        if (k >= kFarAhead) prefetch(t.rows, 4u * t.name[k - kFarAhead]);
        if (k >= kAhead) prefetch(t.name, 4u * t.number(t.name[k - kAhead]));
        const std::uint32_t group = t.name[k];
        if (!t.is_tied(group + 1) || (t.rows[group] & kVisited) != 0) continue;
        budget -= std::min(budget, refine_group(t, k, budget == 0));
    }
}

// Sorts the groups until the rows hold numbers alone. Returns false when ties can't be broken.
bool refine(Ties &t, std::uint32_t ties) {
    std::uint32_t budget = kMaxWork * t.count;
    for (t.h = 1; ties > 0; t.h *= 2) {
        if (t.h >= t.count) return false; // what is tied agrees all around the block
        refine_backwards(t, budget);
        const std::uint32_t before = std::exchange(ties, 0);
        for (std::uint32_t row = 0; row < t.count; ++row) {
            ties += t.is_tied(row);
            t.rows[row] &= ~kVisited;
        }
        if (ties == before) return false; // what lies h behind is tied, too, and so on
    }
    return true;
}

// Which LMS positions take part --------------------------------------------------

// Marks the tied LMS positions and those right behind one.
void mark_kept(const LmsSort &s, const std::uint32_t *places, std::uint32_t *kept) {
    std::fill(kept, kept + bitmap_words(s.n), 0);
    const auto keep = [&](std::uint32_t i) {
        set_bit(kept, places[i]);
        set_bit(kept, next_lms(s, places[i]));
    };
    for_each_bit(s.tie_marks, s.count, [&](std::uint32_t i) {
        if (!get_bit(s.tie_marks, i - 1)) keep(i - 1);
        keep(i);
    });
}

// Gives the kept LMS positions their rows and names. rows: may be `places`.
std::uint32_t make_rows(const LmsSort &s, const std::uint32_t *places, const std::uint32_t *kept,
                        KeptWord *words, std::uint32_t *rows, std::uint32_t *name) {
    std::uint32_t sum = 0;
    for (std::uint32_t i = 0; i < bitmap_words(s.n); ++i) {
        words[i] = {kept[i], sum};
        sum += count_ones(kept[i]);
    }
    std::uint32_t row = 0;
    std::uint32_t first = 0;
    for (std::uint32_t i = 0; i < s.count; ++i) {
        if (i + kAhead < s.count) prefetch(words, places[i + kAhead] / 32 * sizeof *words);
        const std::uint32_t p = places[i];
        const KeptWord word = words[p / 32];
        if ((word.bits >> p % 32 & 1) == 0) continue;
        const std::uint32_t k = word.before + count_ones(word.bits & ~(~0u << p % 32));
        const bool tied = get_bit(s.tie_marks, i);
        if (!tied) first = row;
        name[k] = first;
        rows[row++] = k | (tied ? kTied : 0);
    }
    return sum;
}

} // namespace

bool break_ties(const LmsSort &s, std::uint32_t *places, std::uint32_t *spare,
                std::uint32_t *marks) {
    // What keeps refine_group inside the scratch: groups only get smaller. (None is too large where
    // fill_buckets is right.)
    const std::uint32_t scratch_size = s.n / 4;
    if (s.largest_group > scratch_size) return false;
    // Each tie keeps at most two LMS positions and the one behind each. So 4 * ties rows and as
    // many names hold all, and fit behind the places.
    const bool few = 8 * s.ties <= s.n - s.count;
    std::uint32_t *const kept = few ? marks : s.marks;
    std::uint32_t *const rows = few ? places + s.count : places;
    std::uint32_t *const name = few ? rows + 4 * s.ties : places + s.count;
    if (few) mark_kept(s, places, kept);
    assert(bitmap_words(s.n) * sizeof(KeptWord) <= s.n / 2 * sizeof *spare);
    const std::uint32_t count =
        make_rows(s, places, kept, reinterpret_cast<KeptWord *>(spare), rows, name);

    Ties ties = {count, rows, name, s.scratch, scratch_size, 1};
    if (!refine(ties, s.ties)) return false;
    std::uint32_t *next = spare; // the positions by number
    for_each_bit(kept, s.n, [&](std::uint32_t p) { *next++ = p; });
    const std::uint32_t *row = rows;
    for (std::uint32_t i = 0; i < s.count; ++i) {
        if (few && !get_bit(kept, places[i])) continue;
        if (rows + count - row > kFarAhead) prefetch(spare, 4u * row[kFarAhead]);
        places[i] = spare[*row++];
    }
    return true;
}

} // namespace velk
