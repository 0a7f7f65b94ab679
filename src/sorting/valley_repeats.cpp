// Runs of valleys that need not be sorted, as in "  0  0  0  0  0  7".
//
// A valley whose next one is L bytes behind is repeated when the text has the period L for 3 L
// bytes from it on. Then the next valley, too, has its next one L bytes behind: 2 L bytes tell
// where a piece ends. So repeated valleys follow one another in runs, each with an end, which is
// no longer repeated. Of a run only the first valley and the end are sorted.
//
// All valleys that begin with the same L bytes agree with their repetition for a while, then
// are smaller (they fall) or larger (they rise). The longer one falls, the larger it is; the
// longer one rises, the smaller; equally long ones are in the order of the valleys L bytes
// behind. So in sorted order come those that fall and are not repeated, among the last of them the
// ends of runs; the repeated ones that fall; those that rise; and, among the first of them the ends
// of runs, the others that rise. From its ends a run's valleys are put back as in induced sorting:
// before each that is there already, in order, comes another one.
#include "base/bits.h"
#include "base/byte_order.h"
#include "base/prefetch.h"
#include "sorting/valleys.h"

#include <algorithm>

namespace velk {
namespace {

// How many valleys ahead memory is fetched.
constexpr std::uint32_t kAhead = 16;

// Whether the valley before p is repeated, with the distance to p.
bool is_repeat(const Valleys &v, std::uint32_t p) {
    return get_bit(v.repeats, p / 2);
}

// Puts back the runs that fall, upwards from the least valley, or those that rise, downwards.
// places: `count` sorted valleys; all: room for all_count, filled from that end. It may hold
// `places` at its other end when it gets full: none is written over before it has been read.
// Returns how many are in `all`.
template<bool upwards>
std::uint32_t put_back(const Valleys &v, const std::uint32_t *places, std::uint32_t count,
                       std::uint32_t *all, std::uint32_t all_count) {
    const auto place = [&](std::uint32_t i) { return places[upwards ? i : count - 1 - i]; };
    const auto result = [&](std::uint32_t i) -> std::uint32_t & {
        return all[upwards ? i : all_count - 1 - i];
    };
    std::uint32_t runs = 0;   // whose ends have been met, but not their first valleys
    std::uint32_t first = 0;  // the first result that is an end of those
    std::uint32_t length = 0; // between the valleys of those
    std::uint32_t next = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        prefetch(v.repeats, place(i + kAhead < count ? i + kAhead : i) / 64 * sizeof *v.repeats);
        const std::uint32_t p = place(i);
        // Behind an end of these runs, up to their first valleys, all begin with the piece twice:
        // `length` bytes behind them is a valley. Some of them are no ends.
        if (runs > 0 && is_repeat(v, after(v, p, length))) {
            // The first valleys of as many runs are the next places. They are put in again, with
            // the others of the run: each from the one behind it, until one ends no repeat.
            i += runs - 1;
            runs = 0;
            for (; first < next; ++first) {
                const std::uint32_t q = result(first);
                if (is_repeat(v, q)) result(next++) = after(v, q, v.n - length);
            }
            continue;
        }
        if (is_repeat(v, p) && get_bit(v.falls, p / 2) == upwards && runs++ == 0) {
            first = next;
            length = distance(v, p, valley_after(v, p));
        }
        result(next++) = p;
    }
    return next;
}

} // namespace

void leave_out_repeats(Valleys &v, std::uint32_t *bucket_sizes) {
    v.without_repeats = true;
    const std::uint32_t first = find_set(v.marks, 0, v.n);
    std::uint32_t before = v.n - 1;
    while (!get_bit(v.marks, before))
        --before;
    const auto visit = [&](std::uint32_t p) {
        const std::uint32_t length = distance(v, before, p);
        const std::uint32_t same = matching_bytes(v, before, p, 2 * length);
        if (same >= 2 * length && 3 * length <= v.n) {
            set_bit(v.repeats, p / 2);
            if (is_repeat(v, before)) {
                flip_bit(v.marks, before);
                --bucket_sizes[bucket(v, before)];
                ++v.left_out;
            }
        } else if (is_repeat(v, before) &&
                   v.text[after(v, p, same)] < v.text[after(v, before, same)]) {
            set_bit(v.falls, before / 2);
        }
        before = p;
    };
    for_each_bit(v.marks, v.n, visit);
    visit(first); // once more: by now it is known whether the last valley repeats one
    v.count -= v.left_out;
}

void put_back_repeats(Valleys &v, const std::uint32_t *places, std::uint32_t *all) {
    const std::uint32_t sorted = v.count;
    v.count += v.left_out;
    if (v.left_out == 0) {
        std::copy_n(places, sorted, all);
        return;
    }
    const std::uint32_t more = put_back<false>(v, places, sorted, all, v.count);
    put_back<true>(v, all + (v.count - more), more, all, v.count);
}

} // namespace velk
