// Sorts distinct numbers, most often few of them.
#pragma once

#include <cstdint>

namespace velk {

// Sorts `m` numbers, no two of them equal, in O(m log m).
void sort_distinct(std::uint64_t *numbers, std::uint32_t m);

} // namespace velk
