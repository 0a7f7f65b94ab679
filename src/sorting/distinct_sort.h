// Sorts distinct numbers, most often few of them: LMS entries, tied LMS positions by their names.
#pragma once

#include <cstdint>

namespace velk {

// Sorts `m` numbers, no two of them equal, by their bits from low_bit on. Those that agree
// there come in any order. scratch: scratch_size numbers, any contents; m or more make it fast.
void sort_distinct(std::uint64_t *numbers, std::uint32_t m, std::uint32_t low_bit,
                   std::uint64_t *scratch, std::uint32_t scratch_size);

} // namespace velk
