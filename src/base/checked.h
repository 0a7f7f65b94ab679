// Sums of sizes that come from outside.
#pragma once

#include <cstdint>

namespace velk {

// Adds `more` to `sum`. False, with `sum` as it was, when the result is beyond 64 bits.
[[nodiscard]] inline bool add_checked(std::uint64_t &sum, std::uint64_t more) {
    if (more > UINT64_MAX - sum) return false;
    sum += more;
    return true;
}

} // namespace velk
