// Decides the order of tied valleys by the valleys that follow.
//
// Valleys are numbered in the order of the block, so that number k + 1 is behind number k.
// When few are tied, only those and the ones right behind one are kept: no other valley is
// equal to an untied one, so comparisons end there. The kept valleys have rows, in the order
// known so far; those tied with each other are a group of rows, and the first row of a
// valley's group is its name.
//
// A group is sorted by the names of the valleys behind its own. These are best known when
// the groups further back in the block have been sorted, so this goes backwards: a long
// repeat costs one step for each of its valleys, once its end is known to be larger or
// smaller. Real data hardly ever needs a second time. What is left after that, of blocks of a
// very regular structure, is left to a sort of the string of names that takes linear time
// (sorting/name_sort.h).
#include "sorting/bitmap.h"
#include "sorting/distinct_sort.h"
#include "sorting/name_sort.h"
#include "sorting/prefetch.h"
#include "sorting/valleys.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstring>
#include <utility>

namespace velk {
namespace {

// In a row, beside the number of a valley.
constexpr std::uint32_t kTied = 1u << 31;    // with the row before
constexpr std::uint32_t kVisited = 1u << 30; // in a group's first: sorted as far as can be
constexpr std::uint32_t kNumberMask = kVisited - 1;
// Sorting a group of m valleys counts as m * log m steps, and all groups may take so many
// for each valley. Real data takes up to 10; Fibonacci strings would take 43. Valleys are
// fewer than 2^23, so 32 bits hold the sum.
constexpr std::uint32_t kMaxWork = 16;
constexpr std::uint32_t kTooMuch = 0xFFFFFFFFu;
// How many valleys ahead memory is fetched: a quarter less time at 16 MB.
constexpr std::uint32_t kAhead = 16;

// 32 positions of the block: which of them are kept, and how many of those before them.
struct KeptWord {
    std::uint32_t bits;
    std::uint32_t before;
};

struct Ties {
    std::uint32_t count;    // of kept valleys
    std::uint32_t *rows;    // the number of the valley there, kTied, kVisited
    std::uint32_t *name;    // by number
    std::uint64_t *scratch; // scratch_size entries
    std::uint32_t scratch_size;

