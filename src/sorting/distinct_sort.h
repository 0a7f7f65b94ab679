// Sorts distinct numbers, most often few of them: keys of valleys, names of ties.
#pragma once

#include <cstdint>

namespace velk {

// Sorts `m` numbers, no two of them equal, by their bits from low_bit on; those that agree
// there come in any order. scratch: scratch_size numbers, any; with m of them it is fast.
void sort_distinct(std::uint64_t *numbers, std::uint32_t m, std::uint32_t low_bit,
                   std::uint64_t *scratch, std::uint32_t scratch_size);

} // namespace velk
