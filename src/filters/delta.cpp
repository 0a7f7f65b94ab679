#include "filters/delta.h"

#include "base/block_size.h"
#include "base/vectors.h"
#include "pipeline/stage.h"

#include <algorithm>

namespace velk {
namespace {

constexpr std::uint32_t kMinBlock = 4;
constexpr std::uint32_t kMaxRecord = 4;

// By distance d, how many positions match, that is, hold the same byte as the one d before; and
// how many of these follow a match. Zeros stand before the block.
struct Statistics {
    std::uint32_t matches[kMaxRecord + 1] = {};
    std::uint32_t repeated[kMaxRecord + 1] = {};
};

// Counts the positions from p to `end` - 1, also such without kMaxRecord + 1 bytes before them.
void gather_one_by_one(const std::uint8_t *block, std::uint32_t p, std::uint32_t end,
                       Statistics &statistics) {
    const auto matches = [=](std::uint32_t at, std::uint32_t d) {
        return block[at] == (at < d ? 0 : block[at - d]);
    };
    for (; p < end; ++p) {
        for (std::uint32_t d = 1; d <= kMaxRecord; ++d) {
            if (!matches(p, d)) continue;
            ++statistics.matches[d];
            if (p > 0 && matches(p - 1, d)) ++statistics.repeated[d];
        }
    }
}

// By vectors, whose sums stay in registers, 40 times as fast as one by one: no position waits for
// the matches of the one before.
Statistics gather(const std::uint8_t *block, std::uint32_t n) {
    std::uint32_t counts[2 * kMaxRecord] = {}; // of matches, of repeated ones
    const std::uint32_t start = std::min(kMaxRecord + 1, n);
    const std::uint32_t rest =
        count_in_lanes(start, n, counts, [=](std::uint32_t p, ByteLanes *lanes) {
            const ByteLanes here = load<ByteLanes>(block + p);
            const ByteLanes before = load<ByteLanes>(block + p - 1);
#pragma GCC unroll 4
            for (std::uint32_t d = 1; d <= kMaxRecord; ++d) {
                const ByteLanes match = here == load<ByteLanes>(block + p - d);
                lanes[d - 1] -= match;
                lanes[kMaxRecord + d - 1] -= match & (before == load<ByteLanes>(block + p - 1 - d));
            }
        });
    Statistics statistics;
    std::copy_n(counts, kMaxRecord, statistics.matches + 1);
    std::copy_n(counts + kMaxRecord, kMaxRecord, statistics.repeated + 1);
    gather_one_by_one(block, 0, start, statistics);
    gather_one_by_one(block, rest, n, statistics);
    return statistics;
}

// The record size, 0 if there is none.
std::uint32_t record_size(const Statistics &statistics, std::uint32_t n) {
    const auto &m = statistics.matches;
    const auto &r = statistics.repeated;
    if (m[1] > m[2] && m[1] > m[3] && m[1] > m[4]) return 0;
    std::uint32_t k = m[3] > m[4] ? 3 : 4;
    if (m[2] > m[3] && m[2] > m[4]) k = 2;

    static_assert(kMaxBlockSize + kBlockSlack < UINT32_MAX / (6 * kMaxRecord)); // products
    const std::uint32_t all = m[1] + m[2] + m[3] + m[4];
    if (n > (k == 3 ? 3 : 6) * all) return 0;

    // Distances 2 and 4 match together. The other one counts as a rival only where it
    // matches less than distance 3; otherwise m[1] counts twice.
    const auto related = [&](std::uint32_t d) { return m[d] < m[3] ? m[d] : m[1]; };
    std::uint32_t rivals = m[1];
    if (k == 2) rivals += m[3] + related(4);
    if (k == 3) rivals += m[2] + m[4];
    if (k == 4) rivals += m[3] + related(2);
    if (2 * m[k] <= 3 * rivals) return 0;

    const std::uint32_t others = all - m[k];
    const std::uint32_t others_repeated = r[1] + r[2] + r[3] + r[4] - r[k];
    return 4 * others_repeated > others ? 0 : k;
}

} // namespace

std::uint32_t find_record_size(const std::uint8_t *bytes, std::uint32_t n,
                               std::uint32_t (&same_before)[kMaxRecord + 1]) {
    if (n < kMinBlock) return 0;
    const Statistics statistics = gather(bytes, n);
    std::copy_n(statistics.matches, kMaxRecord + 1, same_before);
    return record_size(statistics, n);
}

void delta_encode(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                  std::uint8_t delta_off) {
    std::uint32_t same_before[kMaxRecord + 1];
    const std::uint32_t k = delta_off != 0 ? 0 : find_record_size(in, n, same_before);
    if (k == 0) return pass_on(in, n, out, out_len);
    std::uint8_t *next = out;
    for (std::uint32_t channel = 0; channel < k; ++channel) {
        for (std::uint32_t p = channel; p < n; p += k)
            *next++ = in[p];
    }
    *next = static_cast<std::uint8_t>(k - 1);
    out_len = n + 1;
}

bool delta_decode(std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out, std::uint32_t &out_len,
                  std::uint32_t capacity) {
    if (undo_pass_on(in, len, out, out_len)) return true;
    if (len == 0 || len > capacity) return false;
    const std::uint32_t k = in[len - 1] + 1u;
    if (k > kMaxRecord) return false;
    const std::uint8_t *next = in;
    for (std::uint32_t channel = 0; channel < k; ++channel) {
        for (std::uint32_t p = channel; p < len - 1; p += k)
            out[p] = *next++;
    }
    out_len = len - 1;
    return true;
}

} // namespace velk
