// The sort of a periodic block by its period: a block is k times a shorter one, u, and so
// each rotation of u stands k times in a row among the sorted rotations of the block.
#include "sorting/rotation_sort.h"

#include <cassert>
#include <cstring>

namespace velk {
namespace {

bool has_period(const std::uint8_t *block, std::uint32_t n, std::uint32_t period) {
    return std::memcmp(block, block + period, n - period) == 0;
}

// The length of the shortest block that, repeated, makes this one: n for one that is not
// periodic. All periods are multiples of the shortest, so each prime factor can be taken
// out by itself.
std::uint32_t shortest_period(const std::uint8_t *block, std::uint32_t n) {
    std::uint32_t period = n;
    std::uint32_t rest = n;
    for (std::uint32_t factor = 2; rest > 1; ++factor) {
        if (factor * factor > rest) factor = rest; // what is left is a prime
        for (; rest % factor == 0; rest /= factor) {
            if (has_period(block, n, period / factor)) period /= factor;
        }
    }
    return period;
}

} // namespace

void sort_by_period(const SortArrays &arrays, std::uint8_t *block, std::uint32_t n,
                    std::uint8_t *scratch) {
    const std::uint32_t period = shortest_period(block, n);
    if (!sort_by_induction(arrays, block, period, scratch)) {
        // Of a period too short for it the plain sort takes hardly a step.
        [[maybe_unused]] const bool sorted = sort_by_tripling(arrays, block, period, scratch);
        assert(sorted);
    }
    // From the last row on, so that none is written over before it has been read.
    std::uint32_t *const rows = arrays.index_array;
    std::uint32_t next = n;
    for (std::uint32_t row = period; row-- > 0;) {
        const std::uint32_t entry = rows[row];
        for (std::uint32_t p = n; p > 0; p -= period)
            rows[--next] = entry + (p - period);
    }
}

} // namespace velk
