// Runs of LMS positions that need not be sorted, as in "  0  0  0  0  0  7".
//
// An LMS position with a piece of L bytes is repeated when the text has the period L for 3 L bytes
// from it on. Then the next piece has L bytes, too: 2 L bytes tell where a piece ends. So repeated
// LMS positions follow one another in runs; the next one that is not repeated is the run's end. Of
// a run only the first LMS position and the end are sorted.
//
// Take all LMS positions that begin with the same piece. Each has the period L for a while. The
// byte that breaks it is smaller than the period would have it (the LMS position falls) or larger
// (it rises). The later one falls, the larger it is; the later one rises, the smaller. Equally late
// ones are in the order of the LMS positions L bytes behind. So the sorted order is: those that
// fall and are not repeated, the ends of runs among the last; the repeated ones that fall; the
// repeated ones that rise; the others, the ends of runs among the first. The ends put their runs
// back as in induced sorting: each position in sorted order leads to the one L bytes before it.
#include "base/bits.h"
#include "base/byte_order.h"
#include "sorting/lms.h"

#include <algorithm>
#include <cassert>

namespace velk {
namespace {

// Whether the LMS position whose piece ends before p is repeated.
bool is_repeat(const LmsSort &s, std::uint32_t p) {
    return get_bit(s.repeats, p / 2);
}

// Puts back the runs that fall, upwards from the least of the `count` sorted places, or those that
// rise, downwards from the largest. all: room for all_count, filled from the same end. It may hold
// `places` at its other end when it gets full: none is written over before it has been read.
// Returns how many are in `all`.
template<bool upwards>
std::uint32_t put_back(const LmsSort &s, const std::uint32_t *places, std::uint32_t count,
                       std::uint32_t *all, std::uint32_t all_count) {
    const auto place = [&](std::uint32_t i) { return places[upwards ? i : count - 1 - i]; };
    const auto result = [&](std::uint32_t i) -> std::uint32_t & {
        assert(i < all_count);
        return all[upwards ? i : all_count - 1 - i];
    };
    std::uint32_t runs = 0;   // of one piece: their ends have been met, not yet their beginnings
    std::uint32_t first = 0;  // the first result that is an end of these runs
    std::uint32_t length = 0; // of their piece
    std::uint32_t next = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t p = place(i);
        // From the first end of these runs up to the runs' first LMS positions, all places begin
        // with the piece twice. So `length` bytes behind each is an LMS position.
        if (runs > 0 && is_repeat(s, after(s, p, length))) {
            // p and the next places are the first LMS positions of the runs. They are put in with
            // their runs: each result leads to the position before it, if that is repeated.
            i += runs - 1;
            runs = 0;
            for (; first < next; ++first) {
                const std::uint32_t q = result(first);
                if (is_repeat(s, q)) result(next++) = after(s, q, s.n - length);
            }
            continue;
        }
        if (is_repeat(s, p) && get_bit(s.falls, p / 2) == upwards && runs++ == 0) {
            first = next;
            length = distance(s, p, next_lms(s, p));
        }
        result(next++) = p;
    }
    return next;
}

} // namespace

void leave_out_repeats(LmsSort &s, std::uint32_t *bucket_sizes) {
    s.without_repeats = true;
    const std::uint32_t first = find_set(s.marks, 0, s.n);
    std::uint32_t before = s.n - 1;
    while (!get_bit(s.marks, before))
        --before;
    const auto visit = [&](std::uint32_t p) {
        const std::uint32_t length = distance(s, before, p);
        const std::uint32_t same = matching_bytes(s, before, p, 2 * length);
        if (same >= 2 * length && 3 * length <= s.n) {
            set_bit(s.repeats, p / 2);
            if (is_repeat(s, before)) {
                flip_bit(s.marks, before);
                --bucket_sizes[bucket(s, before)];
                ++s.left_out;
            }
        } else if (is_repeat(s, before) &&
                   s.text[after(s, p, same)] < s.text[after(s, before, same)]) {
            set_bit(s.falls, before / 2);
        }
        before = p;
    };
    for_each_bit(s.marks, s.n, visit);
    visit(first); // again: by now it is known whether the last LMS position ends a repeat
    s.count -= s.left_out;
}

void put_back_repeats(LmsSort &s, const std::uint32_t *places, std::uint32_t *all) {
    const std::uint32_t sorted = s.count;
    s.count += s.left_out;
    if (s.left_out == 0) {
        std::copy_n(places, sorted, all);
        return;
    }
    const std::uint32_t more = put_back<false>(s, places, sorted, all, s.count);
    put_back<true>(s, all + (s.count - more), more, all, s.count);
}

} // namespace velk
