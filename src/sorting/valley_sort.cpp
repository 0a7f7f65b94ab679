// Sorts valleys by comparison, five bytes at a time, bucket by bucket.
//
// Most comparisons look at entries only; a run of equal keys loads those of the next five
// bytes. Valleys that agree beyond some depth, and in the piece up to the next valley, are
// left tied.
#include "base/bits.h"
#include "base/byte_order.h"
#include "sorting/distinct_sort.h"
#include "sorting/rotation_sort.h"
#include "sorting/valleys.h"

#include <algorithm>
#include <utility>

namespace velk {
namespace {

// Valleys that agree in fewer bytes are compared on, even beyond the next valley. From 20 to
// 70 it makes little difference: what sorting takes longer, breaking ties takes less.
constexpr std::uint32_t kMinTieDepth = 40;
// Where a quarter of the valleys are tied: a fifth less time for repetitive blocks.
constexpr std::uint32_t kMinTieDepthOfRepetitive = 12;

std::uint32_t position_of(ValleyEntry entry) {
    return static_cast<std::uint32_t>(entry) & kPositionMask;
}

// How many bytes from the valley p on determine its piece, which ends with the next valley:
// all valleys that agree in so many have their next valley at the same distance, and are
// repeated like p or not, in runs of the same length.
std::uint32_t piece_depth(const Valleys &v, std::uint32_t p) {
    const std::uint32_t q = valley_after(v, p);
    // That q is a valley shows in the first byte behind it that differs: it is larger.
    std::uint32_t depth = 1;
    while (v.text[after(v, q, depth)] == v.text[q])
        ++depth;
    // How far p repeats shows where q goes on in another way, also when q is the end of its run.
    if (v.without_repeats) depth = std::max(depth, matching_bytes(v, p, q, v.n));
    return distance(v, p, q) + depth + 1;
}

void tie(Valleys &v, const ValleyEntry *entries, std::uint32_t m) {
    const std::uint32_t first = static_cast<std::uint32_t>(entries - v.entries);
    for (std::uint32_t i = 1; i < m; ++i)
        set_bit(v.tie_marks, first + i);
    v.ties += m - 1;
}

void load_keys(const Valleys &v, ValleyEntry *entries, std::uint32_t m, std::uint32_t depth) {
    for (std::uint32_t i = 0; i < m; ++i) {
        const std::uint32_t p = position_of(entries[i]);
        entries[i] = get_u64_be(v.text + after(v, p, depth)) >> kKeyShift << kKeyShift | p;
    }
}

// Sorts two valleys that agree in `depth` bytes.
void sort_pair(Valleys &v, ValleyEntry *entries, std::uint32_t depth, std::uint32_t tie_depth) {
    const std::uint32_t a = position_of(entries[0]);
    const std::uint32_t b = position_of(entries[1]);
    for (;;) {
        if (depth >= tie_depth) {
            tie_depth = piece_depth(v, a);
            if (depth >= tie_depth) return tie(v, entries, 2);
        }
        depth += matching_bytes(v, after(v, a, depth), after(v, b, depth), tie_depth - depth);
        if (depth < tie_depth) break;
    }
    if (v.text[after(v, b, depth)] < v.text[after(v, a, depth)]) std::swap(entries[0], entries[1]);
}

// Sorts the valleys of `m` entries that agree in `depth` bytes and hold the next five as
// their keys. From tie_depth bytes on they may be tied. Only the largest run of equal keys
// is not sorted by recursion, so recursion is at most 23 deep; the loop ends because pieces
// do, and all in all reads each piece once or twice.
void sort_bucket(Valleys &v, ValleyEntry *entries, std::uint32_t m, std::uint32_t depth,
                 std::uint32_t tie_depth) {
    const auto sort_run = [&v](ValleyEntry *run, std::uint32_t size, std::uint32_t run_depth,
                               std::uint32_t run_tie_depth) {
        if (size < 2) return;
        if (size == 2) return sort_pair(v, run, run_depth, run_tie_depth);
        load_keys(v, run, size, run_depth);
        sort_bucket(v, run, size, run_depth, run_tie_depth);
    };
    for (;;) {
        const auto key = [&](std::uint32_t i) { return entries[i] >> kKeyShift; };
        std::uint32_t first_other = 1;
        while (first_other < m && key(first_other) == key(0))
            ++first_other;
        if (first_other < m) sort_distinct(entries, m, kKeyShift, v.scratch, v.n / 4);

        depth += kKeyBytes;
        ValleyEntry *largest = entries;
        std::uint32_t largest_size = 0;
        for (std::uint32_t begin = 0, end; begin < m; begin = end) {
            for (end = begin + 1; end < m && key(end) == key(begin);)
                ++end;
            ValleyEntry *run = entries + begin;
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
            tie_depth = piece_depth(v, position_of(entries[0]));
            if (depth >= tie_depth) return tie(v, entries, m);
        }
        load_keys(v, entries, m, depth);
    }
}

} // namespace

void sort_valleys(Valleys &v, const std::uint32_t *bucket_ends) {
    std::uint32_t begin = 0;
    for (std::uint32_t k = 0; k < kTextBuckets; ++k) {
        const std::uint32_t end = bucket_ends[k];
        if (end - begin > 1) {
            const bool repetitive = 4 * v.ties > begin;
            sort_bucket(v, v.entries + begin, end - begin, kBucketDepth,
                        repetitive ? kMinTieDepthOfRepetitive : kMinTieDepth);
        }
        begin = end;
    }
}

} // namespace velk
