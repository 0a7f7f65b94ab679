// Sorts the rotations of a string of numbers: what is left of the sort of a very regular
// block, whose valleys are tied in ways that would take too long to follow.
//
// Induced sorting over a cyclic string (after G. Nong, S. Zhang, W. H. Chan, "Two
// efficient algorithms for linear time suffix array construction", 2011).
#pragma once

#include <cstdint>

namespace velk {

// names: `count` names, at least 2. A name is the number of names in the string that are
// smaller, which makes it the first row of the rotations that begin with it.
// rows: `count` entries; they get the starts of the rotations in sorted order.
// buckets: `count` entries; marks: 2 * count bits and one word more for each of up to 23
// levels of recursion; any contents.
// Returns false, with `rows` undefined, for a periodic string. Takes linear time.
[[nodiscard]] bool sort_names(const std::uint32_t *names, std::uint32_t count, std::uint32_t *rows,
                              std::uint32_t *buckets, std::uint32_t *marks);

} // namespace velk
