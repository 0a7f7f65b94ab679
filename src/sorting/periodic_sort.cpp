// The sort of a periodic block by its period: the block is k times a shorter one, u. So each
// rotation of u stands k times in a row among the sorted rotations of the block.
#include "sorting/rotation_sort.h"

#include <cassert>
#include <cstring>

namespace velk {

void sort_by_period(const SortArrays &arrays, std::uint8_t *block, std::uint32_t n,
                    std::uint8_t *scratch) {
    std::uint32_t period = 1; // the least one; of n's divisors, at most 504, each is compared
    while (n % period != 0 || std::memcmp(block, block + period, n - period) != 0)
        ++period;
    if (!sort_by_induction(arrays, block, period, scratch)) {
        // The period is too short for induction; the plain sort takes hardly a step.
        [[maybe_unused]] const bool sorted = sort_by_tripling(arrays, block, period);
        assert(sorted);
    }
    // Either sort may have used what lies behind the period.
    for (std::uint32_t p = period; p < n; ++p)
        block[p] = block[p - period];
    // From the last row on, so that none is written over before it has been read.
    std::uint32_t *const rows = arrays.index_array;
    std::uint32_t next = n;
    for (std::uint32_t row = period; row-- > 0;) {
        const std::uint32_t entry = rows[row];
        for (std::uint32_t p = n; p > 0; p -= period)
            rows[--next] = row_entry(preceding_byte(entry), position_of(entry) + p - period);
    }
}

} // namespace velk
