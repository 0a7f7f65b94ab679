#include "filters/delta.h"

#include "pipeline/stage.h"

namespace {

constexpr std::uint32_t kMinBlock = 4;
constexpr std::uint32_t kMaxRecord = 4;

// By distance, the positions that hold the same byte as the one that far before, and
// those of them whose predecessor does, too. Zeros stand before the block.
struct Statistics {
    std::uint32_t matches[kMaxRecord + 1] = {};
    std::uint32_t repeated[kMaxRecord + 1] = {};
};

Statistics gather(const std::uint8_t *block, std::uint32_t n) {
    Statistics statistics;
    std::uint8_t before[kMaxRecord + 1] = {}; // by distance
    std::uint32_t matched[kMaxRecord + 1] = {};
    for (std::uint32_t p = 0; p < n; ++p) {
        for (std::uint32_t d = kMaxRecord; d > 0; --d) {
            const std::uint32_t match = block[p] == before[d];
            statistics.matches[d] += match;
            statistics.repeated[d] += match & matched[d];
            matched[d] = match;
            before[d] = before[d - 1];
        }
        before[1] = block[p];
    }
    return statistics;
}

// The record size, 0 if there is none. All sums stay below 2^32: counts are below 2^24.
std::uint32_t record_size(const Statistics &statistics, std::uint32_t n) {
    const auto &m = statistics.matches;
    const auto &r = statistics.repeated;
    if (m[1] > m[2] && m[1] > m[3] && m[1] > m[4]) return 0;
    std::uint32_t k = m[3] > m[4] ? 3 : 4;
    if (m[2] > m[3] && m[2] > m[4]) k = 2;

    const std::uint32_t all = m[1] + m[2] + m[3] + m[4];
    if (n > (k == 3 ? 3 : 6) * all) return 0;

    // The multiple or divisor of k matches along with it and counts only while it is
    // rare; distance 1 stands in for it.
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

void delta_encode(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                  std::uint8_t delta_off) {
    const std::uint32_t k = delta_off != 0 || n < kMinBlock ? 0 : record_size(gather(in, n), n);
    if (k == 0) {
        pass_on(in, n, out, out_len);
        return;
    }
    std::uint8_t *next = out;
    for (std::uint32_t channel = 0; channel < k; ++channel) {
        for (std::uint32_t p = channel; p < n; p += k)
            *next++ = in[p];
    }
    *next = static_cast<std::uint8_t>(k - 1);
    out_len = n + 1;
}

bool delta_decode(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                  std::uint32_t capacity) {
    if (n == 0 || n > capacity) return false;
    const std::uint32_t k = in[n - 1] + 1u;
    if (k == 1) {
        drop_trailer(in, n, out, out_len);
        return true;
    }
    if (k > kMaxRecord) return false;
    const std::uint8_t *next = in;
    for (std::uint32_t channel = 0; channel < k; ++channel) {
        for (std::uint32_t p = channel; p < n - 1; p += k)
            out[p] = *next++;
    }
    out_len = n - 1;
    return true;
}
