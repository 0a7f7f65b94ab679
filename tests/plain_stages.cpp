#include "plain_stages.h"

void plain_inverse_bwt(const std::uint8_t *last_column, std::uint32_t n,
                       std::uint32_t primary_index, std::uint32_t *rows, std::uint8_t *block) {
    std::uint32_t counts[256] = {}, first[256] = {};
    for (std::uint32_t row = 0; row < n; ++row)
        rows[row] = counts[last_column[row]]++ << 8 | last_column[row];
    for (unsigned v = 1; v < 256; ++v)
        first[v] = first[v - 1] + counts[v - 1];
    std::uint32_t row = primary_index - 1;
    for (std::uint32_t p = n; p > 0; --p) {
        block[p] = static_cast<std::uint8_t>(rows[row]);
        row = (rows[row] >> 8) + first[rows[row] & 255];
    }
    block[0] = block[n]; // the walk begins with the block's first byte
}
