// Decides the order of tied valleys by the valleys that follow.
//
// Valleys tied with each other are a group of places; the first of them is the name of all.
// A group is sorted by the names of the valleys behind its own. These are best known when
// the groups further back in the block have been sorted, so this goes backwards: a long
// repeat costs one step for each of its valleys, once its end is known to be larger or
// smaller. Real data hardly ever needs a second time.
//
// What is left after that, of blocks of a very regular structure, is left to a sort of the
// string of names that takes linear time (sorting/name_sort.h).
#include "sorting/bitmap.h"
#include "sorting/distinct_sort.h"
#include "sorting/name_sort.h"
#include "sorting/prefetch.h"
#include "sorting/rotation_sort.h"
#include "sorting/valleys.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace {

// In a place, beside the position.
constexpr std::uint32_t kTied = 1u << 31;    // with the place before
constexpr std::uint32_t kVisited = 1u << 30; // in a group's first: sorted as far as can be
// Limit of the work of sorting groups, m * log m for one of m, in multiples of the valleys,
// which are below 2^23: 32 bits hold it. Real data takes up to 10; Fibonacci strings would
// take 43.
constexpr std::uint32_t kMaxWork = 16;
constexpr std::uint32_t kTooMuch = 0xFFFFFFFFu;
// How many places ahead the names are fetched from memory: a quarter less time at 16 MB.
constexpr std::uint32_t kAhead = 32;

struct Groups {
    std::uint32_t *place; // the position of the valley there, kTied, kVisited
    std::uint32_t *name;  // by position / 2, which tells valleys apart: none are neighbours
    std::uint32_t *tied;  // bits, by position, of the valleys tied at first

    std::uint32_t valley(std::uint32_t i) const { return place[i] & kPositionMask; }
    bool is_tied(std::uint32_t i) const { return (place[i] & kTied) != 0; }
};

// The valley before p, the last one before the first.
std::uint32_t valley_before(const Valleys &v, std::uint32_t p) {
    std::uint32_t word = p / 32;
    std::uint32_t marks = v.marks[word] & ~(~0u << (p % 32));
    while (marks == 0) {
        word = (word == 0 ? bitmap_words(v.n) : word) - 1;
        marks = v.marks[word];
    }
    return word * 32 + 31u - static_cast<std::uint32_t>(std::countl_zero(marks));
}

std::uint32_t name_after(const Valleys &v, const Groups &g, std::uint32_t p) {
    return g.name[valley_after(v, p) / 2];
}

void make_groups(const Valleys &v, const Groups &g) {
    std::fill(g.tied, g.tied + bitmap_words(v.n), 0);
    std::uint32_t name = 0;
    for (std::uint32_t i = 0; i < v.count; ++i) {
        const std::uint32_t p = g.place[i];
        if (i + kAhead < v.count) prefetch(g.name, g.place[i + kAhead] / 2 * 4u);
        if (get_bit(v.tie_marks, i)) {
            set_bit(g.tied, p);
            set_bit(g.tied, g.valley(i - 1));
            g.place[i] |= kTied;
        } else {
            name = i;
        }
        g.name[p / 2] = name;
    }
}

// Sorts a group of two; most are in text.
void refine_pair(const Valleys &v, const Groups &g, std::uint32_t begin) {
    const std::uint32_t p = g.valley(begin);
    const std::uint32_t q = g.valley(begin + 1);
    const std::uint32_t after_p = name_after(v, g, p);
    const std::uint32_t after_q = name_after(v, g, q);
    if (after_p == after_q) {
        g.place[begin] |= kVisited;
        return;
    }
    const std::uint32_t second = after_p < after_q ? q : p;
    g.place[begin] = p ^ q ^ second;
    g.place[begin + 1] = second;
    g.name[second / 2] = begin + 1;
}

// Puts those valleys of a group in their places that others of it follow: "aaab". The
// first `lower` places of the group and the last `upper` hold the others, in order: those
// whose next valleys are smaller, and larger, than the group. Each valley put in its place
// is next to those already there, in the order of the valleys that follow, and tied as those.
void place_runs(const Valleys &v, const Groups &g, std::uint32_t begin, std::uint32_t end,
                std::uint32_t lower, std::uint32_t upper) {
    bool tied = false; // the next one with the last one
    std::uint32_t next = begin + lower;
    for (std::uint32_t i = begin; i < next; ++i) {
        tied = tied && g.is_tied(i);
        const std::uint32_t p = valley_before(v, g.valley(i));
        if (g.name[p / 2] != begin) continue;
        g.place[next++] = p | (tied ? kTied : 0);
        tied = true;
    }
    tied = false;
    std::uint32_t last = end - upper;
    for (std::uint32_t i = end; i > last;) {
        const std::uint32_t p = valley_before(v, g.valley(--i));
        if (g.name[p / 2] == begin) {
            if (tied) g.place[last] |= kTied;
            g.place[--last] = p;
            tied = true;
        }
        tied = tied && g.is_tied(i);
    }
    assert(next == last);
}

