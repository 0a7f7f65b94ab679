// The walk back through the LF mapping.
//
//   LF vector, row r:  | occurrence number (24) | byte (8) |
//
// A row's byte precedes the row's rotation; the row that begins with it is the first
// row of that byte plus the number of equal bytes in the column before it.
#include "pipeline/byte_order.h"
#include "pipeline/stage.h"
#include "sorting/bwt.h"

#include <cstring>

namespace {

constexpr std::uint32_t kTrailerBytes = 5;

// Whether `buffer` begins in the first `bytes` bytes of `work_area`. The difference
// wraps around for one that begins before it.
bool overlaps(const std::uint8_t *buffer, const std::uint32_t *work_area, std::uint32_t bytes) {
    const auto offset =
        reinterpret_cast<std::uintptr_t>(buffer) - reinterpret_cast<std::uintptr_t>(work_area);
    return offset < bytes;
}

} // namespace

bool bwt_inverse(std::uint32_t *work_area, std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out,
                 std::uint32_t &out_len, std::uint32_t capacity) {
    if (len == 0 || len > capacity) return false;
    if (in[len - 1] == 0) {
        drop_trailer(in, len, out, out_len);
        return true;
    }
    if (len < kTrailerBytes || work_area == nullptr) return false;
    const std::uint32_t n = len - kTrailerBytes;
    const std::uint32_t primary_index = get_u32(in + n);
    if (primary_index < 1 || primary_index > n) return false;

    // The vector may reach into the lower buffer of the pair. As input that is no
    // harm: entry r ends below the first byte not yet read. The output must move.
    if (overlaps(out, work_area, 4 * n)) {
        std::memcpy(out, in, n);
        std::swap(in, out);
    }

    std::uint32_t counters[256] = {};
    for (std::uint32_t row = 0; row < n; ++row) {
        const std::uint8_t v = in[row];
        work_area[row] = counters[v]++ << 8 | v;
    }
    std::uint32_t first[256];
    std::uint32_t sum = 0;
    for (unsigned v = 0; v < 256; ++v) {
        first[v] = sum;
        sum += counters[v];
    }

    // Every row that the walk meets is below n: an occurrence number is below the
    // count of its byte.
    std::uint32_t row = primary_index - 1;
    std::uint32_t x = work_area[row];
    const std::uint8_t first_byte = static_cast<std::uint8_t>(x);
    for (std::uint32_t p = n - 1; p > 0; --p) {
        row = (x >> 8) + first[x & 255];
        x = work_area[row];
        out[p] = static_cast<std::uint8_t>(x);
    }
    out[0] = first_byte;
    out_len = n;
    return true;
}
