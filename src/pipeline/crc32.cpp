#include "pipeline/crc32.h"

namespace {

std::uint32_t crc_table[256];

} // namespace

void crc32_init() {
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t x = i;
        for (int bit = 0; bit < 8; ++bit)
            x = (x >> 1) ^ ((x & 1) != 0 ? 0xEDB88320u : 0);
        crc_table[i] = x;
    }
}

std::uint32_t crc32_block(const std::uint8_t *buffer, std::uint32_t n) {
    if (n == 0) return 0;
    std::uint32_t x = 0xFFFFFFFFu;
    for (std::uint32_t p = n; p-- > 0;)
        x = (x >> 8) ^ crc_table[(x ^ buffer[p]) & 255];
    return ~x;
}
