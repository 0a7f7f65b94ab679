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
// smaller. Real data hardly ever needs a second time.
//
// What is tied then agrees in two valleys, so the next time goes by the names of the valleys
// two behind, then four, eight and so on: after log n times no block has ties, unless it is
// periodic (prefix doubling: U. Manber, G. Myers, "Suffix arrays: a new method for on-line
// string searches", 1993). Very regular ones, as Fibonacci strings, need all of them.
#include "base/bits.h"
#include "base/prefetch.h"
#include "sorting/distinct_sort.h"
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
constexpr std::uint32_t kVisited = 1u << 30; // in a group's first: sorted, this time backwards
constexpr std::uint32_t kNumberMask = kVisited - 1;
// Sorting a group of m valleys counts as m * log m steps. When they all have taken so many for
// each valley, no valley is sorted twice in one time backwards any more. Real data takes up to 10.
// Valleys are fewer than 2^23, so 32 bits hold the sum.
constexpr std::uint32_t kMaxWork = 16;
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
    std::uint32_t h; // tied valleys are known to agree in so many, with those behind them

    std::uint32_t number(std::uint32_t row) const { return rows[row] & kNumberMask; }
    bool is_tied(std::uint32_t row) const { return row < count && (rows[row] & kTied) != 0; }
    std::uint32_t name_after(std::uint32_t k) const {
        return name[k + h < count ? k + h : k + h - count];
    }
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

// Sorts the group of the valley k. Returns the work of it. once: what it is split into counts as
// sorted, too.
std::uint32_t refine_group(const Ties &t, std::uint32_t k, bool once) {
    const std::uint32_t begin = t.name[k];
    if (!t.is_tied(begin + 2)) {
        refine_pair(t, begin);
        return 4;
    }
    // Those with the usual name behind them are not sorted, but stay in the middle. (Without it
    // a period of two valleys with breaks takes 5 times as long, Fibonacci strings 1.4 times.)
    const std::uint32_t usual = once ? t.name_after(t.number(begin)) : begin;
    std::uint32_t *same = t.rows + begin;
    std::uint32_t end = begin;
    std::uint32_t m = 0; // the others
    std::uint32_t lower = 0;
    do {
        const std::uint32_t l = t.number(end++);
        const std::uint32_t after = t.name_after(l);
        if (after == usual) {
            *same++ = l | kTied;
        } else {
            assert(m < t.scratch_size);
            t.scratch[m++] = std::uint64_t{after} << 32 | l;
            lower += after < usual;
        }
    } while (t.is_tied(end));
    sort_distinct(t.scratch, m, 32, t.scratch + m, t.scratch_size - m);

    const std::uint32_t sorted = once ? kVisited : 0;
    const std::uint32_t middle = begin + lower;
    const std::uint32_t middle_end = end - m + lower;
    if (middle < middle_end) {
        std::copy_backward(t.rows + begin, same, t.rows + middle_end);
        t.rows[middle] = t.number(middle) | sorted;
        for (std::uint32_t row = middle; lower > 0 && row < middle_end; ++row)
            t.name[t.number(row)] = middle;
    }
    std::uint32_t last = t.count;
    std::uint32_t name = begin;
    for (std::uint32_t i = 0; i < m; ++i) {
        const std::uint32_t row = i < lower ? begin + i : middle_end + i - lower;
        const std::uint32_t after = static_cast<std::uint32_t>(t.scratch[i] >> 32);
        const std::uint32_t l = static_cast<std::uint32_t>(t.scratch[i]);
        if (after != last) name = row;
        t.rows[row] = l | (after == last ? kTied : sorted);
        t.name[l] = name;
        last = after;
    }
    t.rows[t.name[k]] |= kVisited;
    return (end - begin) * static_cast<std::uint32_t>(std::bit_width(end - begin));
}

// Sorts each group when its last valley is met, and again when those are that it has been
// split into, as long as the budget of work lasts. So in the end valleys that are tied have had
// the same name h behind, and agree in 2 h.
void refine_backwards(const Ties &t, std::uint32_t &budget) {
    for (std::uint32_t k = t.count; k-- > 0;) {
        if (k >= 2 * kAhead) prefetch(t.rows, 4u * t.name[k - 2 * kAhead]);
        if (k >= kAhead) {
            const std::uint32_t group = t.name[k - kAhead];
            prefetch(t.name, 4u * t.number(group));
            if (t.is_tied(group + 1)) prefetch(t.name, 4u * t.number(group + 1));
        }
        const std::uint32_t group = t.name[k];
        if (!t.is_tied(group + 1) || (t.rows[group] & kVisited) != 0) continue;
        budget -= std::min(budget, refine_group(t, k, budget == 0));
    }
}

// Sorts the groups until only numbers are left in the rows. Returns false when ties can't be
// broken.
bool refine(Ties &t, std::uint32_t ties) {
    std::uint32_t budget = kMaxWork * t.count;
    for (t.h = 1; ties > 0; t.h *= 2) {
        if (t.h >= t.count) return false; // they agree all around the block
        refine_backwards(t, budget);
        const std::uint32_t before = std::exchange(ties, 0);
        for (std::uint32_t row = 0; row < t.count; ++row) {
            ties += t.is_tied(row);
            t.rows[row] &= ~kVisited;
        }
        if (ties == before) return false; // those h behind are tied, too, and so on
    }
    return true;
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

    Ties ties = {count, rows, name, v.scratch, v.n / 4, 1};
    if (!refine(ties, v.ties)) return false;
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