    std::uint32_t number(std::uint32_t row) const { return rows[row] & kNumberMask; }
    bool is_tied(std::uint32_t row) const { return row < count && (rows[row] & kTied) != 0; }
    std::uint32_t before(std::uint32_t k) const { return (k == 0 ? count : k) - 1; }
    std::uint32_t name_after(std::uint32_t k) const { return name[k + 1 == count ? 0 : k + 1]; }
};

// Groups -------------------------------------------------------------------------

// Sorts a group of two; most are in text.
void refine_pair(const Ties &t, std::uint32_t begin) {
    const std::uint32_t k = t.number(begin);
    const std::uint32_t l = t.number(begin + 1);
    const std::uint32_t after_k = t.name_after(k);
    const std::uint32_t after_l = t.name_after(l);
    if (after_k == after_l) {
        t.rows[begin] |= kVisited;
        return;
    }
    const std::uint32_t second = after_k < after_l ? l : k;
    t.rows[begin] = k ^ l ^ second;
    t.rows[begin + 1] = second;
    t.name[second] = begin + 1;
}

// Puts those valleys of a group in their rows that others of it follow: "aaab". The first
// `lower` rows of the group and the last `upper` hold the others, in order: those whose next
// valleys are smaller, and larger, than the group. Each valley put in its row is next to
// those already there, in the order of the valleys that follow, and tied as those.
void place_runs(const Ties &t, std::uint32_t begin, std::uint32_t end, std::uint32_t lower,
                std::uint32_t upper) {
    bool tied = false; // the next one with the last one
    std::uint32_t next = begin + lower;
    for (std::uint32_t i = begin; i < next; ++i) {
        tied = tied && t.is_tied(i);
        const std::uint32_t k = t.before(t.number(i));
        if (t.name[k] != begin) continue;
        t.rows[next++] = k | (tied ? kTied : 0);
        tied = true;
    }
    tied = false;
    std::uint32_t last = end - upper;
    for (std::uint32_t i = end; i > last;) {
        const std::uint32_t k = t.before(t.number(--i));
        if (t.name[k] == begin) {
            if (tied) t.rows[last] |= kTied;
            t.rows[--last] = k;
            tied = true;
        }
        tied = tied && t.is_tied(i);
    }
    assert(next == last);
}

// Sorts the group of the valley k. Returns the work of it, or kTooMuch, with nothing done,
// when all valleys are of the group.
std::uint32_t refine_group(const Ties &t, std::uint32_t k) {
    const std::uint32_t begin = t.name[k];
    if (!t.is_tied(begin + 2)) {
        refine_pair(t, begin);
        return 4;
    }
    std::uint32_t end = begin;
    std::uint32_t m = 0; // valleys that another group follows
    std::uint32_t lower = 0;
    do {
        if (end + kAhead < t.count) prefetch(t.name, 4u * t.number(end + kAhead));
        const std::uint32_t l = t.number(end++);
        const std::uint32_t after = t.name_after(l);
        if (after == begin) continue;
        assert(m < t.scratch_size); // as many valleys are of other groups
        t.scratch[m++] = std::uint64_t{after} << 32 | l;
        lower += after < begin;
    } while (t.is_tied(end));
    if (m == 0) return kTooMuch;
    sort_distinct(t.scratch, m, 32, t.scratch + m, t.scratch_size - m);
    std::uint32_t last = t.count;
    for (std::uint32_t i = 0; i < m; ++i) {
        const std::uint32_t after = static_cast<std::uint32_t>(t.scratch[i] >> 32);
        const std::uint32_t l = static_cast<std::uint32_t>(t.scratch[i]);
        t.rows[(i < lower ? begin : end - m) + i] = l | (after == last ? kTied : 0);
        last = after;
    }
    if (m < end - begin) place_runs(t, begin, end, lower, m - lower);

    std::uint32_t name = begin;
    for (std::uint32_t i = begin; i < end; ++i) {
        if (!t.is_tied(i)) name = i;
        t.name[t.number(i)] = name;
    }
    t.rows[t.name[k]] |= kVisited;
    return (end - begin) * static_cast<std::uint32_t>(std::bit_width(end - begin));
}

// Sorts each group when its last valley is met, and again when those are that it has been
// split into. Takes its work from the budget. Returns false when that is out.
bool refine_backwards(const Ties &t, std::uint32_t &budget) {
    for (std::uint32_t k = t.count; k-- > 0;) {
        if (k >= 2 * kAhead) prefetch(t.rows, 4u * t.name[k - 2 * kAhead]);
        if (k >= kAhead) {
            const std::uint32_t group = t.name[k - kAhead];
            prefetch(t.name, 4u * t.number(group));
            if (t.is_tied(group + 1)) prefetch(t.name, 4u * t.number(group + 1));
        }
        const std::uint32_t group = t.name[k];
        if (!t.is_tied(group + 1) || (t.rows[group] & kVisited) != 0) continue;
        const std::uint32_t work = refine_group(t, k);
        if (work > budget) return false;
        budget -= work;
    }
    return true;
}

// Sorts the groups as far as they can be, until only numbers are left in the rows. Returns
// whether no ties are left.
bool refine(const Ties &t, std::uint32_t ties) {
    std::uint32_t budget = kMaxWork * t.count;
    std::uint32_t before;
    bool go_on;
    do {
        go_on = refine_backwards(t, budget);
        before = std::exchange(ties, 0);
        for (std::uint32_t row = 0; row < t.count; ++row) {
            ties += t.is_tied(row);
            t.rows[row] &= ~kVisited;
        }
    } while (go_on && ties > 0 && ties < before);
    for (std::uint32_t row = 0; row < t.count; ++row)
        t.rows[row] &= kNumberMask;
    return ties == 0;
}

// Which valleys take part --------------------------------------------------------

// Marks the tied valleys and those right behind one.
void mark_kept(const Valleys &v, const std::uint32_t *places, std::uint32_t *kept) {
    std::fill(kept, kept + bitmap_words(v.n), 0);
    const auto keep = [&](std::uint32_t i) {
        set_bit(kept, places[i]);
        set_bit(kept, valley_after(v, places[i]));
    };
    for_each_bit(v.tie_marks, v.count, [&](std::uint32_t i) {
        if (!get_bit(v.tie_marks, i - 1)) keep(i - 1);
        keep(i);
    });
}

// Gives the kept valleys their rows and names. rows: may be `places`.
std::uint32_t make_rows(const Valleys &v, const std::uint32_t *places, const std::uint32_t *kept,
                        KeptWord *words, std::uint32_t *rows, std::uint32_t *name) {
    std::uint32_t sum = 0;
    for (std::uint32_t i = 0; i < bitmap_words(v.n); ++i) {
        words[i] = {kept[i], sum};
        sum += count_ones(kept[i]);
    }
    std::uint32_t row = 0;
    std::uint32_t first = 0;
    for (std::uint32_t i = 0; i < v.count; ++i) {
        if (i + kAhead < v.count) prefetch(words, places[i + kAhead] / 32 * sizeof *words);
        const std::uint32_t p = places[i];
        const KeptWord word = words[p / 32];
        if ((word.bits >> p % 32 & 1) == 0) continue;
        const std::uint32_t below = word.bits & ~(~0u << p % 32);
        const std::uint32_t k = word.before + count_ones(below);
        const bool tied = get_bit(v.tie_marks, i);
        if (!tied) first = row;
        name[k] = first;
        rows[row++] = k | (tied ? kTied : 0);
    }
    return sum;
}

} // namespace

bool break_ties(const Valleys &v, std::uint32_t *places, std::uint32_t *spare,
                std::uint32_t *marks) {
    // Each tie keeps at most two valleys and the one behind each, so that four times as many
    // rows and as many names fit behind the places.
    const bool few = 8 * v.ties <= v.n - v.count;
    std::uint32_t *const kept = few ? marks : v.marks;
    std::uint32_t *const rows = few ? places + v.count : places;
    std::uint32_t *const name = few ? rows + 4 * v.ties : places + v.count;
    if (few) mark_kept(v, places, kept);
    const std::uint32_t count =
        make_rows(v, places, kept, reinterpret_cast<KeptWord *>(spare), rows, name);

    const Ties ties = {count, rows, name, v.scratch, v.n / 4};
    if (!refine(ties, v.ties) && !sort_names(name, count, rows, spare, marks + bitmap_words(v.n))) {
        return false;
    }
    std::uint32_t *const position = spare;
    std::uint32_t *next = position;
    for_each_bit(kept, v.n, [&](std::uint32_t p) { *next++ = p; });
    const std::uint32_t *row = rows;
    for (std::uint32_t i = 0; i < v.count; ++i) {
        if (!few || get_bit(kept, places[i])) places[i] = position[*row++];
    }
    return true;
}

} // namespace velk
