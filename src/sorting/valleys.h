// The valleys of a block. A valley (LMS position in the literature) is smaller than the
// rotations before and behind it; of equal bytes in a row only the first can be one. So there
// are at most n / 2.
//
// Where a piece of the text from one valley to the next is repeated again and again, most of its
// valleys are left out (valley_repeats.cpp). The others are sorted by comparison as far as is
// worth it (valley_sort.cpp). What is tied then is decided by the valleys that follow
// (valley_ties.cpp).
#pragma once

#include "base/bits.h"
#include "base/byte_order.h"

#include <bit>
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
    std::uint32_t count;      // at most n / 2, without those left out
    bool without_repeats;     // they have been looked for
    std::uint32_t left_out;   // of them
    std::uint32_t *marks;     // bits, by position, without those left out
    std::uint32_t *repeats;   // bits, by position / 2: the valley before is repeated
    std::uint32_t *falls;     // bits, by position / 2: the run with this end falls
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

// The number of bytes from p to q, 1 to n.
inline std::uint32_t distance(const Valleys &v, std::uint32_t p, std::uint32_t q) {
    return (q > p ? q : q + v.n) - p;
}

// The position `distance` bytes behind p. Depths, being those of pieces, are below 4 * n.
inline std::uint32_t after(const Valleys &v, std::uint32_t p, std::uint32_t distance) {
    const std::uint32_t q = p + distance;
    return q < v.n ? q : q % v.n;
}

// How many bytes from p and q on agree; `limit` or more when as many do.
inline std::uint32_t matching_bytes(const Valleys &v, std::uint32_t p, std::uint32_t q,
                                    std::uint32_t limit) {
    for (std::uint32_t i = 0; i < limit; i += 8) {
        const std::uint64_t differences = get_u64(v.text + p) ^ get_u64(v.text + q);
        if (differences != 0)
            return i + static_cast<std::uint32_t>(std::countr_zero(differences)) / 8;
        p += 8;
        if (p >= v.n) p -= v.n;
        q += 8;
        if (q >= v.n) q -= v.n;
    }
    return limit;
}

// The first two bytes of the valley p.
inline std::uint32_t bucket(const Valleys &v, std::uint32_t p) {
    return v.text[p] * 256u + v.text[p + 1];
}

// Leaves out the valleys between the first one of each run of repeats and its end. repeats and
// falls must be clear; bucket_sizes: the number of valleys of each two bytes, before and after.
// None may be left of a periodic block.
void leave_out_repeats(Valleys &v, std::uint32_t *bucket_sizes);

// Sorts the entries. They must be ordered by their first two bytes, with the bytes behind
// those as keys; bucket_ends tells where those of each of the kTextBuckets beginnings end.
// Sets tie_marks, which must be clear, and ties. Tied valleys have their next one at the same
// distance. Valleys that follow one another are tied only where repeats have not been looked for,
// and both begin with the same four bytes, or where a block is a piece twice.
void sort_valleys(Valleys &v, const std::uint32_t *bucket_ends);

// Decides the ties. places: n entries, the positions of the sorted valleys in the first
// `count`, before and after. spare: n / 2 entries, which `scratch` may share.
// marks: n bits and one more. At most n / 4 valleys may be tied with each other, as many as
// `scratch` holds. Returns false, with `places` undefined, for a periodic block.
[[nodiscard]] bool break_ties(const Valleys &v, std::uint32_t *places, std::uint32_t *spare,
                              std::uint32_t *marks);

// Puts the valleys that were left out between the sorted ones. places: those sorted; all: room for
// all, elsewhere, which `count` then includes.
void put_back_repeats(Valleys &v, const std::uint32_t *places, std::uint32_t *all);

} // namespace velk
