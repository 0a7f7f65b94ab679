// The valleys of a block. A valley (LMS position in the literature) is smaller than the
// rotations before and behind it; of equal bytes in a row only the first can be one. So there
// are at most n / 2.
//
// They are sorted by comparison as far as is worth it (valley_sort.cpp). What is tied then is
// decided by the valleys that follow (valley_ties.cpp).
#pragma once

#include "sorting/bitmap.h"

#include <cstdint>

namespace velk {

// Bytes of the text before the block and behind it: the rotation goes on.
constexpr std::uint32_t kTextBefore = 4;
constexpr std::uint32_t kTextAfter = 16;

// | the next bytes to compare (40) | position (24) |
using ValleyEntry = std::uint64_t;
constexpr std::uint32_t kKeyBytes = 5;
constexpr std::uint32_t kKeyShift = 24;
// Two bytes, and rotations that begin with them.
constexpr std::uint32_t kBucketDepth = 2;
constexpr std::uint32_t kTextBuckets = 65536;

struct Valleys {
    const std::uint8_t *text; // the block; text[-kTextBefore .. n + kTextAfter - 1] is readable
    std::uint32_t n;
    std::uint32_t count;      // at most n / 2
    std::uint32_t *marks;     // bits, by position
    std::uint32_t *tie_marks; // bits, by place in the sorted valleys: tied with the one before
    std::uint32_t ties;       // bits set of them
    ValleyEntry *entries;     // n / 2 entries
    ValleyEntry *scratch;     // n / 4 entries
};

// The valley behind p, the first one behind the last. There must be one. The words of marks
// go on to bit n, so that p + 1 has one.
inline std::uint32_t valley_after(const Valleys &v, std::uint32_t p) {
    const std::uint32_t q = find_set(v.marks, p + 1, v.n);
    return q < v.n ? q : find_set(v.marks, 0, v.n);
}

// Sorts the entries. They must be ordered by their first two bytes, with the bytes behind
// those as keys; bucket_ends tells where those of each of the kTextBuckets beginnings end.
// Sets tie_marks, which must be clear, and ties.
void sort_valleys(Valleys &v, const std::uint32_t *bucket_ends);

// Decides the ties. places: n entries, the positions of the sorted valleys in the first
// `count`, before and after. spare: n / 2 entries, which `scratch` may share.
// marks: 2 * n bits and 25 words. Returns false, with `places` undefined, for a periodic block.
[[nodiscard]] bool break_ties(const Valleys &v, std::uint32_t *places, std::uint32_t *spare,
                              std::uint32_t *marks);

} // namespace velk
