// Sorts LMS positions by their bytes, five at a time, bucket by bucket.
//
// Most comparisons look at entries only. Those with equal keys load the next five bytes as new
// keys. LMS positions that agree beyond some depth, and in their whole pieces, are left tied.
#include "base/bits.h"
#include "base/byte_order.h"
#include "base/prefetch.h"
#include "sorting/distinct_sort.h"
#include "sorting/lms.h"

#include <algorithm>
#include <utility>

namespace velk {
namespace {

// LMS positions that agree in fewer bytes are compared on, even beyond their pieces. From 20 to
// 70 it makes little difference: what sorting takes longer, breaking ties takes less.
constexpr std::uint32_t kMinTieDepth = 40;
// Where a quarter of the LMS positions are tied. (With 12, up to 4 % more instructions.)
constexpr std::uint32_t kMinTieDepthOfRepetitive = 7;

// How many bytes from the LMS position p on determine its piece: all LMS positions that agree in
// so many have pieces of the same length, and are repeated as often as p is.
std::uint32_t piece_depth(const LmsSort &s, std::uint32_t p) {
    const std::uint32_t q = next_lms(s, p);
    // Whether q is an LMS position shows in the first byte behind it that differs: it is larger.
    std::uint32_t depth = 1;
    while (s.text[after(s, q, depth)] == s.text[q])
        ++depth;
    // How often p is repeated shows where the text from q on differs from that from p on.
    if (s.without_repeats) depth = std::max(depth, matching_bytes(s, p, q, s.n));
    return distance(s, p, q) + depth + 1;
}

void tie(LmsSort &s, const LmsEntry *entries, std::uint32_t m) {
    const std::uint32_t first = static_cast<std::uint32_t>(entries - s.entries);
    for (std::uint32_t i = 1; i < m; ++i)
        set_bit(s.tie_marks, first + i);
    s.ties += m - 1;
    s.largest_group = std::max(s.largest_group, m);
}

void load_keys(const LmsSort &s, LmsEntry *entries, std::uint32_t m, std::uint32_t depth) {
    for (std::uint32_t i = 0; i < m; ++i) {
        if (m - i > kAhead) fetch_text(s, entries[i + kAhead], depth);
        const std::uint32_t p = position_of(entries[i]);
        entries[i] = get_u64_be(s.text + after(s, p, depth)) >> kKeyShift << kKeyShift | p;
    }
}

// Sorts two LMS positions that agree in `depth` bytes.
void sort_pair(LmsSort &s, LmsEntry *entries, std::uint32_t depth, std::uint32_t tie_depth) {
    const std::uint32_t a = position_of(entries[0]);
    const std::uint32_t b = position_of(entries[1]);
    fetch_text(s, entries[0], depth);
    fetch_text(s, entries[1], depth);
    for (;;) {
        if (depth >= tie_depth) {
            tie_depth = piece_depth(s, a);
            if (depth >= tie_depth) return tie(s, entries, 2);
        }
        depth += matching_bytes(s, after(s, a, depth), after(s, b, depth), tie_depth - depth);
        if (depth < tie_depth) break;
    }
    if (s.text[after(s, b, depth)] < s.text[after(s, a, depth)]) std::swap(entries[0], entries[1]);
}

// Sorts the LMS positions of `m` entries that agree in `depth` bytes and hold the next five as
// their keys. From tie_depth bytes on they may be tied. The largest run of equal keys is sorted by
// the loop, the others, at most half of m, by recursion: at most 23 deep. The loop ends at the end
// of the pieces. All in all it reads each piece once or twice.
void sort_bucket(LmsSort &s, LmsEntry *entries, std::uint32_t m, std::uint32_t depth,
                 std::uint32_t tie_depth) {
    const auto sort_run = [&s](LmsEntry *run, std::uint32_t size, std::uint32_t run_depth,
                               std::uint32_t run_tie_depth) {
        if (size < 2) return;
        if (size == 2) return sort_pair(s, run, run_depth, run_tie_depth);
        load_keys(s, run, size, run_depth);
        sort_bucket(s, run, size, run_depth, run_tie_depth);
    };
    for (;;) {
        const auto key = [&](std::uint32_t i) { return entries[i] >> kKeyShift; };
        std::uint32_t first_other = 1;
        while (first_other < m && key(first_other) == key(0))
            ++first_other;
        if (first_other < m) sort_distinct(entries, m, kKeyShift, s.scratch, s.n / 4);

        depth += kKeyBytes;
        LmsEntry *largest = entries;
        std::uint32_t largest_size = 0;
        for (std::uint32_t begin = 0, end; begin < m; begin = end) {
            for (end = begin + 1; end < m && key(end) == key(begin);)
                ++end;
            if (m - end > kAhead) prefetch(s.marks, position_of(entries[end + kAhead]) / 8);
            LmsEntry *run = entries + begin;
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

} // namespace

void sort_lms(LmsSort &s, const std::uint32_t *bucket_ends) {
    std::uint32_t begin = 0;
    for (std::uint32_t k = 0; k < kTextBuckets; ++k) {
        const std::uint32_t end = bucket_ends[k];
        if (end - begin > 1) {
            const bool repetitive = 4 * s.ties > begin;
            sort_bucket(s, s.entries + begin, end - begin, kBucketDepth,
                        repetitive ? kMinTieDepthOfRepetitive : kMinTieDepth);
        }
        begin = end;
    }
}

} // namespace velk
