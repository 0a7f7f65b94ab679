// The quicksort of the plain sort. Pivots, exchanges and the order in which ranges are sorted are
// part of the format, as they decide the order of equal rotations.
//
// The left part of a range is sorted before the right one. So the next range is always the first
// from the left of those that wait, and a bitmap remembers them in place of a stack: bit 2r + 1
// where a range begins in row r, bit 2r where one ends in it. One may begin where another ends.
#pragma once

#include "base/bits.h"

#include <cstdint>
#include <utility>

namespace velk {

struct QuicksortState {
    std::uint32_t *waiting;   // all bits are clear before and after a sort, unless the steps
                              // ran out
    std::uint32_t pivot_seed; // 0..32767
    std::int64_t steps_left;  // items that may still be compared with a pivot; below 0, and
                              // for good, when there have been more
};

inline std::uint32_t next_pivot(QuicksortState &state, std::uint32_t lo, std::uint32_t end) {
    state.pivot_seed = (state.pivot_seed * 7621 + 1) % 32768;
    const std::uint32_t choices[] = {lo, (lo + end - 1) / 2, end - 1};
    return choices[state.pivot_seed % 3];
}

// Moves all items of lo..end - 1 that are smaller than the pivot before those that are
// larger; equal ones go to either side. What is left to sort is lo..left_end - 1 and
// right..end - 1, the two returned.
template<typename Item, typename Key, typename KeyOf>
std::pair<std::uint32_t, std::uint32_t> partition(Item *items, Key pivot, std::uint32_t lo,
                                                  std::uint32_t end, KeyOf key_of) {
    std::uint32_t right = lo;
    std::uint32_t left_end = end;
    while (right + 1 < left_end) {
        while (key_of(items[right]) < pivot)
            ++right;
        while (pivot < key_of(items[left_end - 1]))
            --left_end;
        if (right < left_end) std::swap(items[right++], items[--left_end]);
    }
    // Items equal to the pivot that met in the middle are in their place.
    while (lo + 1 < left_end && key_of(items[left_end - 1]) == pivot)
        --left_end;
    while (right + 1 < end && key_of(items[right]) == pivot)
        ++right;
    return {left_end, right};
}

// Sorts the `count` items by their keys, with the first of them at home in row first_row.
// sorted_otherwise(lo, end) may take over short ranges. Ends early, with the items in some
// order, when the steps run out.
template<typename Item, typename KeyOf, typename SortedOtherwise>
void quicksort(QuicksortState &state, Item *items, std::uint32_t count, std::uint32_t first_row,
               KeyOf key_of, SortedOtherwise sorted_otherwise) {
    const std::uint32_t last_bit = 2 * (first_row + count - 1);
    // Lets a range wait, or takes the next one out. One item by itself is in its place.
    const auto flip = [&](std::uint32_t lo, std::uint32_t end) {
        if (end - lo < 2) return;
        flip_bit(state.waiting, 2 * (first_row + lo) + 1);
        flip_bit(state.waiting, 2 * (first_row + end - 1));
    };
    std::uint32_t lo = 0;
    std::uint32_t end = count;
    while (state.steps_left >= 0) {
        if (!sorted_otherwise(lo, end)) {
            state.steps_left -= end - lo;
            const auto pivot = key_of(items[next_pivot(state, lo, end)]);
            const auto [left_end, right] = partition(items, pivot, lo, end, key_of);
            flip(lo, left_end);
            flip(right, end);
        }
        const std::uint32_t begin = find_set(state.waiting, 2 * (first_row + lo), last_bit);
        if (begin >= last_bit) return;
        lo = begin / 2 - first_row;
        end = find_set(state.waiting, begin + 1, last_bit) / 2 + 1 - first_row;
        flip(lo, end);
    }
}

} // namespace velk
