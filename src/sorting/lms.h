// The LMS positions of a block ("leftmost S", see induced_sort.cpp).
//
// The rotation of an LMS position is smaller than those that begin one byte before it and one
// byte behind. Of equal bytes in a row only the first can be one, so there are at most n / 2.
// A piece is the text from one LMS position up to the next:
//
//   m i s s i s s i p p i        pieces: "iss", "iss", "ipp", "im"
//     *     *     *     *
//
// Where a piece is repeated again and again, most of its LMS positions are left out until the end
// (lms_repeats.cpp). The others are sorted by their bytes as far as is worth it (lms_sort.cpp).
// What is tied then is decided by the LMS positions that follow (lms_ties.cpp).
#pragma once

#include "base/bits.h"
#include "base/byte_order.h"
#include "base/prefetch.h"
#include "sorting/rotation_sort.h"

#include <bit>
#include <cstdint>

namespace velk {

constexpr std::uint32_t kMaxLms = kPositionMask / 2;

// Bytes of the text before the block and behind it: the rotation goes on.
constexpr std::uint32_t kTextBefore = 4;
constexpr std::uint32_t kTextAfter = 16;

// | the next bytes to compare (40) | position (24) |
using LmsEntry = std::uint64_t;
constexpr std::uint32_t kKeyBytes = 5;
constexpr std::uint32_t kKeyShift = 24;
// A bucket holds the rotations that begin with the same two bytes.
constexpr std::uint32_t kBucketDepth = 2;
constexpr std::uint32_t kTextBuckets = 65536;
// Eight bytes are read from any position, or from kBucketDepth behind it.
static_assert(kBucketDepth + 8 <= kTextAfter + 1);

// What the steps share. induced_sort.cpp sets up the arrays and the marks.
struct LmsSort {
    const std::uint8_t *text; // the block; text[-kTextBefore .. n + kTextAfter - 1] is readable
    std::uint32_t n;
    std::uint32_t count;         // of LMS positions, without those left out
    bool without_repeats;        // leave_out_repeats has been called
    std::uint32_t left_out;      // how many it has taken from `count`
    std::uint32_t *marks;        // bits, by position: an LMS position that is not left out
    std::uint32_t *repeats;      // bits, by position / 2: the LMS position before is repeated
    std::uint32_t *falls;        // bits, by position / 2: the run with this end falls
    std::uint32_t *tie_marks;    // bits, by place in the sorted order: tied with the one before
    std::uint32_t ties;          // the number of tie_marks
    std::uint32_t largest_group; // the most LMS positions that are tied with each other
    LmsEntry *entries;           // n / 2 entries
    LmsEntry *scratch;           // n / 4 entries
};

// The LMS position behind p; behind the last one, the first. There must be one. The words of
// marks go on to bit n, so that p + 1 has one.
inline std::uint32_t next_lms(const LmsSort &s, std::uint32_t p) {
    const std::uint32_t q = find_set(s.marks, p + 1, s.n);
    return q < s.n ? q : find_set(s.marks, 0, s.n);
}

// How many steps before its use memory is fetched, further where steps are short. (By itself the
// processor has a dozen reads under way. At 16 and 32, 16 MB took up to 1.28 times as long.)
constexpr std::uint32_t kAhead = 32;
constexpr std::uint32_t kFarAhead = 96;

// Gets the text `offset` bytes behind an entry's position ready.
inline void fetch_text(const LmsSort &s, std::uint64_t entry, std::int64_t offset) {
    prefetch(s.text, position_of(entry) + static_cast<std::uintptr_t>(offset));
}

// The number of bytes from p to q, 1 to n.
inline std::uint32_t distance(const LmsSort &s, std::uint32_t p, std::uint32_t q) {
    return (q > p ? q : q + s.n) - p;
}

// The position `distance` bytes behind p. distance: below 4 * n, so that the sum fits 32 bits.
inline std::uint32_t after(const LmsSort &s, std::uint32_t p, std::uint32_t distance) {
    const std::uint32_t q = p + distance;
    return q < s.n ? q : q % s.n;
}

// How many bytes from p and q on agree; `limit` or more when at least `limit` do.
inline std::uint32_t matching_bytes(const LmsSort &s, std::uint32_t p, std::uint32_t q,
                                    std::uint32_t limit) {
    for (std::uint32_t i = 0; i < limit; i += 8) {
        const std::uint64_t differences = get_u64(s.text + p) ^ get_u64(s.text + q);
        if (differences != 0)
            return i + static_cast<std::uint32_t>(std::countr_zero(differences)) / 8;
        p += 8;
        if (p >= s.n) p -= s.n;
        q += 8;
        if (q >= s.n) q -= s.n;
    }
    return limit;
}

// The first two bytes of the rotation p.
inline std::uint32_t bucket(const LmsSort &s, std::uint32_t p) {
    return s.text[p] * 256u + s.text[p + 1];
}

// Leaves out all LMS positions of each run of repeats but the first and the end; of a periodic
// block perhaps all. repeats and falls must be clear. bucket_sizes: the number of LMS positions in
// each bucket, before and after.
void leave_out_repeats(LmsSort &s, std::uint32_t *bucket_sizes);

// Sorts the entries, which must be in the order of their buckets, with the next five bytes as keys.
// bucket_ends: where the entries of each bucket end. tie_marks must be clear.
// LMS positions that are tied with each other have pieces of the same length. One and the next in
// the block are tied only when both begin with the same four bytes and repeats have not been left
// out, or when the block is a piece twice.
void sort_lms(LmsSort &s, const std::uint32_t *bucket_ends);

// Decides the ties. places: n entries; the first `count` are the sorted LMS positions, before and
// after. spare: n / 2 entries, which `scratch` may share. marks: n bits and one more.
// Returns false, with `places` undefined, for a periodic block, and when more than n / 4
// positions, as many as `scratch` holds, are tied with each other.
[[nodiscard]] bool break_ties(const LmsSort &s, std::uint32_t *places, std::uint32_t *spare,
                              std::uint32_t *marks);

// Puts the LMS positions that were left out between the sorted `places`. all: room for all,
// elsewhere. `count` includes them afterwards.
void put_back_repeats(LmsSort &s, const std::uint32_t *places, std::uint32_t *all);

} // namespace velk
