// The quicksort of the plain sort: pivots, exchanges and the order in which ranges are
// sorted are part of the format, as they decide the order of equal rotations.
//
// The left part of a range is sorted before the right one. So the ranges that wait lie from
// left to right, the next one foremost, and two bits a row remember them, where one begins
// and where one ends: there is no stack whose depth the block would decide.
#pragma once

#include "sorting/bitmap.h"

#include <cstdint>

namespace velk {

// Numbers of rows and triples are below 2^24, so signed ones hold them and one less than the
// first.
using Index = std::int32_t;

struct QuicksortState {
    std::uint32_t rows;       // of the whole block
    std::uint32_t *begins;    // bits, by row, of the ranges that wait; all are clear
    std::uint32_t *ends;      // before and after a sort, unless the steps ran out
    std::uint32_t pivot_seed; // 0..32767
    std::int64_t steps_left;  // elements that may still be compared with a pivot; below 0, and
                              // for good, when there have been more
};

inline Index next_pivot(QuicksortState &state, Index lo, Index hi) {
    state.pivot_seed = (state.pivot_seed * 7621 + 1) % 32768;
    switch (state.pivot_seed % 3) {
    case 0:
        return lo;
    case 1:
        return (lo + hi) / 2;
    default:
        return hi;
    }
}

// Moves all elements of lo..hi that are smaller than the pivot, element `pivot`, before those
// that are larger; equal ones go to either side. What is left to sort is lo..j and i..hi.
template<typename Ops>
void partition(Ops &ops, Index pivot, Index lo, Index hi, Index &i, Index &j) {
    ops.load_pivot(pivot);
    i = lo;
    j = hi;
    while (i < j) {
        while (ops.order(i) < 0)
            ++i;
        while (ops.order(j) > 0)
            --j;
        if (i <= j) ops.exchange(i++, j--);
    }
    // Elements equal to the pivot that met in the middle are in their place.
    while (lo < j && ops.order(j) == 0)
        --j;
    while (i < hi && ops.order(i) == 0)
        ++i;
}

// Sorts the elements lo..hi, with element i at home in row first_row + i, of what `ops` gives
// access to: ops.sorted_otherwise(lo, hi) may take over short ranges, ops.load_pivot(i) fixes
// the pivot, ops.order(i) compares element i with it (below 0, 0, above 0). Ends early, with
// the elements in some order, when the steps run out.
template<typename Ops>
void quicksort(QuicksortState &state, Ops &ops, Index first_row, Index lo, Index hi) {
    std::uint32_t waiting = 0;
    while (state.steps_left >= 0) {
        Index i = hi;
        Index j = lo;
        if (!ops.sorted_otherwise(lo, hi)) {
            state.steps_left -= hi - lo + 1;
            partition(ops, next_pivot(state, lo, hi), lo, hi, i, j);
        }
        const std::uint32_t row = static_cast<std::uint32_t>(first_row);
        if (lo < j) {
            if (i < hi) {
                set_bit(state.begins, row + static_cast<std::uint32_t>(i));
                set_bit(state.ends, row + static_cast<std::uint32_t>(hi));
                ++waiting;
            }
            hi = j;
        } else if (i < hi) {
            lo = i;
        } else {
            if (waiting == 0) return;
            --waiting;
            const std::uint32_t begin =
                find_set(state.begins, row + static_cast<std::uint32_t>(hi), state.rows);
            const std::uint32_t end = find_set(state.ends, begin, state.rows);
            clear_bit(state.begins, begin);
            clear_bit(state.ends, end);
            lo = static_cast<Index>(begin - row);
            hi = static_cast<Index>(end - row);
        }
    }
}

} // namespace velk
