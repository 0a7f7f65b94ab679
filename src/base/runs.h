// The runs of equal bytes.
#pragma once

#include "base/vectors.h"

#include <bit>
#include <cstdint>

namespace velk {

// Bytes whose runs are found at once: no run's start waits for the start of the one before.
constexpr std::uint32_t kRunGroup = 64;

// Bit k tells whether a run ends with byte k; k < kRunGroup, and the last of the `count` bytes,
// at least 1, ends one.
inline std::uint64_t run_ends(const std::uint8_t *bytes, std::uint32_t count) {
    std::uint64_t ends = 0;
    if (count > kRunGroup) {
        for (std::uint32_t k = 0; k < kRunGroup; k += kLanesOf<ByteLanes>) {
            const ByteLanes same = load<ByteLanes>(bytes + k) == load<ByteLanes>(bytes + k + 1);
            ends |= std::uint64_t{lane_bits(~same)} << k;
        }
        return ends;
    }
    for (std::uint32_t k = 0; k < count; ++k) {
        if (k + 1 == count || bytes[k] != bytes[k + 1]) ends |= std::uint64_t{1} << k;
    }
    return ends;
}

// Calls visit(start, end) for each run of the n bytes, until it returns false.
template<typename Visit>
bool visit_runs(const std::uint8_t *bytes, std::uint32_t n, Visit visit) {
    std::uint32_t start = 0;
    for (std::uint32_t group = 0; group < n; group += kRunGroup) {
        for (std::uint64_t ends = run_ends(bytes + group, n - group); ends != 0; ends &= ends - 1) {
            const std::uint32_t end =
                group + static_cast<std::uint32_t>(std::countr_zero(ends)) + 1;
            if (!visit(start, end)) return false;
            start = end;
        }
    }
    return true;
}

} // namespace velk
