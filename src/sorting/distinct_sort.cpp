// Large sets are split by bits of the numbers. Sets of some hundreds are sorted by a quicksort,
// those of up to 16, most of all, by a sorting network.
#include "sorting/distinct_sort.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace velk {
namespace {

constexpr std::uint32_t kMaxNetwork = 16;
constexpr std::uint32_t kMaxQuicksort = 256;
// Larger sets are first split by so many bits, from the highest in which any numbers differ. Keys
// of text and names differ in few: splitting by bytes takes tables 5 to 10 % longer, a quicksort
// alone as much.
constexpr std::uint32_t kSplitBits = 10;

// Batcher's odd-even merge sort of 2, 4, 8 or 16 numbers: fixed exchanges and no branch
// (sorting LMS positions takes a sixth less time than with insertion).
inline void order(std::uint64_t &a, std::uint64_t &b) {
    const std::uint64_t x = a;
    const std::uint64_t y = b;
    a = x < y ? x : y; // compiles to moves; std::min and std::max to branches
    b = x < y ? y : x;
}

template<std::uint32_t size, std::uint32_t step, std::uint32_t i>
[[gnu::always_inline]] inline void order_steps(std::uint64_t *numbers) {
    if constexpr (i + step < size) {
        order(numbers[i], numbers[i + step]);
        order_steps<size, step, i + 2 * step>(numbers);
    }
}

template<std::uint32_t size, std::uint32_t step>
[[gnu::always_inline]] inline void merge_halves(std::uint64_t *numbers) {
    if constexpr (2 * step < size) {
        merge_halves<size, 2 * step>(numbers);
        merge_halves<size, 2 * step>(numbers + step);
        order_steps<size, step, step>(numbers);
    } else {
        order(numbers[0], numbers[step]);
    }
}

template<std::uint32_t size>
[[gnu::always_inline]] inline void sort_network(std::uint64_t *numbers) {
    if constexpr (size > 1) {
        sort_network<size / 2>(numbers);
        sort_network<size / 2>(numbers + size / 2);
        merge_halves<size, 1>(numbers);
    }
}

template<std::uint32_t size>
void sort_padded(std::uint64_t *numbers, std::uint32_t m) {
    std::uint64_t padded[size];
    for (std::uint32_t i = 0; i < size; ++i)
        padded[i] = i < m ? numbers[i] : ~std::uint64_t{0};
    sort_network<size>(padded);
    std::memcpy(numbers, padded, m * sizeof *numbers);
}

// m: at most kMaxNetwork.
void sort_few(std::uint64_t *numbers, std::uint32_t m) {
    if (m <= 1) return;
    if (m <= 4) return sort_padded<4>(numbers, m);
    if (m <= 8) return sort_padded<8>(numbers, m);
    sort_padded<kMaxNetwork>(numbers, m);
}

std::uint64_t median(std::uint64_t a, std::uint64_t b, std::uint64_t c) {
    return std::max(std::min(a, b), std::min(std::max(a, b), c));
}

// Quicksort without a branch on a comparison (3 times as fast as std::sort on keys of text).
// m: at most kMaxQuicksort, which bounds what bad pivots cost.
void quicksort(std::uint64_t *numbers, std::uint32_t m) {
    while (m > kMaxNetwork) {
        const std::uint64_t pivot = median(numbers[m / 4], numbers[m / 2], numbers[m / 4 * 3]);
        std::uint32_t smaller = 0;
        for (std::uint32_t i = 0; i < m; ++i) {
            const std::uint64_t number = numbers[i];
            numbers[i] = numbers[smaller];
            numbers[smaller] = number;
            smaller += number < pivot;
        }
        // Neither part is empty: as numbers differ, the median is not the least.
        quicksort(numbers, smaller);
        numbers += smaller;
        m -= smaller;
    }
    sort_few(numbers, m);
}

// Splits numbers by their bits from bit `width` - 1, the highest in which any differ, and sorts the
// parts. Each split takes kSplitBits of at most 40 bits, so at most four are open at once. Not
// inlined: the counters would be in the frames of sort_distinct's halves, too.
[[gnu::noinline]] void split_by_bits(std::uint64_t *numbers, std::uint32_t m, std::uint32_t width,
                                     std::uint32_t low_bit, std::uint64_t *scratch,
                                     std::uint32_t scratch_size) {
    const std::uint32_t shift = std::max(width, low_bit + kSplitBits) - kSplitBits;
    const auto digit = [&](std::uint64_t number) {
        return number >> shift & ((1u << kSplitBits) - 1);
    };
    std::uint32_t ends[1u << kSplitBits] = {};
    for (std::uint32_t i = 0; i < m; ++i)
        ++ends[digit(numbers[i])];
    std::uint32_t sum = 0;
    for (std::uint32_t &end : ends)
        sum += std::exchange(end, sum);
    std::memcpy(scratch, numbers, m * sizeof *numbers);
    for (std::uint32_t i = 0; i < m; ++i)
        numbers[ends[digit(scratch[i])]++] = scratch[i];
    if (shift == low_bit) return;
    std::uint32_t begin = 0;
    for (const std::uint32_t end : ends) {
        if (end - begin > 1)
            sort_distinct(numbers + begin, end - begin, low_bit, scratch, scratch_size);
        begin = end;
    }
}

} // namespace

void sort_distinct(std::uint64_t *numbers, std::uint32_t m, std::uint32_t low_bit,
                   std::uint64_t *scratch, std::uint32_t scratch_size) {
    if (m <= kMaxQuicksort) return quicksort(numbers, m);
    std::uint64_t differences = 0;
    for (std::uint32_t i = 1; i < m; ++i)
        differences |= numbers[i] ^ numbers[0];
    if (differences >> low_bit == 0) return;
    const auto width = static_cast<std::uint32_t>(std::bit_width(differences));
    if (m <= scratch_size) return split_by_bits(numbers, m, width, low_bit, scratch, scratch_size);
    // By the highest bit alone, in place; the next time it is a lower one.
    const auto is_low = [=](std::uint64_t number) { return (number >> (width - 1) & 1) == 0; };
    std::uint64_t *const high = std::partition(numbers, numbers + m, is_low);
    const auto low_count = static_cast<std::uint32_t>(high - numbers);
    sort_distinct(numbers, low_count, low_bit, scratch, scratch_size);
    sort_distinct(high, m - low_count, low_bit, scratch, scratch_size);
}

} // namespace velk