// Sorts the group of the valley p. Returns the work of it, or kTooMuch, with
// nothing done, when the scratch is too small for it or all valleys are of the group.
std::uint32_t refine_group(const Valleys &v, const Groups &g, std::uint32_t p) {
    const std::uint32_t begin = g.name[p / 2];
    if (begin + 2 == v.count || !g.is_tied(begin + 2)) {
        refine_pair(v, g, begin);
        return 4;
    }
    std::uint32_t end = begin;
    std::uint32_t m = 0; // valleys that another group follows
    std::uint32_t lower = 0;
    do {
        if (m == v.n / 4) return kTooMuch;
        const std::uint32_t q = g.valley(end++);
        const std::uint32_t after_q = name_after(v, g, q);
        v.scratch[m] = std::uint64_t{after_q} << 32 | q;
        m += after_q != begin;
        lower += after_q < begin;
    } while (end < v.count && g.is_tied(end));
    if (m == 0) return kTooMuch;
    sort_distinct(v.scratch, m);
    std::uint32_t last = v.count;
    for (std::uint32_t i = 0; i < m; ++i) {
        const std::uint32_t after_q = static_cast<std::uint32_t>(v.scratch[i] >> 32);
        const std::uint32_t q = static_cast<std::uint32_t>(v.scratch[i]);
        g.place[(i < lower ? begin : end - m) + i] = q | (after_q == last ? kTied : 0);
        last = after_q;
    }
    if (m < end - begin) place_runs(v, g, begin, end, lower, m - lower);

    std::uint32_t name = begin;
    for (std::uint32_t i = begin; i < end; ++i) {
        if (!g.is_tied(i)) name = i;
        g.name[g.valley(i) / 2] = name;
    }
    g.place[g.name[p / 2]] |= kVisited;
    return (end - begin) * static_cast<std::uint32_t>(std::bit_width(end - begin));
}

// Asks for the places of the groups whose valleys are in a word of the tied ones.
void fetch_places(const Groups &g, std::uint32_t word) {
    for (std::uint32_t rest = g.tied[word]; rest != 0; rest &= rest - 1) {
        const std::uint32_t p = word * 32 + static_cast<std::uint32_t>(std::countr_zero(rest));
        prefetch(g.place, 4u * g.name[p / 2]);
    }
}

// Sorts each group when its last valley is met, and again when those are that it has been
// split into. Takes its work from the budget. Returns false when that is out.
bool refine_backwards(const Valleys &v, const Groups &g, std::uint32_t &budget) {
    for (std::uint32_t word = bitmap_words(v.n); word-- > 0;) {
        if (word > 0) fetch_places(g, word - 1);
        for (std::uint32_t rest = g.tied[word]; rest != 0;) {
            const std::uint32_t bit = 31u - static_cast<std::uint32_t>(std::countl_zero(rest));
            rest ^= 1u << bit;
            const std::uint32_t p = word * 32 + bit;
            const std::uint32_t name = g.name[p / 2];
            if (name + 1 == v.count || !g.is_tied(name + 1)) continue;
            if ((g.place[name] & kVisited) != 0) continue;
            const std::uint32_t work = refine_group(v, g, p);
            if (work > budget) return false;
            budget -= work;
        }
    }
    return true;
}

// Sorts the groups as far as they can be, until only positions are left in the places.
// Returns whether no ties are left.
bool refine(const Valleys &v, const Groups &g) {
    std::uint32_t budget = kMaxWork * v.count;
    std::uint32_t ties = v.ties;
    std::uint32_t before;
    bool go_on;
    do {
        go_on = refine_backwards(v, g, budget);
        before = std::exchange(ties, 0);
        for (std::uint32_t i = 0; i < v.count; ++i) {
            ties += g.is_tied(i);
            g.place[i] &= ~kVisited;
        }
    } while (go_on && ties > 0 && ties < before);
    for (std::uint32_t i = 0; i < v.count; ++i)
        g.place[i] &= kPositionMask;
    return ties == 0;
}

} // namespace

bool break_ties(const Valleys &v, std::uint32_t *places, std::uint32_t *spare,
                std::uint32_t *marks) {
    std::uint32_t *const second_half = places + v.n / 2;
    const Groups g = {places, second_half, marks};
    make_groups(v, g);
    if (refine(v, g)) return true;

    std::uint32_t *const string = spare;
    std::uint32_t *next = string;
    for_each_bit(v.marks, v.n, [&](std::uint32_t p) { *next++ = g.name[p / 2]; });
    if (!sort_names(string, v.count, places, second_half, marks)) return false;
    std::uint32_t *const position = second_half;
    next = position;
    for_each_bit(v.marks, v.n, [&](std::uint32_t p) { *next++ = p; });
    for (std::uint32_t i = 0; i < v.count; ++i)
        places[i] = position[places[i]];
    return true;
}
