// Bytes searched and counted.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace velk {

// The position of the first `byte` of the block from p, at most n, on; n if there is none.
inline std::uint32_t find_byte(const std::uint8_t *block, std::uint32_t p, std::uint32_t n,
                               std::uint8_t byte) {
    const void *const found = std::memchr(block + p, byte, n - p);
    if (found == nullptr) return n;
    return static_cast<std::uint32_t>(static_cast<const std::uint8_t *>(found) - block);
}

// The smallest byte value that the block does not hold, 256 if there is none. The smallest that
// the block's beginning lacks is looked for in the rest, which most texts lack, too. Each time
// that it is there, the beginning is doubled.
inline std::uint32_t find_free_byte(const std::uint8_t *block, std::uint32_t n) {
    std::array<bool, 256> used = {};
    for (std::uint32_t p = 0;;) {
        for (const std::uint32_t end = std::min(n, 2 * p + 4096); p < end; ++p)
            used[block[p]] = true;
        const auto byte =
            static_cast<std::uint32_t>(std::find(used.begin(), used.end(), false) - used.begin());
        if (byte == 256 || find_byte(block, p, n, static_cast<std::uint8_t>(byte)) == n)
            return byte;
    }
}

// How often each byte value occurs. Neighbours are counted in sets of their own: equal ones
// would wait for their common count.
inline std::array<std::uint32_t, 256> count_bytes(const std::uint8_t *block, std::uint32_t n) {
    std::array<std::uint32_t, 256> sets[4] = {};
    std::uint32_t p = 0;
    for (; n - p >= 4; p += 4) {
        for (std::uint32_t i = 0; i < 4; ++i)
            ++sets[i][block[p + i]];
    }
    for (; p < n; ++p)
        ++sets[0][block[p]];
    for (std::uint32_t v = 0; v < 256; ++v)
        sets[0][v] += sets[1][v] + sets[2][v] + sets[3][v];
    return sets[0];
}

} // namespace velk
